// The date parsers on any text: StrToDate, StrToTime, StrToDateTime under the current
// settings, StrToDateFmt under a fuzzed short date format. A parsed date must format and read
// back to the same day.
#include <FuzzUtil.h>

#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/Sysserv.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  bool invariant = in.Bool();
  std::string_view format = in.Text();
  std::string_view text = in.Rest();
  TFormatSettingsGuard guard;
  if (invariant) FormatSettings = TFormatSettings::Invariant();

  TDateTime d = 0;
  if (TryStrToDate(text, d)) {
    TDateTime back = 0;
    AnsiString written = DateToStr(d);
    fuzz::Require(TryStrToDate(written, back) && back == d, "DateToStr does not read back",
                  written);
  }
  fuzz::Guarded([&] { StrToDate(text); });
  fuzz::Guarded([&] { StrToTime(text); });
  fuzz::Guarded([&] { StrToDateTime(text); });
  fuzz::Guarded([&] { StrToDateFmt(format, text); });
  return 0;
}
