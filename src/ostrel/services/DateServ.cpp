// Date arithmetic for business periods on top of the platform calendar.
#include <ostrel/services/DateServ.h>

#include <ostrel/rtl/Exceptions.h>

#include <climits>
#include <cmath>
#include <cstdint>

namespace ostrel {

namespace {

// Beyond this magnitude a double no longer steps by whole days reliably.
constexpr double kExactDays = 4503599627370496.0;  // 2^52

constexpr double kMinDay = -693593.0;  // 1 January of year 1
constexpr double kMaxDay = 2958465.0;  // 31 December 9999

// Day steps keep the time of day. The day number is the whole part; the time its distance
// from it, which for values before the epoch lies on the negative side (-1.25 is 29 Dec 1899
// 06:00), so moving across the epoch has to rebuild the value rather than just add.
TDateTime ShiftDays(TDateTime d, double days) {
  const double day = std::trunc(d);
  const double time = std::fabs(d - day);
  const double target = day + days;
  return target < 0 ? target - time : target + time;
}

// 1 Sunday ... 7 Saturday for a finite day number; day 0 (30 Dec 1899) was a Saturday.
int DowOfDay(double day) {
  double r = std::fmod(day, 7.0);
  if (r < 0) r += 7;
  const int k = static_cast<int>(r);
  return k == 0 ? 7 : k;
}

bool IsBankDow(int dow) { return dow != 1 && dow != 7; }

// IncMonth with a 64-bit count: beyond the 120 000 months of the calendar it fails anyway,
// and it raises the same error for it.
TDateTime AddMonths(TDateTime d, Int64 months) {
  if (months == 0) return d;
  constexpr Int64 limit = 240000;
  if (months > limit || months < -limit) throw EConvertError(SysConst::SDateEncodeError);
  return IncMonth(d, static_cast<int>(months));
}

Int64 MonthsOfStep(Integer stepID) {
  switch (stepID) {
    case psMonth: return 1;
    case psQuarter: return 3;
    case psHalfYear: return 6;
    case psYear: return 12;
    default: return 0;
  }
}

// Restores the short date format on every way out.
class ShortFormatSaver {
 public:
  ShortFormatSaver() : fSaved(FormatSettings.ShortDateFormat) {}
  ~ShortFormatSaver() { FormatSettings.ShortDateFormat.swap(fSaved); }
  ShortFormatSaver(const ShortFormatSaver&) = delete;
  ShortFormatSaver& operator=(const ShortFormatSaver&) = delete;

 private:
  AnsiString fSaved;
};

}  // namespace

// ---- clock arithmetic ----------------------------------------------------------------

TDateTime IncTime(TDateTime d, Integer hours, Integer minutes, Integer seconds, Integer msecs) {
  // The sum wraps at 32 bits; reducing the exact 64-bit sum modulo 2^32 gives the same bits
  // as wrapping after every operation.
  const Int64 exact =
      Int64{hours % 24} * 3600000 + Int64{minutes} * 60000 + Int64{seconds} * 1000 + Int64{msecs};
  const auto rest = static_cast<std::int32_t>(static_cast<std::uint32_t>(exact));
  long double r =
      static_cast<long double>(d) + hours / 24 + static_cast<long double>(rest) / 86400000.0L;
  if (r < 0) r += 1;
  return static_cast<TDateTime>(r);
}

TDateTime IncHour(TDateTime d, Integer n) { return IncTime(d, n, 0, 0, 0); }
TDateTime IncMinute(TDateTime d, Integer n) { return IncTime(d, 0, n, 0, 0); }
TDateTime IncSecond(TDateTime d, Integer n) { return IncTime(d, 0, 0, n, 0); }
TDateTime IncMSec(TDateTime d, Integer n) { return IncTime(d, 0, 0, 0, n); }

// ---- calendar parts --------------------------------------------------------------------

Integer DaysPerMonth(Integer year, Integer month) {
  static constexpr Integer days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  return month == 2 && leap ? 29 : days[month - 1];
}

Integer ExtractDay(TDateTime d) { return DayOf(d); }
Integer ExtractMonth(TDateTime d) { return MonthOf(d); }
Integer ExtractYear(TDateTime d) { return YearOf(d); }

TDateTime IncDate(TDateTime d, Integer years, Integer months, Integer days) {
  const TDateTime moved = AddMonths(d, Int64{years} * 12 + months);
  return days == 0 ? moved : ShiftDays(moved, days);
}

// ---- bank days ---------------------------------------------------------------------------

TDateTime IncBankDay(TDateTime d, Integer n) {
  if (!(std::fabs(d) < kExactDays)) return d;
  const double step = n >= 0 ? 1 : -1;
  Int64 left = n >= 0 ? Int64{n} : -Int64{n};
  double day = std::trunc(d);
  // Counting down from five or more, any seven consecutive days hold five bank days and
  // none of them can be the stopping one, so whole weeks are skipped at once: the walk
  // below then takes fewer than five counted steps.
  const Int64 weeks = left / 5;
  day += step * 7 * static_cast<double>(weeks);
  left -= weeks * 5;
  for (;;) {
    if (IsBankDow(DowOfDay(day))) {
      if (left == 0) break;
      --left;
    }
    day += step;
  }
  return ShiftDays(d, day - std::trunc(d));
}

TDateTime NextDay(TDateTime d) {
  const TDateTime next = ShiftDays(d, 1);
  const double day = std::trunc(next);
  return day >= kMinDay && day <= kMaxDay ? next : d;
}

// ---- period steps --------------------------------------------------------------------

TDateTime IncDateByStepID(TDateTime d, Integer stepID, Integer count) {
  if (count <= 0) return d;
  switch (stepID) {
    case psDay: return ShiftDays(d, count);
    case psWeek: return ShiftDays(d, 7.0 * count);
    case psMonth:
    case psQuarter:
    case psHalfYear:
    case psYear: return AddMonths(d, MonthsOfStep(stepID) * count);
    default: return 0.0;
  }
}

Integer CalcNumOfSteps(TDateTime first, TDateTime last, Integer stepID) {
  if (stepID < psDay || stepID > psYear)
    throw Exception(Format("CalcNumOfSteps: %d is not a period step", stepID));
  if (!std::isfinite(first) || !std::isfinite(last))
    throw Exception("CalcNumOfSteps: the dates must be finite");
  const auto covers = [&](Int64 n) {
    return !(IncDateByStepID(first, stepID, static_cast<Integer>(n)) - 1 < last);
  };
  // Estimate from the average step length, then walk to the exact smallest count; the
  // estimate is off by a step or two at most (months differ in length), and the condition
  // only gets truer with more steps.
  static constexpr double avgDays[7] = {0, 1, 7, 30.436875, 91.310625, 182.62125, 365.2425};
  const double estimate = std::floor((last - first + 1) / avgDays[stepID]);
  if (estimate > INT_MAX - 8.0) throw EConvertError("CalcNumOfSteps: too many steps");
  Int64 n = estimate < 1 ? 1 : static_cast<Int64>(estimate);
  while (n > 1 && covers(n - 1)) --n;
  while (!covers(n)) {
    if (n >= INT_MAX) throw EConvertError("CalcNumOfSteps: too many steps");
    ++n;
  }
  return static_cast<Integer>(n);
}

TDateTime GetDLoCorrect(TDateTime d, Integer stepID, Integer firstDayOfWeek) {
  if (stepID == psWeek) {
    if (!(std::fabs(d) < kExactDays)) return d;
    const int dow = DowOfDay(std::trunc(d));
    const int back = (dow < firstDayOfWeek ? 7 : 0) + dow - firstDayOfWeek;
    return ShiftDays(d, -back);
  }
  if (stepID < psMonth || stepID > psYear) return d;
  Word y, m, day;
  DecodeDate(d, y, m, day);
  switch (stepID) {
    case psQuarter: m = static_cast<Word>((m - 1) / 3 * 3 + 1); break;
    case psHalfYear: m = m <= 6 ? 1 : 7; break;
    case psYear: m = 1; break;
    default: break;
  }
  return EncodeDate(y, m, 1);
}

// ---- today's periods -------------------------------------------------------------------

void GetCurrentMonth(TDateTime& start, TDateTime& end) {
  const TDateTime today = Date();
  start = StartOfTheMonth(today);
  end = EndOfTheMonth(today);
}

void GetCurrentQuarter(TDateTime& start, TDateTime& end) {
  Word y, m, d;
  DecodeDate(Date(), y, m, d);
  const Word first = static_cast<Word>((m - 1) / 3 * 3 + 1);
  start = EncodeDate(y, first, 1);
  end = EndOfTheMonth(EncodeDate(y, static_cast<Word>(first + 2), 1));
}

void GetCurrentYear(TDateTime& start, TDateTime& end) {
  const TDateTime today = Date();
  start = StartOfTheYear(today);
  end = EndOfTheYear(today);
}

// ---- formats ---------------------------------------------------------------------------

bool FourDigitYearFormat() {
  return Pos("YYYY", AnsiUpperCase(FormatSettings.ShortDateFormat)) > 0;
}

TDateTime StrToDateFmt(std::string_view format, std::string_view text) {
  // The text may be a view into the settings themselves; the saver owns the old value.
  const AnsiString fmt(format);
  const AnsiString txt(text);
  ShortFormatSaver saver;
  FormatSettings.ShortDateFormat = fmt;
  return StrToDate(txt);
}

}  // namespace ostrel
