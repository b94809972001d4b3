// Module resolver forms, trace forwarding to the system monitor, and translation with and
// without a registered localisation library.
#include <ostrel/core/ModuleLinks.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ostrel {
namespace {

template <class Fn>
std::string MessageOf(Fn&& fn) {
  try {
    fn();
  } catch (const Exception& e) {
    return e.Message();
  }
  return "<no exception>";
}

template <class... Intfs>
class TestObject : public TInterfacedObject, public Intfs... {
 public:
  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override {
    return TInterfacedObject::QueryInterface(iid, obj);
  }
  Integer OSTREL_STDCALL _AddRef() override { return TInterfacedObject::_AddRef(); }
  Integer OSTREL_STDCALL _Release() override { return TInterfacedObject::_Release(); }
  bool GetInterface(const TGUID& iid, void** obj) override {
    if (GetInterfaceEntry<Intfs...>(this, iid, obj)) return true;
    return TInterfacedObject::GetInterface(iid, obj);
  }
};

// A module that answers every request with one object and remembers what it was asked.
struct FakeModules {
  static inline std::vector<std::string> calls;
  static inline IPtr<IInterface> answer;

  static void Intf(std::string_view module, std::string_view name, const IPtr<IInterface>& params,
                   IPtr<IInterface>& result) {
    calls.push_back(std::string(module) + "/" + std::string(name) + (params ? "+params" : ""));
    result = answer;
  }
  static void Link(std::string_view module, IPtr<IkxModuleLink>&) {
    calls.push_back("link " + std::string(module));
  }
};

class ModuleResolver : public ::testing::Test {
 protected:
  void SetUp() override {
    FakeModules::calls.clear();
    FakeModules::answer = nullptr;
  }
  void TearDown() override {
    FGetModuleIntf = nullptr;
    FGetModuleLink = nullptr;
    FakeModules::answer = nullptr;
  }
};

struct IProbe : IInterface {
  static constexpr TGUID IID = TGUID::From("{0C1D2E3F-4A5B-4C6D-8E7F-101112131415}");
};
struct IOther : IInterface {
  static constexpr TGUID IID = TGUID::From("{0C1D2E3F-4A5B-4C6D-8E7F-101112131416}");
};
IPtr<IInterface> NewOther() { return IPtr<IInterface>(static_cast<IOther*>(new TestObject<IOther>)); }

TEST_F(ModuleResolver, EmptySlotsRaiseAndClearTheOutReference) {
  IPtr<IInterface> out = NewOther();
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("m", "x", out); }), "GetModuleIntf: not implemented");
  EXPECT_FALSE(out);
  IPtr<IkxModuleLink> link;
  EXPECT_EQ(MessageOf([&] { GetModuleLink("m", link); }), "GetModuleLink: not implemented");
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("m", IProbe::IID, out); }),
            "GetModuleIntf: not implemented");
}

TEST_F(ModuleResolver, EveryFormReachesTheHookWithItsNames) {
  FGetModuleIntf = &FakeModules::Intf;
  FGetModuleLink = &FakeModules::Link;
  auto* probe = new TestObject<IProbe>;
  FakeModules::answer = IPtr<IInterface>(static_cast<IProbe*>(probe));
  IPtr<IInterface> params = NewOther();

  IPtr<IInterface> r;
  GetModuleIntf("mod", "Named", params, r);
  EXPECT_TRUE(r);
  GetModuleIntf("mod", "Named", r);
  GetModuleIntf("mod", "Named", IProbe::IID, r);
  EXPECT_EQ(r.Get(), static_cast<IInterface*>(static_cast<IProbe*>(probe)));
  GetModuleIntf("mod", r);
  GetModuleIntf("mod", IProbe::IID, r);
  IPtr<IProbe> typed;
  GetModuleIntf("mod", "Typed", typed);
  EXPECT_EQ(typed.Get(), static_cast<IProbe*>(probe));
  GetModuleIntf("mod", typed);
  IPtr<IkxModuleLink> link;
  GetModuleLink("other", link);

  EXPECT_EQ(FakeModules::calls,
            (std::vector<std::string>{"mod/Named+params", "mod/Named", "mod/Named", "mod/get_intf",
                                      "mod/get_intf", "mod/Typed", "mod/get_intf", "link other"}));
}

TEST_F(ModuleResolver, IdentityFormsRefuseMissingOrUnsupportedResults) {
  FGetModuleIntf = &FakeModules::Intf;
  const std::string expected =
      "GetModuleIntf: interface \"{0C1D2E3F-4A5B-4C6D-8E7F-101112131415}\" not supported";
  IPtr<IInterface> r;
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("mod", IProbe::IID, r); }), expected);  // null
  FakeModules::answer = NewOther();
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("mod", "x", IProbe::IID, r); }), expected);
  EXPECT_FALSE(r);
  IPtr<IProbe> typed;
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("mod", typed); }), expected);
}

// ---- System monitor --------------------------------------------------------------------

class RecordingMonitor : public TestObject<IkxSysMonitor> {
 public:
  void OSTREL_STDCALL TraceStart(std::string_view a, std::string_view b, std::string_view c,
                                 std::string_view d, Integer& id) override {
    events.push_back("start " + std::string(a) + "|" + std::string(b) + "|" + std::string(c) +
                     "|" + std::string(d));
    id = 42;
  }
  void OSTREL_STDCALL TraceNext(Integer id, std::string_view a, std::string_view b) override {
    events.push_back("next " + std::to_string(id) + "|" + std::string(a) + "|" + std::string(b));
  }
  std::vector<std::string> events;
};

TEST(SysMonitor, ForwardsWhileRegisteredAndIsSilentOtherwise) {
  Integer id = 5;
  ASSERT_FALSE(TkxSysMonitor::Active());
  TkxSysMonitor::TraceStart("file", "load", "cap", "full", id);
  TkxSysMonitor::TraceNext(id, "a", "b");
  TkxSysMonitor::TraceEnd(id, "done");
  EXPECT_EQ(id, 5);

  auto* monitor = new RecordingMonitor;
  IPtr<IkxSysMonitor> keep(monitor);
  TkxSysMonitor::RegIntf(keep);
  EXPECT_TRUE(TkxSysMonitor::Active());
  TkxSysMonitor::TraceStart("file", "load", "cap", "full", id);
  TkxSysMonitor::TraceNext(id, "a", "b");
  TkxSysMonitor::TraceEnd(7, "done");
  TkxSysMonitor::RegIntf(nullptr);
  EXPECT_FALSE(TkxSysMonitor::Active());
  TkxSysMonitor::TraceEnd(7, "after");

  EXPECT_EQ(id, 42);
  EXPECT_EQ(monitor->events, (std::vector<std::string>{"start file|load|cap|full", "next 42|a|b",
                                                       "next 7||done"}));
}

// ---- Localisation ----------------------------------------------------------------------

class BracketLib : public TestObject<IkxLcLib> {
 public:
  void OSTREL_STDCALL Op1() override {}
  AnsiString OSTREL_STDCALL Op2(std::string_view) override { return AnsiString(); }
  WideString OSTREL_STDCALL TranslateW(std::u16string_view text, std::string_view ctx) override {
    return u"[" + AnsiToWide(ctx) + u":" + WideString(text) + u"]";
  }
  WideString OSTREL_STDCALL TranslateA(std::string_view text, std::string_view ctx) override {
    return TranslateW(AnsiToWide(text), ctx);
  }
  void OSTREL_STDCALL Op5() override {}
};

TEST(Localisation, PassesTextsThroughUntilALibraryIsRegistered) {
  const AnsiString ansi = Ansi(u8"Отчёт за период");
  const WideString wide = u"Отчёт за период";
  RegisterLcLib(nullptr);
  EXPECT_EQ(_(ansi), wide);
  EXPECT_EQ(_(wide, "ctx"), wide);
  IPtr<IkxLcLib> builtIn = LcLib();
  EXPECT_EQ(LcLib().Get(), builtIn.Get());  // installed once
  EXPECT_EQ(builtIn->Op2("x"), "");

  RegisterLcLib(IPtr<IkxLcLib>(new BracketLib));
  EXPECT_EQ(_(ansi, "rep"), u"[rep:" + wide + u"]");
  EXPECT_EQ(_(u"x"), u"[:x]");

  RegisterLcLib(nullptr);
  EXPECT_EQ(_("plain"), u"plain");
}

}  // namespace
}  // namespace ostrel
