// The serial port: settings and their rules, the device block, the settings store, and, over
// pseudo-terminals where the system has them, open and close, transfers with their budgets, and
// events for each synchronisation method.
#include <ostrel/devices/Kxcommport.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Registry.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Threads.h>

#include "SettingsSandbox.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#ifndef _WIN32
#define OSTREL_TEST_PTY 1
#include <sys/stat.h>
#include <termios.h>
#include "Pty.h"
using ostrel::testutil::Pty;
#endif

using namespace ostrel;
using testutil::Join;
using testutil::MessageOf;

namespace {

const std::string AlreadyOpen = Cp1251(u8"Порт уже открыт.\r\rОперация невозможна.").Str();

// The open failure for a device path (the path cases run off Windows only).
[[maybe_unused]] AnsiString Unavailable(std::string_view path, std::string_view reason) {
  return Cp1251(u8"Устройство ").Str() + AnsiString(path) + Cp1251(u8" недоступно: ").Str() +
         AnsiString(reason) + ".";
}

AnsiString Hex(const void* p, std::size_t n) {
  AnsiString s;
  for (std::size_t i = 0; i < n; ++i)
    s += Format("%.2X", static_cast<Integer>(static_cast<const Byte*>(p)[i]));
  return s;
}

// Runs the main thread's queue until done() holds or ten seconds pass.
template <class Done>
bool PumpUntil(Done done) {
  auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    CheckSynchronize(20);
  }
  return true;
}

TEST(CommPortSettings, RatesRoundDownToTheTable) {
  struct Case {
    Cardinal in, out;
  } cases[] = {{0, 110},         {100, 110},       {110, 110},       {299, 110},
               {10000, 9600},    {14400, 14400},   {56001, 56000},   {115200, 115200},
               {255999, 128000}, {256000, 256000}, {1000000, 256000}};
  TkxCommPort port;
  for (auto c : cases) {
    port.SetBaudRate(c.in);
    EXPECT_EQ(port.BaudRate(), c.out) << c.in;
  }
}

TEST(CommPortSettings, EventSetsAndMasksMapOneToOne) {
  EXPECT_EQ(EventsToMask(TkxCommEvents::All()), 0x05FFu);
  EXPECT_EQ(MaskToEvents(0xFFFFFFFF), TkxCommEvents::All());  // foreign bits dropped
  const Cardinal bits[] = {0x0001, 0x0004, 0x0002, 0x0100, 0x0040,
                           0x0008, 0x0010, 0x0080, 0x0020, 0x0400};
  for (int i = 0; i < 10; ++i) {
    TkxCommEvents one{static_cast<TkxCommEvent>(i)};
    EXPECT_EQ(EventsToMask(one), bits[i]) << i;
    EXPECT_EQ(MaskToEvents(bits[i]), one) << i;
  }
}

TEST(CommPortSettings, DefaultsAndSetterRules) {
  TkxCommPort port;
  TkxCommTimeouts& t = port.Timeouts();
  EXPECT_EQ(Join(int(port.PortNumber()), port.BaudRate(), int(port.DataBits()), int(port.Parity()),
                 int(port.StopBits()), int(port.FlowControl()), port.Events().Bits(),
                 int(port.SyncMethod()), port.Buffer().InputSize(), port.Buffer().OutputSize(),
                 port.Buffer().ReadTimeout, port.Buffer().WriteTimeout, t.ReadInterval(),
                 t.ReadTotalMultiplier(), t.ReadTotalConstant(), t.WriteTotalMultiplier(),
                 t.WriteTotalConstant()),
            "2 9600 8 0 0 0 1023 0 2048 2048 0 0 -1 0 0 100 1000");
  struct Case {
    Integer in, out;
  } sizes[] = {{1001, 1000}, {1000, 1000}, {1, 0}, {-3, -3}, {0, 0}};
  for (auto c : sizes) {
    port.Buffer().SetInputSize(c.in);
    port.Buffer().SetOutputSize(c.in);
    EXPECT_EQ(Join(port.Buffer().InputSize(), port.Buffer().OutputSize()), Join(c.out, c.out))
        << c.in;
  }
  EXPECT_EQ(MessageOf<EInvalidArgument>([&] { port.SetDataBits(9); }),
            "SetDataBits: 9 data bits are outside 5 to 8");
  EXPECT_EQ(MessageOf<EInvalidArgument>([&] { port.SetPortNumber(17); }),
            "SetPortNumber: port number 17 is outside 1 to 16");
}

TEST(CommPortSettings, DeviceBlockBytes) {
  TkxCommPort port;
  port.Buffer().SetInputSize(4096);
  port.SetBaudRate(19200);
  port.SetDataBits(7);
  port.SetParity(ptEven);
  port.SetStopBits(sb2);
  struct Case {
    TkxCommPortFlowControl flow;
    const char* flags;
  } cases[] = {{fcNone, "01000000"}, {fcHardware, "05200000"}, {fcXonXoff, "01030000"}};
  for (auto c : cases) {
    port.SetFlowControl(c.flow);
    TDCB dcb;
    dcb.EvtChar = 'x';  // everything is rebuilt
    port.BuildDCB(dcb);
    // length 28, rate 19200, flags, reserved, XonLim = XoffLim = 4096 / 4, 7 bits, even, two
    EXPECT_EQ(Hex(&dcb, sizeof dcb),
              AnsiString("1C000000004B0000") + c.flags + "00000004000407020200000000000000");
  }
}

TEST(CommPortSettings, AssignTakesLineSettingsOnly) {
  TkxCommPort port;
  TDCB dcb;
  dcb.BaudRate = 20000;
  dcb.ByteSize = 5;
  dcb.Parity = ptMark;
  dcb.StopBits = sb1p5;
  dcb.Flags = DcbFlag::OutxCtsFlow | DcbFlag::RtsHandshake;
  port.AssignDCB(dcb);
  EXPECT_EQ(Join(port.BaudRate(), int(port.DataBits()), int(port.Parity()), int(port.StopBits()),
                 int(port.FlowControl())),
            "19200 5 3 1 0");
}

// On Windows the system's BuildCommDCBA parses mode strings, and where it is Wine it answers the
// rows marked "own" in its own way: those check the library's parser, used everywhere else.
#ifdef _WIN32
constexpr bool SystemParsesModes = true;
#else
constexpr bool SystemParsesModes = false;
#endif

TEST(CommPortSettings, ModeStrings) {
  const bool own = true;
  struct Case {
    const char* text;
    const char* result;
    bool own = false;
  } cases[] = {
      // clang-format off
      {"9600,n,8,1", "9600 0 8 0"}, {" 1200 , o , 7 , 2 ", "1200 1 7 2", own},
      {"96,e", "9600 2 7 0", own}, {"11", "110 2 7 2", own}, {"19200,m,5,1.5,p", "19200 3 5 1"},
      {"baud=9600 parity=n data=8 stop=1", "9600 0 8 0"},
      {"BAUD=57600 PARITY=S DATA=6 STOP=1.5 xon=on rts=hs dtr=off to=on", "57600 4 6 1", own},
      {"COM3: BAUD=4800 PARITY=E DATA=7 STOP=2", "4800 2 7 2"}, {"baud=300", "300 9 9 9", own},
      {"", "fail", own}, {"hello", "fail"}, {"9600,x,8,1", "fail"}, {"9600,n,9,1", "fail"},
      {"9600,n,8,3", "fail"}, {"9600,n,8,1,q", "fail"}, {"9600,n,8,1,p,1", "fail"},
      {"baud=9600 speed=1", "fail"}, {"parity=n data=8", "fail", own}, {"baud=fast", "fail"},
      {"baud=9600 xon=maybe", "fail"}, {"-9600,n,8,1", "fail"}, {",n,8,1", "fail"}, {",,,", "fail"},
      // clang-format on
      {"COM1:hello", "fail"}};
  for (auto c : cases) {
    if (c.own && SystemParsesModes) continue;
    TDCB dcb;
    dcb.ByteSize = dcb.Parity = dcb.StopBits = 9;
    TDCB before = dcb;
    bool ok = CommModeToDCB(c.text, dcb);
    EXPECT_EQ(
        ok ? Join(dcb.BaudRate, int(dcb.Parity), int(dcb.ByteSize), int(dcb.StopBits)) : "fail",
        c.result)
        << c.text;
    if (!ok) {
      EXPECT_EQ(std::memcmp(&dcb, &before, sizeof dcb), 0) << c.text;
    }
  }
  if (SystemParsesModes) return;
  TDCB dcb;
  ASSERT_TRUE(CommModeToDCB("baud=9600 xon=on rts=hs dtr=on octs=on", dcb));
  EXPECT_EQ(dcb.Flags, DcbFlag::OutX | DcbFlag::InX | DcbFlag::RtsHandshake | DcbFlag::DtrEnable |
                           DcbFlag::OutxCtsFlow);
}

// Values outside an enumeration are refused on every way in, and a refused device block
// changes nothing, so the saved text never holds anything but the letters it is made of.
TEST(CommPortSettings, OutOfRangeLineSettingsAreRefused) {
  TkxCommPort port;
  port.SetParity(ptOdd);
  const AnsiString before = port.ParamsText();
  // A device block of 1200 baud with the given bits, parity and stop bits.
  auto block = [&](Byte bits, Byte parity, Byte stop) {
    TDCB d;
    d.BaudRate = 1200;
    d.ByteSize = bits;
    d.Parity = parity;
    d.StopBits = stop;
    port.AssignDCB(d);
  };
  // clang-format off
  struct Case { const char* what; std::function<void()> set; } cases[] = {
      {"parity", [&] {port.SetParity(static_cast<TkxCommPortParity>(200));}},
      {"stop bits", [&] {port.SetStopBits(static_cast<TkxCommPortStopBits>(3));}},
      {"flow control", [&] {port.SetFlowControl(static_cast<TkxCommPortFlowControl>(3));}},
      {"data bits", [&] {port.SetDataBits(9);}}, {"block parity", [&] {block(7, 200, 0);}},
      {"block stop bits", [&] {block(7, 0, 3);}}, {"block data bits", [&] {block(4, 0, 0);}}};
  // clang-format on
  for (auto& c : cases) {
    EXPECT_THROW(c.set(), EInvalidArgument) << c.what;
    EXPECT_EQ(port.ParamsText(), before) << c.what;
  }
}

class CommPortStore : public ::testing::Test {
 protected:
  void Store(std::string_view value) {
    TRegistry reg;
    ASSERT_TRUE(reg.OpenKey(Key, true));
    reg.WriteString("Comm.DCB", value);
  }
  static AnsiString Settings(TkxCommPort& p) {
    return Join(int(p.PortNumber()), p.BaudRate(), int(p.Parity()), int(p.DataBits()),
                int(p.StopBits()));
  }
  static constexpr const char* Key = "\\Software\\Velmora Soft\\Test\\Scanner";
  testutil::SettingsSandbox sandbox{"\\Software\\Velmora Soft\\Test"};
};

TEST_F(CommPortStore, SavedSettingsReadBack) {
  TkxCommPort port;
  port.SetPortNumber(5);
  port.SetBaudRate(38400);
  port.SetParity(ptOdd);
  port.SetDataBits(7);
  port.SetStopBits(sb1p5);
  ASSERT_TRUE(port.RegSaveParams(HKEY_CURRENT_USER, Key));
  TRegistry reg;
  ASSERT_TRUE(reg.OpenKeyReadOnly(Key));
  EXPECT_EQ(reg.ReadString("Comm.DCB"), "COM5: BAUD=38400 PARITY=O DATA=7 STOP=1");
  TkxCommPort other;
  ASSERT_TRUE(other.RegLoadParams(HKEY_CURRENT_USER, Key, true));
  EXPECT_EQ(Settings(other), "5 38400 1 7 0");  // one and a half stop bits come back as one
}

TEST_F(CommPortStore, LoadingTheValueForms) {
  // clang-format off
  struct Case { const char* value; bool loadPort; const char* result; } cases[] = {
      {"com3:9600,n,8,1", true, "true 3 9600 0 8 0"},
      {"com3:9600,n,8,1", false, "true 2 9600 0 8 0"},
      {"  COM4  BAUD=1200 PARITY=E DATA=7 STOP=2 ", true, "true 4 1200 2 7 2"},
      {"COM3", true, "true 3 2400 1 6 2"}, {"2400,o,6,2", true, "true 2 2400 1 6 2"},
      {"COM7: garbage", true, "true 7 2400 1 6 2"},  // the line settings stay
      {"   ", true, "false 2 2400 1 6 2"}, {"baud=19200", false, "true 2 19200 0 6 0"}
  };  // a zeroed block; data bits stay
  // clang-format on
  for (auto c : cases) {
    Store(c.value);
    TkxCommPort port;
    port.SetBaudRate(2400);
    port.SetParity(ptOdd);
    port.SetDataBits(6);
    port.SetStopBits(sb2);
    bool found = port.RegLoadParams(HKEY_CURRENT_USER, Key, c.loadPort);
    EXPECT_EQ(Join(found ? "true" : "false", Settings(port)), c.result) << c.value;
  }
  TkxCommPort port;
  EXPECT_FALSE(port.RegLoadParams(HKEY_CURRENT_USER, "\\Software\\Velmora Soft\\Missing", true));
  Store("COM");
  EXPECT_EQ(MessageOf<EConvertError>([&] { port.RegLoadParams(HKEY_CURRENT_USER, Key, true); }),
            "'' is not a valid integer value");
  EXPECT_TRUE(port.RegLoadParams(HKEY_CURRENT_USER, Key, false));
}

// A port number keeps the classic text (it names the number, not the device behind it); a
// device path is named back with the reason.
TEST(CommPortOpen, AFailureNamesThePortOrThePath) {
  TkxCommPort numbered;
  numbered.SetPortNumber(9);
  SetCommPortDevice(9, "/nonexistent/tty");
  EXPECT_EQ(MessageOf([&] { numbered.Open(); }), Cp1251(u8"Порт COM9 занят или недоступен.").Str());
  SetCommPortDevice(9, "");
  EXPECT_EQ(Join(numbered.Active(), numbered.HandleAllocated()), "0 0");
#ifndef _WIN32
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("ostrel-port-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::ofstream(dir / "plain") << "not a device";
  const AnsiString notSerial = Cp1251(u8"это не последовательный порт и не терминал").Str();
  // clang-format off
  struct Case { std::string path; AnsiString reason; } cases[] = {
      {"/nonexistent/tty", Cp1251(u8"нет такого устройства").Str()},
      {dir.string(), Cp1251(u8"это каталог").Str()}, {(dir / "plain").string(), notSerial},
      {"/dev/null", notSerial}};
  // clang-format on
  for (const Case& c : cases) {
    TkxCommPort port;
    port.SetDevicePath(c.path);
    EXPECT_EQ(MessageOf([&] { port.Open(); }), Unavailable(c.path, c.reason));
    EXPECT_FALSE(port.Active());
  }
  fs::remove_all(dir);
#ifdef OSTREL_TEST_PTY
  // A terminal the user may not open (root may open any, so the case needs a plain user).
  if (::geteuid() != 0) {
    Pty locked;
    ASSERT_EQ(::chmod(locked.SlavePath().c_str(), 0), 0);
    TkxCommPort port;
    port.SetDevicePath(locked.SlavePath());
    EXPECT_EQ(MessageOf([&] { port.Open(); }),
              Unavailable(locked.SlavePath(), Cp1251(u8"нет прав доступа").Str()));
  }
#endif
#endif
}

// ---- with a device ---------------------------------------------------------------------

#ifndef OSTREL_TEST_PTY
TEST(CommPortDevice, NeedsAPseudoTerminal) {
  GTEST_SKIP() << "the device tests run over pseudo-terminals, which this system has not; "
                  "the Windows port is checked under Wine by .ci/wine.sh";
}
#else

// A port on the slave side of a fresh pseudo-terminal.
struct PtyPort {
  explicit PtyPort(TkxCommEvents events = {}, TkxCommSyncMethod sync = smThreadSync) {
    port.SetDevicePath(pty.SlavePath());
    port.SetEvents(events);
    port.SetSyncMethod(sync);
  }
  Pty pty;
  TkxCommPort port;
};

TEST(CommPortDevice, OpenAndCloseStates) {
  PtyPort p(TkxCommEvents{evRxChar});
  p.port.SetActive(true);
  EXPECT_EQ(Join(p.port.Active(), p.port.HandleAllocated()), "1 1");
  p.port.Open();  // open already: nothing happens
  // A second opener of the same device is refused.
  TkxCommPort second;
  second.SetDevicePath(p.pty.SlavePath());
  EXPECT_EQ(MessageOf([&] { second.Open(); }),
            Unavailable(p.pty.SlavePath(), Cp1251(u8"устройство занято другой программой").Str()));
  // Port number, events, sync method and device path are fixed while open; the line settings
  // are not.
  EXPECT_EQ(MessageOf([&] { p.port.SetPortNumber(3); }), AlreadyOpen);
  EXPECT_EQ(MessageOf([&] { p.port.SetEvents(TkxCommEvents::All()); }), AlreadyOpen);
  EXPECT_EQ(MessageOf([&] { p.port.SetSyncMethod(smNone); }), AlreadyOpen);
  EXPECT_EQ(MessageOf([&] { p.port.SetDevicePath("/dev/null"); }), AlreadyOpen);
  p.port.SetPortNumber(2);  // unchanged values pass
  EXPECT_EQ(Join(int(p.port.PortNumber()), p.port.Events().Bits()), "2 1");
  // (A pseudo-terminal keeps neither data bits nor parity; flow control and stop bits show.)
  p.port.SetFlowControl(fcXonXoff);
  p.port.SetStopBits(sb2);
  termios t{};
  int slave = ::open(p.pty.SlavePath().c_str(), O_RDONLY | O_NOCTTY);  // takes no lock
  ASSERT_EQ(::tcgetattr(slave, &t), 0);
  ::close(slave);
  EXPECT_EQ(Join((t.c_iflag & (IXON | IXOFF)) == (IXON | IXOFF), (t.c_cflag & CSTOPB) != 0,
                 (t.c_lflag & ICANON) == 0),
            "1 1 1");
  TDCB dcb;
  p.port.BuildDCB(dcb);  // filled from the device first
  EXPECT_EQ(Join(dcb.XonChar == 0x11, dcb.XoffChar == 0x13), "1 1");
  p.port.SetActive(false);
  EXPECT_EQ(Join(p.port.Active(), p.port.HandleAllocated()), "0 0");
  p.port.Close();  // closed already: harmless
  second.Open();   // the device is free again
  EXPECT_TRUE(second.Active());
}

TEST(CommPortDevice, PortNumbersOpenTheirMappedDevices) {
  Pty pty;
  EXPECT_EQ(Join(CommPortDevice(1), CommPortDevice(16)), "/dev/ttyS0 /dev/ttyS15");
  SetCommPortDevice(4, pty.SlavePath());
  TkxCommPort port;
  port.SetPortNumber(4);
  port.Open();
  EXPECT_EQ(port.WriteStr("via COM4", -1), 8);
  EXPECT_EQ(pty.ReadExactly(8, 1000), "via COM4");
  port.Close();
  SetCommPortDevice(4, "");
  EXPECT_EQ(CommPortDevice(4), "/dev/ttyS3");
}

TEST(CommPortDevice, OpenWaitsForLoadingAndNeverHappensInDesign) {
  Pty pty;
  TkxCommPort loading;
  loading.SetDevicePath(pty.SlavePath());
  loading.SetLoading(true);
  loading.SetActive(true);
  EXPECT_EQ(Join(loading.Active(), loading.HandleAllocated()), "1 0");
  loading.Loaded();
  EXPECT_EQ(Join(loading.Active(), loading.HandleAllocated()), "1 1");
  loading.Close();

  TkxCommPort designed;
  designed.SetDevicePath(pty.SlavePath());
  designed.SetDesigning(true);
  designed.SetActive(true);
  designed.SetLoading(true);
  designed.Loaded();
  EXPECT_EQ(Join(designed.Active(), designed.HandleAllocated()), "1 0");

  // A stored active port whose device is missing fails when its form is loaded.
  TkxCommPort broken;
  broken.SetDevicePath("/nonexistent/tty");
  broken.SetLoading(true);
  broken.SetActive(true);
  EXPECT_EQ(MessageOf([&] { broken.Loaded(); }),
            Unavailable("/nonexistent/tty", Cp1251(u8"нет такого устройства").Str()));
  EXPECT_FALSE(broken.Active());
}

TEST(CommPortDevice, ReadAndWriteBudgets) {
  PtyPort p;
  char buf[16] = {};
  EXPECT_EQ(p.port.Read(buf, 0, 1000), 0);  // closed, and still no failure: nothing asked
  EXPECT_EQ(MessageOf<EOSError>([&] { p.port.Read(buf, 1, 0); }).substr(0, 20),
            "System Error.  Code:");
  p.port.Open();
  EXPECT_EQ(p.port.WriteStr("hello", -1), 5);
  EXPECT_EQ(p.pty.ReadExactly(5, 1000), "hello");

  // Default budget 0 and the default time-outs: one read of what is queued.
  p.pty.Write("abc");
  ASSERT_TRUE(PumpUntil([&] { return p.port.InputCount() == 3; }));
  AnsiString s;
  EXPECT_EQ(p.port.ReadStr(s, 10, -1), 3);
  EXPECT_EQ(s, "abc");
  EXPECT_EQ(p.port.ReadStr(s, 10, -1), 0);

  // A budget collects bytes arriving in pieces.
  std::thread writer([&] {
    p.pty.Write("0123");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    p.pty.Write("456789");
  });
  EXPECT_EQ(p.port.ReadStr(s, 10, 5000), 10);
  writer.join();
  EXPECT_EQ(s, "0123456789");

  // The budget ends a read that cannot be filled.
  p.port.Buffer().ReadTimeout = 100;
  p.pty.Write("xy");
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(p.port.ReadStr(s, 10, -1), 2);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));

  // Driver time-outs: a total constant makes one read wait for its bytes.
  p.port.Timeouts().SetReadInterval(0);
  p.port.Timeouts().SetReadTotalC(2000);
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    p.pty.Write("late");
  });
  EXPECT_EQ(p.port.ReadStr(s, 4, 0), 4);
  late.join();
  EXPECT_EQ(Join(s, p.port.InputCount(), p.port.OutputCount()), "late 0 0");
}

// Events reach the handlers on the main thread (thread and window synchronisation) or on the
// worker (smNone); the data handler gets exactly the bytes sent.
TEST(CommPortDevice, EventsForEachSyncMethod) {
  for (TkxCommSyncMethod sync : {smThreadSync, smWindowSync, smNone}) {
    PtyPort p(TkxCommEvents{evRxChar, evTxEmpty}, sync);
    std::mutex lock;
    std::string data;
    bool onMain = true, txEmpty = false;
    p.port.OnReceiveData = [&](TObject* sender, const void* bytes, Integer size) {
      std::lock_guard g(lock);
      EXPECT_EQ(sender, &p.port);
      data.append(static_cast<const char*>(bytes), static_cast<std::size_t>(size));
      onMain = onMain && IsMainThread();
    };
    p.port.OnEvent = [&](TObject*, TkxCommEvents e) {
      std::lock_guard g(lock);
      txEmpty = txEmpty || e.Contains(evTxEmpty);
      EXPECT_TRUE(e.Contains(evTxEmpty) || e.Contains(evRxChar));
    };
    p.port.Open();
    p.pty.Write("scan-");
    p.pty.Write("me");
    p.port.WriteStr("!", -1);
    auto done = [&] {
      std::lock_guard g(lock);
      return data == "scan-me" && txEmpty;
    };
    EXPECT_TRUE(PumpUntil(done)) << int(sync) << " got " << data;
    EXPECT_EQ(onMain, sync != smNone) << int(sync);
    p.port.Close();
  }
}

// Closing while the worker waits, from inside each kind of handler, and a thousand times in a
// row: no hang, no crash, no leak.
TEST(CommPortDevice, CloseAnywhere) {
  for (TkxCommSyncMethod sync : {smThreadSync, smWindowSync, smNone}) {
    // Declared before the port: with smNone the last handler may still be running on the
    // worker when the port is destroyed, which waits for it.
    std::atomic<int> calls{0};
    std::atomic<bool> closed{false};
    PtyPort p(TkxCommEvents::All(), sync);
    p.port.OnReceiveData = [&](TObject*, const void*, Integer) {
      ++calls;
      p.port.Close();
      closed = !p.port.Active();
    };
    p.port.Open();
    p.pty.Write("x");
    EXPECT_TRUE(PumpUntil([&] { return closed.load(); })) << int(sync);
    // The worker left to finish frees the device as it ends: another port gets it.
    TkxCommPort other;
    other.SetDevicePath(p.pty.SlavePath());
    other.SetEvents({});
    EXPECT_TRUE(PumpUntil([&] {
      try {
        other.Open();
      } catch (const Exception&) {
      }
      return other.Active();
    })) << int(sync);
    other.Close();
    p.port.Open();  // waits for the worker left to finish; the port works again
    p.pty.Write("y");
    EXPECT_TRUE(PumpUntil([&] { return calls > 1; })) << int(sync);
    CheckSynchronize(0);
  }
  PtyPort p(TkxCommEvents::All());
  for (int i = 0; i < 1000; ++i) {
    p.port.Open();
    p.port.Close();
  }
  EXPECT_FALSE(p.port.HandleAllocated());
}

// A handler's exception reaches the main thread; the port keeps delivering.
TEST(CommPortDevice, HandlerFailuresSurfaceOnTheMainThread) {
  PtyPort p(TkxCommEvents{evRxChar}, smNone);
  std::atomic<int> calls{0};
  p.port.OnReceiveData = [&](TObject*, const void*, Integer) {
    if (++calls == 1) throw Exception("handler failed");
  };
  p.port.Open();
  p.pty.Write("a");
  std::string message;
  for (int i = 0; i < 500 && message.empty(); ++i) {
    try {
      CheckSynchronize(20);
    } catch (const Exception& e) {
      message = e.Message();
    }
  }
  EXPECT_EQ(message, "handler failed");
  p.pty.Write("b");
  EXPECT_TRUE(PumpUntil([&] { return calls == 2; }));
}

// A device that goes away is noticed by the worker with nothing under way, reported once as
// evError, and every later transfer says what happened; a transfer under way meets it too.
TEST(CommPortDevice, HangUpIsReportedIdleAndDuringTransfers) {
  for (TkxCommSyncMethod sync : {smThreadSync, smNone}) {
    PtyPort p(TkxCommEvents{evRxChar, evError}, sync);
    std::atomic<int> losses{0};
    p.port.OnEvent = [&](TObject*, TkxCommEvents e) {
      if (e.Contains(evError) && p.port.DeviceLost()) ++losses;
    };
    p.port.Open();
    EXPECT_FALSE(p.port.DeviceLost());
    p.pty.CloseMaster();
    EXPECT_TRUE(PumpUntil([&] { return losses > 0; })) << int(sync);
    char c = 'x';
    EXPECT_EQ(MessageOf<EOSError>([&] { p.port.Write(&c, 1, 100); }),
              "Write: the device went away (Input/output error)");
    EXPECT_EQ(MessageOf<EOSError>([&] { p.port.Read(&c, 1, 100); }),
              "Read: the device went away (Input/output error)");
    CheckSynchronize(50);
    EXPECT_EQ(losses.load(), 1) << int(sync);
    p.port.Close();
  }
  // Without a worker: a write blocked on a full line ends with the error once the line goes.
  PtyPort p;
  p.port.Open();
  std::thread hangUp([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    p.pty.CloseMaster();
  });
  std::vector<char> block(1 << 20, 'b');
  EXPECT_EQ(MessageOf<EOSError>(
                [&] { p.port.Write(block.data(), static_cast<Integer>(block.size()), 10000); }),
            "Write: the device went away (Input/output error)");
  hangUp.join();
  EXPECT_TRUE(p.port.DeviceLost());
}

// Closing drops nothing the other end has not read yet: what was written to a
// pseudo-terminal already sits in that end's input.
TEST(CommPortDevice, CloseKeepsWhatThePeerHasNotRead) {
  PtyPort p(TkxCommEvents{evRxChar});
  p.port.Open();
  AnsiString data(8000, 'z');
  ASSERT_EQ(p.port.WriteStr(data, 1000), 8000);
  p.port.Close();
  EXPECT_EQ(p.pty.ReadExactly(8000, 1000).size(), 8000u);
}

#endif

}  // namespace
