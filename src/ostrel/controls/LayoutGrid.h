// The layout grid: a windowed control that places its child controls through a tree of
// panels. The grid owns the tree; its root panel is Layout. A panel holds controls (in order)
// and child panels (in order); a control placed in a panel has the grid as its parent control.
//
// The tree is structure only (no geometry or painting): it is what layouts are merged by
// (Kxlayouts.h), saved and loaded (LayoutFiles.h) and drawn as text.
#pragma once

#include <ostrel/rtl/Controls.h>

#include <functional>
#include <memory>
#include <vector>

namespace ostrel {

class TkxLayoutGrid;

// A panel of a layout grid: owns its child panels and points at the controls placed in it.
class OSTREL_API TkxLayoutPanel : public TObject {
  OSTREL_CLASS(TkxLayoutPanel, TObject)
 public:
  ~TkxLayoutPanel() override;

  // A name for people and files; empty by default, not required to be unique.
  const AnsiString& Name() const noexcept { return fName; }
  void SetName(std::string_view name) { fName.assign(name); }
  TkxLayoutGrid* Grid() const noexcept { return fGrid; }
  // The parent panel; null for the root.
  TkxLayoutPanel* Parent() const noexcept { return fParent; }
  // Makes the panel the last child of parent, also when it is a child of parent already, and
  // also in another grid (its controls then move to that grid). Raises EInvalidOperation for
  // the root panel, a null parent, and a parent that is the panel itself or below it.
  void SetParent(TkxLayoutPanel* parent);
  // The position among the parent's children (0 for the root). Setting moves the panel; a
  // position beyond either end puts it first or last.
  Integer Index() const noexcept;
  void SetIndex(Integer index);

  Integer PanelCount() const noexcept { return static_cast<Integer>(fPanels.size()); }
  // Raises EListError "List index (%d) out of bounds".
  TkxLayoutPanel* Panels(Integer index) const;
  // Creates a panel as the last child.
  TkxLayoutPanel* AddPanel(std::string_view name = {});

  Integer ControlCount() const noexcept { return static_cast<Integer>(fControls.size()); }
  TControl* Controls(Integer index) const;
  // Places the control last in this panel: it leaves any other panel, and its parent
  // control becomes the grid. Raises EInvalidOperation for a null control or the grid itself.
  void AddControl(TControl* control);
  // Takes the control out of this panel (nothing when it is not here); it stays on the grid.
  void RemoveControl(TControl* control) noexcept;

  // The panel of this subtree (this one included) that holds the control; false, with panel
  // set to null, when none does.
  bool FindControl(const TControl* control, TkxLayoutPanel*& panel);
  // The first panel of this subtree, in tree order, with the name (compared without regard
  // to case); null when none.
  TkxLayoutPanel* FindPanel(std::string_view name);
  // Shows or hides every control of this subtree.
  void ShowControls(bool show);
  // Calls fn for this panel and every panel below it, parents before children, with the depth
  // below this panel.
  void ForEach(const std::function<void(TkxLayoutPanel& panel, Integer depth)>& fn,
               Integer depth = 0);

 private:
  friend class TkxLayoutGrid;
  TkxLayoutPanel(TkxLayoutGrid* grid, TkxLayoutPanel* parent, std::string_view name);
  std::unique_ptr<TkxLayoutPanel> Extract();
  void MoveToGrid(TkxLayoutGrid* grid);

  TkxLayoutGrid* fGrid;
  TkxLayoutPanel* fParent;
  AnsiString fName;
  std::vector<std::unique_ptr<TkxLayoutPanel>> fPanels;
  std::vector<TControl*> fControls;  // not owned
};

// A windowed control that arranges its controls in a tree of panels, which it owns.
class OSTREL_API TkxLayoutGrid : public TWinControl {
  OSTREL_CLASS(TkxLayoutGrid, TWinControl)
 public:
  explicit TkxLayoutGrid(TComponent* owner);
  ~TkxLayoutGrid() override;

  // The root panel.
  TkxLayoutPanel* Layout() const noexcept { return fLayout.get(); }
  // Empties the tree: a new, empty root panel; the controls stay on the grid, in no panel.
  void Clear();

 protected:
  // A control leaving the grid leaves its panel too.
  void RemovingControl(TControl* control) noexcept override;

 private:
  std::unique_ptr<TkxLayoutPanel> fLayout;
};

// A control known by its name and kind only, as layout files record controls: what a loaded
// layout places when the real controls are not at hand (tools, tests, a designer).
class OSTREL_API TkxLayoutControl : public TControl {
  OSTREL_CLASS(TkxLayoutControl, TControl)
 public:
  explicit TkxLayoutControl(TComponent* owner, std::string_view kind = {});
  const AnsiString& Kind() const noexcept { return fKind; }
  void SetKind(std::string_view kind) { fKind.assign(kind); }

 private:
  AnsiString fKind;
};

// A windowed control known by its name and kind only, holding controls of its own (a group
// box with edits): what a loaded layout makes for a control that holds others.
class OSTREL_API TkxLayoutContainer : public TWinControl {
  OSTREL_CLASS(TkxLayoutContainer, TWinControl)
 public:
  explicit TkxLayoutContainer(TComponent* owner, std::string_view kind = {});
  const AnsiString& Kind() const noexcept { return fKind; }
  void SetKind(std::string_view kind) { fKind.assign(kind); }

 private:
  AnsiString fKind;
};

// The kind of a control as layout files record it: a TkxLayoutControl's or
// TkxLayoutContainer's Kind when it has one, otherwise the class name.
OSTREL_API AnsiString LayoutControlKind(const TControl& control);

}  // namespace ostrel
