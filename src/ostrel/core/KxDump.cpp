// TkxDump: the entry list with its hash index, name-dispatched access; TkxDumpList.
#include <ostrel/core/Sysclasses.h>

#include <ostrel/rtl/Classes.h>
#include <ostrel/services/Sysserv.h>

#include <cstdint>

namespace ostrel {

namespace {

// Below this many entries a linear scan over the stored hashes beats any index.
constexpr std::size_t kIndexFrom = 16;
constexpr unsigned kMinSlotBits = 5;
constexpr TCharSet kSemicolon{';'};

// The dump offers name-dispatched access to scripting hosts from the start.
[[maybe_unused]] const bool kDumpRegistered = (RegisterRTTI(TkxDump::StaticClass()), true);

}  // namespace

// ---- TkxDump ---------------------------------------------------------------------------

TkxDump::TkxDump() : TkxObject(true) {}

TkxDump::TkxDump(bool owned) : TkxObject(owned) {}

TkxDump::~TkxDump() { Clear(); }

bool TkxDump::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IDump, IObjectRTTI>(this, iid, obj)) return true;
  return TkxObject::GetInterface(iid, obj);
}

void TkxDump::CheckIndex(Integer index) const {
  if (index < 0 || static_cast<std::size_t>(index) >= fItems.size())
    throw EStringListError(Format(SysConst::SListIndexError, index));
}

std::size_t TkxDump::HomeSlot(std::uint32_t tag) const noexcept {
  // Fibonacci hashing spreads the name's hash over the table's bits.
  return static_cast<std::size_t>((tag * 0x9E3779B9u) >> (32 - fSlotBits));
}

Integer TkxDump::Lookup(std::string_view name, std::size_t hash) const {
  // Equal hashes are necessary for equal folded names, so the hash is compared first.
  if (fSlots.empty()) {
    for (std::size_t i = 0; i < fItems.size(); ++i) {
      const Entry& e = fItems[i];
      if (e.Hash == hash && AnsiSameText(e.Name, name)) return static_cast<Integer>(i);
    }
    return -1;
  }
  // The slots carry part of the hash, so that probing past other names does not touch
  // their entries.
  const auto tag = static_cast<std::uint32_t>(hash);
  const std::size_t mask = fSlots.size() - 1;
  for (std::size_t s = HomeSlot(tag);; s = (s + 1) & mask) {
    const Slot& slot = fSlots[s];
    if (slot.Pos < 0) return -1;
    if (slot.Tag != tag) continue;
    const Entry& e = fItems[static_cast<std::size_t>(slot.Pos)];
    if (e.Hash == hash && AnsiSameText(e.Name, name)) return slot.Pos;
  }
}

void TkxDump::PlaceSlot(Integer pos) {
  const auto tag = static_cast<std::uint32_t>(fItems[static_cast<std::size_t>(pos)].Hash);
  const std::size_t mask = fSlots.size() - 1;
  std::size_t s = HomeSlot(tag);
  while (fSlots[s].Pos >= 0) s = (s + 1) & mask;
  fSlots[s] = Slot{pos, tag};
}

void TkxDump::RebuildIndex() {
  unsigned bits = kMinSlotBits;
  while ((std::size_t{1} << bits) < fItems.size() * 2) ++bits;
  fSlotBits = bits;
  fSlots.assign(std::size_t{1} << bits, Slot{-1, 0});
  for (std::size_t i = 0; i < fItems.size(); ++i) PlaceSlot(static_cast<Integer>(i));
}

void TkxDump::IndexInsert(Integer pos) {
  if (fSlots.empty()) {
    if (fItems.size() >= kIndexFrom) RebuildIndex();
    return;
  }
  // At most half full, so probe runs stay short.
  if (fItems.size() * 2 > fSlots.size()) {
    RebuildIndex();
    return;
  }
  PlaceSlot(pos);
}

void TkxDump::IndexRemove(Integer pos) {
  if (fSlots.empty()) return;
  const std::size_t mask = fSlots.size() - 1;
  std::size_t hole =
      HomeSlot(static_cast<std::uint32_t>(fItems[static_cast<std::size_t>(pos)].Hash));
  while (fSlots[hole].Pos != pos) hole = (hole + 1) & mask;
  // Backward-shift deletion: later members of the probe run move up into the hole when
  // their home slot lies at or before it, so no tombstones are needed.
  for (std::size_t j = (hole + 1) & mask; fSlots[j].Pos >= 0; j = (j + 1) & mask) {
    std::size_t home = HomeSlot(fSlots[j].Tag);
    if (((j - home) & mask) >= ((j - hole) & mask)) {
      fSlots[hole] = fSlots[j];
      hole = j;
    }
  }
  fSlots[hole] = Slot{-1, 0};
  // Entries after the removed one move down by one place.
  if (static_cast<std::size_t>(pos) + 1 < fItems.size())
    for (Slot& slot : fSlots)
      if (slot.Pos > pos) --slot.Pos;
}

AnsiString OSTREL_STDCALL TkxDump::get_Name(Integer index) {
  CheckIndex(index);
  return fItems[static_cast<std::size_t>(index)].Name;
}

Integer OSTREL_STDCALL TkxDump::get_Count() { return static_cast<Integer>(fItems.size()); }

Variant OSTREL_STDCALL TkxDump::get_Value(Integer index) {
  CheckIndex(index);
  return fItems[static_cast<std::size_t>(index)].Value;
}

void OSTREL_STDCALL TkxDump::set_Value(Integer index, const Variant& value) {
  CheckIndex(index);
  // The old value goes only after the entry holds the new one: releasing it may run code
  // that looks at this dump again.
  Variant old(value);
  old.Swap(fItems[static_cast<std::size_t>(index)].Value);
}

Variant OSTREL_STDCALL TkxDump::get_ByName(std::string_view name) {
  if (name.find(';') == std::string_view::npos) {
    Integer i = IndexOf(name);
    if (i < 0) throw Exception(Format(_SErrDumpNameNotFount, name));
    return fItems[static_cast<std::size_t>(i)].Value;
  }
  std::vector<Variant> values;
  AnsiString token;
  int pos = 1;
  while (ExtractStr(name, pos, kSemicolon, token)) {
    Integer i = IndexOf(token);
    if (i < 0) throw Exception(Format(_SErrDumpNameNotFount, token));
    values.push_back(fItems[static_cast<std::size_t>(i)].Value);
  }
  return VarArrayOf(values);
}

void OSTREL_STDCALL TkxDump::set_ByName(std::string_view name, const Variant& value) {
  std::size_t hash = AnsiHashText(name);
  Integer i = Lookup(name, hash);
  if (i >= 0) {
    set_Value(i, value);
    return;
  }
  fItems.push_back(Entry{AnsiString(name), Variant(value), hash});
  IndexInsert(static_cast<Integer>(fItems.size() - 1));
}

Integer OSTREL_STDCALL TkxDump::IndexOf(std::string_view name) {
  return Lookup(name, AnsiHashText(name));
}

bool OSTREL_STDCALL TkxDump::IsEmpty() { return fItems.empty(); }

void OSTREL_STDCALL TkxDump::Delete(Integer index) {
  CheckIndex(index);
  IndexRemove(index);
  Variant old(std::move(fItems[static_cast<std::size_t>(index)].Value));
  fItems.erase(fItems.begin() + index);
  // `old` is released last, with the dump already consistent.
}

bool TkxDump::Find(std::string_view name, Integer& index) {
  index = IndexOf(name);
  return index >= 0;
}

void TkxDump::Clear() {
  std::vector<Entry> old;
  old.swap(fItems);
  fSlots.clear();
  fSlotBits = 0;
  // First to last, as deleting entry 0 over and over would; the dump is already empty
  // when released values run code of their own.
  for (Entry& e : old) e.Value.Clear();
}

void TkxDump::Assign(TkxDump* source) {
  if (!source) return;
  for (std::size_t i = 0; i < source->fItems.size(); ++i) {
    const Entry& e = source->fItems[i];
    set_ByName(AnsiString(e.Name), Variant(e.Value));
  }
}

// ---- name-dispatched access -------------------------------------------------------------

Variant OSTREL_STDCALL TkxDump::GetProp(TObject* instance, TClass, std::string_view name) {
  TkxDump* target = instance ? dynamic_cast<TkxDump*>(instance) : nullptr;
  if (!target) target = this;
  if (name == "COUNT") return Variant(target->get_Count());
  return Variant();
}

void OSTREL_STDCALL TkxDump::SetProp(TObject*, TClass, std::string_view, const Variant&) {
  // The dump has no writable properties: writes are ignored.
}

Variant OSTREL_STDCALL TkxDump::CallMethod(TObject* instance, TClass, std::string_view name,
                                           Variant& params) {
  TkxDump* target = instance ? dynamic_cast<TkxDump*>(instance) : nullptr;
  if (!target) target = this;
  auto param = [&params](Integer i) { return VarArrayGet(params, i); };

  if (name == "CREATE") return Variant(IPtr<IDump>(new TkxDump()));
  if (name == "INDEXOF") return Variant(target->IndexOf(VarToStr(param(0))));
  if (name == "NAME.GET") return Variant(target->get_Name(VarToInt(param(0))));
  if (name == "VALUE.GET") return target->get_Value(VarToInt(param(0)));
  if (name == "BYNAME.GET") return target->get_ByName(VarToStr(param(0)));
  if (name == "VALUE.SET") {
    target->set_Value(VarToInt(param(0)), param(1));
  } else if (name == "BYNAME.SET") {
    target->set_ByName(VarToStr(param(0)), param(1));
  } else if (name == "DELETE") {
    target->Delete(VarToInt(param(0)));
  } else if (name == "ASSIGN") {
    Variant v = param(0);
    TVarType t = VarType(v);
    if (t == varUnknown || t == varDispatch) {
      if (IPtr<IDump> source = VarToIntf(v).As<IDump>()) {
        Integer n = source->get_Count();
        for (Integer i = 0; i < n; ++i) target->set_ByName(source->get_Name(i), source->get_Value(i));
      }
    }
  } else if (name == "REMOVE") {
    AnsiString names = VarToStr(param(0));
    AnsiString token;
    int pos = 1;
    while (ExtractStr(names, pos, kSemicolon, token)) {
      Integer i = target->IndexOf(token);
      if (i >= 0) target->Delete(i);
    }
  }
  return Variant();
}

// ---- TkxDumpList -----------------------------------------------------------------------

TkxDumpList::TkxDumpList() : fList(IPtr<IInterfaceList>(new TInterfaceList)) {}

TkxDumpList::~TkxDumpList() = default;

HRESULT OSTREL_STDCALL TkxDumpList::QueryInterface(const TGUID& iid, void** obj) {
  return TInterfacedObject::QueryInterface(iid, obj);
}

Integer OSTREL_STDCALL TkxDumpList::_AddRef() { return TInterfacedObject::_AddRef(); }

Integer OSTREL_STDCALL TkxDumpList::_Release() { return TInterfacedObject::_Release(); }

bool TkxDumpList::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IDumpList>(this, iid, obj)) return true;
  return TInterfacedObject::GetInterface(iid, obj);
}

IPtr<IDump> OSTREL_STDCALL TkxDumpList::get_Item(Integer index) {
  IPtr<IInterface> item = fList->Get(index);
  if (!item) return nullptr;
  IPtr<IDump> dump = item.As<IDump>();
  if (!dump) throw EInvalidCast("Interface not supported");
  return dump;
}

Integer OSTREL_STDCALL TkxDumpList::get_Count() { return fList->GetCount(); }

Integer OSTREL_STDCALL TkxDumpList::Add(const IPtr<IDump>& dump) {
  return fList->Add(IPtr<IInterface>(dump));
}

}  // namespace ostrel
