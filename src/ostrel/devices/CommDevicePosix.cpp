// The serial device on Linux: a terminal driven through the kernel's termios2 interface (which
// takes any rate, so that 14400, 56000, 128000 and 256000 are set as they are), non-blocking
// reads and writes that wait in poll as the Windows driver time-outs would, a worker-side
// waiter built on epoll, and the hidden window as a control of the main thread's queue.
#if !defined(_WIN32)

#include <ostrel/devices/detail/CommDevice.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Threads.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <mutex>

// termios2 and BOTHER; <termios.h> is not included, since it declares the other struct termios.
#include <asm/termbits.h>
#include <fcntl.h>
#include <linux/serial.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ostrel {

namespace {

constexpr Cardinal Largest = 0xFFFFFFFFu;
// Modem lines, breaks and line errors: what the interrupt counters report.
constexpr Cardinal LineEvents = CommMask::Cts | CommMask::Dsr | CommMask::Rlsd | CommMask::Break |
                                CommMask::Err | CommMask::Ring;
// How often the counters are sampled, and how often a write still in the output queue is
// looked at for transmit-empty.
constexpr int SampleMs = 20;
constexpr int DrainMs = 5;

int Ioctl(int fd, unsigned long request, void* arg) {
  int rc;
  do rc = ::ioctl(fd, request, arg);
  while (rc < 0 && errno == EINTR);
  return rc;
}

void Check(int rc) {
  if (rc < 0) RaiseLastOSError();
}

using Clock = std::chrono::steady_clock;

// Milliseconds left until the deadline, for poll: -1 without a deadline, never negative.
int MsLeft(bool limited, Clock::time_point deadline) {
  if (!limited) return -1;
  auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  if (left <= 0) return 0;
  return static_cast<int>(std::min<long long>(left, INT_MAX));
}

class TPosixDevice final : public TCommDevice {
 public:
  TPosixDevice(int fd, const termios2& original) : fFd(fd), fOriginal(original) {
    fKick = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fKick < 0) {
      int e = errno;
      ::close(fFd);
      errno = e;
      RaiseLastOSError();
    }
  }

  ~TPosixDevice() override {
    Ioctl(fFd, TCSETS2, &fOriginal);  // leave the terminal as it was found
    ::close(fKick);
    ::close(fFd);
  }

  void GetState(TDCB& dcb) override {
    termios2 t{};
    Check(Ioctl(fFd, TCGETS2, &t));
    dcb.BaudRate = t.c_ospeed;
    switch (t.c_cflag & CSIZE) {
      case CS5: dcb.ByteSize = 5; break;
      case CS6: dcb.ByteSize = 6; break;
      case CS7: dcb.ByteSize = 7; break;
      default: dcb.ByteSize = 8;
    }
    if (!(t.c_cflag & PARENB))
      dcb.Parity = ptNone;
    else if (t.c_cflag & CMSPAR)
      dcb.Parity = (t.c_cflag & PARODD) ? ptMark : ptSpace;
    else
      dcb.Parity = (t.c_cflag & PARODD) ? ptOdd : ptEven;
    dcb.StopBits = (t.c_cflag & CSTOPB) ? sb2 : sb1;
    Cardinal flags = DcbFlag::Binary;
    if (t.c_iflag & INPCK) flags |= DcbFlag::Parity;
    if (t.c_cflag & CRTSCTS) flags |= DcbFlag::OutxCtsFlow | DcbFlag::RtsHandshake;
    if (t.c_iflag & IXON) flags |= DcbFlag::OutX;
    if (t.c_iflag & IXOFF) flags |= DcbFlag::InX;
    int lines = 0;
    if (Ioctl(fFd, TIOCMGET, &lines) == 0) {
      if (lines & TIOCM_DTR) flags |= DcbFlag::DtrEnable;
      if ((lines & TIOCM_RTS) && !(t.c_cflag & CRTSCTS)) flags |= DcbFlag::RtsEnable;
    }
    dcb.Flags = flags;
    dcb.XonLim = fXonLim;
    dcb.XoffLim = fXoffLim;
    dcb.XonChar = static_cast<char>(t.c_cc[VSTART]);
    dcb.XoffChar = static_cast<char>(t.c_cc[VSTOP]);
  }

  void SetState(const TDCB& dcb) override {
    if (dcb.ByteSize < 5 || dcb.ByteSize > 8 || dcb.Parity > ptSpace || dcb.StopBits > sb2 ||
        dcb.BaudRate == 0) {
      errno = EINVAL;
      RaiseLastOSError();
    }
    termios2 t{};
    Check(Ioctl(fFd, TCGETS2, &t));
    // Raw bytes both ways: no line editing, echo, signals or character translation.
    t.c_iflag &=
        ~(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IXON | IXOFF | IXANY | INPCK);
    t.c_oflag &= ~OPOST;
    t.c_lflag &= ~(ECHO | ECHONL | ICANON | ISIG | IEXTEN);
    t.c_cflag &=
        ~(CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS | CBAUD | (CBAUD << IBSHIFT));
    static constexpr tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    t.c_cflag |= CREAD | CLOCAL | BOTHER | (BOTHER << IBSHIFT) | sizes[dcb.ByteSize - 5];
    t.c_ispeed = t.c_ospeed = dcb.BaudRate;
    switch (dcb.Parity) {
      case ptOdd: t.c_cflag |= PARENB | PARODD; break;
      case ptEven: t.c_cflag |= PARENB; break;
      case ptMark: t.c_cflag |= PARENB | CMSPAR | PARODD; break;
      case ptSpace: t.c_cflag |= PARENB | CMSPAR; break;
      default: break;
    }
    if (dcb.Flags & DcbFlag::Parity) t.c_iflag |= INPCK;
    // One and a half stop bits have no termios form; two is the nearest.
    if (dcb.StopBits != sb1) t.c_cflag |= CSTOPB;
    bool rtsHandshake = (dcb.Flags & DcbFlag::RtsControlMask) == DcbFlag::RtsHandshake;
    if ((dcb.Flags & DcbFlag::OutxCtsFlow) || rtsHandshake) t.c_cflag |= CRTSCTS;
    if (dcb.Flags & DcbFlag::OutX) t.c_iflag |= IXON;
    if (dcb.Flags & DcbFlag::InX) t.c_iflag |= IXOFF;
    t.c_cc[VSTART] = dcb.XonChar ? static_cast<cc_t>(dcb.XonChar) : 0x11;
    t.c_cc[VSTOP] = dcb.XoffChar ? static_cast<cc_t>(dcb.XoffChar) : 0x13;
    t.c_cc[VMIN] = 0;
    t.c_cc[VTIME] = 0;
    Check(Ioctl(fFd, TCSETS2, &t));
    fXonLim = dcb.XonLim;
    fXoffLim = dcb.XoffLim;
    // DTR and RTS as the control fields say; devices without modem lines refuse, which is
    // no failure of the settings.
    int dtr = TIOCM_DTR, rts = TIOCM_RTS;
    Cardinal dtrControl = dcb.Flags & DcbFlag::DtrControlMask;
    if (dtrControl == 0) Ioctl(fFd, TIOCMBIC, &dtr);
    if (dtrControl == DcbFlag::DtrEnable) Ioctl(fFd, TIOCMBIS, &dtr);
    Cardinal rtsControl = dcb.Flags & DcbFlag::RtsControlMask;
    if (rtsControl == 0) Ioctl(fFd, TIOCMBIC, &rts);
    if (rtsControl == DcbFlag::RtsEnable) Ioctl(fFd, TIOCMBIS, &rts);
  }

  // The kernel's queues have fixed sizes; the input size still decides evRx80Full.
  void Setup(Integer inputSize, Integer) override { fInputSize.store(inputSize); }

  void SetTimeouts(const TCommTimeoutValues& timeouts) override {
    std::lock_guard lock(fMutex);
    fTimeouts = timeouts;
  }

  // The abort flags stop overlapped transfers still under way; here every transfer has ended
  // when its call returns, so they have nothing to do. Clearing the output drops only what the
  // driver still holds (TIOCOUTQ): a pseudo-terminal holds nothing, its bytes already sit in
  // the other side's input, and flushing would throw away what that side has not read yet.
  bool Purge(Cardinal flags) override {
    bool rx = flags & CommPurge::RxClear;
    bool tx = flags & CommPurge::TxClear;
    int pending = 0;
    if (tx && (Ioctl(fFd, TIOCOUTQ, &pending) != 0 || pending == 0)) tx = false;
    if (!rx && !tx) return true;
    std::intptr_t which = rx && tx ? TCIOFLUSH : rx ? TCIFLUSH : TCOFLUSH;
    return Ioctl(fFd, TCFLSH, reinterpret_cast<void*>(which)) == 0;
  }

  bool WaitReady(bool write, int ms) override { return Ready(write ? POLLOUT : POLLIN, ms); }

  void Queues(Integer& input, Integer& output) override {
    int in = 0, out = 0;
    if (Ioctl(fFd, FIONREAD, &in) != 0 || Ioctl(fFd, TIOCOUTQ, &out) != 0) {
      if (errno == EIO || errno == ENXIO || errno == ENODEV) MarkLost("Queues");
      RaiseLastOSError();
    }
    input = in;
    output = out;
  }

  Integer ReadQueued(void* buffer, Integer count) override {
    // Asked first rather than read until EAGAIN: an empty non-blocking read of a terminal has
    // the kernel flush its pending input work and wait for it, which costs more than the read.
    Integer queued = 0;
    if (Ioctl(fFd, FIONREAD, &queued) != 0) {
      if (errno == EIO || errno == ENXIO || errno == ENODEV) MarkLost("Read");
      RaiseLastOSError();
    }
    if (queued <= 0) return 0;
    return Move(false, static_cast<char*>(buffer), std::min(queued, count));
  }

  Integer Read(void* buffer, Integer count) override {
    TCommTimeoutValues t = Timeouts();
    auto* p = static_cast<char*>(buffer);
    Integer got = Move(false, p, count);
    if (got == count) return got;
    if (t.ReadInterval == Largest && t.ReadTotalMultiplier == 0 && t.ReadTotalConstant == 0)
      return got;  // what is queued, at once
    if (t.ReadInterval == Largest && t.ReadTotalMultiplier == Largest && t.ReadTotalConstant != 0 &&
        t.ReadTotalConstant != Largest) {
      // What is queued, or else the first bytes to arrive within the constant.
      if (got > 0 ||
          !Ready(POLLIN, static_cast<int>(std::min<Cardinal>(t.ReadTotalConstant, INT_MAX))))
        return got;
      return Move(false, p, count);
    }
    bool limited = t.ReadTotalMultiplier != 0 || t.ReadTotalConstant != 0;
    Clock::time_point deadline =
        Clock::now() +
        std::chrono::milliseconds(static_cast<long long>(t.ReadTotalMultiplier) * count +
                                  t.ReadTotalConstant);
    bool interval = t.ReadInterval != 0 && t.ReadInterval != Largest;
    while (got < count) {
      int wait = MsLeft(limited, deadline);
      bool byInterval = false;
      if (got > 0 && interval && (wait < 0 || static_cast<Cardinal>(wait) > t.ReadInterval)) {
        wait = static_cast<int>(std::min<Cardinal>(t.ReadInterval, INT_MAX));
        byInterval = true;
      }
      if (wait == 0 || !Ready(POLLIN, wait)) {
        if (byInterval || !limited || MsLeft(limited, deadline) == 0) break;
        continue;
      }
      Integer n = Move(false, p + got, count - got);
      if (n == 0) break;  // readable yet empty: the line hung up
      got += n;
    }
    return got;
  }

  Integer Write(void* buffer, Integer count) override {
    TCommTimeoutValues t = Timeouts();
    auto* p = static_cast<char*>(buffer);
    bool limited = t.WriteTotalMultiplier != 0 || t.WriteTotalConstant != 0;
    Clock::time_point deadline =
        Clock::now() +
        std::chrono::milliseconds(static_cast<long long>(t.WriteTotalMultiplier) * count +
                                  t.WriteTotalConstant);
    Integer done = 0;
    for (;;) {
      done += Move(true, p + done, count - done);
      if (done >= count) break;
      int wait = MsLeft(limited, deadline);
      if (wait == 0 || (!Ready(POLLOUT, wait) && MsLeft(limited, deadline) == 0)) break;
    }
    if (done > 0 && fWatchTx.load(std::memory_order_acquire)) {
      fTxPending.store(true, std::memory_order_release);
      std::uint64_t one = 1;
      [[maybe_unused]] ssize_t n = ::write(fKick, &one, sizeof one);
    }
    return done;
  }

  std::unique_ptr<TCommWaiter> CreateWaiter(Cardinal mask) override;

  int Fd() const noexcept { return fFd; }
  int Kick() const noexcept { return fKick; }
  Integer InputSize() const noexcept { return fInputSize.load(); }
  std::atomic<bool> fWatchTx{false};
  std::atomic<bool> fTxPending{false};

 private:
  TCommTimeoutValues Timeouts() {
    std::lock_guard lock(fMutex);
    return fTimeouts;
  }

  // One non-blocking read or write; 0 when the device has nothing or no room now.
  Integer Move(bool write, char* p, Integer count) {
    for (;;) {
      ssize_t n = write ? ::write(fFd, p, static_cast<std::size_t>(count))
                        : ::read(fFd, p, static_cast<std::size_t>(count));
      if (n > 0 || count == 0) return static_cast<Integer>(n);
      if (n == 0) {
        // Without VMIN a terminal answers an empty read both when nothing is queued and when
        // its line has hung up; only the latter shows in poll.
        pollfd pfd{fFd, 0, 0};
        if (!write && ::poll(&pfd, 1, 0) > 0 && (pfd.revents & (POLLHUP | POLLERR))) {
          errno = EIO;
          MarkLost("Read");
        }
        return 0;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
      // A terminal whose line hung up answers EIO (a pseudo-terminal whose master closed, a USB
      // adapter pulled out) or ENXIO/ENODEV (the driver gone).
      if (errno == EIO || errno == ENXIO || errno == ENODEV) MarkLost(write ? "Write" : "Read");
      RaiseLastOSError();
    }
  }

  // Waits up to ms (-1: without limit) for the device to be readable or writable; a device
  // that hangs up counts as ready, so that the transfer meets the hang-up and reports it.
  bool Ready(short events, int ms) {
    pollfd pfd{fFd, events, 0};
    for (;;) {
      int rc = ::poll(&pfd, 1, ms);
      if (rc >= 0) return rc > 0;
      if (errno != EINTR) RaiseLastOSError();
    }
  }

 public:
  bool Lost() const noexcept override { return fLost.load(std::memory_order_acquire); }

  // Records the loss; with an operation name, raises the error that says what happened.
  void MarkLost(const char* operation = nullptr) {
    int e = errno;
    fLost.store(true, std::memory_order_release);
    if (!operation) return;
    throw EOSError(Format("%s: the device went away (%s)", operation,
                          SysErrorMessage(static_cast<Cardinal>(e))),
                   static_cast<Cardinal>(e));
  }

 private:
  std::atomic<bool> fLost{false};

  int fFd;
  int fKick = -1;
  termios2 fOriginal;
  std::mutex fMutex;
  TCommTimeoutValues fTimeouts{Largest, 0, 0, 0, 0};
  std::atomic<Integer> fInputSize{2048};
  Word fXonLim = 0, fXoffLim = 0;
};

class TPosixWaiter final : public TCommWaiter {
 public:
  TPosixWaiter(TPosixDevice& device, Cardinal mask) : fDevice(device), fMask(mask) {
    fEpoll = ::epoll_create1(EPOLL_CLOEXEC);
    fStop = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    try {
      if (fEpoll < 0 || fStop < 0) RaiseLastOSError();
      Add(fStop, EPOLLIN, 0);
      // Edge-triggered: a batch is reported when bytes arrive, as the Windows driver reports
      // evRxChar, not again and again while unread bytes wait.
      // The device is watched whatever the mask, for its hang-up (always reported by epoll).
      bool rx = mask & (CommMask::RxChar | CommMask::RxFlag | CommMask::Rx80Full);
      Add(device.Fd(), (rx ? static_cast<Cardinal>(EPOLLIN) : 0u) | EPOLLET, 1);
      if (mask & CommMask::TxEmpty) {
        Add(device.Kick(), EPOLLIN, 2);
        device.fWatchTx.store(true, std::memory_order_release);
      }
      fCounters = (mask & LineEvents) && Ioctl(device.Fd(), TIOCGICOUNT, &fLast) == 0;
    } catch (...) {
      Release();
      throw;
    }
  }

  ~TPosixWaiter() override { Release(); }

  void Leave() override {
    fDevice.fWatchTx.store(false, std::memory_order_release);
    fDevice.Purge(CommPurge::TxClear | CommPurge::RxClear);
  }

  bool Wait(Cardinal& events) override {
    for (;;) {
      int timeout = fCounters ? SampleMs : -1;
      bool draining = fDevice.fTxPending.load(std::memory_order_acquire);
      if (draining) timeout = timeout < 0 ? DrainMs : std::min(timeout, DrainMs);
      epoll_event ev[3];
      int n = ::epoll_wait(fEpoll, ev, 3, timeout);
      if (n < 0) {
        if (errno == EINTR) continue;
        RaiseLastOSError();
      }
      Cardinal got = 0;
      for (int i = 0; i < n; ++i) {
        switch (ev[i].data.u32) {
          case 0: return false;
          case 1:
            if (ev[i].events & EPOLLIN) {
              got |= CommMask::RxChar;
              Integer in = 0;
              if ((fMask & CommMask::Rx80Full) && Ioctl(fDevice.Fd(), FIONREAD, &in) == 0 &&
                  in >= fDevice.InputSize() / 10 * 8)
                got |= CommMask::Rx80Full;
            }
            if (ev[i].events & (EPOLLERR | EPOLLHUP)) {
              got |= CommMask::Err;
              fDevice.MarkLost();
              // A hung-up line stays hung up; further reports would only repeat it.
              ::epoll_ctl(fEpoll, EPOLL_CTL_DEL, fDevice.Fd(), nullptr);
            }
            break;
          case 2: {
            std::uint64_t v;
            [[maybe_unused]] ssize_t r = ::read(fDevice.Kick(), &v, sizeof v);
            break;
          }
        }
      }
      if (fDevice.fTxPending.load(std::memory_order_acquire)) {
        int out = 0;
        if (Ioctl(fDevice.Fd(), TIOCOUTQ, &out) != 0 || out == 0) {
          fDevice.fTxPending.store(false, std::memory_order_release);
          got |= CommMask::TxEmpty;
        }
      }
      if (fCounters) got |= SampleCounters();
      got &= fMask;
      if (got != 0) {
        events = got;
        return true;
      }
    }
  }

  void Stop() override {
    std::uint64_t one = 1;
    [[maybe_unused]] ssize_t n = ::write(fStop, &one, sizeof one);
  }

 private:
  void Add(int fd, Cardinal events, std::uint32_t tag) {
    epoll_event ev{};
    ev.events = events;
    ev.data.u32 = tag;
    Check(::epoll_ctl(fEpoll, EPOLL_CTL_ADD, fd, &ev));
  }

  void Release() noexcept {
    if (fEpoll >= 0) ::close(fEpoll);
    if (fStop >= 0) ::close(fStop);
    fEpoll = fStop = -1;
  }

  Cardinal SampleCounters() {
    serial_icounter_struct now{};
    if (Ioctl(fDevice.Fd(), TIOCGICOUNT, &now) != 0) return 0;
    Cardinal got = 0;
    if (now.cts != fLast.cts) got |= CommMask::Cts;
    if (now.dsr != fLast.dsr) got |= CommMask::Dsr;
    if (now.dcd != fLast.dcd) got |= CommMask::Rlsd;
    if (now.rng != fLast.rng) got |= CommMask::Ring;
    if (now.brk != fLast.brk) got |= CommMask::Break;
    if (now.frame != fLast.frame || now.overrun != fLast.overrun || now.parity != fLast.parity ||
        now.buf_overrun != fLast.buf_overrun)
      got |= CommMask::Err;
    fLast = now;
    return got;
  }

  TPosixDevice& fDevice;
  Cardinal fMask;
  int fEpoll = -1;
  int fStop = -1;
  bool fCounters = false;
  serial_icounter_struct fLast{};
};

std::unique_ptr<TCommWaiter> TPosixDevice::CreateWaiter(Cardinal mask) {
  return std::make_unique<TPosixWaiter>(*this, mask);
}

}  // namespace

namespace {

AnsiString OpenFailure(int e) {
  switch (e) {
    case ENOENT:
    case ENXIO:
    case ENODEV: return CommConst::SReasonNoDevice.Str();
    case ENOTTY: return CommConst::SReasonNotSerial.Str();
    case EISDIR: return CommConst::SReasonDirectory.Str();
    case EACCES:
    case EPERM:
    case EROFS: return CommConst::SReasonAccess.Str();
    case EBUSY:
    case EWOULDBLOCK: return CommConst::SReasonBusy.Str();
    default: return SysErrorMessage(static_cast<Cardinal>(e));
  }
}

// The hidden window without a window system: a windowed control reached through the main
// thread's queue.
class TPosixCommWindow final : public TCommWindow, public TWinControl {
 public:
  explicit TPosixCommWindow(TkxCommPort* port) : TWinControl(nullptr), fPort(port) {}

  void Detach() noexcept override { fPort.store(nullptr); }
  void Send(Cardinal mask) override { TWinControl::Send(CM_COMMEVENT, mask, 0); }
  void Default(TMessage& m) override { TWinControl::WndProc(m); }
  // The worker's Send is main-thread work, which WaitFor serves while it waits.
  void WaitForSender(TThread&) override {}

 protected:
  void WndProc(TMessage& m) override {
    if (TkxCommPort* port = fPort.load())
      port->WndProc(m);
    else
      TWinControl::WndProc(m);
  }

 private:
  std::atomic<TkxCommPort*> fPort;
};

}  // namespace

std::shared_ptr<TCommDevice> TCommDevice::Open(const AnsiString& path, AnsiString& reason) {
  std::string name = AnsiToUtf8(path);
  int fd = ::open(name.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    reason = OpenFailure(errno);
    return nullptr;
  }
  termios2 original{};
  // No sharing: a second opener, through this library or any program that locks, is refused.
  // The terminal check comes first, so that a plain file is called what it is.
  int failed = 0;
  if (Ioctl(fd, TCGETS2, &original) != 0)
    failed = errno == EINVAL ? ENOTTY : errno;
  else if (::flock(fd, LOCK_EX | LOCK_NB) != 0)
    failed = errno;
  if (failed) {
    ::close(fd);
    reason = OpenFailure(failed);
    return nullptr;
  }
  return std::make_shared<TPosixDevice>(fd, original);
}

AnsiString TCommDevice::DefaultPath(Integer portNumber) {
  return Format("/dev/ttyS%d", portNumber - 1);
}

void TCommDevice::RaiseNotOpen() { RaiseLastOSError(EBADF); }

std::unique_ptr<TCommWindow> TCommWindow::Create(TkxCommPort* port) {
  return std::make_unique<TPosixCommWindow>(port);
}

}  // namespace ostrel

#endif
