// Dates and times of the classic RTL: TDateTime arithmetic, calendar helpers, formatting
// and parsing with the process-wide FormatSettings.
#pragma once

#include <ostrel/rtl/Format.h>

namespace ostrel {

// 0001-01-01 00:00:00.000 and 9999-12-31 23:59:59.999.
inline constexpr TDateTime MinDateTime = -693593.0;
inline constexpr TDateTime MaxDateTime = 2958465.99999999;

inline constexpr double HoursPerDay = 24;
inline constexpr double MinsPerDay = 24 * 60;
inline constexpr double SecsPerDay = 24 * 60 * 60;
inline constexpr double MSecsPerDay = 24.0 * 60 * 60 * 1000;
inline constexpr double OneHour = 1.0 / 24;
inline constexpr double OneMinute = 1.0 / MinsPerDay;
inline constexpr double OneSecond = 1.0 / SecsPerDay;
inline constexpr double OneMillisecond = 1.0 / MSecsPerDay;

// Day-of-week numbers of DayOfWeek (1 = Sunday ... 7 = Saturday).
// ISO day numbers of DayOfTheWeek (1 = Monday ... 7 = Sunday).

OSTREL_API bool IsLeapYear(Word year);
// Days of the month (1..12) of the year; 0 for a month outside 1..12.
OSTREL_API Word DaysInAMonth(Word year, Word month);
OSTREL_API Word DaysInAYear(Word year);

// Encoding and decoding. The Try forms return false for out-of-range parts; the others
// raise EConvertError ("Invalid argument to date encode" / "... time encode").
// Decoding rounds the whole value to the millisecond first (0.9999999999 is the next day at
// 00:00:00.000); values before 0001-01-01 decode as 0-0-0, values past MaxDateTime as
// MaxDateTime.
OSTREL_API bool TryEncodeDate(Word year, Word month, Word day, TDateTime& date);
OSTREL_API TDateTime EncodeDate(Word year, Word month, Word day);
OSTREL_API bool TryEncodeTime(Word hour, Word min, Word sec, Word msec, TDateTime& time);
OSTREL_API TDateTime EncodeTime(Word hour, Word min, Word sec, Word msec);
OSTREL_API bool TryEncodeDateTime(Word year, Word month, Word day, Word hour, Word min, Word sec,
                                  Word msec, TDateTime& value);
OSTREL_API TDateTime EncodeDateTime(Word year, Word month, Word day, Word hour, Word min, Word sec,
                                    Word msec);
// Combines a date and a time of day with the classic sign rule: for dates before the epoch
// the time counts away from the day number.
OSTREL_API TDateTime ComposeDateTime(TDateTime date, TDateTime time);
OSTREL_API void DecodeDate(TDateTime value, Word& year, Word& month, Word& day);
// Also returns true for a leap year and the day of week (1 = Sunday).
OSTREL_API bool DecodeDateFully(TDateTime value, Word& year, Word& month, Word& day, Word& dow);
OSTREL_API void DecodeTime(TDateTime value, Word& hour, Word& min, Word& sec, Word& msec);
OSTREL_API void DecodeDateTime(TDateTime value, Word& year, Word& month, Word& day, Word& hour,
                               Word& min, Word& sec, Word& msec);
// DecodeDateTime for text that must read back as the same moment: NaN, the infinities and
// values that round to a moment outside 0001-01-01 .. 9999-12-31 23:59:59.999 raise
// EConvertError ("'%s' is not a valid date and time") where the decoding above would give
// 0-0-0 or bend them to MaxDateTime.
OSTREL_API void DecodeDateTimeStrict(TDateTime value, Word& year, Word& month, Word& day,
                                     Word& hour, Word& min, Word& sec, Word& msec);

// The date part (day number) and the time part (always a fraction >= 0) of a value.
OSTREL_API TDateTime DateOf(TDateTime value);
OSTREL_API TDateTime TimeOf(TDateTime value);
OSTREL_API Word YearOf(TDateTime value);
OSTREL_API Word MonthOf(TDateTime value);
OSTREL_API Word DayOf(TDateTime value);
OSTREL_API Word HourOf(TDateTime value);
OSTREL_API Word MinuteOf(TDateTime value);
OSTREL_API Word SecondOf(TDateTime value);
OSTREL_API Word MilliSecondOf(TDateTime value);

OSTREL_API int DayOfWeek(TDateTime value);     // 1 = Sunday
OSTREL_API int DayOfTheWeek(TDateTime value);  // 1 = Monday (ISO)
// ISO 8601 week number (1..53); the second form also gives the year the week belongs to.
OSTREL_API Word WeekOfTheYear(TDateTime value);
OSTREL_API Word WeekOfTheYear(TDateTime value, Word& year);

// Adds months; the day is clamped to the last day of the target month; the time of day is
// kept (to the millisecond). A result outside the years 1..9999 raises EConvertError.
OSTREL_API TDateTime IncMonth(TDateTime value, int numberOfMonths = 1);
OSTREL_API TDateTime IncYear(TDateTime value, int numberOfYears = 1);
OSTREL_API TDateTime IncWeek(TDateTime value, int numberOfWeeks = 1);
OSTREL_API TDateTime IncDay(TDateTime value, int numberOfDays = 1);

OSTREL_API TDateTime StartOfTheDay(TDateTime value);
OSTREL_API TDateTime EndOfTheDay(TDateTime value);  // 23:59:59.999
OSTREL_API TDateTime StartOfTheMonth(TDateTime value);
OSTREL_API TDateTime EndOfTheMonth(TDateTime value);
OSTREL_API TDateTime StartOfTheYear(TDateTime value);
OSTREL_API TDateTime EndOfTheYear(TDateTime value);
// Whole days between two moments (time of day counted, fractions dropped), never negative.
OSTREL_API Integer DaysBetween(TDateTime a, TDateTime b);
OSTREL_API bool SameDate(TDateTime a, TDateTime b);

// The clock. Now/Date/Time read one process-wide clock that tests and applications can
// replace; SetClock(nullptr) restores the system clock. Returns the previous clock.
using TClockFunc = TDateTime (*)();
OSTREL_API TClockFunc SetClock(TClockFunc clock);
OSTREL_API TDateTime SystemNow();
OSTREL_API TDateTime Now();
OSTREL_API TDateTime Date();
OSTREL_API TDateTime Time();

// Formatting with the classic pattern letters: c d dd ddd dddd ddddd dddddd m mm mmm mmmm
// yy yyyy h hh n nn s ss z zzz t tt am/pm a/p ampm / : and quoted "..." '...' literals;
// m or mm right after h or hh means minutes. Letters are case-insensitive; other characters
// are copied. An empty format shows as "c" does.
OSTREL_API AnsiString FormatDateTime(std::string_view format, TDateTime value);
OSTREL_API AnsiString FormatDateTime(std::string_view format, TDateTime value,
                                     const TFormatSettings& settings);
OSTREL_API AnsiString DateToStr(TDateTime value);  // ShortDateFormat
OSTREL_API AnsiString TimeToStr(TDateTime value);  // LongTimeFormat
// The date, then the time only when it is not midnight (milliseconds alone do not count).
OSTREL_API AnsiString DateTimeToStr(TDateTime value);
OSTREL_API AnsiString DateToStr(TDateTime value, const TFormatSettings& settings);
OSTREL_API AnsiString TimeToStr(TDateTime value, const TFormatSettings& settings);
OSTREL_API AnsiString DateTimeToStr(TDateTime value, const TFormatSettings& settings);

// Parsing with the short date format's field order (d, m, y) and the current date and time
// separators. Two-digit years use TwoDigitYearCenturyWindow; a date of two numbers (day and
// month) takes the year of Now(). A time is h[:mm[:ss[.zzz]]] with an optional AM/PM marker;
// the milliseconds follow "." or the decimal separator. Blanks around the parts are allowed.
// The Try forms leave `value` untouched on failure; the others raise EConvertError with the
// text in the message.
OSTREL_API bool TryStrToDate(std::string_view s, TDateTime& value);
OSTREL_API bool TryStrToTime(std::string_view s, TDateTime& value);
OSTREL_API bool TryStrToDateTime(std::string_view s, TDateTime& value);
OSTREL_API bool TryStrToDate(std::string_view s, TDateTime& value, const TFormatSettings& settings);
OSTREL_API bool TryStrToTime(std::string_view s, TDateTime& value, const TFormatSettings& settings);
OSTREL_API bool TryStrToDateTime(std::string_view s, TDateTime& value,
                                 const TFormatSettings& settings);
OSTREL_API TDateTime StrToDate(std::string_view s);
OSTREL_API TDateTime StrToTime(std::string_view s);
OSTREL_API TDateTime StrToDateTime(std::string_view s);
OSTREL_API TDateTime StrToDateDef(std::string_view s, TDateTime def);
OSTREL_API TDateTime StrToTimeDef(std::string_view s, TDateTime def);
OSTREL_API TDateTime StrToDateTimeDef(std::string_view s, TDateTime def);

}  // namespace ostrel
