// Queries over an item tree: slash-separated paths with attribute filters, children found
// by name and key attribute, get-or-create of children, values and attributes with defaults
// or errors, matching an item against key values, copying children by their keys, and a
// keyed index over a list of items searched by binary search.
//
// The queries work for any implementation of IXItem, through its own operations. For the
// library's own items they walk the plain tree behind the interfaces (TXItem) instead, so a
// search makes no wrappers except for the items it hands out.
#pragma once

#include <ostrel/core/Sysintf.h>
#include <ostrel/xml/Xmlutils.h>

#include <string_view>

namespace ostrel {

inline constexpr std::string_view _SErrXPathFail = "FindXPath fail \"%s\"\r\r";
inline constexpr std::string_view _SErrXTagNotFound = "Tag <%s> not found";
inline constexpr std::string_view _SErrXKeyTagNotFound = "Tag <%s %s=\"%s\"> not found";
// The first letter of the word after the colon is the Cyrillic "а"; the text is used so.
inline constexpr auto _SErrXAttrNotFound = Cp1251(u8"Tag <%s>: аttribute \"%s\" not found");
inline constexpr auto _SErrXIndexKeyNotFound = Cp1251(u8"Элемент по ключу \"%s=%s\" не найден");

// ---------------------------------------------------------------------------------------
// Paths
//
// A path is a list of names separated by "/" (leading blanks and slashes are ignored); each
// step takes the first child of that name, letter case ignored, and there is no
// backtracking. A step may carry a filter in brackets, conditions separated by blanks, each
// written @name="value" (entities allowed): forms/form[@name="main"]/fields. A malformed
// filter raises the attribute-text format error. When nothing is found and raise is set,
// the error names the whole path (when it is more than the failing name) and the tag that
// was not found.

OSTREL_API bool FindXPath(const IPtr<IXItem>& item, std::string_view path, bool raise,
                          IPtr<IXItem>& found);
OSTREL_API bool FindXItem(const IPtr<IXItem>& item, std::string_view path, IPtr<IXItem>& found);
OSTREL_API IPtr<IXItem> FindXItem(const IPtr<IXItem>& item, std::string_view path, bool raise);
OSTREL_API bool FindXPatt(const IPtr<IXItem>& item, std::string_view path, bool raise,
                          IPtr<IXItem>& found);

// ---------------------------------------------------------------------------------------
// Children by name and key attribute
//
// A child matches when its name equals `name` (letter case ignored) and, unless keyAttr is
// empty, its attribute keyAttr as text equals keyValue (letter case ignored). Recursive
// search looks into a non-matching child's subtree before its next sibling.

OSTREL_API bool FindXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                          std::string_view keyValue, bool recursive, IPtr<IXItem>& found);
OSTREL_API bool FindXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                          std::string_view keyValue, IPtr<IXItem>& found);
// Not recursive; with raise, a missing child is the error "Tag <name key="value"> not found".
OSTREL_API IPtr<IXItem> FindXItem(const IPtr<IXItem>& item, std::string_view name,
                                  std::string_view keyAttr, std::string_view keyValue, bool raise);
// As the form above, searching the whole subtree.
OSTREL_API IPtr<IXItem> FindXRecurse(const IPtr<IXItem>& item, std::string_view name,
                                     std::string_view keyAttr, std::string_view keyValue,
                                     bool raise);

// The first child of that name, or a new child of that name appended.
OSTREL_API IPtr<IXItem> GetXItem(const IPtr<IXItem>& item, std::string_view name);
// The child with that key, or a new child of that name appended with the key attribute set.
OSTREL_API IPtr<IXItem> GetXItem(const IPtr<IXItem>& item, std::string_view name,
                                 std::string_view keyAttr, std::string_view keyValue);

// ---------------------------------------------------------------------------------------
// Values and attributes

// The value of the direct child `name` (not a path): true when item is given, the child
// exists and its value is not Null; otherwise value is Null.
OSTREL_API bool GetXValue(const IPtr<IXItem>& item, std::string_view name, Variant& value);
OSTREL_API Variant XValue(const IPtr<IXItem>& item, std::string_view name,
                          const Variant& def = Variant::Null());
// The value of the child found by the non-recursive key search (Null when it has none), or
// def when there is no such child.
OSTREL_API Variant XValue(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                          std::string_view keyValue, const Variant& def);
// With raise, the value of the item at the path (raising when there is none); without,
// XValue(item, path), which understands a direct child's name only.
OSTREL_API Variant FindXVal(const IPtr<IXItem>& item, std::string_view path, bool raise);

// The decoded attribute; true when it is present (value Null otherwise).
OSTREL_API bool GetXAttr(const IPtr<IXItem>& item, std::string_view name, Variant& value);
// The same, a found value converted by XMLCast to the variant type varType.
OSTREL_API bool GetXAttr(const IPtr<IXItem>& item, std::string_view name, TVarType varType,
                         Variant& value);
OSTREL_API Variant XAttr(const IPtr<IXItem>& item, std::string_view name, const Variant& def);
// The attribute, or the error "Tag <item>: аttribute "name" not found".
OSTREL_API Variant XAttr(const IPtr<IXItem>& item, std::string_view name);

// ---------------------------------------------------------------------------------------
// Matching against key values
//
// The item's name must equal `name` (Latin letters compared without case); with check set,
// each key's attribute must then compare equal to the key's value as variants, letter case
// ignored. As the variant comparison has it, an absent (Null) attribute is never unequal.

OSTREL_API bool SameXItem(const IPtr<IXItem>& item, std::string_view name, const IPtr<IDump>& keys,
                          bool check);
// Key names separated by ";"; the value for name i is the dump's value of that name when
// keyValues holds an IDump, element i when it is an array, else keyValues itself.
OSTREL_API bool SameXItem(const IPtr<IXItem>& item, std::string_view name,
                          std::string_view keyNames, const Variant& keyValues, bool check);
// The first direct child for which SameXItem is true.
OSTREL_API bool LocateXItem(const IPtr<IXItem>& item, std::string_view name,
                            const IPtr<IDump>& keys, bool check, IPtr<IXItem>& found);
OSTREL_API bool LocateXItem(const IPtr<IXItem>& item, std::string_view name,
                            std::string_view keyNames, const Variant& keyValues, bool check,
                            IPtr<IXItem>& found);

// ---------------------------------------------------------------------------------------
// Copying

// For each child C of source: the destination's first child with C's name whose attributes
// match all of C's attributes is merged with C level by level; without one, a copy of C is
// appended. Matched children are never duplicated.
OSTREL_API void XCopyItems(const IPtr<IXItem>& dest, const IPtr<IXItem>& source);
// Lays source over dest: source's attributes are set on dest (others are kept, an existing
// one keeps its place), its value replaces dest's when it has one, and copies of its
// children are appended. On a new empty item this makes a deep copy.
OSTREL_API void XMerge(const IPtr<IXItem>& dest, const IPtr<IXItem>& source);
// Makes dest a deep copy of source (name, attributes, value, CDATA flag, children); dest
// keeps its place and its interface.
OSTREL_API void XAssign(const IPtr<IXItem>& dest, const IPtr<IXItem>& source);

// ---------------------------------------------------------------------------------------
// Item lists and the keyed index

// Orders two items for IXItemList::Sort: negative, 0 or positive.
using TXItemCompare = int (*)(IXItem* a, IXItem* b, void* context);

// A list of items.
struct IXItemList : IInterface {
  static constexpr TGUID IID = TGUID::From("{E53C5A15-53A9-411A-8A29-C952CBD95216}");
  virtual Integer OSTREL_STDCALL get_Count() = 0;
  virtual IPtr<IXItem> OSTREL_STDCALL get_Items(Integer index) = 0;
  // Appends and returns the new index.
  virtual Integer OSTREL_STDCALL Add(const IPtr<IXItem>& item) = 0;
  // Sorts in place; items that compare equal keep their order.
  virtual void OSTREL_STDCALL Sort(TXItemCompare compare, void* context) = 0;

 protected:
  ~IXItemList() = default;
};

// A list sorted by a key attribute, searched by binary search.
struct IXItemIndex : IInterface {
  static constexpr TGUID IID = TGUID::From("{0BE04BD3-0024-41E9-8200-CDC85E078143}");
  // The first item (in sorted order) whose key equals key: a text key letter case ignored;
  // a number, date, currency or boolean equals the key texts that convert to it ("02" = 2).
  virtual bool OSTREL_STDCALL FindItem(const Variant& key, IPtr<IXItem>& item) = 0;
  // As FindItem; an absent key raises "Элемент по ключу "attr=key" не найден".
  virtual IPtr<IXItem> OSTREL_STDCALL GetItem(const Variant& key) = 0;
  virtual IPtr<IXItemList> OSTREL_STDCALL get_List() = 0;
  virtual AnsiString OSTREL_STDCALL get_KeyAttr() = 0;

 protected:
  ~IXItemIndex() = default;
};

// A new empty list.
OSTREL_API void GetXItemListIntf(IPtr<IXItemList>& list);
// A new list of item's children named `name` (every child when name is empty), in order.
OSTREL_API void GetXItemListIntf(const IPtr<IXItem>& item, std::string_view name,
                                 IPtr<IXItemList>& list);
// Sorts list in place by the attribute keyAttr (as text, letter case ignored; an absent
// attribute counts as empty) and makes an index over it.
OSTREL_API void GetXItemIndexIntf(const IPtr<IXItemList>& list, std::string_view keyAttr,
                                  IPtr<IXItemIndex>& index);

}  // namespace ostrel
