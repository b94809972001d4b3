// The settings store: string values under registry-style key paths.
//
// On Windows it is the system registry (advapi32). Elsewhere it is a per-user tree of files
// under the XDG configuration directory ($XDG_CONFIG_HOME, or ~/.config when that is unset
// or not absolute):
//
//   <config>/ostrel/registry/<root key name>/<key>/<subkey>/.../values.txt
//
// One directory per key, its values in values.txt as UTF-8 "name=value" lines (backslash,
// line breaks and '=' escaped with a backslash). Key and value names are compared without
// regard to case, as in the registry; a new key keeps the spelling first given. A write
// goes to a temporary file that is flushed and then renamed over values.txt, so a crash in
// the middle leaves either the old or the new values, never a torn file.
#pragma once

#include <ostrel/rtl/System.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace ostrel {

// The predefined root keys, with their Windows numbers. Where windows.h came first its own
// HKEY_* macros stand for them; TRootKey takes either.
#ifndef HKEY_CURRENT_USER
inline constexpr Cardinal HKEY_CLASSES_ROOT = 0x80000000u;
inline constexpr Cardinal HKEY_CURRENT_USER = 0x80000001u;
inline constexpr Cardinal HKEY_LOCAL_MACHINE = 0x80000002u;
inline constexpr Cardinal HKEY_USERS = 0x80000003u;
inline constexpr Cardinal HKEY_CURRENT_CONFIG = 0x80000005u;
#endif

// A root key given as its number or as a windows.h HKEY.
struct TRootKey {
  Cardinal Value;
  constexpr TRootKey(Cardinal value) : Value(value) {}
  template <class T>
  TRootKey(T* hkey) : Value(static_cast<Cardinal>(reinterpret_cast<std::uintptr_t>(hkey))) {}
};

// Where the application's settings live below a root key.
inline constexpr std::string_view CompanyRegKey = "\\Software\\Velmora Soft";

namespace SysConst {
inline constexpr std::string_view SRegSetDataFailed = "Failed to set data for '%s'";
inline constexpr std::string_view SRegGetDataFailed = "Failed to get data for '%s'";
inline constexpr std::string_view SRegCreateFailed = "Failed to create key %s";
inline constexpr std::string_view SRegUnknownRoot = "Unknown registry root key %d";
}  // namespace SysConst

// Raised by the settings store when a key or value cannot be opened, read or written.
OSTREL_DECLARE_EXCEPTION(ERegistryException, Exception);

// One open key at a time, as the classic registry object. Key paths are CP1251 text with
// backslashes between keys; a path starting with a backslash is taken from the root key,
// any other from the key that is open (or the root when none is).
class OSTREL_API TRegistry : public TObject {
  OSTREL_CLASS(TRegistry, TObject)
 public:
  TRegistry();
  ~TRegistry() override;

  Cardinal RootKey() const noexcept { return fRootKey; }
  // Closes the open key. An unknown root raises ERegistryException.
  void SetRootKey(TRootKey rootKey);

  // Opens the key for reading and writing; with canCreate it is created (with the keys
  // above it) when missing. False when it cannot be opened.
  bool OpenKey(std::string_view key, bool canCreate);
  // Opens an existing key for reading only.
  bool OpenKeyReadOnly(std::string_view key);
  void CloseKey();
  bool KeyExists(std::string_view key);
  // The open key's path from the root, without a leading backslash ("" when none).
  const AnsiString& CurrentPath() const noexcept { return fCurrentPath; }
  bool HasCurrentKey() const noexcept { return fOpen; }

  bool ValueExists(std::string_view name);
  // "" when the value is missing; ERegistryException "Failed to get data for '%s'" when it
  // is no string (on Windows) or there is no open key.
  AnsiString ReadString(std::string_view name);
  // ERegistryException "Failed to set data for '%s'" when the key is read-only, not open or
  // the store refuses.
  void WriteString(std::string_view name, std::string_view value);
  // False when the value was not there.
  bool DeleteValue(std::string_view name);

 private:
  struct Impl;
  AnsiString Resolve(std::string_view key) const;

  Cardinal fRootKey = 0x80000001u;  // HKEY_CURRENT_USER
  AnsiString fCurrentPath;
  bool fOpen = false;
  bool fReadOnly = false;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace ostrel
