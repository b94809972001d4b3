// The serial port against plain reads and writes on the same pseudo-terminal: each benchmark
// moves the same bytes both ways in one run and reports both speeds and their ratio (port /
// raw; 1.0 means the port costs nothing). Every byte is checked in order on both sides (the
// check costs both sides the same), and a run that loses or changes one fails. 100 MB a run,
// or the megabytes in OSTREL_BENCH_VOLUME_MB.
//
//   build/bench/devices_bench --benchmark_min_time=2
#include <ostrel/devices/Kxcommport.h>

#include "../tests/devices/Pty.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

using namespace ostrel;
using testutil::ByteStream;
using testutil::Pty;

namespace {

const std::size_t Volume = [] {
  const char* mb = std::getenv("OSTREL_BENCH_VOLUME_MB");
  std::size_t n = mb ? std::strtoul(mb, nullptr, 10) : 0;
  return (n ? n : 100u) << 20;
}();
constexpr std::size_t Chunk = 64u << 10;

// The bytes sent: a stream with a prime period, so that chunks never line up with it, kept
// with a chunk's worth more so that any chunk is one contiguous window of it.
constexpr std::size_t Period = 65521;
const std::vector<char>& Pattern() {
  static const std::vector<char> pattern = [] {
    std::vector<char> p(Period + Chunk);
    ByteStream(7).Fill(p.data(), Period);
    std::memcpy(p.data() + Period, p.data(), Chunk);
    return p;
  }();
  return pattern;
}
const char* At(std::size_t position) { return Pattern().data() + position % Period; }

using Clock = std::chrono::steady_clock;

struct Outcome {
  double seconds = 0;
  bool intact = true;
};

// Moves Volume bytes: `move` pulls or pushes up to Chunk bytes through the side under test,
// the pty's master does the other end on a second thread; both check what they receive.
template <class Move>
Outcome Run(const Pty& pty, bool toMaster, Move move) {
  std::size_t peerGood = 0;
  std::thread peer([&] {
    if (toMaster) {
      std::vector<char> buf(Chunk);
      while (peerGood < Volume) {
        pollfd pfd{pty.Master(), POLLIN, 0};
        if (::poll(&pfd, 1, 10000) <= 0) break;
        ssize_t n = ::read(pty.Master(), buf.data(), Chunk);
        if (n <= 0 || std::memcmp(buf.data(), At(peerGood), static_cast<std::size_t>(n)) != 0)
          break;
        peerGood += static_cast<std::size_t>(n);
      }
    } else {
      for (std::size_t sent = 0; sent < Volume; sent += Chunk)
        pty.WriteAll(At(sent), std::min(Chunk, Volume - sent));
      peerGood = Volume;
    }
  });
  std::vector<char> mine(Chunk);
  Outcome r;
  auto start = Clock::now();
  std::size_t done = 0;
  while (done < Volume) {
    std::size_t want = std::min(Chunk, Volume - done);
    char* p = toMaster ? const_cast<char*>(At(done)) : mine.data();
    std::size_t n = move(p, want);
    if (n == 0) break;
    if (!toMaster && std::memcmp(mine.data(), At(done), n) != 0) break;
    done += n;
  }
  peer.join();
  r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  r.intact = done == Volume && peerGood == Volume;
  return r;
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
  bool intact = true;
  auto raw = [&] {
    Pty pty;
    int fd = RawSlave(pty);
    Outcome o = Run(pty, toMaster, [&](char* p, std::size_t n) -> std::size_t {
      ssize_t r = toMaster ? ::write(fd, p, n) : ::read(fd, p, n);
      return r > 0 ? static_cast<std::size_t>(r) : 0;
    });
    rawTime += o.seconds;
    intact = intact && o.intact;
    ::close(fd);
  };
  auto port = [&] {
    Pty pty;
    TkxCommPort commPort;
    commPort.SetDevicePath(pty.SlavePath());
    commPort.SetEvents({});
    commPort.Open();
    Outcome o = Run(pty, toMaster, [&](char* p, std::size_t n) -> std::size_t {
      Integer count = static_cast<Integer>(n);
      return static_cast<std::size_t>(toMaster ? commPort.Write(p, count, -1)
                                               : commPort.Read(p, count, 10000));
    });
    portTime += o.seconds;
    intact = intact && o.intact;
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
  if (!intact) state.SkipWithError("bytes were lost or changed on the way");
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
