// The dump's typed and plain text forms read from any bytes. Whatever was read is written
// again in the typed form, and that text must read back. An empty string comes back as
// an empty value, so the text may change once; from then on it must stay as it is.
#include <FuzzUtil.h>

#include <ostrel/core/Dump.h>
#include <ostrel/rtl/Variants.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  bool plain = in.Bool();
  char separator = static_cast<char>(in.Byte());
  std::string_view text = in.Rest();

  IPtr<IDump> dump = GetDumpIntf();
  fuzz::Guarded([&] {
    if (plain)
      Dump_FromString(dump, text, separator);
    else
      Dump_FromStr(dump, text);
  });
  AnsiString written;
  fuzz::Guarded([&] { written = Dump_ToStr(dump); });
  fuzz::Guarded([&] { Dump_AsString(dump, "\r\n"); });
  if (written.empty()) return 0;
  // Nothing is quoted: a name with ":" or a tab, or a value with a tab, cannot come back.
  for (Integer i = 0; i < dump->get_Count(); ++i) {
    const AnsiString name = dump->get_Name(i);
    if (name.find_first_of(":\t") != AnsiString::npos) return 0;
    if (VarToStr(dump->get_Value(i)).find('\t') != AnsiString::npos) return 0;
  }

  IPtr<IDump> again = GetDumpIntf();
  bool read = fuzz::Guarded([&] { Dump_FromStr(again, written); });
  fuzz::Require(read, "typed text written by Dump_ToStr does not read back", written);
  fuzz::Require(again->get_Count() == dump->get_Count(), "typed text loses entries", written);
  AnsiString second = Dump_ToStr(again);
  IPtr<IDump> third = GetDumpIntf();
  read = fuzz::Guarded([&] { Dump_FromStr(third, second); });
  fuzz::Require(read && Dump_ToStr(third) == second, "typed text changes on a second round",
                second);
  return 0;
}
