// Numbers and amounts in words: on any double, in both dictionaries and currencies, and on
// any text given as an amount (digits or not).
#include <FuzzUtil.h>

#include <ostrel/services/Sysserv.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const char* lang = in.Bool() ? "RU" : "EN";
  const char* currency = in.Bool() ? "RUR" : "USD";
  int decimals = static_cast<int>(in.Range(-2, 12));
  TSex sex = static_cast<TSex>(in.Byte() % 3);
  double value = in.Raw<double>();
  std::string_view amount = in.Rest();

  fuzz::Guarded([&] { NumToText(lang, value, sex); });
  fuzz::Guarded([&] { CrcToText(lang, currency, value, decimals); });
  fuzz::Guarded([&] { FloatToText(value, sex); });
  fuzz::Guarded([&] { FloatToTextSymb(value, decimals, "a|b|c|d:m", "e|f|g|h:f"); });
  fuzz::Guarded([&] { AmountToText(lang, currency, amount, decimals); });
  return 0;
}
