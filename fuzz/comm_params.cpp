// The port's saved settings: LoadParamsText on any text, and the settings store's value files
// (any bytes as a key's values.txt) read by RegLoadParams and by the serial scanner module.
// Whatever loads, the text the port would save reads back to the same settings.
#include <FuzzUtil.h>

#include <ostrel/devices/Kxcommport.h>
#include <ostrel/devices/SerialScanner.h>

#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>

using namespace ostrel;
namespace fs = std::filesystem;

namespace {

// A settings store of the fuzzer's own.
const fs::path& Store() {
  static const fs::path dir = [] {
    fs::path d = fs::temp_directory_path() / ("ostrel-fuzz-store-" + std::to_string(::getpid()));
    ::setenv("XDG_CONFIG_HOME", d.c_str(), 1);
    return d;
  }();
  return dir;
}

void WriteValues(const fs::path& key, std::string_view bytes) {
  fs::path dir = Store() / "ostrel" / "registry" / "HKEY_CURRENT_USER" / key;
  fs::create_directories(dir);
  std::ofstream(dir / "values.txt", std::ios::binary)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void CheckReadsBack(const TkxCommPort& port) {
  AnsiString saved = port.ParamsText();
  TkxCommPort other;
  fuzz::Require(fuzz::Guarded([&] { other.LoadParamsText(saved, true); }),
                "saved settings do not load", saved);
  fuzz::Require(other.ParamsText() == saved, "saved settings read back differently",
                saved + " / " + other.ParamsText());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const bool store = in.Bool();
  const bool loadPortNumber = in.Bool();
  std::string_view text = in.Rest();
  TkxCommPort port;
  if (!store) {
    fuzz::Guarded([&] { port.LoadParamsText(text, loadPortNumber); });
  } else {
    WriteValues(fs::path("Software") / "Velmora Soft" / "Fuzz", text);
    WriteValues(fs::path("Software") / "Velmora Soft" / "Devices" / "BCREADER", text);
    fuzz::Guarded([&] {
      port.RegLoadParams(HKEY_CURRENT_USER, "\\Software\\Velmora Soft\\Fuzz", loadPortNumber);
    });
    fuzz::Guarded([&] {
      for (const TSerialScannerConfig& s : LoadSerialScanners()) {
        TkxCommPort scanner;
        fuzz::Guarded([&] { scanner.LoadParamsText(s.Params, true); });
        CheckReadsBack(scanner);
      }
    });
  }
  CheckReadsBack(port);
  return 0;
}
