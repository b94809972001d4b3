// Path search, key search, values and attributes, key matching and copying by keys.
#include <ostrel/xml/Xdata.h>

#include <ostrel/rtl/Strings.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/services/VarServ.h>

#include <memory>
#include <utility>
#include <vector>

namespace ostrel {
namespace {

bool IsPathBlank(char c) { return static_cast<unsigned char>(c) <= ' '; }

// The item behind an interface. The queries walk the plain tree, so that searching a large
// tree makes no wrappers except for what it hands out; a wrapper whose item is gone raises
// the deleted-item error here.
TXItem* XItemOf(const IPtr<IXItem>& item) {
  if (!item) return nullptr;
  auto* intf = dynamic_cast<TXItemIntf*>(item.Get());
  if (!intf) DIE("XQuery: the item does not belong to an Ostrel XML tree");
  return intf->XItem();
}

// As XItemOf for operations that need an item: none is an error naming the operation.
TXItem* RequiredItem(const IPtr<IXItem>& item, std::string_view operation) {
  TXItem* x = XItemOf(item);
  if (!x) DIE("%s: no item", operation);
  return x;
}

IPtr<IXItem> IntfOf(TXItem* item) { return item ? item->get_Intf() : IPtr<IXItem>(); }

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

bool PassesFilter(const TXItem* item, const std::vector<TFilterCond>& conds) {
  for (const TFilterCond& c : conds) {
    const Variant v = item->get_Attr(c.Name);
    if (VarIsNull(v) || !AnsiSameText(VarToStr(v), c.Value)) return false;
  }
  return true;
}

bool KeyMatches(const TXItem* item, std::string_view name, std::string_view keyAttr,
                std::string_view keyValue) {
  if (!AnsiSameText(item->get_Name(), name)) return false;
  return keyAttr.empty() || AnsiSameText(VarToStr(item->get_Attr(keyAttr)), keyValue);
}

// The key search, depth first with a parent before its children. The walk keeps its own
// stack of positions so that a deep tree cannot exhaust the call stack.
TXItem* FindByKey(TXItem* item, std::string_view name, std::string_view keyAttr,
                  std::string_view keyValue, bool recursive) {
  if (!item) return nullptr;
  std::vector<std::pair<TXItem*, Integer>> stack{{item, 0}};
  while (!stack.empty()) {
    auto& [parent, next] = stack.back();
    if (next >= parent->get_Count()) {
      stack.pop_back();
      continue;
    }
    TXItem* child = parent->get_Items(next++);
    if (KeyMatches(child, name, keyAttr, keyValue)) return child;
    if (recursive && child->get_Count() > 0) stack.emplace_back(child, 0);
  }
  return nullptr;
}

bool FindByKey(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
               std::string_view keyValue, bool recursive, IPtr<IXItem>& found) {
  found = IntfOf(FindByKey(XItemOf(item), name, keyAttr, keyValue, recursive));
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

// SameXItem over the plain item; valueOf(i) gives the value of key i.
template <class ValueOf>
bool SameItem(const TXItem* item, std::string_view name, const std::vector<AnsiString>& keys,
              bool check, ValueOf&& valueOf) {
  if (!item || !SameText(item->get_Name(), name)) return false;
  if (!check) return true;
  for (std::size_t i = 0; i < keys.size(); ++i)
    if (CompareVar(item->get_Attr(keys[i]), valueOf(i), true) != 0) return false;
  return true;
}

std::vector<AnsiString> DumpNames(const IPtr<IDump>& keys) {
  std::vector<AnsiString> names;
  for (Integer i = 0, n = keys ? keys->get_Count() : 0; i < n; ++i)
    names.push_back(keys->get_Name(i));
  return names;
}

bool SameItem(const TXItem* item, std::string_view name, const IPtr<IDump>& keys,
              const std::vector<AnsiString>& names, bool check) {
  return SameItem(item, name, names, check,
                  [&](std::size_t i) { return keys->get_Value(static_cast<Integer>(i)); });
}

template <class Same>
bool LocateChild(const IPtr<IXItem>& item, IPtr<IXItem>& found, Same&& same) {
  found = nullptr;
  TXItem* parent = XItemOf(item);
  for (Integer i = 0, n = parent ? parent->get_Count() : 0; i < n; ++i)
    if (TXItem* child = parent->get_Items(i); same(child)) {
      found = child->get_Intf();
      return true;
    }
  return false;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Paths

bool FindXPath(const IPtr<IXItem>& item, std::string_view path, bool raise,
               IPtr<IXItem>& found) {
  found = nullptr;
  std::string_view rest = path;
  while (!rest.empty() && (IsPathBlank(rest.front()) || rest.front() == '/'))
    rest.remove_prefix(1);
  AnsiString failed;  // the name of the step being taken
  TXItem* result = nullptr;
  TXItem* current = XItemOf(item);
  while (!rest.empty()) {
    const std::size_t slash = rest.find('/');
    const std::string_view segment = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    result = nullptr;
    const std::size_t bracket = segment.find('[');
    if (bracket != std::string_view::npos) {
      std::string_view filter = segment.substr(bracket + 1);
      while (!filter.empty() && (filter.back() == ' ' || filter.back() == ']'))
        filter.remove_suffix(1);
      failed = Trim(segment.substr(0, bracket));
      const std::vector<TFilterCond> conds = ParseFilter(filter);
      for (Integer i = 0, n = current ? current->get_Count() : 0; i < n && !result; ++i) {
        TXItem* child = current->get_Items(i);
        if (AnsiSameText(child->get_Name(), failed) && PassesFilter(child, conds))
          result = child;
      }
    } else {
      failed = AnsiString(segment);
      if (current) current->FindItem(segment, result);
    }
    if (!result) break;
    current = result;
  }
  if (result) {
    found = result->get_Intf();
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

bool FindXItem(const IPtr<IXItem>& item, std::string_view path, IPtr<IXItem>& found) {
  return FindXPath(item, path, false, found);
}

IPtr<IXItem> FindXItem(const IPtr<IXItem>& item, std::string_view path, bool raise) {
  IPtr<IXItem> found;
  FindXPath(item, path, raise, found);
  return found;
}

bool FindXPatt(const IPtr<IXItem>& item, std::string_view path, bool raise,
               IPtr<IXItem>& found) {
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

IPtr<IXItem> FindXItem(const IPtr<IXItem>& item, std::string_view name,
                       std::string_view keyAttr, std::string_view keyValue, bool raise) {
  return FindByKey(item, name, keyAttr, keyValue, false, raise);
}

IPtr<IXItem> FindXRecurse(const IPtr<IXItem>& item, std::string_view name,
                          std::string_view keyAttr, std::string_view keyValue, bool raise) {
  return FindByKey(item, name, keyAttr, keyValue, true, raise);
}

IPtr<IXItem> GetXItem(const IPtr<IXItem>& item, std::string_view name) {
  RequiredItem(item, "GetXItem");
  IPtr<IXItem> found;
  if (!item->FindItem(name, found)) found = item->Add(name);
  return found;
}

IPtr<IXItem> GetXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
                      std::string_view keyValue) {
  RequiredItem(item, "GetXItem");
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
  TXItem* parent = XItemOf(item);
  TXItem* child = nullptr;
  if (!parent || !parent->FindItem(name, child)) return false;
  value = child->get_Value();
  return !VarIsNull(value);
}

Variant XValue(const IPtr<IXItem>& item, std::string_view name, const Variant& def) {
  Variant value;
  return GetXValue(item, name, value) ? value : def;
}

Variant XValue(const IPtr<IXItem>& item, std::string_view name, std::string_view keyAttr,
               std::string_view keyValue, const Variant& def) {
  const TXItem* found = FindByKey(XItemOf(item), name, keyAttr, keyValue, false);
  return found && !VarIsNull(found->get_Value()) ? found->get_Value() : def;
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

bool GetXAttr(const IPtr<IXItem>& item, std::string_view name, TVarType varType,
              Variant& value) {
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
  return SameItem(XItemOf(item), name, keys, DumpNames(keys), check);
}

bool SameXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyNames,
               const Variant& keyValues, bool check) {
  const std::vector<AnsiString> names = SplitKeyNames(keyNames);
  return SameItem(XItemOf(item), name, names, check, [&](std::size_t i) {
    return KeyValueAt(keyValues, names[i], static_cast<Integer>(i));
  });
}

bool LocateXItem(const IPtr<IXItem>& item, std::string_view name, const IPtr<IDump>& keys,
                 bool check, IPtr<IXItem>& found) {
  const std::vector<AnsiString> names = DumpNames(keys);
  return LocateChild(item, found, [&](const TXItem* child) {
    return SameItem(child, name, keys, names, check);
  });
}

bool LocateXItem(const IPtr<IXItem>& item, std::string_view name, std::string_view keyNames,
                 const Variant& keyValues, bool check, IPtr<IXItem>& found) {
  const std::vector<AnsiString> names = SplitKeyNames(keyNames);
  return LocateChild(item, found, [&](const TXItem* child) {
    return SameItem(child, name, names, check, [&](std::size_t i) {
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

}  // namespace

void XMerge(const IPtr<IXItem>& dest, const IPtr<IXItem>& source) {
  MergeItem(RequiredItem(dest, "XMerge"), RequiredItem(source, "XMerge"));
}

void XAssign(const IPtr<IXItem>& dest, const IPtr<IXItem>& source) {
  TXItem* d = RequiredItem(dest, "XAssign");
  const TXItem* s = RequiredItem(source, "XAssign");
  if (d == s) return;
  if (Within(d, s) || Within(s, d)) {
    // Clearing d would free s, or copying s would copy d while it grows: copy s first.
    TXItem copy;
    copy.Assign(s);
    d->Assign(&copy);
  } else {
    d->Assign(s);
  }
}

void XCopyItems(const IPtr<IXItem>& dest, const IPtr<IXItem>& source) {
  TXItem* target = RequiredItem(dest, "XCopyItems");
  const TXItem* from = RequiredItem(source, "XCopyItems");
  // When one tree holds the other, what is appended would come round again as source:
  // the source is copied first.
  TXItem copy;
  if (Within(target, from) || Within(from, target)) {
    copy.Assign(from);
    from = &copy;
  }
  // Pairs still to merge, kept on a list of our own so that deep trees need no deep calls.
  std::vector<std::pair<TXItem*, const TXItem*>> work{{target, from}};
  while (!work.empty()) {
    auto [d, s] = work.back();
    work.pop_back();
    std::vector<std::pair<TXItem*, const TXItem*>> deeper;
    for (Integer k = 0, count = s->get_Count(); k < count; ++k) {
      const TXItem* c = s->get_Items(k);
      IPtr<IDump> keys;
      c->GetAttrList(keys);
      const std::vector<AnsiString> names = DumpNames(keys);
      TXItem* match = nullptr;
      for (Integer i = 0, n = d->get_Count(); i < n && !match; ++i)
        if (TXItem* e = d->get_Items(i); SameItem(e, c->get_Name(), keys, names, true)) match = e;
      if (match) {
        deeper.emplace_back(match, c);
      } else {
        TXItem* added = d->Add();
        added->set_Name(c->get_Name());
        MergeItem(added, c);
      }
    }
    // Deeper levels in document order: the list is worked from its end.
    for (auto it = deeper.rbegin(); it != deeper.rend(); ++it) work.push_back(*it);
  }
}

}  // namespace ostrel
