// The ID list's text form: any text with any separator; what the list writes reads back to
// the same IDs in the same order.
#include <FuzzUtil.h>

#include <ostrel/core/Sysclasses.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  char separator = static_cast<char>(in.Byte());
  IPtr<IkxIDList> list = GetIDListIntf();
  fuzz::Guarded([&] { list->SetAsString(in.Rest(), separator); });

  // A separator that can be part of a decimal number cannot separate them.
  bool numeric = (separator >= '0' && separator <= '9') || separator == '-' || separator == '+';
  if (numeric) return 0;
  AnsiString text = list->GetAsString(separator);
  IPtr<IkxIDList> back = GetIDListIntf();
  bool read = fuzz::Guarded([&] { back->SetAsString(text, separator); });
  fuzz::Require(read, "ID list text does not read back", text);
  fuzz::Require(back->IsEqual(list, true), "ID list text reads back other IDs", text);
  return 0;
}
