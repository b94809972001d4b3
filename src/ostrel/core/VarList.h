// The variable list (shareable named items, usable as a dump) and the ID list (distinct
// 32-bit identifiers, with name-dispatched access for scripting hosts).
#pragma once

#include <ostrel/core/ListIntf.h>
#include <ostrel/rtl/Classes.h>

#include <string_view>
#include <unordered_set>
#include <vector>

namespace ostrel {

// A named variant value: the element of a variable list, handed out as IkxVarItem.
class OSTREL_API TkxVarItem : public TInterfacedObject, public IkxVarItem {
  OSTREL_CLASS(TkxVarItem, TInterfacedObject)
 public:
  explicit TkxVarItem(std::string_view name);
  ~TkxVarItem() override;

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  AnsiString OSTREL_STDCALL get_Name() override;
  Variant OSTREL_STDCALL get_Value() override;
  void OSTREL_STDCALL set_Value(const Variant& value) override;

 private:
  const AnsiString fName;
  Variant fValue;
};

// The variable list. Its single operations are serialised by the interface list that holds
// the items; a find-then-add (set_ByName on a new name) is not atomic. Names are found by a
// linear scan without regard to case; get_ByName takes one name (no ";" lists).
class OSTREL_API TkxVarList : public TInterfacedObject, public IkxVarList {
  OSTREL_CLASS(TkxVarList, TInterfacedObject)
 public:
  TkxVarList();
  ~TkxVarList() override;

  OSTREL_INTERFACED_IINTERFACE
  // IkxVarList, and IDump with the same table.
  bool GetInterface(const TGUID& iid, void** obj) override;

  // IDump
  AnsiString OSTREL_STDCALL get_Name(Integer index) override;
  Integer OSTREL_STDCALL get_Count() override;
  Variant OSTREL_STDCALL get_Value(Integer index) override;
  void OSTREL_STDCALL set_Value(Integer index, const Variant& value) override;
  // Raises _SErrDumpNameNotFount when the name is absent.
  Variant OSTREL_STDCALL get_ByName(std::string_view name) override;
  // Appends a new item when the name is absent.
  void OSTREL_STDCALL set_ByName(std::string_view name, const Variant& value) override;
  Integer OSTREL_STDCALL IndexOf(std::string_view name) override;
  bool OSTREL_STDCALL IsEmpty() override;
  void OSTREL_STDCALL Delete(Integer index) override;

  // IkxVarList. Index errors raise EListError; Add refuses a null item.
  IPtr<IkxVarItem> OSTREL_STDCALL get_Item(Integer index) override;
  Integer OSTREL_STDCALL Add(const IPtr<IkxVarItem>& item) override;
  Integer OSTREL_STDCALL Remove(const IPtr<IkxVarItem>& item) override;
  void OSTREL_STDCALL Delete(Integer index) const override;

 private:
  IPtr<IInterfaceList> fList;
};

// The ID list. No lock: it belongs to one thread at a time.
//
// Scripting commands (CallMethod; names compared exactly, parameters a variant array read
// from index 0): "CREATE", "COUNT", "ADD" [id], "FIND" [id, index out], "REMOVE" [id],
// "DELETE" [index], "ID.GET" [index], "ASSIGN" [ID list] (adds the IDs it lacks),
// "GETASSTRING" [separator text], "SETASSTRING" [text, its first character separating].
// They act on `instance` when it is an ID list, else on this one. Properties do nothing.
class OSTREL_API TkxIDList : public TInterfacedObject,
                             public IObjectReference,
                             public IObjectRTTI,
                             public IkxIDList {
  OSTREL_CLASS(TkxIDList, TInterfacedObject)
 public:
  TkxIDList();
  ~TkxIDList() override;

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override;

  // IObjectReference
  TObject* OSTREL_STDCALL GetInstance() override;

  // IObjectRTTI
  Variant OSTREL_STDCALL GetProp(TObject* instance, TClass cls, std::string_view name) override;
  void OSTREL_STDCALL SetProp(TObject* instance, TClass cls, std::string_view name,
                              const Variant& value) override;
  Variant OSTREL_STDCALL CallMethod(TObject* instance, TClass cls, std::string_view name,
                                    Variant& params) override;

  // IkxIDList. Index errors raise EListError; SetAsString raises EConvertError at the first
  // piece that is no integer, keeping the IDs added before it.
  Integer OSTREL_STDCALL get_ID(Integer index) override;
  Integer OSTREL_STDCALL get_Count() override;
  Integer OSTREL_STDCALL Add(Integer id) override;
  Integer OSTREL_STDCALL IndexOf(Integer id) override;
  bool OSTREL_STDCALL Find(Integer id, Integer& index) override;
  bool OSTREL_STDCALL Remove(Integer id) override;
  void OSTREL_STDCALL Delete(Integer index) override;
  void OSTREL_STDCALL Clear() override;
  void OSTREL_STDCALL Sort() override;
  bool OSTREL_STDCALL IsSorted() override;
  bool OSTREL_STDCALL IsEqual(const IPtr<IkxIDList>& other, bool ordered) override;
  AnsiString OSTREL_STDCALL GetAsString(char separator) override;
  void OSTREL_STDCALL SetAsString(std::string_view text, char separator) override;

 private:
  void CheckIndex(Integer index) const;
  // Appends the ID when it is absent; whether it did.
  bool Insert(Integer id);

  std::vector<Integer> fIDs;
  // The same IDs as a set: adding one must not scan the list, or a long list costs the square
  // of its length to build.
  std::unordered_set<Integer> fPresent;
};

// A new, empty variable list.
OSTREL_API void GetVarListIntf(IPtr<IkxVarList>& list);
OSTREL_API IPtr<IkxVarList> GetVarListIntf();
// The item with the name (case-blind); false and a null item when absent.
OSTREL_API bool VarList_Find(const IPtr<IkxVarList>& list, std::string_view name,
                             IPtr<IkxVarItem>& item);
// The item with the name; null when absent, or _SErrDumpNameNotFount when required.
OSTREL_API IPtr<IkxVarItem> VarList_Get(const IPtr<IkxVarList>& list, std::string_view name,
                                        bool required);

// A new, empty ID list; always true.
OSTREL_API bool GetIDListIntf(IPtr<IkxIDList>& list);
OSTREL_API IPtr<IkxIDList> GetIDListIntf();

// The ID list a dump carries under "IDs"; without one, a new list holding the integer value
// of "id" (a missing "id" raises _SErrDumpNameNotFount).
OSTREL_API void Dump_GetIDList(const IPtr<IDump>& dump, IPtr<IkxIDList>& list);
OSTREL_API IPtr<IkxIDList> Dump_GetIDList(const IPtr<IDump>& dump);

}  // namespace ostrel
