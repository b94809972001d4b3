// Module resolver, system monitor and localisation hook.
#include <ostrel/core/ModuleLinks.h>

#include <ostrel/rtl/Format.h>

namespace ostrel {

TGetModuleLinkProc FGetModuleLink = nullptr;
TGetModuleIntfProc FGetModuleIntf = nullptr;

namespace {

// Released at library unload, like any other static.
IPtr<IkxSysMonitor> gMonitor;
IPtr<IkxLcLib> gLcLib;

constexpr std::string_view kDefaultIntfName = "get_intf";

// Texts pass unchanged; 8-bit texts come back as 16-bit ones.
class TkxPassLcLib : public TInterfacedObject, public IkxLcLib {
  OSTREL_CLASS(TkxPassLcLib, TInterfacedObject)
 public:
  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    if (GetInterfaceEntry<IkxLcLib>(this, iid, obj)) return true;
    return TInterfacedObject::GetInterface(iid, obj);
  }

  void OSTREL_STDCALL Op1() override {}
  AnsiString OSTREL_STDCALL Op2(std::string_view) override { return AnsiString(); }
  WideString OSTREL_STDCALL TranslateW(std::u16string_view text, std::string_view) override {
    return WideString(text);
  }
  WideString OSTREL_STDCALL TranslateA(std::string_view text, std::string_view) override {
    return AnsiToWide(text);
  }
  void OSTREL_STDCALL Op5() override {}
};
OSTREL_DEFINE_CLASS(TkxPassLcLib)

}  // namespace

// ---- Module resolver -------------------------------------------------------------------

void GetModuleLink(std::string_view moduleName, IPtr<IkxModuleLink>& link) {
  link = nullptr;
  if (!FGetModuleLink) throw Exception("GetModuleLink: not implemented");
  FGetModuleLink(moduleName, link);
}

void GetModuleIntf(std::string_view moduleName, std::string_view intfName,
                   const IPtr<IInterface>& params, IPtr<IInterface>& result) {
  result = nullptr;
  if (!FGetModuleIntf) throw Exception("GetModuleIntf: not implemented");
  FGetModuleIntf(moduleName, intfName, params, result);
}

void GetModuleIntf(std::string_view moduleName, std::string_view intfName,
                   IPtr<IInterface>& result) {
  GetModuleIntf(moduleName, intfName, IPtr<IInterface>(), result);
}

void GetModuleIntf(std::string_view moduleName, std::string_view intfName, const TGUID& iid,
                   IPtr<IInterface>& ref) {
  ref = nullptr;
  IPtr<IInterface> found;
  GetModuleIntf(moduleName, intfName, found);
  ref = found.Query(iid);
  if (!ref)
    throw Exception(Format("GetModuleIntf: interface \"%s\" not supported", GUIDToString(iid)));
}

void GetModuleIntf(std::string_view moduleName, IPtr<IInterface>& result) {
  GetModuleIntf(moduleName, kDefaultIntfName, result);
}

void GetModuleIntf(std::string_view moduleName, const TGUID& iid, IPtr<IInterface>& ref) {
  GetModuleIntf(moduleName, kDefaultIntfName, iid, ref);
}

// ---- System monitor --------------------------------------------------------------------

void TkxSysMonitor::RegIntf(const IPtr<IkxSysMonitor>& monitor) { gMonitor = monitor; }

IPtr<IkxSysMonitor> TkxSysMonitor::Intf() { return gMonitor; }

bool TkxSysMonitor::Active() { return static_cast<bool>(gMonitor); }

void TkxSysMonitor::TraceStart(std::string_view text1, std::string_view text2,
                               std::string_view text3, std::string_view text4, Integer& traceId) {
  // Held for the call, so that a monitor unregistering itself meanwhile stays alive.
  if (IPtr<IkxSysMonitor> m = gMonitor) m->TraceStart(text1, text2, text3, text4, traceId);
}

void TkxSysMonitor::TraceNext(Integer traceId, std::string_view text1, std::string_view text2) {
  if (IPtr<IkxSysMonitor> m = gMonitor) m->TraceNext(traceId, text1, text2);
}

void TkxSysMonitor::TraceEnd(Integer traceId, std::string_view text) {
  TraceNext(traceId, std::string_view(), text);
}

// ---- Localisation ----------------------------------------------------------------------

IPtr<IkxLcLib> LcLib() {
  if (!gLcLib) gLcLib = IPtr<IkxLcLib>(new TkxPassLcLib);
  return gLcLib;
}

void RegisterLcLib(const IPtr<IkxLcLib>& lib) { gLcLib = lib; }

WideString _(std::u16string_view text, std::string_view context) {
  return LcLib()->TranslateW(text, context);
}

WideString _(std::string_view text, std::string_view context) {
  return LcLib()->TranslateA(text, context);
}

}  // namespace ostrel
