// Shared helpers for the libFuzzer targets in this folder.
//
// A finding is anything but a clean return or one of the library's own exceptions: a crash,
// a sanitizer report, a hang, runaway memory, an exception of another class (it escapes
// LLVMFuzzerTestOneInput and aborts the run), or a failed Require.
#pragma once

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace ostrel::fuzz {

// Runs fn; the library's own exceptions are the expected answer to bad input, anything else
// escapes.
template <class Fn>
bool Guarded(Fn&& fn) {
  try {
    fn();
    return true;
  } catch (const Exception&) {
    return false;
  }
}

// A broken invariant (text that does not read back, two answers that disagree): prints the
// reason and aborts, so that libFuzzer keeps the input.
[[noreturn]] inline void Fail(std::string_view what, std::string_view detail = {}) {
  std::fprintf(stderr, "fuzz finding: %.*s\n", static_cast<int>(what.size()), what.data());
  if (!detail.empty())
    std::fprintf(stderr, "  detail: %.*s\n", static_cast<int>(detail.size()), detail.data());
  std::abort();
}

inline void Require(bool ok, std::string_view what, std::string_view detail = {}) {
  if (!ok) Fail(what, detail);
}

// Takes typed pieces from the front of the fuzzer's bytes; an exhausted input gives zeros
// and empty texts, never an error.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : fData(reinterpret_cast<const char*>(data)), fSize(size) {}

  std::size_t Left() const { return fSize - fPos; }
  bool Empty() const { return fPos >= fSize; }

  std::uint8_t Byte() { return fPos < fSize ? static_cast<std::uint8_t>(fData[fPos++]) : 0; }
  bool Bool() { return Byte() & 1; }

  template <class T>
  T Raw() {
    T value{};
    std::size_t n = sizeof(T) < Left() ? sizeof(T) : Left();
    std::memcpy(&value, fData + fPos, n);
    fPos += n;
    return value;
  }

  // A value in lo .. hi (inclusive).
  Int64 Range(Int64 lo, Int64 hi) {
    UInt64 span = static_cast<UInt64>(hi) - static_cast<UInt64>(lo) + 1;
    UInt64 v = Raw<UInt64>();
    return span == 0 ? static_cast<Int64>(v) : lo + static_cast<Int64>(v % span);
  }

  // A text whose length comes first (one byte, so at most 255 bytes).
  std::string_view Text() {
    std::size_t n = Byte();
    if (n > Left()) n = Left();
    std::string_view s(fData + fPos, n);
    fPos += n;
    return s;
  }

  // Up to the next byte equal to sep (consumed) or the end.
  std::string_view Until(char sep) {
    const char* start = fData + fPos;
    const void* hit = std::memchr(start, sep, Left());
    std::size_t n = hit ? static_cast<std::size_t>(static_cast<const char*>(hit) - start) : Left();
    fPos += n + (hit ? 1 : 0);
    return {start, n};
  }

  std::string_view Rest() {
    std::string_view s(fData + fPos, Left());
    fPos = fSize;
    return s;
  }

 private:
  const char* fData;
  std::size_t fSize;
  std::size_t fPos = 0;
};

}  // namespace ostrel::fuzz
