// Attribute text of an element: any bytes as the text, then edits by name. A text that
// scans must keep every attribute the edit does not name, in its place and with its value;
// the edited one must read back as set, and a removed one must be gone.
#include <FuzzUtil.h>

#include <ostrel/xml/Xmlutils.h>

#include <string>
#include <utility>
#include <vector>

using namespace ostrel;

namespace {

using Attrs = std::vector<std::pair<AnsiString, AnsiString>>;  // name, decoded value

bool Scan(const TXItem& item, Attrs& attrs) {
  attrs.clear();
  return fuzz::Guarded([&] {
    Integer pos = 1, start = 0, len = 0;
    AnsiString name, value;
    Integer last = 0;
    while (item.ExtractAttr(pos, name, start, len, value)) {
      fuzz::Require(pos > last, "attribute scanning does not advance");
      last = pos;
      attrs.emplace_back(name, TkxXMLPr::Decode(value));
    }
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  TXItem item;
  item.set_AttrText(in.Text());
  Attrs before;
  if (!Scan(item, before)) {
    // A malformed text fails as a whole list too.
    IPtr<IDump> list;
    fuzz::Require(!fuzz::Guarded([&] { item.GetAttrList(list); }),
                  "a text that does not scan gives an attribute list", item.get_AttrText());
    return 0;
  }
  while (!in.Empty()) {
    const AnsiString name(in.Text());
    const int op = in.Byte() % 3;
    const AnsiString valueText(in.Text());
    Variant value;
    switch (op) {
      case 0: value = Variant(valueText); break;
      case 1: value = Variant::Null(); break;
      default: value = Variant(static_cast<Integer>(in.Raw<std::int32_t>()));
    }
    // A name that cannot be written back (blanks, "=", a quote, empty) makes its own text
    // malformed; only well-formed names are edited here.
    bool plain = !name.empty();
    for (char c : name) plain = plain && static_cast<unsigned char>(c) > 32 && c != '=' && c != '"';
    if (!plain) continue;
    if (!fuzz::Guarded([&] { item.set_Attr(name, value); })) return 0;
    Attrs after;
    fuzz::Require(Scan(item, after), "edited attribute text does not scan", item.get_AttrText());
    // The expected list: the first attribute of that name replaced in place or removed.
    Attrs expected = before;
    std::size_t at = 0;
    while (at < expected.size() && !AnsiSameText(expected[at].first, name)) ++at;
    if (VarIsNull(value)) {
      if (at < expected.size()) expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(at));
    } else if (at < expected.size()) {
      expected[at] = {name, VarToStr(value)};
    } else {
      expected.emplace_back(name, VarToStr(value));
    }
    fuzz::Require(after == expected, "attribute edit changed more than its attribute",
                  item.get_AttrText());
    before = std::move(after);
  }
  return 0;
}
