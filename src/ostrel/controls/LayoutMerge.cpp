// The layout merge schema: its items, point resolution and the merge itself.
#include <ostrel/controls/Kxlayouts.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/services/ErrServ.h>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxLayoutMergeItem)
OSTREL_DEFINE_CLASS(TkxLayoutMergeItems)
OSTREL_DEFINE_CLASS(TkxLayoutMergeSchema)
namespace {

constexpr std::string_view SErrInvalidShift = "TkxLayoutMergeItem: invalid shift \"%s:%s\"";
constexpr std::string_view SErrSourceNotFound = "TkxLayoutMergeSchema: source \"%s:%s\" not found";
constexpr std::string_view SErrTargetNotFound = "TkxLayoutMergeSchema: target \"%s:%s\" not found";
constexpr std::string_view SErrNoTargetLayout = "TkxLayoutMergeSchema: TargetLayout = nil";
// Two blanks before "=": the text as the schema has always reported it.
constexpr std::string_view SErrNoTargetPoint = "TkxLayoutMergeSchema: TargetPoint  = nil";
constexpr std::string_view SDefaultShift = "root";
constexpr std::string_view SNoName = "n/a";

// The layout grid a control is placed on, as a checked conversion: null for a control without
// a parent, EInvalidCast for a parent of another class.
TkxLayoutGrid* GridOf(const TControl* control) {
  TWinControl* parent = control->Parent();
  if (!parent) return nullptr;
  auto* grid = dynamic_cast<TkxLayoutGrid*>(parent);
  if (!grid) throw EInvalidCast(SysConst::SInvalidCast);
  return grid;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// TkxLayoutMergeItem

TkxLayoutMergeItem::TkxLayoutMergeItem(TCollection* collection) : TCollectionItem(collection) {}

void TkxLayoutMergeItem::Watch(TControl* control) {
  // The schema that owns the collection forgets a referenced control when it is freed.
  if (control && Collection())
    if (auto* schema = dynamic_cast<TComponent*>(Collection()->Owner()))
      control->FreeNotification(schema);
}

void TkxLayoutMergeItem::SetSourcePoint(TControl* value) {
  fSourcePoint = value;
  Watch(value);
}

void TkxLayoutMergeItem::SetTargetPoint(TControl* value) {
  fTargetPoint = value;
  Watch(value);
}

void TkxLayoutMergeItem::Assign(const TPersistent* source) {
  const auto* other = dynamic_cast<const TkxLayoutMergeItem*>(source);
  if (!other) {
    TCollectionItem::Assign(source);
    return;
  }
  SetMergeMode(other->fMergeMode);
  SetSourcePoint(other->fSourcePoint);
  SetSourceShift(other->fSourceShift);
  SetTargetPoint(other->fTargetPoint);
  SetTargetPointName(other->fTargetPointName);
  SetTargetShift(other->fTargetShift);
}

AnsiString TkxLayoutMergeItem::GetDisplayName() const {
  const AnsiString source = fSourcePoint ? fSourcePoint->Name() : AnsiString(SNoName);
  const AnsiString target = fTargetPoint                ? fTargetPoint->Name()
                            : !fTargetPointName.empty() ? fTargetPointName
                                                        : AnsiString(SNoName);
  return source + ' ' + fSourceShift + " > " + target + ' ' + fTargetShift;
}

bool TkxLayoutMergeItem::IsSourceShiftStored() const {
  return !AnsiSameText(fSourceShift, SDefaultShift);
}
bool TkxLayoutMergeItem::IsTargetShiftStored() const {
  return !AnsiSameText(fTargetShift, SDefaultShift);
}

bool TkxLayoutMergeItem::ResolvePoint(TkxLayoutPanel* root, const TControl* control,
                                      std::string_view shift, TkxLayoutPanel*& panel) {
  if (!root || !root->FindControl(control, panel)) return false;
  if (shift.empty()) return true;
  // Every step is checked, also after a "parent" step has climbed above the top of the tree
  // (where no panel is left to merge, so the point is then not found).
  std::size_t from = 0;
  for (;;) {
    const std::size_t dot = shift.find('.', from);
    const std::string_view step =
        shift.substr(from, dot == std::string_view::npos ? dot : dot - from);
    if (AnsiSameText(step, "parent")) {
      if (panel) panel = panel->Parent();
    } else if (AnsiSameText(step, "root")) {
      while (panel && panel->Parent() && panel->Parent() != root) panel = panel->Parent();
    } else {
      DIE(SErrInvalidShift, control->Name(), shift);
    }
    if (dot == std::string_view::npos) return panel != nullptr;
    from = dot + 1;
  }
}

void TkxLayoutMergeItem::DoMerge(TkxLayoutGrid* targetLayout, bool merge) {
  if (!fSourcePoint) return;
  TkxLayoutGrid* sourceGrid = GridOf(fSourcePoint);
  TkxLayoutPanel* source = nullptr;
  if (!sourceGrid || !ResolvePoint(sourceGrid->Layout(), fSourcePoint, fSourceShift, source))
    DIE(SErrSourceNotFound, fSourcePoint->Name(), fSourceShift);
  if (!merge) {
    source->ShowControls(false);
    return;
  }

  TkxLayoutGrid* targetGrid = nullptr;
  TControl* targetControl = nullptr;
  if (fTargetPoint) {
    targetGrid = GridOf(fTargetPoint);
    targetControl = fTargetPoint;
  } else {
    targetGrid = targetLayout;
    targetControl = FindControlByName(targetLayout, fTargetPointName, false);
  }
  if (!targetGrid) DIE(SErrNoTargetLayout);
  if (!targetControl) DIE(SErrNoTargetPoint);
  TkxLayoutPanel* target = nullptr;
  if (!ResolvePoint(targetGrid->Layout(), targetControl, fTargetShift, target))
    DIE(SErrTargetNotFound, targetControl->Name(), fTargetShift);

  if (fMergeMode == mmAddChild) {
    source->SetParent(target);
    return;
  }
  source->SetParent(target->Parent());
  // The target's index is read after the move: with both under one parent it may have shifted.
  source->SetIndex(target->Index() + (fMergeMode == mmInsertAfter ? 1 : 0));
}

// ---------------------------------------------------------------------------------------
// TkxLayoutMergeItems

TkxLayoutMergeItems::TkxLayoutMergeItems(TObject* owner)
    : TCollection([](TCollection* c) -> TCollectionItem* { return new TkxLayoutMergeItem(c); },
                  owner) {}

TkxLayoutMergeItem* TkxLayoutMergeItems::Items(Integer index) const {
  return static_cast<TkxLayoutMergeItem*>(TCollection::Items(index));
}

TkxLayoutMergeItem* TkxLayoutMergeItems::Add() {
  return static_cast<TkxLayoutMergeItem*>(TCollection::Add());
}

// ---------------------------------------------------------------------------------------
// TkxLayoutMergeSchema

TkxLayoutMergeSchema::TkxLayoutMergeSchema(TComponent* owner)
    : TComponent(owner), fItems(new TkxLayoutMergeItems(this)) {}

TkxLayoutMergeSchema::~TkxLayoutMergeSchema() = default;

void TkxLayoutMergeSchema::SetItems(const TkxLayoutMergeItems* value) { fItems->Assign(value); }

void TkxLayoutMergeSchema::SetTargetLayout(TkxLayoutGrid* value) {
  fTargetLayout = value;
  if (value) value->FreeNotification(this);
}

void TkxLayoutMergeSchema::Apply(bool merge) {
  for (Integer i = 0; i < fItems->Count(); ++i) fItems->Items(i)->DoMerge(fTargetLayout, merge);
}

void TkxLayoutMergeSchema::Notification(TComponent* component, TOperation operation) {
  TComponent::Notification(component, operation);
  if (operation != opRemove) return;
  if (component == fTargetLayout) fTargetLayout = nullptr;
  for (Integer i = 0; i < fItems->Count(); ++i) {
    TkxLayoutMergeItem* item = fItems->Items(i);
    if (item->fSourcePoint == component) item->fSourcePoint = nullptr;
    if (item->fTargetPoint == component) item->fTargetPoint = nullptr;
  }
}

}  // namespace ostrel
