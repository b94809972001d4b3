// The attributes of one item sorted by name, for matching many keys against the item.
// TXItem::get_Attr scans the attribute text for every name asked, so matching n keys one by
// one costs n scans; the table scans once and answers each name by binary search.
#pragma once

#include <ostrel/xml/Xdoc.h>

#include <string_view>
#include <vector>

namespace ostrel {

class OSTREL_API TXAttrTable {
 public:
  // Reads the item's attribute text once (the format error of get_Attr when malformed). The
  // table is a copy: later changes of the item are not seen.
  explicit TXAttrTable(const TXItem& item);
  // As TXItem::get_Attr: the decoded value of the first attribute of that name, letter case
  // ignored, as a string; Null when there is none.
  Variant Get(std::string_view name) const;

 private:
  struct TEntry {
    AnsiString Name;
    AnsiString Value;  // still encoded: only the values asked for are decoded
  };
  std::vector<TEntry> fEntries;  // by name (AnsiCompareText), equal names in text order
};

}  // namespace ostrel
