// The object model of the framework (TkxObject with controller, links and aggregation), the
// helpers that pass objects through interfaces and variants, and the dump container.
#pragma once

#include <ostrel/core/Sysintf.h>
#include <ostrel/rtl/Strings.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace ostrel {

class TComponent;
struct IInterfaceList;

// Resource strings of the core.
inline constexpr auto _SErrPropIsReadOnly = Cp1251(u8"%s: свойство \"%s\" только для чтения");
inline constexpr auto _SErrDumpNameNotFount =
    Cp1251(u8"Элемент/параметр с именем \"%s\" не найден");

class TkxObject;

// One link of a controller: a contained object and the ID it was attached under.
struct TkxLink {
  TkxObject* Obj;
  Integer ID;
};
using TkxLinks = std::vector<TkxLink>;

// The base of every framework object handed out as an interface.
//
// An object is self-owned (freed when its count drops to zero) or lives under an owner. It
// may have a controller, another TkxObject, which it keeps alive through a counted reference
// for as long as it is referenced itself; and it keeps the list of objects that name it as
// their controller (its links). Interface queries that the object cannot answer fall through
// to its links, so a controller aggregates the interfaces of what it contains.
//
// Linking and unlinking are not locked: they belong to one thread. Counts are atomic.
class OSTREL_API TkxObject : public TInterfacedObject,
                             public IObjectReference,
                             public IContainedObject {
  OSTREL_CLASS(TkxObject, TInterfacedObject)
 public:
  explicit TkxObject(bool owned);
  ~TkxObject() override;

  // IInterface
  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override;
  Integer OSTREL_STDCALL _AddRef() override;
  Integer OSTREL_STDCALL _Release() override;
  // IObjectReference
  TObject* OSTREL_STDCALL GetInstance() override;
  // IContainedObject
  IPtr<IInterface> OSTREL_STDCALL GetController() override;
  void OSTREL_STDCALL SetController(const IPtr<IInterface>& controller, bool owned,
                                    Integer id) override;

  // The own interface table: IInterface (answered with the IObjectReference entry),
  // IObjectReference, IContainedObject. Descendants add theirs and call this one last.
  bool GetInterface(const TGUID& iid, void** obj) override;
  // Checks the count only when self-owned; an owned object may go while referenced.
  void BeforeDestruction() override;

  // The own table first, then the links with the given ID; S_OK or E_NOINTERFACE.
  virtual HRESULT QueryInterfaceEx(const TGUID& iid, Integer id, void** obj);
  // Asks, in insertion order, the linked objects attached under `id`.
  bool QueryByLinks(const TGUID& iid, Integer id, void** obj);
  bool GetIntf(const TGUID& iid, Integer id, void** obj);
  template <class T>
  IPtr<T> GetIntf(Integer id = 0) {
    IPtr<T> r;
    GetIntf(T::IID, id, r.ReleaseAndGetAddressOf());
    return r;
  }

  // The links list, created on first use.
  TkxLinks& Links();
  bool HasLinks() const noexcept { return fLinks && !fLinks->empty(); }
  // Frees every linked object and drops the list.
  void FreeLinks();
  // Leaves the controller: removes this object's records from its links and drops the
  // counted reference to it.
  void ReleaseController();

  TkxObject* Controller() const noexcept { return fController; }
  bool SelfOwned() const noexcept { return fSelfOwned; }
  // The object's identity as IInterface (its IObjectReference entry), not counted.
  IInterface* AsIInterface() noexcept { return static_cast<IObjectReference*>(this); }

 private:
  TkxObject* fController = nullptr;
  IPtr<IInterface> fControllerRef;
  std::unique_ptr<TkxLinks> fLinks;
  bool fSelfOwned;
  // Set once destruction has begun, so that counts touched by the teardown of links and
  // values cannot start a second destruction.
  bool fDestroying = false;
};

// Descendants that add interfaces route the IInterface slots of those interfaces to
// TkxObject with this macro (each added interface brings its own copy of the three slots).
#define OSTREL_KXOBJECT_IINTERFACE                                                               \
  ::ostrel::HRESULT OSTREL_STDCALL QueryInterface(const ::ostrel::TGUID& iid, void** obj)        \
      override {                                                                                 \
    return ::ostrel::TkxObject::QueryInterface(iid, obj);                                        \
  }                                                                                              \
  ::ostrel::Integer OSTREL_STDCALL _AddRef() override { return ::ostrel::TkxObject::_AddRef(); } \
  ::ostrel::Integer OSTREL_STDCALL _Release() override { return ::ostrel::TkxObject::_Release(); }

// A TkxObject that is always self-owned.
class OSTREL_API TkxInterfacedObject : public TkxObject {
  OSTREL_CLASS(TkxInterfacedObject, TkxObject)
 public:
  TkxInterfacedObject() : TkxObject(true) {}
};

// ---------------------------------------------------------------------------------------
// Objects through interfaces and variants

// The object behind an interface (through IObjectReference). Null gives null; an interface
// without IObjectReference raises "IObjectReference not implemented" when required, else null.
OSTREL_API TObject* ObjRef(IInterface* intf, bool required = true);
template <class T>
TObject* ObjRef(const IPtr<T>& intf, bool required = true) {
  return ObjRef(static_cast<IInterface*>(intf.Get()), required);
}
// A variant holding an interface (varUnknown) gives that interface's object; any other value
// is converted to an integer and taken as the object's address (0 gives null).
OSTREL_API TObject* ObjRef(const Variant& value, bool required = true);
// The object's IInterface; BUG "ObjIntf: IUnknown not implemented" when it has none.
OSTREL_API void ObjIntf(const Variant& value, IPtr<IInterface>& intf);
OSTREL_API void ObjIntf(TObject* obj, IPtr<IInterface>& intf);
// An object's address as a variant integer, the form ObjRef reads back.
OSTREL_API Variant ObjToVar(TObject* obj);

// SetController through IContainedObject; "IContainedObject required" when obj has none.
OSTREL_API void SetControllerIntf(const IPtr<IInterface>& obj, const IPtr<IInterface>& controller,
                                  bool owned, Integer id);

// Classes that offer name-dispatched access (IObjectRTTI). A class may be registered twice.
OSTREL_API void RegisterRTTI(TClass cls);
// The registered classes in registration order.
OSTREL_API std::vector<TClass> GetRegisteredRTTIClasses();

// Raises _SErrPropIsReadOnly with the object's class name and the property name when
// readOnly is true.
OSTREL_API void CheckPropReadOnly(TObject* obj, std::string_view propName, bool readOnly);

// Follows a "."-separated path of component names down from root through owned components;
// null when a segment is missing, root is null or the path has no segment.
OSTREL_API TComponent* FindComponentEx(TComponent* root, std::string_view path);

// ---------------------------------------------------------------------------------------
// The dump

// The dump container. Entries keep their order; names compare without regard to case and
// keep their first spelling. Small dumps are searched linearly; past a few entries a hash
// index over the folded names keeps lookups constant-time.
class OSTREL_API TkxDump : public TkxObject, public IDump, public IObjectRTTI {
  OSTREL_CLASS(TkxDump, TkxObject)
 public:
  TkxDump();
  explicit TkxDump(bool owned);
  ~TkxDump() override;

  OSTREL_KXOBJECT_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  // IDump
  AnsiString OSTREL_STDCALL get_Name(Integer index) override;
  Integer OSTREL_STDCALL get_Count() override;
  Variant OSTREL_STDCALL get_Value(Integer index) override;
  void OSTREL_STDCALL set_Value(Integer index, const Variant& value) override;
  Variant OSTREL_STDCALL get_ByName(std::string_view name) override;
  void OSTREL_STDCALL set_ByName(std::string_view name, const Variant& value) override;
  Integer OSTREL_STDCALL IndexOf(std::string_view name) override;
  bool OSTREL_STDCALL IsEmpty() override;
  void OSTREL_STDCALL Delete(Integer index) override;

  // IObjectRTTI: the commands act on `instance` when it is a dump, else on this dump.
  Variant OSTREL_STDCALL GetProp(TObject* instance, TClass cls, std::string_view name) override;
  void OSTREL_STDCALL SetProp(TObject* instance, TClass cls, std::string_view name,
                              const Variant& value) override;
  Variant OSTREL_STDCALL CallMethod(TObject* instance, TClass cls, std::string_view name,
                                    Variant& params) override;

  bool Find(std::string_view name, Integer& index);
  // Removes every entry, first to last.
  void Clear();
  // Removes the entries named in a ";"-separated list, in one pass over the dump; names it
  // does not hold are passed over. The values go after the dump is whole again, in the
  // order named.
  void Remove(std::string_view names);
  // Merges source in: each of its entries, in order, is set by name here.
  void Assign(TkxDump* source);
  // The dump's IDump entry, not counted.
  IDump* AsIDump() noexcept { return this; }

 private:
  // A name in 16 bytes: up to 15 bytes in place, a longer one on the heap.
  class EntryName {
   public:
    explicit EntryName(std::string_view s);
    EntryName(const EntryName& other) : EntryName(other.View()) {}
    EntryName(EntryName&& other) noexcept;
    EntryName& operator=(const EntryName&) = delete;
    EntryName& operator=(EntryName&& other) noexcept;
    ~EntryName();

    std::string_view View() const noexcept {
      if (fBytes[kLenAt] != kOnHeap)
        return std::string_view(reinterpret_cast<const char*>(fBytes), fBytes[kLenAt]);
      return HeapView();
    }

   private:
    std::string_view HeapView() const noexcept;

    static constexpr std::size_t kLenAt = 15;  // the length in place, or kOnHeap
    static constexpr unsigned char kOnHeap = 0xFF;
    // In place: the bytes, then the length. On the heap: the pointer, then the length.
    alignas(8) unsigned char fBytes[16];
  };

  // Half a cache line per entry: a large dump takes half the memory that entries holding a
  // string would, and an entry never straddles two lines.
  struct alignas(32) Entry {
    Variant Value;
    EntryName Name;
  };

  void CheckIndex(Integer index) const;
  Integer Lookup(std::string_view name, std::uint32_t hash) const;
  // Fibonacci hashing spreads the name's hash over the table's bits. Defined here so that
  // lookups have it inline rather than through an exported call.
  std::uint32_t HomeSlot(std::uint32_t hash) const noexcept {
    return (hash * 0x9E3779B9u) >> (32 - fSlotBits);
  }
  void PlaceSlot(Integer pos);
  void IndexInsert(Integer pos);
  void IndexRemove(Integer pos);
  void RebuildIndex();

  std::vector<Entry> fItems;
  // The low half of each entry's name hash, beside the entries: small dumps are scanned
  // here, and the index is rebuilt from here.
  std::vector<std::uint32_t> fHashes;
  // Open-addressing hash index with linear probing, at most half full; empty while the
  // dump is small. A slot of 2^fSlotBits holds the entry position plus one in its low
  // fSlotBits bits (0 when free) and the low bits of the name hash above them, so that
  // probing past other names does not touch their entries.
  std::vector<std::uint32_t> fSlots;
  unsigned fSlotBits = 0;
};

// A list of dumps.
class OSTREL_API TkxDumpList : public TInterfacedObject, public IDumpList {
  OSTREL_CLASS(TkxDumpList, TInterfacedObject)
 public:
  TkxDumpList();
  ~TkxDumpList() override;

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  IPtr<IDump> OSTREL_STDCALL get_Item(Integer index) override;
  Integer OSTREL_STDCALL get_Count() override;
  Integer OSTREL_STDCALL Add(const IPtr<IDump>& dump) override;

 private:
  IPtr<IInterfaceList> fList;
};

}  // namespace ostrel

// The further classes of the core: variable and ID lists, key indexes, the buffered stream.
#include <ostrel/core/BufStream.h>
#include <ostrel/core/KeyIndex.h>
#include <ostrel/core/VarList.h>
