// The settings store kept apart for one test. On Windows the store is the user's registry,
// which cannot be redirected: the test works below a key of its own, removed before and
// after. Elsewhere the whole store moves to a fresh configuration directory.
#pragma once

#include <ostrel/rtl/Registry.h>

#include <filesystem>
#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#include <cstdlib>
#endif

namespace ostrel::testutil {

class SettingsSandbox {
 public:
  // key: the path from HKEY_CURRENT_USER, with a leading backslash, that the test writes below.
  explicit SettingsSandbox(std::string key = std::string(CompanyRegKey) + "\\Ostrel Test")
      : fKey(std::move(key)) {
#ifdef _WIN32
    Clear();
#else
    fDir =
        std::filesystem::temp_directory_path() / ("ostrel-settings-" + std::to_string(::getpid()));
    std::filesystem::remove_all(fDir);
    std::filesystem::create_directories(fDir);
    ::setenv("XDG_CONFIG_HOME", fDir.c_str(), 1);
#endif
  }
  ~SettingsSandbox() {
#ifdef _WIN32
    Clear();
#else
    ::unsetenv("XDG_CONFIG_HOME");
    std::filesystem::remove_all(fDir);
#endif
  }
  SettingsSandbox(const SettingsSandbox&) = delete;
  SettingsSandbox& operator=(const SettingsSandbox&) = delete;

  const std::string& Key() const { return fKey; }
  // The configuration directory (not on Windows).
  const std::filesystem::path& Dir() const { return fDir; }

 private:
#ifdef _WIN32
  void Clear() const { ::RegDeleteTreeA(HKEY_CURRENT_USER, fKey.c_str() + 1); }
#endif
  std::string fKey;
  std::filesystem::path fDir;
};

}  // namespace ostrel::testutil
