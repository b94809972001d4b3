// TControl, TWinControl and the delivery of messages on the main thread.
#include <ostrel/rtl/Controls.h>

#include <ostrel/rtl/Format.h>

#include <algorithm>
#include <mutex>
#include <unordered_map>

namespace ostrel {

OSTREL_DEFINE_CLASS(TControl)
OSTREL_DEFINE_CLASS(TWinControl)
namespace {

// The living windowed controls by handle: the one place where another thread may meet a
// control, and only to learn whether it still exists.
struct WindowRegistry {
  std::mutex Lock;
  std::unordered_map<TWindowHandle, TWinControl*> Controls;
  TWindowHandle Last = 0;
};

WindowRegistry& Registry() {
  static WindowRegistry* registry = new WindowRegistry;  // outlives late posting threads
  return *registry;
}

// Runs on the main thread: the message reaches the control if it still exists.
std::intptr_t Deliver(TWindowHandle handle, Cardinal msg, std::uintptr_t wParam,
                      std::intptr_t lParam) {
  TWinControl* control = FindControl(handle);
  return control ? control->Perform(msg, wParam, lParam) : 0;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// TControl

TControl::TControl(TComponent* owner) : TComponent(owner) {}

TControl::~TControl() {
  if (fParent) fParent->RemoveControl(this);
}

void TControl::SetParent(TWinControl* parent) {
  if (parent == fParent) return;
  if (parent) {
    const auto* self = dynamic_cast<const TWinControl*>(this);
    if (parent == this || (self && self->ContainsControl(parent)))
      throw EInvalidOperation(
          Format("Control '%s' cannot have itself or one of its children as parent", Name()));
  }
  if (fParent) fParent->RemoveControl(this);
  if (parent) parent->InsertControl(this);
}

void TControl::SetVisible(bool value) { fVisible = value; }

// ---------------------------------------------------------------------------------------
// TWinControl

TWinControl::TWinControl(TComponent* owner) : TControl(owner) {
  WindowRegistry& r = Registry();
  std::lock_guard lock(r.Lock);
  fHandle = ++r.Last;
  r.Controls.emplace(fHandle, this);
}

TWinControl::~TWinControl() {
  {
    WindowRegistry& r = Registry();
    std::lock_guard lock(r.Lock);
    r.Controls.erase(fHandle);
  }
  TThread::RemoveQueuedEvents(this);
  for (TControl* c : fControls) c->fParent = nullptr;
  fControls.clear();
}

TControl* TWinControl::Controls(Integer index) const {
  CheckListIndex(index, ControlCount());
  return fControls[static_cast<std::size_t>(index)];
}

Integer TWinControl::IndexOfControl(const TControl* control) const noexcept {
  auto it = std::find(fControls.begin(), fControls.end(), control);
  return it == fControls.end() ? -1 : static_cast<Integer>(it - fControls.begin());
}

void TWinControl::SetChildOrder(TControl* child, Integer order) {
  const Integer from = IndexOfControl(child);
  if (from < 0)
    throw EInvalidOperation(Format("Control '%s' is not a child of '%s'",
                                   child ? child->Name() : AnsiString(), Name()));
  const Integer to = std::clamp(order, 0, ControlCount() - 1);
  fControls.erase(fControls.begin() + from);
  fControls.insert(fControls.begin() + to, child);
}

bool TWinControl::ContainsControl(const TControl* control) const noexcept {
  for (const TControl* p = control ? control->Parent() : nullptr; p; p = p->Parent())
    if (p == this) return true;
  return false;
}

void TWinControl::InsertControl(TControl* control) {
  fControls.push_back(control);
  control->fParent = this;
}

void TWinControl::RemovingControl(TControl*) noexcept {}

void TWinControl::RemoveControl(TControl* control) noexcept {
  RemovingControl(control);
  auto it = std::find(fControls.begin(), fControls.end(), control);
  if (it != fControls.end()) fControls.erase(it);
  control->fParent = nullptr;
}

std::intptr_t TWinControl::Perform(Cardinal msg, std::uintptr_t wParam, std::intptr_t lParam) {
  TMessage message{msg, wParam, lParam, 0};
  WndProc(message);
  return message.Result;
}

void TWinControl::WndProc(TMessage& message) {
  if (OnMessage) OnMessage(*this, message);
}

void TWinControl::Post(Cardinal msg, std::uintptr_t wParam, std::intptr_t lParam) {
  PostControlMessage(fHandle, msg, wParam, lParam);
}

std::intptr_t TWinControl::Send(Cardinal msg, std::uintptr_t wParam, std::intptr_t lParam) {
  std::intptr_t result = 0;
  const TWindowHandle handle = fHandle;
  TThread::Synchronize([&] { result = Deliver(handle, msg, wParam, lParam); });
  return result;
}

bool PostControlMessage(TWindowHandle handle, Cardinal msg, std::uintptr_t wParam,
                        std::intptr_t lParam) {
  // The tag lets a control's destructor drop what is still queued for it; a control freed
  // between this check and the delivery is found missing by Deliver.
  const void* tag = nullptr;
  {
    WindowRegistry& r = Registry();
    std::lock_guard lock(r.Lock);
    auto it = r.Controls.find(handle);
    if (it == r.Controls.end()) return false;
    tag = it->second;
  }
  TThread::ForceQueue([=] { Deliver(handle, msg, wParam, lParam); }, tag);
  return true;
}

TWinControl* FindControl(TWindowHandle handle) {
  WindowRegistry& r = Registry();
  std::lock_guard lock(r.Lock);
  auto it = r.Controls.find(handle);
  return it == r.Controls.end() ? nullptr : it->second;
}

TControl* FindControlByName(const TWinControl* parent, std::string_view name, bool recursive) {
  if (!parent || name.empty()) return nullptr;
  for (Integer i = 0; i < parent->ControlCount(); ++i) {
    TControl* c = parent->Controls(i);
    if (AnsiSameText(c->Name(), name)) return c;
    if (recursive)
      if (auto* w = dynamic_cast<const TWinControl*>(c))
        if (TControl* found = FindControlByName(w, name, true)) return found;
  }
  return nullptr;
}

}  // namespace ostrel
