// Key indexes and key data.
#include <ostrel/core/KeyIndex.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/services/Sysserv.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxKeyIndex)
OSTREL_DEFINE_CLASS(TkxKeyVarIndex)
OSTREL_DEFINE_CLASS(TkxKeyData)

namespace {

// Blocks split when they pass this many records and merge with a neighbour when the two
// together fall to half of it. Around a thousand pointers, the memmove inside a block and
// the update of the block starts cost about the same at a million keys.
constexpr std::size_t kMaxBlock = 1024;

bool AsOrdinal(const Variant& v, Int64& out) {
  switch (v.VarType()) {
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varByte:
    case varWord:
    case varLongWord:
    case varInt64: out = VarToInt64(v); return true;
    default: return false;
  }
}

AnsiString KeyText(const Variant& key) {
  if (!VarIsArray(key)) return VarToStr(key);
  AnsiString s;
  for (Integer i = VarArrayLowBound(key), high = VarArrayHighBound(key); i <= high; ++i)
    StrJoin(s, KeyText(VarArrayGet(key, i)), ", ");
  return s;
}

}  // namespace

// ---- TkxKeyRecList ---------------------------------------------------------------------

std::size_t TkxKeyRecList::Locate(Integer index) const {
  auto it = std::upper_bound(fStarts.begin(), fStarts.end(), index);
  fHint = static_cast<std::size_t>(std::distance(fStarts.begin(), it)) - 1;
  return fHint;
}

void TkxKeyRecList::Insert(Integer index, Slot slot) {
  if (fBlocks.empty()) {
    fBlocks.emplace_back();
    fStarts.push_back(0);
  }
  std::size_t b = index == fCount ? fBlocks.size() - 1 : Locate(index);
  auto& block = fBlocks[b];
  block.insert(block.begin() + (index - fStarts[b]), slot);
  for (std::size_t k = b + 1; k < fStarts.size(); ++k) ++fStarts[k];
  ++fCount;
  fHint = b;
  if (block.size() > kMaxBlock) Split(b);
}

void TkxKeyRecList::Split(std::size_t b) {
  // Room first, so that nothing below can fail half-way.
  fBlocks.reserve(fBlocks.size() + 1);
  fStarts.reserve(fStarts.size() + 1);
  auto& block = fBlocks[b];
  const std::size_t half = block.size() / 2;
  std::vector<Slot> tail;
  tail.reserve(kMaxBlock);
  tail.assign(block.begin() + static_cast<std::ptrdiff_t>(half), block.end());
  block.resize(half);
  const Integer start = fStarts[b] + static_cast<Integer>(half);
  fBlocks.insert(fBlocks.begin() + static_cast<std::ptrdiff_t>(b) + 1, std::move(tail));
  fStarts.insert(fStarts.begin() + static_cast<std::ptrdiff_t>(b) + 1, start);
}

TkxKeyRec* TkxKeyRecList::Erase(Integer index) {
  const std::size_t b = Locate(index);
  auto& block = fBlocks[b];
  auto at = block.begin() + (index - fStarts[b]);
  TkxKeyRec* rec = at->Rec;
  block.erase(at);
  for (std::size_t k = b + 1; k < fStarts.size(); ++k) --fStarts[k];
  --fCount;
  MergeAround(b);
  return rec;
}

void TkxKeyRecList::MergeAround(std::size_t b) {
  if (fCount == 0) {
    Clear();
    return;
  }
  auto joinInto = [this](std::size_t to) {
    auto& from = fBlocks[to + 1];
    fBlocks[to].insert(fBlocks[to].end(), from.begin(), from.end());
    fBlocks.erase(fBlocks.begin() + static_cast<std::ptrdiff_t>(to) + 1);
    fStarts.erase(fStarts.begin() + static_cast<std::ptrdiff_t>(to) + 1);
  };
  // Two neighbours that fit in half a block become one, so the number of blocks stays
  // within four times the count over the block size however keys come and go.
  const std::size_t size = fBlocks[b].size();
  if (b + 1 < fBlocks.size() && size + fBlocks[b + 1].size() <= kMaxBlock / 2) {
    joinInto(b);
  } else if (b > 0 && fBlocks[b - 1].size() + size <= kMaxBlock / 2) {
    joinInto(b - 1);
  } else if (size == 0) {
    fBlocks.erase(fBlocks.begin() + static_cast<std::ptrdiff_t>(b));
    fStarts.erase(fStarts.begin() + static_cast<std::ptrdiff_t>(b));
  }
  fHint = 0;
}

void TkxKeyRecList::Clear() noexcept {
  fBlocks.clear();
  fStarts.clear();
  fCount = 0;
  fHint = 0;
}

// ---- TkxKeyIndex -----------------------------------------------------------------------

TkxKeyIndex::TkxKeyIndex(TDuplicates duplicates, bool ignoreCase, bool sorted)
    : fDuplicates(duplicates), fIgnoreCase(ignoreCase), fSorted(sorted) {}

TkxKeyIndex::~TkxKeyIndex() { Clear(); }

void TkxKeyIndex::CheckIndex(Integer index) const { CheckListIndex(index, fRecs.Count()); }

int TkxKeyIndex::CompareKeys(const Variant& recKey, const Variant& key) const {
  // Integer keys and case-blind string keys are the common ones; they are compared here
  // directly, with the same outcome as the general comparison.
  Int64 a, b;
  if (AsOrdinal(recKey, a) && AsOrdinal(key, b)) return a < b ? -1 : (a > b ? 1 : 0);
  if (fIgnoreCase && recKey.VarType() == varString && key.VarType() == varString) {
    const int r = AnsiCompareText(recKey.StrRef(), key.StrRef());
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
  }
  return CompareVar(recKey, key, fIgnoreCase);
}

TkxKeyRec* TkxKeyIndex::get_Rec(Integer index) const {
  CheckIndex(index);
  return fRecs.At(index).Rec;
}

Variant TkxKeyIndex::get_KeyValue(Integer index) const { return get_Rec(index)->Key; }

void* TkxKeyIndex::get_KeyData(Integer index) const { return get_Rec(index)->Data; }

void TkxKeyIndex::set_KeyData(Integer index, void* data) { SetKeyData(get_Rec(index), data); }

bool TkxKeyIndex::FindKey(const Variant& key, Integer& index) const {
  const Integer count = fRecs.Count();
  // With integer keys only, the comparisons are those of the integers kept beside the
  // records, and the records themselves need not be visited.
  Int64 sought = 0;
  const bool integers = fOtherKeys == 0 && AsOrdinal(key, sought);
  auto compareAt = [&](Integer i) {
    const TkxKeyRecList::Slot& slot = fRecs.At(i);
    if (integers) return slot.Ord < sought ? -1 : (slot.Ord > sought ? 1 : 0);
    return CompareKeys(slot.Rec->Key, key);
  };
  if (!fSorted) {
    for (Integer i = 0; i < count; ++i) {
      if (compareAt(i) == 0) {
        index = i;
        return true;
      }
    }
    index = count;
    return false;
  }
  // Under dupAccept the search goes on to the left of a match, so it ends on the first of
  // equal keys; otherwise it stops at the first match.
  bool found = false;
  Integer low = 0, high = count - 1;
  while (low <= high) {
    const Integer middle = static_cast<Integer>((static_cast<unsigned>(low) + high) >> 1);
    const int c = compareAt(middle);
    if (c < 0) {
      low = middle + 1;
    } else {
      high = middle - 1;
      if (c == 0) {
        found = true;
        if (fDuplicates != dupAccept) low = middle;
      }
    }
  }
  index = low;
  return found;
}

bool TkxKeyIndex::KeyExist(const Variant& key) const {
  Integer index;
  return FindKey(key, index);
}

Integer TkxKeyIndex::AddKey(const Variant& key, void* data) {
  Integer pos = fRecs.Count();
  if (fSorted || fDuplicates != dupAccept) {
    if (FindKey(key, pos)) {
      if (fDuplicates == dupIgnore) return pos;
      if (fDuplicates == dupError) throw Exception(Format(_SErrKeyValueDuplicate, KeyText(key)));
    }
  }
  if (!fSorted) pos = fRecs.Count();
  TkxKeyRec* rec = NewKeyRec(key);
  Int64 ord = 0;
  const bool integer = AsOrdinal(key, ord);
  try {
    SetKeyData(rec, data);
    fRecs.Insert(pos, TkxKeyRecList::Slot{rec, ord});
  } catch (...) {
    FreeKeyRec(rec);
    throw;
  }
  if (!integer) ++fOtherKeys;
  return pos;
}

bool TkxKeyIndex::RemoveKey(const Variant& key) {
  bool removed = false;
  Integer index;
  while (FindKey(key, index)) {
    DeleteKey(index);
    removed = true;
  }
  return removed;
}

void TkxKeyIndex::DeleteKey(Integer index) {
  CheckIndex(index);
  TkxKeyRec* rec = fRecs.Erase(index);
  Int64 ord;
  if (!AsOrdinal(rec->Key, ord)) --fOtherKeys;
  FreeKeyRec(rec);
}

void TkxKeyIndex::Clear() {
  for (Integer i = 0, n = fRecs.Count(); i < n; ++i) FreeKeyRec(fRecs.At(i).Rec);
  fRecs.Clear();
  fOtherKeys = 0;
}

TkxKeyRec* TkxKeyIndex::NewKeyRec(const Variant& key) { return new TkxKeyRec{key, nullptr}; }

void TkxKeyIndex::FreeKeyRec(TkxKeyRec* rec) noexcept { delete rec; }

void TkxKeyIndex::SetKeyData(TkxKeyRec* rec, void* data) { rec->Data = data; }

// ---- TkxKeyVarIndex --------------------------------------------------------------------

// The records' cells are freed here, while the overrides are still those of this class.
TkxKeyVarIndex::~TkxKeyVarIndex() { Clear(); }

TkxKeyRec* TkxKeyVarIndex::NewKeyRec(const Variant& key) {
  std::unique_ptr<TkxKeyRec> rec(TkxKeyIndex::NewKeyRec(key));
  rec->Data = new Variant();
  return rec.release();
}

void TkxKeyVarIndex::FreeKeyRec(TkxKeyRec* rec) noexcept {
  delete static_cast<Variant*>(rec->Data);
  rec->Data = nullptr;
  TkxKeyIndex::FreeKeyRec(rec);
}

void TkxKeyVarIndex::SetKeyData(TkxKeyRec* rec, void* data) {
  Variant& cell = *static_cast<Variant*>(rec->Data);
  if (data)
    cell = *static_cast<const Variant*>(data);
  else
    cell.Clear();
}

// The variant forms hand the value's address through the untyped data pointer; the cell
// copies it and never writes through it.
Integer TkxKeyVarIndex::AddKey(const Variant& key, const Variant& data) {
  return TkxKeyIndex::AddKey(key, const_cast<Variant*>(&data));
}

Variant TkxKeyVarIndex::get_KeyData(Integer index) const {
  return *static_cast<const Variant*>(TkxKeyIndex::get_KeyData(index));
}

void TkxKeyVarIndex::set_KeyData(Integer index, const Variant& value) {
  TkxKeyIndex::set_KeyData(index, const_cast<Variant*>(&value));
}

// ---- TkxKeyData ------------------------------------------------------------------------

TkxKeyData::TkxKeyData(TDuplicates duplicates, bool ignoreCase, bool sorted)
    : fIndex(duplicates, ignoreCase, sorted) {}

TkxKeyData::~TkxKeyData() = default;

bool TkxKeyData::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IkxKeyData>(this, iid, obj)) return true;
  return TInterfacedObject::GetInterface(iid, obj);
}

Integer OSTREL_STDCALL TkxKeyData::get_Count() { return fIndex.get_Count(); }

Variant OSTREL_STDCALL TkxKeyData::get_Key(Integer index) { return fIndex.get_KeyValue(index); }

Variant OSTREL_STDCALL TkxKeyData::get_Data(Integer index) { return fIndex.get_KeyData(index); }

void OSTREL_STDCALL TkxKeyData::set_Data(Integer index, const Variant& value) {
  fIndex.set_KeyData(index, value);
}

Variant OSTREL_STDCALL TkxKeyData::get_KeyData(const Variant& key) {
  Integer index;
  if (fIndex.FindKey(key, index)) return fIndex.get_KeyData(index);
  return Variant();
}

void OSTREL_STDCALL TkxKeyData::set_KeyData(const Variant& key, const Variant& value) {
  Integer index;
  if (fIndex.FindKey(key, index))
    fIndex.set_KeyData(index, value);
  else
    fIndex.AddKey(key, value);
}

Integer OSTREL_STDCALL TkxKeyData::Add(const Variant& key, const Variant& value) {
  return fIndex.AddKey(key, value);
}

bool OSTREL_STDCALL TkxKeyData::FindKey(const Variant& key, Integer& index) {
  return fIndex.FindKey(key, index);
}

void OSTREL_STDCALL TkxKeyData::Remove(const Variant& key) { fIndex.RemoveKey(key); }

void OSTREL_STDCALL TkxKeyData::Delete(Integer index) { fIndex.DeleteKey(index); }

void OSTREL_STDCALL TkxKeyData::Clear() { fIndex.Clear(); }

void GetKeyDataIntf(IPtr<IkxKeyData>& keyData, TDuplicates duplicates, bool ignoreCase,
                    bool sorted) {
  keyData = IPtr<IkxKeyData>(new TkxKeyData(duplicates, ignoreCase, sorted));
}

IPtr<IkxKeyData> GetKeyDataIntf(TDuplicates duplicates, bool ignoreCase, bool sorted) {
  IPtr<IkxKeyData> r;
  GetKeyDataIntf(r, duplicates, ignoreCase, sorted);
  return r;
}

}  // namespace ostrel
