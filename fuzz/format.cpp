// Format with a fuzzed format string over one argument of every kind (fuzzed values): any
// format either formats or raises the library's format error, in bounded time and memory.
#include <FuzzUtil.h>

#include <ostrel/rtl/Format.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  bool invariant = in.Bool();
  Integer i = in.Raw<Integer>();
  Int64 i64 = in.Raw<Int64>();
  double f = in.Raw<double>();
  Currency c = Currency::FromRaw(in.Raw<Int64>());
  AnsiString s(in.Text());
  char ch = static_cast<char>(in.Byte());
  std::string_view fmt = in.Rest();
  const FormatArg args[] = {FormatArg(i),
                            FormatArg(i64),
                            FormatArg(f),
                            FormatArg(s),
                            FormatArg(ch),
                            FormatArg(c),
                            FormatArg(static_cast<const void*>(&i)),
                            FormatArg(Integer{7}),
                            FormatArg(static_cast<unsigned>(i))};
  const TFormatSettings& settings = invariant ? TFormatSettings::Invariant() : FormatSettings;
  fuzz::Guarded([&] { FormatBuf(fmt, args, std::size(args), settings); });
  return 0;
}
