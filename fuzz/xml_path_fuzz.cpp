// Path queries on any text: FindXPath over a small fixed tree with an arbitrary path (names,
// slashes, filters with entities) must find an item or raise the library's Exception; it
// must never crash, hang or grow without bound. The input after a first NUL, when there is
// one, is also used as name, key attribute and key value of the key searches.
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/xml/Xdata.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

using namespace ostrel;

namespace {

constexpr std::string_view kTree =
    "<root><forms><form name=\"list\" id=\"&#49;\"><fields n=\"1\"/></form>"
    "<form name=\"main\" ID=\"5\"><fields n=\"2\"/>text<![CDATA[x]]></form></forms>"
    "<a><c/></a><a><b k=\"&quot;&amp;\"/></a><row id=\"&#53;\" kind=\"\xD1\xF7\xB8\xF2\"/>"
    "</root>";

IPtr<IXItem> Tree() {
  static IPtr<IXDoc> doc = [] {
    TMemoryStream stream;
    stream.Write(kTree.data(), static_cast<Integer>(kTree.size()));
    stream.SetPosition(0);
    IPtr<IXDoc> d;
    GetXDocIntf(stream, d);
    return d;
  }();
  return doc->get_Root();
}

// The n-th piece of text between NULs (empty when there are fewer).
std::string_view Piece(std::string_view text, int n) {
  for (; n > 0; --n) {
    const std::size_t nul = text.find('\0');
    if (nul == std::string_view::npos) return {};
    text.remove_prefix(nul + 1);
  }
  return text.substr(0, text.find('\0'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const IPtr<IXItem> root = Tree();
  try {
    IPtr<IXItem> found;
    if (FindXPath(root, Piece(input, 0), true, found) && !found) __builtin_trap();
  } catch (const Exception&) {
  }
  try {
    IPtr<IXItem> found;
    FindXItem(root, Piece(input, 1), Piece(input, 2), Piece(input, 3), true, found);
    SameXItem(root, Piece(input, 1), Piece(input, 2), Variant(AnsiString(Piece(input, 3))),
              true);
  } catch (const Exception&) {
  }
  return 0;
}
