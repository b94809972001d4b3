// The Dump_* functions: reading with defaults, interfaces held in dumps, names, merging,
// comparing and cloning.
#include <ostrel/core/Dump.h>

#include <ostrel/core/Sysclasses.h>
#include <ostrel/services/Sysserv.h>

#include <unordered_set>

namespace ostrel {

namespace {

constexpr TCharSet kSemicolon{';'};

IDump& Checked(const IPtr<IDump>& dump, const char* operation) {
  if (!dump) throw Exception(Format("%s: dump not assigned", operation));
  return *dump;
}

// Calls fn(name) for each name of a ";"-list.
template <class Fn>
void ForEachName(std::string_view names, Fn&& fn) {
  AnsiString token;
  int pos = 1;
  while (ExtractStr(names, pos, kSemicolon, token)) fn(token);
}

// The value under `name`, or false. One lookup, no exception for a missing name.
bool Lookup(IDump& dump, std::string_view name, Variant& value) {
  Integer i = dump.IndexOf(name);
  if (i < 0) return false;
  value = dump.get_Value(i);
  return true;
}

template <class Names>
AnsiString NamesExclude(const IPtr<IDump>& dump, const Names& exclude, std::string_view separator) {
  IDump& d = Checked(dump, "Dump_Names_Exclude");
  // The excluded names folded into a set, so that a long list is not scanned once per name
  // (folded bytes are equal exactly when the names are equal text).
  std::unordered_set<AnsiString> skip;
  for (const auto& x : exclude) skip.insert(AnsiFoldCase(x));
  AnsiString result;
  Integer n = d.get_Count();
  for (Integer i = 0; i < n; ++i) {
    AnsiString name = d.get_Name(i);
    if (!skip.contains(AnsiFoldCase(name))) StrJoin(result, name, separator);
  }
  return result;
}

bool AssignAll(IDump& dest, IDump& source) {
  Integer n = source.get_Count();
  for (Integer i = 0; i < n; ++i) dest.set_ByName(source.get_Name(i), source.get_Value(i));
  return n > 0;
}

bool AssignOne(IDump& dest, IDump& source, std::string_view name) {
  Variant v;
  if (!Lookup(source, name, v)) return false;
  dest.set_ByName(name, v);
  return true;
}

template <class Names>
bool AssignList(const IPtr<IDump>& dest, const IPtr<IDump>& source, const Names& names) {
  IDump& d = Checked(dest, "Dump_Assign");
  if (!source) return false;
  if (names.size() == 0) return AssignAll(d, *source);
  bool copied = false;
  for (const auto& name : names) copied = AssignOne(d, *source, name) || copied;
  return copied;
}

}  // namespace

void GetDumpIntf(IPtr<IDump>& dump) { dump = IPtr<IDump>(new TkxDump()); }

IPtr<IDump> GetDumpIntf() { return IPtr<IDump>(new TkxDump()); }

// ---- reading ---------------------------------------------------------------------------

bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, Variant& value) {
  value.Clear();
  return Lookup(Checked(dump, "Dump_GetValue"), name, value);
}

bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, AnsiString& value) {
  value.clear();
  Variant v;
  if (!Lookup(Checked(dump, "Dump_GetValue"), name, v)) return false;
  value = VarToStr(v);
  return true;
}

bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, Extended& value) {
  Variant v;
  if (!Lookup(Checked(dump, "Dump_GetValue"), name, v)) return false;
  value = VarAsFloat(v);
  return true;
}

bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, Integer& value) {
  Variant v;
  if (!Lookup(Checked(dump, "Dump_GetValue"), name, v)) return false;
  value = VarAsInt(v);
  return true;
}

bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, bool& value) {
  Variant v;
  if (!Lookup(Checked(dump, "Dump_GetValue"), name, v)) return false;
  value = VarAsBool(v);
  return true;
}

bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, TDateTime& value) {
  Variant v;
  if (!Lookup(Checked(dump, "Dump_GetValue"), name, v)) return false;
  value = VarToDateTime(v);
  return true;
}

bool Dump_GetVS(const IPtr<IDump>& dump, std::string_view name, AnsiString& value) {
  return Dump_GetValue(dump, name, value) && !value.empty();
}

Variant Dump_DefValue(const IPtr<IDump>& dump, std::string_view name, const Variant& def,
                      bool ifEmpty) {
  Variant v;
  if (!Lookup(Checked(dump, "Dump_DefValue"), name, v)) return def;
  if (ifEmpty && (v.IsNull() || v.IsEmpty())) return def;
  return v;
}

bool Dump_IfDef(const IPtr<IDump>& dump, std::string_view name) {
  return Checked(dump, "Dump_IfDef").IndexOf(name) >= 0;
}

void Dump_Define(const IPtr<IDump>& dump, std::string_view name) {
  Checked(dump, "Dump_Define").set_ByName(name, Variant(Byte{1}));
}

bool Dump_Undef(const IPtr<IDump>& dump, std::string_view name) {
  IDump& d = Checked(dump, "Dump_Undef");
  Integer i = d.IndexOf(name);
  if (i < 0) return false;
  d.Delete(i);
  return true;
}

// ---- interfaces ------------------------------------------------------------------------

bool Dump_GetIntf(const IPtr<IDump>& dump, std::string_view name, const TGUID& iid,
                  IPtr<IInterface>& intf, bool required) {
  intf = nullptr;
  IDump& d = Checked(dump, "Dump_GetIntf");
  Variant v;
  if (required)
    v = d.get_ByName(name);
  else if (!Lookup(d, name, v))
    return false;
  TVarType t = VarType(v);
  if (t == varDispatch || t == varUnknown) intf = VarToIntf(v).Query(iid);
  if (!intf && required)
    DIE("Dump_GetIntf: parameter \"%s\" is not supported interface \"%s\"", name,
        GUIDToString(iid));
  return static_cast<bool>(intf);
}

bool Dump_GetIntf(const IPtr<IDump>& dump, const TGUID& iid, IPtr<IInterface>& intf,
                  bool required) {
  intf = nullptr;
  IDump& d = Checked(dump, "Dump_GetIntf");
  Integer n = d.get_Count();
  for (Integer i = 0; i < n && !intf; ++i) {
    Variant v = d.get_Value(i);
    if (VarType(v) == varUnknown) intf = VarToIntf(v).Query(iid);
  }
  if (!intf && required) DIE("Dump_GetIntf: interface \"%s\" not found", GUIDToString(iid));
  return static_cast<bool>(intf);
}

IPtr<IInterface> Dump_GetIntf(const IPtr<IDump>& dump, std::string_view name, const TGUID& iid) {
  IPtr<IInterface> intf;
  Dump_GetIntf(dump, name, iid, intf, true);
  return intf;
}

IPtr<IInterface> Dump_GetIntf(const IPtr<IDump>& dump, const TGUID& iid) {
  IPtr<IInterface> intf;
  Dump_GetIntf(dump, iid, intf, true);
  return intf;
}

// ---- names and entries -------------------------------------------------------------------

AnsiString Dump_Names(const IPtr<IDump>& dump, std::string_view separator) {
  IDump& d = Checked(dump, "Dump_Names");
  AnsiString result;
  Integer n = d.get_Count();
  for (Integer i = 0; i < n; ++i) StrJoin(result, d.get_Name(i), separator);
  return result;
}

AnsiString Dump_Names_Exclude(const IPtr<IDump>& dump,
                              std::initializer_list<std::string_view> exclude,
                              std::string_view separator) {
  return NamesExclude(dump, exclude, separator);
}

AnsiString Dump_Names_Exclude(const IPtr<IDump>& dump, const std::vector<AnsiString>& exclude,
                              std::string_view separator) {
  return NamesExclude(dump, exclude, separator);
}

bool Dump_ContainsNames(const IPtr<IDump>& dump, std::string_view names) {
  IDump& d = Checked(dump, "Dump_ContainsNames");
  bool found = false;
  ForEachName(names, [&](const AnsiString& name) {
    if (!found && d.IndexOf(name) >= 0) found = true;
  });
  return found;
}

void Dump_Remove(const IPtr<IDump>& dump, std::string_view names) {
  IDump& d = Checked(dump, "Dump_Remove");
  if (auto* own = dynamic_cast<TkxDump*>(ObjRef(dump, false))) {
    own->Remove(names);
    return;
  }
  ForEachName(names, [&](const AnsiString& name) {
    Integer i = d.IndexOf(name);
    if (i >= 0) d.Delete(i);
  });
}

void Dump_Clear(const IPtr<IDump>& dump) {
  IDump& d = Checked(dump, "Dump_Clear");
  // The library's own dump empties itself in one go; deleting entry 0 over and over would
  // cost quadratic time on large dumps. Other implementations get the entry-by-entry way.
  if (auto* own = dynamic_cast<TkxDump*>(ObjRef(dump, false))) {
    own->Clear();
    return;
  }
  while (d.get_Count() >= 1) d.Delete(0);
}

bool Dump_Assign(const IPtr<IDump>& dest, const IPtr<IDump>& source, std::string_view names) {
  IDump& d = Checked(dest, "Dump_Assign");
  if (!source) return false;
  if (names.empty()) return AssignAll(d, *source);
  bool copied = false;
  ForEachName(names,
              [&](const AnsiString& name) { copied = AssignOne(d, *source, name) || copied; });
  return copied;
}

bool Dump_Assign(const IPtr<IDump>& dest, const IPtr<IDump>& source,
                 std::initializer_list<std::string_view> names) {
  return AssignList(dest, source, names);
}

bool Dump_Assign(const IPtr<IDump>& dest, const IPtr<IDump>& source,
                 const std::vector<AnsiString>& names) {
  return AssignList(dest, source, names);
}

bool Dump_SameValues(const IPtr<IDump>& a, const IPtr<IDump>& b) {
  IDump& da = Checked(a, "Dump_SameValues");
  IDump& db = Checked(b, "Dump_SameValues");
  Integer n = da.get_Count();
  for (Integer i = 0; i < n; ++i) {
    Variant other;
    if (!Lookup(db, da.get_Name(i), other)) return false;
    if (!VarSameValue(da.get_Value(i), other)) return false;
  }
  return true;
}

void Dump_Clone(const IPtr<IDump>& source, IPtr<IDump>& dest) {
  IPtr<IDump> clone = GetDumpIntf();
  Dump_Assign(clone, source, std::string_view());
  dest = std::move(clone);
}

void Dump_ByValues(std::string_view names, const Variant& values, IPtr<IDump>& dump) {
  // Take copies first: the out argument may be where the arguments live.
  AnsiString namesCopy(names);
  Variant valuesCopy(values);
  GetDumpIntf(dump);
  IDump& d = *dump;
  if (!VarIsArray(valuesCopy)) {
    d.set_ByName(namesCopy, valuesCopy);
    return;
  }
  Integer i = 0;
  ForEachName(namesCopy,
              [&](const AnsiString& name) { d.set_ByName(name, VarArrayGet(valuesCopy, i++)); });
}

}  // namespace ostrel
