#include <ostrel/core/ModuleLinks.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ostrel {
namespace {

using testutil::MessageOf;
using testutil::TIntfObject;

struct IProbe : IInterface {
  static constexpr TGUID IID = TGUID::From("{0C1D2E3F-4A5B-4C6D-8E7F-101112131415}");
};
struct IOther : IInterface {
  static constexpr TGUID IID = TGUID::From("{0C1D2E3F-4A5B-4C6D-8E7F-101112131416}");
};
template <class Intf>
IPtr<IInterface> New() {
  return IPtr<IInterface>(static_cast<Intf*>(new TIntfObject<Intf>));
}

// A module manager that answers every request with one object and notes the requests.
std::vector<std::string> gCalls;
IPtr<IInterface> gAnswer;

class ModuleResolver : public ::testing::Test {
 protected:
  void SetUp() override {
    gCalls.clear();
    FGetModuleIntf = [](std::string_view module, std::string_view name,
                        const IPtr<IInterface>& params, IPtr<IInterface>& result) {
      gCalls.push_back(std::string(module) + "/" + std::string(name) + (params ? "+p" : ""));
      result = gAnswer;
    };
    FGetModuleLink = [](std::string_view module, IPtr<IkxModuleLink>&) {
      gCalls.push_back("link " + std::string(module));
    };
  }
  void TearDown() override {
    FGetModuleIntf = nullptr;
    FGetModuleLink = nullptr;
    gAnswer = nullptr;
  }
};

TEST_F(ModuleResolver, EveryFormReachesTheHookWithItsNames) {
  gAnswer = New<IProbe>();
  IPtr<IInterface> r;
  GetModuleIntf("mod", "Named", New<IOther>(), r);
  GetModuleIntf("mod", "Named", r);
  GetModuleIntf("mod", "Named", IProbe::IID, r);
  EXPECT_EQ(r.Get(), gAnswer.Get());
  GetModuleIntf("mod", r);
  GetModuleIntf("mod", IProbe::IID, r);
  IPtr<IProbe> typed;
  GetModuleIntf("mod", typed);
  EXPECT_EQ(static_cast<IInterface*>(typed.Get()), gAnswer.Get());
  IPtr<IkxModuleLink> link;
  GetModuleLink("other", link);
  EXPECT_EQ(gCalls,
            (std::vector<std::string>{"mod/Named+p", "mod/Named", "mod/Named", "mod/get_intf",
                                      "mod/get_intf", "mod/get_intf", "link other"}));
}

TEST_F(ModuleResolver, EmptySlotsAndMissingOrUnsupportedResultsRaise) {
  const std::string unsupported =
      "GetModuleIntf: interface \"{0C1D2E3F-4A5B-4C6D-8E7F-101112131415}\" not supported";
  IPtr<IInterface> r;
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("mod", IProbe::IID, r); }), unsupported);  // null
  gAnswer = New<IOther>();
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("mod", "x", IProbe::IID, r); }), unsupported);
  EXPECT_FALSE(r);

  FGetModuleIntf = nullptr;
  FGetModuleLink = nullptr;
  r = New<IOther>();
  EXPECT_EQ(MessageOf([&] { GetModuleIntf("m", "x", r); }), "GetModuleIntf: not implemented");
  EXPECT_FALSE(r);  // cleared first
  IPtr<IkxModuleLink> link;
  EXPECT_EQ(MessageOf([&] { GetModuleLink("m", link); }), "GetModuleLink: not implemented");
}

TEST(SysMonitor, ForwardsWhileRegisteredAndIsSilentOtherwise) {
  Integer id = 5;
  ASSERT_FALSE(TkxSysMonitor::Active());
  TkxSysMonitor::TraceStart("file", "load", "cap", "full", id);
  TkxSysMonitor::TraceEnd(id, "done");
  EXPECT_EQ(id, 5);

  auto* monitor = new testutil::TRecordingMonitor;
  IPtr<IkxSysMonitor> keep(monitor);
  TkxSysMonitor::RegIntf(keep);
  TkxSysMonitor::TraceStart("file", "load", "cap", "full", id);
  TkxSysMonitor::TraceNext(id, "a", "b");
  TkxSysMonitor::TraceEnd(7, "done");
  TkxSysMonitor::RegIntf(nullptr);
  TkxSysMonitor::TraceEnd(7, "after");
  EXPECT_EQ(id, 42);
  EXPECT_EQ(monitor->log, "start file|load|cap|full; next 42|a|b; next 7||done; ");
}

TEST(Localisation, PassesTextsThroughUntilALibraryIsRegistered) {
  const AnsiString ansi = Ansi(u8"Отчёт за период");
  const WideString wide = u"Отчёт за период";
  RegisterLcLib(nullptr);
  EXPECT_EQ(_(ansi), wide);
  EXPECT_EQ(_(wide, "ctx"), wide);
  EXPECT_EQ(LcLib().Get(), LcLib().Get());  // installed once
  RegisterLcLib(
      IPtr<IkxLcLib>(new testutil::TLcLib([](std::u16string_view text, std::string_view ctx) {
        return u"[" + AnsiToWide(ctx) + u":" + WideString(text) + u"]";
      })));
  EXPECT_EQ(_(ansi, "rep"), u"[rep:" + wide + u"]");
  EXPECT_EQ(_(u"x"), u"[:x]");
  RegisterLcLib(nullptr);
  EXPECT_EQ(_("plain"), u"plain");
}

}  // namespace
}  // namespace ostrel
