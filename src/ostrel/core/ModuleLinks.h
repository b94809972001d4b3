// The three process-wide hooks through which the library reaches services that another
// module supplies at run time: the module resolver (an interface of a module by module name
// and interface name), the system monitor (trace events) and the localisation library
// (translation of user texts). Each hook is one slot that the supplying module fills during
// start-up; while a slot is empty the functions below say so, stay silent or pass texts
// through unchanged.
//
// The slots are read and written without a lock: fill them before other threads use them.
#pragma once

#include <ostrel/rtl/System.h>
#include <ostrel/rtl/Variants.h>

#include <string_view>

namespace ostrel {

// The operations of the next three interfaces belong to the modules that implement and use
// them; this library only declares the tables and passes references along. Arguments and
// results travel as variant values.

// A link to a loaded module, supplied and used by the application's module manager.
struct IkxModuleLink : IInterface {
  static constexpr TGUID IID = TGUID::From("{D763195E-923F-453D-BBF4-EA7092F35B58}");
  virtual Variant OSTREL_STDCALL Op1(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op2(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op3(const Variant& args) = 0;

 protected:
  ~IkxModuleLink() = default;
};

// The application's logging service.
struct ILog : IInterface {
  static constexpr TGUID IID = TGUID::From("{86DAC437-C176-4E4A-AC20-3A1CD0102ABF}");
  virtual Variant OSTREL_STDCALL Op1(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op2(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op3(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op4(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op5(const Variant& args) = 0;

 protected:
  ~ILog() = default;
};

// The application's status display.
struct IStatus : IInterface {
  static constexpr TGUID IID = TGUID::From("{A239371D-63B0-4A35-A0AC-4EB225025BC9}");
  virtual Variant OSTREL_STDCALL Op1(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op2(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op3(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op4(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op5(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op6(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op7(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op8(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op9(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op10(const Variant& args) = 0;
  virtual Variant OSTREL_STDCALL Op11(const Variant& args) = 0;

 protected:
  ~IStatus() = default;
};

// The receiver of trace events. A trace starts with four texts (for instance a category, an
// action, a caption and a detail, as the caller sees fit) and gets an ID from the monitor;
// further events, and the end, go to TraceNext under that ID.
struct IkxSysMonitor : IInterface {
  static constexpr TGUID IID = TGUID::From("{107D2A1D-1462-466D-88E7-349A8AF36347}");
  virtual void OSTREL_STDCALL TraceStart(std::string_view text1, std::string_view text2,
                                         std::string_view text3, std::string_view text4,
                                         Integer& traceId) = 0;
  virtual void OSTREL_STDCALL TraceNext(Integer traceId, std::string_view text1,
                                        std::string_view text2) = 0;

 protected:
  ~IkxSysMonitor() = default;
};

// A localisation library. TranslateW and TranslateA translate a text; the second argument
// (a context or domain) is the library's business. Op1, Op2 and Op5 belong to the library.
struct IkxLcLib : IInterface {
  static constexpr TGUID IID = TGUID::From("{5E9CA155-8EF0-4C82-B798-2BA824D3BD36}");
  virtual void OSTREL_STDCALL Op1() = 0;
  virtual AnsiString OSTREL_STDCALL Op2(std::string_view text) = 0;
  virtual WideString OSTREL_STDCALL TranslateW(std::u16string_view text,
                                               std::string_view context) = 0;
  virtual WideString OSTREL_STDCALL TranslateA(std::string_view text, std::string_view context) = 0;
  virtual void OSTREL_STDCALL Op5() = 0;

 protected:
  ~IkxLcLib() = default;
};

// ---------------------------------------------------------------------------------------
// Module resolver

using TGetModuleLinkProc = void (*)(std::string_view moduleName, IPtr<IkxModuleLink>& link);
using TGetModuleIntfProc = void (*)(std::string_view moduleName, std::string_view intfName,
                                    const IPtr<IInterface>& params, IPtr<IInterface>& result);

// The resolver slots, assigned by the application's module manager (empty at start). They
// are left as they are when the library unloads: the supplying module must not be called
// after that.
OSTREL_API extern TGetModuleLinkProc FGetModuleLink;
OSTREL_API extern TGetModuleIntfProc FGetModuleIntf;

// The link of a module. The out reference is cleared first; an empty FGetModuleLink raises
// "GetModuleLink: not implemented".
OSTREL_API void GetModuleLink(std::string_view moduleName, IPtr<IkxModuleLink>& link);

// An interface of a module by the interface's name. The out reference is cleared first; an
// empty FGetModuleIntf raises "GetModuleIntf: not implemented".
OSTREL_API void GetModuleIntf(std::string_view moduleName, std::string_view intfName,
                              const IPtr<IInterface>& params, IPtr<IInterface>& result);
OSTREL_API void GetModuleIntf(std::string_view moduleName, std::string_view intfName,
                              IPtr<IInterface>& result);
// The same, then asked for `iid`: a result that is null or does not answer raises
// "GetModuleIntf: interface "{...}" not supported".
OSTREL_API void GetModuleIntf(std::string_view moduleName, std::string_view intfName,
                              const TGUID& iid, IPtr<IInterface>& ref);
// The module's own interface, under the interface name "get_intf".
OSTREL_API void GetModuleIntf(std::string_view moduleName, IPtr<IInterface>& result);
OSTREL_API void GetModuleIntf(std::string_view moduleName, const TGUID& iid, IPtr<IInterface>& ref);

// Typed forms of the identity forms: `IPtr<IDump> d; GetModuleIntf("mod", "params", d);`
template <class T>
void GetModuleIntf(std::string_view moduleName, std::string_view intfName, IPtr<T>& ref) {
  ref = nullptr;
  IPtr<IInterface> r;
  GetModuleIntf(moduleName, intfName, T::IID, r);
  ref = IPtr<T>::Attach(static_cast<T*>(r.Detach()));
}
template <class T>
void GetModuleIntf(std::string_view moduleName, IPtr<T>& ref) {
  GetModuleIntf<T>(moduleName, "get_intf", ref);
}

// ---------------------------------------------------------------------------------------
// System monitor

// Trace events go to the registered monitor; without one, tracing is silent.
class OSTREL_API TkxSysMonitor {
 public:
  TkxSysMonitor() = delete;

  // Registers the monitor; null removes it.
  static void RegIntf(const IPtr<IkxSysMonitor>& monitor);
  static IPtr<IkxSysMonitor> Intf();
  static bool Active();
  // Forwarded when a monitor is registered; otherwise traceId is left as it is.
  static void TraceStart(std::string_view text1, std::string_view text2, std::string_view text3,
                         std::string_view text4, Integer& traceId);
  static void TraceNext(Integer traceId, std::string_view text1, std::string_view text2);
  // The monitor has no end operation: the end is TraceNext with an empty first text.
  static void TraceEnd(Integer traceId, std::string_view text);
};

// ---------------------------------------------------------------------------------------
// Localisation

// The registered localisation library. Without one a pass-through library, which returns
// texts unchanged, is registered on first use.
OSTREL_API IPtr<IkxLcLib> LcLib();
// Replaces the registered library; null makes the next LcLib install the pass-through one.
OSTREL_API void RegisterLcLib(const IPtr<IkxLcLib>& lib);

// Translates a user text through the registered library (TranslateW / TranslateA).
OSTREL_API WideString _(std::u16string_view text, std::string_view context = {});
OSTREL_API WideString _(std::string_view text, std::string_view context = {});

}  // namespace ostrel
