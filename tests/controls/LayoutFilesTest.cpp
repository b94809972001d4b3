#include <ostrel/controls/LayoutFiles.h>

#include "LayoutTestUtil.h"

#include <ostrel/xml/Xmlutils.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using testutil::MakeGrid;
using testutil::MessageOf;
using testutil::Shape;

std::unique_ptr<TXItem> Parse(std::string_view text) {
  TMemoryStream stream;
  stream.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  stream.SetPosition(0);
  auto item = std::make_unique<TXItem>();
  LoadXData(item.get(), stream);
  return item;
}

std::string Text(const TXItem* item) {
  TMemoryStream stream;
  SaveXData(item, false, stream);
  return std::string(static_cast<const char*>(stream.Memory()), static_cast<std::size_t>(stream.GetSize()));
}

class LayoutFiles : public testing::Test {
 protected:
  void SetUp() override {
    fDir = fs::temp_directory_path() / ("ostrel-layout-" + std::to_string(std::random_device{}()));
    fs::create_directories(fDir);
  }
  void TearDown() override { fs::remove_all(fDir); }
  AnsiString File(const char* leaf) const { return (fDir / leaf).string(); }
  static std::string Read(const AnsiString& name) {
    TMemoryStream m;
    m.LoadFromFile(name);
    return std::string(static_cast<const char*>(m.Memory()), static_cast<std::size_t>(m.GetSize()));
  }
  fs::path fDir;
};

TEST_F(LayoutFiles, ALayoutRoundTripsThroughAFile) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "FormGrid", "Header[edNo edDate](Details[memNote]) (Inner[btnOk])");
  static_cast<TkxLayoutControl*>(form.FindComponent("edDate"))->SetKind("TDateEdit");
  static_cast<TControl*>(form.FindComponent("memNote"))->Hide();
  auto* title = NewComponent<TkxLayoutControl>(form, "TLabel");
  title->SetName("lblTitle");
  grid->Layout()->AddControl(title);
  Layout_SaveToFile(*grid, File("form.xml"));
  const std::string expected =
      "<?xml version=\"1.0\" encoding=\"Windows-1251\"?>\r\n"
      "<layout name=\"FormGrid\">\r\n"
      "  <control name=\"lblTitle\" kind=\"TLabel\"/>\r\n"
      "  <panel name=\"Header\">\r\n"
      "    <control name=\"edNo\" kind=\"TEdit\"/>\r\n"
      "    <control name=\"edDate\" kind=\"TDateEdit\"/>\r\n"
      "    <panel name=\"Details\">\r\n"
      "      <control name=\"memNote\" kind=\"TEdit\" visible=\"false\"/>\r\n"
      "    </panel>\r\n"
      "  </panel>\r\n"
      "  <panel>\r\n"
      "    <panel name=\"Inner\">\r\n"
      "      <control name=\"btnOk\" kind=\"TEdit\"/>\r\n"
      "    </panel>\r\n"
      "  </panel>\r\n"
      "</layout>\r\n";
  EXPECT_EQ(Read(File("form.xml")), expected);

  TComponent other(nullptr);
  auto* loaded = NewComponent<TkxLayoutGrid>(other);
  Layout_LoadFromFile(*loaded, File("form.xml"));
  EXPECT_EQ(loaded->Name(), "FormGrid");
  EXPECT_EQ(Shape(*loaded), Shape(*grid));
  EXPECT_EQ(LayoutControlKind(*static_cast<TControl*>(other.FindComponent("eddate"))), "TDateEdit");
  Layout_SaveToFile(*loaded, File("again.xml"));
  EXPECT_EQ(Read(File("again.xml")), expected);
  EXPECT_EQ(Layout_Draw(*loaded),
            "FormGrid: lblTitle (TLabel)\n"
            "  Header: edNo (TEdit), edDate (TDateEdit)\n"
            "    Details: memNote (TEdit, hidden)\n"
            "  (panel)\n"
            "    Inner: btnOk (TEdit)\n");
}

TEST_F(LayoutFiles, LoadingPlacesTheGridsOwnControlsAndMakesTheMissingOnes) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "Old[edA]");
  auto* edB = NewComponent<TControl>(form);  // on the grid, in no panel yet
  edB->SetName("edB");
  edB->SetParent(grid);
  Layout_LoadFromXItem(*grid, Parse("<LAYOUT name=\"Renamed\"><!-- note -->\r\n"
                                    "  <panel name=\"P\"><control name=\"EDB\"/><control name=\"edNew\" kind=\"TMemo\"/>"
                                    "<Control name=\"edA\" visible=\"FALSE\"/></panel></LAYOUT>").get());
  EXPECT_EQ(Shape(*grid), "P[edB edNew edA-]");
  EXPECT_EQ(grid->Name(), "Grid");  // a named grid keeps its name
  EXPECT_EQ(testutil::Join(form.ComponentCount(), LayoutControlKind(*edB),
                           LayoutControlKind(*static_cast<TControl*>(form.FindComponent("edNew")))),
            "4 TControl TMemo");
}

TEST_F(LayoutFiles, MalformedLayoutsRaiseClearMessages) {
  struct Case { const char* xml; std::string message; };
  const Case cases[] = {
      {"<form/>", "LoadLayout: the root element is <form>, not <layout>"},
      {"", "LoadLayout: the root element is <>, not <layout>"},
      {"<layout><panel name=\"P\"><button/></panel></layout>", "LoadLayout: unknown element <button> in panel \"P\""},
      {"<layout><control kind=\"TEdit\"/></layout>", "LoadLayout: a control without a name in panel \"\""},
      {"<layout><control name=\"a\"/><panel><control name=\"A\"/></panel></layout>",
       "LoadLayout: control \"A\" is placed twice"},
      {"<layout><control name=\"1st\"/></layout>", "''1st'' is not a valid component name"},
      {"<layout><control name=a/></layout>", Cp1251(u8"Ошибка в формате строки атрибутов \"name=a\"").Str()},
  };
  for (const Case& c : cases) {
    TComponent form(nullptr);
    auto* grid = NewComponent<TkxLayoutGrid>(form);
    EXPECT_EQ(MessageOf([&] { Layout_LoadFromXItem(*grid, Parse(c.xml).get()); }), c.message) << c.xml;
  }
  // A broken file names itself in front of the reader's message.
  TMemoryStream bad;
  bad.WriteBuffer("<layout><panel></layout>", 24);
  bad.SaveToFile(File("bad.xml"));
  TComponent form(nullptr);
  auto* grid = NewComponent<TkxLayoutGrid>(form);
  const std::string message = MessageOf([&] { Layout_LoadFromFile(*grid, File("bad.xml")); });
  EXPECT_EQ(message.rfind(Cp1251(u8"Загрузка XML файла:\r").Str(), 0), 0u) << message;
  EXPECT_NE(message.find("bad.xml"), std::string::npos);
}

TEST_F(LayoutFiles, ASchemaRoundTripsAndResolvesNamesAgainstTheGrids) {
  TComponent form(nullptr), frame(nullptr);
  TkxLayoutGrid* formGrid = MakeGrid(form, "FormGrid", "Body[edA](Inner[edB])");
  TkxLayoutGrid* frameGrid = MakeGrid(frame, "FrameGrid", "Part[edX](Sub[edY])");
  TkxLayoutMergeSchema schema(&form);
  schema.SetTargetLayout(formGrid);
  TkxLayoutMergeItem* a = schema.Items()->Add();
  a->SetMergeMode(mmAddChild);
  a->SetSourcePoint(static_cast<TControl*>(frame.FindComponent("edY")));
  a->SetSourceShift("parent");
  a->SetTargetPoint(static_cast<TControl*>(form.FindComponent("edB")));
  a->SetTargetShift("");
  TkxLayoutMergeItem* b = schema.Items()->Add();
  b->SetSourcePoint(static_cast<TControl*>(frame.FindComponent("edX")));
  b->SetSourceShift("Root");
  b->SetTargetPointName("edA & co");
  schema.Items()->Add();
  MergeSchema_SaveToFile(schema, File("schema.xml"));
  const std::string expected =
      "<?xml version=\"1.0\" encoding=\"Windows-1251\"?>\r\n"
      "<mergeschema targetlayout=\"FormGrid\">\r\n"
      "  <item mode=\"mmAddChild\" source=\"edY\" sourceshift=\"parent\" target=\"edB\" targetshift=\"\"/>\r\n"
      "  <item source=\"edX\" targetname=\"edA &amp; co\"/>\r\n"
      "  <item/>\r\n"
      "</mergeschema>\r\n";
  EXPECT_EQ(Read(File("schema.xml")), expected);

  TkxLayoutMergeSchema loaded(nullptr);
  MergeSchema_LoadFromFile(loaded, File("schema.xml"), {formGrid, frameGrid});
  ASSERT_EQ(loaded.Items()->Count(), 3);
  EXPECT_EQ(loaded.TargetLayout(), formGrid);
  EXPECT_EQ(testutil::Join(loaded.Items()->Items(0)->DisplayName(), "|", loaded.Items()->Items(1)->DisplayName(),
                           "|", loaded.Items()->Items(0)->MergeMode(), loaded.Items()->Items(1)->MergeMode()),
            "edY parent > edB  | edX root > edA & co root | 2 0");
  EXPECT_EQ(loaded.Items()->Items(0)->SourcePoint(), frame.FindComponent("edY"));
}

TEST_F(LayoutFiles, AMalformedSchemaRaisesAndLeavesTheSchemaAsItWas) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "Body[edA]");
  TkxLayoutMergeSchema schema(&form);
  schema.Items()->Add()->SetSourceShift("parent");
  struct Case { const char* xml; const char* message; };
  const Case cases[] = {
      {"<schema/>", "LoadMergeSchema: the root element is <schema>, not <mergeschema>"},
      {"<mergeschema><move/></mergeschema>", "LoadMergeSchema: unknown element <move>"},
      {"<mergeschema><item mode=\"after\"/></mergeschema>", "LoadMergeSchema: unknown merge mode \"after\""},
      {"<mergeschema><item source=\"edA\"/><item target=\"edZ\"/></mergeschema>",
       "LoadMergeSchema: no control named \"edZ\" on the layouts"},
      {"<mergeschema targetlayout=\"Form\"><item/></mergeschema>", "LoadMergeSchema: no layout named \"Form\""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(MessageOf([&] { MergeSchema_LoadFromXItem(schema, Parse(c.xml).get(), {grid}); }), c.message);
    EXPECT_EQ(testutil::Join(schema.Items()->Count(), schema.Items()->Items(0)->SourceShift()), "1 parent");
  }
  MergeSchema_LoadFromXItem(schema, Parse("<MergeSchema targetlayout=\"GRID\"><item mode=\"MMADDCHILD\"/></MergeSchema>").get(),
                            {grid});
  EXPECT_EQ(testutil::Join(schema.Items()->Count(), schema.Items()->Items(0)->MergeMode(),
                           schema.TargetLayout() == grid),
            "1 2 1");
  TXItem out;
  MergeSchema_SaveToXItem(schema, &out);
  EXPECT_EQ(Text(&out), "<mergeschema targetlayout=\"Grid\">\r\n  <item mode=\"mmAddChild\"/>\r\n</mergeschema>\r\n");
}

}  // namespace
}  // namespace ostrel
