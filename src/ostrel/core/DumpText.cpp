// The text forms of a dump: the typed form (types kept, dates independent of the locale's
// date settings), the plain form, localising copies, and all values in one variant.
#include <ostrel/core/Dump.h>

#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/Sysserv.h>

#include <cmath>
#include <limits>

namespace ostrel {

namespace {

constexpr TCharSet kSemicolon{';'};
constexpr TCharSet kTab{'\t'};
constexpr std::string_view kTypedDateFormat = "dd-mm-yyyy hh:mm:ss.zzz";

IDump& Checked(const IPtr<IDump>& dump, const char* operation) {
  if (!dump) throw Exception(Format("%s: dump not assigned", operation));
  return *dump;
}

bool HoldsInterface(TVarType t) { return t == varDispatch || t == varUnknown; }

// The typed form's date text, which carries the years 1 to 9999 to the millisecond. Any
// other moment would be written as a date that reads back as another one or as nothing, so
// it is refused with the conversion error instead.
AnsiString TypedDateText(TDateTime value) {
  Word year, month, day, hour, min, sec, msec;
  DecodeDateTimeStrict(value, year, month, day, hour, min, sec, msec);
  return FormatDateTime(kTypedDateFormat, value);
}

// One item of the typed form, or "" for a value that is not written.
AnsiString TypedItem(std::string_view name, const Variant& value) {
  TVarType t = VarType(value);
  if (HoldsInterface(t)) return {};
  AnsiString item(name);
  item += ':';
  item += IntToStr(t);
  item += '=';
  if (t == varDate)
    item += TypedDateText(VarToDateTime(value));
  else if (t != varEmpty && t != varNull)
    item += VarToStr(value);
  return item;
}

// The texts the float conversion writes for the values that are no numbers; the variant
// conversion does not read them, so the typed form's reader does.
bool SpecialFloat(const AnsiString& text, double& value) {
  if (text == "INF")
    value = std::numeric_limits<double>::infinity();
  else if (text == "-INF")
    value = -std::numeric_limits<double>::infinity();
  else if (text == "NAN")
    value = std::numeric_limits<double>::quiet_NaN();
  else
    return false;
  return true;
}

// Switches the process-wide settings that the date parser reads to the typed form's fixed
// ones, and puts the caller's back on every way out.
class TypedDateSettings {
 public:
  TypedDateSettings()
      : fDate(FormatSettings.DateSeparator),
        fTime(FormatSettings.TimeSeparator),
        fDecimal(FormatSettings.DecimalSeparator),
        fShortDate(FormatSettings.ShortDateFormat) {
    FormatSettings.DateSeparator = '-';
    FormatSettings.TimeSeparator = ':';
    FormatSettings.DecimalSeparator = '.';
    FormatSettings.ShortDateFormat = "dd-mm-yyyy";
  }
  ~TypedDateSettings() {
    FormatSettings.DateSeparator = fDate;
    FormatSettings.TimeSeparator = fTime;
    FormatSettings.DecimalSeparator = fDecimal;
    FormatSettings.ShortDateFormat.swap(fShortDate);
  }
  TypedDateSettings(const TypedDateSettings&) = delete;
  TypedDateSettings& operator=(const TypedDateSettings&) = delete;

 private:
  char fDate, fTime, fDecimal;
  AnsiString fShortDate;
};

Variant TypedValue(Integer type, const AnsiString& text) {
  switch (type) {
    case varEmpty: return Variant();
    case varNull: return Variant::Null();
    case varDate: {
      if (text.empty()) return Variant();
      TDateTime value = 0;
      bool ok;
      {
        TypedDateSettings fixed;
        ok = TryStrToDateTime(text, value);
      }
      return ok ? Variant::FromDate(value) : Variant();
    }
    case varSingle:
    case varDouble: {
      double special = 0;
      if (SpecialFloat(text, special))
        return type == varSingle ? Variant(static_cast<float>(special)) : Variant(special);
      [[fallthrough]];
    }
    default:
      if (text.empty()) return Variant();
      return VarAsType(Variant(text), static_cast<TVarType>(type));
  }
}

}  // namespace

// ---- typed form ------------------------------------------------------------------------

AnsiString Dump_ToStr(const IPtr<IDump>& dump) {
  IDump& d = Checked(dump, "Dump_ToStr");
  AnsiString result;
  Integer n = d.get_Count();
  for (Integer i = 0; i < n; ++i) StrJoin(result, TypedItem(d.get_Name(i), d.get_Value(i)), "\t");
  return result;
}

namespace {
template <class Names>
AnsiString ToStrNames(const IPtr<IDump>& dump, const Names& names) {
  IDump& d = Checked(dump, "Dump_ToStr");
  AnsiString result;
  for (const auto& name : names) {
    Integer i = d.IndexOf(name);
    if (i >= 0) StrJoin(result, TypedItem(name, d.get_Value(i)), "\t");
  }
  return result;
}
}  // namespace

AnsiString Dump_ToStr(const IPtr<IDump>& dump, std::initializer_list<std::string_view> names) {
  return ToStrNames(dump, names);
}

AnsiString Dump_ToStr(const IPtr<IDump>& dump, const std::vector<AnsiString>& names) {
  return ToStrNames(dump, names);
}

void Dump_FromStr(const IPtr<IDump>& dump, std::string_view text) {
  IDump& d = Checked(dump, "Dump_FromStr");
  AnsiString item, rest, valueText;
  int pos = 1;
  while (ExtractStr(text, pos, kTab, item)) {
    AnsiString name = StrDiv(item, rest, ':');
    AnsiString typeText = StrDiv(rest, valueText, '=');
    Integer type = -1;
    if (!TryStrToInt(typeText, type)) type = -1;
    if (type < 0) continue;
    d.set_ByName(name, TypedValue(type, valueText));
  }
}

// ---- plain form ------------------------------------------------------------------------

AnsiString Dump_AsString(const IPtr<IDump>& dump, std::string_view separator) {
  IDump& d = Checked(dump, "Dump_AsString");
  AnsiString result;
  Integer n = d.get_Count();
  for (Integer i = 0; i < n; ++i) {
    AnsiString name = d.get_Name(i);
    Variant v = d.get_Value(i);
    if (HoldsInterface(VarType(v))) continue;
    if (!VarIsArray(v)) {
      StrJoin(result, name + "=" + VarToStr(v), separator);
      continue;
    }
    Integer lo = VarArrayLowBound(v), hi = VarArrayHighBound(v);
    // The header shows the upper bound + 1, which is the length only for arrays from 0.
    StrJoin(result, name + " array [" + IntToStr(Int64{hi} + 1) + "]", separator);
    for (Integer k = lo; k <= hi; ++k) {
      Variant element = VarArrayGet(v, k);
      if (HoldsInterface(VarType(element))) continue;
      StrJoin(result, name + "[" + IntToStr(k) + "]=" + VarToStr(element), separator);
    }
  }
  return result;
}

void Dump_FromString(const IPtr<IDump>& dump, std::string_view text, char separator) {
  IDump& d = Checked(dump, "Dump_FromString");
  TCharSet set;
  set.Include(separator);
  AnsiString item, value;
  int pos = 1;
  while (ExtractStr(text, pos, set, item)) {
    AnsiString name = StrDiv(item, value, '=');
    d.set_ByName(name, Variant(value));
  }
}

// ---- localising copies and values in one variant ------------------------------------------

void Dump_Localize(const IPtr<IDump>& dump, std::string_view pairs) {
  IDump& d = Checked(dump, "Dump_Localize");
  AnsiString pair, target;
  int pos = 1;
  while (ExtractStr(pairs, pos, kSemicolon, pair)) {
    AnsiString source = StrDiv(pair, target, '=');
    if (target.empty()) target = source;
    Integer i = d.IndexOf(source);
    if (i >= 0) d.set_ByName(target, d.get_Value(i));
  }
}

Variant TkxDumpPr::GetValues(const IPtr<IDump>& dump) {
  IDump& d = Checked(dump, "TkxDumpPr.GetValues");
  Integer n = d.get_Count();
  if (n == 0) return Variant();
  if (n == 1) return d.get_Value(0);
  std::vector<Variant> values;
  values.reserve(static_cast<std::size_t>(n));
  for (Integer i = 0; i < n; ++i) values.push_back(d.get_Value(i));
  return VarArrayOf(values);
}

void TkxDumpPr::SetValues(const IPtr<IDump>& dump, std::string_view names, const Variant& values) {
  IDump& d = Checked(dump, "TkxDumpPr.SetValues");
  bool isArray = VarIsArray(values);
  AnsiString name;
  int pos = 1;
  Integer i = 0;
  while (ExtractStr(names, pos, kSemicolon, name)) {
    d.set_ByName(name, isArray ? VarArrayGet(values, i) : values);
    ++i;
  }
}

}  // namespace ostrel
