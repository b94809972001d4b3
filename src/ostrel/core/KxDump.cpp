// TkxDump: the entry list with its hash index, name-dispatched access; TkxDumpList.
#include <ostrel/core/Sysclasses.h>

#include <ostrel/rtl/Classes.h>
#include <ostrel/services/Sysserv.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxDump)
OSTREL_DEFINE_CLASS(TkxDumpList)

namespace {

// Below this many entries a linear scan over the stored hashes beats any index.
constexpr std::size_t kIndexFrom = 16;
constexpr unsigned kMinSlotBits = 5;
constexpr unsigned kMaxSlotBits = 31;
constexpr TCharSet kSemicolon{';'};

// Case folding for hashing: the upper-case form of each byte, as AnsiSameText compares.
// Made on first use, so that dumps filled while the program starts hash alike.
const std::array<unsigned char, 256>& FoldTable() {
  static const std::array<unsigned char, 256> fold = [] {
    std::array<unsigned char, 256> f{};
    for (std::size_t c = 0; c < f.size(); ++c)
      f[c] = static_cast<unsigned char>(AnsiUpperChar(static_cast<char>(c)));
    return f;
  }();
  return fold;
}

// A hash of the case-folded name, eight bytes at a time: the folding of each byte does not
// wait on the others, so the work per lookup hardly grows with the name.
std::uint32_t NameHash(std::string_view name) {
  const std::array<unsigned char, 256>& fold = FoldTable();
  const auto* p = reinterpret_cast<const unsigned char*>(name.data());
  std::size_t n = name.size();
  std::uint64_t h = 0x9E3779B97F4A7C15ull ^ n;
  while (n > 0) {
    const std::size_t take = n < 8 ? n : 8;
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < take; ++i) word |= std::uint64_t{fold[p[i]]} << (8 * i);
    h = (h ^ word) * 0xFF51AFD7ED558CCDull;
    h ^= h >> 32;
    p += take;
    n -= take;
  }
  return static_cast<std::uint32_t>(h);
}

// The dump offers name-dispatched access to scripting hosts from the start.
[[maybe_unused]] const bool kDumpRegistered = (RegisterRTTI(TkxDump::StaticClass()), true);

}  // namespace

// ---- TkxDump::EntryName ------------------------------------------------------------------

TkxDump::EntryName::EntryName(std::string_view s) {
  if (s.size() <= kLenAt) {
    std::copy(s.begin(), s.end(), fBytes);
    fBytes[kLenAt] = static_cast<unsigned char>(s.size());
    return;
  }
  if (s.size() > UINT32_MAX) throw Exception("Dump entry name is too long");
  char* heap = new char[s.size()];
  std::copy(s.begin(), s.end(), heap);
  const auto len = static_cast<std::uint32_t>(s.size());
  std::memcpy(fBytes, &heap, sizeof heap);
  std::memcpy(fBytes + 8, &len, sizeof len);
  fBytes[kLenAt] = kOnHeap;
}

TkxDump::EntryName::EntryName(EntryName&& other) noexcept {
  std::memcpy(fBytes, other.fBytes, sizeof fBytes);
  other.fBytes[kLenAt] = 0;  // the heap text, if any, now belongs here
}

TkxDump::EntryName& TkxDump::EntryName::operator=(EntryName&& other) noexcept {
  if (this != &other) {
    this->~EntryName();
    std::memcpy(fBytes, other.fBytes, sizeof fBytes);
    other.fBytes[kLenAt] = 0;
  }
  return *this;
}

TkxDump::EntryName::~EntryName() {
  if (fBytes[kLenAt] != kOnHeap) return;
  char* heap;
  std::memcpy(&heap, fBytes, sizeof heap);
  delete[] heap;
}

std::string_view TkxDump::EntryName::HeapView() const noexcept {
  const char* heap;
  std::uint32_t len;
  std::memcpy(&heap, fBytes, sizeof heap);
  std::memcpy(&len, fBytes + 8, sizeof len);
  return std::string_view(heap, len);
}

// ---- TkxDump ---------------------------------------------------------------------------

TkxDump::TkxDump() : TkxObject(true) {}

TkxDump::TkxDump(bool owned) : TkxObject(owned) {}

TkxDump::~TkxDump() { Clear(); }

bool TkxDump::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IDump, IObjectRTTI>(this, iid, obj)) return true;
  return TkxObject::GetInterface(iid, obj);
}

void TkxDump::CheckIndex(Integer index) const {
  CheckStringListIndex(index, static_cast<Integer>(fItems.size()));
}

Integer TkxDump::Lookup(std::string_view name, std::uint32_t hash) const {
  // Equal hashes are necessary for equal folded names, so the hash is compared first.
  if (fSlots.empty()) {
    for (std::size_t i = 0; i < fHashes.size(); ++i)
      if (fHashes[i] == hash && AnsiSameText(fItems[i].Name.View(), name))
        return static_cast<Integer>(i);
    return -1;
  }
  const std::uint32_t mask = static_cast<std::uint32_t>(fSlots.size() - 1);
  const std::uint32_t tag = hash << fSlotBits;
  for (std::uint32_t s = HomeSlot(hash);; s = (s + 1) & mask) {
    const std::uint32_t slot = fSlots[s];
    if (slot == 0) return -1;
    if ((slot & ~mask) != tag) continue;
    const std::uint32_t pos = (slot & mask) - 1;
    if (AnsiSameText(fItems[pos].Name.View(), name)) return static_cast<Integer>(pos);
  }
}

void TkxDump::PlaceSlot(Integer pos) {
  const std::uint32_t hash = fHashes[static_cast<std::size_t>(pos)];
  const std::uint32_t mask = static_cast<std::uint32_t>(fSlots.size() - 1);
  std::uint32_t s = HomeSlot(hash);
  while (fSlots[s] != 0) s = (s + 1) & mask;
  fSlots[s] = (hash << fSlotBits) | (static_cast<std::uint32_t>(pos) + 1);
}

void TkxDump::RebuildIndex() {
  unsigned bits = kMinSlotBits;
  while ((std::size_t{1} << bits) < fItems.size() * 2) ++bits;
  // A slot keeps the position in as many bits as the index has; a dump of a billion
  // entries is past any use this container has.
  if (bits > kMaxSlotBits) throw Exception("The dump cannot hold so many entries");
  // Built aside first: when memory runs out the old index stays as it was.
  std::vector<std::uint32_t> slots(std::size_t{1} << bits, 0);
  fSlots.swap(slots);
  fSlotBits = bits;
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
  const std::uint32_t mask = static_cast<std::uint32_t>(fSlots.size() - 1);
  const std::uint32_t own = static_cast<std::uint32_t>(pos) + 1;
  std::uint32_t hole = HomeSlot(fHashes[static_cast<std::size_t>(pos)]);
  while ((fSlots[hole] & mask) != own) hole = (hole + 1) & mask;
  // Backward-shift deletion: later members of the probe run move up into the hole when
  // their home slot lies at or before it, so no tombstones are needed.
  for (std::uint32_t j = (hole + 1) & mask; fSlots[j] != 0; j = (j + 1) & mask) {
    const std::uint32_t home = HomeSlot(fHashes[(fSlots[j] & mask) - 1]);
    if (((j - home) & mask) >= ((j - hole) & mask)) {
      fSlots[hole] = fSlots[j];
      hole = j;
    }
  }
  fSlots[hole] = 0;
  // Entries after the removed one move down by one place.
  if (static_cast<std::size_t>(pos) + 1 < fItems.size())
    for (std::uint32_t& slot : fSlots)
      if ((slot & mask) > own) --slot;
}

AnsiString OSTREL_STDCALL TkxDump::get_Name(Integer index) {
  CheckIndex(index);
  return AnsiString(fItems[static_cast<std::size_t>(index)].Name.View());
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
  const std::uint32_t hash = NameHash(name);
  Integer i = Lookup(name, hash);
  if (i >= 0) {
    set_Value(i, value);
    return;
  }
  // Either the entry goes in whole, indexed, or the dump stays as it was.
  fHashes.push_back(hash);
  try {
    fItems.push_back(Entry{Variant(value), EntryName(name)});
  } catch (...) {
    fHashes.pop_back();
    throw;
  }
  try {
    IndexInsert(static_cast<Integer>(fItems.size() - 1));
  } catch (...) {
    fItems.pop_back();
    fHashes.pop_back();
    throw;
  }
}

Integer OSTREL_STDCALL TkxDump::IndexOf(std::string_view name) {
  return Lookup(name, NameHash(name));
}

bool OSTREL_STDCALL TkxDump::IsEmpty() { return fItems.empty(); }

void OSTREL_STDCALL TkxDump::Delete(Integer index) {
  CheckIndex(index);
  IndexRemove(index);
  Variant old(std::move(fItems[static_cast<std::size_t>(index)].Value));
  fItems.erase(fItems.begin() + index);
  fHashes.erase(fHashes.begin() + index);
  // `old` is released last, with the dump already consistent.
}

bool TkxDump::Find(std::string_view name, Integer& index) {
  index = IndexOf(name);
  return index >= 0;
}

void TkxDump::Clear() {
  std::vector<Entry> old;
  old.swap(fItems);
  fHashes.clear();
  fSlots.clear();
  fSlotBits = 0;
  // First to last, as deleting entry 0 over and over would; the dump is already empty
  // when released values run code of their own.
  for (Entry& e : old) e.Value.Clear();
}

void TkxDump::Remove(std::string_view names) {
  // Taken out together: one entry at a time renumbers the whole index once per name, a cost
  // that grows with the square of the dump's size when many names go.
  std::vector<bool> named(fItems.size());
  std::vector<std::size_t> order;
  AnsiString token;
  int pos = 1;
  while (ExtractStr(names, pos, kSemicolon, token)) {
    const Integer i = IndexOf(token);
    if (i < 0 || named[static_cast<std::size_t>(i)]) continue;
    named[static_cast<std::size_t>(i)] = true;
    order.push_back(static_cast<std::size_t>(i));
  }
  if (order.empty()) return;
  std::vector<Variant> old;
  old.reserve(order.size());
  for (std::size_t i : order) old.push_back(std::move(fItems[i].Value));
  std::size_t kept = 0;
  for (std::size_t i = 0; i < fItems.size(); ++i) {
    if (named[i]) continue;
    if (kept != i) {
      fItems[kept] = std::move(fItems[i]);
      fHashes[kept] = fHashes[i];
    }
    ++kept;
  }
  fItems.erase(fItems.begin() + static_cast<std::ptrdiff_t>(kept), fItems.end());
  fHashes.resize(kept);
  // Without an index lookups scan the entries, so the dump is whole even if a new index
  // cannot be allocated.
  fSlots.clear();
  fSlotBits = 0;
  if (fItems.size() >= kIndexFrom) RebuildIndex();
  // `old` is released last, first named first.
  for (Variant& v : old) v.Clear();
}

void TkxDump::Assign(TkxDump* source) {
  if (!source) return;
  for (std::size_t i = 0; i < source->fItems.size(); ++i) {
    const Entry& e = source->fItems[i];
    set_ByName(AnsiString(e.Name.View()), Variant(e.Value));
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
        for (Integer i = 0; i < n; ++i)
          target->set_ByName(source->get_Name(i), source->get_Value(i));
      }
    }
  } else if (name == "REMOVE") {
    target->Remove(VarToStr(param(0)));
  }
  return Variant();
}

// ---- TkxDumpList -----------------------------------------------------------------------

TkxDumpList::TkxDumpList() : fList(IPtr<IInterfaceList>(new TInterfaceList)) {}

TkxDumpList::~TkxDumpList() = default;

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
