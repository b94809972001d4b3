// Variable items and lists, ID lists.
#include <ostrel/core/VarList.h>

#include <ostrel/core/Dump.h>
#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/services/Sysserv.h>

#include <algorithm>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxVarItem)
OSTREL_DEFINE_CLASS(TkxVarList)
OSTREL_DEFINE_CLASS(TkxIDList)

namespace {

// The ID list offers name-dispatched access to scripting hosts from the start.
[[maybe_unused]] const bool kIDListRegistered = (RegisterRTTI(TkxIDList::StaticClass()), true);

[[noreturn]] void NameNotFound(std::string_view name) {
  throw Exception(Format(_SErrDumpNameNotFount, name));
}

}  // namespace

// ---- TkxVarItem ------------------------------------------------------------------------

TkxVarItem::TkxVarItem(std::string_view name) : fName(name) {}

TkxVarItem::~TkxVarItem() = default;

bool TkxVarItem::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IkxVarItem>(this, iid, obj)) return true;
  return TInterfacedObject::GetInterface(iid, obj);
}

AnsiString OSTREL_STDCALL TkxVarItem::get_Name() { return fName; }

Variant OSTREL_STDCALL TkxVarItem::get_Value() { return fValue; }

void OSTREL_STDCALL TkxVarItem::set_Value(const Variant& value) { fValue = value; }

// ---- TkxVarList ------------------------------------------------------------------------

TkxVarList::TkxVarList() : fList(IPtr<IInterfaceList>(new TInterfaceList)) {}

TkxVarList::~TkxVarList() = default;

bool TkxVarList::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IkxVarList, IDump>(this, iid, obj)) return true;
  return TInterfacedObject::GetInterface(iid, obj);
}

IPtr<IkxVarItem> OSTREL_STDCALL TkxVarList::get_Item(Integer index) {
  // Only Add puts items in, and it takes IkxVarItem references: the stored IInterface is
  // the item's own IkxVarItem entry.
  IPtr<IInterface> item = fList->Get(index);
  return IPtr<IkxVarItem>(static_cast<IkxVarItem*>(item.Get()));
}

Integer OSTREL_STDCALL TkxVarList::Add(const IPtr<IkxVarItem>& item) {
  if (!item) throw Exception("TkxVarList.Add: Item is nil");
  return fList->Add(IPtr<IInterface>(static_cast<IInterface*>(item.Get())));
}

Integer OSTREL_STDCALL TkxVarList::Remove(const IPtr<IkxVarItem>& item) {
  return fList->Remove(IPtr<IInterface>(static_cast<IInterface*>(item.Get())));
}

AnsiString OSTREL_STDCALL TkxVarList::get_Name(Integer index) {
  return get_Item(index)->get_Name();
}

Integer OSTREL_STDCALL TkxVarList::get_Count() { return fList->GetCount(); }

Variant OSTREL_STDCALL TkxVarList::get_Value(Integer index) { return get_Item(index)->get_Value(); }

void OSTREL_STDCALL TkxVarList::set_Value(Integer index, const Variant& value) {
  get_Item(index)->set_Value(value);
}

Integer OSTREL_STDCALL TkxVarList::IndexOf(std::string_view name) {
  // One scan under the list's lock, so that items do not move underneath it.
  fList->Lock();
  try {
    for (Integer i = 0, n = fList->GetCount(); i < n; ++i) {
      if (AnsiSameText(get_Item(i)->get_Name(), name)) {
        fList->Unlock();
        return i;
      }
    }
  } catch (...) {
    fList->Unlock();
    throw;
  }
  fList->Unlock();
  return -1;
}

Variant OSTREL_STDCALL TkxVarList::get_ByName(std::string_view name) {
  const Integer index = IndexOf(name);
  if (index < 0) NameNotFound(name);
  return get_Value(index);
}

void OSTREL_STDCALL TkxVarList::set_ByName(std::string_view name, const Variant& value) {
  const Integer index = IndexOf(name);
  IPtr<IkxVarItem> item;
  if (index >= 0) {
    item = get_Item(index);
  } else {
    item = IPtr<IkxVarItem>(new TkxVarItem(name));
    Add(item);
  }
  item->set_Value(value);
}

bool OSTREL_STDCALL TkxVarList::IsEmpty() { return get_Count() == 0; }

void OSTREL_STDCALL TkxVarList::Delete(Integer index) { fList->Delete(index); }

void OSTREL_STDCALL TkxVarList::Delete(Integer index) const { fList->Delete(index); }

// ---- TkxIDList -------------------------------------------------------------------------

TkxIDList::TkxIDList() = default;

TkxIDList::~TkxIDList() = default;

bool TkxIDList::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IkxIDList, IObjectRTTI, IObjectReference>(this, iid, obj)) return true;
  return TInterfacedObject::GetInterface(iid, obj);
}

TObject* OSTREL_STDCALL TkxIDList::GetInstance() { return this; }

void TkxIDList::CheckIndex(Integer index) const {
  CheckListIndex(index, static_cast<Integer>(fIDs.size()));
}

Integer OSTREL_STDCALL TkxIDList::get_ID(Integer index) {
  CheckIndex(index);
  return fIDs[static_cast<std::size_t>(index)];
}

Integer OSTREL_STDCALL TkxIDList::get_Count() { return static_cast<Integer>(fIDs.size()); }

bool TkxIDList::Insert(Integer id) {
  if (!fPresent.insert(id).second) return false;
  try {
    fIDs.push_back(id);
  } catch (...) {
    fPresent.erase(id);
    throw;
  }
  return true;
}

Integer OSTREL_STDCALL TkxIDList::Add(Integer id) {
  return Insert(id) ? static_cast<Integer>(fIDs.size()) - 1 : IndexOf(id);
}

Integer OSTREL_STDCALL TkxIDList::IndexOf(Integer id) {
  if (!fPresent.contains(id)) return -1;
  auto it = std::find(fIDs.begin(), fIDs.end(), id);
  return it == fIDs.end() ? -1 : static_cast<Integer>(it - fIDs.begin());
}

bool OSTREL_STDCALL TkxIDList::Find(Integer id, Integer& index) {
  index = IndexOf(id);
  return index >= 0;
}

bool OSTREL_STDCALL TkxIDList::Remove(Integer id) {
  const Integer index = IndexOf(id);
  if (index < 0) return false;
  Delete(index);
  return true;
}

void OSTREL_STDCALL TkxIDList::Delete(Integer index) {
  CheckIndex(index);
  fPresent.erase(fIDs[static_cast<std::size_t>(index)]);
  fIDs.erase(fIDs.begin() + index);
}

void OSTREL_STDCALL TkxIDList::Clear() {
  fIDs.clear();
  fPresent.clear();
}

void OSTREL_STDCALL TkxIDList::Sort() {
  ListQuickSort(
      0, static_cast<int>(fIDs.size()) - 1,
      [this](int i, int j) {
        std::swap(fIDs[static_cast<std::size_t>(i)], fIDs[static_cast<std::size_t>(j)]);
      },
      [this](int i, int j) {
        return CompareInt(fIDs[static_cast<std::size_t>(i)], fIDs[static_cast<std::size_t>(j)]);
      });
}

bool OSTREL_STDCALL TkxIDList::IsSorted() { return std::is_sorted(fIDs.begin(), fIDs.end()); }

bool OSTREL_STDCALL TkxIDList::IsEqual(const IPtr<IkxIDList>& other, bool ordered) {
  if (!other || other->get_Count() != get_Count()) return false;
  if (ordered) {
    for (std::size_t i = 0; i < fIDs.size(); ++i)
      if (other->get_ID(static_cast<Integer>(i)) != fIDs[i]) return false;
    return true;
  }
  // The other's IDs read once into a set, rather than searched once for each of these.
  std::unordered_set<Integer> theirs;
  theirs.reserve(fIDs.size());
  for (Integer i = 0, n = other->get_Count(); i < n; ++i) theirs.insert(other->get_ID(i));
  return std::all_of(fIDs.begin(), fIDs.end(), [&](Integer id) { return theirs.contains(id); });
}

AnsiString OSTREL_STDCALL TkxIDList::GetAsString(char separator) {
  AnsiString s;
  const std::string_view sep(&separator, 1);
  for (Integer id : fIDs) StrJoin(s, IntToStr(id), sep);
  return s;
}

void OSTREL_STDCALL TkxIDList::SetAsString(std::string_view text, char separator) {
  const TCharSet set{separator};
  int pos = 1;
  AnsiString piece;
  while (ExtractStr(text, pos, set, piece)) Insert(StrToInt(Trim(piece)));
}

Variant OSTREL_STDCALL TkxIDList::GetProp(TObject*, TClass, std::string_view) { return Variant(); }

void OSTREL_STDCALL TkxIDList::SetProp(TObject*, TClass, std::string_view, const Variant&) {}

Variant OSTREL_STDCALL TkxIDList::CallMethod(TObject* instance, TClass, std::string_view name,
                                             Variant& params) {
  TkxIDList* target = instance ? dynamic_cast<TkxIDList*>(instance) : nullptr;
  if (!target) target = this;
  auto param = [&params](Integer i) { return VarArrayGet(params, i); };
  // The first character of a text parameter; the empty text gives character 0, as reading
  // the first place of an empty string's storage does.
  auto firstChar = [](const AnsiString& s) { return s.empty() ? '\0' : s[0]; };

  if (name == "CREATE") return Variant(IPtr<IkxIDList>(new TkxIDList));
  if (name == "COUNT") return Variant(target->get_Count());
  if (name == "ADD") {
    target->Add(VarToInt(param(0)));
  } else if (name == "FIND") {
    Integer index = -1;
    const bool found = target->Find(VarToInt(param(0)), index);
    VarArrayPut(params, Variant(index), 1);
    return Variant(found);
  } else if (name == "REMOVE") {
    return Variant(target->Remove(VarToInt(param(0))));
  } else if (name == "DELETE") {
    target->Delete(VarToInt(param(0)));
  } else if (name == "ID.GET") {
    return Variant(target->get_ID(VarToInt(param(0))));
  } else if (name == "ASSIGN") {
    const Variant source = param(0);
    const TVarType type = VarType(source);
    if (type == varUnknown || type == varDispatch) {
      if (IPtr<IkxIDList> other = VarToIntf(source).As<IkxIDList>()) {
        for (Integer i = 0, n = other->get_Count(); i < n; ++i) target->Insert(other->get_ID(i));
      }
    }
  } else if (name == "GETASSTRING") {
    return Variant(target->GetAsString(firstChar(VarToStr(param(0)))));
  } else if (name == "SETASSTRING") {
    const AnsiString text = VarToStr(param(0));
    target->SetAsString(text, firstChar(text));
  }
  return Variant();
}

// ---- Free functions --------------------------------------------------------------------

void GetVarListIntf(IPtr<IkxVarList>& list) { list = IPtr<IkxVarList>(new TkxVarList); }

IPtr<IkxVarList> GetVarListIntf() {
  IPtr<IkxVarList> list;
  GetVarListIntf(list);
  return list;
}

bool VarList_Find(const IPtr<IkxVarList>& list, std::string_view name, IPtr<IkxVarItem>& item) {
  item = nullptr;
  if (!list) throw Exception("VarList_Find: List is nil");
  const Integer index = list->IndexOf(name);
  if (index >= 0) item = list->get_Item(index);
  return static_cast<bool>(item);
}

IPtr<IkxVarItem> VarList_Get(const IPtr<IkxVarList>& list, std::string_view name, bool required) {
  IPtr<IkxVarItem> item;
  if (!VarList_Find(list, name, item) && required) NameNotFound(name);
  return item;
}

bool GetIDListIntf(IPtr<IkxIDList>& list) {
  list = IPtr<IkxIDList>(new TkxIDList);
  return true;
}

IPtr<IkxIDList> GetIDListIntf() {
  IPtr<IkxIDList> list;
  GetIDListIntf(list);
  return list;
}

void Dump_GetIDList(const IPtr<IDump>& dump, IPtr<IkxIDList>& list) {
  list = nullptr;
  IPtr<IInterface> held;
  if (Dump_GetIntf(dump, "IDs", IkxIDList::IID, held, false)) {
    list = held.As<IkxIDList>();
    return;
  }
  const Integer id = VarAsInt(dump->get_ByName("id"));
  GetIDListIntf(list);
  list->Add(id);
}

IPtr<IkxIDList> Dump_GetIDList(const IPtr<IDump>& dump) {
  IPtr<IkxIDList> list;
  Dump_GetIDList(dump, list);
  return list;
}

}  // namespace ostrel
