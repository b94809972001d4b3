// TRegistry: the system registry on Windows, a per-user file tree elsewhere.
#include <ostrel/rtl/Registry.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/SafeFile.h>
#include <ostrel/rtl/Strings.h>

#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#endif

namespace ostrel {

OSTREL_DEFINE_CLASS(TRegistry)

namespace {

// The key path split at backslashes, empty pieces dropped.
std::vector<AnsiString> SplitKey(std::string_view path) {
  std::vector<AnsiString> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    std::size_t end = path.find('\\', start);
    if (end == std::string_view::npos) end = path.size();
    if (end > start) parts.emplace_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// Classes root, current user, local machine, users and current configuration (the numbers,
// since windows.h makes the names pointers).
bool KnownRoot(Cardinal root) {
  return root >= 0x80000000u && root <= 0x80000005u && root != 0x80000004u;
}

}  // namespace

AnsiString TRegistry::Resolve(std::string_view key) const {
  AnsiString full;
  if (!(key.starts_with('\\')) && fOpen) full = fCurrentPath;
  for (const AnsiString& part : SplitKey(key)) {
    if (!full.empty()) full += '\\';
    full += part;
  }
  return full;
}

void TRegistry::SetRootKey(TRootKey rootKey) {
  if (!KnownRoot(rootKey.Value))
    throw ERegistryException(
        Format(SysConst::SRegUnknownRoot, static_cast<Integer>(rootKey.Value)));
  CloseKey();
  fRootKey = rootKey.Value;
}

#ifdef _WIN32

struct TRegistry::Impl {
  HKEY key = nullptr;
};

namespace {
HKEY RootHandle(Cardinal root) {
  return reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(root)));
}
}  // namespace

TRegistry::TRegistry() : fImpl(std::make_unique<Impl>()) {}

TRegistry::~TRegistry() { CloseKey(); }

void TRegistry::CloseKey() {
  if (fImpl->key) ::RegCloseKey(fImpl->key);
  fImpl->key = nullptr;
  fOpen = false;
  fReadOnly = false;
  fCurrentPath.clear();
}

bool TRegistry::OpenKey(std::string_view key, bool canCreate) {
  AnsiString path = Resolve(key);
  HKEY h = nullptr;
  LONG rc;
  if (canCreate)
    rc = ::RegCreateKeyExA(RootHandle(fRootKey), path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                           KEY_ALL_ACCESS, nullptr, &h, nullptr);
  else
    rc = ::RegOpenKeyExA(RootHandle(fRootKey), path.c_str(), 0, KEY_ALL_ACCESS, &h);
  if (rc != ERROR_SUCCESS) return false;
  CloseKey();
  fImpl->key = h;
  fOpen = true;
  fCurrentPath = path;
  return true;
}

bool TRegistry::OpenKeyReadOnly(std::string_view key) {
  AnsiString path = Resolve(key);
  HKEY h = nullptr;
  if (::RegOpenKeyExA(RootHandle(fRootKey), path.c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS)
    return false;
  CloseKey();
  fImpl->key = h;
  fOpen = true;
  fReadOnly = true;
  fCurrentPath = path;
  return true;
}

bool TRegistry::KeyExists(std::string_view key) {
  HKEY h = nullptr;
  if (::RegOpenKeyExA(RootHandle(fRootKey), Resolve(key).c_str(), 0, KEY_READ, &h) != ERROR_SUCCESS)
    return false;
  ::RegCloseKey(h);
  return true;
}

bool TRegistry::ValueExists(std::string_view name) {
  if (!fOpen) return false;
  AnsiString n(name);
  return ::RegQueryValueExA(fImpl->key, n.c_str(), nullptr, nullptr, nullptr, nullptr) ==
         ERROR_SUCCESS;
}

AnsiString TRegistry::ReadString(std::string_view name) {
  if (!fOpen) throw ERegistryException(Format(SysConst::SRegGetDataFailed, name));
  AnsiString n(name);
  DWORD type = 0, size = 0;
  if (::RegQueryValueExA(fImpl->key, n.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS)
    return {};
  if (type != REG_SZ && type != REG_EXPAND_SZ)
    throw ERegistryException(Format(SysConst::SRegGetDataFailed, name));
  AnsiString data(size, '\0');
  if (size > 0 && ::RegQueryValueExA(fImpl->key, n.c_str(), nullptr, &type,
                                     reinterpret_cast<BYTE*>(data.data()), &size) != ERROR_SUCCESS)
    throw ERegistryException(Format(SysConst::SRegGetDataFailed, name));
  data.resize(size);
  while (!data.empty() && data.back() == '\0') data.pop_back();
  return data;
}

void TRegistry::WriteString(std::string_view name, std::string_view value) {
  AnsiString n(name), v(value);
  if (!fOpen || fReadOnly ||
      ::RegSetValueExA(fImpl->key, n.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(v.c_str()),
                       static_cast<DWORD>(v.size() + 1)) != ERROR_SUCCESS)
    throw ERegistryException(Format(SysConst::SRegSetDataFailed, name));
}

bool TRegistry::DeleteValue(std::string_view name) {
  AnsiString n(name);
  return fOpen && !fReadOnly && ::RegDeleteValueA(fImpl->key, n.c_str()) == ERROR_SUCCESS;
}

#else  // the file tree

namespace fs = std::filesystem;

namespace {

const char* RootName(Cardinal root) {
  switch (root) {
    case HKEY_CLASSES_ROOT: return "HKEY_CLASSES_ROOT";
    case HKEY_LOCAL_MACHINE: return "HKEY_LOCAL_MACHINE";
    case HKEY_USERS: return "HKEY_USERS";
    case HKEY_CURRENT_CONFIG: return "HKEY_CURRENT_CONFIG";
    default: return "HKEY_CURRENT_USER";
  }
}

constexpr const char* ValuesFile = "values.txt";

fs::path Utf8Path(std::string_view ansi) {
  std::string utf8 = AnsiToUtf8(ansi);
  return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

AnsiString AnsiName(const fs::path& p) {
  std::u8string u = p.filename().u8string();
  return Utf8ToAnsi(std::u8string_view(u));
}

// A key name as a directory name: '/', '%' and '.' (which no key directory then holds, so
// values.txt and the temporary files never meet a key) as %XX.
AnsiString EncodeKeyName(std::string_view name) {
  AnsiString r;
  for (char c : name) {
    if (c == '/' || c == '%' || c == '.' || c == '\0') {
      r += Format("%%%.2X", static_cast<Integer>(static_cast<unsigned char>(c)));
    } else {
      r += c;
    }
  }
  return r;
}

AnsiString DecodeKeyName(std::string_view name) {
  auto hex = [](char c) {
    return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  };
  AnsiString r;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '%' && i + 2 < name.size() && hex(name[i + 1]) >= 0 && hex(name[i + 2]) >= 0) {
      r += static_cast<char>(hex(name[i + 1]) * 16 + hex(name[i + 2]));
      i += 2;
    } else {
      r += name[i];
    }
  }
  return r;
}

fs::path StoreRoot(Cardinal root) {
  fs::path base;
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg && *xdg && fs::path(xdg).is_absolute()) {
    base = xdg;
  } else {
    const char* home = std::getenv("HOME");
    base = fs::path(home && *home ? home : "/") / ".config";
  }
  return base / "ostrel" / "registry" / RootName(root);
}

// The directory of the key, each piece matched without regard to case; with create, missing
// pieces are made. Empty when the key does not exist (or cannot be made).
fs::path FindKeyDir(Cardinal root, std::string_view path, bool create) {
  fs::path dir = StoreRoot(root);
  std::error_code ec;
  if (create) {
    fs::create_directories(dir, ec);
    if (ec) return {};
  } else if (!fs::is_directory(dir, ec)) {
    return {};
  }
  for (const AnsiString& part : SplitKey(path)) {
    fs::path found;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
      if (it->is_directory(ec) && AnsiSameText(DecodeKeyName(AnsiName(it->path())), part)) {
        found = it->path();
        break;
      }
    }
    if (found.empty()) {
      if (!create) return {};
      found = dir / Utf8Path(EncodeKeyName(part));
      if (!fs::create_directory(found, ec) && ec) return {};
    }
    dir = found;
  }
  return dir;
}

void AppendEscaped(std::string& out, std::string_view s) {
  for (char c : s) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '=': out += "\\="; break;
      case '\0': out += "\\0"; break;
      default: out += c;
    }
  }
}

// Unescapes s up to an unescaped stop character; returns the position after it (npos when
// the text ended first).
std::size_t Unescape(std::string_view s, std::size_t from, char stop, std::string& out) {
  for (std::size_t i = from; i < s.size(); ++i) {
    char c = s[i];
    if (c == stop) return i + 1;
    if (c == '\\' && i + 1 < s.size()) {
      char e = s[++i];
      out += e == 'n' ? '\n' : e == 'r' ? '\r' : e == '0' ? '\0' : e;
    } else {
      out += c;
    }
  }
  return std::string_view::npos;
}

using ValueList = std::vector<std::pair<AnsiString, AnsiString>>;

ValueList LoadValues(const fs::path& dir) {
  ValueList values;
  std::ifstream in(dir / ValuesFile, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    std::string name, value;
    std::size_t pos = Unescape(line, 0, '=', name);
    if (pos == std::string_view::npos) continue;
    Unescape(line, pos, '\n', value);
    values.emplace_back(Utf8ToAnsi(name), Utf8ToAnsi(value));
  }
  return values;
}

bool SaveValues(const fs::path& dir, const ValueList& values) {
  std::string text;
  for (const auto& [name, value] : values) {
    AppendEscaped(text, AnsiToUtf8(name));
    text += '=';
    AppendEscaped(text, AnsiToUtf8(value));
    text += '\n';
  }
  const std::u8string target = (dir / ValuesFile).u8string();
  try {
    // Settings are private to their user.
    TSafeFileWriter file(Utf8ToAnsi(std::u8string_view(target)), 0600);
    file.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
    file.Commit();
    return true;
  } catch (const Exception&) {
    return false;
  }
}

// Writes of this process read, change and save a key's whole file one after another, so
// that two threads neither lose each other's values nor refuse each other's saves.
std::mutex gWriteLock;

ValueList::iterator FindValue(ValueList& values, std::string_view name) {
  for (auto it = values.begin(); it != values.end(); ++it)
    if (AnsiSameText(it->first, name)) return it;
  return values.end();
}

}  // namespace

struct TRegistry::Impl {
  fs::path dir;
};

TRegistry::TRegistry() : fImpl(std::make_unique<Impl>()) {}

TRegistry::~TRegistry() = default;

void TRegistry::CloseKey() {
  fImpl->dir.clear();
  fOpen = false;
  fReadOnly = false;
  fCurrentPath.clear();
}

bool TRegistry::OpenKey(std::string_view key, bool canCreate) {
  AnsiString path = Resolve(key);
  fs::path dir = FindKeyDir(fRootKey, path, canCreate);
  if (dir.empty()) return false;
  CloseKey();
  fImpl->dir = dir;
  fOpen = true;
  fCurrentPath = path;
  return true;
}

bool TRegistry::OpenKeyReadOnly(std::string_view key) {
  if (!OpenKey(key, false)) return false;
  fReadOnly = true;
  return true;
}

bool TRegistry::KeyExists(std::string_view key) {
  return !FindKeyDir(fRootKey, Resolve(key), false).empty();
}

bool TRegistry::ValueExists(std::string_view name) {
  if (!fOpen) return false;
  ValueList values = LoadValues(fImpl->dir);
  return FindValue(values, name) != values.end();
}

AnsiString TRegistry::ReadString(std::string_view name) {
  if (!fOpen) throw ERegistryException(Format(SysConst::SRegGetDataFailed, name));
  ValueList values = LoadValues(fImpl->dir);
  auto it = FindValue(values, name);
  return it == values.end() ? AnsiString() : it->second;
}

void TRegistry::WriteString(std::string_view name, std::string_view value) {
  if (!fOpen || fReadOnly) throw ERegistryException(Format(SysConst::SRegSetDataFailed, name));
  std::lock_guard<std::mutex> guard(gWriteLock);
  ValueList values = LoadValues(fImpl->dir);
  auto it = FindValue(values, name);
  if (it == values.end())
    values.emplace_back(AnsiString(name), AnsiString(value));
  else
    it->second = AnsiString(value);
  if (!SaveValues(fImpl->dir, values))
    throw ERegistryException(Format(SysConst::SRegSetDataFailed, name));
}

bool TRegistry::DeleteValue(std::string_view name) {
  if (!fOpen || fReadOnly) return false;
  std::lock_guard<std::mutex> guard(gWriteLock);
  ValueList values = LoadValues(fImpl->dir);
  auto it = FindValue(values, name);
  if (it == values.end()) return false;
  values.erase(it);
  return SaveValues(fImpl->dir, values);
}

#endif

}  // namespace ostrel
