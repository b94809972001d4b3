// Points one entry of a module's import table at another function while it lives, so that a
// test sees the library's own calls of the system (a message box, a file being synced) without
// their effects or in the order they came. Windows only.
#pragma once

#include <windows.h>

#include <cstring>

namespace ostrel::testutil {

class TImportPatch {
 public:
  TImportPatch(HMODULE module, const char* dll, const char* function, void* replacement) {
    auto* base = reinterpret_cast<BYTE*>(module);
    auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
    auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& dir =
        nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* imp = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + dir.VirtualAddress);
         dir.VirtualAddress && imp->Name; ++imp) {
      if (_stricmp(reinterpret_cast<const char*>(base + imp->Name), dll) != 0) continue;
      auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + imp->OriginalFirstThunk);
      auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + imp->FirstThunk);
      for (; names->u1.AddressOfData; ++names, ++slots) {
        if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
        auto* byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
        if (std::strcmp(reinterpret_cast<const char*>(byName->Name), function) != 0) continue;
        fSlot = reinterpret_cast<void**>(&slots->u1.Function);
        fSaved = Swap(replacement);
        return;
      }
    }
  }
  ~TImportPatch() {
    if (fSlot) Swap(fSaved);
  }
  bool Patched() const { return fSlot != nullptr; }
  // The function the entry pointed at before, for a replacement that passes calls on.
  void* Original() const { return fSaved; }

 private:
  void* Swap(void* value) {
    DWORD protect = 0;
    VirtualProtect(fSlot, sizeof(void*), PAGE_READWRITE, &protect);
    void* old = *fSlot;
    *fSlot = value;
    VirtualProtect(fSlot, sizeof(void*), protect, &protect);
    return old;
  }
  void** fSlot = nullptr;
  void* fSaved = nullptr;
};

// The library's module, whose import table the tests patch.
inline HMODULE LibraryModule(const void* anyLibraryFunction) {
  HMODULE library = nullptr;
  GetModuleHandleExA(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      static_cast<LPCSTR>(anyLibraryFunction), &library);
  return library;
}

}  // namespace ostrel::testutil
