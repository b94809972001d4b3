// TPersistent, TCollectionItem and TCollection.
#include <ostrel/rtl/Collections.h>

#include <ostrel/rtl/Format.h>

#include <algorithm>

namespace ostrel {

OSTREL_DEFINE_CLASS(TPersistent)
OSTREL_DEFINE_CLASS(TCollectionItem)
OSTREL_DEFINE_CLASS(TCollection)

// ---------------------------------------------------------------------------------------
// TPersistent

void TPersistent::Assign(const TPersistent* source) {
  if (!source) AssignError(nullptr);
  source->AssignTo(this);
}

void TPersistent::AssignTo(TPersistent* dest) const { dest->AssignError(this); }

void TPersistent::AssignError(const TPersistent* source) const {
  throw EConvertError(
      Format("Cannot assign a %s to a %s", source ? source->ClassName() : "nil", ClassName()));
}

// ---------------------------------------------------------------------------------------
// TCollectionItem

TCollectionItem::TCollectionItem(TCollection* collection) {
  if (!collection) return;
  fCollection = collection;
  fID = collection->fNextID++;
  collection->fItems.push_back(this);
}

TCollectionItem::~TCollectionItem() {
  if (fCollection) std::erase(fCollection->fItems, this);
}

Integer TCollectionItem::Index() const noexcept {
  if (!fCollection) return -1;
  const auto& items = fCollection->fItems;
  return static_cast<Integer>(std::find(items.begin(), items.end(), this) - items.begin());
}

void TCollectionItem::SetIndex(Integer index) {
  const Integer from = Index();
  if (from < 0 || index == from) return;
  fCollection->CheckIndex(index);
  auto& items = fCollection->fItems;
  items.erase(items.begin() + from);
  items.insert(items.begin() + index, this);
}

AnsiString TCollectionItem::GetDisplayName() const { return ClassName(); }

// ---------------------------------------------------------------------------------------
// TCollection

TCollection::TCollection(TItemFactory itemFactory, TObject* owner)
    : fItemFactory(itemFactory), fOwner(owner) {}

TCollection::~TCollection() { Clear(); }

void TCollection::CheckIndex(Integer index) const { CheckListIndex(index, Count()); }

TCollectionItem* TCollection::Items(Integer index) const {
  CheckIndex(index);
  return fItems[static_cast<std::size_t>(index)];
}

void TCollection::SetItems(Integer index, const TCollectionItem* value) {
  Items(index)->Assign(value);
}

TCollectionItem* TCollection::Add() {
  TCollectionItem* item = fItemFactory(this);
  if (!item || item->fCollection != this)
    throw EInvalidOperation(
        Format("%s: the item factory made no item of this collection", ClassName()));
  return item;
}

TCollectionItem* TCollection::Insert(Integer index) {
  if (index != Count()) CheckIndex(index);
  TCollectionItem* item = Add();
  item->SetIndex(index);
  return item;
}

void TCollection::Delete(Integer index) { delete Items(index); }

void TCollection::Clear() {
  while (!fItems.empty()) delete fItems.back();
}

void TCollection::Assign(const TPersistent* source) {
  const auto* other = dynamic_cast<const TCollection*>(source);
  if (!other) {
    TPersistent::Assign(source);
    return;
  }
  if (other == this) return;
  Clear();
  for (const TCollectionItem* item : other->fItems) Add()->Assign(item);
}

}  // namespace ostrel
