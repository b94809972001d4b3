// The serial device on Windows: the system's COM driver with overlapped I/O, its own time-outs
// and its own line events (WaitCommEvent).
#ifdef _WIN32

#include <ostrel/devices/CommDevice.h>

#include <ostrel/rtl/Exceptions.h>

#include <cstring>

#include <windows.h>

namespace ostrel {

namespace {

static_assert(sizeof(::DCB) == sizeof(TDCB), "TDCB must be the system's DCB");

void Check(BOOL ok) {
  if (!ok) RaiseLastOSError();
}

// A manual-reset event, closed with its owner.
class TEvent {
 public:
  explicit TEvent(bool signalled) : fHandle(::CreateEventA(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr)) {
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
    COMMTIMEOUTS c{t.ReadInterval, t.ReadTotalMultiplier, t.ReadTotalConstant, t.WriteTotalMultiplier,
                   t.WriteTotalConstant};
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
    Check(::ClearCommError(fHandle, &errors, &stat));
    input = static_cast<Integer>(stat.cbInQue);
    output = static_cast<Integer>(stat.cbOutQue);
  }

  Integer Read(void* buffer, Integer count) override { return Transfer(false, buffer, count); }
  Integer Write(void* buffer, Integer count) override { return Transfer(true, buffer, count); }

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
    if (!ok && ::GetLastError() != ERROR_IO_PENDING) RaiseLastOSError();
    Check(::GetOverlappedResult(fHandle, &ov, &moved, TRUE));
    return static_cast<Integer>(moved);
  }

  HANDLE fHandle;
};

class TWinWaiter final : public TCommWaiter {
 public:
  TWinWaiter(TWinDevice& device, Cardinal mask) : fDevice(device), fStop(false), fOverlapped(true) {
    Check(::SetCommMask(device.Handle(), mask));
  }

  bool Wait(Cardinal& events) override {
    for (;;) {
      OVERLAPPED ov{};
      ov.hEvent = fOverlapped.Get();
      DWORD mask = 0;
      if (!::WaitCommEvent(fDevice.Handle(), &mask, &ov) && ::GetLastError() != ERROR_IO_PENDING)
        RaiseLastOSError();
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
      if (::GetOverlappedResult(fDevice.Handle(), &ov, &ignored, FALSE) && mask != 0) {
        events = mask;
        return true;
      }
    }
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

}  // namespace

std::shared_ptr<TCommDevice> TCommDevice::Open(const AnsiString& path) {
  HANDLE h = ::CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED, nullptr);
  if (h == INVALID_HANDLE_VALUE) return nullptr;
  return std::make_shared<TWinDevice>(h);
}

}  // namespace ostrel

#endif
