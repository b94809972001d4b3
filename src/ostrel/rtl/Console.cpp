// Standard input, its wake-up and the termination signals through the operating system (see
// Console.h).
#include <ostrel/rtl/Console.h>

#include <ostrel/rtl/Exceptions.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#else
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#endif

namespace ostrel {

namespace {

std::atomic<int> caughtSignal{0};

}  // namespace

int TerminationSignal() { return caughtSignal.load(); }

#if defined(_WIN32)

namespace {

// The wake is an event (kept set until a read uses it); a read already blocked in the system
// is cancelled on the reading thread.
struct Wake {
  HANDLE event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::atomic<HANDLE> reader{nullptr};
};

Wake& TheWake() {
  static Wake wake;
  return wake;
}

BOOL WINAPI OnConsoleControl(DWORD type) {
  int signal = type == CTRL_C_EVENT ? SIGINT : SIGTERM;
  int none = 0;
  caughtSignal.compare_exchange_strong(none, signal);
  WakeStdInput();
  // Closing the console ends the process once this returns; the others are handled by the
  // program.
  return TRUE;
}

}  // namespace

bool StdInputIsTerminal() {
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

bool StdOutputIsTerminal() {
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(STD_OUTPUT_HANDLE), &mode) != 0;
}

std::ptrdiff_t ReadStdInput(void* buffer, std::size_t size) {
  Wake& wake = TheWake();
  if (::WaitForSingleObject(wake.event, 0) == WAIT_OBJECT_0) {
    ::ResetEvent(wake.event);
    return -1;
  }
  HANDLE self = nullptr;
  ::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentThread(), ::GetCurrentProcess(), &self, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);
  wake.reader.store(self);
  DWORD got = 0;
  BOOL ok =
      ::ReadFile(::GetStdHandle(STD_INPUT_HANDLE), buffer, static_cast<DWORD>(size), &got, nullptr);
  DWORD error = ok ? 0 : ::GetLastError();
  wake.reader.store(nullptr);
  if (self) ::CloseHandle(self);
  if (::WaitForSingleObject(wake.event, 0) == WAIT_OBJECT_0 && got == 0) {
    ::ResetEvent(wake.event);
    return -1;
  }
  if (!ok) {
    // The writer of a pipe went away: that is the end of the input.
    if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) return 0;
    if (error == ERROR_OPERATION_ABORTED) return -1;
    RaiseLastOSError(error);
  }
  return static_cast<std::ptrdiff_t>(got);
}

void WakeStdInput() {
  Wake& wake = TheWake();
  ::SetEvent(wake.event);
  if (HANDLE reader = wake.reader.load()) ::CancelSynchronousIo(reader);
}

void CatchTerminationSignals() {
  TheWake();
  ::SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
}

void EndBySignal(int) { ::ExitProcess(0xC000013Au); }

#else

namespace {

// The self-pipe: a wake writes a byte, the reader waits on the pipe and standard input at once.
// Made before any signal handler can need it (CatchTerminationSignals) or on first use.
struct Wake {
  int fds[2] = {-1, -1};
  Wake() {
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) RaiseLastOSError();
  }
};

Wake& TheWake() {
  static Wake wake;
  return wake;
}

void OnSignal(int signal) {
  int saved = errno;  // a handler must leave errno as it found it
  int none = 0;
  caughtSignal.compare_exchange_strong(none, signal);
  WakeStdInput();
  errno = saved;
}

}  // namespace

bool StdInputIsTerminal() { return ::isatty(0) == 1; }

bool StdOutputIsTerminal() { return ::isatty(1) == 1; }

std::ptrdiff_t ReadStdInput(void* buffer, std::size_t size) {
  Wake& wake = TheWake();
  for (;;) {
    pollfd fds[2] = {{0, POLLIN, 0}, {wake.fds[0], POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      RaiseLastOSError();
    }
    if (fds[1].revents & POLLIN) {
      char drain[64];
      while (::read(wake.fds[0], drain, sizeof drain) > 0) {
      }
      return -1;
    }
    if (fds[0].revents == 0) continue;
    ssize_t n = ::read(0, buffer, size);
    if (n >= 0) return n;
    if (errno == EINTR || errno == EAGAIN) continue;
    RaiseLastOSError();
  }
}

void WakeStdInput() {
  char one = 1;
  // A full pipe already holds a wake.
  [[maybe_unused]] ssize_t n = ::write(TheWake().fds[1], &one, 1);
}

void CatchTerminationSignals() {
  TheWake();
  struct sigaction action {};
  action.sa_handler = &OnSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(signal, &action, nullptr);
}

void EndBySignal(int signal) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  ::sigaction(signal, &action, nullptr);
  ::raise(signal);
  std::_Exit(128 + signal);  // a signal the process ignores by default
}

#endif

}  // namespace ostrel
