// A device module for barcode scanners on serial ports (RS-232 or the virtual ports of USB
// adapters) that send each code as characters followed by a terminator.
//
// Registered with RegisterSerialScannerModule, it is the device module of Devintf.h: the
// barcode server finds its scanners under the kind "BCREADER", opens their ports, and each
// finished code reaches IBCReaderLink::Scan on the main thread (the port synchronises its
// events with the main thread, so the program must run its main-thread queue: CheckSynchronize
// or Application::ProcessMessages).
//
// Scanners come either from the list given at registration or from the settings store
// (HKEY_CURRENT_USER), under
//   \Software\Velmora Soft\Devices\BCREADER         "Devices" = "Name1;Name2"
//   \Software\Velmora Soft\Devices\BCREADER\<name>  "Comm.DCB" = "COM3: BAUD=9600 PARITY=N DATA=8
//   STOP=1"
//                                                   "Device" = "/dev/ttyUSB0" (optional)
//                                                   "Terminator" = "13" (codes of the characters
//                                                   that end a code, separated by ";"; CR by
//                                                   default)
#pragma once

#include <ostrel/devices/Devintf.h>

#include <functional>
#include <vector>

namespace ostrel {

// One scanner of the serial module: its name, its port and line, and its terminators.
struct TSerialScannerConfig {
  AnsiString Name;
  // The port number and line settings as the "Comm.DCB" value writes them.
  AnsiString Params;
  // A device path that replaces the port number's (empty: the port number's).
  AnsiString Device;
  // Any of these characters ends a code; empty codes (as between CR and LF) are dropped.
  AnsiString Terminators = "\r";
};

// Where the module reads its scanners in the settings store.
inline constexpr std::string_view SerialScannerRegKey = "\\Software\\Velmora Soft\\Devices";

// Makes the serial scanner module the device module, with the scanners of the settings store.
OSTREL_API void RegisterSerialScannerModule();
// ... or with these scanners.
OSTREL_API void RegisterSerialScannerModule(std::vector<TSerialScannerConfig> scanners);

// Called on the main thread when the device of an open scanner goes away (unplugged, hung up),
// once per scanner, with its name and a message saying what happened. The scanner reads
// nothing more until the readers are closed and opened again. Empty by default; returns the
// previous handler.
using TSerialScannerLost = std::function<void(const AnsiString& name, const AnsiString& message)>;
OSTREL_API TSerialScannerLost SetSerialScannerLostHandler(TSerialScannerLost handler);

// The scanners configured in the settings store (see above).
OSTREL_API std::vector<TSerialScannerConfig> LoadSerialScanners();

}  // namespace ostrel
