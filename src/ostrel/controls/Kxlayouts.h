// Layout grids and the layout merge schema.
//
// A descendant form built of layout grids often embeds a frame with a grid of its own, and
// wants the frame's panels inside its own layout: TkxLayoutMergeSchema lists such moves. Each
// TkxLayoutMergeItem names a source panel and a target panel indirectly, by a control the
// panel holds and a "shift" path of steps ("parent", "root") from that control's panel, and
// says whether the source goes after, before or inside the target. Apply(true) performs the
// moves in list order; Apply(false) hides the sources instead.
#pragma once

#include <ostrel/controls/LayoutGrid.h>
#include <ostrel/rtl/Collections.h>

namespace ostrel {

enum TkxLayoutMergeMode { mmInsertAfter, mmInsertBefore, mmAddChild };

// One step of a merge schema: a panel of the source layout and the point of the target
// layout it moves to (after it, before it, or as its last child).
class OSTREL_API TkxLayoutMergeItem : public TCollectionItem {
  OSTREL_CLASS(TkxLayoutMergeItem, TCollectionItem)
 public:
  explicit TkxLayoutMergeItem(TCollection* collection);

  TkxLayoutMergeMode MergeMode() const noexcept { return fMergeMode; }
  void SetMergeMode(TkxLayoutMergeMode value) noexcept { fMergeMode = value; }
  // A control placed on a layout grid (not owned).
  TControl* SourcePoint() const noexcept { return fSourcePoint; }
  void SetSourcePoint(TControl* value);
  const AnsiString& SourceShift() const noexcept { return fSourceShift; }
  void SetSourceShift(std::string_view value) { fSourceShift.assign(value); }
  // A control placed on a layout grid (not owned).
  TControl* TargetPoint() const noexcept { return fTargetPoint; }
  void SetTargetPoint(TControl* value);
  // The name of the target control below the schema's TargetLayout, used when TargetPoint
  // is not set.
  const AnsiString& TargetPointName() const noexcept { return fTargetPointName; }
  void SetTargetPointName(std::string_view value) { fTargetPointName.assign(value); }
  const AnsiString& TargetShift() const noexcept { return fTargetShift; }
  void SetTargetShift(std::string_view value) { fTargetShift.assign(value); }

  // From another merge item: all six properties; anything else is the generic assignment.
  void Assign(const TPersistent* source) override;
  // "<source name> <source shift> > <target name> <target shift>": the target's name is
  // TargetPoint's, else TargetPointName when not empty; "n/a" stands for what is missing.
  AnsiString GetDisplayName() const override;
  // Whether a shift is stored with the form: only when it is not "root" (ignoring case).
  bool IsSourceShiftStored() const;
  bool IsTargetShiftStored() const;

  // Moves the source panel to the target (merge true) or hides the source panel's controls
  // (merge false). Nothing happens without a SourcePoint. Failures raise Exception with the
  // schema's messages; a source or target control on something other than a layout grid
  // raises EInvalidCast.
  void DoMerge(TkxLayoutGrid* targetLayout, bool merge);

  // Point resolution: the panel of root's subtree holding control, moved along the shift
  // steps ("parent": to the parent panel; "root": up to the panel just below root). False
  // when no panel holds the control (the shift is then not looked at) or a "parent" step
  // climbs above the tree; an unknown step raises "TkxLayoutMergeItem: invalid shift
  // "<control>:<shift>"".
  static bool ResolvePoint(TkxLayoutPanel* root, const TControl* control, std::string_view shift,
                           TkxLayoutPanel*& panel);

 private:
  void Watch(TControl* control);

  TkxLayoutMergeMode fMergeMode = mmInsertAfter;
  TControl* fSourcePoint = nullptr;
  AnsiString fSourceShift = "root";
  TControl* fTargetPoint = nullptr;
  AnsiString fTargetPointName;
  AnsiString fTargetShift = "root";

  friend class TkxLayoutMergeSchema;
};

// The steps of a merge schema, applied in order.
class OSTREL_API TkxLayoutMergeItems : public TCollection {
  OSTREL_CLASS(TkxLayoutMergeItems, TCollection)
 public:
  explicit TkxLayoutMergeItems(TObject* owner = nullptr);

  TkxLayoutMergeItem* Items(Integer index) const;
  TkxLayoutMergeItem* operator[](Integer index) const { return Items(index); }
  void SetItems(Integer index, const TkxLayoutMergeItem* value) {
    TCollection::SetItems(index, value);
  }
  TkxLayoutMergeItem* Add();
};

// Moves the panels of an embedded frame's layout into a form's layout step by step
// (Apply(true)), or hides them when the form does not merge (Apply(false)).
class OSTREL_API TkxLayoutMergeSchema : public TComponent {
  OSTREL_CLASS(TkxLayoutMergeSchema, TComponent)
 public:
  explicit TkxLayoutMergeSchema(TComponent* owner);
  ~TkxLayoutMergeSchema() override;

  TkxLayoutMergeItems* Items() const noexcept { return fItems.get(); }
  // Copies the given items.
  void SetItems(const TkxLayoutMergeItems* value);
  // The grid into which items without a TargetPoint merge (not owned).
  TkxLayoutGrid* TargetLayout() const noexcept { return fTargetLayout; }
  void SetTargetLayout(TkxLayoutGrid* value);

  // DoMerge(TargetLayout, merge) of every item in order; a failure stops there, the items
  // before it staying applied.
  void Apply(bool merge);

 protected:
  // Forgets the grid and the controls that are freed.
  void Notification(TComponent* component, TOperation operation) override;

 private:
  std::unique_ptr<TkxLayoutMergeItems> fItems;
  TkxLayoutGrid* fTargetLayout = nullptr;
};

}  // namespace ostrel
