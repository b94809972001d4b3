// The non-visual basics of controls: TControl (a component with a parent windowed control and a
// visible flag), TWinControl (a control holding child controls in order and receiving
// messages), posting messages to the main thread, and FindControlByName.
//
// Controls belong to the main thread. Only handing a control a message (Post, Send,
// PostControlMessage) may happen on any thread: the message goes to the main thread through
// the queue of Threads.h and is delivered to the control's WndProc there. (The names avoid
// PostMessage and SendMessage, which windows.h defines as macros.)
//
// Ownership is the component's: the owner frees a control. A parent only arranges its
// children; when it is freed first, its remaining children are left without a parent.
#pragma once

#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/Threads.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace ostrel {

class TWinControl;

// A message for a windowed control: its number, two parameters and the handler's result.
struct TMessage {
  Cardinal Msg = 0;
  std::uintptr_t WParam = 0;
  std::intptr_t LParam = 0;
  std::intptr_t Result = 0;
};

// The number that names a windowed control to other threads: unique in the process and never
// reused, so that a message posted to a control freed meanwhile finds nobody (0 is no window).
using TWindowHandle = UInt64;

// A control: a component with a name, a visibility and a parent that arranges it.
class OSTREL_API TControl : public TComponent {
  OSTREL_CLASS(TControl, TComponent)
 public:
  explicit TControl(TComponent* owner);
  ~TControl() override;

  TWinControl* Parent() const noexcept { return fParent; }
  // Moves the control to the end of the new parent's controls (null: no parent). Raises
  // EInvalidOperation when the parent is the control itself or one of its children.
  virtual void SetParent(TWinControl* parent);
  bool Visible() const noexcept { return fVisible; }
  virtual void SetVisible(bool value);
  void Show() { SetVisible(true); }
  void Hide() { SetVisible(false); }

 private:
  friend class TWinControl;
  TWinControl* fParent = nullptr;
  bool fVisible = true;
};

// A control with a window handle, by which messages are posted to it, and child controls.
class OSTREL_API TWinControl : public TControl {
  OSTREL_CLASS(TWinControl, TControl)
 public:
  explicit TWinControl(TComponent* owner);
  ~TWinControl() override;

  // The child controls, in order. Controls(i) raises EListError "List index (%d) out of
  // bounds".
  Integer ControlCount() const noexcept { return static_cast<Integer>(fControls.size()); }
  TControl* Controls(Integer index) const;
  // The child's position among the controls (-1 when it is not a child).
  Integer IndexOfControl(const TControl* control) const noexcept;
  // Moves a child to the position (clamped to the list); raises EInvalidOperation for a
  // control that is not a child.
  void SetChildOrder(TControl* child, Integer order);
  // Whether the control is below this one, at any depth.
  bool ContainsControl(const TControl* control) const noexcept;

  TWindowHandle Handle() const noexcept { return fHandle; }

  // Hands the message to WndProc now, on the calling thread, and returns its result.
  std::intptr_t Perform(Cardinal msg, std::uintptr_t wParam, std::intptr_t lParam);
  // From any thread: queues the message for the main thread and returns at once. The message
  // reaches WndProc when the main thread next runs its queue, unless the control is freed
  // first.
  void Post(Cardinal msg, std::uintptr_t wParam, std::intptr_t lParam);
  // From any thread: hands the message to WndProc on the main thread and waits for its
  // result; an exception from the handler is raised again in the caller.
  std::intptr_t Send(Cardinal msg, std::uintptr_t wParam, std::intptr_t lParam);

  // Called for messages that WndProc leaves to the default handling (assignable).
  std::function<void(TWinControl& sender, TMessage& message)> OnMessage;

 protected:
  // Handles a message. The default calls OnMessage when it is assigned and otherwise leaves
  // Result at 0. Descendants override it and call the inherited one for what they do not
  // handle.
  virtual void WndProc(TMessage& message);
  // Told when a child control is about to leave (moved to another parent or freed); not
  // called while this control itself is being freed.
  virtual void RemovingControl(TControl* control) noexcept;

 private:
  friend class TControl;
  void InsertControl(TControl* control);
  void RemoveControl(TControl* control) noexcept;

  std::vector<TControl*> fControls;
  TWindowHandle fHandle;
};

// Posts the message to the windowed control with the handle, from any thread; false when no
// such control exists (the message is then dropped).
OSTREL_API bool PostControlMessage(TWindowHandle handle, Cardinal msg, std::uintptr_t wParam,
                                   std::intptr_t lParam);

// The windowed control with the handle, or null; main thread only.
OSTREL_API TWinControl* FindControl(TWindowHandle handle);

// The child of parent whose name equals name without regard to case; with recursive, the
// children's children are searched too, depth first, each control before its children. Null
// when parent is null, the name is empty or nothing matches.
OSTREL_API TControl* FindControlByName(const TWinControl* parent, std::string_view name,
                                       bool recursive);

}  // namespace ostrel
