#include <ostrel/controls/Kxlayouts.h>

#include "LayoutTestUtil.h"

#include <TestUtil.h>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using testutil::MakeGrid;
using testutil::MessageOf;
using testutil::Shape;

// A form with its own grid and an embedded frame with another, the usual merge setting.
struct Forms {
  TComponent form{nullptr}, frame{nullptr};
  TkxLayoutGrid* formGrid =
      MakeGrid(form, "FormGrid", "Header[edNo] Body[edA](Inner[edB]) Footer[btnOk]");
  TkxLayoutGrid* frameGrid = MakeGrid(frame, "FrameGrid", "Part[edX](Sub[edY]) Rest[edZ]");
  TkxLayoutMergeSchema schema{&form};

  TControl* Form(const char* name) { return static_cast<TControl*>(form.FindComponent(name)); }
  TControl* Frame(const char* name) { return static_cast<TControl*>(frame.FindComponent(name)); }
  TControl* Any(const char* name) { return Form(name) ? Form(name) : Frame(name); }
  TkxLayoutMergeItem* Item(TControl* source, std::string_view sourceShift, TControl* target,
                           std::string_view targetShift, TkxLayoutMergeMode mode = mmInsertAfter) {
    TkxLayoutMergeItem* item = schema.Items()->Add();
    item->SetSourcePoint(source);
    item->SetSourceShift(sourceShift);
    item->SetTargetPoint(target);
    item->SetTargetShift(targetShift);
    item->SetMergeMode(mode);
    return item;
  }
  std::string Shapes() { return Shape(*formGrid) + " | " + Shape(*frameGrid); }
};

TEST(LayoutMergePoint, ShiftStepsClimbFromTheControlsPanel) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "Top[a](Mid[b](Deep[c])) Side[d]");
  auto* r = NewComponent<TkxLayoutControl>(form);
  r->SetName("r");
  grid->Layout()->AddControl(r);
  auto* loose = NewComponent<TkxLayoutControl>(form);  // on the grid, in no panel
  loose->SetName("loose");
  loose->SetParent(grid);
  struct Case {
    const char* control;
    const char* shift;
    const char* expected;
  };
  const Case cases[] = {
      // clang-format off
      {"c", "", "Deep"}, {"c", "root", "Top"}, {"c", "Root", "Top"}, {"c", "ROOT", "Top"},
      {"c", "parent", "Mid"}, {"c", "parent.parent", "Top"}, {"c", "Parent.PARENT", "Top"},
      {"c", "parent.root", "Top"}, {"c", "root.root", "Top"}, {"a", "root", "Top"},
      {"d", "root", "Side"}, {"b", "root.parent", "<root>"}, {"a", "parent", "<root>"},
      {"r", "root", "<root>"}, {"r", "", "<root>"},
      {"a", "parent.parent", "<false>"},  // above the top of the tree
      {"a", "parent.parent.root", "<false>"}, {"loose", "root", "<false>"},
      {"loose", "up", "<false>"},  // not found: the shift is not looked at
      // clang-format on
  };
  for (const Case& c : cases) {
    TkxLayoutPanel* panel = nullptr;
    const bool ok = TkxLayoutMergeItem::ResolvePoint(
        grid->Layout(), static_cast<TControl*>(form.FindComponent(c.control)), c.shift, panel);
    EXPECT_EQ(!ok                       ? "<false>"
              : panel == grid->Layout() ? "<root>"
                                        : panel->Name(),
              c.expected)
        << c.control << " " << c.shift;
  }
  // An unknown step names the control and the whole shift, also after climbing too high.
  for (const char* shift : {"up", "parent.up", "parent.", "root..root", " root", "parents",
                            "parent.parent.parent.parent.up"})
    EXPECT_EQ(MessageOf([&] {
                TkxLayoutPanel* panel = nullptr;
                TkxLayoutMergeItem::ResolvePoint(
                    grid->Layout(), grid->Layout()->FindPanel("Deep")->Controls(0), shift, panel);
              }),
              std::string("TkxLayoutMergeItem: invalid shift \"c:") + shift + "\"");
}

TEST(LayoutMerge, EachModePlacesTheSourcePanelAtTheTarget) {
  struct Case {
    TkxLayoutMergeMode mode;
    const char* target;
    const char* targetShift;
    const char* shapes;
  };
  const Case cases[] = {
      {mmInsertAfter, "edA", "root",
       "Header[edNo] Body[edA](Inner[edB]) Part[edX](Sub[edY]) Footer[btnOk]"},
      {mmInsertAfter, "btnOk", "root",
       "Header[edNo] Body[edA](Inner[edB]) Footer[btnOk] Part[edX](Sub[edY])"},
      {mmInsertBefore, "edA", "root",
       "Header[edNo] Part[edX](Sub[edY]) Body[edA](Inner[edB]) Footer[btnOk]"},
      // The target is its parent's first child: the source becomes the first child.
      {mmInsertBefore, "edNo", "root",
       "Part[edX](Sub[edY]) Header[edNo] Body[edA](Inner[edB]) Footer[btnOk]"},
      {mmInsertBefore, "edB", "",
       "Header[edNo] Body[edA](Part[edX](Sub[edY]) Inner[edB]) Footer[btnOk]"},
      {mmAddChild, "edB", "",
       "Header[edNo] Body[edA](Inner[edB](Part[edX](Sub[edY]))) Footer[btnOk]"},
      {mmAddChild, "edB", "root",
       "Header[edNo] Body[edA](Inner[edB] Part[edX](Sub[edY])) Footer[btnOk]"},
      {mmAddChild, "edB", "parent",
       "Header[edNo] Body[edA](Inner[edB] Part[edX](Sub[edY])) Footer[btnOk]"},
  };
  for (const Case& c : cases) {
    Forms f;
    f.Item(f.Frame("edY"), "root", f.Form(c.target), c.targetShift, c.mode);
    f.schema.Apply(true);
    EXPECT_EQ(f.Shapes(), std::string(c.shapes) + " | Rest[edZ]") << c.mode << " " << c.target;
    EXPECT_EQ(f.Frame("edY")->Parent(), f.formGrid);
  }
}

TEST(LayoutMerge, UnderOneParentTheTargetIndexIsReadAfterTheSourceMoved) {
  struct Case {
    const char* source;
    const char* target;
    TkxLayoutMergeMode mode;
    const char* shape;
  };
  const Case cases[] = {
      {"a", "b", mmInsertAfter, "B[b] A[a] C[c]"},  // A goes last first, so B is at 0
      {"a", "c", mmInsertBefore, "B[b] A[a] C[c]"},
      {"c", "a", mmInsertBefore, "C[c] A[a] B[b]"},
      {"b", "c", mmInsertAfter, "A[a] C[c] B[b]"},
      {"b", "b", mmInsertAfter, "A[a] C[c] B[b]"},  // itself: ends last, nothing breaks
  };
  for (const Case& c : cases) {
    TComponent form(nullptr);
    TkxLayoutGrid* grid = MakeGrid(form, "Grid", "A[a] B[b] C[c]");
    TkxLayoutMergeSchema schema(&form);
    TkxLayoutMergeItem* item = schema.Items()->Add();
    item->SetSourcePoint(static_cast<TControl*>(form.FindComponent(c.source)));
    item->SetTargetPoint(static_cast<TControl*>(form.FindComponent(c.target)));
    item->SetMergeMode(c.mode);
    schema.Apply(true);
    EXPECT_EQ(Shape(*grid), c.shape) << c.source << " " << c.target;
  }
}

TEST(LayoutMerge, TargetsByNameBelowTheTargetLayoutWhenNoTargetPointIsSet) {
  Forms f;
  f.schema.SetTargetLayout(f.formGrid);
  TkxLayoutMergeItem* byName = f.Item(f.Frame("edX"), "", nullptr, "root", mmInsertBefore);
  byName->SetTargetPointName("EDA");  // found without regard to case
  TkxLayoutMergeItem* both = f.Item(f.Frame("edZ"), "root", f.Form("edNo"), "root", mmAddChild);
  both->SetTargetPointName("edA");  // TargetPoint wins
  f.schema.Apply(true);
  EXPECT_EQ(f.Shapes(),
            "Header[edNo](Rest[edZ]) Part[edX](Sub[edY]) Body[edA](Inner[edB]) Footer[btnOk] | ");
}

TEST(LayoutMerge, NotMergingHidesEverySourceWithoutLookingAtTargets) {
  Forms f;
  f.Item(f.Frame("edY"), "root", nullptr, "root");  // no target at all
  TkxLayoutMergeItem* bad = f.Item(f.Frame("edZ"), "", f.Form("edA"), "nonsense");
  bad->SetTargetPointName("missing");
  f.Item(nullptr, "up", nullptr, "up");  // no source: skipped
  f.schema.Apply(false);
  EXPECT_EQ(Shape(*f.frameGrid), "Part[edX-](Sub[edY-]) Rest[edZ-]");
  EXPECT_EQ(Shape(*f.formGrid), "Header[edNo] Body[edA](Inner[edB]) Footer[btnOk]");
}

TEST(LayoutMerge, FailuresRaiseTheirMessagesAndKeepEarlierItemsApplied) {
  // "edLoose" is on the frame's grid in no panel, "orphan" on no grid at all.
  struct Case {
    const char *source, *sourceShift, *target, *targetName, *targetShift;
    TkxLayoutGrid* Forms::*layout;
    const char* message;
  };
  const Case cases[] = {
      {"edLoose", "root", "", "", "root", nullptr,
       "TkxLayoutMergeSchema: source \"edLoose:root\" not found"},
      {"edX", "parent.Parent", "", "", "", nullptr,
       "TkxLayoutMergeSchema: source \"edX:parent.Parent\" not found"},
      {"orphan", "root", "", "", "", nullptr,
       "TkxLayoutMergeSchema: source \"orphan:root\" not found"},
      {"edY", "root.up", "", "", "", nullptr, "TkxLayoutMergeItem: invalid shift \"edY:root.up\""},
      {"edX", "root", "", "edA", "root", nullptr, "TkxLayoutMergeSchema: TargetLayout = nil"},
      {"edX", "root", "orphan", "", "root", &Forms::formGrid,
       "TkxLayoutMergeSchema: TargetLayout = nil"},
      {"edX", "root", "", "", "root", &Forms::formGrid, "TkxLayoutMergeSchema: TargetPoint  = nil"},
      {"edX", "root", "", "edNone", "root", &Forms::formGrid,
       "TkxLayoutMergeSchema: TargetPoint  = nil"},
      {"edX", "root", "", "edA", "root", &Forms::frameGrid,
       "TkxLayoutMergeSchema: TargetPoint  = nil"},
      {"edX", "root", "edLoose", "", "root", nullptr,
       "TkxLayoutMergeSchema: target \"edLoose:root\" not found"},
      {"edX", "", "edNo", "", "Parent.parent", nullptr,
       "TkxLayoutMergeSchema: target \"edNo:Parent.parent\" not found"},
      {"edX", "", "edNo", "", "top", nullptr, "TkxLayoutMergeItem: invalid shift \"edNo:top\""},
  };
  for (const Case& c : cases) {
    Forms f;
    auto* loose = NewComponent<TkxLayoutControl>(f.frame);
    loose->SetName("edLoose");
    loose->SetParent(f.frameGrid);
    NewComponent<TkxLayoutControl>(f.form)->SetName("orphan");
    if (c.layout) f.schema.SetTargetLayout(f.*c.layout);
    // A first item that succeeds, the failing one, then one that must not run.
    f.Item(f.Frame("edZ"), "root", f.Form("btnOk"), "root");
    f.Item(f.Any(c.source), c.sourceShift, f.Any(c.target), c.targetShift)
        ->SetTargetPointName(c.targetName);
    f.Item(f.Frame("edY"), "root", f.Form("edNo"), "root");
    EXPECT_EQ(MessageOf([&] { f.schema.Apply(true); }), c.message) << c.source << " " << c.target;
    EXPECT_EQ(Shape(*f.formGrid), "Header[edNo] Body[edA](Inner[edB]) Footer[btnOk] Rest[edZ]")
        << c.message;
  }
}

TEST(LayoutMerge, APointOnSomethingOtherThanAGridIsAnInvalidCast) {
  for (bool onSource : {true, false}) {
    Forms f;
    auto* box = NewComponent<TWinControl>(f.form);
    auto* inBox = NewComponent<TkxLayoutControl>(f.form);
    inBox->SetName("inBox");
    inBox->SetParent(box);
    f.Item(onSource ? inBox : f.Frame("edX"), "root", onSource ? f.Form("edA") : inBox, "root");
    EXPECT_EQ(MessageOf<EInvalidCast>([&] { f.schema.Apply(true); }), "Invalid class typecast");
    // Not merging still checks the source, never the target.
    EXPECT_EQ(MessageOf<EInvalidCast>([&] { f.schema.Apply(false); }),
              onSource ? "Invalid class typecast" : "<no exception>");
  }
}

TEST(LayoutMergeItem, DefaultsDisplayNameAndStoredShifts) {
  Forms f;
  TkxLayoutMergeItem* item = f.schema.Items()->Add();
  EXPECT_EQ(
      testutil::Join(item->MergeMode(), item->SourcePoint() == nullptr, item->SourceShift(),
                     item->TargetPoint() == nullptr, "[" + item->TargetPointName() + "]",
                     item->TargetShift(), item->IsSourceShiftStored(), item->IsTargetShiftStored()),
      "0 1 root 1 [] root 0 0");
  EXPECT_EQ(item->GetDisplayName(), "n/a root > n/a root");
  struct Case {
    const char* source;
    const char* sourceShift;
    const char* target;
    const char* name;
    const char* targetShift;
    const char* display;
    bool sourceStored, targetStored;
  };
  const Case cases[] = {
      {"edX", "ROOT", nullptr, "", "Root", "edX ROOT > n/a Root", false, false},
      {"edX", "", nullptr, "edA", "parent", "edX  > edA parent", true, true},
      {nullptr, "parent.root", "btnOk", "edA", "", "n/a parent.root > btnOk ", true, true},
      {"edY", "root ", "edNo", "", "rOOt", "edY root  > edNo rOOt", true, false},
      {"edX", "root", "", "edA", "root", "edX root >  root", false,
       false},  // an unnamed TargetPoint
  };
  auto* unnamed = NewComponent<TkxLayoutControl>(f.form);
  for (const Case& c : cases) {
    item->SetSourcePoint(c.source ? f.Frame(c.source) : nullptr);
    item->SetSourceShift(c.sourceShift);
    item->SetTargetPoint(!c.target ? nullptr : *c.target ? f.Form(c.target) : unnamed);
    item->SetTargetPointName(c.name);
    item->SetTargetShift(c.targetShift);
    EXPECT_EQ(testutil::Join(item->GetDisplayName(), item->IsSourceShiftStored(),
                             item->IsTargetShiftStored()),
              testutil::Join(c.display, c.sourceStored, c.targetStored));
    EXPECT_EQ(item->DisplayName(), c.display);
  }
}

TEST(LayoutMergeItem, AssignCopiesAllSixAndCollectionsCopyTheirItems) {
  Forms f;
  TkxLayoutMergeItem* a = f.Item(f.Frame("edX"), "parent", f.Form("edA"), "", mmAddChild);
  a->SetTargetPointName("edB");
  TkxLayoutMergeItems other;
  TkxLayoutMergeItem* b = other.Add();
  b->Assign(a);
  EXPECT_EQ(
      testutil::Join(b->MergeMode(), b->SourcePoint()->Name(), b->SourceShift(),
                     b->TargetPoint()->Name(), b->TargetPointName(), "[" + b->TargetShift() + "]"),
      "2 edX parent edA edB []");
  EXPECT_EQ(MessageOf<EConvertError>([&] { b->Assign(&other); }),
            "Cannot assign a TkxLayoutMergeItems to a TkxLayoutMergeItem");
  EXPECT_EQ(MessageOf<EConvertError>([&] { b->Assign(nullptr); }),
            "Cannot assign a nil to a TkxLayoutMergeItem");

  // Items[i] set copies into the item; assigning the schema's Items copies the collection.
  other.Add()->SetSourceShift("parent.parent");
  other.SetItems(0, other.Items(1));
  EXPECT_EQ(
      testutil::Join(other.Count(), other[0]->SourceShift(), other[0]->SourcePoint() == nullptr),
      "2 parent.parent 1");
  f.schema.SetItems(&other);
  EXPECT_EQ(f.schema.Items()->Count(), 2);
  EXPECT_NE(f.schema.Items()->Items(1), other.Items(1));
  EXPECT_EQ(f.schema.Items()->Items(1)->SourceShift(), "parent.parent");
}

TEST(LayoutMergeSchema, ForgetsFreedGridAndControls) {
  Forms f;
  f.schema.SetTargetLayout(f.formGrid);
  TkxLayoutMergeItem* item = f.Item(f.Frame("edX"), "root", f.Form("edA"), "root");
  delete f.Frame("edX");  // owned by the frame, not by the schema's owner
  delete f.Form("edA");
  EXPECT_EQ(item->GetDisplayName(), "n/a root > n/a root");
  delete f.formGrid;
  EXPECT_EQ(f.schema.TargetLayout(), nullptr);
  f.schema.Apply(true);  // nothing to do
}

}  // namespace
}  // namespace ostrel
