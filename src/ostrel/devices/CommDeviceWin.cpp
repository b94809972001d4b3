// The serial device on Windows: the system's COM driver with overlapped I/O, its own time-outs
// and its own line events (WaitCommEvent), the system's mode-string parser, and the hidden
// message-only window of smWindowSync.
#ifdef _WIN32

#include <ostrel/devices/detail/CommDevice.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Threads.h>

#include <atomic>
#include <cstring>

#include <windows.h>

namespace ostrel {

namespace {

static_assert(sizeof(::DCB) == sizeof(TDCB), "TDCB must be the system's DCB");

void Check(BOOL ok) {
  if (!ok) RaiseLastOSError();
}

// What the driver of a removed device (a USB adapter pulled out) answers on its open handle.
// Not ERROR_OPERATION_ABORTED: that is also the answer to the purge of a close.
bool IsGoneError(DWORD e) {
  return e == ERROR_ACCESS_DENIED || e == ERROR_BAD_COMMAND || e == ERROR_DEVICE_REMOVED ||
         e == ERROR_GEN_FAILURE || e == ERROR_DEV_NOT_EXIST || e == ERROR_FILE_NOT_FOUND;
}

// A manual-reset event, closed with its owner.
class TEvent {
 public:
  explicit TEvent(bool signalled)
      : fHandle(::CreateEventA(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr)) {
    if (!fHandle) RaiseLastOSError();
  }
  ~TEvent() { ::CloseHandle(fHandle); }
  TEvent(const TEvent&) = delete;
  TEvent& operator=(const TEvent&) = delete;
  HANDLE Get() const noexcept { return fHandle; }

 private:
  HANDLE fHandle;
};

class TWinDevice final : public TCommDevice {
 public:
  explicit TWinDevice(HANDLE handle) : fHandle(handle) {}
  ~TWinDevice() override { ::CloseHandle(fHandle); }

  void GetState(TDCB& dcb) override {
    ::DCB d;
    std::memcpy(&d, &dcb, sizeof d);
    d.DCBlength = sizeof d;
    Check(::GetCommState(fHandle, &d));
    std::memcpy(static_cast<void*>(&dcb), &d, sizeof d);
  }

  void SetState(const TDCB& dcb) override {
    ::DCB d;
    std::memcpy(&d, &dcb, sizeof d);
    Check(::SetCommState(fHandle, &d));
  }

  void Setup(Integer inputSize, Integer outputSize) override {
    Check(::SetupComm(fHandle, static_cast<DWORD>(inputSize), static_cast<DWORD>(outputSize)));
  }

  void SetTimeouts(const TCommTimeoutValues& t) override {
    COMMTIMEOUTS c{t.ReadInterval, t.ReadTotalMultiplier, t.ReadTotalConstant,
                   t.WriteTotalMultiplier, t.WriteTotalConstant};
    // "What is queued, or else the first bytes within the constant" is done by Read itself:
    // drivers differ in how they take these values (Wine's read never returns), while the
    // driver's own "what is queued, at once" is the same everywhere.
    constexpr DWORD kLargest = MAXDWORD;
    fFirstWithin = t.ReadInterval == kLargest && t.ReadTotalMultiplier == kLargest &&
                           t.ReadTotalConstant != 0 && t.ReadTotalConstant != kLargest
                       ? t.ReadTotalConstant
                       : 0;
    if (fFirstWithin != 0) c.ReadTotalTimeoutMultiplier = c.ReadTotalTimeoutConstant = 0;
    Check(::SetCommTimeouts(fHandle, &c));
  }

  bool Purge(Cardinal flags) override { return ::PurgeComm(fHandle, flags) != 0; }

  // The driver's own time-outs bound each transfer; between transfers there is nothing to
  // wait on without taking the line events from the worker, so a short sleep stands in.
  bool WaitReady(bool, int ms) override {
    ::Sleep(static_cast<DWORD>(ms > 0 ? ms : 0));
    return true;
  }

  void Queues(Integer& input, Integer& output) override {
    DWORD errors = 0;
    COMSTAT stat{};
    // A removed device is lost here as in a transfer (the receiver of `serial` asks first).
    if (!::ClearCommError(fHandle, &errors, &stat)) Fail(false);
    input = static_cast<Integer>(stat.cbInQue);
    output = static_cast<Integer>(stat.cbOutQue);
  }

  Integer Read(void* buffer, Integer count) override {
    if (fFirstWithin == 0 || fWaiting.load(std::memory_order_acquire))
      return Transfer(false, buffer, count);
    // What is queued; else the line's "character received" event is waited for, at most
    // fFirstWithin ms, and what is queued then. (While the port's worker waits for line
    // events the mask is its own, and the driver takes the time-outs as they are.)
    if (Integer got = ReadQueued(buffer, count); got > 0) return got;
    if (!::SetCommMask(fHandle, EV_RXCHAR)) Fail(false);
    struct Unmask {
      HANDLE handle;
      ~Unmask() { ::SetCommMask(handle, 0); }
    } unmask{fHandle};
    // A byte that came between the look above and the mask brings no event: look again.
    if (Integer got = ReadQueued(buffer, count); got > 0) return got;
    TEvent arrived(false);
    OVERLAPPED ov{};
    ov.hEvent = arrived.Get();
    DWORD mask = 0;
    if (!::WaitCommEvent(fHandle, &mask, &ov)) {
      if (::GetLastError() != ERROR_IO_PENDING) Fail(false);
      if (::WaitForSingleObject(arrived.Get(), fFirstWithin) != WAIT_OBJECT_0)
        ::SetCommMask(fHandle, 0);  // ends the pending wait, which must not outlive ov
      DWORD ignored = 0;
      if (!::GetOverlappedResult(fHandle, &ov, &ignored, TRUE) && IsGoneError(::GetLastError()))
        Fail(false);
    }
    return ReadQueued(buffer, count);
  }
  Integer Write(void* buffer, Integer count) override { return Transfer(true, buffer, count); }
  Integer ReadQueued(void* buffer, Integer count) override {
    Integer input = 0, output = 0;
    Queues(input, output);
    return input > 0 ? Transfer(false, buffer, std::min(input, count)) : 0;
  }

  std::unique_ptr<TCommWaiter> CreateWaiter(Cardinal mask) override;

  HANDLE Handle() const noexcept { return fHandle; }

 private:
  // One overlapped transfer, waited for to its end.
  Integer Transfer(bool write, void* buffer, Integer count) {
    TEvent done(false);
    OVERLAPPED ov{};
    ov.hEvent = done.Get();
    DWORD moved = 0;
    BOOL ok = write ? ::WriteFile(fHandle, buffer, static_cast<DWORD>(count), nullptr, &ov)
                    : ::ReadFile(fHandle, buffer, static_cast<DWORD>(count), nullptr, &ov);
    if (!ok && ::GetLastError() != ERROR_IO_PENDING) Fail(write);
    if (!::GetOverlappedResult(fHandle, &ov, &moved, TRUE)) Fail(write);
    return static_cast<Integer>(moved);
  }

  [[noreturn]] void Fail(bool write) {
    DWORD e = ::GetLastError();
    if (!IsGoneError(e)) RaiseLastOSError(e);
    MarkLost();
    throw EOSError(
        Format("%s: the device went away (%s)", write ? "Write" : "Read", SysErrorMessage(e)), e);
  }

  HANDLE fHandle;
  std::atomic<bool> fLost{false};
  DWORD fFirstWithin = 0;  // not 0: Read waits so long for the first bytes (see SetTimeouts)

 public:
  // Whether the port's worker holds the line events (a waiter is alive).
  std::atomic<bool> fWaiting{false};
  bool Lost() const noexcept override { return fLost.load(std::memory_order_acquire); }
  void MarkLost() noexcept { fLost.store(true, std::memory_order_release); }
};

class TWinWaiter final : public TCommWaiter {
 public:
  TWinWaiter(TWinDevice& device, Cardinal mask) : fDevice(device), fStop(false), fOverlapped(true) {
    device.fWaiting.store(true, std::memory_order_release);
    Check(::SetCommMask(device.Handle(), mask));
  }
  ~TWinWaiter() override { fDevice.fWaiting.store(false, std::memory_order_release); }

  bool Wait(Cardinal& events) override {
    for (;;) {
      OVERLAPPED ov{};
      ov.hEvent = fOverlapped.Get();
      DWORD mask = 0;
      if (fDevice.Lost()) {
        // Reported once; from here on only the stop is waited for.
        ::WaitForSingleObject(fStop.Get(), INFINITE);
        return false;
      }
      if (!::WaitCommEvent(fDevice.Handle(), &mask, &ov) && ::GetLastError() != ERROR_IO_PENDING) {
        if (Gone(events)) return true;
        RaiseLastOSError();
      }
      HANDLE handles[2] = {fStop.Get(), fOverlapped.Get()};
      DWORD which = ::WaitForMultipleObjects(2, handles, FALSE, INFINITE);
      if (which != WAIT_OBJECT_0 + 1) {
        // Stopped (or the wait itself failed): the pending WaitCommEvent must not outlive the
        // OVERLAPPED record on this stack.
        ::SetCommMask(fDevice.Handle(), 0);
        DWORD ignored = 0;
        ::GetOverlappedResult(fDevice.Handle(), &ov, &ignored, TRUE);
        return false;
      }
      DWORD ignored = 0;
      if (::GetOverlappedResult(fDevice.Handle(), &ov, &ignored, FALSE)) {
        if (mask != 0) {
          events = mask;
          return true;
        }
      } else if (Gone(events)) {
        return true;
      }
    }
  }

  // After a failed wait: a removed device is marked lost and reported as a line error.
  bool Gone(Cardinal& events) {
    if (!IsGoneError(::GetLastError())) return false;
    fDevice.MarkLost();
    events = CommMask::Err;
    return true;
  }

  void Stop() override { ::SetEvent(fStop.Get()); }

  void Leave() override {
    ::SetCommMask(fDevice.Handle(), 0);
    ::PurgeComm(fDevice.Handle(), PURGE_TXCLEAR | PURGE_RXCLEAR);
  }

 private:
  TWinDevice& fDevice;
  TEvent fStop;
  TEvent fOverlapped;
};

std::unique_ptr<TCommWaiter> TWinDevice::CreateWaiter(Cardinal mask) {
  return std::make_unique<TWinWaiter>(*this, mask);
}

// The message-only window of smWindowSync.
class TWinCommWindow final : public TCommWindow {
 public:
  explicit TWinCommWindow(TkxCommPort* port) : fPort(port) {
    static const ATOM windowClass = [] {
      WNDCLASSA wc{};
      wc.lpfnWndProc = &TWinCommWindow::Proc;
      wc.hInstance = ::GetModuleHandleA(nullptr);
      wc.lpszClassName = "TkxCommPortWindow";
      return ::RegisterClassA(&wc);
    }();
    fHandle =
        ::CreateWindowExA(0, reinterpret_cast<LPCSTR>(static_cast<ULONG_PTR>(windowClass)), "", 0,
                          0, 0, 0, 0, HWND_MESSAGE, nullptr, ::GetModuleHandleA(nullptr), nullptr);
    if (!fHandle) RaiseLastOSError();
    ::SetWindowLongPtrA(fHandle, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }
  ~TWinCommWindow() override { ::DestroyWindow(fHandle); }

  void Detach() noexcept override { fPort.store(nullptr); }
  void Send(Cardinal mask) override { ::SendMessageA(fHandle, CM_COMMEVENT, mask, 0); }
  void Default(TMessage& m) override {
    m.Result = ::DefWindowProcA(fHandle, m.Msg, static_cast<WPARAM>(m.WParam),
                                static_cast<LPARAM>(m.LParam));
  }
  // A worker inside SendMessageA waits for this thread to take sent messages.
  void WaitForSender(TThread& worker) override {
    while (!worker.Finished()) {
      ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_SENDMESSAGE);
      MSG msg;
      ::PeekMessageA(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
    }
  }

 private:
  static LRESULT CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wParam, LPARAM lParam) {
    auto* self = reinterpret_cast<TWinCommWindow*>(::GetWindowLongPtrA(hwnd, GWLP_USERDATA));
    TkxCommPort* port = self ? self->fPort.load() : nullptr;
    if (!port) return ::DefWindowProcA(hwnd, msg, wParam, lParam);
    TMessage m{msg, static_cast<std::uintptr_t>(wParam), static_cast<std::intptr_t>(lParam), 0};
    port->WndProc(m);
    return static_cast<LRESULT>(m.Result);
  }

  std::atomic<TkxCommPort*> fPort;
  HWND fHandle = nullptr;
};

AnsiString OpenFailure(DWORD e) {
  switch (e) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_BAD_NETPATH:
    case ERROR_INVALID_NAME:
    case ERROR_DEV_NOT_EXIST: return CommConst::SReasonNoDevice.Str();
    // The COM driver answers a second opener with access denied, so this is the likely case.
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION: return CommConst::SReasonBusy.Str();
    default: return SysErrorMessage(e);
  }
}

}  // namespace

std::shared_ptr<TCommDevice> TCommDevice::Open(const AnsiString& path, AnsiString& reason) {
  HANDLE h = ::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    reason = OpenFailure(::GetLastError());
    return nullptr;
  }
  // A file or a pipe opens as well; only a communications device has a device block.
  ::DCB d{};
  d.DCBlength = sizeof d;
  if (!::GetCommState(h, &d)) {
    ::CloseHandle(h);
    reason = CommConst::SReasonNotSerial.Str();
    return nullptr;
  }
  return std::make_shared<TWinDevice>(h);
}

AnsiString TCommDevice::DefaultPath(Integer portNumber) {
  return Format("\\\\.\\COM%d", portNumber);
}

void TCommDevice::RaiseNotOpen() { RaiseLastOSError(ERROR_INVALID_HANDLE); }

std::unique_ptr<TCommWindow> TCommWindow::Create(TkxCommPort* port) {
  return std::make_unique<TWinCommWindow>(port);
}

// The mode-string syntax is the system's own here.
bool CommModeToDCB(std::string_view mode, TDCB& dcb) {
  ::DCB d;
  std::memcpy(&d, &dcb, sizeof d);
  AnsiString text(mode);
  if (!::BuildCommDCBA(text.c_str(), &d)) return false;
  std::memcpy(static_cast<void*>(&dcb), &d, sizeof d);
  return true;
}

}  // namespace ostrel

#endif
