#include <ostrel/controls/LayoutFiles.h>

#include "LayoutTestUtil.h"

#include <ostrel/xml/Xmlutils.h>

#include <TestUtil.h>
#include "xml/XmlUtil.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using testutil::MakeGrid;
using testutil::MessageOf;
using testutil::Shape;
using xmltest::Parse;

class LayoutFiles : public testing::Test {
 protected:
  void SetUp() override {
    fDir = fs::temp_directory_path() / ("ostrel-layout-" + std::to_string(std::random_device{}()));
    fs::create_directories(fDir);
  }
  void TearDown() override { fs::remove_all(fDir); }
  AnsiString File(const char* leaf) const { return (fDir / leaf).string(); }
  // Writes text as the file leaf and gives its name.
  AnsiString Save(const char* leaf, std::string_view text) const {
    TMemoryStream m;
    m.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
    m.SaveToFile(File(leaf));
    return File(leaf);
  }
  static std::string Read(const AnsiString& name) {
    TMemoryStream m;
    m.LoadFromFile(name);
    return std::string(static_cast<const char*>(m.Memory()), static_cast<std::size_t>(m.GetSize()));
  }
  fs::path fDir;
};

TEST_F(LayoutFiles, ALayoutRoundTripsThroughAFile) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid =
      MakeGrid(form, "FormGrid", "Header[edNo edDate](Details[memNote]) (Inner[btnOk])");
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
  Layout_LoadFromXItem(
      *grid,
      Parse("<LAYOUT name=\"Renamed\"><!-- note -->\r\n"
            "  <panel name=\"P\"><control name=\"EDB\"/><control name=\"edNew\" kind=\"TMemo\"/>"
            "<Control name=\"edA\" visible=\"FALSE\"/></panel></LAYOUT>")
          .get());
  EXPECT_EQ(Shape(*grid), "P[edB edNew edA-]");
  EXPECT_EQ(grid->Name(), "Grid");  // a named grid keeps its name
  EXPECT_EQ(testutil::Join(form.ComponentCount(), LayoutControlKind(*edB),
                           LayoutControlKind(*static_cast<TControl*>(form.FindComponent("edNew")))),
            "4 TControl TMemo");
}

TEST_F(LayoutFiles, MalformedLayoutsNameTheFileLineAndColumn) {
  struct Case {
    const char* xml;
    std::string message;
  };
  const Case cases[] = {
      {"<form/>", "1:1: the root element is <form>, not <layout>"},
      {"<layout>\r\n  <panel name=\"P\">\r\n    <button/>\r\n  </panel>\r\n</layout>",
       "3:5: unknown element <button> in <panel>; allowed: panel, control"},
      {"<layout>\n <panel nmae=\"P\"/>\n</layout>",
       "2:2: unknown attribute \"nmae\" of <panel>; allowed: name"},
      {"<layout><control kind=\"TEdit\"/></layout>", "1:9: a control needs a name"},
      {"<layout><control name=\"a\"/><panel><control name=\"A\"/></panel></layout>",
       "1:35: control \"A\" is placed twice"},
      {"<layout>\n  <control name=\"ed-1\"/></layout>",
       "2:3: ''ed-1'' is not a valid component name"},
      {"<layout><control name=\"a\" visible=\"no\"/></layout>",
       "1:9: visible=\"no\": allowed are true and false"},
      {"<layout><panel>text</panel></layout>",
       "1:9: <panel> holds text \"text\"; it takes attributes and elements only"},
      {"<layout><panel><unplaced/></panel></layout>",
       "1:16: unknown element <unplaced> in <panel>; allowed: panel, control"},
      {"<layout><unplaced><panel/></unplaced></layout>",
       "1:19: unknown element <panel> in <unplaced>; allowed: control"},
      {"<?xml version=\"1.0\"?>\r\n<!-- <panel> -->\r\n<layout><control name=\"edB\"><control "
       "name=\"x\"/></control></layout>",
       "3:9: control \"edB\" of kind TControl cannot hold controls"},
      {"<layout><control name=a/></layout>",
       "1:9: " + Cp1251(u8"Ошибка в формате строки атрибутов \"name=a\"").Str()},
  };
  for (const Case& c : cases) {
    TComponent form(nullptr);
    auto* grid = NewComponent<TkxLayoutGrid>(form);
    auto* edB = NewComponent<TControl>(form);  // a plain control cannot hold others
    edB->SetName("edB");
    edB->SetParent(grid);
    Save("bad.xml", c.xml);
    EXPECT_EQ(MessageOf([&] { Layout_LoadFromFile(*grid, File("bad.xml")); }),
              File("bad.xml") + ":" + c.message)
        << c.xml;
  }
  // Read from an item, the operation stands where the file would.
  TComponent form(nullptr);
  auto* grid = NewComponent<TkxLayoutGrid>(form);
  EXPECT_EQ(MessageOf([&] {
              Layout_LoadFromXItem(*grid, Parse("<layout><panel x=\"1\"/></layout>").get());
            }),
            "LoadLayout: unknown attribute \"x\" of <panel>; allowed: name");
  // A file the XML reader refuses names itself in front of the reader's message.
  Save("bad.xml", "<layout><panel></layout>");
  const std::string message = MessageOf([&] { Layout_LoadFromFile(*grid, File("bad.xml")); });
  EXPECT_EQ(message.rfind(Cp1251(u8"Загрузка XML файла:\r").Str(), 0), 0u) << message;
  EXPECT_NE(message.find("bad.xml"), std::string::npos);
}

TEST_F(LayoutFiles, ControlsInsideControlsAndOutsidePanelsRoundTrip) {
  const char* text =
      "<layout name=\"G\">\r\n"
      "  <panel name=\"Top\">\r\n"
      "    <control name=\"gbAddress\" kind=\"TGroupBox\">\r\n"
      "      <control name=\"edCity\" kind=\"TEdit\"/>\r\n"
      "      <control name=\"pnInner\" kind=\"TPanel\" visible=\"false\">\r\n"
      "        <control name=\"edStreet\" kind=\"TEdit\"/>\r\n"
      "      </control>\r\n"
      "    </control>\r\n"
      "    <control name=\"edNo\" kind=\"TEdit\"/>\r\n"
      "  </panel>\r\n"
      "  <unplaced>\r\n"
      "    <control name=\"lblHint\" kind=\"TLabel\"/>\r\n"
      "  </unplaced>\r\n"
      "</layout>\r\n";
  TComponent form(nullptr);
  auto* grid = NewComponent<TkxLayoutGrid>(form);
  Layout_LoadFromXItem(*grid, Parse(text).get());
  EXPECT_EQ(Layout_Draw(*grid),
            "G\n"
            "  Top: gbAddress (TGroupBox: edCity (TEdit), pnInner (TPanel, hidden: edStreet "
            "(TEdit))), edNo (TEdit)\n"
            "(unplaced): lblHint (TLabel)\n");
  auto* street = static_cast<TControl*>(form.FindComponent("edStreet"));
  EXPECT_EQ(street->Parent(), form.FindComponent("pnInner"));
  EXPECT_EQ(static_cast<TControl*>(form.FindComponent("lblHint"))->Parent(), grid);
  TXItem out;
  Layout_SaveToXItem(*grid, &out);
  EXPECT_EQ(xmltest::Write(&out), text);
}

std::string NestedPanels(int depth, std::string_view inner) {
  std::string text = "<layout name=\"Deep\">";
  for (int i = 0; i < depth; ++i) text += "<panel>";
  text += inner;
  for (int i = 0; i < depth; ++i) text += "</panel>";
  return text + "</layout>";
}

// Input decides the depth: 300 000 nested panels load, walk, draw, save, merge and free.
// (Only into items here: the XML writer indents each level, so a file of such a tree grows
// with the square of its depth.)
TEST_F(LayoutFiles, DeepTreesLoadSaveDrawAndFreeWithoutRecursion) {
  constexpr int depth = 300000;
  TComponent form(nullptr);
  auto* grid = NewComponent<TkxLayoutGrid>(form);
  Layout_LoadFromXItem(*grid, Parse(NestedPanels(depth, "<control name=\"edLeaf\"/>")).get());
  Integer panels = 0, deepest = 0;
  grid->Layout()->ForEach([&](TkxLayoutPanel&, Integer d) {
    ++panels;
    deepest = std::max(deepest, d);
  });
  EXPECT_EQ(testutil::Join(panels, deepest), testutil::Join(depth + 1, depth));
  const AnsiString drawing = Layout_Draw(*grid);
  EXPECT_EQ(std::count(drawing.begin(), drawing.end(), '\n'), depth + 1);
  EXPECT_NE(
      drawing.find("\n" + std::string(80, ' ') + "[300000] (panel): edLeaf (TkxLayoutControl)\n"),
      std::string::npos);
  TXItem saved;
  Layout_SaveToXItem(*grid, &saved);
  TkxLayoutPicture picture;
  EXPECT_EQ(
      MessageOf([&] { picture.Add(*grid, "deep"); }),
      "TkxLayoutPicture: layout \"Deep\" is more than 1000 panels deep; draw it as text instead");
  TComponent other(nullptr);
  auto* again = NewComponent<TkxLayoutGrid>(other);
  Layout_LoadFromXItem(*again, &saved);
  auto* leaf = static_cast<TControl*>(other.FindComponent("edLeaf"));
  TkxLayoutMergeSchema schema(nullptr);
  TkxLayoutMergeItem* item = schema.Items()->Add();
  item->SetSourcePoint(leaf);
  item->SetSourceShift("");
  schema.Apply(false);
  EXPECT_FALSE(leaf->Visible());
  // A merge moves a deep panel into another grid, controls and all.
  item->SetTargetPoint(static_cast<TControl*>(form.FindComponent("edLeaf")));
  item->SetSourceShift("root");
  item->SetMergeMode(mmAddChild);
  schema.Apply(true);
  EXPECT_EQ(testutil::Join(again->Layout()->PanelCount(), leaf->Parent() == grid), "0 1");

  // Controls nested deep load, draw and free the same way (less deep: placing a control
  // checks the chain of its holders).
  constexpr int nesting = 5000;
  std::string text = "<layout>";
  for (int i = 0; i < nesting; ++i) text += "<control name=\"c" + std::to_string(i) + "\">";
  text += "<control name=\"last\"/>";
  for (int i = 0; i < nesting; ++i) text += "</control>";
  text += "</layout>";
  TComponent nested(nullptr);
  auto* holder = NewComponent<TkxLayoutGrid>(nested);
  Layout_LoadFromXItem(*holder, Parse(text).get());
  const AnsiString nestedDrawing = Layout_Draw(*holder);
  EXPECT_EQ(nestedDrawing.substr(0, 38), "(grid): c0 (TkxLayoutContainer: c1 (Tk");
  EXPECT_TRUE(nestedDrawing.ends_with("c4999 (TkxLayoutContainer: last (TkxLayoutControl)" +
                                      std::string(nesting, ')') + "\n"));
}

// Files of deep trees go through the same walks (kept shallower: the XML writer indents
// each level, so such a file grows with the square of its depth).
TEST_F(LayoutFiles, DeepFilesReadBackAsTheyWereWritten) {
  Save("deep.xml", NestedPanels(2000, "<control name=\"edLeaf\"/>"));
  TComponent form(nullptr), other(nullptr);
  auto* grid = NewComponent<TkxLayoutGrid>(form);
  Layout_LoadFromFile(*grid, File("deep.xml"));
  Layout_SaveToFile(*grid, File("again.xml"));
  auto* again = NewComponent<TkxLayoutGrid>(other);
  Layout_LoadFromFile(*again, File("again.xml"));
  EXPECT_EQ(Layout_Draw(*again), Layout_Draw(*grid));
  EXPECT_NE(Layout_Draw(*again).find("[2000] (panel): edLeaf"), std::string::npos);
}

TEST_F(LayoutFiles, ASchemaRoundTripsAndResolvesNamesAgainstTheGrids) {
  TComponent form(nullptr), frame(nullptr);
  TkxLayoutGrid* formGrid = MakeGrid(form, "FormGrid", "Body[edA](Inner[edB])");
  TkxLayoutGrid* frameGrid = MakeGrid(frame, "FrameGrid", "Part[edX](Sub[edY edA])");
  TkxLayoutMergeSchema schema(&form);
  schema.SetTargetLayout(formGrid);
  TkxLayoutMergeItem* a = schema.Items()->Add();
  a->SetMergeMode(mmAddChild);
  a->SetSourcePoint(static_cast<TControl*>(frame.FindComponent("edA")));
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
      "  <item mode=\"mmAddChild\" source=\"FrameGrid.edA\" sourceshift=\"parent\" "
      "target=\"FormGrid.edB\" targetshift=\"\"/>\r\n"
      "  <item source=\"FrameGrid.edX\" targetname=\"edA &amp; co\"/>\r\n"
      "  <item/>\r\n"
      "</mergeschema>\r\n";
  EXPECT_EQ(Read(File("schema.xml")), expected);

  TkxLayoutMergeSchema loaded(nullptr);
  MergeSchema_LoadFromFile(loaded, File("schema.xml"), {formGrid, frameGrid});
  ASSERT_EQ(loaded.Items()->Count(), 3);
  EXPECT_EQ(loaded.TargetLayout(), formGrid);
  EXPECT_EQ(
      testutil::Join(loaded.Items()->Items(0)->DisplayName(), "|",
                     loaded.Items()->Items(1)->DisplayName(), "|",
                     loaded.Items()->Items(0)->MergeMode(), loaded.Items()->Items(1)->MergeMode()),
      "edA parent > edB  | edX root > edA & co root | 2 0");
  // The qualified name reaches the frame's edA although the form has one too.
  EXPECT_EQ(loaded.Items()->Items(0)->SourcePoint(), frame.FindComponent("edA"));

  // Unqualified, a name on both grids is the first grid's; a path steps into containers;
  // without targetlayout the schema merges into the first grid, with "" into none.
  auto* box = NewComponent<TkxLayoutContainer>(frame, "TGroupBox");
  box->SetName("gbBox");
  frameGrid->Layout()->Panels(0)->AddControl(box);
  auto* inBox = NewComponent<TkxLayoutControl>(frame);
  inBox->SetName("edIn");
  inBox->SetParent(box);
  MergeSchema_LoadFromXItem(
      loaded,
      Parse("<mergeschema><item source=\"edA\"/><item source=\"gbbox.edIn\"/><item "
            "source=\"FrameGrid.gbBox.edIn\"/></mergeschema>")
          .get(),
      {formGrid, frameGrid});
  EXPECT_EQ(testutil::Join(loaded.TargetLayout() == formGrid,
                           loaded.Items()->Items(0)->SourcePoint() == form.FindComponent("edA"),
                           loaded.Items()->Items(1)->SourcePoint() == inBox,
                           loaded.Items()->Items(2)->SourcePoint() == inBox),
            "1 1 1 1");
  MergeSchema_LoadFromXItem(loaded, Parse("<mergeschema targetlayout=\"\"/>").get(),
                            {formGrid, frameGrid});
  EXPECT_EQ(loaded.TargetLayout(), nullptr);
  TXItem out;
  MergeSchema_SaveToXItem(loaded, &out);
  EXPECT_EQ(xmltest::Write(&out), "<mergeschema targetlayout=\"\"/>\r\n");
}

TEST_F(LayoutFiles, MergeModesTakeTheSpellingsAUserTries) {
  struct Case {
    const char* text;
    int mode;
  };
  const Case cases[] = {{"mmInsertAfter", 0},  {"insertafter", 0}, {"After", 0}, {"0", 0},
                        {"mmInsertBefore", 1}, {"before", 1},      {" 1 ", 1},   {"MMADDCHILD", 2},
                        {"AddChild", 2},       {"child", 2},       {"2", 2}};
  for (const Case& c : cases) {
    TkxLayoutMergeMode mode = mmInsertAfter;
    EXPECT_TRUE(MergeMode_FromText(c.text, mode)) << c.text;
    EXPECT_EQ(mode, c.mode) << c.text;
  }
  for (const char* bad : {"", "3", "-1", "addafter", "mm", "inside"}) {
    TkxLayoutMergeMode mode = mmAddChild;
    EXPECT_FALSE(MergeMode_FromText(bad, mode)) << bad;
  }
}

TEST_F(LayoutFiles, AMalformedSchemaNamesItsPlaceAndLeavesTheSchemaAsItWas) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "Body[edA]");
  TkxLayoutMergeSchema schema(&form);
  schema.Items()->Add()->SetSourceShift("parent");
  struct Case {
    const char* xml;
    const char* message;
  };
  const Case cases[] = {
      {"<schema/>", "1:1: the root element is <schema>, not <mergeschema>"},
      {"<mergeschema>\n  <move/>\n</mergeschema>",
       "2:3: unknown element <move> in <mergeschema>; allowed: item"},
      {"<mergeschema>\n<item source=\"edA\" shift=\"\" target=\"edA\"/></mergeschema>",
       "2:1: unknown attribute \"shift\" of <item>; allowed: mode, source, sourceshift, target, "
       "targetname, targetshift"},
      {"<mergeschema><item mode=\"sideways\"/></mergeschema>",
       "1:14: mode=\"sideways\": allowed are mmInsertAfter, mmInsertBefore, mmAddChild, or after, "
       "before, child, or 0, 1, 2"},
      {"<mergeschema><item source=\"edA\"/><item target=\"edZ\"/></mergeschema>",
       "1:34: target=\"edZ\": no such control on the layouts (Grid)"},
      {"<mergeschema><item source=\"Grid.edZ\"/></mergeschema>",
       "1:14: source=\"Grid.edZ\": layout \"Grid\" has no such control"},
      {"<mergeschema><item><x/></item></mergeschema>",
       "1:20: unknown element <x> in <item>; allowed: none"},
      {"<mergeschema targetlayout=\"Form\"><item/></mergeschema>",
       "1:1: targetlayout=\"Form\": no such layout (Grid; \"\" for none)"},
  };
  for (const Case& c : cases) {
    Save("schema.xml", c.xml);
    EXPECT_EQ(MessageOf([&] { MergeSchema_LoadFromFile(schema, File("schema.xml"), {grid}); }),
              File("schema.xml") + ":" + c.message);
    EXPECT_EQ(testutil::Join(schema.Items()->Count(), schema.Items()->Items(0)->SourceShift()),
              "1 parent");
  }
}

// Every failure of a merge can be reached from files: points off the grid, inside a control,
// a schema without a target layout, a target name that is nowhere.
TEST_F(LayoutFiles, FilesReachEveryMergeFailure) {
  const char* layout =
      "<layout name=\"Form\"><panel name=\"P\"><control name=\"edA\"/>"
      "<control name=\"gb\" kind=\"TGroupBox\"><control name=\"edIn\"/></control></panel>"
      "<unplaced><control name=\"edOff\"/></unplaced></layout>";
  struct Case {
    const char* schema;
    std::string message;
  };
  const Case cases[] = {
      {"<mergeschema><item source=\"edOff\" target=\"edA\"/></mergeschema>",
       "TkxLayoutMergeSchema: source \"edOff:root\" not found"},
      {"<mergeschema><item source=\"edA\" target=\"edOff\"/></mergeschema>",
       "TkxLayoutMergeSchema: target \"edOff:root\" not found"},
      {"<mergeschema><item source=\"gb.edIn\" target=\"edA\"/></mergeschema>",
       "Invalid class typecast"},
      {"<mergeschema targetlayout=\"\"><item source=\"edA\" targetname=\"edA\"/></mergeschema>",
       "TkxLayoutMergeSchema: TargetLayout = nil"},
      {"<mergeschema><item source=\"edA\" targetname=\"edNone\"/></mergeschema>",
       "TkxLayoutMergeSchema: TargetPoint  = nil"},
      {"<mergeschema><item source=\"edA\" sourceshift=\"up\" targetname=\"edA\"/></mergeschema>",
       "TkxLayoutMergeItem: invalid shift \"edA:up\""},
  };
  for (const Case& c : cases) {
    TComponent form(nullptr);
    auto* grid = NewComponent<TkxLayoutGrid>(form);
    Layout_LoadFromXItem(*grid, Parse(layout).get());
    TkxLayoutMergeSchema schema(nullptr);
    MergeSchema_LoadFromXItem(schema, Parse(c.schema).get(), {grid});
    EXPECT_EQ(MessageOf([&] { schema.Apply(true); }), c.message) << c.schema;
  }
}

TEST_F(LayoutFiles, ThePictureIsAnSvgDocumentWithAGroupPerPanelAndControl) {
  TComponent form(nullptr), frame(nullptr);
  TkxLayoutGrid* formGrid = MakeGrid(form, "Form", "Head<&>[edA](Inner[edB]) Tail[edC]");
  TkxLayoutGrid* frameGrid = MakeGrid(frame, "Frame", "Gone[edX]");
  static_cast<TControl*>(frame.FindComponent("edX"))->Hide();
  TkxLayoutPicture picture;
  picture.NewRow("before");
  picture.Add(*formGrid, "form");
  picture.Add(*frameGrid, "frame");
  picture.NewRow("after");
  picture.Add(*formGrid, "form");
  picture.SaveToFile(File("p.svg"));
  // Read back with the library's own reader: well-formed, and its groups mirror the panels.
  TXItem svg;
  LoadXData(&svg, File("p.svg"), false);
  EXPECT_EQ(testutil::Join(svg.get_Name(), VarToStr(svg.get_Attr("xmlns"))),
            "svg http://www.w3.org/2000/svg");
  std::vector<std::string> groups;  // "class:title:depth" of every group, in document order
  std::vector<std::pair<const TXItem*, int>> stack{{&svg, 0}};
  while (!stack.empty()) {
    auto [x, depth] = stack.back();
    stack.pop_back();
    if (x->get_Name() == "g" && !VarIsNull(x->get_Attr("class")) && x->get_Count() &&
        x->get_Items(0)->get_Name() == "title")
      groups.push_back(VarToStr(x->get_Attr("class")) + ":" +
                       VarToStr(x->get_Items(0)->get_Value()) + ":" + std::to_string(depth));
    for (Integer i = x->get_Count() - 1; i >= 0; --i)
      stack.emplace_back(x->get_Items(i), depth + (x->get_Name() == "g" ? 1 : 0));
  }
  const std::vector<std::string> form1 = {"panel:Form:1",  "panel:Head<&>:2", "control:edA:3",
                                          "panel:Inner:3", "control:edB:4",   "panel:Tail:2",
                                          "control:edC:3"};
  std::vector<std::string> expected = form1;
  for (std::string s : {"panel hidden:Frame:1", "panel hidden:Gone:2", "control hidden:edX:3"})
    expected.push_back(s);
  expected.insert(expected.end(), form1.begin(), form1.end());
  EXPECT_EQ(groups, expected);
}

}  // namespace
}  // namespace ostrel
