// Path search, key search, values and attributes, key matching and copying by keys.
#include <ostrel/xml/Xdata.h>

#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/detail/Common.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/services/VarServ.h>
#include <ostrel/xml/detail/XAttrTable.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace ostrel {
namespace {

// The queries are functions over IXItem and work for any implementation of it. For the
// library's own items they walk the plain tree behind the wrappers instead, which makes no
// wrappers except for the items handed out; the two walks are one algorithm over either of
// these two views of a tree.
struct TPlainTree {
  using Node = TXItem*;
  static Integer Count(Node n) { return n->get_Count(); }
  static Node Child(Node n, Integer i) { return n->get_Items(i); }
  static const AnsiString& Name(Node n) { return n->get_Name(); }
  static Variant Value(Node n) { return n->get_Value(); }
  static Variant Attr(Node n, std::string_view name) { return n->get_Attr(name); }
  static Node Find(Node n, std::string_view name) {
    TXItem* found = nullptr;
    n->FindItem(name, found);
    return found;
  }
  static Node Add(Node n, std::string_view name) {
    TXItem* child = n->Add();
    child->set_Name(name);
    return child;
  }
  static IPtr<IXItem> Intf(Node n) { return n ? n->get_Intf() : IPtr<IXItem>(); }
  // Many attributes of one item are looked up in a table read once: matching n keys by
  // get_Attr would scan the attribute text n times.
  using Attrs = TXAttrTable;
  static TXAttrTable AttrsOf(Node n) { return TXAttrTable(*n); }
};

struct TIntfTree {
  using Node = IPtr<IXItem>;
  static Integer Count(const Node& n) { return n->get_Count(); }
  static Node Child(const Node& n, Integer i) { return n->get_Items(i); }
  static AnsiString Name(const Node& n) { return n->get_Name(); }
  static Variant Value(const Node& n) { return n->get_Value(); }
  static Variant Attr(const Node& n, std::string_view name) { return n->get_Attr(name); }
  static Node Find(const Node& n, std::string_view name) {
    Node found;
    n->FindItem(name, found);
    return found;
  }
  static Node Add(const Node& n, std::string_view name) { return n->Add(name); }
  static IPtr<IXItem> Intf(const Node& n) { return n; }
  struct Attrs {
    Node Item;
    Variant Get(std::string_view name) const { return Item->get_Attr(name); }
  };
  static Attrs AttrsOf(const Node& n) { return Attrs{n}; }
};

// The library's item behind an interface, or null for none and for other implementations.
// A wrapper whose item is gone raises the deleted-item error here.
TXItem* OwnItem(const IPtr<IXItem>& item) { return XItemOf(item.Get()); }

// Calls fn(tree, node) with the view that suits the item (which may be none).
template <class Fn>
decltype(auto) WithTree(const IPtr<IXItem>& item, Fn&& fn) {
  if (TXItem* own = OwnItem(item)) return fn(TPlainTree{}, own);
  return fn(TIntfTree{}, item);
}

void Require(const IPtr<IXItem>& item, std::string_view operation) {
  if (!item) DIE("%s: no item", operation);
}

// One condition of a path filter: the attribute's name and its decoded value.
struct TFilterCond {
  AnsiString Name;
  AnsiString Value;
};

// Reads the conditions of a filter (@name="value" separated by blanks) with the scanner of
// attribute text, so that both accept and reject the same things.
std::vector<TFilterCond> ParseFilter(std::string_view filter) {
  std::vector<TFilterCond> conds;
  Integer pos = 1, start = 0, len = 0;
  AnsiString name, value;
  while (TXItem::ScanAttr(filter, pos, "@", name, start, len, value))
    conds.push_back({name, TkxXMLPr::Decode(value)});
  return conds;
}

template <class Tree>
bool PassesFilter(const typename Tree::Node& item, const std::vector<TFilterCond>& conds) {
  for (const TFilterCond& c : conds) {
    const Variant v = Tree::Attr(item, c.Name);
    if (VarIsNull(v) || !AnsiSameText(VarToStr(v), c.Value)) return false;
  }
  return true;
}

template <class Tree>
bool FindPath(Tree, typename Tree::Node current, std::string_view path, bool raise,
              IPtr<IXItem>& found) {
  using Node = typename Tree::Node;
  std::string_view rest = path;
  while (!rest.empty() && (detail::IsBlank(rest.front()) || rest.front() == '/'))
    rest.remove_prefix(1);
  AnsiString failed;  // the name of the step being taken
  Node result{};
  while (!rest.empty()) {
    const std::size_t slash = rest.find('/');
    const std::string_view segment = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    result = Node{};
    const std::size_t bracket = segment.find('[');
    if (bracket != std::string_view::npos) {
      std::string_view filter = segment.substr(bracket + 1);
      while (!filter.empty() && (filter.back() == ' ' || filter.back() == ']'))
        filter.remove_suffix(1);
      failed = Trim(segment.substr(0, bracket));
      const std::vector<TFilterCond> conds = ParseFilter(filter);
      for (Integer i = 0, n = current ? Tree::Count(current) : 0; i < n && !result; ++i) {
        Node child = Tree::Child(current, i);
        if (AnsiSameText(Tree::Name(child), failed) && PassesFilter<Tree>(child, conds))
          result = std::move(child);
      }
    } else {
      failed = AnsiString(segment);
      if (current) result = Tree::Find(current, segment);
    }
    if (!result) break;
    current = result;
  }
  if (result) {
    found = Tree::Intf(result);
    return true;
  }
  if (raise) {
    AnsiString msg;
    if (path != failed) msg = Format(_SErrXPathFail, path);
    if (!failed.empty()) msg += Format(_SErrXTagNotFound, failed);
    DIE(msg);
  }
  return false;
}

// The key search, depth first with a parent before its children. The walk keeps its own
// stack of positions so that a deep tree cannot exhaust the call stack.
template <class Tree>
typename Tree::Node FindByKey(Tree, const typename Tree::Node& item, std::string_view name,
                              std::string_view keyAttr, std::string_view keyValue, bool recursive) {
  using Node = typename Tree::Node;
  if (!item) return Node{};
  std::vector<std::pair<Node, Integer>> stack{{item, 0}};
  while (!stack.empty()) {
    auto& [parent, next] = stack.back();
    if (next >= Tree::Count(parent)) {
      stack.pop_back();
      continue;
    }
    Node child = Tree::Child(parent, next++);
    if (AnsiSameText(Tree::Name(child), name) &&
        (keyAttr.empty() || AnsiSameText(VarToStr(Tree::Attr(child, keyAttr)), keyValue)))
      return child;
    if (recursive && Tree::Count(child) > 0) stack.emplace_back(std::move(child), 0);
  }
  return Node{};
}

bool FindByKey(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
               std::string_view keyValue, bool recursive, IPtr<IXItem>& found) {
  found = WithTree(item, [&](auto tree, const auto& node) {
    return decltype(tree)::Intf(FindByKey(tree, node, name, keyAttr, keyValue, recursive));
  });
  return static_cast<bool>(found);
}

// The raising forms: "Tag <name attr="value"> not found" when nothing is found and raise.
IPtr<IXItem> FindByKey(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                       std::string_view keyValue, bool recursive, bool raise) {
  IPtr<IXItem> found;
  if (!FindByKey(item, name, keyAttr, keyValue, recursive, found) && raise)
    DIE(_SErrXKeyTagNotFound, name, keyAttr, keyValue);
  return found;
}

// The i-th key value (from 0) of SameXItem's list form.
Variant KeyValueAt(const Variant& keyValues, std::string_view name, Integer i) {
  if (keyValues.VarType() == varUnknown || keyValues.VarType() == varDispatch) {
    IPtr<IDump> dump;
    if (Supports(IPtr<IInterface>(keyValues.IntfPtr()), dump)) return dump->get_ByName(name);
  }
  if (VarIsArray(keyValues)) return VarArrayGet(keyValues, VarArrayLowBound(keyValues) + i);
  return keyValues;
}

std::vector<AnsiString> SplitKeyNames(std::string_view keyNames) {
  std::vector<AnsiString> names;
  std::size_t from = 0;
  while (from <= keyNames.size()) {
    std::size_t semi = keyNames.find(';', from);
    if (semi == std::string_view::npos) semi = keyNames.size();
    AnsiString name = Trim(keyNames.substr(from, semi - from));
    if (!name.empty()) names.push_back(std::move(name));
    from = semi + 1;
  }
  return names;
}

// SameXItem over either view; valueOf(i) gives the value of key i.
template <class Tree, class ValueOf>
bool SameItem(const typename Tree::Node& item, std::string_view name,
              const std::vector<AnsiString>& keys, bool check, ValueOf&& valueOf) {
  if (!item || !SameText(Tree::Name(item), name)) return false;
  if (!check || keys.empty()) return true;
  const auto attrs = Tree::AttrsOf(item);
  for (std::size_t i = 0; i < keys.size(); ++i)
    if (CompareVar(attrs.Get(keys[i]), valueOf(i), true) != 0) return false;
  return true;
}

std::vector<AnsiString> DumpNames(const IPtr<IDump>& keys) {
  std::vector<AnsiString> names;
  for (Integer i = 0, n = keys ? keys->get_Count() : 0; i < n; ++i)
    names.push_back(keys->get_Name(i));
  return names;
}

template <class Tree>
bool SameItem(const typename Tree::Node& item, std::string_view name, const IPtr<IDump>& keys,
              const std::vector<AnsiString>& names, bool check) {
  return SameItem<Tree>(item, name, names, check,
                        [&](std::size_t i) { return keys->get_Value(static_cast<Integer>(i)); });
}

// The first direct child of item for which same(tree, child) holds.
template <class Same>
bool LocateChild(const IPtr<IXItem>& item, IPtr<IXItem>& found, Same&& same) {
  found = WithTree(item, [&](auto tree, const auto& parent) {
    using Tree = decltype(tree);
    for (Integer i = 0, n = parent ? Tree::Count(parent) : 0; i < n; ++i)
      if (auto child = Tree::Child(parent, i); same(tree, child)) return Tree::Intf(child);
    return IPtr<IXItem>();
  });
  return static_cast<bool>(found);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Paths

bool FindXPath(const IPtr<IXItem>& item, std::string_view path, bool raise, IPtr<IXItem>& found) {
  found = nullptr;
  return WithTree(
      item, [&](auto tree, const auto& node) { return FindPath(tree, node, path, raise, found); });
}

bool FindXItem(const IPtr<IXItem>& item, std::string_view path, IPtr<IXItem>& found) {
  return FindXPath(item, path, false, found);
}

IPtr<IXItem> FindXItem(const IPtr<IXItem>& item, std::string_view path, bool raise) {
  IPtr<IXItem> found;
  FindXPath(item, path, raise, found);
  return found;
}

bool FindXPatt(const IPtr<IXItem>& item, std::string_view path, bool raise, IPtr<IXItem>& found) {
  return FindXPath(item, path, raise, found);
}

// ---------------------------------------------------------------------------------------
// Children by name and key

bool FindXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
               std::string_view keyValue, bool recursive, IPtr<IXItem>& found) {
  return FindByKey(item, name, keyAttr, keyValue, recursive, found);
}

bool FindXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
               std::string_view keyValue, IPtr<IXItem>& found) {
  return FindByKey(item, name, keyAttr, keyValue, false, found);
}

IPtr<IXItem> FindXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                       std::string_view keyValue, bool raise) {
  return FindByKey(item, name, keyAttr, keyValue, false, raise);
}

IPtr<IXItem> FindXRecurse(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                          std::string_view keyValue, bool raise) {
  return FindByKey(item, name, keyAttr, keyValue, true, raise);
}

IPtr<IXItem> GetXItem(const IPtr<IXItem>& item, std::string_view name) {
  Require(item, "GetXItem");
  IPtr<IXItem> found;
  if (!item->FindItem(name, found)) found = item->Add(name);
  return found;
}

IPtr<IXItem> GetXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                      std::string_view keyValue) {
  Require(item, "GetXItem");
  IPtr<IXItem> found;
  if (!FindByKey(item, name, keyAttr, keyValue, false, found)) {
    found = item->Add(name);
    if (!keyAttr.empty()) found->set_Attr(keyAttr, AnsiString(keyValue));
  }
  return found;
}

// ---------------------------------------------------------------------------------------
// Values and attributes

bool GetXValue(const IPtr<IXItem>& item, std::string_view name, Variant& value) {
  value = Variant::Null();
  if (!item) return false;
  value = WithTree(item, [&](auto tree, const auto& parent) {
    using Tree = decltype(tree);
    const auto child = Tree::Find(parent, name);
    return child ? Tree::Value(child) : Variant::Null();
  });
  return !VarIsNull(value);
}

Variant XValue(const IPtr<IXItem>& item, std::string_view name, const Variant& def) {
  Variant value;
  return GetXValue(item, name, value) ? value : def;
}

Variant XValue(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
               std::string_view keyValue, const Variant& def) {
  // The default stands for a child that is not there; a child without a value gives Null.
  IPtr<IXItem> found;
  return FindByKey(item, name, keyAttr, keyValue, false, found) ? found->get_Value() : def;
}

Variant FindXVal(const IPtr<IXItem>& item, std::string_view path, bool raise) {
  if (!raise) return XValue(item, path);
  IPtr<IXItem> found;
  FindXPath(item, path, true, found);
  return found->get_Value();
}

bool GetXAttr(const IPtr<IXItem>& item, std::string_view name, Variant& value) {
  value = item ? item->get_Attr(name) : Variant::Null();
  return !VarIsNull(value);
}

bool GetXAttr(const IPtr<IXItem>& item, std::string_view name, TVarType varType, Variant& value) {
  if (!GetXAttr(item, name, value)) return false;
  value = XMLCast(value, varType);
  return true;
}

Variant XAttr(const IPtr<IXItem>& item, std::string_view name, const Variant& def) {
  Variant value;
  return GetXAttr(item, name, value) ? value : def;
}

Variant XAttr(const IPtr<IXItem>& item, std::string_view name) {
  Variant value;
  if (!GetXAttr(item, name, value))
    DIE(_SErrXAttrNotFound, item ? item->get_Name() : AnsiString(), name);
  return value;
}

// ---------------------------------------------------------------------------------------
// Matching against key values

bool SameXItem(const IPtr<IXItem>& item, std::string_view name, const IPtr<IDump>& keys,
               bool check) {
  const std::vector<AnsiString> names = DumpNames(keys);
  return WithTree(item, [&](auto tree, const auto& node) {
    return SameItem<decltype(tree)>(node, name, keys, names, check);
  });
}

bool SameXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyNames,
               const Variant& keyValues, bool check) {
  const std::vector<AnsiString> names = SplitKeyNames(keyNames);
  return WithTree(item, [&](auto tree, const auto& node) {
    return SameItem<decltype(tree)>(node, name, names, check, [&](std::size_t i) {
      return KeyValueAt(keyValues, names[i], static_cast<Integer>(i));
    });
  });
}

bool LocateXItem(const IPtr<IXItem>& item, std::string_view name, const IPtr<IDump>& keys,
                 bool check, IPtr<IXItem>& found) {
  const std::vector<AnsiString> names = DumpNames(keys);
  return LocateChild(item, found, [&](auto tree, const auto& child) {
    return SameItem<decltype(tree)>(child, name, keys, names, check);
  });
}

bool LocateXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyNames,
                 const Variant& keyValues, bool check, IPtr<IXItem>& found) {
  const std::vector<AnsiString> names = SplitKeyNames(keyNames);
  return LocateChild(item, found, [&](auto tree, const auto& child) {
    return SameItem<decltype(tree)>(child, name, names, check, [&](std::size_t i) {
      return KeyValueAt(keyValues, names[i], static_cast<Integer>(i));
    });
  });
}

// ---------------------------------------------------------------------------------------
// Copying

namespace {

// Whether a is b or lies inside b's subtree.
bool Within(const TXItem* a, const TXItem* b) {
  for (; a; a = a->get_Parent())
    if (a == b) return true;
  return false;
}

// Lays source over dest (XMerge) within the plain tree.
void MergeItem(TXItem* dest, const TXItem* source) {
  // Copies are made before anything is attached, so that a destination inside the source
  // never sees its own copies.
  std::vector<std::unique_ptr<TXItem>> copies;
  for (Integer i = 0, n = source->get_Count(); i < n; ++i) {
    copies.push_back(std::make_unique<TXItem>());
    copies.back()->Assign(source->get_Items(i));
  }
  if (dest->get_AttrText().empty()) {
    dest->set_AttrText(source->get_AttrText());
  } else {
    Integer pos = 1, start = 0, len = 0;
    AnsiString name, value;
    while (source->ExtractAttr(pos, name, start, len, value))
      dest->set_Attr(name, TkxXMLPr::Decode(value));
  }
  if (!VarIsNull(source->get_Value())) {
    if (source->get_IsCDATA())
      dest->set_CDATA(VarToStr(source->get_Value()));
    else
      dest->set_Value(source->get_Value());
  }
  for (auto& copy : copies) dest->AddItem(copy.release());
}

// XMerge of a plain source into an item of another implementation, through its operations;
// source's children are copied below dest the same way, level by level.
void MergeItem(const IPtr<IXItem>& dest, const TXItem* source) {
  std::vector<std::pair<IPtr<IXItem>, const TXItem*>> work{{dest, source}};
  while (!work.empty()) {
    auto [d, s] = std::move(work.back());
    work.pop_back();
    Integer pos = 1, start = 0, len = 0;
    AnsiString name, value;
    while (s->ExtractAttr(pos, name, start, len, value)) d->set_Attr(name, TkxXMLPr::Decode(value));
    if (!VarIsNull(s->get_Value())) {
      if (s->get_IsCDATA())
        d->set_CDATA(VarToStr(s->get_Value()));
      else
        d->set_Value(s->get_Value());
    }
    const std::size_t mark = work.size();
    for (Integer i = 0, n = s->get_Count(); i < n; ++i) {
      const TXItem* child = s->get_Items(i);
      work.emplace_back(d->Add(child->get_Name()), child);
    }
    std::reverse(work.begin() + static_cast<std::ptrdiff_t>(mark), work.end());
  }
}

// A plain copy of an item of any implementation, read through its operations: the copying
// functions then have a source that cannot change under them.
void CopyOf(const IPtr<IXItem>& item, TXItem& copy) {
  std::vector<std::pair<IPtr<IXItem>, TXItem*>> work{{item, &copy}};
  while (!work.empty()) {
    auto [from, to] = std::move(work.back());
    work.pop_back();
    to->set_Name(from->get_Name());
    IPtr<IDump> attrs;
    from->GetAttrList(attrs);
    for (Integer i = 0, n = attrs ? attrs->get_Count() : 0; i < n; ++i)
      to->set_Attr(attrs->get_Name(i), attrs->get_Value(i));
    const Variant value = from->get_Value();
    if (from->get_IsCDATA() && !VarIsNull(value))
      to->set_CDATA(VarToStr(value));
    else
      to->set_Value(value);
    for (Integer i = from->get_Count(); i-- > 0;) work.emplace_back(from->get_Items(i), nullptr);
    for (Integer i = 0, n = from->get_Count(); i < n; ++i)
      work[work.size() - 1 - static_cast<std::size_t>(i)].second = to->Add();
  }
}

// The source as a plain item: the library's own as it is, any other read into holder.
const TXItem* PlainSource(const IPtr<IXItem>& source, TXItem& holder) {
  if (const TXItem* own = OwnItem(source)) return own;
  CopyOf(source, holder);
  return &holder;
}

// XCopyItems from a plain source that does not overlap dest.
template <class Tree>
void CopyItems(const typename Tree::Node& dest, const TXItem* source) {
  using Node = typename Tree::Node;
  // Pairs still to merge, kept on a list of our own so that deep trees need no deep calls.
  std::vector<std::pair<Node, const TXItem*>> work{{dest, source}};
  while (!work.empty()) {
    auto [d, s] = std::move(work.back());
    work.pop_back();
    std::vector<std::pair<Node, const TXItem*>> deeper;
    for (Integer k = 0, count = s->get_Count(); k < count; ++k) {
      const TXItem* c = s->get_Items(k);
      IPtr<IDump> keys;
      c->GetAttrList(keys);
      const std::vector<AnsiString> names = DumpNames(keys);
      Node match{};
      for (Integer i = 0, n = Tree::Count(d); i < n && !match; ++i)
        if (Node e = Tree::Child(d, i); SameItem<Tree>(e, c->get_Name(), keys, names, true))
          match = std::move(e);
      if (match)
        deeper.emplace_back(std::move(match), c);
      else
        MergeItem(Tree::Add(d, c->get_Name()), c);
    }
    // Deeper levels in document order: the list is worked from its end.
    for (auto it = deeper.rbegin(); it != deeper.rend(); ++it) work.push_back(std::move(*it));
  }
}

}  // namespace

void XMerge(const IPtr<IXItem>& dest, const IPtr<IXItem>& source) {
  Require(dest, "XMerge");
  Require(source, "XMerge");
  TXItem holder;
  const TXItem* from = PlainSource(source, holder);
  if (TXItem* own = OwnItem(dest))
    MergeItem(own, from);
  else
    MergeItem(dest, from);
}

void XAssign(const IPtr<IXItem>& dest, const IPtr<IXItem>& source) {
  Require(dest, "XAssign");
  Require(source, "XAssign");
  TXItem holder;
  const TXItem* s = PlainSource(source, holder);
  if (TXItem* d = OwnItem(dest)) {
    if (d == s) return;
    if (Within(d, s) || Within(s, d)) {
      // Clearing d would free s, or copying s would copy d while it grows: copy s first.
      TXItem copy;
      copy.Assign(s);
      d->Assign(&copy);
    } else {
      d->Assign(s);
    }
    return;
  }
  // Another implementation: emptied through its operations, then filled as by XMerge.
  dest->Clear();
  dest->set_Name(s->get_Name());
  IPtr<IDump> attrs;
  dest->GetAttrList(attrs);
  for (Integer i = 0, n = attrs ? attrs->get_Count() : 0; i < n; ++i)
    dest->set_Attr(attrs->get_Name(i), Variant::Null());
  dest->set_Value(Variant::Null());
  MergeItem(dest, s);
}

void XCopyItems(const IPtr<IXItem>& dest, const IPtr<IXItem>& source) {
  Require(dest, "XCopyItems");
  Require(source, "XCopyItems");
  TXItem holder;
  const TXItem* from = PlainSource(source, holder);
  TXItem* target = OwnItem(dest);
  if (!target) return CopyItems<TIntfTree>(dest, from);
  // When one tree holds the other, what is appended would come round again as source:
  // the source is copied first.
  TXItem copy;
  if (Within(target, from) || Within(from, target)) {
    copy.Assign(from);
    from = &copy;
  }
  CopyItems<TPlainTree>(target, from);
}

}  // namespace ostrel
