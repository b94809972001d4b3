// The operating-system side of a serial port, one implementation per platform
// (CommDeviceWin.cpp, CommDevicePosix.cpp). TkxCommPort holds the device; its worker thread
// holds it too, so that the device outlives a worker that is left to finish on its own.
#pragma once

#include <ostrel/devices/Kxcommport.h>

#include <memory>

namespace ostrel {

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
  virtual bool Wait(Cardinal& events) = 0;
  virtual void Stop() = 0;
  // Called by the worker as it leaves: clears the device's event mask and its queues.
  virtual void Leave() = 0;
};

// An open device. Failures of the calls raise EOSError.
class TCommDevice {
 public:
  // Opens the path for exclusive use; null (with the system's error left as the last one)
  // when it cannot be opened.
  static std::shared_ptr<TCommDevice> Open(const AnsiString& path);
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
  // Sets the device's event mask and gives the waiter.
  virtual std::unique_ptr<TCommWaiter> CreateWaiter(Cardinal mask) = 0;
};

}  // namespace ostrel
