// TBCReader and the barcode server.
#include <ostrel/devices/Bcscan.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Process.h>

#include <atomic>
#include <memory>

namespace ostrel {

OSTREL_DEFINE_CLASS(TBCReader)
OSTREL_DEFINE_CLASS(TBCServer)

TBCServerHook BCServerHook = nullptr;

// ---- the foreground application -------------------------------------------------------

namespace {

bool DefaultAppActive() { return IsForegroundProcess(); }

std::atomic<TAppActiveQuery> appActiveQuery{&DefaultAppActive};

std::unique_ptr<TBCServer>& ServerSlot() {
  // Destroyed when the library is unloaded, as the unit's finalisation did.
  static std::unique_ptr<TBCServer> server;
  return server;
}

}  // namespace

TAppActiveQuery SetAppActiveQuery(TAppActiveQuery query) {
  return appActiveQuery.exchange(query ? query : &DefaultAppActive);
}

bool IsAppActive() { return appActiveQuery.load()(); }

// ---- the server ------------------------------------------------------------------------

TBCServer* BCServer() {
  std::unique_ptr<TBCServer>& server = ServerSlot();
  if (!server) {
    server = std::make_unique<TBCServer>();
    if (BCServerHook) BCServerHook(server.get(), 0);
  }
  return server.get();
}

TBCServer::TBCServer() = default;

TBCServer::~TBCServer() {
  Notify(1);
  try {
    Close();
  } catch (...) {
    // a device that fails to close cannot stop the server going
  }
}

HRESULT TBCServer::QueryInterface(const TGUID& iid, void** obj) {
  return GetInterface(iid, obj) ? S_OK : E_NOINTERFACE;
}

bool TBCServer::GetInterface(const TGUID& iid, void** obj) {
  return GetInterfaceEntry<IBCReaderLink>(this, iid, obj) || TObject::GetInterface(iid, obj);
}

void TBCServer::Notify(Integer eventCode) {
  if (BCServerHook) BCServerHook(this, eventCode);
}

void TBCServer::Open() {
  if (GetActive() || fReaders.empty()) return;
  fDevices = IPtr<TInterfaceList>(new TInterfaceList);
  TStringList names;
  IPtr<IDevices> devices;
  GetDevices(devices);
  // A module without scanners leaves the server active with no devices (and no notice).
  if (!devices->GetDeviceList(BCReaderKind, {}, names)) return;
  for (Integer i = 0; i < names.Count(); ++i) {
    IPtr<IInterface> intf;
    if (!devices->GetDeviceIntf(BCReaderKind, {}, names[i], true, IBCReader::IID, intf) || !intf)
      continue;
    IPtr<IBCReader> reader = intf.As<IBCReader>();
    if (!reader) continue;
    fDevices->Add(intf);
    reader->SetLink(this);
  }
  Notify(2);
}

void TBCServer::Close() {
  if (!GetActive()) return;
  IPtr<TInterfaceList> devices = std::move(fDevices);
  for (Integer i = 0; i < devices->Count(); ++i)
    if (IPtr<IBCReader> reader = devices->Items(i).As<IBCReader>()) reader->SetLink(nullptr);
  devices = nullptr;
  Notify(3);
}

Integer TBCServer::FindReader(const TBCReader* reader) const {
  for (std::size_t i = 0; i < fReaders.size(); ++i)
    if (fReaders[i] == reader) return static_cast<Integer>(i);
  return -1;
}

void TBCServer::AddReader(TBCReader* reader) {
  fReaders.push_back(reader);
  Open();
  Notify(4);
}

void TBCServer::RemoveReader(TBCReader* reader) {
  Integer i = FindReader(reader);
  if (i >= 0) fReaders.erase(fReaders.begin() + i);
  if (fReaders.empty()) Close();
  Notify(5);
}

void TBCServer::GetDevList(std::vector<IPtr<IBCReader>>& list) const {
  list.clear();
  if (!fDevices) return;
  for (Integer i = 0; i < fDevices->Count(); ++i)
    list.push_back(fDevices->Items(i).As<IBCReader>());
}

Integer TBCServer::GetDevCount() const { return fDevices ? fDevices->Count() : 0; }

TBCReader* TBCServer::GetReader(Integer index) const {
  CheckListIndex(index, GetReaderCount());
  return fReaders[static_cast<std::size_t>(index)];
}

void TBCServer::Scan(const AnsiString& barCode) {
  // A reader's handler may deactivate readers; those still listed when reached get the code.
  std::vector<TBCReader*> readers = fReaders;
  for (TBCReader* reader : readers)
    if (FindReader(reader) >= 0) reader->Scan(barCode);
}

// ---- the reader -----------------------------------------------------------------------

TBCReader::TBCReader(TComponent* owner) : TComponent(owner) {}

TBCReader::~TBCReader() {
  try {
    SetActive(false);
  } catch (...) {
    // the reader leaves the list in any case
  }
}

bool TBCReader::GetActive() { return BCServer()->FindReader(this) >= 0; }

void TBCReader::SetActive(bool value) {
  if (value == GetActive()) return;
  if (value)
    BCServer()->AddReader(this);
  else
    BCServer()->RemoveReader(this);
}

void TBCReader::Scan(const AnsiString& barCode) {
  fLastCode = barCode;
  if (!IsAppActive()) return;
  if (OnScan) OnScan(this, barCode);
  if (auto* owner = dynamic_cast<TWinControl*>(Owner()))
    owner->Post(WM_BCSCAN, 0, reinterpret_cast<std::intptr_t>(this));
}

}  // namespace ostrel
