// FormatDateTime and FormatFloat with fuzzed patterns over fuzzed values.
#include <FuzzUtil.h>

#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Format.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  bool invariant = in.Bool();
  double date = in.Raw<double>();
  Extended value = in.Bool() ? static_cast<Extended>(in.Raw<double>()) : in.Raw<Integer>();
  std::string_view pattern = in.Rest();
  const TFormatSettings& settings = invariant ? TFormatSettings::Invariant() : FormatSettings;
  fuzz::Guarded([&] { FormatDateTime(pattern, date, settings); });
  fuzz::Guarded([&] { FormatFloat(pattern, value, settings); });
  return 0;
}
