// Dates for the date tests: written and shown as "yyyy-mm-dd" or "yyyy-mm-dd hh:nn", the open
// bounds as "Min" and "Max", and a clock pinned for the life of an object.
#pragma once

#include <ostrel/rtl/DateTime.h>

#include <cmath>
#include <string>
#include <string_view>

namespace ostrel::testdates {

inline TDateTime P(std::string_view s) {
  if (s == "Min") return std::trunc(MinDateTime);
  if (s == "Max") return std::trunc(MaxDateTime);
  const auto num = [&](std::size_t at, std::size_t len) -> Word {
    return at < s.size() ? static_cast<Word>(std::stoi(std::string(s.substr(at, len)))) : 0;
  };
  return EncodeDateTime(num(0, 4), num(5, 2), num(8, 2), num(11, 2), num(14, 2), 0, 0);
}

inline std::string S(TDateTime d) {
  if (d == std::trunc(MinDateTime)) return "Min";
  if (d == std::trunc(MaxDateTime)) return "Max";
  const bool timed = HourOf(d) != 0 || MinuteOf(d) != 0;
  return FormatDateTime(timed ? "yyyy-mm-dd hh:nn" : "yyyy-mm-dd", d, TFormatSettings::Invariant());
}

inline std::string S(TDateTime lo, TDateTime hi) { return S(lo) + " .. " + S(hi); }

inline TDateTime gPinned = 0;
inline TDateTime PinnedNow() { return gPinned; }

class PinnedClock {
 public:
  explicit PinnedClock(TDateTime now) : fPrev(SetClock(&PinnedNow)) { gPinned = now; }
  ~PinnedClock() { SetClock(fPrev); }
  PinnedClock(const PinnedClock&) = delete;
  PinnedClock& operator=(const PinnedClock&) = delete;

 private:
  TClockFunc fPrev;
};

}  // namespace ostrel::testdates
