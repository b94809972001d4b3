// Date arithmetic for business periods: period steps, bank days, clock arithmetic on
// date-time values, the bounds of the current month, quarter and year, and date parsing with
// a given short date format. "Today" is the platform clock's Date(), so replacing the clock
// (SetClock) pins every "current" rule here and in the date periods.
#pragma once

#include <ostrel/rtl/DateTime.h>

namespace ostrel {

// Period step identifiers. The functions take plain integers, and any other value is "not a
// step": IncDateByStepID gives 0.0 for it and GetDLoCorrect leaves the date alone.
enum TPeriodStepID : Integer {
  psDay = 1,
  psWeek = 2,  // 7 days
  psMonth = 3,
  psQuarter = 4,   // 3 months
  psHalfYear = 5,  // 6 months
  psYear = 6,      // 12 months
};

// d + (hours div 24) + the rest as a fraction of the day. The rest, in milliseconds, is
// summed in 32-bit signed arithmetic and wraps: a minute count beyond about 35 000 overflows,
// as programs written against the classic unit expect. A negative result has 1 added to it.
OSTREL_API TDateTime IncTime(TDateTime d, Integer hours, Integer minutes, Integer seconds,
                             Integer msecs);
OSTREL_API TDateTime IncHour(TDateTime d, Integer n);
OSTREL_API TDateTime IncMinute(TDateTime d, Integer n);
OSTREL_API TDateTime IncSecond(TDateTime d, Integer n);
OSTREL_API TDateTime IncMSec(TDateTime d, Integer n);

// Days of the month in the year (Gregorian leap years); 0 for a month outside 1..12.
OSTREL_API Integer DaysPerMonth(Integer year, Integer month);
// The parts of the decoded date (0 for a value before 1 January of year 1).
OSTREL_API Integer ExtractDay(TDateTime d);
OSTREL_API Integer ExtractMonth(TDateTime d);
OSTREL_API Integer ExtractYear(TDateTime d);

// Adds years * 12 + months with IncMonth (the day clamped to the target month's length),
// then the days; the time of day is kept. A month result outside the years 1..9999 raises
// EConvertError, as IncMonth does.
OSTREL_API TDateTime IncDate(TDateTime d, Integer years, Integer months, Integer days);

// Moves by n bank days (Monday to Friday; there is no holiday calendar). Days off are passed
// over without counting: n = 0 gives d on a bank day and the next Monday on a weekend; a
// Saturday minus one bank day is the Thursday before (the Friday met first is the step).
// The time of day is kept. NaN, infinities and values too large for whole-day steps come back
// unchanged.
OSTREL_API TDateTime IncBankDay(TDateTime d, Integer n);

// One day later, or d itself when the day after is past 31 December 9999 (or d is NaN).
OSTREL_API TDateTime NextDay(TDateTime d);

// count <= 0: d. Otherwise count steps of the step id (months with IncMonth); 0.0 for an id
// that is not a step.
OSTREL_API TDateTime IncDateByStepID(TDateTime d, Integer stepID, Integer count);

// The smallest n >= 1 for which IncDateByStepID(first, stepID, n) - 1 is not less than last:
// how many steps cover [first, last]. Raises Exception for an id that is not a step (no count
// would ever do) or a date that is not finite, and EConvertError when the steps leave the
// calendar or the count does not fit an Integer.
OSTREL_API Integer CalcNumOfSteps(TDateTime first, TDateTime last, Integer stepID);

// The start of the step's period that holds d. Week: the last day on or before d whose
// day-of-week number (1 Sunday ... 7 Saturday) is firstDayOfWeek, time of day kept. Month,
// quarter, half-year, year: the first day at midnight. Any other id (the day too): d.
OSTREL_API TDateTime GetDLoCorrect(TDateTime d, Integer stepID, Integer firstDayOfWeek);

// Today's month, quarter and year: start at 00:00, end at 23:59:59.999 of the last day.
OSTREL_API void GetCurrentMonth(TDateTime& start, TDateTime& end);
OSTREL_API void GetCurrentQuarter(TDateTime& start, TDateTime& end);
OSTREL_API void GetCurrentYear(TDateTime& start, TDateTime& end);

// True when the short date format shows four-digit years ("YYYY" in it, any case).
OSTREL_API bool FourDigitYearFormat();

// StrToDate under the given short date format (the date separator stays as it is). The
// previous short format is put back on every path; a text that does not parse raises
// EConvertError with the text in the message.
OSTREL_API TDateTime StrToDateFmt(std::string_view format, std::string_view text);

}  // namespace ostrel
