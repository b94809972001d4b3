// Helpers of the XML tests: reading text into a fresh tree and writing a tree back.
#pragma once

#include <ostrel/xml/Xmlutils.h>

#include <algorithm>
#include <functional>
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

// A document read from the bytes of text.
inline IPtr<IXDoc> Doc(std::string_view text) {
  TMemoryStream stream;
  if (!text.empty()) stream.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  stream.SetPosition(0);
  IPtr<IXDoc> doc;
  GetXDocIntf(stream, doc);
  return doc;
}

inline std::string Write(const TXItem* item, bool withHeader = false) {
  return XDataText(item, withHeader);
}

// A stream over bytes that gives as many bytes per Read as nextChunk says (at least one; a
// TStream may give fewer than asked) and raises EReadError "chunked read failed" when a Read
// would reach raiseAt. highWater is the end of the bytes handed out so far.
class ChunkedStream : public TStream {
 public:
  ChunkedStream(std::string_view bytes, std::function<Integer()> nextChunk, Int64 raiseAt = -1)
      : fData(bytes), fNextChunk(std::move(nextChunk)), fRaiseAt(raiseAt) {}
  Integer Read(void* buffer, Integer count) override {
    const Int64 left = static_cast<Int64>(fData.size()) - fPos;
    if (count <= 0 || left <= 0) return 0;
    if (fRaiseAt >= 0 && fPos >= fRaiseAt) throw EReadError("chunked read failed");
    Int64 n = std::min<Int64>({count, std::max<Integer>(fNextChunk(), 1), left});
    if (fRaiseAt >= 0) n = std::min(n, fRaiseAt - fPos);
    fData.copy(static_cast<char*>(buffer), static_cast<std::size_t>(n),
               static_cast<std::size_t>(fPos));
    fPos += n;
    highWater = std::max(highWater, fPos);
    return static_cast<Integer>(n);
  }
  Integer Write(const void*, Integer) override { return 0; }
  Int64 Seek(Int64 offset, TSeekOrigin origin) override {
    const Int64 from = origin == soBeginning ? 0 : origin == soCurrent ? fPos : GetSize();
    return fPos = std::clamp<Int64>(from + offset, 0, GetSize());
  }
  Int64 GetSize() override { return static_cast<Int64>(fData.size()); }

  Int64 highWater = 0;

 private:
  std::string_view fData;
  std::function<Integer()> fNextChunk;
  Int64 fRaiseAt;
  Int64 fPos = 0;
};

// The tree in one line: name[=value][{attrs}](children...), "#text" as its value in quotes.
inline std::string Shape(const TXItem* item) {
  std::string s = item->get_IsText() ? "" : item->get_Name();
  if (!VarIsNull(item->get_Value()))
    s += (item->get_IsText() ? "'" : "='") + VarToStr(item->get_Value()) + "'" +
         (item->get_IsCDATA() ? "!" : "");
  if (!item->get_AttrText().empty()) s += "{" + AnsiString(item->get_AttrText()) + "}";
  if (item->get_Count() > 0) {
    s += "(";
    for (Integer i = 0; i < item->get_Count(); ++i) s += (i ? " " : "") + Shape(item->get_Items(i));
    s += ")";
  }
  return s;
}

}  // namespace ostrel::xmltest
