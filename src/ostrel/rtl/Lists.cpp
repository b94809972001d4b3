// TList, TStringList and TInterfaceList.
#include <ostrel/rtl/Classes.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/SafeFile.h>
#include <ostrel/rtl/detail/Common.h>

#include <algorithm>
#include <limits>

namespace ostrel {

OSTREL_DEFINE_CLASS(TList)
OSTREL_DEFINE_CLASS(TStringList)
OSTREL_DEFINE_CLASS(TInterfaceList)

void RaiseListIndexError(Integer index) {
  throw EListError(Format(SysConst::SListIndexError, index));
}

void RaiseStringListIndexError(Integer index) {
  throw EStringListError(Format(SysConst::SListIndexError, index));
}

namespace {

constexpr std::string_view SListCountError = "List count (%d) out of bounds";

[[noreturn]] void ListError(std::string_view message, Integer data) {
  throw EListError(Format(message, data));
}

[[noreturn]] void StringListError(std::string_view message, Integer data) {
  throw EStringListError(Format(message, data));
}

// Sorts positions l..r in place, with compare(i, p) comparing the items at two positions and
// exchange(i, j) swapping them. The scans are bounded by l and r, so a comparison that
// contradicts itself cannot run them off the range, and the smaller part is sorted by
// recursion, the larger by iteration, so the depth stays logarithmic.
template <class Compare, class Exchange>
void QuickSortRange(Integer l, Integer r, Compare& compare, Exchange& exchange) {
  while (l < r) {
    Integer i = l, j = r, p = l + (r - l) / 2;
    do {
      while (i < r && compare(i, p) < 0) ++i;
      while (j > l && compare(j, p) > 0) --j;
      if (i <= j) {
        if (i != j) {
          exchange(i, j);
          if (p == i)
            p = j;
          else if (p == j)
            p = i;
        }
        ++i;
        --j;
      }
    } while (i <= j);
    if (j - l < r - i) {
      if (l < j) QuickSortRange(l, j, compare, exchange);
      l = i;
    } else {
      if (i < r) QuickSortRange(i, r, compare, exchange);
      r = j;
    }
  }
}

}  // namespace

// ---- TList ----------------------------------------------------------------------------

TList::~TList() = default;

void TList::SetCount(Integer count) {
  if (count < 0) ListError(SListCountError, count);
  fItems.resize(static_cast<std::size_t>(count), nullptr);
}

void TList::SetCapacity(Integer capacity) {
  if (capacity < Count()) ListError(SysConst::SListCapacityError, capacity);
  if (static_cast<std::size_t>(capacity) < fItems.capacity()) {
    fItems.shrink_to_fit();
    fItems.reserve(static_cast<std::size_t>(capacity));
  } else {
    fItems.reserve(static_cast<std::size_t>(capacity));
  }
}

void* TList::Items(Integer index) const {
  CheckListIndex(index, Count());
  return fItems[static_cast<std::size_t>(index)];
}

void TList::SetItems(Integer index, void* item) {
  CheckListIndex(index, Count());
  fItems[static_cast<std::size_t>(index)] = item;
}

Integer TList::Add(void* item) {
  fItems.push_back(item);
  return Count() - 1;
}

void TList::Insert(Integer index, void* item) {
  CheckListIndex(index, Count() + 1);
  fItems.insert(fItems.begin() + index, item);
}

void TList::Delete(Integer index) {
  CheckListIndex(index, Count());
  fItems.erase(fItems.begin() + index);
}

Integer TList::Remove(void* item) {
  Integer index = IndexOf(item);
  if (index >= 0) Delete(index);
  return index;
}

void* TList::Extract(void* item) { return Remove(item) >= 0 ? item : nullptr; }

Integer TList::IndexOf(const void* item) const {
  auto it = std::find(fItems.begin(), fItems.end(), item);
  return it == fItems.end() ? -1 : static_cast<Integer>(it - fItems.begin());
}

void TList::Clear() { std::vector<void*>().swap(fItems); }

void TList::Exchange(Integer index1, Integer index2) {
  CheckListIndex(index1, Count());
  CheckListIndex(index2, Count());
  std::swap(fItems[static_cast<std::size_t>(index1)], fItems[static_cast<std::size_t>(index2)]);
}

void TList::Move(Integer curIndex, Integer newIndex) {
  if (curIndex == newIndex) return;
  CheckListIndex(newIndex, Count());
  void* item = Items(curIndex);
  fItems.erase(fItems.begin() + curIndex);
  fItems.insert(fItems.begin() + newIndex, item);
}

void TList::Pack() {
  fItems.erase(std::remove(fItems.begin(), fItems.end(), nullptr), fItems.end());
}

void TList::Sort(const TListSortCompare& compare) {
  // Sorted in a copy: a comparison that changes the list cannot pull items from under the
  // sort, and one that raises leaves the list as it was.
  std::vector<void*> items = fItems;
  auto cmp = [&](Integer i, Integer j) {
    return compare(items[static_cast<std::size_t>(i)], items[static_cast<std::size_t>(j)]);
  };
  auto swap = [&](Integer i, Integer j) {
    std::swap(items[static_cast<std::size_t>(i)], items[static_cast<std::size_t>(j)]);
  };
  QuickSortRange(0, static_cast<Integer>(items.size()) - 1, cmp, swap);
  fItems = std::move(items);
}

// ---- TStringList ----------------------------------------------------------------------

TStringList::~TStringList() { Clear(); }

void TStringList::CheckIndex(Integer index) const { CheckStringListIndex(index, Count()); }

void TStringList::ReleaseSlot(Item& item) noexcept {
  if (!fOwnsObjects || !item.IsObject || !item.Ptr) return;
  TObject* obj = static_cast<TObject*>(item.Ptr);
  item.Ptr = nullptr;
  item.IsObject = false;
  // An object that refuses destruction (one still referenced through interfaces) is left
  // to its references.
  try {
    TObject::Free(obj);
  } catch (...) {
  }
}

void TStringList::SetCapacity(Integer capacity) {
  if (capacity < Count()) StringListError(SysConst::SListCapacityError, capacity);
  fItems.reserve(static_cast<std::size_t>(capacity));
}

const AnsiString& TStringList::Strings(Integer index) const {
  CheckIndex(index);
  return fItems[static_cast<std::size_t>(index)].Str;
}

void TStringList::SetStrings(Integer index, std::string_view s) {
  if (fSorted) StringListError(SysConst::SSortedListError, 0);
  CheckIndex(index);
  fItems[static_cast<std::size_t>(index)].Str.assign(s);
}

TObject* TStringList::Objects(Integer index) const {
  CheckIndex(index);
  const Item& item = fItems[static_cast<std::size_t>(index)];
  if (item.Ptr && !item.IsObject) throw EInvalidCast(SysConst::SInvalidCast);
  return static_cast<TObject*>(item.Ptr);
}

void TStringList::SetObjects(Integer index, TObject* object) {
  CheckIndex(index);
  Item& item = fItems[static_cast<std::size_t>(index)];
  if (item.Ptr == object && item.IsObject) return;
  Item old = item;
  item.Ptr = object;
  item.IsObject = object != nullptr;
  ReleaseSlot(old);
}

void* TStringList::ObjectPtr(Integer index) const {
  CheckIndex(index);
  return fItems[static_cast<std::size_t>(index)].Ptr;
}

void TStringList::SetObjectPtr(Integer index, void* data) {
  CheckIndex(index);
  Item& item = fItems[static_cast<std::size_t>(index)];
  if (item.Ptr == data && !item.IsObject) return;
  Item old = item;
  item.Ptr = data;
  item.IsObject = false;
  ReleaseSlot(old);
}

Integer TStringList::AddItem(std::string_view s, void* ptr, bool isObject) {
  Integer index = Count();
  if (fSorted && Find(s, index)) {
    if (fDuplicates == dupIgnore) return index;
    if (fDuplicates == dupError) StringListError(SysConst::SDuplicateString, 0);
  }
  InsertItem(index, s, ptr, isObject);
  return index;
}

void TStringList::InsertItem(Integer index, std::string_view s, void* ptr, bool isObject) {
  Item item;
  item.Str.assign(s);
  item.Ptr = ptr;
  item.IsObject = isObject && ptr != nullptr;
  fItems.insert(fItems.begin() + index, std::move(item));
}

Integer TStringList::Add(std::string_view s) { return AddItem(s, nullptr, false); }

Integer TStringList::AddObject(std::string_view s, TObject* object) {
  return AddItem(s, object, true);
}

Integer TStringList::AddObject(std::string_view s, void* data) { return AddItem(s, data, false); }

void TStringList::Insert(Integer index, std::string_view s) {
  InsertObject(index, s, static_cast<void*>(nullptr));
}

void TStringList::InsertObject(Integer index, std::string_view s, TObject* object) {
  if (fSorted) StringListError(SysConst::SSortedListError, 0);
  CheckStringListIndex(index, Count() + 1);
  InsertItem(index, s, object, true);
}

void TStringList::InsertObject(Integer index, std::string_view s, void* data) {
  if (fSorted) StringListError(SysConst::SSortedListError, 0);
  CheckStringListIndex(index, Count() + 1);
  InsertItem(index, s, data, false);
}

void TStringList::AddStrings(const TStringList& strings) {
  if (&strings == this) {
    TStringList copy;
    copy.AddStrings(strings);
    AddStrings(copy);
    return;
  }
  for (const Item& item : strings.fItems) {
    if (item.IsObject && fOwnsObjects)
      AddItem(item.Str, nullptr, false);
    else
      AddItem(item.Str, item.Ptr, item.IsObject);
  }
}

void TStringList::Delete(Integer index) {
  CheckIndex(index);
  Item item = std::move(fItems[static_cast<std::size_t>(index)]);
  fItems.erase(fItems.begin() + index);
  ReleaseSlot(item);
}

void TStringList::Clear() {
  std::vector<Item> items;
  items.swap(fItems);
  for (Item& item : items) ReleaseSlot(item);
}

void TStringList::Exchange(Integer index1, Integer index2) {
  CheckIndex(index1);
  CheckIndex(index2);
  std::swap(fItems[static_cast<std::size_t>(index1)], fItems[static_cast<std::size_t>(index2)]);
}

void TStringList::Move(Integer curIndex, Integer newIndex) {
  if (curIndex == newIndex) return;
  CheckIndex(curIndex);
  if (fSorted) StringListError(SysConst::SSortedListError, 0);
  CheckIndex(newIndex);
  Item item = std::move(fItems[static_cast<std::size_t>(curIndex)]);
  fItems.erase(fItems.begin() + curIndex);
  fItems.insert(fItems.begin() + newIndex, std::move(item));
}

int TStringList::CompareStrings(std::string_view s1, std::string_view s2) const {
  return fCaseSensitive ? AnsiCompareStr(s1, s2) : AnsiCompareText(s1, s2);
}

bool TStringList::Find(std::string_view s, Integer& index) const {
  // The first position whose string is not below s: with duplicates accepted, the first of
  // the equal ones.
  Integer l = 0, h = Count() - 1;
  bool found = false;
  while (l <= h) {
    Integer i = l + (h - l) / 2;
    int c = CompareStrings(fItems[static_cast<std::size_t>(i)].Str, s);
    if (c < 0) {
      l = i + 1;
    } else {
      h = i - 1;
      if (c == 0) found = true;
    }
  }
  index = l;
  return found;
}

Integer TStringList::IndexOf(std::string_view s) const {
  if (fSorted) {
    Integer index;
    return Find(s, index) ? index : -1;
  }
  for (Integer i = 0; i < Count(); ++i)
    if (CompareStrings(fItems[static_cast<std::size_t>(i)].Str, s) == 0) return i;
  return -1;
}

Integer TStringList::IndexOfName(std::string_view name) const {
  for (Integer i = 0; i < Count(); ++i) {
    std::string_view s = fItems[static_cast<std::size_t>(i)].Str;
    std::size_t p = s.find(fNameValueSeparator);
    if (p != std::string_view::npos && CompareStrings(s.substr(0, p), name) == 0) return i;
  }
  return -1;
}

Integer TStringList::IndexOfObject(const void* object) const {
  for (Integer i = 0; i < Count(); ++i)
    if (fItems[static_cast<std::size_t>(i)].Ptr == object) return i;
  return -1;
}

void TStringList::QuickSort(const TStringListSortCompare& compare) {
  auto cmp = [&](Integer i, Integer j) { return compare(*this, i, j); };
  // Checked exchange: a comparison that shrinks the list gets an index error, not a crash.
  auto swap = [&](Integer i, Integer j) { Exchange(i, j); };
  QuickSortRange(0, Count() - 1, cmp, swap);
}

void TStringList::Sort() {
  QuickSort([](TStringList& list, Integer i, Integer j) {
    return list.CompareStrings(list.Strings(i), list.Strings(j));
  });
}

void TStringList::CustomSort(const TStringListSortCompare& compare) {
  if (!fSorted) QuickSort(compare);
}

void TStringList::SetSorted(bool value) {
  if (value == fSorted) return;
  if (value) Sort();
  fSorted = value;
}

void TStringList::SetCaseSensitive(bool value) {
  if (value == fCaseSensitive) return;
  fCaseSensitive = value;
  if (fSorted) Sort();
}

AnsiString TStringList::Names(Integer index) const {
  const AnsiString& s = Strings(index);
  std::size_t p = s.find(fNameValueSeparator);
  return p == AnsiString::npos ? AnsiString() : s.substr(0, p);
}

AnsiString TStringList::Values(std::string_view name) const {
  Integer i = IndexOfName(name);
  if (i < 0) return AnsiString();
  const AnsiString& s = fItems[static_cast<std::size_t>(i)].Str;
  return s.substr(s.find(fNameValueSeparator) + 1);
}

void TStringList::SetValues(std::string_view name, std::string_view value) {
  Integer i = IndexOfName(name);
  if (value.empty()) {
    if (i >= 0) Delete(i);
    return;
  }
  AnsiString line;
  line.reserve(name.size() + 1 + value.size());
  line.append(name).push_back(fNameValueSeparator);
  line.append(value);
  if (i < 0)
    Add(line);
  else
    ReplaceLine(i, std::move(line));
}

void TStringList::ReplaceLine(Integer index, AnsiString line) {
  if (!fSorted) {
    fItems[static_cast<std::size_t>(index)].Str = std::move(line);
    return;
  }
  // A sorted list takes the new line at its own place, keeping the slot.
  Item item = std::move(fItems[static_cast<std::size_t>(index)]);
  fItems.erase(fItems.begin() + index);
  try {
    AddItem(line, item.Ptr, item.IsObject);
  } catch (...) {
    fItems.insert(fItems.begin() + index, std::move(item));
    throw;
  }
}

// As the classic RTL: the value starts two characters after the end of the name, so a
// line without a separator gives its text from the second character on.
AnsiString TStringList::ValueFromIndex(Integer index) const {
  if (index < 0) return AnsiString();
  const AnsiString& s = Strings(index);
  std::size_t start = Names(index).size() + 1;
  return start < s.size() ? s.substr(start) : AnsiString();
}

void TStringList::SetValueFromIndex(Integer index, std::string_view value) {
  if (value.empty()) {
    if (index >= 0) Delete(index);
    return;
  }
  AnsiString name = index >= 0 ? Names(index) : AnsiString();
  AnsiString line = name + fNameValueSeparator + AnsiString(value);
  if (index < 0)
    Add(line);
  else
    ReplaceLine(index, std::move(line));
}

AnsiString TStringList::Text() const {
  std::size_t size = 0;
  for (const Item& item : fItems) size += item.Str.size() + 2;
  AnsiString text;
  text.reserve(size);
  for (const Item& item : fItems) text.append(item.Str).append("\r\n");
  return text;
}

void TStringList::SetText(std::string_view text) {
  Clear();
  std::size_t p = 0;
  while (p < text.size()) {
    std::size_t start = p;
    while (p < text.size() && text[p] != '\r' && text[p] != '\n') ++p;
    Add(text.substr(start, p - start));
    if (p < text.size() && text[p] == '\r') ++p;
    if (p < text.size() && text[p] == '\n') ++p;
  }
}

namespace {
using detail::IsBlank;
}  // namespace

AnsiString TStringList::JoinDelimited(char delimiter, char quoteChar) const {
  if (Count() == 1 && fItems[0].Str.empty()) return AnsiString(2, quoteChar);
  AnsiString result;
  for (std::size_t i = 0; i < fItems.size(); ++i) {
    const AnsiString& s = fItems[i].Str;
    if (i > 0) result.push_back(delimiter);
    bool quote = std::any_of(
        s.begin(), s.end(), [&](char c) { return IsBlank(c) || c == quoteChar || c == delimiter; });
    if (quote)
      result.append(QuotedStr(s, quoteChar));
    else
      result.append(s);
  }
  return result;
}

// Blanks here are all codes up to 32, the zero byte included.
void TStringList::SplitDelimited(std::string_view text, char delimiter, char quoteChar) {
  Clear();
  const std::size_t n = text.size();
  std::size_t p = 0;
  while (p < n && IsBlank(text[p])) ++p;
  while (p < n) {
    AnsiString s;
    if (text[p] == quoteChar) {
      // A doubled quote stands for one; a missing closing quote takes the rest of the text.
      ++p;
      while (p < n) {
        if (text[p] == quoteChar) {
          if (p + 1 < n && text[p + 1] == quoteChar) {
            s.push_back(quoteChar);
            p += 2;
            continue;
          }
          ++p;
          break;
        }
        s.push_back(text[p++]);
      }
    } else {
      std::size_t start = p;
      while (p < n && !IsBlank(text[p]) && text[p] != delimiter) ++p;
      s.assign(text.substr(start, p - start));
    }
    Add(s);
    while (p < n && IsBlank(text[p])) ++p;
    if (p < n && text[p] == delimiter) {
      // A delimiter that ends the text stands before one more, empty, string.
      if (p + 1 == n) Add(AnsiString());
      do ++p;
      while (p < n && IsBlank(text[p]));
    }
  }
}

AnsiString TStringList::DelimitedText() const { return JoinDelimited(fDelimiter, fQuoteChar); }

void TStringList::SetDelimitedText(std::string_view text) {
  SplitDelimited(text, fDelimiter, fQuoteChar);
}

AnsiString TStringList::CommaText() const { return JoinDelimited(',', '"'); }

void TStringList::SetCommaText(std::string_view text) { SplitDelimited(text, ',', '"'); }

void TStringList::LoadFromStream(TStream& stream) {
  Int64 size = stream.GetSize() - stream.GetPosition();
  AnsiString text;
  if (size > 0) {
    if (static_cast<UInt64>(size) > text.max_size()) throw EReadError(SysConst::SReadError);
    text.resize(static_cast<std::size_t>(size));
    std::size_t done = 0;
    while (done < text.size()) {
      Integer want = static_cast<Integer>(
          std::min<std::size_t>(text.size() - done, std::numeric_limits<Integer>::max()));
      Integer got = stream.Read(text.data() + done, want);
      if (got <= 0) break;
      done += static_cast<std::size_t>(got);
    }
    text.resize(done);
  }
  SetText(text);
}

void TStringList::LoadFromFile(std::string_view fileName) {
  TFileStream file(fileName, fmOpenRead | fmShareDenyWrite);
  LoadFromStream(file);
}

void TStringList::SaveToStream(TStream& stream) const {
  AnsiString text = Text();
  std::size_t done = 0;
  while (done < text.size()) {
    Integer n = static_cast<Integer>(
        std::min<std::size_t>(text.size() - done, std::numeric_limits<Integer>::max()));
    stream.WriteBuffer(text.data() + done, n);
    done += static_cast<std::size_t>(n);
  }
}

void TStringList::SaveToFile(std::string_view fileName) const {
  TSafeFileWriter file(fileName);
  SaveToStream(file);
  file.Commit();
}

// ---- TInterfaceList -------------------------------------------------------------------

TInterfaceList::~TInterfaceList() = default;

bool TInterfaceList::GetInterface(const TGUID& iid, void** obj) {
  if (GetInterfaceEntry<IInterfaceList>(this, iid, obj)) return true;
  return TInterfacedObject::GetInterface(iid, obj);
}

// References leaving the list are released after the lock is given up, since freeing an
// item may run code that uses the list again.

IPtr<IInterface> OSTREL_STDCALL TInterfaceList::Get(Integer index) {
  std::lock_guard guard(fLock);
  CheckListIndex(index, static_cast<Integer>(fItems.size()));
  return fItems[static_cast<std::size_t>(index)];
}

Integer OSTREL_STDCALL TInterfaceList::GetCapacity() {
  std::lock_guard guard(fLock);
  return static_cast<Integer>(fItems.capacity());
}

Integer OSTREL_STDCALL TInterfaceList::GetCount() {
  std::lock_guard guard(fLock);
  return static_cast<Integer>(fItems.size());
}

void OSTREL_STDCALL TInterfaceList::Put(Integer index, const IPtr<IInterface>& item) {
  IPtr<IInterface> old;
  std::lock_guard guard(fLock);
  CheckListIndex(index, static_cast<Integer>(fItems.size()));
  old = std::exchange(fItems[static_cast<std::size_t>(index)], item);
}

void OSTREL_STDCALL TInterfaceList::SetCapacity(Integer capacity) {
  std::lock_guard guard(fLock);
  if (capacity < static_cast<Integer>(fItems.size()))
    ListError(SysConst::SListCapacityError, capacity);
  fItems.reserve(static_cast<std::size_t>(capacity));
}

void OSTREL_STDCALL TInterfaceList::SetCount(Integer count) {
  std::vector<IPtr<IInterface>> dropped;
  std::lock_guard guard(fLock);
  if (count < 0) ListError(SListCountError, count);
  if (static_cast<std::size_t>(count) < fItems.size()) {
    dropped.assign(std::make_move_iterator(fItems.begin() + count),
                   std::make_move_iterator(fItems.end()));
  }
  fItems.resize(static_cast<std::size_t>(count));
}

void OSTREL_STDCALL TInterfaceList::Clear() {
  std::vector<IPtr<IInterface>> dropped;
  std::lock_guard guard(fLock);
  dropped.swap(fItems);
}

void OSTREL_STDCALL TInterfaceList::Delete(Integer index) {
  IPtr<IInterface> dropped;
  std::lock_guard guard(fLock);
  CheckListIndex(index, static_cast<Integer>(fItems.size()));
  dropped = std::move(fItems[static_cast<std::size_t>(index)]);
  fItems.erase(fItems.begin() + index);
}

void OSTREL_STDCALL TInterfaceList::Exchange(Integer index1, Integer index2) {
  std::lock_guard guard(fLock);
  const Integer n = static_cast<Integer>(fItems.size());
  CheckListIndex(index1, n);
  CheckListIndex(index2, n);
  fItems[static_cast<std::size_t>(index1)].Swap(fItems[static_cast<std::size_t>(index2)]);
}

IPtr<IInterface> OSTREL_STDCALL TInterfaceList::First() { return Get(0); }

IPtr<IInterface> OSTREL_STDCALL TInterfaceList::Last() {
  std::lock_guard guard(fLock);
  return Get(static_cast<Integer>(fItems.size()) - 1);
}

Integer OSTREL_STDCALL TInterfaceList::IndexOf(const IPtr<IInterface>& item) {
  std::lock_guard guard(fLock);
  auto it = std::find(fItems.begin(), fItems.end(), item);
  return it == fItems.end() ? -1 : static_cast<Integer>(it - fItems.begin());
}

Integer OSTREL_STDCALL TInterfaceList::Add(const IPtr<IInterface>& item) {
  std::lock_guard guard(fLock);
  fItems.push_back(item);
  return static_cast<Integer>(fItems.size()) - 1;
}

void OSTREL_STDCALL TInterfaceList::Insert(Integer index, const IPtr<IInterface>& item) {
  std::lock_guard guard(fLock);
  CheckListIndex(index, static_cast<Integer>(fItems.size()) + 1);
  fItems.insert(fItems.begin() + index, item);
}

Integer OSTREL_STDCALL TInterfaceList::Remove(const IPtr<IInterface>& item) {
  IPtr<IInterface> dropped;
  std::lock_guard guard(fLock);
  auto it = std::find(fItems.begin(), fItems.end(), item);
  if (it == fItems.end()) return -1;
  Integer index = static_cast<Integer>(it - fItems.begin());
  dropped = std::move(*it);
  fItems.erase(it);
  return index;
}

void OSTREL_STDCALL TInterfaceList::Lock() {
  fLock.lock();
  ++fLockDepth;
}

// Only the thread that called Lock may call Unlock, as often as it called Lock.
void OSTREL_STDCALL TInterfaceList::Unlock() {
  if (!fLock.try_lock()) throw EInvalidOperation("TInterfaceList.Unlock: locked by another thread");
  // The lock is ours now, so fLockDepth counts this thread's own Lock calls.
  if (fLockDepth == 0) {
    fLock.unlock();
    throw EInvalidOperation("TInterfaceList.Unlock: the list is not locked");
  }
  --fLockDepth;
  fLock.unlock();
  fLock.unlock();
}

}  // namespace ostrel
