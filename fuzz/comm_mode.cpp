// Mode strings: CommModeToDCB on any text, over a device block preset from the input. A text it
// takes gives line settings inside their ranges, which the port accepts as they are; a text it
// refuses leaves the block as it was.
#include <FuzzUtil.h>

#include <ostrel/devices/Kxcommport.h>

#include <cstring>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  TDCB dcb;
  dcb.DCBlength = sizeof dcb;
  dcb.BaudRate = in.Raw<Cardinal>();
  dcb.Flags = in.Raw<Cardinal>();
  dcb.ByteSize = static_cast<Byte>(5 + in.Byte() % 4);
  dcb.Parity = static_cast<Byte>(in.Byte() % 5);
  dcb.StopBits = static_cast<Byte>(in.Byte() % 3);
  const TDCB before = dcb;
  std::string_view text = in.Rest();
  if (!CommModeToDCB(text, dcb)) {
    fuzz::Require(std::memcmp(&dcb, &before, sizeof dcb) == 0,
                  "a refused mode string changed the block", text);
    return 0;
  }
  fuzz::Require(dcb.BaudRate > 0 && dcb.ByteSize >= 5 && dcb.ByteSize <= 8 &&
                    dcb.Parity <= ptSpace && dcb.StopBits <= sb2,
                "a mode string gave settings out of range", text);
  TkxCommPort port;
  fuzz::Require(fuzz::Guarded([&] { port.AssignDCB(dcb); }),
                "the port refused a parsed mode string", text);
  return 0;
}
