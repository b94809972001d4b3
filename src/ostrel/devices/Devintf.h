// Device interfaces and the one registration point of the device module.
//
// A device module (a scale, display or scanner driver) provides the catalogue IDevices and
// registers a provider function with SetDevicesProvider; the library and the application
// reach every device through GetDevices / GetDeviceIntf. Kinds name device families
// ("BCREADER" for barcode scanners); a device is found by kind, group and name.
#pragma once

#include <ostrel/rtl/Classes.h>

#include <string_view>

namespace ostrel {

// What a device type is: its kind, its name and a text for people.
struct TDeviceTypeInfo {
  AnsiString Kind;
  AnsiString TypeName;
  AnsiString Description;
};

// What a configured device is: its kind, group, name, type and the settings-store key of
// its configuration.
struct TDeviceInfo {
  AnsiString Kind;
  AnsiString Group;
  AnsiString Name;
  AnsiString TypeName;
  AnsiString RegPath;
};

// Any device.
struct IDevice : IInterface {
  static constexpr TGUID IID = TGUID::From("{5B0C8E61-3C1F-4D7A-9E25-0A6B1F4C7D01}");
  virtual void OSTREL_STDCALL GetInfo(TDeviceInfo& info) = 0;
  // Whether the device is open for use.
  virtual bool OSTREL_STDCALL GetActive() = 0;

 protected:
  ~IDevice() = default;
};

// A device driven through an OPOS control object.
struct IOPOSDevice : IDevice {
  static constexpr TGUID IID = TGUID::From("{5B0C8E61-3C1F-4D7A-9E25-0A6B1F4C7D02}");
  // The OPOS logical device name.
  virtual AnsiString OSTREL_STDCALL GetDeviceName() = 0;

 protected:
  ~IOPOSDevice() = default;
};

// A data-collection terminal: batches of records passed both ways.
struct IDataTerminal : IDevice {
  static constexpr TGUID IID = TGUID::From("{5B0C8E61-3C1F-4D7A-9E25-0A6B1F4C7D03}");
  virtual bool OSTREL_STDCALL Upload(TStringList& records) = 0;
  virtual bool OSTREL_STDCALL Download(const TStringList& records) = 0;

 protected:
  ~IDataTerminal() = default;
};

// A customer display of text lines.
struct ICustDisplay : IDevice {
  static constexpr TGUID IID = TGUID::From("{5B0C8E61-3C1F-4D7A-9E25-0A6B1F4C7D04}");
  virtual void OSTREL_STDCALL ShowText(std::string_view line1, std::string_view line2) = 0;
  virtual void OSTREL_STDCALL Clear() = 0;

 protected:
  ~ICustDisplay() = default;
};

// The call-back of a scanner: every code it reads, as a finished 8-bit string, on the main
// thread.
struct IBCReaderLink : IInterface {
  static constexpr TGUID IID = TGUID::From("{5B0C8E61-3C1F-4D7A-9E25-0A6B1F4C7D05}");
  virtual void OSTREL_STDCALL Scan(const AnsiString& barCode) = 0;

 protected:
  ~IBCReaderLink() = default;
};

// A barcode scanner. SetLink hands it the call-back (null: none; the scanner stops calling).
struct IBCReader : IDevice {
  static constexpr TGUID IID = TGUID::From("{EBD19C4D-430A-4AB4-A005-7F1DDEE6278A}");
  virtual void OSTREL_STDCALL SetLink(IBCReaderLink* link) = 0;

 protected:
  ~IBCReader() = default;
};

// The device module's catalogue.
struct IDevices : IInterface {
  static constexpr TGUID IID = TGUID::From("{5B0C8E61-3C1F-4D7A-9E25-0A6B1F4C7D07}");
  // The names of the devices of the kind whose names contain filter (all for an empty one)
  // into list; false when the module knows no such kind.
  virtual bool OSTREL_STDCALL GetDeviceList(std::string_view kind, std::string_view filter,
                                            TStringList& list) = 0;
  // The device's interface iid into intf; false (intf null) when there is no such device or
  // it does not offer the interface. With open, the device is opened for use.
  virtual bool OSTREL_STDCALL GetDeviceIntf(std::string_view kind, std::string_view group,
                                            std::string_view name, bool open, const TGUID& iid,
                                            IPtr<IInterface>& intf) = 0;
  // The device types the module drives.
  virtual void OSTREL_STDCALL GetDeviceTypes(std::vector<TDeviceTypeInfo>& types) = 0;

 protected:
  ~IDevices() = default;
};

namespace DevConst {
inline constexpr auto SDevModuleNotRegistered =
    Cp1251(u8"Модуль для работы  с оборудованием не зарегистрирован.");
inline constexpr auto SDevAccessError = Cp1251(u8"Нет доступа к устройству");
}  // namespace DevConst

// The device module's provider: gives its catalogue.
using TDevicesProvider = void(OSTREL_STDCALL*)(IPtr<IDevices>& devices);
// Registers the provider (null: none); returns the one registered before.
OSTREL_API TDevicesProvider SetDevicesProvider(TDevicesProvider provider);

// Clears devices and fills it from the registered module; raises "Модуль для работы  с
// оборудованием не зарегистрирован." when none is registered.
OSTREL_API void GetDevices(IPtr<IDevices>& devices);
// GetDevices, then the catalogue's GetDeviceIntf.
OSTREL_API bool GetDeviceIntf(std::string_view kind, std::string_view group, std::string_view name,
                              bool open, const TGUID& iid, IPtr<IInterface>& intf);
OSTREL_API bool GetDeviceIntf(std::string_view kind, std::string_view name, bool open,
                              const TGUID& iid, IPtr<IInterface>& intf);
// A device's settings path: C\A, or C\A\B when B is not empty.
OSTREL_API AnsiString Dev_RegPath(std::string_view a, std::string_view b, std::string_view c);

}  // namespace ostrel
