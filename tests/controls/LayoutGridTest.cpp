#include <ostrel/controls/LayoutGrid.h>

#include "LayoutTestUtil.h"

#include <TestUtil.h>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

using testutil::MakeGrid;
using testutil::MessageOf;
using testutil::Shape;

TControl* Ctl(TComponent& owner, const char* name) {
  return static_cast<TControl*>(owner.FindComponent(name));
}

TEST(LayoutGrid, PlacedControlsHaveTheGridAsParentAndSitInOnePanelOnly) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "Top[a b](Inner[c]) Bottom");
  EXPECT_EQ(Shape(*grid), "Top[a b](Inner[c]) Bottom");
  EXPECT_EQ(Ctl(form, "c")->Parent(), grid);
  EXPECT_EQ(grid->ControlCount(), 3);
  TkxLayoutPanel* bottom = grid->Layout()->FindPanel("BOTTOM");
  bottom->AddControl(Ctl(form, "a"));  // moves
  EXPECT_EQ(Shape(*grid), "Top[b](Inner[c]) Bottom[a]");
  TkxLayoutPanel* found = nullptr;
  EXPECT_TRUE(grid->Layout()->FindControl(Ctl(form, "c"), found));
  EXPECT_EQ(found->Name(), "Inner");
  EXPECT_FALSE(bottom->FindControl(Ctl(form, "c"), found));  // only its own subtree
  EXPECT_EQ(found, nullptr);

  // A control leaving the grid, by a new parent or by being freed, leaves its panel.
  TkxLayoutGrid* other = MakeGrid(form, "Other", "");
  other->Layout()->AddControl(Ctl(form, "b"));
  delete Ctl(form, "c");
  Ctl(form, "a")->SetParent(nullptr);
  EXPECT_EQ(Shape(*grid), "Top(Inner) Bottom");
  EXPECT_EQ(Shape(*other->Layout()), "[b]");
  EXPECT_EQ(MessageOf<EInvalidOperation>([&] { bottom->AddControl(grid); }),
            "TkxLayoutPanel.AddControl: no control to place");
}

TEST(LayoutGrid, SetParentAppendsLastAndIndexMovesAmongSiblings) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "A B(B1 B2) C");
  TkxLayoutPanel* root = grid->Layout();
  TkxLayoutPanel* a = root->FindPanel("A");
  a->SetParent(root);  // already a child: still moves to the end
  EXPECT_EQ(Shape(*grid), "B(B1 B2) C A");
  a->SetParent(root->FindPanel("B"));
  EXPECT_EQ(Shape(*grid), "B(B1 B2 A) C");
  struct Case {
    Integer index;
    const char* shape;
  };
  for (const Case& c : {Case{0, "B(A B1 B2) C"}, Case{2, "B(B1 B2 A) C"}, Case{1, "B(B1 A B2) C"},
                        Case{-5, "B(A B1 B2) C"}, Case{99, "B(B1 B2 A) C"}}) {
    a->SetIndex(c.index);
    EXPECT_EQ(Shape(*grid), c.shape) << c.index;
  }
  EXPECT_EQ(testutil::Join(a->Index(), root->Index(), root->Parent() == nullptr), "2 0 1");
  EXPECT_EQ(MessageOf<EInvalidOperation>([&] { root->SetParent(a); }),
            "TkxLayoutPanel.SetParent: the root panel of a layout cannot be moved");
  EXPECT_EQ(MessageOf<EInvalidOperation>([&] { a->SetParent(nullptr); }),
            "TkxLayoutPanel.SetParent: no parent panel");
  TkxLayoutPanel* b = root->FindPanel("B");
  EXPECT_EQ(MessageOf<EInvalidOperation>([&] { b->SetParent(a); }),
            "TkxLayoutPanel.SetParent: panel \"B\" cannot be moved into itself or below itself");
  EXPECT_EQ(MessageOf<EInvalidOperation>([&] { b->SetParent(b); }),
            "TkxLayoutPanel.SetParent: panel \"B\" cannot be moved into itself or below itself");
  EXPECT_EQ(Shape(*grid), "B(B1 B2 A) C");
  EXPECT_EQ(MessageOf<EListError>([&] { root->Panels(2); }), "List index (2) out of bounds");
}

TEST(LayoutGrid, APanelMovedToAnotherGridTakesItsControlsAlong) {
  TComponent form(nullptr), frame(nullptr);
  TkxLayoutGrid* formGrid = MakeGrid(form, "FormGrid", "Main[edA]");
  TkxLayoutGrid* frameGrid = MakeGrid(frame, "FrameGrid", "Part[edX](Sub[edY]) Rest[edZ]");
  frameGrid->Layout()->FindPanel("Part")->SetParent(formGrid->Layout()->FindPanel("Main"));
  EXPECT_EQ(Shape(*formGrid), "Main[edA](Part[edX](Sub[edY]))");
  EXPECT_EQ(Shape(*frameGrid), "Rest[edZ]");
  EXPECT_EQ(testutil::Join(Ctl(frame, "edX")->Parent()->Name(), Ctl(frame, "edY")->Parent()->Name(),
                           formGrid->ControlCount(), frameGrid->ControlCount()),
            "FormGrid FormGrid 3 1");
  EXPECT_EQ(formGrid->Layout()->FindPanel("sub")->Grid(), formGrid);
  // The moved controls now leave the form's panels when freed.
  delete Ctl(frame, "edY");
  EXPECT_EQ(Shape(*formGrid), "Main[edA](Part[edX](Sub))");
}

TEST(LayoutGrid, ShowControlsCoversTheWholeSubtreeOnly) {
  TComponent form(nullptr);
  TkxLayoutGrid* grid = MakeGrid(form, "Grid", "Top[a](Inner[b c](Deep[d])) Side[e]");
  grid->Layout()->FindPanel("Inner")->ShowControls(false);
  EXPECT_EQ(Shape(*grid), "Top[a](Inner[b- c-](Deep[d-])) Side[e]");
  grid->Layout()->ShowControls(true);
  EXPECT_EQ(Shape(*grid), "Top[a](Inner[b c](Deep[d])) Side[e]");
  grid->Clear();  // the controls stay on the grid, in no panel
  EXPECT_EQ(testutil::Join(Shape(*grid).empty(), grid->ControlCount()), "1 5");
}

}  // namespace
}  // namespace ostrel
