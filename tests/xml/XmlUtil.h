// Helpers of the XML tests: reading text into a fresh tree and writing a tree back.
#pragma once

#include <ostrel/xml/Xmlutils.h>

#include <memory>
#include <string>
#include <string_view>

namespace ostrel::xmltest {

inline void LoadText(TXItem* item, std::string_view text) {
  TMemoryStream stream;
  if (!text.empty()) stream.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  stream.SetPosition(0);
  LoadXData(item, stream);
}

inline std::unique_ptr<TXItem> Parse(std::string_view text) {
  auto root = std::make_unique<TXItem>();
  LoadText(root.get(), text);
  return root;
}

inline std::string Write(const TXItem* item, bool withHeader = false) {
  TMemoryStream stream;
  SaveXData(item, withHeader, stream);
  return std::string(static_cast<const char*>(stream.Memory()),
                     static_cast<std::size_t>(stream.GetSize()));
}

// The tree in one line: name[=value][{attrs}](children...), "#text" as its value in quotes.
inline std::string Shape(const TXItem* item) {
  std::string s = item->get_IsText() ? "" : item->get_Name();
  if (!VarIsNull(item->get_Value()))
    s += (item->get_IsText() ? "'" : "='") + VarToStr(item->get_Value()) + "'" +
         (item->get_IsCDATA() ? "!" : "");
  if (!item->get_AttrText().empty()) s += "{" + item->get_AttrText() + "}";
  if (item->get_Count() > 0) {
    s += "(";
    for (Integer i = 0; i < item->get_Count(); ++i)
      s += (i ? " " : "") + Shape(item->get_Items(i));
    s += ")";
  }
  return s;
}

}  // namespace ostrel::xmltest
