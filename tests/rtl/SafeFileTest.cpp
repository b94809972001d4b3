// Saving a file keeps what the user had: a save is refused where writing the file in place
// would be, keeps mode, owner and links, takes any legal name, names the caller's file in its
// errors, cleans up after a killed save, and reaches the disk before it replaces the file.
#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Files.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/SafeFile.h>
#include <ostrel/xml/Xmlutils.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#ifdef _WIN32
#include <ImportPatch.h>
#else
#include <dlfcn.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using testutil::MessageOf;

fs::path SysPath(const std::string& ansi) {
  std::string utf8 = AnsiToUtf8(ansi);
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

std::string Get(const std::string& name) {
  std::ifstream in(SysPath(name), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void Put(const std::string& name, const std::string& text) {
  std::ofstream(SysPath(name), std::ios::binary) << text;
}

// The names sorted, separated by blanks.
std::string Sorted(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  std::string out;
  for (const auto& n : names) out += (out.empty() ? "" : " ") + n;
  return out;
}

// The ways the library saves a whole file; each must keep what the user had.
using SaveFn = std::function<void(const std::string& name, const std::string& text)>;

void SaveWithWriter(const std::string& name, const std::string& text) {
  TSafeFileWriter file(name);
  file.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  file.Commit();
}

const std::vector<std::pair<std::string, SaveFn>>& Saves() {
  static const std::vector<std::pair<std::string, SaveFn>> saves = {
      {"TSafeFileWriter", SaveWithWriter},
      {"SaveXData",
       [](const std::string& name, const std::string& text) {
         TXItem item;
         item.set_Name(text);
         SaveXData(&item, false, name);
       }},
      {"TStringList",
       [](const std::string& name, const std::string& text) {
         TStringList list;
         list.SetText(text);
         list.SaveToFile(name);
       }},
      {"TMemoryStream", [](const std::string& name, const std::string& text) {
         TMemoryStream stream;
         stream.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
         stream.SaveToFile(name);
       }}};
  return saves;
}

class SafeFile : public ::testing::Test {
 protected:
  void SetUp() override {
    dirPath = fs::temp_directory_path() / ("ostrel-save-" + std::to_string(std::random_device{}()));
    fs::remove_all(dirPath);
    fs::create_directories(dirPath);
    // Open to the unprivileged user that some tests switch to.
    fs::permissions(dirPath, fs::perms::all);
    dir = Utf8ToAnsi(std::u8string_view(dirPath.u8string()));
  }
  void TearDown() override {
    std::error_code ec;
    for (const auto& e : fs::recursive_directory_iterator(dirPath, ec))
      fs::permissions(e.path(), fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(dirPath, ec);
  }
  std::string Path(const std::string& name) const { return dir + "/" + name; }
  // The entries of the folder, sorted, as CP1251 names separated by blanks.
  std::string Entries() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dirPath))
      names.push_back(Utf8ToAnsi(std::u8string_view(e.path().filename().u8string())));
    return Sorted(names);
  }
  // "refused" or "written", for what an action did.
  static std::string Outcome(const std::function<void()>& action) {
    try {
      action();
      return "written";
    } catch (const EFCreateError&) {
      return "refused";
    } catch (const EFOpenError&) {
      return "refused";
    }
  }

  fs::path dirPath;
  std::string dir;
};

// Runs body as a user whom permissions bind: in a child process with the ids of "nobody"
// when the tests run as root (who may write any file), else right here. Its result comes back
// as text.
std::string Unprivileged(const std::function<std::string()>& body) {
#ifndef _WIN32
  if (::geteuid() == 0) {
    int fds[2];
    if (::pipe(fds) != 0) return "no pipe";
    pid_t pid = ::fork();
    if (pid == 0) {
      ::close(fds[0]);
      std::string out = "cannot drop privileges";
      if (::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0) {
        try {
          out = body();
        } catch (const std::exception& e) {
          out = std::string("exception: ") + e.what();
        }
      }
      (void)!::write(fds[1], out.data(), out.size());
      ::_exit(0);
    }
    ::close(fds[1]);
    std::string out;
    char buffer[256];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;)
      out.append(buffer, static_cast<std::size_t>(n));
    ::close(fds[0]);
    ::waitpid(pid, nullptr, 0);
    return out;
  }
#endif
  return body();
}

// ---- Refusals ---------------------------------------------------------------------------

TEST_F(SafeFile, AReadOnlyTargetIsRefusedAsAnInPlaceWriteIs) {
  for (const auto& [how, save] : Saves()) {
    const std::string name = Path("ro-" + how + ".txt");
    std::string result = Unprivileged([&, save = save] {
      Put(name, "old");
      fs::permissions(SysPath(name),
                      fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
      std::string inPlace = Outcome([&] { TFileStream(name, fmOpenWrite); });
      std::string saved = Outcome([&] { save(name, "new"); });
      return inPlace + " " + saved + " " + Get(name);
    });
#ifdef _WIN32
    // Wine started by root opens a read-only file for writing where Windows would not; the
    // save is refused all the same, as Windows refuses it.
    result.erase(0, result.find(' ') + 1);
    EXPECT_EQ(result, "refused old") << how;
#else
    EXPECT_EQ(result, "refused refused old") << how;
#endif
  }
  EXPECT_EQ(Entries().find(".tmp"), std::string::npos) << Entries();
}

// A holder of the target whose sharing denies writers keeps the file: the save is refused
// exactly where opening the file for writing is, and what the holder writes later lands in
// the file of that name.
class SafeFileShare : public SafeFile, public ::testing::WithParamInterface<Word> {};

TEST_P(SafeFileShare, HoldersThatDenyWritersKeepTheFile) {
  const std::string name = Path("held.txt");
  Put(name, "old");
  auto holder = std::make_unique<TFileStream>(name, GetParam());
  const std::string inPlace = Outcome([&] { TFileStream(name, fmOpenWrite); });
  const std::string saved = Outcome([&] { SaveWithWriter(name, "new"); });
#ifdef _WIN32
  // The system will not replace a file that anybody holds open without sharing its deletion.
  EXPECT_EQ(saved, "refused");
#else
  EXPECT_EQ(saved, inPlace);
#endif
  // What the holder writes later lands in the file of that name (read once it lets go).
  const bool writes = (GetParam() & 0x0F) != fmOpenRead;
  if (writes) holder->WriteBuffer("HOLD", 4);
  holder.reset();
  EXPECT_EQ(Get(name), saved == "written" ? "new" : writes ? "HOLD" : "old");
  EXPECT_EQ(Entries(), "held.txt");
}

INSTANTIATE_TEST_SUITE_P(Modes, SafeFileShare,
                         ::testing::Values(fmOpenRead | fmShareDenyWrite,
                                           fmOpenReadWrite | fmShareExclusive,
                                           fmOpenWrite | fmShareCompat,
                                           fmOpenWrite | fmShareDenyRead,
                                           fmOpenRead | fmShareDenyNone));

TEST_F(SafeFile, ASaveUnderWayRefusesAnotherOfTheSameFile) {
  const std::string name = Path("busy.txt");
  for (bool exists : {false, true}) {
    if (exists) Put(name, "old");
    TSafeFileWriter first(name);
    first.WriteBuffer("first", 5);
    EXPECT_EQ(Outcome([&] { SaveWithWriter(name, "second"); }), "refused") << exists;
    first.Commit();
    EXPECT_EQ(Get(name), "first");
    SaveWithWriter(name, "third");
    EXPECT_EQ(Get(name) + " " + Entries(), "third busy.txt");
  }
}

// ---- Names ------------------------------------------------------------------------------

TEST_F(SafeFile, EveryLegalNameSaves) {
  const std::string cyrillic = Cp1251(u8"ж").Str();  // two bytes in a POSIX name
  std::vector<std::string> names;
  for (std::size_t length : {237u, 238u, 246u, 255u})
    names.push_back(std::string(length - 1, 'n') + std::to_string(length % 10));
#ifndef _WIN32
  names.push_back(std::string(127, cyrillic[0]));        // 254 bytes
  names.push_back("a" + std::string(127, cyrillic[0]));  // 255 bytes
#endif
  for (const auto& name : names) {
    SaveWithWriter(Path(name), "text of " + std::to_string(name.size()));
    EXPECT_EQ(Get(Path(name)), "text of " + std::to_string(name.size()));
  }
  EXPECT_EQ(Entries(), Sorted(names));
  // Two long names with the same beginning are two files: saving both at once works.
  TSafeFileWriter one(Path(names[2])), two(Path(names[3]));
  one.WriteBuffer("1", 1);
  two.WriteBuffer("2", 1);
  one.Commit();
  two.Commit();
  EXPECT_EQ(Get(Path(names[2])) + Get(Path(names[3])), "12");
}

TEST_F(SafeFile, ErrorsNameTheCallersFile) {
  const std::string missing = Path("missing/keep.xml");
  const std::string expected = "Cannot create file \"" + ExpandFileName(missing) + "\". ";
  const std::string message = MessageOf<EFCreateError>([&] { SaveWithWriter(missing, "x"); });
  EXPECT_EQ(message.substr(0, expected.size()), expected);
  EXPECT_EQ(message.find(".tmp"), std::string::npos) << message;
#ifndef _WIN32
  // A folder that takes no new files (and a read-only one on Windows does).
  const std::string locked = Path("locked/keep.xml");
  std::string result = Unprivileged([&] {
    fs::create_directory(SysPath(Path("locked")));
    Put(locked, "old");
    fs::permissions(SysPath(Path("locked")), fs::perms::owner_read | fs::perms::owner_exec);
    return MessageOf<EFCreateError>([&] { SaveWithWriter(locked, "new"); }) + "|" + Get(locked);
  });
  EXPECT_EQ(result, "Cannot create file \"" + ExpandFileName(locked) + "\". " +
                        SysErrorMessage(EACCES) + "|old");
#endif
}

#ifndef _WIN32

// ---- What the user had (POSIX: modes, owners and links) ---------------------------------

// What a save left: the contents each save function writes for text.
std::string Written(const std::string& how, const std::string& text) {
  if (how == "SaveXData") return "<" + text + "/>\r\n";
  if (how == "TStringList") return text + "\r\n";
  return text;
}

TEST_F(SafeFile, ModeOwnerAndLinksAreKept) {
  for (const auto& [how, save] : Saves()) {
    SCOPED_TRACE(how);
    const std::string base = Path(how);
    fs::create_directory(SysPath(base));
    // Modes, and the owner where the saving user may give a file away.
    for (fs::perms mode : {fs::perms::owner_read | fs::perms::owner_write,
                           fs::perms::owner_all | fs::perms::group_read | fs::perms::group_write}) {
      const std::string name = base + "/mode";
      Put(name, "old");
      fs::permissions(SysPath(name), mode);
      const bool root = ::geteuid() == 0;
      if (root) {
        ASSERT_EQ(::chown(SysPath(name).c_str(), 65534, 65534), 0);
      }
      save(name, "new");
      struct stat st;
      ASSERT_EQ(::stat(SysPath(name).c_str(), &st), 0);
      EXPECT_EQ(st.st_mode & 07777, static_cast<unsigned>(mode));
      if (root) {
        EXPECT_EQ(testutil::Join(st.st_uid, st.st_gid), "65534 65534");
      }
      EXPECT_EQ(Get(name), Written(how, "new"));
    }
    // A symbolic link (relative, through another folder) is written through; so is a
    // dangling one, which creates its target.
    fs::create_directory(SysPath(base + "/real"));
    Put(base + "/real/file", "old");
    fs::create_symlink("real/file", SysPath(base + "/link"));
    fs::create_symlink("real/new", SysPath(base + "/dangling"));
    save(base + "/link", "via link");
    save(base + "/dangling", "via dangling");
    EXPECT_TRUE(fs::is_symlink(SysPath(base + "/link")));
    EXPECT_EQ(Get(base + "/real/file"), Written(how, "via link"));
    EXPECT_EQ(Get(base + "/real/new"), Written(how, "via dangling"));
    // Hard links stay one file.
    Put(base + "/first", "old");
    fs::create_hard_link(SysPath(base + "/first"), SysPath(base + "/second"));
    save(base + "/second", "both");
    EXPECT_TRUE(fs::equivalent(SysPath(base + "/first"), SysPath(base + "/second")));
    EXPECT_EQ(Get(base + "/first"), Written(how, "both"));
    EXPECT_EQ(fs::hard_link_count(SysPath(base + "/first")), 2u);
    for (const auto& e : fs::recursive_directory_iterator(SysPath(base)))
      EXPECT_NE(e.path().extension(), ".tmp") << e.path();
  }
}

TEST_F(SafeFile, ANewFileIsMadeAsAPlainCreateMakesIt) {
  const mode_t mask = ::umask(027);
  SaveWithWriter(Path("plain"), "x");
  TSafeFileWriter privateFile(Path("private"), 0600);
  privateFile.Commit();
  ::umask(mask);
  EXPECT_EQ(
      testutil::Join(fs::status(SysPath(Path("plain"))).permissions() ==
                         (fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read),
                     fs::status(SysPath(Path("private"))).permissions() ==
                         (fs::perms::owner_read | fs::perms::owner_write)),
      "1 1");
}

// ---- A killed save ----------------------------------------------------------------------

TEST_F(SafeFile, TheNextSaveTakesOverWhatAKilledSaveLeft) {
  const std::string name = Path("keep.xml");
  Put(name, "old");
  for (int kill = 0; kill < 2; ++kill) {
    pid_t pid = ::fork();
    if (pid == 0) {
      TSafeFileWriter killed(name);
      killed.WriteBuffer("torn", 4);
      ::_exit(0);  // no destructor runs, as when the process is killed
    }
    ::waitpid(pid, nullptr, 0);
  }
  const std::string left = Entries();
  EXPECT_EQ(left.substr(0, 19), "keep.xml keep.xml.~");
  EXPECT_EQ(left.substr(left.size() - 4), ".tmp");
  EXPECT_EQ(left.find(' ', 9), std::string::npos) << left;  // one temporary file for one target
  EXPECT_EQ(Get(name), "old");
  SaveWithWriter(name, "new");
  EXPECT_EQ(Get(name) + " " + Entries(), "new keep.xml");
}

// ---- Durability -------------------------------------------------------------------------
// The new text is on the disk before it takes the old one's place, and the folder is synced
// after. The test program stands in for the C library's fsync and rename, which the library
// calls through its import table, and records the order.

std::string gSyncLog;
bool gRecordSyncs = false;

template <class Fn>
Fn Next(const char* name) {
  return reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace ostrel

extern "C" int fsync(int fd) {
  if (ostrel::gRecordSyncs) {
    struct stat st;
    ::fstat(fd, &st);
    ostrel::gSyncLog += S_ISDIR(st.st_mode) ? "sync folder;" : "sync file;";
  }
  return ostrel::Next<int (*)(int)>("fsync")(fd);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  if (ostrel::gRecordSyncs) ostrel::gSyncLog += "rename;";
  return ostrel::Next<int (*)(const char*, const char*)>("rename")(from, to);
}

namespace ostrel {
namespace {

TEST_F(SafeFile, SyncedBeforeAndAfterTheRename) {
  const std::string name = Path("durable.xml");
  gRecordSyncs = true;
  SaveWithWriter(name, "new file");
  SaveWithWriter(name, "replaced");
  fs::create_hard_link(SysPath(name), SysPath(Path("linked")));
  SaveWithWriter(name, "in place");
  gRecordSyncs = false;
  EXPECT_EQ(gSyncLog,
            "sync file;rename;sync folder;"
            "sync file;rename;sync folder;"
            "sync file;sync file;");  // the temporary file, then the target written in place
  EXPECT_EQ(Get(Path("linked")), "in place");
}

#else  // Windows

// Durability: the new text is flushed before it takes the old one's place, and the
// replacement is written through. The library's import table is pointed at recorders.

std::string gSyncLog;
testutil::TImportPatch* gPatches[3];

template <int I, class Fn>
Fn Original() {
  return reinterpret_cast<Fn>(gPatches[I]->Original());
}

BOOL WINAPI RecordFlush(HANDLE h) {
  gSyncLog += "flush;";
  return Original<0, decltype(&FlushFileBuffers)>()(h);
}
BOOL WINAPI RecordReplace(LPCWSTR replaced, LPCWSTR replacement, LPCWSTR backup, DWORD flags,
                          LPVOID a, LPVOID b) {
  gSyncLog += "replace;";
  return Original<1, decltype(&ReplaceFileW)>()(replaced, replacement, backup, flags, a, b);
}
BOOL WINAPI RecordMove(LPCWSTR from, LPCWSTR to, DWORD flags) {
  gSyncLog += (flags & MOVEFILE_WRITE_THROUGH) ? "move write-through;" : "move;";
  return Original<2, decltype(&MoveFileExW)>()(from, to, flags);
}

TEST_F(SafeFile, FlushedBeforeTheReplaceWhichIsWrittenThrough) {
  HMODULE library = testutil::LibraryModule(reinterpret_cast<const void*>(&ExpandFileName));
  testutil::TImportPatch flush(library, "kernel32.dll", "FlushFileBuffers",
                               reinterpret_cast<void*>(&RecordFlush));
  testutil::TImportPatch replace(library, "kernel32.dll", "ReplaceFileW",
                                 reinterpret_cast<void*>(&RecordReplace));
  testutil::TImportPatch move(library, "kernel32.dll", "MoveFileExW",
                              reinterpret_cast<void*>(&RecordMove));
  ASSERT_TRUE(flush.Patched() && replace.Patched() && move.Patched());
  gPatches[0] = &flush;
  gPatches[1] = &replace;
  gPatches[2] = &move;
  const std::string name = Path("durable.xml");
  SaveWithWriter(name, "new file");
  SaveWithWriter(name, "replaced");
  EXPECT_EQ(gSyncLog, "flush;move write-through;flush;replace;");
  EXPECT_EQ(Get(name) + " " + Entries(), "replaced durable.xml");
}

#endif

}  // namespace
}  // namespace ostrel
