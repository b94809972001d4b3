// The item tree, its interface wrappers and the document.
#include <ostrel/core/Dump.h>
#include <ostrel/rtl/detail/Common.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/services/VarServ.h>
#include <ostrel/xml/Xmlutils.h>
#include <ostrel/xml/detail/XAttrTable.h>
#include <ostrel/xml/detail/XTextBlock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <typeinfo>
#include <utility>

namespace ostrel {

OSTREL_DEFINE_CLASS(TXItem)
OSTREL_DEFINE_CLASS(TXItemIntf)
OSTREL_DEFINE_CLASS(TXDocIntf)

namespace {

constexpr std::string_view kCDATAOpen = "<![CDATA[";
constexpr std::string_view kCDATAClose = "]]>";

using detail::IsBlank;

using detail::IsCDATAWrapped;

std::string_view UnwrapCDATA(std::string_view s) {
  return s.substr(kCDATAOpen.size(), s.size() - kCDATAOpen.size() - kCDATAClose.size());
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The item pool

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kUsePool = false;  // the sanitizer must see every item's own allocation
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kUsePool = false;
#else
constexpr bool kUsePool = true;
#endif
#else
constexpr bool kUsePool = true;
#endif

// Fixed blocks in slabs of 64 KiB aligned to their size, so that a block finds its slab by
// masking its address. Slabs with free blocks are kept in a list; a slab whose last block
// is freed goes back to the heap, except up to kMaxSpare kept empty, so that a document of
// a few megabytes loaded and freed over and over takes neither the heap's time nor fresh
// pages from the system each time (the heap gives freed memory back to the system, and the
// next load faults it in again). The spares are bounded: loading any number of documents
// holds no more than that beyond the items alive. Freed blocks are reused last-in first-out.
class ItemPool {
 public:
  void* Alloc() {
    std::lock_guard<std::mutex> guard(fLock);
    return AllocLocked();
  }
  void Free(void* block) noexcept {
    std::lock_guard<std::mutex> guard(fLock);
    FreeLocked(block);
  }
  // Many at once under one lock (the reader makes and a subtree's freeing frees many items
  // in a row); all or none.
  void AllocMany(void** blocks, int count) {
    std::lock_guard<std::mutex> guard(fLock);
    int made = 0;
    try {
      for (; made < count; ++made) blocks[made] = AllocLocked();
    } catch (...) {
      while (made > 0) FreeLocked(blocks[--made]);
      throw;
    }
  }
  void FreeMany(void* const* blocks, int count) noexcept {
    std::lock_guard<std::mutex> guard(fLock);
    for (int i = 0; i < count; ++i) FreeLocked(blocks[i]);
  }

  // Items need only their own alignment; rounding them to 16 bytes would add 8 to each.
  static constexpr std::size_t kBlock =
      (sizeof(TXItem) + alignof(TXItem) - 1) & ~(alignof(TXItem) - 1);

 private:
  void* AllocLocked() {
    Slab* slab = fRoom;
    if (!slab) {
      if (fSpare) {
        slab = fSpare;
        fSpare = slab->next;
        --fSpareCount;
        *slab = Slab{nullptr, nullptr, nullptr, 0, 0};
      } else {
        slab = NewSlab();
      }
      Link(slab);
    }
    void* block;
    if (slab->free) {
      block = slab->free;
      slab->free = slab->free->next;
    } else {
      block = reinterpret_cast<char*>(slab) + kFirst + slab->fresh++ * kBlock;
    }
    if (++slab->live == kCount) Unlink(slab);
    return block;
  }

  void FreeLocked(void* block) noexcept {
    Slab* slab = reinterpret_cast<Slab*>(reinterpret_cast<std::uintptr_t>(block) &
                                         ~static_cast<std::uintptr_t>(kSlabSize - 1));
    Node* node = static_cast<Node*>(block);
    node->next = slab->free;
    slab->free = node;
    if (slab->live-- == kCount) Link(slab);
    if (slab->live == 0) {
      Unlink(slab);
      if (fSpareCount < kMaxSpare) {
        slab->next = fSpare;
        fSpare = slab;
        ++fSpareCount;
      } else {
        ::operator delete(slab, std::align_val_t(kSlabSize));
      }
    }
  }

  struct Node {
    Node* next;
  };
  struct Slab {
    Slab* prev;
    Slab* next;
    Node* free;
    std::uint32_t live;   // blocks handed out
    std::uint32_t fresh;  // blocks never handed out start at this index
  };
  static constexpr std::size_t kSlabSize = 64 * 1024;
  static constexpr int kMaxSpare = 32;  // 2 MiB
  static constexpr std::size_t kFirst =
      (sizeof(Slab) + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
  static constexpr std::uint32_t kCount = static_cast<std::uint32_t>((kSlabSize - kFirst) / kBlock);

  static Slab* NewSlab() {
    Slab* slab = static_cast<Slab*>(::operator new(kSlabSize, std::align_val_t(kSlabSize)));
    *slab = Slab{nullptr, nullptr, nullptr, 0, 0};
    return slab;
  }
  void Link(Slab* slab) noexcept {
    slab->prev = nullptr;
    slab->next = fRoom;
    if (fRoom) fRoom->prev = slab;
    fRoom = slab;
  }
  void Unlink(Slab* slab) noexcept {
    if (slab->prev)
      slab->prev->next = slab->next;
    else
      fRoom = slab->next;
    if (slab->next) slab->next->prev = slab->prev;
    slab->prev = slab->next = nullptr;
  }

  std::mutex fLock;
  Slab* fRoom = nullptr;
  Slab* fSpare = nullptr;  // empty slabs, linked through next
  int fSpareCount = 0;
};

// Never destroyed: items may outlive every other static object.
ItemPool& Pool() {
  static ItemPool* pool = new ItemPool;
  return *pool;
}

}  // namespace

void* TXItem::operator new(std::size_t size) {
  if (!kUsePool || size > ItemPool::kBlock) return ::operator new(size);
  return Pool().Alloc();
}

void TXItem::operator delete(void* p, std::size_t size) noexcept {
  if (!p) return;
  if (!kUsePool || size > ItemPool::kBlock)
    ::operator delete(p);
  else
    Pool().Free(p);
}

void TXItem::TakeBlocks(void** blocks, int count) {
  if (kUsePool) return Pool().AllocMany(blocks, count);
  for (int i = 0; i < count; ++i) blocks[i] = ::operator new(sizeof(TXItem));
}

void TXItem::GiveBlocks(void* const* blocks, int count) noexcept {
  if (count == 0) return;
  if (kUsePool) return Pool().FreeMany(blocks, count);
  for (int i = 0; i < count; ++i) ::operator delete(blocks[i]);
}

// ---------------------------------------------------------------------------------------
// TXItem

TXItem::TXItem() = default;

TXItem::TXItem(IInterface* controller) : fIntf(new TXItemIntf(controller, this)) {}

TXItem::~TXItem() {
  Clear();
  if (fParent) fParent->Unlink(this);
  if (TXItemIntf* intf = std::exchange(fIntf, nullptr)) intf->DoRelease();
  ReleaseTexts();
}

void TXItem::ReleaseTexts() noexcept {
  if (fBlock)
    detail::TXTextBlock::Release(fBlock);
  else
    delete[] fText;
  fText = nullptr;
  fBlock = nullptr;
  fAttrSize = fValueSize = 0;
}

void TXItem::MakeValue() const {
  fValue = Variant(ValueText());
  fValueSize = 0;
}

void TXItem::SetTexts(std::string_view attrText, std::string_view valueText) {
  const Cardinal attrSize = detail::TextSize(attrText.size());
  const Cardinal valueSize = detail::TextSize(valueText.size());
  // The copy is made before the old texts go: either may be a piece of them.
  char* copy = nullptr;
  if (const std::size_t size = attrText.size() + valueText.size(); size != 0) {
    copy = new char[size];
    if (!attrText.empty()) std::memcpy(copy, attrText.data(), attrText.size());
    if (!valueText.empty()) std::memcpy(copy + attrText.size(), valueText.data(), valueText.size());
  }
  ReleaseTexts();
  fText = copy;
  fAttrSize = attrSize;
  fValueSize = valueSize;
}

void TXItem::set_AttrText(std::string_view text) { SetTexts(text, ValueText()); }

void TXItem::SetBlockTexts(detail::TXTextBlock* block, const char* text, Cardinal attrSize,
                           Cardinal valueSize) noexcept {
  ++block->users;
  ReleaseTexts();
  fBlock = block;
  fText = text;
  fAttrSize = attrSize;
  fValueSize = valueSize;
}

void TXItem::OwnTexts() {
  std::vector<TXItem*> stack{this};
  while (!stack.empty()) {
    TXItem* item = stack.back();
    stack.pop_back();
    if (item->fBlock) item->SetTexts(item->get_AttrText(), item->ValueText());
    stack.insert(stack.end(), item->fItems.begin(), item->fItems.end());
  }
}

void TXItem::Clear() {
  // The subtree is taken apart without recursion, so that a tree of any depth is freed
  // without running out of stack: the walk goes down to a last child, takes it out of its
  // parent's list, frees it once it has no children left and goes back up by its parent.
  if (fItems.empty()) return;
  constexpr int kBatch = 64;
  void* freed[kBatch];
  int count = 0;
  TXItem* item = this;
  while (!fItems.empty() || item != this) {
    if (!item->fItems.empty()) {
      TXItem* last = item->fItems.back();
      item->fItems.pop_back();
      item = last;
      continue;
    }
    TXItem* parent = item->fParent;
    item->fParent = nullptr;
    if (typeid(*item) == typeid(TXItem)) {
      // A plain item's block goes back with others, under one lock of the pool.
      item->~TXItem();
      freed[count++] = item;
      if (count == kBatch) GiveBlocks(freed, std::exchange(count, 0));
    } else {
      delete item;
    }
    item = parent;
  }
  GiveBlocks(freed, count);
  fItems = std::vector<TXItem*>();
}

void TXItem::Assign(const TXItem* source) {
  Clear();
  if (!source) return;
  // Depth-first with an explicit stack of (source, copy) pairs.
  std::vector<std::pair<const TXItem*, TXItem*>> stack{{source, this}};
  while (!stack.empty()) {
    auto [from, to] = stack.back();
    stack.pop_back();
    to->fName = from->fName;
    to->SetTexts(from->get_AttrText(), from->ValueText());
    to->fValue = from->fValue;
    to->fIsCDATA = from->fIsCDATA;
    to->fTag = from->fTag;
    to->fItems.reserve(from->fItems.size());
    for (std::size_t i = 0; i < from->fItems.size(); ++i) to->Add();
    for (std::size_t i = from->fItems.size(); i-- > 0;)
      stack.emplace_back(from->fItems[i], to->fItems[i]);
  }
}

void TXItem::RemoveItem(TXItem* item) {
  auto it = std::find(fItems.begin(), fItems.end(), item);
  if (it == fItems.end()) BUG("TXItem.RemoveItem: invalid item");
  // The item becomes a tree of its own: it may go to another thread, apart from the blocks
  // its texts share with this tree.
  item->OwnTexts();
  fItems.erase(it);
  item->fParent = nullptr;
}

void TXItem::Unlink(TXItem* item) noexcept {
  const auto it = std::find(fItems.begin(), fItems.end(), item);
  if (it != fItems.end()) fItems.erase(it);
  item->fParent = nullptr;
}

TXItem* TXItem::InsertItem(Integer index, TXItem* item) {
  CheckListIndex(index, get_Count() + 1);
  if (!item || item == this) BUG("TXItem.InsertItem: invalid item");
  // A new item (no parent, no children, no wrapper) needs none of the checks below, which
  // walk up the tree: reading a deep document stays linear.
  if (item->fParent || item->fIntf || !item->fItems.empty()) {
    for (TXItem* p = fParent; p; p = p->fParent)
      if (p == item) BUG("TXItem.InsertItem: invalid item");
    const bool otherTree = item->Root() != Root();
    if (otherTree) item->DropWrappers();
    if (item->fParent) {
      // From another tree, which stays behind, the item takes copies of its texts; a whole
      // tree (a root) brings every user of its blocks along.
      if (otherTree) item->OwnTexts();
      item->fParent->Unlink(item);
    }
  }
  fItems.insert(fItems.begin() + index, item);
  item->fParent = this;
  return item;
}

TXItem* TXItem::Insert(Integer index) {
  auto item = std::make_unique<TXItem>();
  InsertItem(index, item.get());
  return item.release();
}

TXItem* TXItem::AddItem(TXItem* item) { return InsertItem(get_Count(), item); }

TXItem* TXItem::Add() {
  auto item = std::make_unique<TXItem>();
  // Most elements that have children have a few: room for four at once saves the first
  // three reallocations.
  if (fItems.capacity() == 0) fItems.reserve(4);
  fItems.push_back(item.get());
  item->fParent = this;
  return item.release();
}

void TXItem::DropWrappers() {
  std::vector<TXItem*> stack{this};
  while (!stack.empty()) {
    TXItem* item = stack.back();
    stack.pop_back();
    if (TXItemIntf* intf = std::exchange(item->fIntf, nullptr)) intf->DoRelease();
    stack.insert(stack.end(), item->fItems.begin(), item->fItems.end());
  }
}

Integer TXItem::IndexOf(std::string_view name) const {
  for (std::size_t i = 0; i < fItems.size(); ++i)
    if (AnsiSameText(fItems[i]->fName, name)) return static_cast<Integer>(i);
  return -1;
}

bool TXItem::FindItem(std::string_view name, TXItem*& item) const {
  const Integer i = IndexOf(name);
  item = i >= 0 ? fItems[static_cast<std::size_t>(i)] : nullptr;
  return item != nullptr;
}

TXItem* TXItem::Root() {
  TXItem* item = this;
  while (item->fParent) item = item->fParent;
  return item;
}

Integer TXItem::get_Index() const {
  if (!fParent) return -1;
  const auto& list = fParent->fItems;
  return static_cast<Integer>(std::find(list.begin(), list.end(), this) - list.begin());
}

TXItem* TXItem::get_Items(Integer index) const {
  CheckListIndex(index, get_Count());
  return fItems[static_cast<std::size_t>(index)];
}

void TXItem::set_Name(std::string_view name) { fName.assign(name.data(), name.size()); }

void TXItem::set_Value(const Variant& value) { set_Value(Variant(value)); }

void TXItem::set_Value(Variant&& value) {
  fValueSize = 0;
  fIsCDATA = false;
  if (value.VarType() == varString && IsCDATAWrapped(value.StrRef())) {
    fValue = Variant(UnwrapCDATA(value.StrRef()));
    fIsCDATA = true;
    return;
  }
  fValue = std::move(value);
}

AnsiString TXItem::get_CDATA() const {
  if (!fIsCDATA) DIE(_SErrXItemNotCDATA);
  return VarToStr(get_Value());
}

void TXItem::set_CDATA(std::string_view text) {
  fValue = Variant(IsCDATAWrapped(text) ? UnwrapCDATA(text) : text);
  fValueSize = 0;
  fIsCDATA = true;
}

AnsiString TXItem::TagXML() const {
  AnsiString s = "<" + fName;
  const AnsiString attrs = Trim(get_AttrText());
  if (!attrs.empty()) s += " " + attrs;
  return s + ">";
}

bool TXItem::ScanAttr(std::string_view text, Integer& pos, std::string_view prefix,
                      AnsiString& name, Integer& start, Integer& len, AnsiString& value) {
  const std::size_t n = text.size();
  std::size_t i = pos < 1 ? 0 : static_cast<std::size_t>(pos) - 1;  // 0-based from here on
  auto fail = [&] { DIE(_SErrXAttrFormat, AnsiString(text)); };
  auto skipBlanks = [&] {
    while (i < n && IsBlank(text[i])) ++i;
  };
  skipBlanks();
  if (i >= n) {
    pos = static_cast<Integer>(n) + 1;
    return false;
  }
  if (!prefix.empty()) {
    if (text.substr(i, prefix.size()) != prefix) fail();
    i += prefix.size();
  }
  const std::size_t nameAt = i;
  while (i < n && !IsBlank(text[i]) && text[i] != '=') ++i;
  if (i == nameAt) fail();
  const std::size_t nameEnd = i;
  skipBlanks();
  if (i >= n || text[i] != '=') fail();
  ++i;
  skipBlanks();
  if (i >= n || text[i] != '"') fail();
  const std::size_t valueAt = ++i;
  const std::size_t quote = text.find('"', valueAt);
  if (quote == std::string_view::npos) fail();
  name.assign(text.data() + nameAt, nameEnd - nameAt);
  value.assign(text.data() + valueAt, quote - valueAt);
  start = static_cast<Integer>(nameAt) + 1;
  len = static_cast<Integer>(quote - nameAt) + 1;
  pos = static_cast<Integer>(quote) + 2;
  return true;
}

bool TXItem::ExtractAttr(Integer& pos, AnsiString& name, Integer& start, Integer& len,
                         AnsiString& value) const {
  return ScanAttr(get_AttrText(), pos, {}, name, start, len, value);
}

bool TXItem::FindAttr(std::string_view name, AnsiString& value, Integer& start,
                      Integer& len) const {
  Integer pos = 1;
  AnsiString found;
  while (ExtractAttr(pos, found, start, len, value))
    if (AnsiSameText(found, name)) return true;
  value.clear();
  return false;
}

Variant TXItem::get_Attr(std::string_view name) const {
  AnsiString value;
  Integer start = 0, len = 0;
  if (!FindAttr(name, value, start, len)) return Variant::Null();
  return Variant(TkxXMLPr::Decode(value));
}

void TXItem::set_Attr(std::string_view name, const Variant& value) {
  AnsiString old;
  Integer start = 0, len = 0;
  const bool found = FindAttr(name, old, start, len);
  AnsiString text(get_AttrText());
  if (VarIsNull(value)) {
    if (!found) return;
    text.erase(static_cast<std::size_t>(start) - 1, static_cast<std::size_t>(len));
  } else {
    AnsiString attr(name);
    attr += "=\"";
    attr += Var2XML(value, true);
    attr += '"';
    if (found)
      text.replace(static_cast<std::size_t>(start) - 1, static_cast<std::size_t>(len), attr);
    else
      text += " " + attr;
  }
  set_AttrText(text);
}

bool TXItem::GetAttrList(IPtr<IDump>& list) const {
  list = GetDumpIntf();
  Integer pos = 1, start = 0, len = 0;
  AnsiString name, value;
  bool any = false;
  while (ExtractAttr(pos, name, start, len, value)) {
    list->set_ByName(name, Variant(TkxXMLPr::Decode(value)));
    any = true;
  }
  return any;
}

void TXItem::BuildIdx(std::string_view attrName, bool recursive, TStringList& list) {
  // Children in order; with recursive, each child's subtree right after the child.
  std::vector<std::pair<TXItem*, std::size_t>> stack{{this, 0}};
  while (!stack.empty()) {
    auto& [item, next] = stack.back();
    if (next >= item->fItems.size()) {
      stack.pop_back();
      continue;
    }
    TXItem* child = item->fItems[next++];
    const AnsiString key = VarToStr(child->get_Attr(attrName));
    if (!key.empty()) list.AddObject(key, static_cast<TObject*>(child));
    if (recursive && !child->fItems.empty()) stack.emplace_back(child, 0);
  }
}

IPtr<IXItem> TXItem::get_Intf() {
  if (!fIntf) {
    // Every wrapper below the root has the root's wrapper as its controller, so the nearest
    // ancestor that has a wrapper already knows it: walking down a tree taking interfaces
    // costs one step per item instead of a walk to the root for each.
    TXItem* above = fParent;
    while (above && !above->fIntf) above = above->fParent;
    IInterface* controller = nullptr;
    if (above)
      controller = above->fParent ? above->fIntf->fController : static_cast<IXItem*>(above->fIntf);
    if (!controller) BUG("TXItem.Intf: Controller = nil");
    fIntf = new TXItemIntf(controller, this);
  }
  return IPtr<IXItem>(fIntf);
}

// ---------------------------------------------------------------------------------------
// TXItemIntf

TXItemIntf::TXItemIntf(IInterface* controller, TXItem* item)
    : fController(controller), fXItem(item) {}

TXItemIntf::~TXItemIntf() = default;

HRESULT OSTREL_STDCALL TXItemIntf::QueryInterface(const TGUID& iid, void** obj) {
  if (GetInterface(iid, obj)) return S_OK;
  if (fController) return fController->QueryInterface(iid, obj);
  return E_NOINTERFACE;
}

Integer OSTREL_STDCALL TXItemIntf::_AddRef() {
  const Integer r = fRefCount.fetch_add(1, std::memory_order_relaxed) + 1;
  if (fController) fController->_AddRef();
  return r;
}

Integer OSTREL_STDCALL TXItemIntf::_Release() {
  const Integer r = fRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
  // The controller's release may free the whole tree, and with it this wrapper (its item's
  // destructor calls DoRelease): nothing of this object is touched after it.
  IInterface* controller = fController;
  if (r == 0 && !fXItem) delete this;
  if (controller) controller->_Release();
  return r;
}

bool TXItemIntf::GetInterface(const TGUID& iid, void** obj) {
  return GetInterfaceEntry<IXItem>(this, iid, obj) || TInterfacedObject::GetInterface(iid, obj);
}

TXItem* TXItemIntf::XItem() const {
  if (!fXItem) DIE(_SErrXItemDeleted);
  return fXItem;
}

TXItem* XItemOf(IXItem* item) {
  auto* intf = dynamic_cast<TXItemIntf*>(item);
  return intf ? intf->XItem() : nullptr;
}

TXItem* XRootOf(IXDoc* doc) {
  auto* intf = dynamic_cast<TXDocIntf*>(doc);
  return intf ? intf->Root() : nullptr;
}

void TXItemIntf::DoRelease() {
  if (RefCount() < 1)
    delete this;
  else
    fXItem = nullptr;
}

IPtr<IXDoc> OSTREL_STDCALL TXItemIntf::get_Doc() {
  // The controller is the root's wrapper (or, for the root, the document), and asking a
  // wrapper for an interface it lacks asks its controller: no walk up the tree.
  XItem();
  return IPtr<IXItem>(this).As<IXDoc>();
}

IPtr<IXItem> OSTREL_STDCALL TXItemIntf::get_Parent() {
  TXItem* parent = XItem()->get_Parent();
  return parent ? parent->get_Intf() : IPtr<IXItem>();
}

Integer OSTREL_STDCALL TXItemIntf::get_Index() { return XItem()->get_Index(); }
Integer OSTREL_STDCALL TXItemIntf::get_Count() { return XItem()->get_Count(); }

IPtr<IXItem> OSTREL_STDCALL TXItemIntf::get_Items(Integer index) {
  return XItem()->get_Items(index)->get_Intf();
}

AnsiString OSTREL_STDCALL TXItemIntf::get_Name() { return XItem()->get_Name(); }
void OSTREL_STDCALL TXItemIntf::set_Name(std::string_view name) { XItem()->set_Name(name); }
Variant OSTREL_STDCALL TXItemIntf::get_Value() { return XItem()->get_Value(); }
void OSTREL_STDCALL TXItemIntf::set_Value(const Variant& value) { XItem()->set_Value(value); }
bool OSTREL_STDCALL TXItemIntf::get_IsCDATA() { return XItem()->get_IsCDATA(); }
AnsiString OSTREL_STDCALL TXItemIntf::get_CDATA() { return XItem()->get_CDATA(); }
void OSTREL_STDCALL TXItemIntf::set_CDATA(std::string_view text) { XItem()->set_CDATA(text); }

Variant OSTREL_STDCALL TXItemIntf::get_Attr(std::string_view name) {
  return XItem()->get_Attr(name);
}

void OSTREL_STDCALL TXItemIntf::set_Attr(std::string_view name, const Variant& value) {
  XItem()->set_Attr(name, value);
}

AnsiString OSTREL_STDCALL TXItemIntf::get_XML() { return XDataText(XItem(), false); }

void OSTREL_STDCALL TXItemIntf::set_XML(std::string_view text) {
  TXItem* item = XItem();
  item->Clear();
  TMemoryStream stream;
  stream.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  stream.SetPosition(0);
  LoadXData(item, stream);
}

void OSTREL_STDCALL TXItemIntf::Clear() { XItem()->Clear(); }

void OSTREL_STDCALL TXItemIntf::Delete(Integer index) { delete XItem()->get_Items(index); }

IPtr<IXItem> OSTREL_STDCALL TXItemIntf::Insert(Integer index, std::string_view name) {
  TXItem* child = XItem()->Insert(index);
  child->set_Name(name);
  return child->get_Intf();
}

IPtr<IXItem> OSTREL_STDCALL TXItemIntf::Add(std::string_view name) {
  TXItem* child = XItem()->Add();
  child->set_Name(name);
  return child->get_Intf();
}

bool OSTREL_STDCALL TXItemIntf::FindItem(std::string_view name, IPtr<IXItem>& item) {
  item = nullptr;
  TXItem* found = nullptr;
  if (!XItem()->FindItem(name, found)) return false;
  item = found->get_Intf();
  return true;
}

bool OSTREL_STDCALL TXItemIntf::GetAttrList(IPtr<IDump>& list) {
  return XItem()->GetAttrList(list);
}

void OSTREL_STDCALL TXItemIntf::LoadFromStream(TStream& stream) { LoadXData(XItem(), stream); }

void OSTREL_STDCALL TXItemIntf::SaveToStream(TStream& stream) { SaveXData(XItem(), false, stream); }

// ---------------------------------------------------------------------------------------
// TXDocIntf

TXDocIntf::TXDocIntf() : fRoot(new TXItem(static_cast<IXDoc*>(this))) {}

TXDocIntf::~TXDocIntf() { delete fRoot; }

bool TXDocIntf::GetInterface(const TGUID& iid, void** obj) {
  return GetInterfaceEntry<IXDoc>(this, iid, obj) || TInterfacedObject::GetInterface(iid, obj);
}

IPtr<IXItem> OSTREL_STDCALL TXDocIntf::get_Root() { return fRoot->get_Intf(); }
AnsiString OSTREL_STDCALL TXDocIntf::get_FileName() { return fFileName; }
void OSTREL_STDCALL TXDocIntf::set_FileName(std::string_view fileName) { fFileName = fileName; }

AnsiString OSTREL_STDCALL TXDocIntf::get_XML() { return XDataText(fRoot, true); }

void OSTREL_STDCALL TXDocIntf::SaveToStream(TStream& stream, bool withHeader) {
  SaveXData(fRoot, withHeader, stream);
}

void OSTREL_STDCALL TXDocIntf::SaveToFile(std::string_view fileName, bool withHeader) {
  SaveXData(fRoot, withHeader, fileName.empty() ? std::string_view(fFileName) : fileName);
}

void GetXDocIntf(TStream& stream, IPtr<IXDoc>& doc) {
  doc = nullptr;
  IPtr<TXDocIntf> made(new TXDocIntf);
  LoadXData(made->Root(), stream);
  doc = IPtr<IXDoc>(static_cast<IXDoc*>(made.Get()));
}

void GetXDocIntf(std::string_view fileName, IPtr<IXDoc>& doc) {
  doc = nullptr;
  IPtr<TXDocIntf> made(new TXDocIntf);
  made->set_FileName(fileName);
  if (!fileName.empty()) LoadXData(made->Root(), fileName, true);
  doc = IPtr<IXDoc>(static_cast<IXDoc*>(made.Get()));
}

// ---------------------------------------------------------------------------------------
// Merging by "fix"

namespace {

constexpr std::string_view kFixAttr = "fix";

// Whether fix matches item: the same name, and each of fix's attributes but "fix" present in
// item with an equal value (letter case ignored).
bool FixMatches(const TXItem* fix, const TXItem* item) {
  if (!AnsiSameText(fix->get_Name(), item->get_Name())) return false;
  // A fix may be keyed on many attributes: the item's are looked up in a table, made at the
  // first key, not by a scan of its attribute text per key.
  std::optional<TXAttrTable> attrs;
  Integer pos = 1, start = 0, len = 0;
  AnsiString name, value;
  while (fix->ExtractAttr(pos, name, start, len, value)) {
    if (AnsiSameText(name, kFixAttr)) continue;
    if (!attrs) attrs.emplace(*item);
    const Variant have = attrs->Get(name);
    if (VarIsNull(have) || CompareVar(have, Variant(TkxXMLPr::Decode(value)), true) != 0)
      return false;
  }
  return true;
}

TXItem* FirstMatch(const TXItem* fix, const TXItem* parent) {
  for (Integer i = 0; i < parent->get_Count(); ++i)
    if (FixMatches(fix, parent->get_Items(i))) return parent->get_Items(i);
  return nullptr;
}

}  // namespace

char GetXFixMode(const TXItem* item, char def) {
  const AnsiString mode = VarToStr(item->get_Attr(kFixAttr));
  return mode.empty() ? def : AnsiLowerChar(mode[0]);
}

void XFix(TXItem* target, const TXItem* fixes) {
  const TXItem* fix = nullptr;
  for (Integer i = 0; i < fixes->get_Count() && !fix; ++i)
    if (FixMatches(fixes->get_Items(i), target)) fix = fixes->get_Items(i);
  if (!fix) return;
  // Each level of "x" is a frame (fix item, destination, next child of the fix item), so
  // that fixes of any depth are applied without recursion.
  struct Frame {
    const TXItem* fix;
    TXItem* dest;
    Integer next;
  };
  std::vector<Frame> frames{{fix, target, 0}};
  while (!frames.empty()) {
    Frame& frame = frames.back();
    if (frame.next >= frame.fix->get_Count()) {
      frames.pop_back();
      continue;
    }
    const TXItem* change = frame.fix->get_Items(frame.next++);
    TXItem* dest = frame.dest;
    TXItem* match = FirstMatch(change, dest);
    const char def = !match ? 'a' : change->get_Count() > 0 ? 'X' : 'u';
    switch (GetXFixMode(change, def)) {
      case 'a': dest->Add()->Assign(change); break;
      case 'u':
        if (match) match->Assign(change);
        break;
      case 'd': delete match; break;
      case 'x':
      case 'X':
        if (match) {
          match->set_Value(Variant::Null());
          frames.push_back({change, match, 0});
        }
        break;
      default: BUG();
    }
  }
}

}  // namespace ostrel
