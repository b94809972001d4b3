// `ostrel serial` and `ostrel scan`: a terminal on a serial port, and a barcode scanner on a
// serial port printing each code it reads. PORT is a port number (1 to 16) or a device path
// (/dev/ttyUSB0; on Windows \\.\COM12).
//
// Both end with status 1 and a message when the device goes away, and on SIGINT, SIGTERM or
// SIGHUP close the port first (which gives the device back its settings as they were found)
// and then end as the signal would have.
#include "Cli.h"

#include <ostrel/devices/Bcscan.h>
#include <ostrel/devices/Kxcommport.h>
#include <ostrel/devices/SerialScanner.h>
#include <ostrel/rtl/Console.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Threads.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <mutex>
#include <optional>
#include <ostream>
#include <thread>
#include <vector>

namespace ostrel::cli {
namespace {

struct PortArgs {
  AnsiString port;
  std::optional<Integer> baud;
  AnsiString mode;
  std::optional<Integer> count;
  std::optional<bool> raw;  // --raw / --lines; unset: raw unless standard input is a terminal
};

// PORT and the options given (the parser has already refused options the command lacks).
PortArgs ParsePortArgs(const Args& args) {
  PortArgs r;
  auto number = [](const AnsiString& text, const char* what) {
    Integer n = 0;
    if (!TryStrToInt(text, n) || n <= 0)
      throw UsageError(std::string(what) + " must be a positive integer");
    return n;
  };
  r.port = args.Values()[0];
  if (const AnsiString* baud = args.Value("--baud")) r.baud = number(*baud, "--baud");
  r.mode = args.Value("--mode", "");
  if (const AnsiString* count = args.Value("--count")) r.count = number(*count, "--count");
  const bool raw = args.Flag("--raw"), lines = args.Flag("--lines");
  if (raw && lines) throw UsageError("--raw and --lines exclude each other");
  if (raw || lines) r.raw = raw;
  return r;
}

// The port number, or 0 for a device path.
Integer PortNumberOf(const AnsiString& port) {
  Integer n = 0;
  if (!TryStrToInt(port, n)) return 0;
  if (n < 1 || n > 16) throw UsageError("port numbers are 1 to 16");
  return n;
}

void SetUpPort(TkxCommPort& port, const PortArgs& a) {
  if (Integer n = PortNumberOf(a.port))
    port.SetPortNumber(static_cast<TkxCommPortNumber>(n));
  else
    port.SetDevicePath(a.port);
  if (!a.mode.empty()) {
    TDCB dcb{};
    dcb.DCBlength = sizeof dcb;
    dcb.ByteSize = port.DataBits();
    if (!CommModeToDCB(a.mode, dcb)) throw UsageError("--mode: not a mode string: " + a.mode);
    port.AssignDCB(dcb);
  }
  if (a.baud) port.SetBaudRate(static_cast<Cardinal>(*a.baud));
}

// After a termination signal: the port is closed (its device settings restored) by the caller
// first, then the process ends as the signal would have ended it.
[[noreturn]] void EndAfterSignal(Cli& cli, int signal) {
  cli.Out().flush();
  EndBySignal(signal);
}

// The terminal's side of `serial`: sends bytes to the port and keeps what the device has not
// taken yet until it takes it, so that a device that stalls delays the sender but loses
// nothing. Each write is bounded (WriteSlice) so that a signal or the device going away is
// seen within a moment even while the device takes nothing.
class TSender {
 public:
  static constexpr Integer WriteSlice = 200;  // ms

  TSender(TkxCommPort& port, const std::atomic<bool>& lost) : fPort(port), fLost(lost) {
    fPort.Timeouts().SetWriteTotalM(0);
    fPort.Timeouts().SetWriteTotalC(WriteSlice);
  }

  // False when a signal or the loss of the device stopped it before everything was taken.
  bool Send(const char* p, std::size_t n) {
    while (n > 0) {
      if (Interrupted()) return false;
      Integer chunk = static_cast<Integer>(std::min<std::size_t>(n, INT_MAX / 2));
      Integer sent = fPort.Write(p, chunk, 0);
      p += sent;
      n -= static_cast<std::size_t>(sent);
    }
    return true;
  }

  // Waits until the driver has sent what it holds (the device may still be slow), so that
  // closing the port, which clears the output queue, drops nothing.
  bool Drain() {
    while (fPort.OutputCount() > 0) {
      if (Interrupted()) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
  }

  bool Interrupted() const { return TerminationSignal() != 0 || fLost.load(); }

 private:
  TkxCommPort& fPort;
  const std::atomic<bool>& fLost;
};

// The device's side of `serial`: a thread that reads whatever has arrived, in one read when
// bytes are waiting (so that a fast device costs what a plain read loop costs), and passes it
// to the handler. Each read waits at most ReadSlice for the first byte, so that a stop is seen
// within a moment; the device going away ends the reading with lost set and standard input
// woken.
class TReceiver {
 public:
  static constexpr Integer ReadSlice = 200;  // ms

  template <class Handler>
  TReceiver(TkxCommPort& port, std::atomic<bool>& lost, Handler handler) {
    TkxCommTimeouts& t = port.Timeouts();
    t.SetReadInterval(-1);  // what is queued, or else the first bytes within ReadSlice
    t.SetReadTotalM(-1);
    t.SetReadTotalC(ReadSlice);
    fThread = std::jthread([&port, &lost, handler, this](std::stop_token stop) {
      std::vector<char> buffer(std::size_t{1} << 16);
      try {
        while (!stop.stop_requested()) {
          Integer n = port.Read(buffer.data(), static_cast<Integer>(buffer.size()), 0);
          if (n > 0) handler(std::string_view(buffer.data(), static_cast<std::size_t>(n)));
        }
      } catch (const std::exception& e) {
        // Any failure ends the reading and reaches Stop: one escaping the thread would end
        // the program without a word. The library's own messages are CP1251 already.
        if (!port.DeviceLost()) {
          const auto* own = dynamic_cast<const Exception*>(&e);
          std::lock_guard lock(fLock);
          fError = own ? own->Message() : Utf8ToAnsi(std::string_view(e.what()));
        }
        lost = true;
        WakeStdInput();
      }
    });
  }

  // Stops the reading and waits for it; a failure other than the device going away is raised.
  void Stop() {
    if (fThread.joinable()) {
      fThread.request_stop();
      fThread.join();
    }
    std::lock_guard lock(fLock);
    if (fError) throw Exception(*fError);
  }

 private:
  std::mutex fLock;
  std::optional<AnsiString> fError;
  std::jthread fThread;  // last: joined before the members it uses go
};

int RunSerial(Cli& cli, const Args& args) {
  PortArgs a = ParsePortArgs(args);
  TkxCommPort port;
  SetUpPort(port, a);
  const bool raw = a.raw ? *a.raw : !StdInputIsTerminal();
  // No events: the receiver reads, and meets the device going away itself.
  port.SetEvents({});
  std::atomic<bool> lost{false};
  CatchTerminationSignals();
  port.Open();
  cli.ErrorLn(
      Format(raw ? "%s open at %s; standard input is sent as it is, until its end"
                 : "%s open at %s; each line typed is sent with CR LF, end with end of input",
             a.port, port.ParamsText()));
  TReceiver receiver(port, lost, [&](std::string_view bytes) {
    if (raw)
      cli.Out().write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    else
      cli.Write(bytes);
    cli.Out().flush();
  });
  TSender sender(port, lost);
  std::vector<char> buffer(std::size_t{1} << 16);
  AnsiString line;  // the line being typed (line mode)
  bool complete = true;
  try {
    for (;;) {
      std::ptrdiff_t n = ReadStdInput(buffer.data(), buffer.size());
      if (n < 0) {
        complete = false;  // woken: a signal or the device gone
        break;
      }
      if (n == 0) break;
      if (raw) {
        complete = sender.Send(buffer.data(), static_cast<std::size_t>(n));
      } else {
        // Whole lines go out with CR LF instead of the terminal's line end.
        for (char c : std::string_view(buffer.data(), static_cast<std::size_t>(n))) {
          if (c != '\n') {
            line += c;
            continue;
          }
          if (!line.empty() && line.back() == '\r') line.pop_back();
          AnsiString out = cli.FromTerminal(line) + "\r\n";
          line.clear();
          if (!(complete = sender.Send(out.data(), out.size()))) break;
        }
      }
      if (!complete) break;
    }
    if (complete && !raw && !line.empty()) {
      AnsiString out = cli.FromTerminal(line) + "\r\n";
      complete = sender.Send(out.data(), out.size());
    }
    if (complete) complete = sender.Drain();
  } catch (const EOSError&) {
    // A transfer that met the device's loss says so in its own words; the program's message
    // below says it in the user's.
    if (!port.DeviceLost()) throw;
  }
  if (int signal = TerminationSignal()) {
    receiver.Stop();
    port.Close();
    EndAfterSignal(cli, signal);
  }
  if (!port.DeviceLost()) {
    // Replies to what was sent last still have a moment to arrive.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  receiver.Stop();
  if (port.DeviceLost()) {
    port.Close();
    throw Exception(Format(CommConst::SDeviceGone.Str(), a.port));
  }
  port.Close();
  return 0;
}

int RunScan(Cli& cli, const Args& args) {
  PortArgs a = ParsePortArgs(args);
  TkxCommPort probe;  // checks the arguments and gives the settings text
  SetUpPort(probe, a);
  // The scanner module leaves out a scanner it cannot open without saying why; opening the
  // port once here gives the user the reason.
  probe.SetEvents({});
  probe.Open();
  probe.Close();
  RegisterSerialScannerModule({{a.port, probe.ParamsText(), probe.DevicePath(), "\r\n"}});
  // A console program has no window to be in the foreground: it is always the active one.
  SetAppActiveQuery([] { return true; });
  std::optional<AnsiString> lost;
  SetSerialScannerLostHandler(
      [&](const AnsiString&, const AnsiString& message) { lost = message; });
  CatchTerminationSignals();
  TBCReader reader;
  Integer seen = 0;
  reader.OnScan = [&](TObject*, const AnsiString& code) {
    cli.WriteLn(code);
    cli.Out().flush();
    ++seen;
  };
  struct Cleanup {
    TBCReader& reader;
    ~Cleanup() {
      SetSerialScannerLostHandler(nullptr);
      try {
        reader.SetActive(false);  // closes the scanner's port
      } catch (const Exception&) {
        // already on the way out with an error of its own
      }
    }
  } cleanup{reader};
  reader.SetActive(true);
  if (BCServer()->GetDevCount() == 0)
    throw Exception(DevConst::SDevAccessError.Str() + ": " + a.port);
  // A signal cannot wake the main thread's queue, so the wait is cut into short slices.
  while ((!a.count || seen < *a.count) && !lost && !TerminationSignal()) CheckSynchronize(100);
  if (int signal = TerminationSignal()) {
    reader.SetActive(false);
    EndAfterSignal(cli, signal);
  }
  if (lost) throw Exception(*lost);
  return 0;
}

}  // namespace

OSTREL_CLI_COMMAND(
        .name = "serial",
        .summary = "Terminal on a serial port: prints what arrives, sends standard input",
        .run = RunSerial, .usage = "PORT",
        .options = {{"--baud", "N", "the baud rate"},
                    {"--mode", "TEXT", "settings as a mode string (\"9600,n,8,1\")"},
                    {"--raw", nullptr, "send standard input's bytes exactly as they are"},
                    {"--lines", nullptr,
                     "send each line typed with CR LF in place of its line end"}},
        .minValues = 1, .maxValues = 1,
        .details =
            "PORT is a port number (1 to 16) or a device path.\n"
            "When standard input is a terminal (or with --lines), each line typed is sent with CR "
            "LF in\n"
            "place of its line end, and the bytes received are shown as text. When it is a file or "
            "a\n"
            "pipe (or with --raw), its bytes are sent exactly as they are and the bytes received "
            "are\n"
            "written unchanged. Ends at the end of input (after every byte has been sent), with "
            "status 1\n"
            "when the device goes away, and on Ctrl-C with the port's settings restored.");
OSTREL_CLI_COMMAND(.name = "scan",
                   .summary = "Barcode scanner on a serial port: prints each code read",
                   .run = RunScan, .usage = "PORT",
                   .options = {{"--baud", "N", "the baud rate"},
                               {"--count", "N", "stop after N codes (default: run until stopped)"}},
                   .minValues = 1, .maxValues = 1,
                   .details =
                       "PORT is a port number (1 to 16) or a device path.\n"
                       "Prints each code as it is read, until --count codes have been read or it "
                       "is interrupted\n"
                       "(Ctrl-C, SIGTERM); standard input is not read, so its end does not stop "
                       "it. Ends with\n"
                       "status 1 when the device goes away.");

}  // namespace ostrel::cli
