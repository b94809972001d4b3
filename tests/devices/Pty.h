// A pseudo-terminal pair for the device tests and benchmark: the port opens the slave by its
// path, the test talks raw bytes through the master.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>
#include <cerrno>
#include <stdexcept>
#include <string>

namespace ostrel::testutil {

class Pty {
 public:
  Pty() {
    fMaster = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fMaster < 0 || ::grantpt(fMaster) != 0 || ::unlockpt(fMaster) != 0)
      throw std::runtime_error("no pseudo-terminal");
    fSlave = ::ptsname(fMaster);
  }
  ~Pty() { CloseMaster(); }
  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;

  int Master() const { return fMaster; }
  // Hangs up the line, as a device that is unplugged.
  void CloseMaster() {
    if (fMaster >= 0) ::close(fMaster);
    fMaster = -1;
  }
  const std::string& SlavePath() const { return fSlave; }

  void Write(std::string_view s) const { WriteAll(s.data(), s.size()); }
  void WriteAll(const void* data, std::size_t size) const {
    auto* p = static_cast<const char*>(data);
    while (size > 0) {
      ssize_t n = ::write(fMaster, p, size);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw std::runtime_error("pty write failed");
      p += n;
      size -= static_cast<std::size_t>(n);
    }
  }
  // Up to size bytes, waiting at most ms for the first of them ("" when none came).
  std::string Read(std::size_t size, int ms) const {
    pollfd pfd{fMaster, POLLIN, 0};
    if (::poll(&pfd, 1, ms) <= 0) return {};
    std::string s(size, '\0');
    ssize_t n = ::read(fMaster, s.data(), size);
    s.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return s;
  }
  // Exactly size bytes (or fewer when ms pass without any).
  std::string ReadExactly(std::size_t size, int ms) const {
    std::string all;
    while (all.size() < size) {
      std::string part = Read(size - all.size(), ms);
      if (part.empty()) break;
      all += part;
    }
    return all;
  }

 private:
  int fMaster = -1;
  std::string fSlave;
};

// A deterministic byte stream: the same seed gives the same bytes, so a receiver checks order
// and content byte for byte without keeping what was sent.
class ByteStream {
 public:
  explicit ByteStream(std::uint64_t seed) : fState(seed | 1) {}
  void Fill(char* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) p[i] = static_cast<char>(Next());
  }
  // The number of leading bytes of p that match the stream (which advances over them).
  std::size_t Match(const char* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
      if (p[i] != static_cast<char>(Next())) return i;
    return n;
  }

 private:
  unsigned char Next() {
    fState ^= fState << 13;
    fState ^= fState >> 7;
    fState ^= fState << 17;
    return static_cast<unsigned char>(fState >> 24);
  }
  std::uint64_t fState;
};

}  // namespace ostrel::testutil
