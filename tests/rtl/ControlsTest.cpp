#include <ostrel/rtl/Controls.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace ostrel {
namespace {

// The names of a windowed control's children, in order.
std::string ChildNames(const TWinControl& w) {
  std::string names;
  for (Integer i = 0; i < w.ControlCount(); ++i) names += (i ? " " : "") + w.Controls(i)->Name();
  return names;
}

template <class T>
T* Make(TComponent& owner, const char* name, TWinControl* parent) {
  T* c = NewComponent<T>(owner);
  c->SetName(name);
  c->SetParent(parent);
  return c;
}

TEST(Controls, ChildrenKeepTheirOrderAndMoveToTheEndOfANewParent) {
  TComponent owner(nullptr);
  auto* form = Make<TWinControl>(owner, "Form", nullptr);
  auto* panel = Make<TWinControl>(owner, "Panel", form);
  auto* a = Make<TControl>(owner, "A", form);
  auto* b = Make<TControl>(owner, "B", panel);
  auto* c = Make<TControl>(owner, "C", panel);
  EXPECT_EQ(ChildNames(*form) + " | " + ChildNames(*panel), "Panel A | B C");
  b->SetParent(form);
  EXPECT_EQ(ChildNames(*form) + " | " + ChildNames(*panel), "Panel A B | C");
  EXPECT_TRUE(b->Parent() == form && c->Parent() == panel);
  form->SetChildOrder(b, 0);
  form->SetChildOrder(panel, 99);  // clamped to the last place
  EXPECT_EQ(ChildNames(*form), "B A Panel");
  EXPECT_EQ(testutil::Join(form->IndexOfControl(a), form->IndexOfControl(c),
                           form->ContainsControl(c), panel->ContainsControl(a)),
            "1 -1 1 0");
  EXPECT_EQ(testutil::MessageOf<EInvalidOperation>([&] { panel->SetChildOrder(a, 0); }),
            "Control 'A' is not a child of 'Panel'");
  EXPECT_EQ(testutil::MessageOf<EListError>([&] { form->Controls(3); }),
            "List index (3) out of bounds");
  // No parent may be the control itself or one below it.
  EXPECT_EQ(testutil::MessageOf<EInvalidOperation>([&] { form->SetParent(panel); }),
            "Control 'Form' cannot have itself or one of its children as parent");
  EXPECT_EQ(testutil::MessageOf<EInvalidOperation>([&] { panel->SetParent(panel); }),
            "Control 'Panel' cannot have itself or one of its children as parent");
  EXPECT_EQ(panel->Parent(), form);
  a->Hide();
  EXPECT_EQ(testutil::Join(a->Visible(), b->Visible()), "0 1");
}

TEST(Controls, FreeingAChildOrAParentUndoesTheirLink) {
  TComponent owner(nullptr);
  auto* form = Make<TWinControl>(owner, "Form", nullptr);
  auto* a = Make<TControl>(owner, "A", form);
  auto* b = Make<TControl>(owner, "B", form);
  delete a;
  EXPECT_EQ(ChildNames(*form), "B");
  delete form;  // the owner frees controls, not the parent: B stays, without a parent
  EXPECT_EQ(b->Parent(), nullptr);
  EXPECT_EQ(owner.ComponentCount(), 1);
}

TEST(Controls, FindControlByNameIgnoresCaseAndSearchesDepthFirstWhenRecursive) {
  TComponent owner(nullptr);
  auto* form = Make<TWinControl>(owner, "Form", nullptr);
  auto* top = Make<TWinControl>(owner, "Top", form);
  auto* deep = Make<TControl>(owner, "Edit", top);
  auto* bottom = Make<TWinControl>(owner, "Bottom", form);
  TComponent owner2(nullptr);  // a second "Edit", under another owner
  auto* other = Make<TControl>(owner2, "EDIT", bottom);
  auto* direct = Make<TControl>(owner, "Label", form);
  struct Case {
    const TWinControl* parent;
    const char* name;
    bool recursive;
    TControl* expected;
  };
  const Case cases[] = {
      {form, "label", false, direct}, {form, "LABEL", true, direct},
      {form, "edit", false, nullptr}, {form, "edit", true, deep},  // Top's comes first
      {bottom, "Edit", false, other}, {form, "bottom", false, bottom},
      {form, "", true, nullptr},      {nullptr, "Edit", true, nullptr},
      {form, "Form", true, nullptr},  // not below itself
  };
  for (const Case& c : cases)
    EXPECT_EQ(FindControlByName(c.parent, c.name, c.recursive), c.expected)
        << c.name << " recursive " << c.recursive;
}

// Records what reaches it and on which thread.
class TRecorder : public TWinControl {
 public:
  using TWinControl::TWinControl;
  std::vector<std::string> Log;
  std::vector<std::thread::id> Threads;

 protected:
  void WndProc(TMessage& m) override {
    if (m.Msg == 48429) {
      Log.push_back(std::to_string(m.WParam) + ":" + std::to_string(m.LParam));
      Threads.push_back(std::this_thread::get_id());
      m.Result = m.LParam * 2;
      if (m.LParam < 0) throw EConvertError("negative");
      return;
    }
    TWinControl::WndProc(m);
  }
};

TEST(ControlMessages, PostedFromAWorkerTheyArriveInOrderOnTheMainThread) {
  TRecorder target(nullptr);
  std::thread worker([&] {
    for (int i = 1; i <= 3; ++i) target.Post(48429, 0, i);
    EXPECT_TRUE(PostControlMessage(target.Handle(), 48429, 9, 4));
  });
  worker.join();  // the poster never waits for the delivery
  EXPECT_TRUE(target.Log.empty());
  Application::ProcessMessages();
  EXPECT_EQ(testutil::Join(target.Log[0], target.Log[1], target.Log[2], target.Log[3]),
            "0:1 0:2 0:3 9:4");
  for (std::thread::id id : target.Threads) EXPECT_EQ(id, MainThreadID());

  target.Post(48429, 1, 5);  // from the main thread too: later, not now
  EXPECT_EQ(target.Log.size(), 4u);
  EXPECT_TRUE(CheckSynchronize());
  EXPECT_EQ(target.Log.back(), "1:5");
}

TEST(ControlMessages, AMessageForAControlFreedMeanwhileReachesNobody) {
  auto target = std::make_unique<TRecorder>(nullptr);
  TRecorder survivor(nullptr);
  const TWindowHandle handle = target->Handle();
  EXPECT_NE(handle, survivor.Handle());
  std::thread worker([&] {
    target->Post(48429, 0, 1);
    survivor.Post(48429, 0, 2);
  });
  worker.join();
  target.reset();
  EXPECT_FALSE(PostControlMessage(handle, 48429, 0, 3));
  EXPECT_EQ(FindControl(handle), nullptr);
  EXPECT_EQ(FindControl(survivor.Handle()), &survivor);
  Application::ProcessMessages();
  EXPECT_EQ(testutil::Join(survivor.Log.size(), survivor.Log[0]), "1 0:2");
  EXPECT_FALSE(CheckSynchronize());
}

TEST(ControlMessages, SendWaitsForTheResultOrTheHandlersException) {
  TRecorder target(nullptr);
  std::intptr_t result = 0;
  std::string failure;
  std::atomic<bool> back{false};
  std::thread worker([&] {
    result = target.Send(48429, 0, 21);
    failure = testutil::MessageOf<EConvertError>([&] { target.Send(48429, 0, -1); });
    back = true;
  });
  testutil::ServeUntil([&] { return back.load(); });
  worker.join();
  EXPECT_EQ(testutil::Join(result, failure), "42 negative");
  EXPECT_EQ(target.Threads.at(0), MainThreadID());
  EXPECT_EQ(target.Send(48429, 0, 5), 10);  // on the main thread: at once
}

TEST(ControlMessages, UnhandledMessagesGoToOnMessage) {
  TRecorder target(nullptr);
  EXPECT_EQ(target.Perform(1347, 5, 0), 0);
  target.OnMessage = [](TWinControl&, TMessage& m) {
    m.Result = static_cast<std::intptr_t>(m.WParam) + 1;
  };
  EXPECT_EQ(target.Perform(1347, 5, 0), 6);
  EXPECT_EQ(target.Perform(48429, 0, 4), 8);
}

}  // namespace
}  // namespace ostrel
