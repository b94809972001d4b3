// TComponent: owner-based lifetime, names and state.
#include <ostrel/rtl/Classes.h>

#include <ostrel/rtl/Format.h>

#include <algorithm>

namespace ostrel {

OSTREL_DEFINE_CLASS(TComponent)

bool IsValidIdent(std::string_view ident) {
  auto alpha = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  if (ident.empty() || !alpha(ident[0])) return false;
  return std::all_of(ident.begin() + 1, ident.end(),
                     [&](char c) { return alpha(c) || (c >= '0' && c <= '9'); });
}

TComponent::TComponent(TComponent* owner) {
  if (owner) owner->InsertComponent(this);
}

TComponent::~TComponent() {
  Destroying();
  while (!fFreeNotifies.empty()) {
    TComponent* c = fFreeNotifies.back();
    RemoveFreeNotification(c);
    try {
      c->Notification(this, opRemove);
    } catch (...) {
    }
  }
  DestroyComponents();
  if (fOwner) {
    // A destructor cannot raise: when the owner's notification does, the component still
    // leaves the owner's list.
    try {
      fOwner->RemoveComponent(this);
    } catch (...) {
    }
    if (fOwner) fOwner->Detach(this);
  }
}

void TComponent::BeforeDestruction() {
  if (!fState.Contains(csDestroying)) Destroying();
}

void TComponent::Destroying() noexcept {
  if (fState.Contains(csDestroying)) return;
  fState.Include(csDestroying);
  for (TComponent* c : fComponents) c->Destroying();
}

void TComponent::Attach(TComponent* component) {
  fComponents.push_back(component);
  component->fOwner = this;
}

void TComponent::Detach(TComponent* component) noexcept {
  auto it = std::find(fComponents.begin(), fComponents.end(), component);
  if (it != fComponents.end()) fComponents.erase(it);
  component->fOwner = nullptr;
}

TComponent* TComponent::Components(Integer index) const {
  CheckListIndex(index, ComponentCount());
  return fComponents[static_cast<std::size_t>(index)];
}

Integer TComponent::ComponentIndex() const noexcept {
  if (!fOwner) return -1;
  const auto& list = fOwner->fComponents;
  return static_cast<Integer>(std::find(list.begin(), list.end(), this) - list.begin());
}

TComponent* TComponent::FindComponent(std::string_view name) const {
  if (name.empty()) return nullptr;
  for (TComponent* c : fComponents)
    if (AnsiSameText(c->fName, name)) return c;
  return nullptr;
}

void TComponent::SetName(std::string_view newName) {
  if (fName == newName) return;
  if (!newName.empty() && !IsValidIdent(newName))
    throw EComponentError(Format(SysConst::SInvalidName, newName));
  if (fOwner) fOwner->ValidateRename(this, fName, newName);
  fName.assign(newName);
}

void TComponent::ValidateRename(TComponent* component, std::string_view curName,
                                std::string_view newName) const {
  if (component && !AnsiSameText(curName, newName) && component->fOwner == this &&
      FindComponent(newName))
    throw EComponentError(Format(SysConst::SDuplicateName, newName));
}

void TComponent::InsertComponent(TComponent* component) {
  if (!component || component->fOwner == this) return;
  for (const TComponent* o = this; o; o = o->fOwner)
    if (o == component)
      throw EComponentError("Cannot insert a component into itself or into one it owns");
  // Unlike a rename, taking over a named component is checked against this owner's names
  // here, so that no owner ever holds two components of one name.
  if (FindComponent(component->fName))
    throw EComponentError(Format(SysConst::SDuplicateName, component->fName));
  if (component->fOwner) component->fOwner->RemoveComponent(component);
  Attach(component);
  if (fState.Contains(csDesigning)) component->SetDesigning(true);
  Notification(component, opInsert);
}

void TComponent::RemoveComponent(TComponent* component) {
  if (!component || component->fOwner != this) return;
  Notification(component, opRemove);
  Detach(component);
}

void TComponent::DestroyComponents() {
  while (!fComponents.empty()) {
    TComponent* c = fComponents.back();
    Detach(c);
    delete c;
  }
}

void TComponent::Notification(TComponent* component, TOperation operation) {
  // Walks from the end and re-checks the bound, as a notified component may free others.
  for (Integer i = ComponentCount() - 1; i >= 0; --i) {
    if (i >= ComponentCount()) {
      i = ComponentCount();
      continue;
    }
    fComponents[static_cast<std::size_t>(i)]->Notification(component, operation);
  }
}

void TComponent::FreeNotification(TComponent* component) {
  if (!component || component == this) return;
  auto add = [](std::vector<TComponent*>& list, TComponent* c) {
    if (std::find(list.begin(), list.end(), c) == list.end()) list.push_back(c);
  };
  add(fFreeNotifies, component);
  add(component->fFreeNotifies, this);
}

void TComponent::RemoveFreeNotification(TComponent* component) {
  if (!component) return;
  std::erase(fFreeNotifies, component);
  std::erase(component->fFreeNotifies, this);
}

void TComponent::SetLoading(bool value) {
  if (value)
    fState.Include(csLoading);
  else
    fState.Exclude(csLoading);
}

void TComponent::SetDesigning(bool value, bool inclSubComponents) {
  if (value)
    fState.Include(csDesigning);
  else
    fState.Exclude(csDesigning);
  if (inclSubComponents)
    for (TComponent* c : fComponents) c->SetDesigning(value, true);
}

void TComponent::Loaded() { fState.Exclude(csLoading); }

}  // namespace ostrel
