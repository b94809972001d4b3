// The interfaces of the core: object references, contained objects, name-dispatched access
// for scripting hosts, and the named-value container IDump with its list.
//
// Identities are fixed: other modules compare them. Operations are declared in slot order
// after the three IInterface operations, so the tables stay compatible across modules.
#pragma once

#include <ostrel/rtl/System.h>
#include <ostrel/rtl/Variants.h>

#include <string_view>

namespace ostrel {

// Gives the object behind an interface (not counted).
struct IObjectReference : IInterface {
  static constexpr TGUID IID = TGUID::From("{FFB00251-6807-4C72-BB9B-DB108C80F6DE}");
  virtual TObject* OSTREL_STDCALL GetInstance() = 0;

 protected:
  ~IObjectReference() = default;
};

// An object that can live under a controller, which aggregates its interfaces.
struct IContainedObject : IInterface {
  static constexpr TGUID IID = TGUID::From("{2B324200-7927-4A11-90A0-EAAB298396D4}");
  // The controller as IInterface, null when there is none.
  virtual IPtr<IInterface> OSTREL_STDCALL GetController() = 0;
  // Places the object under `controller` (null detaches) with the link ID `id`. With owned
  // true the controller frees the object; with owned false the object stays self-owned.
  virtual void OSTREL_STDCALL SetController(const IPtr<IInterface>& controller, bool owned,
                                            Integer id) = 0;

 protected:
  ~IContainedObject() = default;
};

// Name-dispatched access for a scripting host.
struct IObjectRTTI : IInterface {
  static constexpr TGUID IID = TGUID::From("{F0C6F874-ABCC-4A4A-98B4-FC54428BBA1C}");
  virtual Variant OSTREL_STDCALL GetProp(TObject* instance, TClass cls, std::string_view name) = 0;
  virtual void OSTREL_STDCALL SetProp(TObject* instance, TClass cls, std::string_view name,
                                      const Variant& value) = 0;
  virtual Variant OSTREL_STDCALL CallMethod(TObject* instance, TClass cls, std::string_view name,
                                            Variant& params) = 0;

 protected:
  ~IObjectRTTI() = default;
};

// An ordered list of (name, value) entries; names compare without regard to case (CP1251,
// Cyrillic included) and keep the spelling under which they were first stored.
struct IDump : IInterface {
  static constexpr TGUID IID = TGUID::From("{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}");
  virtual AnsiString OSTREL_STDCALL get_Name(Integer index) = 0;
  virtual Integer OSTREL_STDCALL get_Count() = 0;
  virtual Variant OSTREL_STDCALL get_Value(Integer index) = 0;
  virtual void OSTREL_STDCALL set_Value(Integer index, const Variant& value) = 0;
  // A ";" in the name asks for several names at once: the result is then a variant array.
  virtual Variant OSTREL_STDCALL get_ByName(std::string_view name) = 0;
  virtual void OSTREL_STDCALL set_ByName(std::string_view name, const Variant& value) = 0;
  // -1 when the name is absent.
  virtual Integer OSTREL_STDCALL IndexOf(std::string_view name) = 0;
  virtual bool OSTREL_STDCALL IsEmpty() = 0;
  virtual void OSTREL_STDCALL Delete(Integer index) = 0;

 protected:
  ~IDump() = default;
};

// A list of dumps.
struct IDumpList : IInterface {
  static constexpr TGUID IID = TGUID::From("{99A3B862-4A23-4C0E-9525-CD92979059A0}");
  virtual IPtr<IDump> OSTREL_STDCALL get_Item(Integer index) = 0;
  virtual Integer OSTREL_STDCALL get_Count() = 0;
  // Appends and returns the new index.
  virtual Integer OSTREL_STDCALL Add(const IPtr<IDump>& dump) = 0;

 protected:
  ~IDumpList() = default;
};

}  // namespace ostrel

// The further interfaces of the core: variable and ID lists, key data, module links, the
// system monitor and the localisation library.
#include <ostrel/core/ListIntf.h>
#include <ostrel/core/ModuleLinks.h>
