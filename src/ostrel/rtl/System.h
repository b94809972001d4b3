// The object root of the platform: TObject and class references, GUIDs, IInterface with the
// counting smart pointer IPtr, and TInterfacedObject.
#pragma once

#include <ostrel/rtl/Exceptions.h>

#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace ostrel {

// ---------------------------------------------------------------------------------------
// GUIDs

using HRESULT = std::int32_t;
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);

/// The value of a hexadecimal digit (0-9, A-F, a-f), or -1 for any other character.
constexpr int HexDigitValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

struct TGUID {
  std::uint32_t D1 = 0;
  std::uint16_t D2 = 0;
  std::uint16_t D3 = 0;
  std::uint8_t D4[8] = {};

  constexpr friend bool operator==(const TGUID& a, const TGUID& b) {
    if (a.D1 != b.D1 || a.D2 != b.D2 || a.D3 != b.D3) return false;
    for (int i = 0; i < 8; ++i)
      if (a.D4[i] != b.D4[i]) return false;
    return true;
  }

  // Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}"; false when the text has another shape.
  static constexpr bool TryParse(std::string_view s, TGUID& g) {
    if (s.size() != 38 || s[0] != '{' || s[37] != '}' || s[9] != '-' || s[14] != '-' ||
        s[19] != '-' || s[24] != '-')
      return false;
    auto read = [&](std::size_t from, int digits, std::uint64_t& v) {
      v = 0;
      for (int i = 0; i < digits; ++i) {
        int h = HexDigitValue(s[from + i]);
        if (h < 0) return false;
        v = (v << 4) | static_cast<std::uint64_t>(h);
      }
      return true;
    };
    std::uint64_t v = 0;
    TGUID r;
    if (!read(1, 8, v)) return false;
    r.D1 = static_cast<std::uint32_t>(v);
    if (!read(10, 4, v)) return false;
    r.D2 = static_cast<std::uint16_t>(v);
    if (!read(15, 4, v)) return false;
    r.D3 = static_cast<std::uint16_t>(v);
    const std::size_t pos[8] = {20, 22, 25, 27, 29, 31, 33, 35};
    for (int i = 0; i < 8; ++i) {
      if (!read(pos[i], 2, v)) return false;
      r.D4[i] = static_cast<std::uint8_t>(v);
    }
    g = r;
    return true;
  }

  // Compile-time GUID from its braced text: `static constexpr TGUID IID = TGUID::From("{...}")`.
  static consteval TGUID From(const char* text) {
    std::size_t n = 0;
    while (text[n]) ++n;
    TGUID g;
    if (!TryParse(std::string_view(text, n), g)) throw std::logic_error("malformed GUID text");
    return g;
  }
};

// "{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}", upper-case hexadecimal.
OSTREL_API AnsiString GUIDToString(const TGUID& guid);
// Raises EConvertError "'%s' is not a valid GUID value".
OSTREL_API TGUID StringToGUID(std::string_view text);
inline bool IsEqualGUID(const TGUID& a, const TGUID& b) { return a == b; }

// ---------------------------------------------------------------------------------------
// IInterface

// The root of every reference-counted interface. Interfaces are abstract structs with their
// own operations declared after these three, in slot order, and a static IID.
struct IInterface {
  static constexpr TGUID IID = TGUID::From("{00000000-0000-0000-C000-000000000046}");
  virtual HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) = 0;
  virtual Integer OSTREL_STDCALL _AddRef() = 0;
  virtual Integer OSTREL_STDCALL _Release() = 0;

 protected:
  ~IInterface() = default;
};
using IUnknown = IInterface;

// A counting reference: AddRef on copy, Release on destruction, QueryInterface via As<U>().
template <class T>
class IPtr {
 public:
  IPtr() noexcept = default;
  IPtr(std::nullptr_t) noexcept {}
  // Takes a new reference to p (as assigning an interface variable does).
  IPtr(T* p) noexcept : fPtr(p) {
    if (fPtr) fPtr->_AddRef();
  }
  IPtr(const IPtr& o) noexcept : IPtr(o.fPtr) {}
  IPtr(IPtr&& o) noexcept : fPtr(std::exchange(o.fPtr, nullptr)) {}
  template <class U, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
  IPtr(const IPtr<U>& o) noexcept : IPtr(static_cast<T*>(o.Get())) {}
  ~IPtr() { Reset(); }

  IPtr& operator=(const IPtr& o) noexcept {
    IPtr(o).Swap(*this);
    return *this;
  }
  IPtr& operator=(IPtr&& o) noexcept {
    IPtr(std::move(o)).Swap(*this);
    return *this;
  }
  IPtr& operator=(std::nullptr_t) noexcept {
    Reset();
    return *this;
  }

  // Adopts a reference that the caller already owns (no AddRef).
  static IPtr Attach(T* p) noexcept {
    IPtr r;
    r.fPtr = p;
    return r;
  }
  // Gives up the reference without releasing it.
  T* Detach() noexcept { return std::exchange(fPtr, nullptr); }
  void Reset() noexcept {
    if (T* p = std::exchange(fPtr, nullptr)) p->_Release();
  }
  // Clears the pointer and returns its address for an out argument of QueryInterface.
  void** ReleaseAndGetAddressOf() noexcept {
    Reset();
    return reinterpret_cast<void**>(&fPtr);
  }
  void Swap(IPtr& o) noexcept { std::swap(fPtr, o.fPtr); }

  T* Get() const noexcept { return fPtr; }
  T* operator->() const noexcept { return fPtr; }
  T& operator*() const noexcept { return *fPtr; }
  explicit operator bool() const noexcept { return fPtr != nullptr; }

  // QueryInterface for U; null when the object does not support it.
  template <class U>
  IPtr<U> As() const {
    IPtr<U> r;
    if (fPtr) fPtr->QueryInterface(U::IID, r.ReleaseAndGetAddressOf());
    return r;
  }
  // QueryInterface for an identity known only at run time.
  IPtr<IInterface> Query(const TGUID& iid) const {
    IPtr<IInterface> r;
    if (fPtr) fPtr->QueryInterface(iid, r.ReleaseAndGetAddressOf());
    return r;
  }

  friend bool operator==(const IPtr& a, const IPtr& b) noexcept { return a.fPtr == b.fPtr; }
  friend bool operator==(const IPtr& a, std::nullptr_t) noexcept { return a.fPtr == nullptr; }

 private:
  T* fPtr = nullptr;
};

// Whether the interface supports iid; the second form hands the reference out.
template <class T>
bool Supports(const IPtr<T>& intf, const TGUID& iid) {
  return static_cast<bool>(intf.Query(iid));
}
template <class T, class U>
bool Supports(const IPtr<T>& intf, IPtr<U>& out) {
  out = intf.template As<U>();
  return static_cast<bool>(out);
}

// ---------------------------------------------------------------------------------------
// TObject and class references

struct TClassInfo {
  const char* Name;
  const TClassInfo* Parent;
};
using TClass = const TClassInfo*;

// Declares the class-info record and ClassType of a TObject descendant; the record itself is
// defined by OSTREL_DEFINE_CLASS(Name) in one source file of the module that owns the class.
// A class reference must be one address in the whole process: a record defined inline would
// be copied into every module that names the class (each DLL and the program on Windows), and
// ClassType() == X::StaticClass() or InheritsFrom would then fail across the module boundary.
#define OSTREL_CLASS(Name, Parent)                                               \
 public:                                                                         \
  using ClassParent = Parent;                                                    \
  static ::ostrel::TClass StaticClass() noexcept;                                \
  ::ostrel::TClass ClassType() const noexcept override { return StaticClass(); } \
                                                                                 \
 private:

// Defines the class-info record declared by OSTREL_CLASS, at namespace scope in the class's
// namespace (in the library for exported classes, so that it is exported with them).
#define OSTREL_DEFINE_CLASS(Name)                                              \
  ::ostrel::TClass Name::StaticClass() noexcept {                              \
    static const ::ostrel::TClassInfo info{#Name, ClassParent::StaticClass()}; \
    return &info;                                                              \
  }

class OSTREL_API TObject {
 public:
  TObject() = default;
  TObject(const TObject&) = delete;
  TObject& operator=(const TObject&) = delete;
  virtual ~TObject();

  static TClass StaticClass() noexcept;
  virtual TClass ClassType() const noexcept { return StaticClass(); }
  const char* ClassName() const noexcept { return ClassType()->Name; }
  bool InheritsFrom(TClass cls) const noexcept;
  static bool ClassInheritsFrom(TClass cls, TClass ancestor) noexcept;

  // The object's own interface table: on success stores a counted reference in *obj.
  virtual bool GetInterface(const TGUID& iid, void** obj);

  // Called by Free before the destructor; may raise to refuse destruction.
  virtual void BeforeDestruction() {}
  // Destroys the object (as the classic Free): nothing for null.
  static void Free(TObject* obj);
};

// Asks a plain object for an interface (its own table only).
template <class U>
IPtr<U> GetObjectInterface(TObject* obj) {
  IPtr<U> r;
  if (obj) obj->GetInterface(U::IID, r.ReleaseAndGetAddressOf());
  return r;
}
inline bool Supports(TObject* obj, const TGUID& iid) {
  IPtr<IInterface> r;
  return obj && obj->GetInterface(iid, r.ReleaseAndGetAddressOf());
}

// Answers iid with the first listed interface whose IID matches; adds the reference.
// Use inside GetInterface: `if (GetInterfaceEntry<IDump, IObjectRTTI>(this, iid, obj)) ...`.
template <class... Intfs, class Self>
bool GetInterfaceEntry(Self* self, const TGUID& iid, void** obj) {
  IInterface* found = nullptr;
  auto tryOne = [&](auto* entry) {
    if (!found && iid == std::remove_pointer_t<decltype(entry)>::IID) {
      found = entry;
      *obj = entry;
    }
  };
  (tryOne(static_cast<Intfs*>(self)), ...);
  if (found) found->_AddRef();
  return found != nullptr;
}

// ---------------------------------------------------------------------------------------
// TInterfacedObject

// The reference-counted object: atomic count, freed when the count drops to zero.
class OSTREL_API TInterfacedObject : public TObject, public IInterface {
  OSTREL_CLASS(TInterfacedObject, TObject)
 public:
  TInterfacedObject() = default;
  ~TInterfacedObject() override;

  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override;
  Integer OSTREL_STDCALL _AddRef() override;
  Integer OSTREL_STDCALL _Release() override;
  bool GetInterface(const TGUID& iid, void** obj) override;
  // Refuses destruction (EInvalidPointer) while references exist.
  void BeforeDestruction() override;

  Integer RefCount() const noexcept { return fRefCount.load(std::memory_order_acquire); }

 protected:
  std::atomic<Integer> fRefCount{0};
};

// Descendants of TInterfacedObject that add interfaces route the IInterface slots of those
// interfaces to TInterfacedObject with this macro (each added interface brings its own copy of
// the three slots); OSTREL_KXOBJECT_IINTERFACE does the same for TkxObject.
#define OSTREL_INTERFACED_IINTERFACE                                                      \
  ::ostrel::HRESULT OSTREL_STDCALL QueryInterface(const ::ostrel::TGUID& iid, void** obj) \
      override {                                                                          \
    return ::ostrel::TInterfacedObject::QueryInterface(iid, obj);                         \
  }                                                                                       \
  ::ostrel::Integer OSTREL_STDCALL _AddRef() override {                                   \
    return ::ostrel::TInterfacedObject::_AddRef();                                        \
  }                                                                                       \
  ::ostrel::Integer OSTREL_STDCALL _Release() override {                                  \
    return ::ostrel::TInterfacedObject::_Release();                                       \
  }

}  // namespace ostrel
