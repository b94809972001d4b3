// The serial port against plain reads and writes on the same pseudo-terminal: each
// benchmark moves the same bytes both ways in one run and reports both speeds and their ratio
// (port / raw; 1.0 means the port costs nothing).
#include <ostrel/devices/Kxcommport.h>

#include "../tests/devices/Pty.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <fcntl.h>
#include <termios.h>
#include <thread>
#include <vector>

using namespace ostrel;
using testutil::Pty;

namespace {

constexpr std::size_t Volume = 16u << 20;
constexpr std::size_t Chunk = 64u << 10;

using Clock = std::chrono::steady_clock;

// Moves Volume bytes: `receive` or `send` pulls or pushes up to Chunk bytes through the side
// under test, the pty's master does the other end on a second thread. Seconds taken.
template <class Move>
double Run(const Pty& pty, bool toMaster, Move move) {
  std::vector<char> buf(Chunk, 'x');
  std::thread peer([&] {
    if (toMaster) {
      for (std::size_t got = 0; got < Volume;) {
        std::string s = pty.Read(Chunk, 10000);
        if (s.empty()) break;
        got += s.size();
      }
    } else {
      for (std::size_t sent = 0; sent < Volume; sent += Chunk) pty.WriteAll(buf.data(), Chunk);
    }
  });
  std::vector<char> mine(Chunk, 'y');
  auto start = Clock::now();
  for (std::size_t done = 0; done < Volume;) {
    std::size_t n = move(mine.data(), std::min(Chunk, Volume - done));
    if (n == 0) break;
    done += n;
  }
  peer.join();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

int RawSlave(const Pty& pty) {
  int fd = ::open(pty.SlavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  termios t{};
  ::tcgetattr(fd, &t);
  ::cfmakeraw(&t);
  t.c_cc[VMIN] = 1;
  t.c_cc[VTIME] = 0;
  ::tcsetattr(fd, TCSANOW, &t);
  return fd;
}

void Compare(benchmark::State& state, bool toMaster) {
  double rawTime = 0, portTime = 0;
  auto raw = [&] {
    Pty pty;
    int fd = RawSlave(pty);
    rawTime += Run(pty, toMaster, [&](char* p, std::size_t n) -> std::size_t {
      ssize_t r = toMaster ? ::write(fd, p, n) : ::read(fd, p, n);
      return r > 0 ? static_cast<std::size_t>(r) : 0;
    });
    ::close(fd);
  };
  auto port = [&] {
    Pty pty;
    TkxCommPort commPort;
    commPort.SetDevicePath(pty.SlavePath());
    commPort.SetEvents({});
    commPort.Open();
    portTime += Run(pty, toMaster, [&](char* p, std::size_t n) -> std::size_t {
      Integer count = static_cast<Integer>(n);
      return static_cast<std::size_t>(toMaster ? commPort.Write(p, count, -1) : commPort.Read(p, count, 10000));
    });
  };
  // Taking turns at going first, so that neither side gains from its place.
  bool rawFirst = true;
  for (auto _ : state) {
    if (rawFirst) {
      raw();
      port();
    } else {
      port();
      raw();
    }
    rawFirst = !rawFirst;
  }
  double mb = static_cast<double>(Volume) * static_cast<double>(state.iterations()) / 1e6;
  state.counters["raw_MBps"] = mb / rawTime;
  state.counters["port_MBps"] = mb / portTime;
  state.counters["ratio"] = rawTime / portTime;
}

void BM_PortRead(benchmark::State& state) { Compare(state, false); }
void BM_PortWrite(benchmark::State& state) { Compare(state, true); }

BENCHMARK(BM_PortRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PortWrite)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
