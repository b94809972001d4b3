// The sorted attribute table.
#include <ostrel/xml/detail/XAttrTable.h>

#include <ostrel/xml/Xmlutils.h>

#include <algorithm>

namespace ostrel {

TXAttrTable::TXAttrTable(const TXItem& item) {
  Integer pos = 1, start = 0, len = 0;
  TEntry e;
  while (item.ExtractAttr(pos, e.Name, start, len, e.Value)) fEntries.push_back(std::move(e));
  // Stable, so that of several attributes with one name the first stays first, as get_Attr
  // finds it.
  std::stable_sort(fEntries.begin(), fEntries.end(), [](const TEntry& a, const TEntry& b) {
    return AnsiCompareText(a.Name, b.Name) < 0;
  });
}

Variant TXAttrTable::Get(std::string_view name) const {
  auto it = std::lower_bound(
      fEntries.begin(), fEntries.end(), name,
      [](const TEntry& e, std::string_view n) { return AnsiCompareText(e.Name, n) < 0; });
  if (it == fEntries.end() || !AnsiSameText(it->Name, name)) return Variant::Null();
  return Variant(TkxXMLPr::Decode(it->Value));
}

}  // namespace ostrel
