// The serial barcode-scanner module: a catalogue of configured scanners, each a TkxCommPort
// whose received bytes are cut into codes at the terminators.
#include <ostrel/devices/SerialScanner.h>

#include <ostrel/devices/Bcscan.h>
#include <ostrel/devices/Kxcommport.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Registry.h>
#include <ostrel/rtl/Strings.h>

#include <memory>
#include <mutex>
#include <optional>

namespace ostrel {

namespace {

std::mutex lostLock;
TSerialScannerLost lostHandler;

void ReportLost(const AnsiString& name, const AnsiString& message) {
  TSerialScannerLost handler;
  {
    std::lock_guard lock(lostLock);
    handler = lostHandler;
  }
  if (handler) handler(name, message);
}

class TSerialBCReader : public TInterfacedObject, public IBCReader {
 public:
  explicit TSerialBCReader(const TSerialScannerConfig& config) : fConfig(config) {
    fPort.SetDevicePath(config.Device);
    fPort.LoadParamsText(config.Params, true);
    fPort.SetEvents({evRxChar, evError});
    fPort.SetSyncMethod(smThreadSync);
    fPort.OnReceiveData = [this](TObject*, const void* data, Integer size) {
      Receive(static_cast<const char*>(data), static_cast<std::size_t>(size));
    };
    fPort.OnEvent = [this](TObject*, TkxCommEvents) {
      if (fLostReported || !fPort.DeviceLost()) return;  // a line error, not a loss
      fLostReported = true;
      AnsiString where = fConfig.Device.empty()
                             ? Format("COM%d", static_cast<Integer>(fPort.PortNumber()))
                             : fConfig.Device;
      ReportLost(fConfig.Name, Format(CommConst::SDeviceGone.Str(), where));
    };
  }
  ~TSerialBCReader() override { fPort.Close(); }

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    return GetInterfaceEntry<IBCReader, IDevice>(this, iid, obj) ||
           TInterfacedObject::GetInterface(iid, obj);
  }

  void OSTREL_STDCALL GetInfo(TDeviceInfo& info) override {
    info = TDeviceInfo{AnsiString(BCReaderKind),
                       {},
                       fConfig.Name,
                       "SERIAL",
                       Dev_RegPath(BCReaderKind, fConfig.Name, SerialScannerRegKey)};
  }
  bool OSTREL_STDCALL GetActive() override { return fPort.Active(); }
  void OSTREL_STDCALL SetLink(IBCReaderLink* link) override { fLink = link; }

  void Open() { fPort.Open(); }

 private:
  void Receive(const char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      if (fConfig.Terminators.find(data[i]) == std::string::npos) {
        fCode += data[i];
        continue;
      }
      if (fCode.empty()) continue;
      AnsiString code = std::move(fCode);
      fCode.clear();
      if (fLink) fLink->Scan(code);
    }
  }

  TSerialScannerConfig fConfig;
  TkxCommPort fPort;
  IPtr<IBCReaderLink> fLink;
  AnsiString fCode;
  bool fLostReported = false;
};

class TSerialDevices : public TInterfacedObject, public IDevices {
 public:
  explicit TSerialDevices(std::vector<TSerialScannerConfig> scanners)
      : fScanners(std::move(scanners)) {}

  OSTREL_INTERFACED_IINTERFACE
  bool GetInterface(const TGUID& iid, void** obj) override {
    return GetInterfaceEntry<IDevices>(this, iid, obj) || TInterfacedObject::GetInterface(iid, obj);
  }

  bool OSTREL_STDCALL GetDeviceList(std::string_view kind, std::string_view filter,
                                    TStringList& list) override {
    if (!SameText(kind, BCReaderKind)) return false;
    for (const TSerialScannerConfig& s : fScanners)
      if (filter.empty() || AnsiPosText(filter, s.Name) > 0) list.Add(s.Name);
    return true;
  }

  bool OSTREL_STDCALL GetDeviceIntf(std::string_view kind, std::string_view, std::string_view name,
                                    bool open, const TGUID& iid, IPtr<IInterface>& intf) override {
    intf = nullptr;
    if (!SameText(kind, BCReaderKind)) return false;
    for (const TSerialScannerConfig& s : fScanners) {
      if (!AnsiSameText(s.Name, name)) continue;
      IPtr<TSerialBCReader> reader(new TSerialBCReader(s));
      if (open) {
        try {
          reader->Open();
        } catch (const Exception&) {
          return false;  // a scanner that cannot be opened is left out
        }
      }
      reader->QueryInterface(iid, intf.ReleaseAndGetAddressOf());
      return static_cast<bool>(intf);
    }
    return false;
  }

  void OSTREL_STDCALL GetDeviceTypes(std::vector<TDeviceTypeInfo>& types) override {
    types = {TDeviceTypeInfo{AnsiString(BCReaderKind), "SERIAL", "Serial barcode scanner"}};
  }

 private:
  std::vector<TSerialScannerConfig> fScanners;
};

std::mutex configLock;
std::optional<std::vector<TSerialScannerConfig>> givenScanners;

void OSTREL_STDCALL ProvideDevices(IPtr<IDevices>& devices) {
  std::vector<TSerialScannerConfig> scanners;
  {
    std::lock_guard lock(configLock);
    if (givenScanners) scanners = *givenScanners;
  }
  if (scanners.empty()) scanners = LoadSerialScanners();
  devices = IPtr<IDevices>(new TSerialDevices(std::move(scanners)));
}

}  // namespace

std::vector<TSerialScannerConfig> LoadSerialScanners() {
  std::vector<TSerialScannerConfig> scanners;
  TRegistry reg;
  if (!reg.OpenKeyReadOnly(Dev_RegPath(BCReaderKind, {}, SerialScannerRegKey))) return scanners;
  TStringList names;
  names.SetDelimiter(';');
  names.SetDelimitedText(reg.ReadString("Devices"));
  for (Integer i = 0; i < names.Count(); ++i) {
    TSerialScannerConfig config;
    config.Name = names[i];
    if (reg.OpenKeyReadOnly(Dev_RegPath(BCReaderKind, config.Name, SerialScannerRegKey))) {
      config.Params = reg.ReadString("Comm.DCB");
      config.Device = reg.ReadString("Device");
      AnsiString codes = Trim(reg.ReadString("Terminator"));
      if (!codes.empty()) {
        TStringList list;
        list.SetDelimiter(';');
        list.SetDelimitedText(codes);
        config.Terminators.clear();
        for (Integer j = 0; j < list.Count(); ++j)
          config.Terminators += static_cast<char>(StrToInt(list[j]));
      }
    }
    scanners.push_back(std::move(config));
  }
  return scanners;
}

TSerialScannerLost SetSerialScannerLostHandler(TSerialScannerLost handler) {
  std::lock_guard lock(lostLock);
  std::swap(lostHandler, handler);
  return handler;
}

void RegisterSerialScannerModule() {
  {
    std::lock_guard lock(configLock);
    givenScanners.reset();
  }
  SetDevicesProvider(&ProvideDevices);
}

void RegisterSerialScannerModule(std::vector<TSerialScannerConfig> scanners) {
  {
    std::lock_guard lock(configLock);
    givenScanners = std::move(scanners);
  }
  SetDevicesProvider(&ProvideDevices);
}

}  // namespace ostrel
