// The layout grid and its panel tree.
#include <ostrel/controls/LayoutGrid.h>

#include <ostrel/rtl/Format.h>

#include <algorithm>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxLayoutPanel)
OSTREL_DEFINE_CLASS(TkxLayoutGrid)
OSTREL_DEFINE_CLASS(TkxLayoutControl)
OSTREL_DEFINE_CLASS(TkxLayoutContainer)

// ---------------------------------------------------------------------------------------
// TkxLayoutPanel

TkxLayoutPanel::TkxLayoutPanel(TkxLayoutGrid* grid, TkxLayoutPanel* parent, std::string_view name)
    : fGrid(grid), fParent(parent), fName(name) {}

TkxLayoutPanel::~TkxLayoutPanel() {
  // The subtree is freed from a flat list, each panel handing its children to the list before
  // it goes: a tree of any depth is freed without a destructor per level on the stack.
  std::vector<std::unique_ptr<TkxLayoutPanel>> pending = std::move(fPanels);
  while (!pending.empty()) {
    std::unique_ptr<TkxLayoutPanel> panel = std::move(pending.back());
    pending.pop_back();
    for (auto& child : panel->fPanels) pending.push_back(std::move(child));
    panel->fPanels.clear();
  }
}

TkxLayoutPanel* TkxLayoutPanel::Panels(Integer index) const {
  CheckListIndex(index, PanelCount());
  return fPanels[static_cast<std::size_t>(index)].get();
}

TkxLayoutPanel* TkxLayoutPanel::AddPanel(std::string_view name) {
  fPanels.push_back(std::unique_ptr<TkxLayoutPanel>(new TkxLayoutPanel(fGrid, this, name)));
  return fPanels.back().get();
}

Integer TkxLayoutPanel::Index() const noexcept {
  if (!fParent) return 0;
  const auto& siblings = fParent->fPanels;
  return static_cast<Integer>(std::find_if(siblings.begin(), siblings.end(),
                                           [&](const auto& p) { return p.get() == this; }) -
                              siblings.begin());
}

void TkxLayoutPanel::SetIndex(Integer index) {
  if (!fParent) return;
  auto& siblings = fParent->fPanels;
  const Integer from = Index();
  const Integer to = std::clamp(index, 0, static_cast<Integer>(siblings.size()) - 1);
  if (to == from) return;
  std::unique_ptr<TkxLayoutPanel> self = std::move(siblings[static_cast<std::size_t>(from)]);
  siblings.erase(siblings.begin() + from);
  siblings.insert(siblings.begin() + to, std::move(self));
}

std::unique_ptr<TkxLayoutPanel> TkxLayoutPanel::Extract() {
  auto& siblings = fParent->fPanels;
  auto it = siblings.begin() + Index();
  std::unique_ptr<TkxLayoutPanel> self = std::move(*it);
  siblings.erase(it);
  fParent = nullptr;
  return self;
}

void TkxLayoutPanel::SetParent(TkxLayoutPanel* parent) {
  if (!fParent)
    throw EInvalidOperation("TkxLayoutPanel.SetParent: the root panel of a layout cannot be moved");
  if (!parent) throw EInvalidOperation("TkxLayoutPanel.SetParent: no parent panel");
  for (const TkxLayoutPanel* p = parent; p; p = p->fParent)
    if (p == this)
      throw EInvalidOperation(Format(
          "TkxLayoutPanel.SetParent: panel \"%s\" cannot be moved into itself or below itself",
          fName));
  std::unique_ptr<TkxLayoutPanel> self = Extract();
  fParent = parent;
  parent->fPanels.push_back(std::move(self));
  if (parent->fGrid != fGrid) MoveToGrid(parent->fGrid);
}

void TkxLayoutPanel::MoveToGrid(TkxLayoutGrid* grid) {
  ForEach([&](TkxLayoutPanel& p, Integer) {
    p.fGrid = grid;
    // The panel has left the old grid's tree already, so the old grid's notification finds
    // nothing to take out.
    for (TControl* c : p.fControls) c->SetParent(grid);
  });
}

TControl* TkxLayoutPanel::Controls(Integer index) const {
  CheckListIndex(index, ControlCount());
  return fControls[static_cast<std::size_t>(index)];
}

void TkxLayoutPanel::AddControl(TControl* control) {
  if (!control || control == fGrid)
    throw EInvalidOperation("TkxLayoutPanel.AddControl: no control to place");
  if (control->Parent() != fGrid) {
    // A control arriving from elsewhere is in none of this grid's panels: no search needed,
    // which keeps filling a large tree linear.
    control->SetParent(fGrid);
  } else {
    TkxLayoutPanel* holder = nullptr;
    if (fGrid->Layout()->FindControl(control, holder)) holder->RemoveControl(control);
  }
  fControls.push_back(control);
}

void TkxLayoutPanel::RemoveControl(TControl* control) noexcept { std::erase(fControls, control); }

bool TkxLayoutPanel::FindControl(const TControl* control, TkxLayoutPanel*& panel) {
  panel = nullptr;
  if (!control) return false;
  ForEach([&](TkxLayoutPanel& p, Integer) {
    if (!panel && std::find(p.fControls.begin(), p.fControls.end(), control) != p.fControls.end())
      panel = &p;
  });
  return panel != nullptr;
}

TkxLayoutPanel* TkxLayoutPanel::FindPanel(std::string_view name) {
  TkxLayoutPanel* found = nullptr;
  ForEach([&](TkxLayoutPanel& p, Integer) {
    if (!found && AnsiSameText(p.fName, name)) found = &p;
  });
  return found;
}

void TkxLayoutPanel::ShowControls(bool show) {
  ForEach([&](TkxLayoutPanel& p, Integer) {
    for (TControl* c : p.fControls) c->SetVisible(show);
  });
}

void TkxLayoutPanel::ForEach(const std::function<void(TkxLayoutPanel&, Integer)>& fn,
                             Integer depth) {
  // An explicit stack: the file decides how deep a tree is.
  std::vector<std::pair<TkxLayoutPanel*, Integer>> stack{{this, depth}};
  while (!stack.empty()) {
    auto [panel, level] = stack.back();
    stack.pop_back();
    fn(*panel, level);
    for (auto it = panel->fPanels.rbegin(); it != panel->fPanels.rend(); ++it)
      stack.emplace_back(it->get(), level + 1);
  }
}

// ---------------------------------------------------------------------------------------
// TkxLayoutGrid

TkxLayoutGrid::TkxLayoutGrid(TComponent* owner) : TWinControl(owner) { Clear(); }

TkxLayoutGrid::~TkxLayoutGrid() = default;

void TkxLayoutGrid::Clear() { fLayout.reset(new TkxLayoutPanel(this, nullptr, {})); }

void TkxLayoutGrid::RemovingControl(TControl* control) noexcept {
  TkxLayoutPanel* holder = nullptr;
  if (fLayout && fLayout->FindControl(control, holder)) holder->RemoveControl(control);
  TWinControl::RemovingControl(control);
}

// ---------------------------------------------------------------------------------------

TkxLayoutControl::TkxLayoutControl(TComponent* owner, std::string_view kind)
    : TControl(owner), fKind(kind) {}

TkxLayoutContainer::TkxLayoutContainer(TComponent* owner, std::string_view kind)
    : TWinControl(owner), fKind(kind) {}

AnsiString LayoutControlKind(const TControl& control) {
  if (const auto* c = dynamic_cast<const TkxLayoutControl*>(&control); c && !c->Kind().empty())
    return c->Kind();
  if (const auto* c = dynamic_cast<const TkxLayoutContainer*>(&control); c && !c->Kind().empty())
    return c->Kind();
  return control.ClassName();
}

}  // namespace ostrel
