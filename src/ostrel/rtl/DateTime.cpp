// Dates and times: calendar arithmetic on TDateTime, the replaceable process-wide clock, and
// the pattern formatting and scanning driven by a TFormatSettings record.
#include <ostrel/rtl/DateTime.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <ctime>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace ostrel {

namespace {

constexpr Int64 kMSecsPerDay = 86400000;
// Adding this to a day number (days since 1899-12-30) gives the day count from 0000-12-31,
// so that 0001-01-01 is day 1 of that count.
constexpr Int64 kDateDelta = 693594;

constexpr Word kMonthDays[2][12] = {{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
                                    {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}};

bool Leap(unsigned year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

[[noreturn]] void Raise(std::string_view pattern, std::string_view text) {
  AnsiString msg;
  const std::size_t at = pattern.find("%s");
  if (at == std::string_view::npos) {
    msg = pattern;
  } else {
    msg.reserve(pattern.size() + text.size());
    msg.append(pattern.substr(0, at)).append(text).append(pattern.substr(at + 2));
  }
  throw EConvertError(msg);
}

// Nearest integer, ties to even: what the x87 store does with the default control word.
long double RoundHalfEven(long double x) {
  long double f = std::floor(x);
  const long double diff = x - f;
  if (diff > 0.5L || (diff == 0.5L && std::fmod(f, 2.0L) != 0)) f += 1;
  return f;
}

// A moment split into the day number and the millisecond of that day. The whole value is
// rounded to the millisecond first, so a value a hair below midnight belongs to the next
// day at 00:00:00.000 rather than to 23:59:59.1000. For negative values the time counts away
// from the day number.
struct Stamp {
  Int64 day;
  Int64 ms;
};

// The stamp of a finite value within a day or so of the calendar's ends.
Stamp RawStamp(TDateTime value) {
  const long double product = static_cast<long double>(value) * kMSecsPerDay;
  const Int64 ms = static_cast<Int64>(RoundHalfEven(product));
  const Int64 magnitude = ms < 0 ? -ms : ms;
  Stamp st{magnitude / kMSecsPerDay, magnitude % kMSecsPerDay};
  if (ms < 0) st.day = -st.day;
  return st;
}

Stamp ToStamp(TDateTime value) {
  if (std::isnan(value)) return {-kDateDelta, 0};
  if (value > MaxDateTime) value = MaxDateTime;
  // Anything earlier than 0001-01-01 decodes as "no date"; clamping keeps the product finite.
  if (value < -static_cast<double>(kDateDelta + 1)) value = -static_cast<double>(kDateDelta + 1);
  return RawStamp(value);
}

TDateTime Compose(Int64 day, Int64 ms) {
  const double date = static_cast<double>(day);
  const double time = static_cast<double>(ms) / MSecsPerDay;
  return date < 0 ? date - time : date + time;
}

struct Ymd {
  Word year = 0, month = 0, day = 0;
};

// Day number -> calendar date; days before 0001-01-01 give 0-0-0.
Ymd DayToYmd(Int64 dayNumber) {
  Int64 n = dayNumber + kDateDelta;
  if (n <= 0) return {};
  n -= 1;  // days elapsed since 0001-01-01
  Int64 year = 1 + 400 * (n / 146097);
  n %= 146097;
  Int64 centuries = n / 36524;
  if (centuries == 4) centuries = 3;  // the last day of a 400-year cycle
  n -= centuries * 36524;
  year += 100 * centuries + 4 * (n / 1461);
  n %= 1461;
  Int64 years = n / 365;
  if (years == 4) years = 3;  // the last day of a leap cycle
  n -= years * 365;
  year += years;
  Ymd out;
  out.year = static_cast<Word>(year);
  const Word* table = kMonthDays[Leap(out.year)];
  int month = 0;
  while (n >= table[month]) n -= table[month++];
  out.month = static_cast<Word>(month + 1);
  out.day = static_cast<Word>(n + 1);
  return out;
}

bool ValidDate(int year, int month, int day) {
  return year >= 1 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 &&
         day <= kMonthDays[Leap(year)][month - 1];
}

// Day number of a valid calendar date.
Int64 YmdToDay(int year, int month, int day) {
  const Int64 y = year - 1;
  Int64 days = y * 365 + y / 4 - y / 100 + y / 400 + day;
  const Word* table = kMonthDays[Leap(year)];
  for (int m = 0; m < month - 1; ++m) days += table[m];
  return days - kDateDelta;
}

// 1 = Sunday ... 7 = Saturday.
int WeekDay(Int64 dayNumber) {
  Int64 r = (dayNumber + kDateDelta) % 7;
  if (r < 0) r += 7;
  return static_cast<int>(r) + 1;
}

// The moment on a straight time line: whole days plus the time of day, whatever the sign.
double Linear(TDateTime value) {
  if (value >= 0) return value;
  const double day = std::trunc(value);
  return day + (day - value);
}

void AppendNumber(AnsiString& out, unsigned value, int minDigits) {
  char buf[12];
  int len = 0;
  do {
    buf[len++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  for (int i = len; i < minDigits; ++i) out.push_back('0');
  while (len > 0) out.push_back(buf[--len]);
}

char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

bool StartsWithText(std::string_view s, std::size_t at, std::string_view what) {
  if (s.size() - at < what.size()) return false;
  for (std::size_t i = 0; i < what.size(); ++i)
    if (AsciiUpper(s[at + i]) != AsciiUpper(what[i])) return false;
  return true;
}

// ---- formatting -----------------------------------------------------------------------

class DateFormatter {
 public:
  DateFormatter(const TFormatSettings& settings, TDateTime value) : fSettings(settings) {
    const Stamp st = ToStamp(value);
    fDate = DayToYmd(st.day);
    fDayOfWeek = WeekDay(st.day);
    Int64 ms = st.ms;
    fHour = static_cast<unsigned>(ms / 3600000);
    ms %= 3600000;
    fMin = static_cast<unsigned>(ms / 60000);
    ms %= 60000;
    fSec = static_cast<unsigned>(ms / 1000);
    fMSec = static_cast<unsigned>(ms % 1000);
  }

  // Nested formats (ddddd, t, c ...) expand one level deep only, so a format that names
  // itself cannot recurse without end.
  void Append(std::string_view fmt, int depth) {
    if (depth >= 2) return;
    char lastToken = ' ';
    bool use12Hour = false;
    std::size_t i = 0;
    while (i < fmt.size()) {
      const char starter = fmt[i++];
      char token = AsciiUpper(starter);
      if (token >= 'A' && token <= 'Z') {
        if (token == 'M' && lastToken == 'H') token = 'N';
        lastToken = token;
      }
      // Runs are counted by the exact character, so "Dd" is two one-letter tokens.
      auto count = [&]() {
        int n = 1;
        while (i < fmt.size() && fmt[i] == starter) ++i, ++n;
        return n;
      };
      switch (token) {
        case 'Y': {
          const int n = count();
          if (n <= 2)
            AppendNumber(fOut, fDate.year % 100u, 2);
          else
            AppendNumber(fOut, fDate.year, 4);
          break;
        }
        case 'M': {
          const int n = count();
          if (n <= 2)
            AppendNumber(fOut, fDate.month, n);
          else if (fDate.month >= 1)
            fOut += n == 3 ? fSettings.ShortMonthNames[fDate.month - 1]
                           : fSettings.LongMonthNames[fDate.month - 1];
          break;
        }
        case 'D': {
          const int n = count();
          if (n <= 2)
            AppendNumber(fOut, fDate.day, n);
          else if (n == 3)
            fOut += fSettings.ShortDayNames[fDayOfWeek - 1];
          else if (n == 4)
            fOut += fSettings.LongDayNames[fDayOfWeek - 1];
          else if (n == 5)
            Append(fSettings.ShortDateFormat, depth + 1);
          else
            Append(fSettings.LongDateFormat, depth + 1);
          break;
        }
        case 'H': {
          const int n = count();
          if (FollowedByAmPm(fmt, i)) use12Hour = true;
          unsigned h = fHour;
          if (use12Hour) {
            if (h == 0)
              h = 12;
            else if (h > 12)
              h -= 12;
          }
          AppendNumber(fOut, h, n > 2 ? 2 : n);
          break;
        }
        case 'N': {
          const int n = count();
          AppendNumber(fOut, fMin, n > 2 ? 2 : n);
          break;
        }
        case 'S': {
          const int n = count();
          AppendNumber(fOut, fSec, n > 2 ? 2 : n);
          break;
        }
        case 'Z': {
          const int n = count();
          AppendNumber(fOut, fMSec, n > 3 ? 3 : n);
          break;
        }
        case 'T': {
          const int n = count();
          Append(n == 1 ? fSettings.ShortTimeFormat : fSettings.LongTimeFormat, depth + 1);
          break;
        }
        case 'C': {
          count();
          Append(fSettings.ShortDateFormat, depth + 1);
          // Milliseconds alone do not count as a time of day here.
          if (fHour != 0 || fMin != 0 || fSec != 0) {
            fOut.push_back(' ');
            Append(fSettings.LongTimeFormat, depth + 1);
          }
          break;
        }
        case 'A': {
          const std::size_t at = i - 1;
          const bool pm = fHour >= 12;
          if (StartsWithText(fmt, at, "am/pm")) {
            fOut.append(fmt.substr(pm ? at + 3 : at, 2));
            i = at + 5;
          } else if (StartsWithText(fmt, at, "a/p")) {
            fOut.push_back(fmt[pm ? at + 2 : at]);
            i = at + 3;
          } else if (StartsWithText(fmt, at, "ampm")) {
            fOut += pm ? fSettings.TimePMString : fSettings.TimeAMString;
            i = at + 4;
          } else {
            fOut.push_back(starter);
          }
          break;
        }
        case '\'':
        case '"': {
          const std::size_t end = fmt.find(starter, i);
          if (end == std::string_view::npos) {
            fOut.append(fmt.substr(i));
            i = fmt.size();
          } else {
            fOut.append(fmt.substr(i, end - i));
            i = end + 1;
          }
          break;
        }
        case '/':
          if (fSettings.DateSeparator != 0) fOut.push_back(fSettings.DateSeparator);
          break;
        case ':':
          if (fSettings.TimeSeparator != 0) fOut.push_back(fSettings.TimeSeparator);
          break;
        default: fOut.push_back(starter); break;
      }
    }
  }

  AnsiString& Result() { return fOut; }

 private:
  // An hour shows on the 12-hour clock when an am/pm marker follows it before the next
  // hour; quoted text is skipped and the first 'a' outside quotes decides.
  static bool FollowedByAmPm(std::string_view fmt, std::size_t from) {
    bool quoted = false;
    for (std::size_t p = from; p < fmt.size(); ++p) {
      const char c = fmt[p];
      if (c == '\'' || c == '"') {
        quoted = !quoted;
      } else if (quoted) {
        continue;
      } else if (c == 'h' || c == 'H') {
        return false;
      } else if (c == 'a' || c == 'A') {
        return StartsWithText(fmt, p, "am/pm") || StartsWithText(fmt, p, "a/p") ||
               StartsWithText(fmt, p, "ampm");
      }
    }
    return false;
  }

  const TFormatSettings& fSettings;
  Ymd fDate;
  int fDayOfWeek;
  unsigned fHour, fMin, fSec, fMSec;
  AnsiString fOut;
};

// ---- scanning -------------------------------------------------------------------------

enum class DateOrder { MDY, DMY, YMD };

// The first of the letters d, m, y in the short date format decides the field order.
DateOrder GetDateOrder(std::string_view fmt) {
  for (char c : fmt) {
    switch (AsciiUpper(c)) {
      case 'E':
      case 'Y': return DateOrder::YMD;
      case 'M': return DateOrder::MDY;
      case 'D': return DateOrder::DMY;
      default: break;
    }
  }
  return DateOrder::MDY;
}

class Scanner {
 public:
  Scanner(std::string_view s, const TFormatSettings& settings) : fText(s), fSettings(settings) {}

  bool AtEnd() const { return fPos >= fText.size(); }
  bool AfterBlank() const { return fPos > 0 && fText[fPos - 1] == ' '; }

  bool Date(TDateTime& value) {
    Word n1, n2, n3 = 0;
    int l1, l2, l3 = 0;
    if (!Number(n1, l1) || !Char(fSettings.DateSeparator) || !Number(n2, l2)) return false;
    const DateOrder order = GetDateOrder(fSettings.ShortDateFormat);
    int y, m, d;
    if (Char(fSettings.DateSeparator)) {
      if (!Number(n3, l3)) return false;
      int yearLen;
      switch (order) {
        case DateOrder::MDY: y = n3, yearLen = l3, m = n1, d = n2; break;
        case DateOrder::DMY: y = n3, yearLen = l3, m = n2, d = n1; break;
        default: y = n1, yearLen = l1, m = n2, d = n3; break;
      }
      if (yearLen <= 2) {
        const int window = fSettings.TwoDigitYearCenturyWindow;
        const int base = YearOf(Now()) - window;
        y += base / 100 * 100;
        if (window > 0 && y < base) y += 100;
      }
    } else {
      // Day and month only: the current year.
      y = YearOf(Now());
      if (order == DateOrder::DMY)
        d = n1, m = n2;
      else
        m = n1, d = n2;
    }
    Char(fSettings.DateSeparator);  // a trailing separator is tolerated
    Blanks();
    if (!ValidDate(y, m, d)) return false;
    value = static_cast<double>(YmdToDay(y, m, d));
    return true;
  }

  bool Time(TDateTime& value) {
    int baseHour = AmPm();
    if (baseHour >= 0) Blanks();
    Word hour, min = 0, sec = 0, msec = 0;
    int len;
    if (!Number(hour, len)) return false;
    if (Char(fSettings.TimeSeparator)) {
      if (!Number(min, len)) return false;
      if (Char(fSettings.TimeSeparator)) {
        if (!Number(sec, len)) return false;
        // The digits after the point are a count of milliseconds, not a fraction:
        // "10:00:00.5" is 5 ms, as the classic scanner reads it.
        if (Char('.') || Char(fSettings.DecimalSeparator))
          if (!Number(msec, len)) return false;
      }
    }
    if (baseHour < 0) baseHour = AmPm();
    if (baseHour >= 0) {
      if (hour == 0 || hour > 12) return false;
      if (hour == 12) hour = 0;
      hour = static_cast<Word>(hour + baseHour);
    }
    Blanks();
    return TryEncodeTime(hour, min, sec, msec, value);
  }

 private:
  void Blanks() {
    while (fPos < fText.size() && fText[fPos] == ' ') ++fPos;
  }

  // Up to four digits: reading stops once the value reaches 1000.
  bool Number(Word& value, int& length) {
    Blanks();
    std::size_t p = fPos;
    unsigned n = 0;
    while (p < fText.size() && fText[p] >= '0' && fText[p] <= '9' && n < 1000)
      n = n * 10 + static_cast<unsigned>(fText[p++] - '0');
    if (p == fPos) return false;
    length = static_cast<int>(p - fPos);
    value = static_cast<Word>(n);
    fPos = p;
    return true;
  }

  bool Char(char c) {
    Blanks();
    if (fPos < fText.size() && fText[fPos] == c) {
      ++fPos;
      return true;
    }
    return false;
  }

  bool Symbol(std::string_view sym) {
    if (sym.empty()) return false;
    Blanks();
    if (fText.size() - fPos < sym.size() || !AnsiSameText(fText.substr(fPos, sym.size()), sym))
      return false;
    fPos += sym.size();
    return true;
  }

  // 0 for a morning marker, 12 for an afternoon one, -1 for none.
  int AmPm() {
    if (Symbol(fSettings.TimeAMString) || Symbol("AM")) return 0;
    if (Symbol(fSettings.TimePMString) || Symbol("PM")) return 12;
    return -1;
  }

  std::string_view fText;
  const TFormatSettings& fSettings;
  std::size_t fPos = 0;
};

TDateTime CurrentSystemTime() {
#if defined(_WIN32)
  SYSTEMTIME st;
  GetLocalTime(&st);
  TDateTime date = 0, time = 0;
  TryEncodeDate(st.wYear, st.wMonth, st.wDay, date);
  TryEncodeTime(st.wHour, st.wMinute, st.wSecond, st.wMilliseconds, time);
  return ComposeDateTime(date, time);
#else
  using namespace std::chrono;
  const Int64 ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  Int64 secs = ms / 1000;
  Int64 milli = ms % 1000;
  if (milli < 0) milli += 1000, secs -= 1;
  const std::time_t t = static_cast<std::time_t>(secs);
  std::tm tm{};
  if (localtime_r(&t, &tm) == nullptr) return 0;
  TDateTime date = 0, time = 0;
  TryEncodeDate(static_cast<Word>(tm.tm_year + 1900), static_cast<Word>(tm.tm_mon + 1),
                static_cast<Word>(tm.tm_mday), date);
  // A leap second shows as the last second of its minute.
  const int sec = tm.tm_sec > 59 ? 59 : tm.tm_sec;
  TryEncodeTime(static_cast<Word>(tm.tm_hour), static_cast<Word>(tm.tm_min), static_cast<Word>(sec),
                static_cast<Word>(milli), time);
  return ComposeDateTime(date, time);
#endif
}

std::atomic<TClockFunc> gClock{&SystemNow};

}  // namespace

// ---- calendar ---------------------------------------------------------------------------

bool IsLeapYear(Word year) { return Leap(year); }

Word DaysInAMonth(Word year, Word month) {
  if (month < 1 || month > 12) return 0;
  return kMonthDays[Leap(year)][month - 1];
}

Word DaysInAYear(Word year) { return Leap(year) ? 366 : 365; }

bool TryEncodeDate(Word year, Word month, Word day, TDateTime& date) {
  if (!ValidDate(year, month, day)) return false;
  date = static_cast<double>(YmdToDay(year, month, day));
  return true;
}

TDateTime EncodeDate(Word year, Word month, Word day) {
  TDateTime result;
  if (!TryEncodeDate(year, month, day, result)) throw EConvertError(SysConst::SDateEncodeError);
  return result;
}

bool TryEncodeTime(Word hour, Word min, Word sec, Word msec, TDateTime& time) {
  if (hour >= 24 || min >= 60 || sec >= 60 || msec >= 1000) return false;
  const Int64 ms = hour * Int64{3600000} + min * Int64{60000} + sec * Int64{1000} + msec;
  time = static_cast<double>(ms) / MSecsPerDay;
  return true;
}

TDateTime EncodeTime(Word hour, Word min, Word sec, Word msec) {
  TDateTime result;
  if (!TryEncodeTime(hour, min, sec, msec, result)) throw EConvertError(SysConst::STimeEncodeError);
  return result;
}

bool TryEncodeDateTime(Word year, Word month, Word day, Word hour, Word min, Word sec, Word msec,
                       TDateTime& value) {
  TDateTime date, time;
  if (!TryEncodeDate(year, month, day, date) || !TryEncodeTime(hour, min, sec, msec, time))
    return false;
  value = date < 0 ? date - time : date + time;
  return true;
}

TDateTime EncodeDateTime(Word year, Word month, Word day, Word hour, Word min, Word sec,
                         Word msec) {
  const TDateTime date = EncodeDate(year, month, day);
  const TDateTime time = EncodeTime(hour, min, sec, msec);
  return date < 0 ? date - time : date + time;
}

TDateTime ComposeDateTime(TDateTime date, TDateTime time) {
  const double day = std::trunc(date);
  const double t = std::fabs(time - std::trunc(time));
  return date < 0 ? day - t : day + t;
}

void DecodeDate(TDateTime value, Word& year, Word& month, Word& day) {
  const Ymd d = DayToYmd(ToStamp(value).day);
  year = d.year;
  month = d.month;
  day = d.day;
}

bool DecodeDateFully(TDateTime value, Word& year, Word& month, Word& day, Word& dow) {
  const Stamp st = ToStamp(value);
  const Ymd d = DayToYmd(st.day);
  year = d.year;
  month = d.month;
  day = d.day;
  dow = static_cast<Word>(WeekDay(st.day));
  return d.year != 0 && Leap(d.year);
}

namespace {

void SplitTime(Int64 ms, Word& hour, Word& min, Word& sec, Word& msec) {
  hour = static_cast<Word>(ms / 3600000);
  ms %= 3600000;
  min = static_cast<Word>(ms / 60000);
  ms %= 60000;
  sec = static_cast<Word>(ms / 1000);
  msec = static_cast<Word>(ms % 1000);
}

}  // namespace

void DecodeTime(TDateTime value, Word& hour, Word& min, Word& sec, Word& msec) {
  SplitTime(ToStamp(value).ms, hour, min, sec, msec);
}

void DecodeDateTime(TDateTime value, Word& year, Word& month, Word& day, Word& hour, Word& min,
                    Word& sec, Word& msec) {
  DecodeDate(value, year, month, day);
  DecodeTime(value, hour, min, sec, msec);
}

void DecodeDateTimeStrict(TDateTime value, Word& year, Word& month, Word& day, Word& hour,
                          Word& min, Word& sec, Word& msec) {
  // The bounds keep the product finite; the exact test is on the rounded stamp, since a
  // value a hair past MaxDateTime still rounds to 9999-12-31 23:59:59.999.
  constexpr double kLastDay = 2958465;  // 9999-12-31
  bool valid =
      std::isfinite(value) && value > -static_cast<double>(kDateDelta + 1) && value < kLastDay + 1;
  Stamp st{};
  if (valid) {
    st = RawStamp(value);
    valid = st.day + kDateDelta >= 1 && st.day <= static_cast<Int64>(kLastDay);
  }
  if (!valid) throw EConvertError(Format(SysConst::SInvalidDateTime, FloatToStr(value)));
  const Ymd d = DayToYmd(st.day);
  year = d.year;
  month = d.month;
  day = d.day;
  SplitTime(st.ms, hour, min, sec, msec);
}

TDateTime DateOf(TDateTime value) { return std::trunc(value); }
TDateTime TimeOf(TDateTime value) { return std::fabs(value - std::trunc(value)); }

Word YearOf(TDateTime value) { return DayToYmd(ToStamp(value).day).year; }
Word MonthOf(TDateTime value) { return DayToYmd(ToStamp(value).day).month; }
Word DayOf(TDateTime value) { return DayToYmd(ToStamp(value).day).day; }
Word HourOf(TDateTime value) { return static_cast<Word>(ToStamp(value).ms / 3600000); }
Word MinuteOf(TDateTime value) { return static_cast<Word>(ToStamp(value).ms / 60000 % 60); }
Word SecondOf(TDateTime value) { return static_cast<Word>(ToStamp(value).ms / 1000 % 60); }
Word MilliSecondOf(TDateTime value) { return static_cast<Word>(ToStamp(value).ms % 1000); }

int DayOfWeek(TDateTime value) { return WeekDay(ToStamp(value).day); }

int DayOfTheWeek(TDateTime value) { return (DayOfWeek(value) + 5) % 7 + 1; }

Word WeekOfTheYear(TDateTime value, Word& year) {
  const Int64 day = ToStamp(value).day;
  if (day + kDateDelta <= 0) {
    year = 0;
    return 0;
  }
  // The week belongs to the year that holds its Thursday.
  const int iso = (WeekDay(day) + 5) % 7 + 1;
  const Int64 thursday = day - (iso - 1) + 3;
  year = DayToYmd(thursday).year;
  return static_cast<Word>((thursday - YmdToDay(year, 1, 1)) / 7 + 1);
}

Word WeekOfTheYear(TDateTime value) {
  Word year;
  return WeekOfTheYear(value, year);
}

TDateTime IncMonth(TDateTime value, int numberOfMonths) {
  const Stamp st = ToStamp(value);
  const Ymd d = DayToYmd(st.day);
  if (d.year == 0) throw EConvertError(SysConst::SDateEncodeError);
  const Int64 total = Int64{d.year} * 12 + (d.month - 1) + numberOfMonths;
  const Int64 year = total >= 0 ? total / 12 : -((11 - total) / 12);
  const int month = static_cast<int>(total - year * 12) + 1;
  if (year < 1 || year > 9999) throw EConvertError(SysConst::SDateEncodeError);
  const int last = kMonthDays[Leap(static_cast<unsigned>(year))][month - 1];
  const int day = d.day > last ? last : d.day;
  return Compose(YmdToDay(static_cast<int>(year), month, day), st.ms);
}

TDateTime IncYear(TDateTime value, int numberOfYears) {
  const Int64 months = Int64{numberOfYears} * 12;
  // Anything beyond the calendar's 10 000 years fails in IncMonth anyway.
  const Int64 limit = 240000;
  const Int64 clamped = months > limit ? limit : months < -limit ? -limit : months;
  return IncMonth(value, static_cast<int>(clamped));
}

TDateTime IncDay(TDateTime value, int numberOfDays) {
  const double day = std::trunc(value) + numberOfDays;
  if (value >= 0 && day >= 0) return value + numberOfDays;
  // Crossing or below the epoch the time of day keeps its distance from the day number.
  const double time = std::fabs(value - std::trunc(value));
  return day < 0 ? day - time : day + time;
}

TDateTime IncWeek(TDateTime value, int numberOfWeeks) {
  const Int64 days = Int64{numberOfWeeks} * 7;
  const int clamped = days > INT_MAX ? INT_MAX : days < INT_MIN ? INT_MIN : static_cast<int>(days);
  return IncDay(value, clamped);
}

TDateTime StartOfTheDay(TDateTime value) { return std::trunc(value); }

TDateTime EndOfTheDay(TDateTime value) {
  Word y, m, d;
  DecodeDate(value, y, m, d);
  return EncodeDateTime(y, m, d, 23, 59, 59, 999);
}

TDateTime StartOfTheMonth(TDateTime value) {
  Word y, m, d;
  DecodeDate(value, y, m, d);
  return EncodeDate(y, m, 1);
}

TDateTime EndOfTheMonth(TDateTime value) {
  Word y, m, d;
  DecodeDate(value, y, m, d);
  return EncodeDateTime(y, m, DaysInAMonth(y, m), 23, 59, 59, 999);
}

TDateTime StartOfTheYear(TDateTime value) { return EncodeDate(YearOf(value), 1, 1); }

TDateTime EndOfTheYear(TDateTime value) {
  return EncodeDateTime(YearOf(value), 12, 31, 23, 59, 59, 999);
}

Integer DaysBetween(TDateTime a, TDateTime b) {
  // Half a millisecond absorbs the representation error of a difference that should be a
  // whole number of days. Both moments are put on one time line first, so the span across
  // the epoch is right even though negative values count their time away from the day.
  const double span = std::fabs(Linear(a) - Linear(b)) + OneMillisecond / 2;
  if (!(span < static_cast<double>(INT_MAX))) return std::isnan(span) ? 0 : INT_MAX;
  return static_cast<Integer>(span);
}

bool SameDate(TDateTime a, TDateTime b) { return std::trunc(a) == std::trunc(b); }

// ---- clock ----------------------------------------------------------------------------

TClockFunc SetClock(TClockFunc clock) { return gClock.exchange(clock ? clock : &SystemNow); }

TDateTime SystemNow() { return CurrentSystemTime(); }

TDateTime Now() { return gClock.load()(); }

TDateTime Date() { return DateOf(Now()); }

TDateTime Time() { return TimeOf(Now()); }

// ---- text -----------------------------------------------------------------------------

AnsiString FormatDateTime(std::string_view format, TDateTime value,
                          const TFormatSettings& settings) {
  DateFormatter f(settings, value);
  f.Append(format.empty() ? std::string_view("c") : format, 0);
  return std::move(f.Result());
}

AnsiString FormatDateTime(std::string_view format, TDateTime value) {
  return FormatDateTime(format, value, FormatSettings);
}

AnsiString DateToStr(TDateTime value, const TFormatSettings& settings) {
  return FormatDateTime(settings.ShortDateFormat, value, settings);
}

AnsiString TimeToStr(TDateTime value, const TFormatSettings& settings) {
  return FormatDateTime(settings.LongTimeFormat, value, settings);
}

AnsiString DateTimeToStr(TDateTime value, const TFormatSettings& settings) {
  return FormatDateTime("c", value, settings);
}

AnsiString DateToStr(TDateTime value) { return DateToStr(value, FormatSettings); }
AnsiString TimeToStr(TDateTime value) { return TimeToStr(value, FormatSettings); }
AnsiString DateTimeToStr(TDateTime value) { return DateTimeToStr(value, FormatSettings); }

bool TryStrToDate(std::string_view s, TDateTime& value, const TFormatSettings& settings) {
  Scanner sc(s, settings);
  TDateTime date;
  if (!sc.Date(date) || !sc.AtEnd()) return false;
  value = date;
  return true;
}

bool TryStrToTime(std::string_view s, TDateTime& value, const TFormatSettings& settings) {
  Scanner sc(s, settings);
  TDateTime time;
  if (!sc.Time(time) || !sc.AtEnd()) return false;
  value = time;
  return true;
}

bool TryStrToDateTime(std::string_view s, TDateTime& value, const TFormatSettings& settings) {
  Scanner sc(s, settings);
  TDateTime date, time = 0;
  // The time must be set off by a blank and nothing may follow it: the classic scanner took
  // "05.03.20245" as five o'clock and ignored text after the time, both silently wrong.
  if (sc.Date(date) && (sc.AtEnd() || (sc.AfterBlank() && sc.Time(time) && sc.AtEnd()))) {
    value = date < 0 ? date - time : date + time;
    return true;
  }
  return TryStrToTime(s, value, settings);
}

bool TryStrToDate(std::string_view s, TDateTime& value) {
  return TryStrToDate(s, value, FormatSettings);
}

bool TryStrToTime(std::string_view s, TDateTime& value) {
  return TryStrToTime(s, value, FormatSettings);
}

bool TryStrToDateTime(std::string_view s, TDateTime& value) {
  return TryStrToDateTime(s, value, FormatSettings);
}

TDateTime StrToDate(std::string_view s) {
  TDateTime v;
  if (!TryStrToDate(s, v)) Raise(SysConst::SInvalidDate, s);
  return v;
}

TDateTime StrToTime(std::string_view s) {
  TDateTime v;
  if (!TryStrToTime(s, v)) Raise(SysConst::SInvalidTime, s);
  return v;
}

TDateTime StrToDateTime(std::string_view s) {
  TDateTime v;
  if (!TryStrToDateTime(s, v)) Raise(SysConst::SInvalidDateTime, s);
  return v;
}

TDateTime StrToDateDef(std::string_view s, TDateTime def) {
  TDateTime v;
  return TryStrToDate(s, v) ? v : def;
}

TDateTime StrToTimeDef(std::string_view s, TDateTime def) {
  TDateTime v;
  return TryStrToTime(s, v) ? v : def;
}

TDateTime StrToDateTimeDef(std::string_view s, TDateTime def) {
  TDateTime v;
  return TryStrToDateTime(s, v) ? v : def;
}

}  // namespace ostrel
