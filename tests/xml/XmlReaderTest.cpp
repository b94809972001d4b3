// The reader: the dialect's rules as trees read from text, every error with its message and
// position, hostile input, and the value conversions and entity coding it relies on.
#include "XmlUtil.h"

#include <TestUtil.h>

#include <ostrel/rtl/DateTime.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#if defined(__linux__)
#include <unistd.h>
#endif
#include <random>
#include <string>
#include <vector>

namespace ostrel {
namespace {

using testutil::MessageOf;
using xmltest::ChunkedStream;
using xmltest::Parse;
using xmltest::Shape;

// Reads the text into a fresh item: the tree's shape, or "!" and the error's message.
std::string Outcome(std::string_view text) {
  auto root = std::make_unique<TXItem>();
  try {
    xmltest::LoadText(root.get(), text);
  } catch (const Exception& e) {
    return "!" + e.Message();
  }
  return Shape(root.get());
}

const std::string kFormat = Cp1251(u8"Ошибка в формате XML.").Str();

// Input text and the tree it reads as (or "!" and the error's message).
struct DialectCase {
  std::string_view text;
  std::string shape;
};
const DialectCase kDialect[] = {
    // clang-format off
    {"<a>text</a>", "a='text'"}, {"<a>x<b/>y</a>", "a('x' b 'y')"}, {"<a>  </a>", "a"},
    {"<a>\r\n <b/> \t</a>", "a(b)"}, {"<a x=\"1>2\"/>", "a{x=\"1>2\"}"}, {"<a x='1'/>", "a{x='1'}"},
    {"<a></A>", "a"}, {"<a>&#65;&lt;&gt;&quot;&amp;</a>", "a='A<>\"&'"},
    {"<a>&apos;&ltx;</a>", "a='&apos;&ltx;'"}, {"<a>&#321;&#-1;</a>", "a='A\xFF'"},
    {"<a><b>", "a(b)"}, {"<a><b>open text", "a(b('open text'))"}, {"", ""},
    {"  <!-- only a comment -->  ", ""},
    {"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- c --><r/>", "r"}, {"<r/><second/>", "r"},
    {"<r>a<!-- c -->b</r>", "r='ab'"}, {"<r><![CDATA[ <raw> & ]]></r>", "r='<raw> &'!"},
    {"<r><![CDATA[x<y]]></r>", "r='x<y'!"}, {"<r><![cdata[x]]>y</r>", "r='xy'!"},
    {"<r><![CDATA[unterminated", "r('unterminated'!)"}, {"<r><!-- unterminated", "r"},
    {"<r a=\"1\" b = \"2\" />", "r{a=\"1\" b = \"2\" }"}, {"<r a=\"1\"/ >", "r{a=\"1\"/ }"},
    {"<!DOCTYPE x><a/>", "!DOCTYPE{x}(a)"}, {"<ns:r\tx=\"1\"></ns:r>", "ns:r{x=\"1\"}"},
    {"<r>text<b/></r>", "r('text' b)"}, {"<r><b/>tail</r>", "r(b 'tail')"},
    {"<r>&#65</r>", "r('A')"}, {"<r>&#65<b/>;x</r>", "r='Ax'"},
    {"<a\"b c\">x</a\"b>", "!" + kFormat},  // the quote in the end tag opens
    {std::string_view("<r>\0\x01x</r>", 10), "r='x'"}, {"<>", ""},
    {"<r><?xml v?>x</r>", "!" + kFormat + "\r\r< expected"},
    // Brackets in quoted values of a tag longer than the reader's 16-byte steps.
    {"<r a=\"0123456789abcdef>\" b=\"<x>\" c=\"\"/>", "r{a=\"0123456789abcdef>\" b=\"<x>\" c=\"\"}"},
    {"<r a=\"0123456789abcdef\" b=\"x\"<c/>", "!" + kFormat},
    // clang-format on
};

TEST(XmlReader, DialectAsTrees) {
  for (const auto& c : kDialect) EXPECT_EQ(Outcome(c.text), c.shape) << c.text;
}

TEST(XmlReader, ErrorsWithTheirMessages) {
  struct Case {
    std::string_view text;
    std::string detail;
  };
  const Case cases[] = {
      // clang-format off
      {"text<a/>", "< expected"}, {"<a b=\"1\"<c/>", ""},
      {"<a>x</b>", Cp1251(u8"Отсутствует завершающий таг \"</a>\"")},
      {"</a>", Cp1251(u8"Обнаружен завершающий таг \"</a>\"")}, {"<a>&nbsp;</a>", ""},
      {"<a x=\"unterminated/>", ""}, {"<a", ""}, {"<a><!DOCTYPE b></a>", ""},
      // clang-format on
  };
  for (const auto& c : cases) {
    const std::string expected =
        c.text == "<a>&nbsp;</a>"
            ? "!XEncode: error encode character (&n)"
            : "!" + kFormat + (c.detail.empty() ? "" : "\r\r" + std::string(c.detail));
    EXPECT_EQ(Outcome(c.text), expected) << c.text;
  }
  EXPECT_EQ(MessageOf<EConvertError>([] { Parse("<a>x&</a>"); }),
            "XEncode: error encode character (&<)");
  EXPECT_EQ(MessageOf<EConvertError>([] { Parse("<a>x&"); }),
            "XEncode: error encode character (&)");
  EXPECT_EQ(MessageOf<EConvertError>([] { Parse("<a>&LT;</a>"); }),
            "XEncode: error encode character (&L)");
}

struct PlaceCase {
  std::string_view text;
  Int64 line, column;
};
const PlaceCase kErrorPlaces[] = {
    {"x", 1, 1},           {"<a>\r\n  <b>\r\n  </c>", 3, 3},
    {"<a>\n\n<b <", 3, 4}, {"<a>\r\r\n</b>", 3, 1},
    {"  \t</top>", 1, 4},
};

TEST(XmlReader, ErrorsTellLineAndColumn) {
  for (const auto& c : kErrorPlaces) {
    try {
      Parse(c.text);
      ADD_FAILURE() << "no error for " << c.text;
    } catch (const EXMLError& e) {
      EXPECT_EQ(testutil::Join(e.Line(), e.Column()), testutil::Join(c.line, c.column)) << c.text;
    }
  }
}

TEST(XmlReader, ErrorKeepsWhatWasRead) {
  auto root = std::make_unique<TXItem>();
  EXPECT_THROW(xmltest::LoadText(root.get(), "<a><b k=\"1\">x</b><c>y</d></a>"), EXMLError);
  EXPECT_EQ(Shape(root.get()), "a(b='x'{k=\"1\"} c='y')");
}

TEST(XmlReader, TopElementReusesTheItem) {
  auto root = Parse("<old/>");
  root->set_Value(Variant("v"));
  root->Add()->set_Name("kept");
  xmltest::LoadText(root.get(), "<new a=\"1\"><c/></new>");
  EXPECT_EQ(Shape(root.get()), "new='v'{a=\"1\"}(kept c)");
  xmltest::LoadText(root.get(), "   ");
  EXPECT_EQ(Shape(root.get()), "new='v'{a=\"1\"}(kept c)");
  // A value read as text stays when the item is read again, with or without attributes.
  auto leaf = Parse("<a x=\"1\">text</a>");
  xmltest::LoadText(leaf.get(), "<b/>");
  EXPECT_EQ(Shape(leaf.get()), "b='text'");
  xmltest::LoadText(leaf.get(), "<c y=\"2\"/>");
  EXPECT_EQ(Shape(leaf.get()), "c='text'{y=\"2\"}");
}

TEST(XmlReader, StreamOfFewerBytesThanItsSizeEnds) {
  // A stream that claims more than it gives: reading must stop where its bytes stop.
  class ShortStream : public TStream {
   public:
    Integer Read(void* buffer, Integer count) override {
      const Integer n = std::min<Integer>(count, static_cast<Integer>(data.size() - pos));
      data.copy(static_cast<char*>(buffer), static_cast<std::size_t>(n), pos);
      pos += static_cast<std::size_t>(n);
      return n;
    }
    Integer Write(const void*, Integer) override { return 0; }
    Int64 Seek(Int64 offset, TSeekOrigin origin) override {
      const Int64 from = origin == soBeginning ? 0 : origin == soCurrent ? Int64(pos) : GetSize();
      return static_cast<Int64>(
          pos = static_cast<std::size_t>(std::clamp<Int64>(from + offset, 0, Int64(data.size()))));
    }
    Int64 GetSize() override { return static_cast<Int64>(data.size()) + 100; }
    std::string data = "<a><b>x";
    std::size_t pos = 0;
  } stream;
  TXItem root;
  LoadXData(&root, stream);
  EXPECT_EQ(Shape(&root), "a(b('x'))");
}

// What a load from the stream gives: the tree, or the error's message (with its place for a
// format error) and the tree read up to it.
std::string OutcomeFrom(TStream& stream) {
  TXItem root;
  try {
    LoadXData(&root, stream);
  } catch (const EXMLError& e) {
    return "!" + e.Message() + " @" + testutil::Join(e.Line(), e.Column()) + " " + Shape(&root);
  } catch (const Exception& e) {
    return "!" + e.Message() + " " + Shape(&root);
  }
  return Shape(&root);
}

// Items with an entity, a comment and CDATA each, several of the reader's windows long, so
// that every kind of markup also meets a window's end somewhere.
std::string ThousandItems() {
  std::string s = "<?xml version=\"1.0\"?>\r\n<list>\r\n";
  for (int i = 0; i < 3000; ++i)
    s += "  <item n=\"" + std::to_string(i) + "\">a &amp; b<!-- c " + std::to_string(i) +
         " --><![CDATA[x<y]]]]></item>\r\n";
  return s + "</list>\r\n";
}

constexpr Integer kWhole = 1 << 30;

TEST(XmlReader, ChunksOfTheStreamChangeNothing) {
  std::vector<std::string> corpus;
  for (const auto& c : kDialect) corpus.emplace_back(c.text);
  for (const auto& c : kErrorPlaces) corpus.emplace_back(c.text);
  corpus.push_back(ThousandItems());
  std::mt19937 rng(9);
  for (const std::string& text : corpus) {
    ChunkedStream whole(text, [] { return kWhole; });
    const std::string expected = OutcomeFrom(whole);
    for (Integer chunk = 1; chunk <= 17; ++chunk) {
      ChunkedStream stream(text, [=] { return chunk; });
      EXPECT_EQ(OutcomeFrom(stream), expected) << chunk << " bytes a read: " << text.substr(0, 80);
    }
    for (int round = 0; round < 4; ++round) {
      ChunkedStream stream(text, [&] { return static_cast<Integer>(1 + rng() % 300); });
      EXPECT_EQ(OutcomeFrom(stream), expected) << "random reads: " << text.substr(0, 80);
    }
  }
  // Each document again behind blanks, so that the reader's window ends at each of its first
  // bytes: read where it lies in memory the window never ends, through a stream it does.
  std::vector<std::string_view> texts;
  for (const auto& c : kDialect) texts.push_back(c.text);
  for (const auto& c : kErrorPlaces) texts.push_back(c.text);
  for (const std::string_view text : texts) {
    for (std::size_t cut = 1; cut <= std::min<std::size_t>(text.size(), 40); ++cut) {
      const std::string padded = std::string(TXReader::kBufSize - cut, ' ') + std::string(text);
      TMemoryStream memory;
      memory.WriteBuffer(padded.data(), static_cast<Integer>(padded.size()));
      memory.SetPosition(0);
      ChunkedStream stream(padded, [] { return kWhole; });
      EXPECT_EQ(OutcomeFrom(stream), OutcomeFrom(memory)) << cut << ": " << text;
    }
  }
}

TEST(XmlReader, StreamErrorReachesTheCaller) {
  const std::string text = ThousandItems();
  const Int64 size = static_cast<Int64>(text.size());
  for (Int64 at : {Int64(0), Int64(1), Int64(TXReader::kBufSize - 1), Int64(TXReader::kBufSize),
                   size / 2, size - 1})
    for (Integer chunk : {Integer(1), Integer(7), kWhole}) {
      ChunkedStream stream(
          text, [=] { return chunk; }, at);
      TXItem root;
      EXPECT_EQ(MessageOf<EReadError>([&] { LoadXData(&root, stream); }), "chunked read failed")
          << "at " << at << ", " << chunk << " bytes a read";
    }
  // A document is made only from a whole stream; an item's load raises the same error.
  ChunkedStream stream(
      text, [] { return kWhole; }, size / 2);
  IPtr<IXDoc> doc;
  EXPECT_THROW(GetXDocIntf(stream, doc), EReadError);
  EXPECT_FALSE(doc);
  stream.Seek(0, soBeginning);
  IPtr<IXDoc> empty;
  GetXDocIntf(std::string_view(), empty);
  EXPECT_THROW(empty->get_Root()->LoadFromStream(stream), EReadError);
  // An error past what the reader needs is never met: it reads one element and stops.
  const std::string longer = text + std::string(TXReader::kBufSize + 10000, ' ') + "<next/>";
  ChunkedStream tail(
      longer, [] { return kWhole; }, size + TXReader::kBufSize + 9000);
  EXPECT_EQ(OutcomeFrom(tail), [&] {
    ChunkedStream whole(text, [] { return kWhole; });
    return OutcomeFrom(whole);
  }());
}

TEST(XmlReader, HostileInput) {
  // Deep nesting reads and frees without recursion.
  const int depth = 1000000;
  std::string deep;
  for (int i = 0; i < depth; ++i) deep += "<e>";
  deep += "leaf";
  for (int i = 0; i < depth; ++i) deep += "</e>";
  {
    auto root = Parse(deep);
    const TXItem* item = root.get();
    int levels = 1;
    while (item->get_Count() > 0) item = item->get_Items(0), ++levels;
    EXPECT_EQ(levels, depth);
    EXPECT_EQ(VarToStr(item->get_Value()), "leaf");
    TXItem copy;
    copy.Assign(root.get());
    EXPECT_EQ(copy.get_Count(), 1);
  }
  // Unclosed deep nesting loads too.
  EXPECT_EQ(Parse(deep.substr(0, 3 * depth))->get_Count(), 1);
  // A huge character reference keeps its low 8 bits.
  EXPECT_EQ(Outcome("<a>&#" + std::string(5000, '9') + ";</a>"), "a='\xFF'");
  // An "&" without ";" swallows the rest.
  EXPECT_EQ(Outcome("<a>&#65 <b/> and more"), "a('A')");
  // A long text of entities the reader takes one at a time costs what its length costs:
  // the end of the text is not searched for again after each of them.
  std::string entities;
  for (int i = 0; i < 400000; ++i) entities += "&apos;";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(VarToStr(Parse("<a>" + entities + "</a>")->get_Value()), entities);
  EXPECT_LT(std::chrono::steady_clock::now() - start, testutil::LinearTimeBudget());
  // Binary garbage gives a clear error or a tree, never a crash.
  std::string garbage;
  for (int i = 0; i < 5000; ++i) garbage += static_cast<char>((i * 7919) % 256);
  EXPECT_NE(Outcome("<a>" + garbage), "");
}

TEST(XmlCoding, EncodeAndDecode) {
  EXPECT_EQ(TkxXMLPr::Encode("a\"&<>'\t\r\nb", false), "a&quot;&amp;&lt;&gt;'&#9;\r\nb");
  EXPECT_EQ(TkxXMLPr::Encode("a\"&<>'\t\r\n\x01\x1F\xE9", true),
            "a&quot;&amp;&lt;&gt;'&#9;&#13;&#10;&#1;&#31;\xE9");
  std::string all;
  for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
  EXPECT_EQ(TkxXMLPr::Decode(TkxXMLPr::Encode(all, true)), all);
  EXPECT_EQ(TkxXMLPr::Decode("x&#0;y"), std::string("x\0y", 3));
  EXPECT_EQ(TkxXMLPr::Decode("&quot&amp;"), "&quot&");
  // Every byte at every place of runs longer than the writer's sixteen-byte steps, both ways,
  // against the rule written out byte by byte.
  auto model = [](std::string_view s, bool strict) {
    std::string out;
    for (unsigned char c : s) {
      if (c == '"')
        out += "&quot;";
      else if (c == '&')
        out += "&amp;";
      else if (c == '<')
        out += "&lt;";
      else if (c == '>')
        out += "&gt;";
      else if (c < 32 && (strict || (c != '\r' && c != '\n')))
        out += "&#" + std::to_string(c) + ";";
      else
        out += static_cast<char>(c);
    }
    return out;
  };
  for (int c = 0; c < 256; ++c)
    for (std::size_t at : {0, 7, 15, 16, 17, 31, 40}) {
      std::string s(41, 'x');
      s[at] = static_cast<char>(c);
      for (bool strict : {false, true})
        ASSERT_EQ(TkxXMLPr::Encode(s, strict), model(s, strict)) << c << " at " << at;
    }
}

TEST(XmlValues, ConversionsBothWays) {
  const TDateTime day = EncodeDate(2024, 3, 1);
  const TDateTime moment = day + EncodeTime(12, 30, 5, 250);
  EXPECT_EQ(DT2XML(day), "2024-03-01");
  EXPECT_EQ(DT2XML(moment), "2024-03-01T12:30:05.250");
  EXPECT_EQ(XML2DT(Variant(DT2XML(day))), day);
  EXPECT_NEAR(XML2DT(Variant(DT2XML(moment))), moment, OneMillisecond / 10);
  EXPECT_EQ(MessageOf([] { XML2DT(Variant("01.03.2024")); }), "XML2DT Error");
  EXPECT_EQ(XML2DT(Variant::Null()), 0);
  EXPECT_EQ(FLOAT2XML(1234.5), "1234.5");
  EXPECT_EQ(FLOAT2XML(0.1L), "0.1");
  EXPECT_EQ(static_cast<double>(XML2FLOAT(Variant("-12.25"))), -12.25);
  EXPECT_THROW(XML2FLOAT(Variant("12,25")), EConvertError);
  EXPECT_EQ(testutil::Join(BOOL2XML(true), BOOL2XML(false), XML2BOOL(Variant("TRUE")),
                           XML2BOOL(Variant("1")), XML2BOOL(Variant::Null())),
            "true false 1 0 0");
  struct Case {
    Variant value;
    std::string text;
  };
  const Case cases[] = {
      // clang-format off
      {Variant(std::int16_t(-5)), "-5"}, {Variant(Integer(2147483647)), "2147483647"},
      {Variant(Byte(200)), "200"}, {Variant(Word(65535)), "65535"}, {Variant(2.5), "2.5"},
      {Variant(Currency::FromRaw(123456)), "12.3456"}, {Variant::FromDate(day), "2024-03-01"},
      {Variant(true), "true"}, {Variant("a<\"b\">\t"), "a&lt;&quot;b&quot;&gt;&#9;"},
      {Variant(u"щ"), Cp1251(u8"щ")},
      // clang-format on
  };
  for (const auto& c : cases) EXPECT_EQ(Var2XML(c.value, true), c.text) << c.text;
  for (const Variant& bad : {Variant(), Variant::Null(), Variant(Int64(1)), VarArrayOf({1})})
    EXPECT_EQ(MessageOf([&] { Var2XML(bad, false); }), "Var2XML: invalid variant type conversion");
  EXPECT_EQ(XMLCast(Variant("42"), varInteger).VarType(), varInteger);
  EXPECT_EQ(VarToInt(XMLCast(Variant("42"), varSmallint)), 42);
  EXPECT_EQ(VarToDouble(XMLCast(Variant("2.5"), varCurrency)), 2.5);
  EXPECT_EQ(XMLCast(Variant("2024-03-01"), varDate).VarType(), varDate);
  EXPECT_EQ(VarToBool(XMLCast(Variant("true"), varBoolean)), true);
  EXPECT_EQ(XMLCast(Variant("x"), varWord).VarType(), varString);
  EXPECT_TRUE(VarIsNull(XMLCast(Variant::Null(), varInteger)));
  EXPECT_THROW(XMLCast(Variant("x"), varInteger), EConvertError);
}

TEST(XmlReader, StreamStandsJustAfterTheElement) {
  // Two elements one after the other come out of one stream in two loads, whether the
  // reader reads the stream in place (memory) or through its window (any other stream).
  const std::string text = "<a x=\"1\"><b/></a>  <c>t</c>";
  TMemoryStream memory;
  memory.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  memory.SetPosition(0);
  ChunkedStream chunked(text, [] { return 3; });
  for (TStream* stream : {static_cast<TStream*>(&memory), static_cast<TStream*>(&chunked)}) {
    TXItem first, second;
    LoadXData(&first, *stream);
    EXPECT_EQ(stream->GetPosition(), 17);
    LoadXData(&second, *stream);
    EXPECT_EQ(Shape(&first) + " " + Shape(&second), "a{x=\"1\"}(b) c='t'");
    EXPECT_EQ(stream->GetPosition(), static_cast<Int64>(text.size()));
  }
}

// Under a sanitizer freed memory is held back on purpose, so only a plain build can tell.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OSTREL_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OSTREL_TEST_SANITIZED 1
#endif

#if defined(__linux__) && !defined(OSTREL_TEST_SANITIZED)
// The resident size of the process in bytes.
long Resident() {
  long pages = 0, resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return resident * sysconf(_SC_PAGESIZE);
}

TEST(XmlReader, LoadingAgainAndAgainHoldsNoMore) {
  // Items, text blocks and values read as text all go with their tree: a document loaded
  // hundreds of times, its values used and some items moved out, holds no more memory.
  std::string text = "<r>";
  for (int i = 0; i < 3000; ++i)
    text += "<i n=\"" + std::to_string(i) + "\" kind=\"payment &amp; fee\">text of item " +
            std::to_string(i) + "<b/></i>";
  text += "</r>";
  auto round = [&] {
    auto root = Parse(text);
    TXItem other;
    for (int i = 0; i < 100; ++i) {
      VarToStr(root->get_Items(i)->get_Value());
      other.AddItem(root->get_Items(root->get_Count() - 1));
    }
  };
  for (int i = 0; i < 20; ++i) round();
  const long before = Resident();
  for (int i = 0; i < 300; ++i) round();
  EXPECT_LT(Resident() - before, 2L << 20);
}
#endif

}  // namespace
}  // namespace ostrel
