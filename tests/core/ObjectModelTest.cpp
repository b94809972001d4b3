// The object model: the four lifecycle states, controller and links, aggregation through
// links, and the helpers that pass objects through interfaces and variants.
#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/Classes.h>
#include <ostrel/services/Sysserv.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace ostrel {
namespace {

struct ITestA : IInterface {
  static constexpr TGUID IID = TGUID::From("{6A1C0D52-0B7E-4E55-9C3B-1F5A2B6C7D01}");
  virtual int OSTREL_STDCALL Tag() = 0;

 protected:
  ~ITestA() = default;
};

struct ITestB : IInterface {
  static constexpr TGUID IID = TGUID::From("{6A1C0D52-0B7E-4E55-9C3B-1F5A2B6C7D02}");
  virtual int OSTREL_STDCALL Tag() = 0;

 protected:
  ~ITestB() = default;
};

// Records its destruction in a shared log; offers ITestA or ITestB by its kind.
class TProbe : public TkxObject, public ITestA, public ITestB {
  OSTREL_CLASS(TProbe, TkxObject)
 public:
  TProbe(bool owned, std::vector<std::string>& log, std::string name, bool offersA = true,
         bool offersB = false)
      : TkxObject(owned), fLog(log), fName(std::move(name)), fA(offersA), fB(offersB) {}
  ~TProbe() override { fLog.push_back(fName); }

  OSTREL_KXOBJECT_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    if (fA && GetInterfaceEntry<ITestA>(this, iid, obj)) return true;
    if (fB && GetInterfaceEntry<ITestB>(this, iid, obj)) return true;
    return TkxObject::GetInterface(iid, obj);
  }
  int OSTREL_STDCALL Tag() override { return static_cast<int>(fName.size()); }
  const std::string& Name() const { return fName; }

 private:
  std::vector<std::string>& fLog;
  std::string fName;
  bool fA, fB;
};

IPtr<IInterface> Intf(TkxObject* obj) { return IPtr<IInterface>(obj->AsIInterface()); }

std::string NameOf(const IPtr<IInterface>& intf) {
  return static_cast<TProbe*>(ObjRef(intf))->Name();
}

class ObjectModel : public ::testing::Test {
 protected:
  std::vector<std::string> log;
  TProbe* Make(bool owned, std::string name, bool a = true, bool b = false) {
    return new TProbe(owned, log, std::move(name), a, b);
  }
};

TEST_F(ObjectModel, SelfOwnedObjectGoesWithItsLastReference) {
  IPtr<IInterface> ref = Intf(Make(true, "x"));
  IPtr<IInterface> second = ref;
  ref = nullptr;
  EXPECT_TRUE(log.empty());
  second = nullptr;
  EXPECT_EQ(log, std::vector<std::string>{"x"});
}

TEST_F(ObjectModel, OwnedObjectOutlivesItsReferencesAndKeepsTheControllerAlive) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Intf(child);
  SetControllerIntf(childRef, controller, true, 0);
  EXPECT_FALSE(child->SelfOwned());

  // The referenced child holds the controller: dropping our controller reference frees
  // nothing.
  controller = nullptr;
  EXPECT_TRUE(log.empty());
  // Last child reference: the child stays (owned) but lets go of the controller, which then
  // goes and frees the child with it.
  // (A probe logs in its own destructor, which runs before its links are freed.)
  childRef = nullptr;
  EXPECT_EQ(log, (std::vector<std::string>{"ctrl", "child"}));
}

TEST_F(ObjectModel, OwnedObjectAtCountZeroStaysUntilTheControllerGoes) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  {
    IPtr<IInterface> childRef = Intf(Make(true, "child"));
    SetControllerIntf(childRef, controller, true, 7);
  }
  EXPECT_TRUE(log.empty());
  auto* ctrl = static_cast<TProbe*>(ObjRef(controller));
  ASSERT_EQ(ctrl->Links().size(), 1u);
  EXPECT_EQ(ctrl->Links()[0].ID, 7);
  controller = nullptr;
  EXPECT_EQ(log, (std::vector<std::string>{"ctrl", "child"}));
}

TEST_F(ObjectModel, NotOwnedObjectGoesAtZeroAndUnlinksItself) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  auto* ctrl = static_cast<TProbe*>(ObjRef(controller));
  IPtr<IInterface> childRef = Intf(Make(true, "child"));
  SetControllerIntf(childRef, controller, false, 0);
  EXPECT_EQ(ctrl->Links().size(), 1u);
  childRef = nullptr;
  EXPECT_EQ(log, std::vector<std::string>{"child"});
  EXPECT_TRUE(ctrl->Links().empty());
  controller = nullptr;
  EXPECT_EQ(log, (std::vector<std::string>{"child", "ctrl"}));
}

TEST_F(ObjectModel, AttachingAFreshUnreferencedObjectNotOwnedFreesItAtOnce) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  TProbe* fresh = Make(true, "fresh");
  fresh->SetController(controller, false, 0);
  EXPECT_EQ(log, std::vector<std::string>{"fresh"});
  EXPECT_TRUE(static_cast<TProbe*>(ObjRef(controller))->Links().empty());
}

TEST_F(ObjectModel, DestroyedControllerFreesLinkedObjectsEvenWhenReferenced) {
  TProbe* ctrl = Make(false, "ctrl");  // lives under its creator, not by its count
  IPtr<IInterface> kept = Intf(Make(true, "kept"));
  SetControllerIntf(kept, Intf(ctrl), true, 0);
  IPtr<IInterface> unreferenced = Intf(Make(true, "plain"));
  SetControllerIntf(unreferenced, Intf(ctrl), true, 0);
  unreferenced = nullptr;
  TObject::Free(ctrl);
  EXPECT_EQ(log, (std::vector<std::string>{"ctrl", "kept", "plain"}));
  kept.Detach();  // freed with its controller; the reference is void now
}

TEST_F(ObjectModel, DestroyedControllerCutsLooseAReferencedSelfOwnedObject) {
  TProbe* ctrl = Make(false, "ctrl");
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Intf(child);
  SetControllerIntf(childRef, Intf(ctrl), false, 0);
  TObject::Free(ctrl);
  EXPECT_EQ(log, std::vector<std::string>{"ctrl"});
  EXPECT_EQ(child->Controller(), nullptr);
  EXPECT_FALSE(child->GetController());
  childRef = nullptr;
  EXPECT_EQ(log, (std::vector<std::string>{"ctrl", "child"}));
}

TEST_F(ObjectModel, SameControllerTwiceChangesNothing) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Intf(child);
  child->SetController(controller, true, 3);
  child->SetController(controller, false, 9);
  EXPECT_FALSE(child->SelfOwned());
  auto& links = static_cast<TProbe*>(ObjRef(controller))->Links();
  ASSERT_EQ(links.size(), 1u);
  EXPECT_EQ(links[0].ID, 3);
}

TEST_F(ObjectModel, NullControllerDetaches) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  auto* ctrl = static_cast<TProbe*>(ObjRef(controller));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Intf(child);
  child->SetController(controller, true, 0);
  child->SetController(nullptr, true, 0);
  EXPECT_TRUE(ctrl->Links().empty());
  EXPECT_EQ(child->Controller(), nullptr);
  EXPECT_FALSE(child->SelfOwned());  // the negation of owned, even without a controller
  child->SetController(controller, true, 0);
  child->SetController(nullptr, false, 0);
  EXPECT_TRUE(child->SelfOwned());
  controller = nullptr;
  EXPECT_EQ(log, std::vector<std::string>{"ctrl"});  // no longer held by the child
  childRef = nullptr;
  EXPECT_EQ(log, (std::vector<std::string>{"ctrl", "child"}));
}

TEST_F(ObjectModel, MovingToAnotherControllerLeavesTheFirst) {
  IPtr<IInterface> first = Intf(Make(true, "first"));
  IPtr<IInterface> second = Intf(Make(true, "second"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Intf(child);
  child->SetController(first, true, 0);
  child->SetController(second, true, 0);
  EXPECT_TRUE(static_cast<TProbe*>(ObjRef(first))->Links().empty());
  first = nullptr;
  EXPECT_EQ(log, std::vector<std::string>{"first"});
  EXPECT_EQ(child->GetController().Get(), second.Get());
}

class NotKxObject : public TInterfacedObject, public IObjectReference {
 public:
  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override {
    return TInterfacedObject::QueryInterface(iid, obj);
  }
  Integer OSTREL_STDCALL _AddRef() override { return TInterfacedObject::_AddRef(); }
  Integer OSTREL_STDCALL _Release() override { return TInterfacedObject::_Release(); }
  bool GetInterface(const TGUID& iid, void** obj) override {
    if (fOffersReference && GetInterfaceEntry<IObjectReference>(this, iid, obj)) return true;
    return TInterfacedObject::GetInterface(iid, obj);
  }
  TObject* OSTREL_STDCALL GetInstance() override { return this; }
  IPtr<IInterface> Self() { return IPtr<IInterface>(static_cast<TInterfacedObject*>(this)); }
  bool fOffersReference = true;
};

template <class Fn>
std::string MessageOf(Fn&& fn) {
  try {
    fn();
  } catch (const Exception& e) {
    return e.Message();
  }
  return "<no exception>";
}

TEST_F(ObjectModel, SetControllerRefusesWhatIsNoTkxObjectAndChangesNothing) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Intf(child);
  child->SetController(controller, true, 0);

  auto* plain = new NotKxObject;
  IPtr<IInterface> plainRef = plain->Self();
  EXPECT_EQ(MessageOf([&] { child->SetController(plainRef, false, 0); }), "TkxObject required");
  plain->fOffersReference = false;
  EXPECT_EQ(MessageOf([&] { child->SetController(plainRef, false, 0); }),
            "IObjectReference required");
  EXPECT_EQ(child->Controller(), ObjRef(controller));
  EXPECT_FALSE(child->SelfOwned());

  EXPECT_EQ(MessageOf([&] { SetControllerIntf(plainRef, controller, true, 0); }),
            "IContainedObject required");
}

TEST_F(ObjectModel, ControllerCyclesAreRefused) {
  IPtr<IInterface> a = Intf(Make(true, "a"));
  IPtr<IInterface> b = Intf(Make(true, "b"));
  SetControllerIntf(b, a, false, 0);
  EXPECT_THROW(SetControllerIntf(a, b, false, 0), Exception);
  EXPECT_THROW(SetControllerIntf(a, a, false, 0), Exception);
}

TEST_F(ObjectModel, QueriesFallThroughToLinksByIdInInsertionOrder) {
  IPtr<IInterface> controller = Intf(Make(true, "ctrl", false, false));
  auto* ctrl = static_cast<TProbe*>(ObjRef(controller));
  auto attach = [&](const std::string& name, bool a, bool b, Integer id) {
    TProbe* p = Make(true, name, a, b);
    p->SetController(controller, true, id);
    return p;
  };
  attach("b0", false, true, 0);
  attach("a0first", true, false, 0);
  attach("a0second", true, false, 0);
  TProbe* a5 = attach("a5", true, false, 5);
  // A grandchild under a5, reached from a5's links under ID 0.
  Make(true, "deep", false, true)->SetController(Intf(a5), true, 0);

  IPtr<ITestA> viaZero = controller.As<ITestA>();
  ASSERT_TRUE(viaZero);
  EXPECT_EQ(viaZero->Tag(), 7);  // "a0first"
  EXPECT_EQ(controller.As<ITestB>()->Tag(), 2);  // "b0"

  IPtr<IInterface> found;
  ASSERT_EQ(ctrl->QueryInterfaceEx(ITestA::IID, 5, found.ReleaseAndGetAddressOf()), S_OK);
  EXPECT_EQ(NameOf(found), "a5");
  IPtr<ITestB> deep = ctrl->GetIntf<ITestB>(5);
  ASSERT_TRUE(deep);
  EXPECT_EQ(deep->Tag(), 4);  // "deep", through a5's own links
  EXPECT_EQ(ctrl->QueryInterfaceEx(ITestA::IID, 6, found.ReleaseAndGetAddressOf()), E_NOINTERFACE);
  EXPECT_FALSE(found);
  EXPECT_FALSE(ctrl->GetIntf<ITestA>(6));

  // IInterface is the identity: the same pointer whichever way it is asked for.
  IPtr<IInterface> identity = viaZero.As<IInterface>();
  EXPECT_EQ(NameOf(identity), "a0first");
  EXPECT_EQ(controller.As<IInterface>().Get(), controller.Get());
}

TEST_F(ObjectModel, ObjRefThroughInterfacesAndVariants) {
  EXPECT_EQ(ObjRef(static_cast<IInterface*>(nullptr), true), nullptr);
  TProbe* probe = Make(true, "p");
  IPtr<IInterface> ref = Intf(probe);
  EXPECT_EQ(ObjRef(ref), probe);
  EXPECT_EQ(ObjRef(Variant(ref)), probe);
  EXPECT_EQ(ObjRef(ObjToVar(probe)), probe);
  EXPECT_EQ(ObjRef(Variant(0)), nullptr);
  EXPECT_THROW(ObjRef(Variant("no number")), EVariantError);

  auto* plain = new NotKxObject;
  plain->fOffersReference = false;
  IPtr<IInterface> plainRef = plain->Self();
  EXPECT_EQ(MessageOf([&] { ObjRef(plainRef, true); }), "IObjectReference not implemented");
  EXPECT_EQ(ObjRef(plainRef, false), nullptr);
}

TEST_F(ObjectModel, ObjIntfGivesTheIdentityOrReportsABug) {
  TProbe* probe = Make(true, "p");
  IPtr<IInterface> ref = Intf(probe);
  IPtr<IInterface> out = ref;
  ObjIntf(ObjToVar(probe), out);
  EXPECT_EQ(out.Get(), ref.Get());
  ObjIntf(static_cast<TObject*>(probe), out);
  EXPECT_EQ(out.Get(), ref.Get());

  TComponent plainObject(nullptr);
  std::string expected = _SErrBUG.Str() + "\r\rObjIntf: IUnknown not implemented";
  EXPECT_EQ(MessageOf([&] { ObjIntf(static_cast<TObject*>(&plainObject), out); }), expected);
  EXPECT_FALSE(out);
}

TEST(ObjectHelpers, CheckPropReadOnlyNamesClassAndProperty) {
  TComponent c(nullptr);
  EXPECT_NO_THROW(CheckPropReadOnly(&c, "Caption", false));
  try {
    CheckPropReadOnly(&c, "Caption", true);
    FAIL();
  } catch (const Exception& e) {
    EXPECT_EQ(e.Message(), Ansi(u8"TComponent: свойство \"Caption\" только для чтения"));
  }
}

TEST(ObjectHelpers, RegisteredRTTIClassesKeepOrderAndRepeats) {
  auto before = GetRegisteredRTTIClasses();
  EXPECT_NE(std::find(before.begin(), before.end(), TkxDump::StaticClass()), before.end());
  RegisterRTTI(TkxDumpList::StaticClass());
  RegisterRTTI(TkxDumpList::StaticClass());
  auto after = GetRegisteredRTTIClasses();
  ASSERT_EQ(after.size(), before.size() + 2);
  EXPECT_EQ(after[after.size() - 1], TkxDumpList::StaticClass());
  EXPECT_EQ(after[after.size() - 2], TkxDumpList::StaticClass());
}

TEST(ObjectHelpers, FindComponentExFollowsOwnedNames) {
  TComponent root(nullptr);
  auto* a = NewComponent<TComponent>(root);
  a->SetName("a");
  auto* b = NewComponent<TComponent>(*a);
  b->SetName("b");
  auto* stray = NewComponent<TComponent>(root);
  stray->SetName("b");

  struct Case {
    const char* path;
    TComponent* expected;
  };
  for (const Case& c : {Case{"a.b", b}, Case{"A.B", b}, Case{"a", a}, Case{"b", stray},
                        Case{"a..b", b}, Case{"", nullptr}, Case{".", nullptr},
                        Case{"a.x", nullptr}, Case{"x.b", nullptr}, Case{"b.b", nullptr}})
    EXPECT_EQ(FindComponentEx(&root, c.path), c.expected) << c.path;
  EXPECT_EQ(FindComponentEx(nullptr, "a"), nullptr);
}

}  // namespace
}  // namespace ostrel
