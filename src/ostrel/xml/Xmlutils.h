// XML text: the reader and the writer of the library's dialect, LoadXData and SaveXData on
// streams and files, and the conversions between variant values and XML text.
//
// The dialect: bytes of CP1251 as they stand (no encoding conversion; the declaration is
// skipped unread and always written as Windows-1251); elements, double-quoted attributes,
// text with the entities &amp; &lt; &gt; &quot; and &#N;, comments, CDATA sections. Names
// are taken verbatim (a colon is a name character). Reading is lenient: an input that ends
// inside open elements loads without error.
#pragma once

#include <ostrel/core/BufStream.h>
#include <ostrel/xml/Xdoc.h>

#include <memory>
#include <string_view>
#include <vector>

namespace ostrel {

// Resource strings of the reader.
inline constexpr auto _SErrXMLFormat = Cp1251(u8"Ошибка в формате XML.");
inline constexpr auto _SErrXMLNoEndTag = Cp1251(u8"Отсутствует завершающий таг \"</%s>\"");
inline constexpr auto _SErrXMLEndTagFound = Cp1251(u8"Обнаружен завершающий таг \"<%s>\"");
// Declared with the reader's messages; the reader never needs it.
inline constexpr auto _SErrXMLNoHeader = Cp1251(u8"Отсутствует таг заголовка");
inline constexpr auto _SErrXMLLoadFile = Cp1251(u8"Загрузка XML файла:");

// The declaration line the writer puts first.
inline constexpr std::string_view XML_HEADER_WIN1251 =
    "<?xml version=\"1.0\" encoding=\"Windows-1251\"?>";

// A reader error: the message is "Ошибка в формате XML." with, when there is a detail, two
// carriage returns and the detail; Line and Column (1-based, in bytes; CR, LF and CR LF end
// a line) tell where in the input it was found. A failed file load keeps the class and the
// position and only puts the file name in front of the message.
class OSTREL_API EXMLError : public Exception {
 public:
  EXMLError(std::string_view message, Int64 line, Int64 column)
      : Exception(message), fLine(line), fColumn(column) {}
  const char* ClassName() const noexcept override { return "EXMLError"; }
  Int64 Line() const noexcept { return fLine; }
  Int64 Column() const noexcept { return fColumn; }

 private:
  Int64 fLine;
  Int64 fColumn;
};

// Entity encoding and decoding of XML text.
class OSTREL_API TkxXMLPr {
 public:
  TkxXMLPr() = delete;
  // '"' &quot;, '&' &amp;, '<' &lt;, '>' &gt;; codes below 32 as &#N;, except that
  // without strict (element text) CR and LF stay as they are. Attribute values are
  // encoded strictly.
  static AnsiString Encode(std::string_view s, bool strict);
  // &lt; &gt; &quot; &amp; and &#N; (decimal, the low 8 bits of the number; what is not a
  // number gives the digits read so far, or 0). An "&" followed by another letter raises
  // EConvertError "XEncode: error encode character (&x)"; a name that starts like a known
  // one but is not one (&apos;) is kept as it stands.
  static AnsiString Decode(std::string_view s);
};

// A value as XML text: integers in decimal, floats and currency by FLOAT2XML, dates by
// DT2XML, booleans by BOOL2XML, strings encoded (strictly when strict). Other types raise
// "Var2XML: invalid variant type conversion".
OSTREL_API AnsiString Var2XML(const Variant& value, bool strict);
// XML text as a typed value: Null stays Null; varSmallint, varInteger, varByte parse as
// integers, varSingle, varDouble, varCurrency by XML2FLOAT, varDate by XML2DT, varBoolean
// by XML2BOOL; any other type gives the value unchanged.
OSTREL_API Variant XMLCast(const Variant& value, TVarType varType);
// "yyyy-mm-dd" for a date without time, else "yyyy-mm-ddThh:nn:ss.zzz". A value that is no
// moment of the years 1 to 9999 (NaN and the infinities included) raises EConvertError
// rather than being written as a date that reads back as another or not at all.
OSTREL_API AnsiString DT2XML(TDateTime value);
// The shortest general float text with "." as decimal separator.
OSTREL_API AnsiString FLOAT2XML(Extended value);
// "true" or "false".
OSTREL_API AnsiString BOOL2XML(bool value);
// 0 for Null; the text (its first "T" read as a blank) as date and time "yyyy-mm-dd
// hh:nn:ss.zzz"; anything else raises "XML2DT Error".
OSTREL_API TDateTime XML2DT(const Variant& value);
// 0 for Null; the text as a float with "." (EConvertError when it is none).
OSTREL_API Extended XML2FLOAT(const Variant& value);
// Whether the text is "true" in any letter case.
OSTREL_API bool XML2BOOL(const Variant& value);

// Reads XML text into items. A memory stream is read in place; any other stream through a
// window of kBufSize bytes that moves along it.
class OSTREL_API TXReader {
 public:
  static constexpr Integer kBufSize = 64 * 1024;

  // Reads from the stream's current position; the stream is not owned and must outlive the
  // reader. When the reader goes, the stream is set just after the last byte it took (a
  // stream that cannot seek stays where its reads left it).
  explicit TXReader(TStream& stream);
  ~TXReader();
  TXReader(const TXReader&) = delete;
  TXReader& operator=(const TXReader&) = delete;

  // Reads one element into item: the first start tag gives the item its name and attribute
  // text (it keeps its existing children and value), then its content up to its end tag.
  // Nothing after that element is read. An input without an element leaves item as it is.
  // An error leaves what was read so far in the tree.
  void ReadItem(TXItem* item);
  // The next tag after blanks and comments: its name (a "/" first for an end tag), its
  // attribute text and whether it closes itself. An empty name at the end of the input.
  void ReadTag(AnsiString& name, AnsiString& attrText, bool& selfClosing, bool& endTag);
  // Text up to the next tag: entities decoded, comments skipped, CDATA sections raw (and
  // then cdata is set). Null when there is none.
  void ReadValue(Variant& value, bool& cdata);
  // Skips characters with codes up to 32; a comment, when one comes next.
  void SkipSpaces();
  bool SkipComment();
  // Raises EXMLError at the current position, with the detail when it is not empty.
  [[noreturn]] void RaiseException(std::string_view detail);

  // The stream position of the next byte to be read.
  Int64 Position() const noexcept { return fWindowPos + (fCur - fWindow); }

 private:
  // The bytes from the position on that the window holds (empty when used up: Refill brings
  // the next ones), and moving over them.
  std::string_view Buffered() const noexcept {
    return std::string_view(fCur, static_cast<std::size_t>(fEnd - fCur));
  }
  void MovePos(std::size_t count) noexcept { fCur += count; }
  // Whether no byte is left (also when the stream gives fewer bytes than its size).
  bool AtEnd() { return fCur == fEnd && !Refill(); }
  // Moves the unread bytes to the front of the window and reads more behind them; false when
  // the stream gives none.
  bool Refill();
  // Whether the text comes next, Latin letters compared without case; a match is moved past
  // when advance is set.
  bool Match(std::string_view text, bool advance);
  // ReadValue into a string, empty for none; with dropLeading, without its leading blanks.
  void ReadText(AnsiString& text, bool& cdata, bool dropLeading);
  // Whether the bytes ahead may be "<!" (false only when they surely are not).
  bool MayBeBang();
  // A tag as ReadTag reads it, its name and attribute text as views that last until the
  // next read.
  struct Tag {
    std::string_view name, attrText;
    bool selfClosing = false, endTag = false;
  };
  void ReadTagView(Tag& tag);
  // Raises EXMLError, counting line and column up to position by reading the input again.
  [[noreturn]] void RaiseAt(Int64 position, std::string_view detail);

  TStream& fSource;
  std::unique_ptr<char[]> fOwned;  // the window of a stream that is not read in place
  const char* fWindow = nullptr;   // the window: fWindow .. fEnd, the position at fCur
  const char* fCur = nullptr;
  const char* fEnd = nullptr;
  Int64 fWindowPos = 0;  // the stream position of fWindow
  bool fInPlace = false;
  bool fExhausted = false;  // the stream gave no more bytes
  Int64 fStart;             // where reading began, for counting lines
  Int64 fTagPos = 0;        // where the last tag began
  AnsiString fText;         // text and entity buffers, reused from element to element
  AnsiString fEntity;
  AnsiString fTagName;  // a tag that goes on past the window's end, gathered
  AnsiString fTagAttr;
  // The block that takes the attribute texts and values of the items read; each new block is
  // twice as large as the one before, up to a limit, so that a small piece read costs little.
  detail::TXTextBlock* fBlock = nullptr;
  std::size_t fBlockSize = 256;
  // Room for size bytes at the end of the block, a new block when there is none.
  char* BlockRoom(std::size_t size);
  void StoreAttrText(TXItem* item, std::string_view text);
  // Text read before a tag: to the open element itself when the tag ends it and it has no
  // children, else to a new "#text" child.
  void StoreText(std::string_view text, bool cdata, bool endTag);
  // The elements open while an item is read, each with its count of children (those it had
  // before and those read), and the children read for each (fChildren[i] for fOpen[i]).
  struct Open {
    TXItem* item;
    Integer count;
  };
  std::vector<Open> fOpen;
  std::vector<std::vector<TXItem*>> fChildren;
  // A new child of the innermost open element.
  TXItem* NewChild();
  // Memory for the next items, taken from the pool several at a time.
  std::vector<void*> fBlocks;
  std::size_t fBlockBatch = 4;
  // Puts the innermost open element's children read into its list, and ends it. Raises only
  // when raise is set and memory runs out for an element that had children before.
  void CloseOpen(bool raise);
};

// Writes items as indented XML text (two blanks a level, CR LF after every line), gathered
// in a buffer that goes to the stream in pieces of just over 4096 bytes.
class OSTREL_API TXWriter {
 public:
  explicit TXWriter(TStream& stream);
  TXWriter(const TXWriter&) = delete;
  TXWriter& operator=(const TXWriter&) = delete;

  void WriteHeader();
  void WriteLn(std::string_view text, Integer level);
  // The item and its subtree from level 0. Text nodes write their text alone; an item
  // without children and without text writes "<name .../>"; the value of an item with
  // children is not written.
  void WriteItem(const TXItem* item);
  void FlushBuffer();

 private:
  void EndLine();
  TStream& fStream;
  AnsiString fBuffer;
};

// Reads one element from the stream into item.
OSTREL_API void LoadXData(TXItem* item, TStream& stream);
// Reads the file (opened denying writes to others) into item, inside a trace span "file",
// "load", "LoadXData:<name>", <full name>; then, when callFix is set and XFixProc is
// assigned, calls XFixProc(item, fileName). Any error gets the message "Загрузка XML
// файла:" CR <full file name> CR CR <its message> and is raised again as it was.
OSTREL_API void LoadXData(TXItem* item, std::string_view fileName, bool callFix);
// Writes item (and the declaration line first when withHeader) to the stream.
OSTREL_API void SaveXData(const TXItem* item, bool withHeader, TStream& stream);
// The same as text: what SaveXData writes to a stream.
OSTREL_API AnsiString XDataText(const TXItem* item, bool withHeader);
// The same to a file, written to a temporary file beside it first, which then replaces the
// file: a failure leaves an existing file as it was.
OSTREL_API void SaveXData(const TXItem* item, bool withHeader, std::string_view fileName);

// Called after a file load with LoadXData(..., callFix = true) when assigned (nothing in the
// library assigns it); an application sets it to post-process its loaded files.
using TXFixProc = void (*)(TXItem* item, std::string_view fileName);
OSTREL_API extern TXFixProc XFixProc;

}  // namespace ostrel
