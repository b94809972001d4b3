// GetCmdParams on an argument list: the bytes split at zero bytes, the first being the
// program.
#include <FuzzUtil.h>

#include <ostrel/services/Sysserv.h>

#include <vector>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  bool stripSwitch = in.Bool();
  std::vector<AnsiString> args;
  while (!in.Empty()) args.emplace_back(in.Until('\0'));
  IPtr<IDump> dump = GetDumpIntf();
  fuzz::Guarded([&] { GetCmdParams(dump, stripSwitch, args); });
  return 0;
}
