// Assignable objects and collections: TPersistent with the generic Assign, TCollectionItem and
// TCollection, the owned, ordered list of items of one kind that designers edit.
#pragma once

#include <ostrel/rtl/System.h>

#include <vector>

namespace ostrel {

// An object whose state can be copied from another of a compatible class (Assign).
class OSTREL_API TPersistent : public TObject {
  OSTREL_CLASS(TPersistent, TObject)
 public:
  // Copies the source into this object. The generic assignment asks the source to assign
  // itself (AssignTo); when neither side knows the other it raises EConvertError "Cannot
  // assign a <source class> to a <this class>" ("nil" for a null source).
  virtual void Assign(const TPersistent* source);

 protected:
  virtual void AssignTo(TPersistent* dest) const;
  [[noreturn]] void AssignError(const TPersistent* source) const;
};

class TCollection;

// An item of a collection. It belongs to its collection: created with one, it is appended to
// it, and freeing the collection frees it; an item freed by itself leaves its collection.
class OSTREL_API TCollectionItem : public TPersistent {
  OSTREL_CLASS(TCollectionItem, TPersistent)
 public:
  explicit TCollectionItem(TCollection* collection);
  ~TCollectionItem() override;

  TCollection* Collection() const noexcept { return fCollection; }
  // The position in the collection (-1 without one). Setting moves the item; a position
  // outside the collection raises EListError "List index (%d) out of bounds".
  Integer Index() const noexcept;
  void SetIndex(Integer index);
  // A number unique in the collection, never reused there.
  Integer ID() const noexcept { return fID; }
  // The text shown for the item in a collection editor; GetDisplayName gives the class name
  // unless a descendant says otherwise.
  AnsiString DisplayName() const { return GetDisplayName(); }
  virtual AnsiString GetDisplayName() const;

 private:
  friend class TCollection;
  TCollection* fCollection = nullptr;
  Integer fID = 0;
};

// An owned, ordered list of items made by the collection itself (Add), so that all are of
// the kind it was made for.
class OSTREL_API TCollection : public TPersistent {
  OSTREL_CLASS(TCollection, TPersistent)
 public:
  // Makes one new item in the collection (the item's constructor appends it).
  using TItemFactory = TCollectionItem* (*)(TCollection* collection);

  // `owner` is the object the collection belongs to (may be null).
  TCollection(TItemFactory itemFactory, TObject* owner = nullptr);
  ~TCollection() override;

  TObject* Owner() const noexcept { return fOwner; }
  Integer Count() const noexcept { return static_cast<Integer>(fItems.size()); }
  // Raises EListError "List index (%d) out of bounds".
  TCollectionItem* Items(Integer index) const;
  // Copies the value into the item at the index (its Assign).
  void SetItems(Integer index, const TCollectionItem* value);
  TCollectionItem* Add();
  TCollectionItem* Insert(Integer index);
  void Delete(Integer index);
  void Clear();
  // From another collection: replaces the items with new ones assigned from the source's
  // items, in order (the source may be of another kind as long as the items can be assigned).
  void Assign(const TPersistent* source) override;

 private:
  friend class TCollectionItem;
  void CheckIndex(Integer index) const;

  TItemFactory fItemFactory;
  TObject* fOwner;
  std::vector<TCollectionItem*> fItems;  // owned
  Integer fNextID = 0;
};

}  // namespace ostrel
