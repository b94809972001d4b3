// `ostrel serial` and `ostrel scan`: a small terminal on a serial port, and a barcode scanner
// on a serial port printing each code it reads. PORT is a port number (1 to 16) or a device
// path (/dev/ttyUSB0; on Windows \\.\COM12).
#include "Cli.h"

#include <ostrel/devices/Bcscan.h>
#include <ostrel/devices/Kxcommport.h>
#include <ostrel/devices/SerialScanner.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Threads.h>

#include <chrono>
#include <mutex>
#include <optional>

namespace ostrel::cli {
namespace {

struct PortArgs {
  AnsiString port;
  std::optional<Integer> baud;
  AnsiString mode;
  std::optional<Integer> count;
};

// PORT and the options the command allows (--baud N, and --mode TEXT or --count N).
PortArgs ParsePortArgs(const Args& args) {
  PortArgs r;
  auto number = [](const AnsiString& text, const char* what) {
    Integer n = 0;
    if (!TryStrToInt(text, n) || n <= 0) throw UsageError(std::string(what) + " must be a positive integer");
    return n;
  };
  r.port = args.Values()[0];
  if (const AnsiString* baud = args.Value("--baud")) r.baud = number(*baud, "--baud");
  r.mode = args.Value("--mode", "");
  if (const AnsiString* count = args.Value("--count")) r.count = number(*count, "--count");
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

int RunSerial(Cli& cli, const Args& args) {
  PortArgs a = ParsePortArgs(args);
  TkxCommPort port;
  SetUpPort(port, a);
  port.SetEvents({evRxChar});
  // Handlers run on the port's worker: the main thread is busy reading the keyboard.
  port.SetSyncMethod(smNone);
  std::mutex outLock;
  port.OnReceiveData = [&](TObject*, const void* data, Integer size) {
    std::lock_guard lock(outLock);
    cli.Write(std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size)));
    cli.Out().flush();
  };
  port.Open();
  {
    std::lock_guard lock(outLock);
    cli.ErrorLn(Format("%s open at %s; what you type is sent, end with end of input",
                       a.port, port.ParamsText()));
  }
  AnsiString line;
  while (cli.ReadLine(line)) port.WriteStr(line + "\r\n", 5000);
  // Replies to the last line still have a moment to arrive.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  port.Close();
  return 0;
}

int RunScan(Cli& cli, const Args& args) {
  PortArgs a = ParsePortArgs(args);
  TkxCommPort probe;  // checks the arguments and gives the settings text
  SetUpPort(probe, a);
  RegisterSerialScannerModule({{a.port, probe.ParamsText(), probe.DevicePath(), "\r\n"}});
  // A console program has no window to be in the foreground: it is always the active one.
  SetAppActiveQuery([] { return true; });
  TBCReader reader;
  Integer seen = 0;
  reader.OnScan = [&](TObject*, const AnsiString& code) {
    cli.WriteLn(code);
    cli.Out().flush();
    ++seen;
  };
  reader.SetActive(true);
  if (BCServer()->GetDevCount() == 0) {
    reader.SetActive(false);
    throw Exception(DevConst::SDevAccessError.Str() + ": " + a.port);
  }
  while (!a.count || seen < *a.count) CheckSynchronize(-1);
  reader.SetActive(false);
  return 0;
}

}  // namespace

OSTREL_CLI_COMMAND(.name = "serial",
                   .summary = "Terminal on a serial port: prints what arrives, sends what is typed",
                   .run = RunSerial, .usage = "PORT",
                   .options = {{"--baud", "N", "the baud rate"},
                               {"--mode", "TEXT", "settings as a mode string (\"9600,n,8,1\")"}},
                   .minValues = 1, .maxValues = 1,
                   .details = "PORT is a port number (1 to 16) or a device path.");
OSTREL_CLI_COMMAND(.name = "scan", .summary = "Barcode scanner on a serial port: prints each code read",
                   .run = RunScan, .usage = "PORT",
                   .options = {{"--baud", "N", "the baud rate"},
                               {"--count", "N", "stop after N codes (default: run until stopped)"}},
                   .minValues = 1, .maxValues = 1,
                   .details = "PORT is a port number (1 to 16) or a device path.");

}  // namespace ostrel::cli
