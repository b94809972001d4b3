// Entry point of the `ostrel` command-line program; the work is in Cli.cpp and the commands.
#include "Cli.h"

#include <ostrel/rtl/Console.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
// After windows.h, whose types it uses.
#include <shellapi.h>

#include <ostrel/rtl/Strings.h>

namespace {

std::string WideToUtf8(std::wstring_view text) {
  if (text.empty()) return std::string();
  const int size = static_cast<int>(text.size());
  const int len =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(len > 0 ? len : 0), '\0');
  if (len > 0)
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, utf8.data(), len, nullptr, nullptr);
  return utf8;
}

// Windows gives main() its arguments in the ANSI code page, where anything outside that page
// is already lost. The UTF-16 command line has them all: they become UTF-8, the program's
// default terminal encoding, or CP1251 when --cp1251 comes before any "--" (`raw`). Should
// the command line not split, the ANSI arguments serve.
std::vector<std::string> WindowsArgs(int argc, char** argv, bool& raw) {
  std::vector<std::string> args;
  raw = false;
  int count = 0;
  LPWSTR* wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (!wide) {
    for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
    for (const std::string& a : args) {
      if (a == "--") break;
      if (a == "--cp1251") raw = true;
    }
    return args;
  }
  for (int i = 1; i < count; ++i) {
    const std::wstring_view a(wide[i]);
    if (a == L"--") break;
    if (a == L"--cp1251") raw = true;
  }
  for (int i = 1; i < count; ++i) {
    const std::wstring_view a(wide[i]);
    args.push_back(raw ? ostrel::WideToAnsi(std::u16string(a.begin(), a.end())) : WideToUtf8(a));
  }
  ::LocalFree(wide);
  return args;
}

// While the program runs, the console shows and reads the bytes the program deals in; the
// console's own code pages are given back at the end, as the shell expects them.
class ConsoleCodePages {
 public:
  explicit ConsoleCodePages(bool raw) : fOutput(::GetConsoleOutputCP()), fInput(::GetConsoleCP()) {
    const UINT page = raw ? 1251 : CP_UTF8;
    if (fOutput != 0) ::SetConsoleOutputCP(page);
    if (fInput != 0) ::SetConsoleCP(page);
  }
  ~ConsoleCodePages() {
    if (fOutput != 0) ::SetConsoleOutputCP(fOutput);
    if (fInput != 0) ::SetConsoleCP(fInput);
  }
  ConsoleCodePages(const ConsoleCodePages&) = delete;
  ConsoleCodePages& operator=(const ConsoleCodePages&) = delete;

 private:
  UINT fOutput;
  UINT fInput;
};

}  // namespace
#endif

int main(int argc, char** argv) {
  // Into a file or a pipe, a piece of output up to 64 KB leaves in one write. With the default
  // buffer (4 KB for a pipe) a piece of 17 KB left as three, and whoever reads the pipe woke
  // three times: `serial` passing a device's bytes on is where that showed.
  if (!ostrel::StdOutputIsTerminal()) std::setvbuf(stdout, nullptr, _IOFBF, std::size_t{1} << 16);
  std::vector<std::string> args;
#if defined(_WIN32)
  bool raw = false;
  args = WindowsArgs(argc, argv, raw);
  ConsoleCodePages console(raw);
#else
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
#endif
  return ostrel::cli::Main(args, std::cin, std::cout, std::cerr);
}
