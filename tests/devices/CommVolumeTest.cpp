// Volume through a pseudo-terminal: a few megabytes each way, every byte checked in order,
// through Read/Write and through OnReceiveData, enough for many full driver queues and partial
// transfers. Speed, and 100 MB runs, are measured in bench/devices_bench.
#include <gtest/gtest.h>

#ifdef _WIN32

TEST(CommPortVolume, NeedsAPseudoTerminal) {
  GTEST_SKIP() << "the volume tests run over pseudo-terminals, which this system has not";
}

#else

#include <ostrel/devices/Kxcommport.h>
#include <ostrel/rtl/Threads.h>

#include "Pty.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace ostrel;
using testutil::ByteStream;
using testutil::Pty;

namespace {

constexpr std::size_t Volume = 4u << 20;
constexpr std::size_t Chunk = 64u << 10;

// Writes Volume bytes of the stream with seed to the master.
void FeedMaster(const Pty& pty, std::uint64_t seed) {
  ByteStream stream(seed);
  std::vector<char> buf(Chunk);
  for (std::size_t sent = 0; sent < Volume; sent += Chunk) {
    stream.Fill(buf.data(), Chunk);
    pty.WriteAll(buf.data(), Chunk);
  }
}

// Takes up to Volume bytes through read (which fills a Chunk buffer and says how many bytes it
// gave, 0 at the end); the count of those matching the stream with seed in order.
template <class ReadFn>
std::size_t Drain(std::uint64_t seed, ReadFn read) {
  ByteStream stream(seed);
  std::vector<char> buf(Chunk);
  std::size_t good = 0;
  while (good < Volume) {
    const std::size_t n = read(buf.data());
    if (n == 0) break;
    const std::size_t ok = stream.Match(buf.data(), n);
    good += ok;
    if (ok != n) break;
  }
  return good;
}

TEST(CommPortVolume, ReadAndWrite) {
  Pty pty;
  TkxCommPort port;
  port.SetDevicePath(pty.SlavePath());
  port.SetEvents({});
  port.Open();

  std::thread feeder([&] { FeedMaster(pty, 1); });
  EXPECT_EQ(
      Drain(1,
            [&](char* buf) {
              return static_cast<std::size_t>(port.Read(buf, static_cast<Integer>(Chunk), 10000));
            }),
      Volume);
  feeder.join();

  std::size_t drained = 0;
  std::thread drainer([&] {
    drained = Drain(2, [&](char* buf) {
      const std::string part = pty.Read(Chunk, 10000);
      std::copy(part.begin(), part.end(), buf);
      return part.size();
    });
  });
  ByteStream source(2);
  std::vector<char> buf(Chunk);
  std::size_t written = 0;
  while (written < Volume) {
    source.Fill(buf.data(), Chunk);
    Integer n = port.Write(buf.data(), static_cast<Integer>(Chunk), -1);
    written += static_cast<std::size_t>(n);
    if (n != static_cast<Integer>(Chunk)) break;
  }
  drainer.join();
  EXPECT_EQ(written, Volume);
  EXPECT_EQ(drained, Volume);
}

TEST(CommPortVolume, ReceiveData) {
  Pty pty;
  TkxCommPort port;
  port.SetDevicePath(pty.SlavePath());
  port.SetEvents({evRxChar});
  port.SetSyncMethod(smNone);
  ByteStream expected(3);
  std::atomic<std::size_t> good{0};
  std::atomic<bool> broken{false};
  std::atomic<Integer> largest{0};
  int calls = 0;
  port.OnReceiveData = [&](TObject*, const void* data, Integer size) {
    std::size_t ok = expected.Match(static_cast<const char*>(data), static_cast<std::size_t>(size));
    good += ok;
    if (ok != static_cast<std::size_t>(size)) broken = true;
    largest = std::max(largest.load(), size);
    // A slow handler now and then: the driver's queue fills meanwhile, and what one batch
    // cannot take must still come without a new byte arriving to announce it.
    if (++calls % 32 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  };
  port.Open();
  FeedMaster(pty, 3);
  for (int i = 0; i < 1000 && good < Volume && !broken; ++i) CheckSynchronize(10);
  EXPECT_EQ(good.load(), Volume);
  EXPECT_FALSE(broken.load());
  // Bytes that arrive while a batch is read join it (a driver queue holds far less), up to 64 KB.
  EXPECT_GT(largest.load(), 4096);
  EXPECT_LE(largest.load(), 1 << 16);
}

}  // namespace

#endif
