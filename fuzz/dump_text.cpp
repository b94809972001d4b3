// The dump's typed and plain text forms read from any bytes. Whatever was read is written
// again in the typed form, and that text must read back to the same text.
#include <FuzzUtil.h>

#include <ostrel/core/Dump.h>

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

  IPtr<IDump> again = GetDumpIntf();
  bool read = fuzz::Guarded([&] { Dump_FromStr(again, written); });
  fuzz::Require(read, "typed text written by Dump_ToStr does not read back", written);
  fuzz::Require(Dump_ToStr(again) == written, "typed text changes on a second round", written);
  return 0;
}
