// GUID text: any text either reads as a GUID that writes back to text reading as the same
// GUID, or raises the library's conversion error.
#include <FuzzUtil.h>

#include <ostrel/rtl/System.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  TGUID guid{};
  if (!fuzz::Guarded([&] { guid = StringToGUID(text); })) return 0;
  AnsiString written = GUIDToString(guid);
  TGUID back{};
  bool read = fuzz::Guarded([&] { back = StringToGUID(written); });
  fuzz::Require(read && back == guid, "GUIDToString does not read back", written);
  return 0;
}
