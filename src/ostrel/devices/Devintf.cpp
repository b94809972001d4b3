// The device module's registration point and the free device operations.
#include <ostrel/devices/Devintf.h>

#include <atomic>

namespace ostrel {

namespace {
std::atomic<TDevicesProvider> devicesProvider{nullptr};
}  // namespace

TDevicesProvider SetDevicesProvider(TDevicesProvider provider) {
  return devicesProvider.exchange(provider);
}

void GetDevices(IPtr<IDevices>& devices) {
  devices = nullptr;
  TDevicesProvider provider = devicesProvider.load();
  if (!provider) throw Exception(DevConst::SDevModuleNotRegistered);
  provider(devices);
  if (!devices) throw Exception("GetDevices: the device module gave no catalogue");
}

bool GetDeviceIntf(std::string_view kind, std::string_view group, std::string_view name, bool open,
                   const TGUID& iid, IPtr<IInterface>& intf) {
  IPtr<IDevices> devices;
  GetDevices(devices);
  return devices->GetDeviceIntf(kind, group, name, open, iid, intf);
}

bool GetDeviceIntf(std::string_view kind, std::string_view name, bool open, const TGUID& iid,
                   IPtr<IInterface>& intf) {
  return GetDeviceIntf(kind, {}, name, open, iid, intf);
}

AnsiString Dev_RegPath(std::string_view a, std::string_view b, std::string_view c) {
  AnsiString path = AnsiString(c) + '\\' + AnsiString(a);
  if (!b.empty()) path += '\\' + AnsiString(b);
  return path;
}

}  // namespace ostrel
