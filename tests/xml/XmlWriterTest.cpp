// The writer's exact bytes, round trips through the reader, and files: loads with their
// trace span, error wrapping and fix procedure, and saves that never lose the old file.
#include "XmlUtil.h"

#include <TestUtil.h>

#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Files.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace ostrel {
namespace {

using testutil::MessageOf;
using xmltest::Parse;
using xmltest::Shape;
using xmltest::Write;

TEST(XmlWriter, ExactBytes) {
  auto root = Parse(
      "<doc  a=\"1\"   b=\"&#9;\" ><t>x\ty</t><e/><e2></e2><c><![CDATA[ <&> ]]></c>"
      "<m>one<br/>two</m><w>  </w></doc>");
  root->Add()->set_Name("#text");
  root->get_Items(0)->set_Value(Variant("x\ty\r\n<\"&'>"));
  EXPECT_EQ(Write(root.get(), true), std::string(XML_HEADER_WIN1251) +
                                         "\r\n<doc a=\"1\"   b=\"&#9;\">\r\n"
                                         "  <t>x&#9;y\r\n&lt;&quot;&amp;'&gt;</t>\r\n"
                                         "  <e/>\r\n"
                                         "  <e2/>\r\n"
                                         "  <c><![CDATA[<&>]]></c>\r\n"
                                         "  <m>\r\n"
                                         "    one\r\n"
                                         "    <br/>\r\n"
                                         "    two\r\n"
                                         "  </m>\r\n"
                                         "  <w/>\r\n"
                                         "  />\r\n"
                                         "</doc>\r\n");
  // Typed values, and the value of an item with children, which is not written.
  TXItem item;
  item.set_Name("v");
  const Variant values[] = {Variant(12),
                            Variant(2.5),
                            Variant(true),
                            Variant::FromDate(EncodeDate(2024, 3, 1) + EncodeTime(12, 30, 5, 250)),
                            Variant(Cp1251(u8"Сумма")),
                            Variant(" "),
                            Variant()};
  std::string lines;
  for (const Variant& v : values) {
    item.set_Value(v);
    lines += Write(&item);
  }
  EXPECT_EQ(lines,
            "<v>12</v>\r\n<v>2.5</v>\r\n<v>true</v>\r\n<v>2024-03-01T12:30:05.250</v>\r\n<v>" +
                Cp1251(u8"Сумма").Str() + "</v>\r\n<v/>\r\n<v/>\r\n");
  item.Add()->set_Name("k");
  EXPECT_EQ(Write(&item), "<v>\r\n  <k/>\r\n</v>\r\n");
}

TEST(XmlWriter, BufferGoesOutInPiecesOfJustOver4096) {
  class CountingStream : public TMemoryStream {
   public:
    Integer Write(const void* buffer, Integer count) override {
      sizes.push_back(count);
      return TMemoryStream::Write(buffer, count);
    }
    std::vector<Integer> sizes;
  } stream;
  TXItem root;
  root.set_Name("r");
  for (int i = 0; i < 2000; ++i) root.Add()->set_Name("item");
  SaveXData(&root, true, stream);
  ASSERT_GT(stream.sizes.size(), 2u);
  for (std::size_t i = 0; i + 1 < stream.sizes.size(); ++i) {
    EXPECT_GT(stream.sizes[i], 4096);
    EXPECT_LT(stream.sizes[i], 4096 + 16);
  }
}

TEST(XmlWriter, RoundTrips) {
  // Attribute values come back exactly, every control character included.
  TXItem item;
  item.set_Name("a");
  std::string every;
  for (int c = 1; c < 256; ++c) every += static_cast<char>(c);
  item.set_Attr("all", Variant(every));
  item.set_Attr("lines", Variant("one\r\ntwo\n"));
  auto back = Parse(Write(&item));
  EXPECT_EQ(VarToStr(back->get_Attr("all")), every);
  EXPECT_EQ(VarToStr(back->get_Attr("lines")), "one\r\ntwo\n");
  // A realistic tree reads back into the same shape and writes the same bytes.
  const std::string text = "<order n=\"" + Cp1251(u8"№ 5").Str() + "\">\r\n  <line sum=\"10.5\">" +
                           Cp1251(u8"Товар &amp; услуга").Str() +
                           "</line>\r\n  <note><![CDATA[a<b]]></note>\r\n  <mix>\r\n    x\r\n    "
                           "<b/>\r\n  </mix>\r\n</order>\r\n";
  auto tree = Parse(text);
  EXPECT_EQ(Write(tree.get()), text);
  EXPECT_EQ(Shape(Parse(Write(tree.get())).get()), Shape(tree.get()));
}

// Temporary files under the test's own name.
class XmlFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = ExpandFileName(std::string("xml_files_") +
                         ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
  }
  void TearDown() override { std::filesystem::remove_all(dir); }
  // The full name as the loader reports it (with the system's own separators).
  std::string Path(std::string_view name) const {
    return ExpandFileName(dir + "/" + std::string(name));
  }
  static void Put(const std::string& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static std::string Get(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
  }
  std::size_t FilesInDir() const {
    std::size_t n = 0;
    for ([[maybe_unused]] auto& e : std::filesystem::directory_iterator(dir)) ++n;
    return n;
  }
  std::string dir;
};

// Records the trace events it gets.
class Monitor : public testutil::TIntfObject<IkxSysMonitor> {
 public:
  void OSTREL_STDCALL TraceStart(std::string_view a, std::string_view b, std::string_view c,
                                 std::string_view d, Integer& id) override {
    log += "start " + std::string(a) + "|" + std::string(b) + "|" + std::string(c) + "|" +
           std::string(d) + ";";
    id = 42;
  }
  void OSTREL_STDCALL TraceNext(Integer id, std::string_view a, std::string_view) override {
    log += "next " + std::to_string(id) + "|" + std::string(a) + ";";
  }
  std::string log;
};

TEST_F(XmlFiles, LoadTracesWrapsErrorsAndCallsFix) {
  IPtr<Monitor> monitor(new Monitor);
  TkxSysMonitor::RegIntf(IPtr<IkxSysMonitor>(monitor.Get()));
  static std::string fixed;
  XFixProc = [](TXItem* item, std::string_view name) {
    fixed = item->get_Name() + "@" + std::string(name);
  };
  const std::string good = Path("good.xml"), bad = Path("bad.xml");
  Put(good, "<r/>");
  Put(bad, "<r>\r\n</x>");
  TXItem item;
  LoadXData(&item, good, false);
  EXPECT_EQ(fixed, "");
  LoadXData(&item, good, true);
  EXPECT_EQ(fixed, "r@" + good);
  EXPECT_EQ(monitor->log, "start file|load|LoadXData:good.xml|" + good + ";next 42|;" +
                              "start file|load|LoadXData:good.xml|" + good + ";next 42|;");
  try {
    LoadXData(&item, bad, true);
    ADD_FAILURE();
  } catch (const EXMLError& e) {
    EXPECT_EQ(e.Message(),
              Cp1251(u8"Загрузка XML файла:").Str() + "\r" + bad + "\r\r" +
                  Cp1251(u8"Ошибка в формате XML.\r\rОтсутствует завершающий таг \"</r>\"").Str());
    EXPECT_EQ(testutil::Join(e.Line(), e.Column()), "2 1");
  }
  EXPECT_EQ(MessageOf<EFOpenError>([&] { LoadXData(&item, Path("none.xml"), true); })
                .rfind(Cp1251(u8"Загрузка XML файла:").Str() + "\r" + Path("none.xml") +
                           "\r\rCannot open file",
                       0),
            0u);
  XFixProc = nullptr;
  TkxSysMonitor::RegIntf(nullptr);
  EXPECT_EQ(monitor->log.size() - monitor->log.rfind("next 42|;"), 9u);  // every span ended
}

TEST_F(XmlFiles, SaveReplacesOnlyWhenComplete) {
  const std::string target = Path("data.xml");
  Put(target, "old contents");
  TXItem root;
  root.set_Name("r");
  for (int i = 0; i < 3000; ++i) root.Add()->set_Name("row");
  root.Add()->set_Value(Variant(Int64(1)));  // not writable: fails at the very end
  EXPECT_EQ(MessageOf([&] { SaveXData(&root, true, target); }),
            "Var2XML: invalid variant type conversion");
  EXPECT_EQ(Get(target), "old contents");
  EXPECT_EQ(FilesInDir(), 1u);
  delete root.get_Items(3000);
  SaveXData(&root, true, target);
  EXPECT_EQ(Get(target), Write(&root, true));
  EXPECT_EQ(FilesInDir(), 1u);
  EXPECT_THROW(SaveXData(&root, true, Path("missing/dir.xml")), EFCreateError);
}

TEST_F(XmlFiles, DocumentsFromAndToFiles) {
  const std::string name = Path("doc.xml");
  Put(name, "<?xml version=\"1.0\"?><cfg><v>1</v></cfg>");
  IPtr<IXDoc> doc;
  GetXDocIntf(name, doc);
  EXPECT_EQ(doc->get_FileName(), name);
  doc->get_Root()->get_Items(0)->set_Value(Variant(2));
  doc->SaveToFile("", false);
  EXPECT_EQ(Get(name), "<cfg>\r\n  <v>2</v>\r\n</cfg>\r\n");
  doc->SaveToFile(Path("copy.xml"), true);
  EXPECT_EQ(Get(Path("copy.xml")), std::string(XML_HEADER_WIN1251) + "\r\n" + Get(name));
  GetXDocIntf("", doc);
  EXPECT_EQ(testutil::Join(doc->get_Root()->get_Name().empty(), doc->get_Root()->get_Count()),
            "1 0");
  EXPECT_THROW(GetXDocIntf(Path("none.xml"), doc), EFOpenError);
}

}  // namespace
}  // namespace ostrel
