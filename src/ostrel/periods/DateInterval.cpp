// The period rules: bounds from an anchor date, stepping, and re-anchoring on a kind switch.
#include <ostrel/periods/Kxdateutils.h>

#include <climits>
#include <cmath>
#include <utility>

namespace ostrel {

namespace {

// A value the calendar functions can take: NaN is "no date" (0.0), anything beyond the
// calendar its nearest end.
TDateTime IntoCalendar(TDateTime d) {
  if (std::isnan(d)) return 0.0;
  if (std::trunc(d) > MaxDate()) return MaxDate();
  if (std::trunc(d) < MinDate()) return MinDate();
  return d;
}

// Whole-day steps keep the time of day (on the far side of the epoch too) and stop at the
// ends of the calendar.
TDateTime AddDays(TDateTime d, Int64 days) {
  d = IntoCalendar(d);
  const double day = std::trunc(d) + static_cast<double>(days);
  if (day > MaxDate()) return MaxDate();
  if (day < MinDate()) return MinDate();
  const double time = std::fabs(d - std::trunc(d));
  return day < 0 ? day - time : day + time;
}

// IncMonth that stops at the ends of the calendar instead of failing.
TDateTime AddMonths(TDateTime d, Int64 months) {
  d = IntoCalendar(d);
  if (months == 0) return d;
  Word y, m, day;
  DecodeDate(d, y, m, day);
  const Int64 target = Int64{y} * 12 + (m - 1) + months;
  if (target >= Int64{10000} * 12) return MaxDate();
  if (target < 12) return MinDate();
  return IncMonth(d, static_cast<int>(months));
}

}  // namespace

bool TkxDateIntervalPr::GetPeriod(Integer kind, TDateTime d, TDateTime& lo, TDateTime& hi) {
  d = IntoCalendar(d);
  switch (kind) {
    case pkDay: lo = hi = d; break;
    case pkWeek: {
      const TDateTime monday = std::trunc(d) - (DayOfTheWeek(d) - 1);
      lo = monday;
      // The week of 31 December 9999 would end beyond the calendar.
      hi = monday + 6 > MaxDate() ? MaxDate() : monday + 6;
      break;
    }
    case pkMonth:
      lo = StartOfTheMonth(d);
      hi = EndOfTheMonth(d);
      break;
    case pkQuarter:
      lo = StartOfTheQuarter(d);
      hi = EndOfTheQuarter(d);
      break;
    case pkHalfYear: {
      const Word y = YearOf(d);
      const bool first = HalfYearOf(d) == 1;
      lo = EncodeDate(y, first ? 1 : 7, 1);
      hi = EncodeDate(y, first ? 6 : 12, first ? 30 : 31);
      break;
    }
    case pkYear:
      lo = StartOfTheYear(d);
      hi = EndOfTheYear(d);
      break;
    case pkFrom:
      if (d != 0.0) lo = d;
      hi = MaxDate();
      break;
    case pkUntil:
      lo = MinDate();
      if (d != 0.0) hi = d;
      break;
    case pkAll:
      lo = MinDate();
      hi = MaxDate();
      break;
    default:  // the interval and anything that is not a kind
      return false;
  }
  lo = std::trunc(lo);
  hi = std::trunc(hi);
  return true;
}

TDateTime TkxDateIntervalPr::GetNearDT(TDateTime lo, TDateTime hi, bool keepToday) {
  const TDateTime today = Date();
  if (today > hi) return hi;
  if (today < lo) return lo;
  if (keepToday) return today;
  const Integer toLo = SameDate(lo, MinDate()) ? INT_MAX : DaysBetween(today, lo);
  const Integer toHi = SameDate(hi, MaxDate()) ? INT_MAX : DaysBetween(today, hi);
  if (toLo < toHi) return lo;
  if (toHi < toLo) return hi;
  return today;
}

void TkxDateIntervalPr::CheckPeriod(Integer kind, Integer prevKind, TDateTime& lo, TDateTime& hi) {
  if (kind == pkInterval) {
    if (lo > hi) std::swap(lo, hi);
    return;
  }
  if (kind == pkAll) {
    lo = MinDate();
    hi = MaxDate();
    return;
  }
  const bool keepToday = kind < pkInterval && kind < prevKind;
  GetPeriod(kind, GetNearDT(lo, hi, keepToday), lo, hi);
}

TDateTime TkxDateIntervalPr::IncDT(Integer kind, Integer step, TDateTime d) {
  if (std::isnan(d)) return d;
  switch (kind) {
    case pkDay:
    case pkInterval:
    case pkFrom:
    case pkUntil: return AddDays(d, step);
    case pkWeek: return AddDays(d, Int64{step} * 7);
    case pkMonth: return AddMonths(d, step);
    case pkQuarter: return AddMonths(d, Int64{step} * 3);
    case pkHalfYear: return AddMonths(d, Int64{step} * 6);
    case pkYear: return AddMonths(d, Int64{step} * 12);
    default: return d;
  }
}

void TkxDateIntervalPr::IncPeriod(Integer kind, Integer step, TDateTime lo, TDateTime hi,
                                  TDateTime& newLo, TDateTime& newHi) {
  newLo = lo;
  newHi = hi;
  switch (kind) {
    case pkDay:
    case pkWeek:
    case pkMonth:
    case pkQuarter:
    case pkHalfYear:
    case pkYear:
      newLo = IncDT(kind, step, lo);
      newHi = IncDT(kind, step, hi);
      break;
    case pkInterval:
      // Stepping an interval widens it: backwards on the left, forwards on the right.
      if (step < 1)
        newLo = IncDT(kind, step, lo);
      else
        newHi = IncDT(kind, step, hi);
      break;
    case pkFrom:
      newLo = IncDT(kind, step, lo);
      newHi = MaxDate();
      break;
    case pkUntil:
      newLo = MinDate();
      newHi = IncDT(kind, step, hi);
      break;
    default: break;
  }
}

}  // namespace ostrel
