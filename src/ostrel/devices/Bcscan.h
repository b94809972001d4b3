// Barcode readers: TBCReader, the component a form drops in to receive scanned codes, and the
// one process-wide TBCServer that opens every scanner of the device module (kind "BCREADER")
// while at least one reader is active and passes each code to every active reader.
//
// Codes arrive on the main thread, finished (recognising prefixes, suffixes and timing is
// the device module's business).
#pragma once

#include <ostrel/devices/Devintf.h>
#include <ostrel/rtl/Controls.h>

#include <functional>
#include <vector>

namespace ostrel {

class TBCReader;

using TBCScanEvent = std::function<void(TObject* sender, const AnsiString& barCode)>;

// The message posted to a reader's windowed owner for each delivered code: first parameter
// 0, second the reader.
inline constexpr Cardinal WM_BCSCAN = 48429;

// The device kind of scanners.
inline constexpr std::string_view BCReaderKind = "BCREADER";

// Whether the application is the one the user works with (the foreground one). Codes scanned
// while it is not are remembered but not delivered. The default asks the window system on
// Windows and answers true elsewhere; SetAppActiveQuery replaces it (null restores the
// default) and returns the previous one.
using TAppActiveQuery = bool (*)();
OSTREL_API TAppActiveQuery SetAppActiveQuery(TAppActiveQuery query);
OSTREL_API bool IsAppActive();

// A barcode reader component: takes the codes its server hands it and passes them on while
// the application is active.
class OSTREL_API TBCReader : public TComponent {
  OSTREL_CLASS(TBCReader, TComponent)
 public:
  explicit TBCReader(TComponent* owner = nullptr);
  ~TBCReader() override;

  // Stores the code; when the application is active calls OnScan and posts WM_BCSCAN to a
  // windowed owner.
  virtual void Scan(const AnsiString& barCode);
  const AnsiString& LastCode() const noexcept { return fLastCode; }
  // In the server's reader list. Activating the first reader opens the devices (raising the
  // unregistered-module error when there is no module; the reader is in the list by then).
  bool GetActive();
  void SetActive(bool value);

  TBCScanEvent OnScan;

 private:
  AnsiString fLastCode;
};

// The process's one barcode server: opens the device module's scanners for the first active
// reader, closes them after the last, and hands each scanned code to the readers.
class OSTREL_API TBCServer : public TObject, public IBCReaderLink {
  OSTREL_CLASS(TBCServer, TObject)
 public:
  TBCServer();
  ~TBCServer() override;

  // The server lives as long as the library: counting does nothing.
  HRESULT OSTREL_STDCALL QueryInterface(const TGUID& iid, void** obj) override;
  Integer OSTREL_STDCALL _AddRef() override { return -1; }
  Integer OSTREL_STDCALL _Release() override { return -1; }
  bool GetInterface(const TGUID& iid, void** obj) override;

  // Opens every scanner of the module (when there are readers and it is not open yet).
  void Open();
  // Releases the scanners.
  void Close();
  Integer FindReader(const TBCReader* reader) const;
  void AddReader(TBCReader* reader);
  void RemoveReader(TBCReader* reader);
  // The opened scanners.
  void GetDevList(std::vector<IPtr<IBCReader>>& list) const;
  bool GetActive() const noexcept { return static_cast<bool>(fDevices); }
  Integer GetDevCount() const;
  Integer GetReaderCount() const noexcept { return static_cast<Integer>(fReaders.size()); }
  // Raises EListError "List index (%d) out of bounds".
  TBCReader* GetReader(Integer index) const;
  // Every reader's Scan, in list order.
  void OSTREL_STDCALL Scan(const AnsiString& barCode) override;

 private:
  void Notify(Integer eventCode);

  std::vector<TBCReader*> fReaders;
  IPtr<TInterfaceList> fDevices;
};

// The single server, created on first call.
OSTREL_API TBCServer* BCServer();

// Called after each change of the server: 0 created, 1 about to be destroyed, 2 devices
// opened, 3 devices closed, 4 reader added, 5 reader removed. Empty by default.
using TBCServerHook = void (*)(TBCServer* server, Integer eventCode);
OSTREL_API extern TBCServerHook BCServerHook;

}  // namespace ostrel
