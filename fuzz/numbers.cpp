// The number parsers on any text. The raising and the non-raising forms must agree, and an
// integer read must write back to text that reads as the same integer.
#include <FuzzUtil.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/services/Sysserv.h>

using namespace ostrel;

namespace {

template <class T, class Try, class Raise>
void Agree(std::string_view text, Try tryParse, Raise raise) {
  T tried{};
  bool ok = tryParse(text, tried);
  T raised{};
  bool parsed = fuzz::Guarded([&] { raised = raise(text); });
  fuzz::Require(ok == parsed, "the raising and the Try form disagree", text);
  if (ok) fuzz::Require(tried == raised, "the raising and the Try form give other values", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  bool invariant = in.Bool();
  std::string_view text = in.Rest();
  TFormatSettingsGuard guard;
  if (invariant) FormatSettings = TFormatSettings::Invariant();

  Agree<Integer>(
      text, [](std::string_view s, Integer& v) { return TryStrToInt(s, v); },
      [](std::string_view s) { return StrToInt(s); });
  Agree<Int64>(
      text, [](std::string_view s, Int64& v) { return TryStrToInt64(s, v); },
      [](std::string_view s) { return StrToInt64(s); });
  Agree<Extended>(
      text, [](std::string_view s, Extended& v) { return TryStrToFloat(s, v); },
      [](std::string_view s) { return StrToFloat(s); });
  Agree<Currency>(
      text, [](std::string_view s, Currency& v) { return TryStrToCurr(s, v); },
      [](std::string_view s) { return StrToCurr(s); });

  Int64 i64 = 0;
  if (TryStrToInt64(text, i64))
    fuzz::Require(StrToInt64(IntToStr(i64)) == i64, "IntToStr does not read back", text);
  Currency c{};
  if (TryStrToCurr(text, c))
    fuzz::Require(StrToCurr(CurrToStr(c)) == c, "CurrToStr does not read back", text);

  fuzz::Guarded([&] { HexToInt(text); });
  HexToInt(text, 0);
  Extended x = 0;
  TryExtractNum(text, x);
  Str2Bool(text);
  bool b = false;
  TryStrToBool(text, b);
  return 0;
}
