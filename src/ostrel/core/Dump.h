// The functions through which the library reads and writes dumps, and the dump's text forms.
//
// "Names" arguments given as one string are ";"-separated lists; runs of ";" count as one
// and names are taken as written (not trimmed). Every function raises Exception when the dump
// it works on is null, except where a null dump has a stated meaning.
#pragma once

#include <ostrel/core/Sysintf.h>

#include <initializer_list>
#include <string_view>
#include <vector>

namespace ostrel {

// A new, empty, self-owned dump.
OSTREL_API void GetDumpIntf(IPtr<IDump>& dump);
OSTREL_API IPtr<IDump> GetDumpIntf();

// ---------------------------------------------------------------------------------------
// Reading values. Every form returns whether the name exists and never raises for a missing
// name. The variant and string forms clear their out argument first; the number, boolean
// and date forms leave it as the caller set it when the name is missing, so callers preset
// their defaults. A stored value that cannot be converted raises the conversion error.

OSTREL_API bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, Variant& value);
// Null gives "".
OSTREL_API bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, AnsiString& value);
// Null gives 0.
OSTREL_API bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, Extended& value);
OSTREL_API bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, Integer& value);
OSTREL_API bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, bool& value);
// The date-time form: TDateTime is a double, so a `double` out argument reads a date-time
// (a stored text is parsed as a date); use an Extended to read a plain number.
OSTREL_API bool Dump_GetValue(const IPtr<IDump>& dump, std::string_view name, TDateTime& value);

// True only when the name exists and its text is not empty.
OSTREL_API bool Dump_GetVS(const IPtr<IDump>& dump, std::string_view name, AnsiString& value);
// The stored value, or `def` when the name is missing (or, with ifEmpty, stored as null or
// empty).
OSTREL_API Variant Dump_DefValue(const IPtr<IDump>& dump, std::string_view name, const Variant& def,
                                 bool ifEmpty = false);
OSTREL_API bool Dump_IfDef(const IPtr<IDump>& dump, std::string_view name);
// Sets the name to 1 (an unsigned 8-bit integer), as a flag.
OSTREL_API void Dump_Define(const IPtr<IDump>& dump, std::string_view name);
// Deletes the name; true when it existed.
OSTREL_API bool Dump_Undef(const IPtr<IDump>& dump, std::string_view name);

// ---------------------------------------------------------------------------------------
// Interfaces held in a dump

// The interface `iid` of the value under `name` (varUnknown or varDispatch). With required
// a missing name raises the not-found error and an unsupported value is reported with DIE;
// without, both give false.
OSTREL_API bool Dump_GetIntf(const IPtr<IDump>& dump, std::string_view name, const TGUID& iid,
                             IPtr<IInterface>& intf, bool required);
// The first value in entry order that holds an interface (varUnknown) supporting `iid`.
OSTREL_API bool Dump_GetIntf(const IPtr<IDump>& dump, const TGUID& iid, IPtr<IInterface>& intf,
                             bool required);
// The forms above with required true, returning the interface.
OSTREL_API IPtr<IInterface> Dump_GetIntf(const IPtr<IDump>& dump, std::string_view name,
                                         const TGUID& iid);
OSTREL_API IPtr<IInterface> Dump_GetIntf(const IPtr<IDump>& dump, const TGUID& iid);
// Typed shorthand: `IPtr<IDump> nested = Dump_GetIntf<IDump>(dump, "Nested");`
template <class T>
IPtr<T> Dump_GetIntf(const IPtr<IDump>& dump, std::string_view name) {
  return Dump_GetIntf(dump, name, T::IID).template As<T>();
}

// ---------------------------------------------------------------------------------------
// Names and entries

// All names in entry order joined with `separator` (empty names leave no trace).
OSTREL_API AnsiString Dump_Names(const IPtr<IDump>& dump, std::string_view separator);
// As Dump_Names without the names that equal (ignoring case) one of `exclude`.
OSTREL_API AnsiString Dump_Names_Exclude(const IPtr<IDump>& dump,
                                         std::initializer_list<std::string_view> exclude,
                                         std::string_view separator);
OSTREL_API AnsiString Dump_Names_Exclude(const IPtr<IDump>& dump,
                                         const std::vector<AnsiString>& exclude,
                                         std::string_view separator);
// True as soon as one of the names exists; false for an empty list.
OSTREL_API bool Dump_ContainsNames(const IPtr<IDump>& dump, std::string_view names);
// Deletes each listed name that exists.
OSTREL_API void Dump_Remove(const IPtr<IDump>& dump, std::string_view names);
OSTREL_API void Dump_Clear(const IPtr<IDump>& dump);

// Copies values from source into dest (a merge): every entry in order when `names` is empty,
// else the listed names that source holds, in list order. True when something was copied;
// false for a null source.
OSTREL_API bool Dump_Assign(const IPtr<IDump>& dest, const IPtr<IDump>& source,
                            std::string_view names);
OSTREL_API bool Dump_Assign(const IPtr<IDump>& dest, const IPtr<IDump>& source,
                            std::initializer_list<std::string_view> names);
OSTREL_API bool Dump_Assign(const IPtr<IDump>& dest, const IPtr<IDump>& source,
                            const std::vector<AnsiString>& names);
// Whether every entry of a is in b with the same value. One-sided on purpose: names that
// only b holds are not looked at, and an empty a is the same as anything.
OSTREL_API bool Dump_SameValues(const IPtr<IDump>& a, const IPtr<IDump>& b);
// A new dump with the values of source; interfaces held as values are shared, not copied.
OSTREL_API void Dump_Clone(const IPtr<IDump>& source, IPtr<IDump>& dest);
// A new dump from a names list and values: with a variant array, name i (from 0) gets
// element i; otherwise the whole names text is one name and gets `values`. The new dump is
// handed out before it is filled, so on an array bounds error it keeps the earlier names.
OSTREL_API void Dump_ByValues(std::string_view names, const Variant& values, IPtr<IDump>& dump);

// ---------------------------------------------------------------------------------------
// Text forms
//
// The typed form: items "name:type=text" separated by tabs, type being the variant type
// code in decimal; dates as "dd-mm-yyyy hh:mm:ss.zzz". Interface values are left out; an
// array value has no text and raises the variant conversion error. A date outside the years
// 1 to 9999 (or no number at all) cannot be written so and raises EConvertError; floats that
// are no numbers are written "INF", "-INF" and "NAN" and read back as such.
// Nothing is quoted, so names with ":" and names or values with tabs or surrounding blanks
// do not survive a round trip.

OSTREL_API AnsiString Dump_ToStr(const IPtr<IDump>& dump);
// Only the listed names that the dump holds, in list order.
OSTREL_API AnsiString Dump_ToStr(const IPtr<IDump>& dump,
                                 std::initializer_list<std::string_view> names);
OSTREL_API AnsiString Dump_ToStr(const IPtr<IDump>& dump, const std::vector<AnsiString>& names);
// Sets the entries of a typed form into the dump. Malformed items are skipped; a value
// that cannot be converted to its type raises, leaving the entries read before it set.
OSTREL_API void Dump_FromStr(const IPtr<IDump>& dump, std::string_view text);

// The plain form for display and logging: "name=text" items joined with `separator`; an
// array gives "name array [n]" (n = upper bound + 1) and then "name[i]=text" per element.
OSTREL_API AnsiString Dump_AsString(const IPtr<IDump>& dump, std::string_view separator);
// Reads "name=value" items separated by `separator` as 8-bit strings; an item without "="
// sets its text as a name with an empty value.
OSTREL_API void Dump_FromString(const IPtr<IDump>& dump, std::string_view text, char separator);

// Copies values to other names by "source=target" pairs separated by ";". Absent sources
// are skipped and sources are kept; a pair without a target copies onto its own name.
OSTREL_API void Dump_Localize(const IPtr<IDump>& dump, std::string_view pairs);

// All values of a dump in one variant and back.
class OSTREL_API TkxDumpPr {
 public:
  TkxDumpPr() = delete;
  // Empty for an empty dump, the value itself for one entry, else a variant array (from 0)
  // of the values in entry order.
  static Variant GetValues(const IPtr<IDump>& dump);
  // Name i (from 0) of the ";"-list gets element i of a variant array, or the value itself
  // when it is not an array (every name then gets the same value).
  static void SetValues(const IPtr<IDump>& dump, std::string_view names, const Variant& values);
};

}  // namespace ostrel
