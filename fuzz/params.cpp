// Parameter strings: ParseParams and ReplaceParams on any text, with any marker, strict or
// not, over a dump holding a few values of different kinds (some unassigned).
#include <FuzzUtil.h>

#include <ostrel/services/Sysserv.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  char marker = static_cast<char>(in.Byte());
  bool strict = in.Bool();
  bool replace = in.Bool();
  IPtr<IDump> dump = GetDumpIntf();
  dump->set_ByName("a", Variant(in.Text()));
  dump->set_ByName("n", Variant(in.Raw<Integer>()));
  dump->set_ByName("f", Variant(in.Raw<double>()));
  dump->set_ByName("d", Variant::FromDate(in.Raw<double>()));
  dump->set_ByName("e", Variant());
  dump->set_ByName("z", Variant::Null());
  std::string_view text = in.Rest();
  fuzz::Guarded([&] {
    if (replace)
      ReplaceParams(text, dump, marker, strict);
    else
      ParseParams(text, dump, marker, strict);
  });
  return 0;
}
