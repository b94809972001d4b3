// The process and its host through the operating system (see Process.h).
#include <ostrel/rtl/Process.h>

#include <ostrel/rtl/Strings.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#if defined(_WIN32)
#include <windows.h>
// After windows.h, whose types it uses.
#include <shellapi.h>
#else
#include <unistd.h>
#endif

namespace ostrel {

namespace {

// Names and values the system cannot hold: a zero character ends them early.
bool HasZero(std::string_view s) { return s.find('\0') != std::string_view::npos; }

}  // namespace

std::vector<AnsiString> GetProcessArgs() {
  std::vector<AnsiString> args;
#if defined(_WIN32)
  // The UTF-16 command line, split as every Windows program splits it, so that the text does
  // not depend on the system's ANSI code page.
  int count = 0;
  if (LPWSTR* argv = CommandLineToArgvW(GetCommandLineW(), &count)) {
    for (int i = 0; i < count; ++i)
      args.push_back(WideToAnsi(reinterpret_cast<const char16_t*>(argv[i])));
    LocalFree(argv);
  }
#elif defined(__linux__)
  // The kernel's copy of the arguments: zero-terminated, one after another, UTF-8 by the
  // convention of the terminal that passed them.
  std::ifstream in("/proc/self/cmdline", std::ios::binary);
  const std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t start = 0;
  while (start < all.size()) {
    std::size_t end = all.find('\0', start);
    if (end == std::string::npos) end = all.size();
    args.push_back(Utf8ToAnsi(std::string_view(all).substr(start, end - start)));
    start = end + 1;
  }
#endif
  return args;
}

AnsiString GetExeFileName() {
#if defined(_WIN32)
  std::u16string buf(MAX_PATH, u'\0');
  for (;;) {
    DWORD n = GetModuleFileNameW(nullptr, reinterpret_cast<LPWSTR>(buf.data()),
                                 static_cast<DWORD>(buf.size()));
    if (n == 0) return AnsiString();
    if (n < buf.size()) return WideToAnsi(std::u16string_view(buf).substr(0, n));
    if (buf.size() >= 65536) return AnsiString();
    buf.resize(buf.size() * 2);
  }
#else
  // The link names the file in the file system's encoding, which is UTF-8 on the systems
  // the library runs on.
  std::vector<char> buf(256);
  for (;;) {
    ssize_t n = readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0) return AnsiString();
    if (static_cast<std::size_t>(n) < buf.size())
      return Utf8ToAnsi(std::string_view(buf.data(), static_cast<std::size_t>(n)));
    if (buf.size() >= 65536) return AnsiString();
    buf.resize(buf.size() * 2);
  }
#endif
}

AnsiString ProcessEnvValue(std::string_view name) {
  const AnsiString key(name);
  if (key.empty() || HasZero(key)) return AnsiString();
#if defined(_WIN32)
  std::string buf(256, '\0');
  for (;;) {
    const DWORD n =
        GetEnvironmentVariableA(key.c_str(), buf.data(), static_cast<DWORD>(buf.size()));
    if (n == 0) return AnsiString();
    if (n < buf.size()) return buf.substr(0, n);
    buf.resize(n);  // n counts the terminating zero when the buffer was too small
  }
#else
  const char* v = std::getenv(AnsiToUtf8(key).c_str());
  return v ? Utf8ToAnsi(v) : AnsiString();
#endif
}

bool SetProcessEnvValue(std::string_view name, std::string_view value) {
  const AnsiString key(name);
  const AnsiString val(value);
  if (key.empty() || HasZero(key) || HasZero(val)) return false;
#if defined(_WIN32)
  return SetEnvironmentVariableA(key.c_str(), val.c_str()) != 0;
#else
  if (key.find('=') != AnsiString::npos) return false;
  return setenv(AnsiToUtf8(key).c_str(), AnsiToUtf8(val).c_str(), 1) == 0;
#endif
}

AnsiString HostComputerName() {
#if defined(_WIN32)
  char buf[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD len = sizeof buf;
  if (GetComputerNameA(buf, &len)) return AnsiString(buf, len);
  return AnsiString();
#else
  char buf[256] = {};
  if (gethostname(buf, sizeof buf - 1) != 0) return AnsiString();
  return Utf8ToAnsi(std::string_view(buf));
#endif
}

bool IsForegroundProcess() {
#if defined(_WIN32)
  HWND foreground = GetForegroundWindow();
  DWORD process = 0;
  if (foreground) GetWindowThreadProcessId(foreground, &process);
  return process == GetCurrentProcessId();
#else
  return true;
#endif
}

void SystemMessageBox(std::string_view caption, std::string_view text) {
#if defined(_WIN32)
  MessageBoxA(nullptr, AnsiString(text).c_str(), AnsiString(caption).c_str(), MB_OK);
#else
  std::string out = AnsiToUtf8(caption);
  out += ": ";
  out += AnsiToUtf8(text);
  out += '\n';
  std::fwrite(out.data(), 1, out.size(), stderr);
  std::fflush(stderr);
#endif
}

}  // namespace ostrel
