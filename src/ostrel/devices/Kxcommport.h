// The serial (COM) port component TkxCommPort: line settings, driver buffers and time-outs
// kept in step with the device while it is open, line events watched by a worker thread and
// handed to the application, settings saved to and loaded from the settings store as a mode
// string.
//
// On Windows the port is the system's "\\.\COM<n>" device driven with overlapped I/O. On Linux
// it is a terminal device driven through termios: port n opens the path set with
// SetCommPortDevice (by default /dev/ttyS<n-1>), or the port is given a device path directly
// (SetDevicePath: /dev/ttyUSB0, a pseudo-terminal). What a Linux device cannot report:
// evRxFlag never fires (there is no event character); the modem lines, breaks and line errors
// (evCTS, evDSR, evRing, evRLSD, evBreak, evError) come from the driver's interrupt counters,
// sampled every 20 ms while any of them is watched, and only from drivers that keep them
// (real UARTs and most USB adapters; a pseudo-terminal has none).
#pragma once

#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/Controls.h>
#include <ostrel/rtl/Registry.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

namespace ostrel {

enum TkxCommPortParity : Byte { ptNone, ptOdd, ptEven, ptMark, ptSpace };
enum TkxCommPortStopBits : Byte { sb1, sb1p5, sb2 };
enum TkxCommPortFlowControl : Byte { fcNone, fcHardware, fcXonXoff };
enum TkxCommSyncMethod : Byte { smThreadSync, smWindowSync, smNone };
enum TkxCommEvent : Byte {
  evRxChar,
  evTxEmpty,
  evRxFlag,
  evRing,
  evBreak,
  evCTS,
  evDSR,
  evError,
  evRLSD,
  evRx80Full
};

// A set of TkxCommEvent in 16 bits, bit n for the n-th event.
class TkxCommEvents {
 public:
  constexpr TkxCommEvents() = default;
  constexpr TkxCommEvents(std::initializer_list<TkxCommEvent> items) {
    for (TkxCommEvent e : items) Include(e);
  }
  static constexpr TkxCommEvents FromBits(Word bits) {
    TkxCommEvents r;
    r.fBits = static_cast<Word>(bits & 0x3FF);
    return r;
  }
  static constexpr TkxCommEvents All() { return FromBits(0x3FF); }
  constexpr Word Bits() const { return fBits; }
  constexpr bool Contains(TkxCommEvent e) const { return (fBits >> e) & 1u; }
  constexpr void Include(TkxCommEvent e) { fBits = static_cast<Word>(fBits | (1u << e)); }
  constexpr void Exclude(TkxCommEvent e) { fBits = static_cast<Word>(fBits & ~(1u << e)); }
  constexpr bool Empty() const { return fBits == 0; }
  constexpr friend TkxCommEvents operator*(TkxCommEvents a, TkxCommEvents b) {
    return FromBits(static_cast<Word>(a.fBits & b.fBits));
  }
  constexpr friend TkxCommEvents operator+(TkxCommEvents a, TkxCommEvents b) {
    return FromBits(static_cast<Word>(a.fBits | b.fBits));
  }
  constexpr friend bool operator==(TkxCommEvents, TkxCommEvents) = default;

 private:
  Word fBits = 0;
};

// The Windows line-event mask bits, under names that do not meet windows.h's macros.
namespace CommMask {
inline constexpr Cardinal RxChar = 0x0001, RxFlag = 0x0002, TxEmpty = 0x0004, Cts = 0x0008,
                          Dsr = 0x0010, Rlsd = 0x0020, Break = 0x0040, Err = 0x0080, Ring = 0x0100,
                          Rx80Full = 0x0400;
}

// Event set <-> Windows event mask; bits outside the ten events are dropped.
OSTREL_API Cardinal EventsToMask(TkxCommEvents events);
OSTREL_API TkxCommEvents MaskToEvents(Cardinal mask);

using TkxCommPortNumber = Byte;        // 1 to 16
using TkxCommPortBaudRate = Cardinal;  // a rate of CommBaudRates
using TkxCommPortDataBits = Byte;      // 5 to 8

// The standard rates; entry 0 is never chosen.
inline constexpr Cardinal CommBaudRates[16] = {0,     110,    300,    600,   1200,  2400,
                                               4800,  9600,   14400,  19200, 38400, 56000,
                                               57600, 115200, 128000, 256000};
// The last listed rate not above value: 110 below 110, 256000 above 256000.
OSTREL_API Cardinal RoundBaudRate(Cardinal value);

// The Windows device-control block, 28 bytes, laid out as the system's DCB on every platform
// (BuildDCB shows it). Flags holds the system's bit fields.
struct TDCB {
  Cardinal DCBlength = 0;
  Cardinal BaudRate = 0;
  Cardinal Flags = 0;
  Word wReserved = 0;
  Word XonLim = 0;
  Word XoffLim = 0;
  Byte ByteSize = 0;
  Byte Parity = 0;
  Byte StopBits = 0;
  char XonChar = 0;
  char XoffChar = 0;
  char ErrorChar = 0;
  char EofChar = 0;
  char EvtChar = 0;
  Word wReserved1 = 0;
};
static_assert(sizeof(TDCB) == 28, "TDCB must have the system's DCB layout");

// Bits of TDCB::Flags.
namespace DcbFlag {
inline constexpr Cardinal Binary = 0x0001, Parity = 0x0002, OutxCtsFlow = 0x0004,
                          OutxDsrFlow = 0x0008, DtrControlMask = 0x0030, DtrEnable = 0x0010,
                          DtrHandshake = 0x0020, DsrSensitivity = 0x0040, TXContinueOnXoff = 0x0080,
                          OutX = 0x0100, InX = 0x0200, ErrorChar = 0x0400, Null = 0x0800,
                          RtsControlMask = 0x3000, RtsEnable = 0x1000, RtsHandshake = 0x2000,
                          RtsToggle = 0x3000, AbortOnError = 0x4000;
}

// Parses a mode string as the Windows mode command and BuildCommDCBA take it, into the DCB:
// "9600,n,8,1" (rate, parity, data bits, stop bits; the later ones may be left out, giving
// even parity, 7 data bits and 1 stop bit, 2 at 110 baud) or "baud=9600 parity=n data=8 stop=1"
// with the further keys to, xon, odsr, octs, dtr, rts, idsr (fields not named keep their
// value). A two-digit rate of the old form is the classic abbreviation (96 is 9600, 12 is
// 1200, 11 is 110). False, with the DCB unchanged, for text of neither shape. On Windows it is
// the system's own BuildCommDCBA.
OSTREL_API bool CommModeToDCB(std::string_view mode, TDCB& dcb);

// The device path that port number n opens on Linux: the one set for it, else /dev/ttyS<n-1>.
// On Windows "\\.\COM<n>". An empty path removes the setting.
OSTREL_API AnsiString CommPortDevice(Integer portNumber);
OSTREL_API void SetCommPortDevice(Integer portNumber, std::string_view path);

class TkxCommPort;
class TCommDevice;
class TCommWindow;
class TkxCommEventThread;

namespace CommConst {
inline constexpr auto SPortAlreadyOpen = Cp1251(u8"Порт уже открыт.\r\rОперация невозможна.");
inline constexpr auto SPortBusy = Cp1251(u8"Порт COM%d занят или недоступен.");
// A device given by its path: the path and the reason in the user's words.
inline constexpr auto SDeviceUnavailable = Cp1251(u8"Устройство %s недоступно: %s.");
// The reasons of SDeviceUnavailable where the system's own text would say little.
inline constexpr auto SReasonNoDevice = Cp1251(u8"нет такого устройства");
inline constexpr auto SReasonNotSerial = Cp1251(u8"это не последовательный порт и не терминал");
inline constexpr auto SReasonDirectory = Cp1251(u8"это каталог");
inline constexpr auto SReasonAccess = Cp1251(u8"нет прав доступа");
inline constexpr auto SReasonBusy = Cp1251(u8"устройство занято другой программой");
// An open device that went away: unplugged, or its other end closed.
inline constexpr auto SDeviceGone = Cp1251(u8"Устройство %s отключено.");
inline constexpr std::string_view SAsyncPtrNil = "Bug: AsyncPtr = nil";
}  // namespace CommConst

// The driver queue sizes and the overall budgets of Read and Write.
class OSTREL_API TkxCommBuffer : public TObject {
  OSTREL_CLASS(TkxCommBuffer, TObject)
 public:
  explicit TkxCommBuffer(TkxCommPort* owner) : fOwner(owner) {}

  Integer InputSize() const noexcept { return fInputSize; }
  Integer OutputSize() const noexcept { return fOutputSize; }
  // An odd positive size is lowered by one (the driver queues are even).
  void SetInputSize(Integer value);
  void SetOutputSize(Integer value);
  // Milliseconds that Read / Write may take when called with a negative time-out.
  Cardinal ReadTimeout = 0;
  Cardinal WriteTimeout = 0;

 private:
  void SetSize(Integer& field, Integer value);

  TkxCommPort* fOwner;
  Integer fInputSize = 2048;
  Integer fOutputSize = 2048;
};

// The five driver time-outs in milliseconds; a negative value means the largest one.
class OSTREL_API TkxCommTimeouts : public TObject {
  OSTREL_CLASS(TkxCommTimeouts, TObject)
 public:
  explicit TkxCommTimeouts(TkxCommPort* owner) : fOwner(owner) {}

  Integer ReadInterval() const noexcept { return fValues[0]; }
  Integer ReadTotalMultiplier() const noexcept { return fValues[1]; }
  Integer ReadTotalConstant() const noexcept { return fValues[2]; }
  Integer WriteTotalMultiplier() const noexcept { return fValues[3]; }
  Integer WriteTotalConstant() const noexcept { return fValues[4]; }
  void SetReadInterval(Integer value) { Set(0, value); }
  void SetReadTotalM(Integer value) { Set(1, value); }
  void SetReadTotalC(Integer value) { Set(2, value); }
  void SetWriteTotalM(Integer value) { Set(3, value); }
  void SetWriteTotalC(Integer value) { Set(4, value); }

 private:
  void Set(int index, Integer value);

  TkxCommPort* fOwner;
  Integer fValues[5] = {-1, 0, 0, 100, 1000};
};

using TkxCommEventNotify = std::function<void(TObject* sender, TkxCommEvents events)>;
using TkxCommReceiveNotify = std::function<void(TObject* sender, const void* data, Integer size)>;

// The message that carries line events to the hidden window.
inline constexpr Cardinal CM_COMMEVENT = 1347;  // WM_USER + 0x143

// A serial port component: opens the port with its line settings, reads and writes, and
// reports received data and line events from its worker thread.
class OSTREL_API TkxCommPort : public TComponent {
  OSTREL_CLASS(TkxCommPort, TComponent)
 public:
  explicit TkxCommPort(TComponent* owner = nullptr);
  ~TkxCommPort() override;

  // Opens the device (see the class notes); when it cannot, raises "Порт COM%d занят или
  // недоступен." for a port number, or, for a device path, SDeviceUnavailable naming the path
  // and the reason, and stays closed. While the component is loading or designed it only records
  // Active; Loaded opens it.
  void Open();
  // Discards pending transfers, stops the worker, closes the device. Harmless when closed;
  // allowed inside the port's own handlers (also on the worker, with smNone) and while another
  // thread closes. Inside a handler the worker cannot be waited for: it is left to finish and
  // frees the device when it ends, and the next Open, Close or destructor outside a handler
  // waits for it (so the device cannot be opened again from inside that handler).
  void Close();
  bool Active() const noexcept { return fActive; }
  void SetActive(bool value);
  bool HandleAllocated() const noexcept { return fDevice != nullptr; }
  // True once the open device has gone away (unplugged, or the other end of a pseudo-terminal
  // closed). The worker notices it within a moment, even with no transfer under way, and
  // reports evError once (to OnEvent, when evError is in Events); Read and Write on it raise
  // EOSError saying that the device went away. Only Close helps then.
  bool DeviceLost() const;
  // Raises the already-open error when the device is open.
  void CheckClosed();
  void Loaded() override;

  TkxCommPortNumber PortNumber() const noexcept { return fPortNumber; }
  // Raises EInvalidArgument outside 1 to 16.
  void SetPortNumber(TkxCommPortNumber value);
  // A device path to open instead of the port number's (empty: the port number's). Refused
  // on an open port as a port number change is.
  const AnsiString& DevicePath() const noexcept { return fDevicePath; }
  void SetDevicePath(std::string_view path);
  TkxCommPortBaudRate BaudRate() const noexcept { return fBaudRate; }
  void SetBaudRate(TkxCommPortBaudRate value);
  TkxCommPortDataBits DataBits() const noexcept { return fDataBits; }
  // Raises EInvalidArgument outside 5 to 8.
  void SetDataBits(TkxCommPortDataBits value);
  TkxCommPortParity Parity() const noexcept { return fParity; }
  void SetParity(TkxCommPortParity value);
  TkxCommPortStopBits StopBits() const noexcept { return fStopBits; }
  void SetStopBits(TkxCommPortStopBits value);
  TkxCommPortFlowControl FlowControl() const noexcept { return fFlowControl; }
  void SetFlowControl(TkxCommPortFlowControl value);
  TkxCommBuffer& Buffer() noexcept { return *fBuffer; }
  TkxCommTimeouts& Timeouts() noexcept { return *fTimeouts; }
  TkxCommEvents Events() const noexcept { return fEvents; }
  void SetEvents(TkxCommEvents value);
  TkxCommSyncMethod SyncMethod() const noexcept { return fSyncMethod; }
  void SetSyncMethod(TkxCommSyncMethod value);

  // Called, as the sync method says, for each batch of line events that are in Events.
  TkxCommEventNotify OnEvent;
  // Called with the bytes received; Size is the count asked for.
  TkxCommReceiveNotify OnReceiveData;

  void BuildDCB(TDCB& dcb);
  // Takes BaudRate, ByteSize, Parity and StopBits through the setters.
  void AssignDCB(const TDCB& dcb);
  void UpdateDCB();
  void UpdateBuffer();
  void UpdateTimeouts();
  void ClearBuffers();
  // Bytes waiting in the driver's queues; EOSError when the device refuses.
  Integer InputCount();
  Integer OutputCount();

  // Transfers in chunks as the driver time-outs allow until Count bytes moved or the budget
  // (Timeout ms, or Buffer().ReadTimeout / WriteTimeout when negative) is spent; a budget of
  // 0 makes one transfer. Returns the bytes moved. Between chunks the main thread runs its
  // queued work.
  Integer Read(void* buffer, Integer count, Integer timeout);
  Integer Write(const void* buffer, Integer count, Integer timeout);
  Integer ReadStr(AnsiString& s, Integer count, Integer timeout);
  Integer WriteStr(std::string_view s, Integer timeout);

  // The "Comm.DCB" value under key below rootKey (a TRegistry root such as
  // HKEY_CURRENT_USER). Save returns false when the key cannot be opened; Load returns
  // whether a non-empty value was found (even when its text could not be parsed).
  bool RegLoadParams(TRootKey rootKey, std::string_view key, bool loadPortNumber);
  bool RegSaveParams(TRootKey rootKey, std::string_view key);
  // What RegLoadParams does with the value's text: "COM<n>:" or "COM<n> " first sets the port
  // number (when loadPortNumber; a non-number raises EConvertError), the mode string after it
  // the line settings (text that does not parse leaves them). False for empty text.
  bool LoadParamsText(std::string_view value, bool loadPortNumber);
  // The value RegSaveParams writes: "COM%d: BAUD=%d PARITY=%s DATA=%d STOP=%s".
  AnsiString ParamsText() const;

  // Runs OnEvent / DoReceive for a batch of events.
  virtual void HandleEvents(TkxCommEvents events);
  // The hidden window's procedure: CM_COMMEVENT -> HandleEvents.
  virtual void WndProc(TMessage& message);

 protected:
  virtual void CreateHandle();
  virtual void DestroyHandle();
  void DoReceive();
  virtual void ReceiveData(const void* data, Integer size);

 private:
  // Sets one line setting; an open port takes the changed device block at once.
  template <typename T>
  void SetLineSetting(T& field, T value) {
    if (value == field) return;
    field = value;
    UpdateDCB();
  }

  friend class TkxCommEventThread;
  friend class TkxCommBuffer;
  friend class TkxCommTimeouts;
  using TTransfer = Integer (TCommDevice::*)(void*, Integer);
  Integer Transfer(TTransfer op, void* buffer, Integer count, Integer timeout, Cardinal budget);
  // Runs the handler of a batch of events; Close inside it does not wait for the worker.
  void DispatchEvents(Cardinal mask);
  // Waits for the workers stopped by a Close inside a handler; does nothing inside a handler.
  void FinishStopped();

  std::shared_ptr<TCommDevice> fDevice;
  TCommWindow* fWindow = nullptr;  // owned by the worker, which sends to it
  std::unique_ptr<TkxCommEventThread> fThread;
  // Guards fThread, fStopped and fDevice against a Close on the worker (smNone) while
  // another thread closes, opens or frees the port.
  std::mutex fLock;
  std::vector<std::unique_ptr<TkxCommEventThread>> fStopped;
  std::atomic<std::thread::id> fHandlerThread{};
  std::atomic<bool> fActive{false};  // a handler may close on the worker
  // The last receive stopped at a full batch: more may be queued with no new event to say so.
  std::atomic<bool> fReceiveFull{false};
  std::atomic<bool> fReceiving{false};  // fReceiveBuffer is in use
  std::unique_ptr<char[]> fReceiveBuffer;
  TkxCommPortNumber fPortNumber = 2;
  AnsiString fDevicePath;
  TkxCommPortBaudRate fBaudRate = 9600;
  TkxCommPortDataBits fDataBits = 8;
  TkxCommPortParity fParity = ptNone;
  TkxCommPortStopBits fStopBits = sb1;
  TkxCommPortFlowControl fFlowControl = fcNone;
  std::unique_ptr<TkxCommBuffer> fBuffer;
  std::unique_ptr<TkxCommTimeouts> fTimeouts;
  TkxCommEvents fEvents = TkxCommEvents::All();
  TkxCommSyncMethod fSyncMethod = smThreadSync;
};

}  // namespace ostrel
