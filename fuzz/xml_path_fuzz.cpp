// Path queries on any text: FindXPath over a small fixed tree with an arbitrary path (names,
// slashes, filters with entities) must find an item or raise the library's Exception, the
// same with and without raising; it must never crash, hang or grow without bound. After a
// NUL come a name, a key attribute and a key value (NUL-separated) for the key searches.
#include <ostrel/xml/Xdata.h>

#include "FuzzUtil.h"

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input in(data, size);
  const std::string_view path = in.Until('\0');
  const std::string_view name = in.Until('\0'), keyAttr = in.Until('\0'), keyValue = in.Rest();
  const IPtr<IXItem> root = Tree();

  // The quiet and the raising search must agree: the same item, or an error exactly when
  // nothing was found.
  IPtr<IXItem> quiet, loud;
  bool found = false;
  const bool read = fuzz::Guarded([&] { found = FindXPath(root, path, false, quiet); });
  const bool raised = !fuzz::Guarded([&] { FindXPath(root, path, true, loud); });
  if (read)
    fuzz::Require(found ? !raised && loud.Get() == quiet.Get() && quiet : raised,
                  "quiet and raising FindXPath disagree", path);

  fuzz::Guarded([&] {
    IPtr<IXItem> item;
    FindXItem(root, name, keyAttr, keyValue, true, item);
    LocateXItem(root, name, keyAttr, Variant(AnsiString(keyValue)), true, item);
  });
  return 0;
}
