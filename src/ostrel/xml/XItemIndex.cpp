// Item lists and the keyed index over them.
#include <ostrel/xml/Xdata.h>

#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/services/VarServ.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace ostrel {
namespace {

class TXItemList final : public TkxInterfacedObject, public IXItemList {
  OSTREL_CLASS(TXItemList, TkxInterfacedObject)

 public:
  OSTREL_KXOBJECT_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    return GetInterfaceEntry<IXItemList>(this, iid, obj) || TkxObject::GetInterface(iid, obj);
  }

  Integer OSTREL_STDCALL get_Count() override { return static_cast<Integer>(fItems.size()); }
  IPtr<IXItem> OSTREL_STDCALL get_Items(Integer index) override {
    CheckListIndex(index, get_Count());
    return fItems[static_cast<std::size_t>(index)];
  }
  Integer OSTREL_STDCALL Add(const IPtr<IXItem>& item) override {
    fItems.push_back(item);
    return get_Count() - 1;
  }
  void OSTREL_STDCALL Sort(TXItemCompare compare, void* context) override {
    // A stable merge sort: a comparison that contradicts itself gives some order, never a
    // run off the list.
    std::stable_sort(fItems.begin(), fItems.end(),
                     [&](const IPtr<IXItem>& a, const IPtr<IXItem>& b) {
                       return compare(a.Get(), b.Get(), context) < 0;
                     });
  }

 private:
  std::vector<IPtr<IXItem>> fItems;
};
OSTREL_DEFINE_CLASS(TXItemList)

// The key of an item as the index compares it: the attribute's text, empty when absent.
AnsiString KeyOf(IXItem* item, std::string_view keyAttr) {
  return VarToStr(item->get_Attr(keyAttr));
}

// The keys of the items being sorted, each read once.
struct TKeys {
  std::string_view KeyAttr;
  std::unordered_map<IXItem*, AnsiString> Known;
  const AnsiString& Of(IXItem* item) {
    auto it = Known.find(item);
    if (it == Known.end()) it = Known.emplace(item, KeyOf(item, KeyAttr)).first;
    return it->second;
  }
};

class TXItemIndex final : public TkxInterfacedObject, public IXItemIndex {
  OSTREL_CLASS(TXItemIndex, TkxInterfacedObject)

 public:
  TXItemIndex(IPtr<IXItemList> list, std::string_view keyAttr)
      : fList(std::move(list)), fKeyAttr(keyAttr) {}

  OSTREL_KXOBJECT_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    return GetInterfaceEntry<IXItemIndex>(this, iid, obj) || TkxObject::GetInterface(iid, obj);
  }

  bool OSTREL_STDCALL FindItem(const Variant& key, IPtr<IXItem>& item) override {
    item = nullptr;
    const Integer at = TextKey(key) ? FindText(VarToStr(key)) : FindTyped(key);
    if (at >= 0) item = fList->get_Items(at);
    return at >= 0;
  }
  IPtr<IXItem> OSTREL_STDCALL GetItem(const Variant& key) override {
    IPtr<IXItem> item;
    if (!FindItem(key, item)) DIE(_SErrXIndexKeyNotFound, fKeyAttr, VarToStr(key));
    return item;
  }
  IPtr<IXItemList> OSTREL_STDCALL get_List() override { return fList; }
  AnsiString OSTREL_STDCALL get_KeyAttr() override { return fKeyAttr; }

 private:
  // Keys of text (and none, which counts as empty text) are compared as the list is sorted.
  static bool TextKey(const Variant& key) { return VarIsStr(key) || VarIsClear(key); }

  // The position of the first item whose key equals text, letter case ignored; -1 if none.
  Integer FindText(const AnsiString& text) {
    Integer low = 0, high = fList->get_Count() - 1;
    bool found = false;
    while (low <= high) {
      const Integer middle = low + (high - low) / 2;
      const int c = AnsiCompareText(KeyOf(fList->get_Items(middle).Get(), fKeyAttr), text);
      if (c >= 0) {
        high = middle - 1;
        if (c == 0) found = true;
      } else {
        low = middle + 1;
      }
    }
    return found ? low : -1;
  }

  // A number, date, currency or boolean equals a key text that converts to it (as the
  // variant comparison converts a string met by a number: "02" = 2). The order of the texts
  // is not the order of their values ("10" < "9"), so such keys are searched in a view of
  // the keys that convert, ordered by value, made on first use for that kind of value and
  // made again when the list has grown or shrunk.
  Integer FindTyped(const Variant& key) {
    const TVarType kind = VarIsType(key, varDate)       ? varDate
                          : VarIsType(key, varCurrency) ? varCurrency
                          : VarIsType(key, varBoolean)  ? varBoolean
                                                        : varDouble;
    const Integer count = fList->get_Count();
    if (kind != fTypedKind || count != fTypedCount) {
      fTyped.clear();
      for (Integer i = 0; i < count; ++i) {
        try {
          fTyped.push_back(
              {VarAsType(Variant(KeyOf(fList->get_Items(i).Get(), fKeyAttr)), kind), i});
        } catch (const Exception&) {
          // A text that is no such value equals no key of this kind.
        }
      }
      // Stable, so that of equal values the first in the list's order comes first.
      std::stable_sort(fTyped.begin(), fTyped.end(), [](const TTyped& a, const TTyped& b) {
        return CompareVar(a.Value, b.Value) < 0;
      });
      fTypedKind = kind;
      fTypedCount = count;
    }
    auto it = std::lower_bound(
        fTyped.begin(), fTyped.end(), key,
        [](const TTyped& t, const Variant& k) { return CompareVar(t.Value, k) < 0; });
    return it != fTyped.end() && CompareVar(it->Value, key) == 0 ? it->Position : -1;
  }

  struct TTyped {
    Variant Value;
    Integer Position;
  };

  IPtr<IXItemList> fList;
  AnsiString fKeyAttr;
  std::vector<TTyped> fTyped;
  TVarType fTypedKind = varEmpty;
  Integer fTypedCount = -1;
};
OSTREL_DEFINE_CLASS(TXItemIndex)

}  // namespace

void GetXItemListIntf(IPtr<IXItemList>& list) { list = IPtr<IXItemList>(new TXItemList); }

void GetXItemListIntf(const IPtr<IXItem>& item, std::string_view name, IPtr<IXItemList>& list) {
  GetXItemListIntf(list);
  for (Integer i = 0, n = item ? item->get_Count() : 0; i < n; ++i) {
    IPtr<IXItem> child = item->get_Items(i);
    if (name.empty() || AnsiSameText(child->get_Name(), name)) list->Add(child);
  }
}

void GetXItemIndexIntf(const IPtr<IXItemList>& list, std::string_view keyAttr,
                       IPtr<IXItemIndex>& index) {
  if (!list) DIE("GetXItemIndexIntf: no list");
  TKeys keys{keyAttr, {}};
  list->Sort(
      [](IXItem* a, IXItem* b, void* context) {
        auto& keys = *static_cast<TKeys*>(context);
        return AnsiCompareText(keys.Of(a), keys.Of(b));
      },
      &keys);
  index = IPtr<IXItemIndex>(new TXItemIndex(list, keyAttr));
}

}  // namespace ostrel
