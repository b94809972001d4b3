#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/Classes.h>
#include <ostrel/services/Sysserv.h>

#include <TestUtil.h>
#include <core/peer/PeerModule.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace ostrel {
namespace {

using testutil::MessageOf;

struct ITestA : IInterface {
  static constexpr TGUID IID = TGUID::From("{6A1C0D52-0B7E-4E55-9C3B-1F5A2B6C7D01}");
  virtual int OSTREL_STDCALL Tag() = 0;
};
struct ITestB : IInterface {
  static constexpr TGUID IID = TGUID::From("{6A1C0D52-0B7E-4E55-9C3B-1F5A2B6C7D02}");
  virtual int OSTREL_STDCALL Tag() = 0;
};

using Log = std::vector<std::string>;

// Logs its destruction (before its links are freed); offers ITestA and/or ITestB, whose Tag
// is the length of its name.
class TProbe : public TkxObject, public ITestA, public ITestB {
  OSTREL_CLASS(TProbe, TkxObject)
 public:
  TProbe(bool owned, Log& log, std::string name, bool a, bool b)
      : TkxObject(owned), fLog(log), fName(std::move(name)), fA(a), fB(b) {}
  ~TProbe() override { fLog.push_back(fName); }

  OSTREL_KXOBJECT_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    if (fA && GetInterfaceEntry<ITestA>(this, iid, obj)) return true;
    if (fB && GetInterfaceEntry<ITestB>(this, iid, obj)) return true;
    return TkxObject::GetInterface(iid, obj);
  }
  int OSTREL_STDCALL Tag() override { return static_cast<int>(fName.size()); }

 private:
  Log& fLog;
  std::string fName;
  bool fA, fB;
};
OSTREL_DEFINE_CLASS(TProbe)

// A reference-counted object that is no TkxObject, with or without IObjectReference.
class TForeign : public testutil::TIntfObject<IObjectReference> {
 public:
  TObject* OSTREL_STDCALL GetInstance() override { return this; }
};

IPtr<IInterface> Foreign(bool offersReference) {
  if (offersReference) return IPtr<IInterface>(static_cast<TInterfacedObject*>(new TForeign));
  return IPtr<IInterface>(new TInterfacedObject);
}

class ObjectModel : public ::testing::Test {
 protected:
  TProbe* Make(bool owned, std::string name, bool a = true, bool b = false) {
    return new TProbe(owned, log, std::move(name), a, b);
  }
  IPtr<IInterface> Ref(TkxObject* obj) { return IPtr<IInterface>(obj->AsIInterface()); }
  // The IDs of the object's links, in order.
  static std::string LinkIDs(const IPtr<IInterface>& intf) {
    std::string ids;
    for (const auto& link : static_cast<TkxObject*>(ObjRef(intf))->Links())
      ids += std::to_string(link.ID) + " ";
    return ids;
  }
  Log log;
};

TEST_F(ObjectModel, OwnedObjectKeepsTheControllerAliveWhileReferenced) {
  IPtr<IInterface> controller = Ref(Make(true, "ctrl"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Ref(child);
  SetControllerIntf(childRef, controller, true, 7);
  EXPECT_FALSE(child->SelfOwned());
  EXPECT_EQ(LinkIDs(controller), "7 ");
  controller = nullptr;  // a self-owned object, but still held by its referenced child
  EXPECT_TRUE(log.empty());
  // At zero the child stays (owned) but lets the controller go, which frees both.
  childRef = nullptr;
  EXPECT_EQ(log, (Log{"ctrl", "child"}));
}

TEST_F(ObjectModel, NotOwnedObjectGoesAtZeroAndUnlinksItself) {
  IPtr<IInterface> controller = Ref(Make(true, "ctrl"));
  IPtr<IInterface> childRef = Ref(Make(true, "child"));
  SetControllerIntf(childRef, controller, false, 0);
  childRef = nullptr;
  EXPECT_EQ(log, Log{"child"});
  EXPECT_EQ(LinkIDs(controller), "");
  // Attaching a fresh object that nobody references, not owned, frees it at once.
  Make(true, "fresh")->SetController(controller, false, 0);
  EXPECT_EQ(log, (Log{"child", "fresh"}));
  EXPECT_EQ(LinkIDs(controller), "");
}

TEST_F(ObjectModel, DestroyedControllerFreesOwnedObjectsAndCutsLooseReferencedSelfOwnedOnes) {
  TProbe* ctrl = Make(false, "ctrl");  // lives under its creator, not by its count
  IPtr<IInterface> owned = Ref(Make(true, "owned"));
  SetControllerIntf(owned, Ref(ctrl), true, 0);
  TProbe* loose = Make(true, "loose");
  IPtr<IInterface> looseRef = Ref(loose);
  SetControllerIntf(looseRef, Ref(ctrl), false, 0);
  TObject::Free(ctrl);
  // The owned one goes although referenced; the self-owned one lives on by its count.
  EXPECT_EQ(log, (Log{"ctrl", "owned"}));
  owned.Detach();  // freed with its controller: the reference is void now
  EXPECT_EQ(loose->Controller(), nullptr);
  looseRef = nullptr;
  EXPECT_EQ(log, (Log{"ctrl", "owned", "loose"}));
}

TEST_F(ObjectModel, SameControllerTwiceChangesNothingAndNullDetaches) {
  IPtr<IInterface> controller = Ref(Make(true, "ctrl"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Ref(child);
  child->SetController(controller, true, 3);
  child->SetController(controller, false, 9);
  EXPECT_FALSE(child->SelfOwned());
  EXPECT_EQ(LinkIDs(controller), "3 ");

  child->SetController(nullptr, true, 0);
  EXPECT_EQ(LinkIDs(controller), "");
  EXPECT_FALSE(child->GetController());
  EXPECT_FALSE(child->SelfOwned());         // the negation of owned, even without a controller
  child->SetController(nullptr, false, 0);  // null again: the same controller, no change
  EXPECT_FALSE(child->SelfOwned());
  child->SetController(controller, true, 0);
  child->SetController(nullptr, false, 0);
  EXPECT_TRUE(child->SelfOwned());
  controller = nullptr;
  EXPECT_EQ(log, Log{"ctrl"});  // no longer held by the child
}

TEST_F(ObjectModel, SetControllerRefusesBadControllersAndChangesNothing) {
  IPtr<IInterface> controller = Ref(Make(true, "ctrl"));
  TProbe* child = Make(true, "child");
  IPtr<IInterface> childRef = Ref(child);
  child->SetController(controller, true, 0);
  EXPECT_EQ(MessageOf([&] { child->SetController(Foreign(true), false, 0); }),
            "TkxObject required");
  EXPECT_EQ(MessageOf([&] { child->SetController(Foreign(false), false, 0); }),
            "IObjectReference required");
  EXPECT_EQ(child->GetController().Get(), controller.Get());
  EXPECT_FALSE(child->SelfOwned());
  EXPECT_EQ(MessageOf([&] { SetControllerIntf(Foreign(true), controller, true, 0); }),
            "IContainedObject required");
  // A chain that comes back to the object would keep itself alive.
  EXPECT_THROW(SetControllerIntf(controller, childRef, false, 0), Exception);
  EXPECT_THROW(SetControllerIntf(childRef, childRef, false, 0), Exception);
}

TEST_F(ObjectModel, QueriesFallThroughToLinksByIdInInsertionOrder) {
  IPtr<IInterface> controller = Ref(Make(true, "ctrl", false, false));
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
  Make(true, "deep", false, true)->SetController(Ref(a5), true, 0);

  EXPECT_EQ(controller.As<ITestA>()->Tag(), 7);   // a0first
  EXPECT_EQ(controller.As<ITestB>()->Tag(), 2);   // b0
  EXPECT_EQ(ctrl->GetIntf<ITestA>(5)->Tag(), 2);  // a5
  EXPECT_EQ(ctrl->GetIntf<ITestB>(5)->Tag(), 4);  // deep, through a5's own links
  IPtr<IInterface> none = controller;
  EXPECT_EQ(ctrl->QueryInterfaceEx(ITestA::IID, 6, none.ReleaseAndGetAddressOf()), E_NOINTERFACE);
  EXPECT_FALSE(none);
  // IInterface is the identity, whichever entry it is asked through.
  EXPECT_EQ(controller.As<IInterface>().Get(), controller.Get());
  EXPECT_EQ(ctrl->GetIntf<ITestA>(5).As<IInterface>().Get(), Ref(a5).Get());
}

TEST_F(ObjectModel, ObjRefAndObjIntf) {
  EXPECT_EQ(ObjRef(static_cast<IInterface*>(nullptr), true), nullptr);
  TProbe* probe = Make(true, "p");
  IPtr<IInterface> ref = Ref(probe);
  EXPECT_EQ(ObjRef(ref), probe);
  EXPECT_EQ(ObjRef(Variant(ref)), probe);
  EXPECT_EQ(ObjRef(ObjToVar(probe)), probe);
  EXPECT_EQ(ObjRef(Variant(0)), nullptr);
  EXPECT_THROW(ObjRef(Variant("no number")), EVariantError);
  EXPECT_EQ(MessageOf([&] { ObjRef(Foreign(false), true); }), "IObjectReference not implemented");
  EXPECT_EQ(ObjRef(Foreign(false), false), nullptr);

  IPtr<IInterface> out;
  ObjIntf(ObjToVar(probe), out);
  EXPECT_EQ(out.Get(), ref.Get());
  TComponent plain(nullptr);
  EXPECT_EQ(MessageOf([&] { ObjIntf(static_cast<TObject*>(&plain), out); }),
            _SErrBUG.Str() + "\r\rObjIntf: IUnknown not implemented");
  EXPECT_FALSE(out);
}

// A test program is a separate module from the library (a DLL on Windows): the class records it
// names must be the library's own, or identity checks fail across the boundary.
TEST(ClassIdentity, ClassRecordsAreOnePerProcess) {
  IPtr<IDump> held = GetDumpIntf();
  TObject* dump = ObjRef(held);  // made, and its ClassType answered, by the library
  ASSERT_NE(dump, nullptr);
  EXPECT_EQ(dump->ClassType(), TkxDump::StaticClass());
  EXPECT_TRUE(dump->InheritsFrom(TkxObject::StaticClass()));
  EXPECT_TRUE(dump->InheritsFrom(TInterfacedObject::StaticClass()));
  EXPECT_EQ(TkxDump::StaticClass()->Parent, TkxObject::StaticClass());
  EXPECT_EQ(TProbe::StaticClass()->Parent, TkxObject::StaticClass());
  const auto classes = GetRegisteredRTTIClasses();
  EXPECT_NE(std::find(classes.begin(), classes.end(), TkxDump::StaticClass()), classes.end());
}

// Three separately built modules: the library, the peer module and this program. Each has
// its own copy of the inline interface-table code and of the IIDs; what must agree is the
// identities they compare and the class records they point to.
TEST(ClassIdentity, ObjectsAndInterfaceTablesCrossModules) {
  IPtr<IInterface> peerObject = peer::NewPeerObject(42);
  IPtr<peer::IPeerProbe> probe = peerObject.As<peer::IPeerProbe>();  // the peer's table
  ASSERT_TRUE(probe);
  EXPECT_EQ(probe->Answer(), 42);
  EXPECT_FALSE(peerObject.As<IDump>());
  TObject* self = ObjRef(peerObject);  // IObjectReference from the library's table
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(self->ClassType(), peer::PeerObjectClass());
  EXPECT_STREQ(self->ClassName(), "TPeerObject");
  EXPECT_EQ(peer::PeerObjectClass()->Parent, TkxObject::StaticClass());
  EXPECT_TRUE(self->InheritsFrom(TInterfacedObject::StaticClass()));
  EXPECT_FALSE(self->InheritsFrom(TkxDump::StaticClass()));

  // The other way: the peer looks at objects made by the library and by this program.
  IPtr<IDump> dump = GetDumpIntf();
  dump->set_ByName("a", Variant(1));
  bool isDump = false;
  EXPECT_EQ(peer::PeerDumpCount(IPtr<IInterface>(dump.Get()), isDump), 1);
  EXPECT_TRUE(isDump);
  Log log;
  IPtr<IInterface> mine(static_cast<ITestA*>(new TProbe(true, log, "mine", true, false)));
  EXPECT_EQ(peer::PeerDumpCount(mine, isDump), -1);
  EXPECT_FALSE(isDump);
}

TEST(ObjectHelpers, CheckPropReadOnlyAndFindComponentEx) {
  TComponent root(nullptr);
  EXPECT_NO_THROW(CheckPropReadOnly(&root, "Caption", false));
  EXPECT_EQ(MessageOf([&] { CheckPropReadOnly(&root, "Caption", true); }),
            Ansi(u8"TComponent: свойство \"Caption\" только для чтения"));

  auto* a = NewComponent<TComponent>(root);
  a->SetName("a");
  auto* b = NewComponent<TComponent>(*a);
  b->SetName("b");
  auto* stray = NewComponent<TComponent>(root);
  stray->SetName("b");
  const std::pair<const char*, TComponent*> paths[] = {
      {"a.b", b},    {"A.B", b},     {"a", a},         {"b", stray},     {"a..b", b},
      {"", nullptr}, {".", nullptr}, {"a.x", nullptr}, {"x.b", nullptr}, {"b.b", nullptr}};
  for (const auto& [path, expected] : paths)
    EXPECT_EQ(FindComponentEx(&root, path), expected) << path;
  EXPECT_EQ(FindComponentEx(nullptr, "a"), nullptr);
}

}  // namespace
}  // namespace ostrel
