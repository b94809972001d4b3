// A dump of fuzzed scalar values of every written type goes through the typed form and the
// plain form. Within the documented limits (names without ":", no tabs, no blanks at the
// ends) everything written must read back: the typed form with its type and value (floats by
// their text), the plain form as the same texts.
#include <FuzzUtil.h>

#include <ostrel/core/Dump.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Variants.h>

#include <cmath>
#include <cstdlib>

using namespace ostrel;

namespace {

// A text the forms can carry: no separator characters inside, nothing up to 32 at the ends.
AnsiString Carryable(std::string_view raw, std::string_view forbidden) {
  AnsiString s(raw);
  for (char& c : s)
    if (forbidden.find(c) != std::string_view::npos) c = '_';
  while (!s.empty() && static_cast<unsigned char>(s.front()) <= 32) s.erase(0, 1);
  while (!s.empty() && static_cast<unsigned char>(s.back()) <= 32) s.pop_back();
  return s;
}

Variant FuzzedValue(fuzz::Input& in, std::string_view forbidden) {
  switch (in.Byte() % 13) {
    case 0: return Variant();
    case 1: return Variant::Null();
    case 2: return Variant(in.Raw<std::int16_t>());
    case 3: return Variant(in.Raw<std::int32_t>());
    case 4: return Variant(in.Raw<float>());
    case 5: return Variant(in.Raw<double>());
    case 6: return Variant(Currency::FromRaw(in.Raw<Int64>()));
    case 7: return Variant::FromDate(in.Raw<double>());
    case 8: return Variant(in.Bool());
    case 9: return Variant(in.Raw<std::int8_t>());
    case 10: return Variant(in.Raw<std::uint16_t>());
    case 11: return Variant(in.Raw<Int64>());
    default: return Variant(Carryable(in.Text(), forbidden));
  }
}

// The typed form's date text.
constexpr std::string_view kDateText = "dd-mm-yyyy hh:nn:ss.zzz";

bool IsFloat(TVarType t) { return t == varSingle || t == varDouble; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  // Separators that no number, date or boolean text contains.
  constexpr std::string_view kSeparators = ";|#&!~^";
  char separator = kSeparators[in.Byte() % kSeparators.size()];
  const AnsiString valueForbidden = AnsiString("\t") + separator;
  const AnsiString nameForbidden = valueForbidden + ":=[";

  IPtr<IDump> dump = GetDumpIntf();
  while (!in.Empty()) {
    AnsiString name = Carryable(in.Text(), nameForbidden);
    Variant value = FuzzedValue(in, valueForbidden);
    if (name.empty()) continue;
    // A value the typed form cannot carry may be refused by the writer, with the library's
    // own error; such values stay out of the rest of the checks.
    IPtr<IDump> single = GetDumpIntf();
    single->set_ByName(name, value);
    if (!fuzz::Guarded([&] { Dump_ToStr(single); })) continue;
    dump->set_ByName(name, value);
  }

  // Typed form: what is written reads back (or the writer refuses with the library's error).
  AnsiString typed;
  if (fuzz::Guarded([&] { typed = Dump_ToStr(dump); })) {
    IPtr<IDump> back = GetDumpIntf();
    bool read = fuzz::Guarded([&] { Dump_FromStr(back, typed); });
    fuzz::Require(read, "typed form does not read back", typed);
    for (Integer i = 0; i < dump->get_Count(); ++i) {
      AnsiString name = dump->get_Name(i);
      Variant original = dump->get_Value(i);
      TVarType t = VarType(original);
      Variant got = back->get_Value(back->IndexOf(name));
      bool emptyText = (t == varString && VarToStr(original).empty());
      TVarType expected = emptyText ? varEmpty : t;
      fuzz::Require(VarType(got) == expected, "typed form changes the type", typed);
      if (t == varDate) {
        // Compared as the typed form writes them. Before 30.12.1899 a value within half a
        // millisecond of a whole number is rounded to it, as the classic runtime does, and so
        // written as that whole day's midnight, a day from the moment it stood for; what must
        // hold is that the text read back is written again as the same text.
        fuzz::Require(FormatDateTime(kDateText, VarToDateTime(got)) ==
                          FormatDateTime(kDateText, VarToDateTime(original)),
                      "typed form changes a date", typed);
      } else if (IsFloat(t)) {
        fuzz::Require(VarToStr(got) == VarToStr(original), "typed form changes a float", typed);
      } else if (t != varEmpty && t != varNull && !emptyText) {
        fuzz::Require(VarSameValue(got, original), "typed form changes a value", typed);
      }
    }
  }

  // Plain form: names and texts come back as strings.
  AnsiString plain;
  if (!fuzz::Guarded([&] { plain = Dump_AsString(dump, std::string_view(&separator, 1)); }))
    return 0;
  IPtr<IDump> back = GetDumpIntf();
  bool read = fuzz::Guarded([&] { Dump_FromString(back, plain, separator); });
  fuzz::Require(read, "plain form does not read back", plain);
  for (Integer i = 0; i < dump->get_Count(); ++i) {
    AnsiString name = dump->get_Name(i);
    AnsiString text = Carryable(VarToStr(dump->get_Value(i)), "");
    Integer j = back->IndexOf(name);
    fuzz::Require(j >= 0, "plain form loses a name", plain);
    fuzz::Require(VarToStr(back->get_Value(j)) == text, "plain form changes a text", plain);
  }
  return 0;
}
