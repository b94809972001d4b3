// The settings store: the registry on Windows, a temporary configuration directory elsewhere.
#include <ostrel/rtl/Registry.h>
#include <ostrel/rtl/Strings.h>

#include "SettingsSandbox.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

using namespace ostrel;
namespace fs = std::filesystem;

namespace {

// Every key of these tests lies below the sandbox's own key.
class RegistryTest : public ::testing::Test {
 protected:
  testutil::SettingsSandbox sandbox;
  const std::string base = sandbox.Key();
  const fs::path& dir = sandbox.Dir();
};

TEST_F(RegistryTest, ValuesSurviveInAFreshObjectWhateverTheirBytes) {
  const AnsiString odd = Cp1251(u8"Порт=COM3\\a\r\nb\0c").Str();
  {
    TRegistry reg;
    ASSERT_TRUE(reg.OpenKey(base + "\\" + Cp1251(u8"Касса").Str(), true));
    reg.WriteString("Comm.DCB", "COM3: BAUD=9600");
    reg.WriteString(Cp1251(u8"Имя=с равенством").Str(), odd);
    reg.WriteString("comm.dcb", "COM4: BAUD=1200");  // same value, other case
  }
  TRegistry reg;
  EXPECT_FALSE(reg.OpenKeyReadOnly(base + "\\" + Cp1251(u8"Нет").Str()));
  const std::string other = "\\SOFTWARE\\velmora soft\\OSTREL TEST\\" + Cp1251(u8"КАССА").Str();
  ASSERT_TRUE(reg.OpenKeyReadOnly(other));
  EXPECT_EQ(reg.CurrentPath(), other.substr(1));
  EXPECT_EQ(reg.ReadString("COMM.DCB"), "COM4: BAUD=1200");
  EXPECT_EQ(reg.ReadString(Cp1251(u8"имя=С РАВЕНСТВОМ").Str()), odd);
  EXPECT_EQ(reg.ReadString("missing"), "");
  EXPECT_FALSE(reg.ValueExists("missing"));
  EXPECT_EQ(testutil::MessageOf<ERegistryException>([&] { reg.WriteString("x", "y"); }),
            "Failed to set data for 'x'");
#ifndef _WIN32
  // The tree is readable as it lies in the configuration directory.
  fs::path key =
      dir / "ostrel/registry/HKEY_CURRENT_USER/Software/Velmora Soft/Ostrel Test" / u8"Касса";
  std::ifstream in(key / "values.txt", std::ios::binary);
  std::string first;
  std::getline(in, first);
  EXPECT_EQ(first, "Comm.DCB=COM4: BAUD\\=1200");
#endif
}

TEST_F(RegistryTest, RelativeKeysRootsAndDeletes) {
  TRegistry reg;
  EXPECT_FALSE(reg.KeyExists(base + "\\A\\B"));
  ASSERT_TRUE(reg.OpenKey(base + "\\A", true));
  ASSERT_TRUE(reg.OpenKey("B/C.d", true));  // below the open key; '/' and '.' are name bytes
  EXPECT_EQ(reg.CurrentPath(), base.substr(1) + "\\A\\B/C.d");
  reg.WriteString("v", "1");
  EXPECT_TRUE(reg.KeyExists(base + "\\a\\b/c.D"));
  EXPECT_TRUE(reg.DeleteValue("V"));
  EXPECT_FALSE(reg.DeleteValue("v"));
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  EXPECT_FALSE(reg.HasCurrentKey());
  EXPECT_FALSE(reg.KeyExists(base + "\\A"));
  EXPECT_EQ(testutil::MessageOf<ERegistryException>([&] { reg.SetRootKey(7); }),
            "Unknown registry root key 7");
  EXPECT_EQ(testutil::MessageOf<ERegistryException>([&] { reg.ReadString("v"); }),
            "Failed to get data for 'v'");
}

// Threads writing one key at once neither refuse nor lose each other's values.
TEST_F(RegistryTest, ConcurrentWritersKeepEveryValue) {
  std::vector<std::thread> writers;
  std::atomic<int> refused{0};
  for (int t = 0; t < 2; ++t)
    writers.emplace_back([&, t] {
      TRegistry reg;
      if (!reg.OpenKey(base + "\\Shared", true)) return;
      for (int i = 0; i < 40; ++i) {
        try {
          reg.WriteString(std::to_string(t) + "." + std::to_string(i), "v");
        } catch (const ERegistryException&) {
          ++refused;
        }
      }
    });
  for (auto& w : writers) w.join();
  TRegistry reg;
  ASSERT_TRUE(reg.OpenKeyReadOnly(base + "\\Shared"));
  int found = 0;
  for (int t = 0; t < 2; ++t)
    for (int i = 0; i < 40; ++i)
      found += reg.ValueExists(std::to_string(t) + "." + std::to_string(i));
  EXPECT_EQ(testutil::Join(found, refused.load()), "80 0");
}

#ifndef _WIN32  // the file store's own behaviour

TEST_F(RegistryTest, TheValuesFileIsPrivate) {
  TRegistry reg;
  ASSERT_TRUE(reg.OpenKey("\\P", true));
  reg.WriteString("secret", "1");
  EXPECT_EQ(fs::status(dir / "ostrel/registry/HKEY_CURRENT_USER/P/values.txt").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(RegistryTest, AnInterruptedWriteLeavesTheOldValues) {
  TRegistry reg;
  ASSERT_TRUE(reg.OpenKey("\\K", true));
  reg.WriteString("a", "old");
  fs::path key = dir / "ostrel/registry/HKEY_CURRENT_USER/K";
  // A writer that died before its rename leaves only its temporary file behind.
  std::ofstream(key / "values.txt.tmp99999") << "a=torn";
  EXPECT_EQ(reg.ReadString("a"), "old");
  reg.WriteString("b", "new");
  EXPECT_EQ(reg.ReadString("a") + reg.ReadString("b"), "oldnew");
  int files = 0;
  for (const auto& e : fs::directory_iterator(key))
    files += e.path().filename() != "values.txt.tmp99999";
  EXPECT_EQ(files, 1);  // values.txt alone: this writer's own temporary file was renamed
}

TEST_F(RegistryTest, WithoutAnAbsoluteXdgDirectoryTheHomeConfigIsUsed) {
  ::setenv("XDG_CONFIG_HOME", "relative/dir", 1);
  const char* oldHome = std::getenv("HOME");
  std::string savedHome = oldHome ? oldHome : "";
  ::setenv("HOME", dir.c_str(), 1);
  {
    TRegistry reg;
    ASSERT_TRUE(reg.OpenKey("\\Software\\Velmora Soft", true));
    reg.WriteString("x", "1");
  }
  ::setenv("HOME", savedHome.c_str(), 1);
  EXPECT_TRUE(fs::exists(
      dir / ".config/ostrel/registry/HKEY_CURRENT_USER/Software/Velmora Soft/values.txt"));
}

#endif

}  // namespace
