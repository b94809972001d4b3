// File names and whole files through std::filesystem, which speaks the system's own calls.
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Files.h>
#include <ostrel/rtl/Strings.h>

#include <filesystem>
#include <system_error>

namespace ostrel {

namespace fs = std::filesystem;

namespace {

fs::path ToPath(std::string_view fileName) {
  std::string utf8 = AnsiToUtf8(fileName);
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

AnsiString FromPath(const fs::path& p) {
  std::u8string u8 = p.u8string();
  return Utf8ToAnsi(std::u8string_view(u8));
}

bool IsDelimiter(char c) {
#ifdef _WIN32
  return c == '/' || c == '\\' || c == ':';
#else
  return c == '/';
#endif
}

}  // namespace

AnsiString ExpandFileName(std::string_view fileName) {
  std::error_code ec;
  fs::path p = fs::absolute(ToPath(fileName), ec);
  if (ec) return AnsiString(fileName);
  return FromPath(p.lexically_normal());
}

AnsiString ExtractFileName(std::string_view fileName) {
  std::size_t i = fileName.size();
  while (i > 0 && !IsDelimiter(fileName[i - 1])) --i;
  return AnsiString(fileName.substr(i));
}

bool RenameFile(std::string_view oldName, std::string_view newName, Cardinal* errorCode) {
  std::error_code ec;
  fs::rename(ToPath(oldName), ToPath(newName), ec);
  if (ec && errorCode) *errorCode = static_cast<Cardinal>(ec.value());
  return !ec;
}

bool DeleteFile(std::string_view fileName) {
  std::error_code ec;
  return fs::remove(ToPath(fileName), ec) && !ec;
}

bool FileExists(std::string_view fileName) {
  std::error_code ec;
  return fs::is_regular_file(ToPath(fileName), ec);
}

}  // namespace ostrel
