// The operating-system side of a serial port, one implementation per platform
// (CommDeviceWin.cpp, CommDevicePosix.cpp): the device, the worker's wait for line events and
// the hidden window of smWindowSync. TkxCommPort (CommPort.cpp) holds the device; its worker
// thread holds it too, so that the device outlives a worker that is left to finish on its own.
// Not installed: users reach the port through Kxcommport.h only.
#pragma once

#include <ostrel/devices/Kxcommport.h>

#include <memory>

namespace ostrel {

class TThread;

// The five driver time-outs as the system takes them (0xFFFFFFFF for "largest").
struct TCommTimeoutValues {
  Cardinal ReadInterval, ReadTotalMultiplier, ReadTotalConstant, WriteTotalMultiplier,
      WriteTotalConstant;
};

// PurgeComm flags.
namespace CommPurge {
inline constexpr Cardinal TxAbort = 0x0001, RxAbort = 0x0002, TxClear = 0x0004, RxClear = 0x0008;
}

// Waits for line events on the worker thread. Stop may be called from any thread and makes
// the current or next Wait return false.
class TCommWaiter {
 public:
  virtual ~TCommWaiter() = default;
  // Blocks (never spinning) until events of the mask occur or Stop is called; false on stop.
  // A device that goes away is reported once, as CommMask::Err, and marks the device lost.
  virtual bool Wait(Cardinal& events) = 0;
  virtual void Stop() = 0;
  // Called by the worker as it leaves: clears the device's event mask and its queues.
  virtual void Leave() = 0;
};

// An open device. Failures of the calls raise EOSError; a transfer on a device that has gone
// away (unplugged, its other end hung up) says so in the message and marks it lost.
class TCommDevice {
 public:
  // Opens the path for exclusive use; null when it cannot be opened, with the reason in words
  // a user understands (no such device, not a serial device, permission denied, in use).
  static std::shared_ptr<TCommDevice> Open(const AnsiString& path, AnsiString& reason);
  // The path that port number n opens when none has been set for it.
  static AnsiString DefaultPath(Integer portNumber);
  // Raises the system's error for an operation on a device that is not open.
  [[noreturn]] static void RaiseNotOpen();
  virtual ~TCommDevice() = default;

  virtual void GetState(TDCB& dcb) = 0;
  virtual void SetState(const TDCB& dcb) = 0;
  virtual void Setup(Integer inputSize, Integer outputSize) = 0;
  virtual void SetTimeouts(const TCommTimeoutValues& timeouts) = 0;
  // False when the device refuses (which no caller treats as an error).
  virtual bool Purge(Cardinal flags) = 0;
  // Waits up to ms for the device to take or give bytes (false when it did not).
  virtual bool WaitReady(bool write, int ms) = 0;
  virtual void Queues(Integer& input, Integer& output) = 0;
  // One transfer, ending as the time-outs say.
  virtual Integer Read(void* buffer, Integer count) = 0;
  virtual Integer Write(void* buffer, Integer count) = 0;
  // Up to count of the bytes already queued, at once whatever the time-outs; 0 when none are.
  virtual Integer ReadQueued(void* buffer, Integer count) = 0;
  // Sets the device's event mask and gives the waiter.
  virtual std::unique_ptr<TCommWaiter> CreateWaiter(Cardinal mask) = 0;
  // True once the device has been seen to go away; it never comes back on this handle.
  virtual bool Lost() const noexcept = 0;
};

// The hidden window of smWindowSync: CM_COMMEVENT sent from the worker reaches the port's
// WndProc on the main thread. Windows: a message-only window (the main thread runs a message
// loop, as any windowed program does); elsewhere a TWinControl reached through the main
// thread's queue.
class TCommWindow {
 public:
  static std::unique_ptr<TCommWindow> Create(TkxCommPort* port);
  virtual ~TCommWindow() = default;
  // The port no longer takes messages; what is under way finds no port.
  virtual void Detach() noexcept = 0;
  // On the worker: hands the events over and returns when they have been handled.
  virtual void Send(Cardinal mask) = 0;
  // The default handling of a message that is not the port's.
  virtual void Default(TMessage& message) = 0;
  // Waits for the worker that sends to this window to end, serving what it sends meanwhile.
  virtual void WaitForSender(TThread& worker) = 0;
};

}  // namespace ostrel
