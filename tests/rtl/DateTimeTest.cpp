#include <ostrel/rtl/DateTime.h>

#include <TestUtil.h>
#include <periods/TestDates.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>

using namespace ostrel;
using testdates::gPinned;
using testdates::PinnedClock;

namespace {

// 2024-03-05 (a Tuesday) 09:07:04.032.
const TDateTime kSample = EncodeDateTime(2024, 3, 5, 9, 7, 4, 32);

// Year, month, day, hour, minute, second, millisecond.
using Fields = std::array<int, 7>;

Fields Decode(TDateTime v) {
  Word f[7];
  DecodeDateTime(v, f[0], f[1], f[2], f[3], f[4], f[5], f[6]);
  return {f[0], f[1], f[2], f[3], f[4], f[5], f[6]};
}

TDateTime Encode(const Fields& f) {
  auto w = [&](int i) { return static_cast<Word>(f[i]); };
  return EncodeDateTime(w(0), w(1), w(2), w(3), w(4), w(5), w(6));
}

template <class F>
void ExpectConvertError(F call, std::string_view message) {
  EXPECT_EQ(testutil::MessageOf<EConvertError>(call), message);
}

// The value to the millisecond, "yyyy-mm-dd hh:nn:ss.zzz".
std::string T(TDateTime v) {
  return FormatDateTime("yyyy-mm-dd hh:nn:ss.zzz", v, TFormatSettings::Invariant());
}

// ---- encoding and decoding --------------------------------------------------------------

TEST(DateEncoding, EncodesToTheValueAndDecodesBack) {
  const std::pair<Fields, TDateTime> rows[] = {
      {{1899, 12, 30, 0, 0, 0, 0}, 0.0},
      {{1900, 1, 1, 0, 0, 0, 0}, 2.0},
      {{1899, 12, 30, 12, 0, 0, 0}, 0.5},
      {{2024, 2, 29, 12, 0, 0, 0}, 45351.5},
      {{1899, 12, 29, 6, 0, 0, 0}, -1.25},  // the time counts away from the day
      {{1899, 12, 29, 18, 0, 0, 0}, -1.75},
      {{1, 1, 1, 0, 0, 0, 0}, MinDateTime},
      {{9999, 12, 31, 23, 59, 59, 999}, 2958465.0 + 86399999.0 / 86400000.0}};
  for (const auto& [fields, value] : rows) {
    EXPECT_NEAR(Encode(fields), value, 1e-9);
    EXPECT_EQ(Decode(value), fields);
  }
}

TEST(DateDecoding, EveryDayOfTheCalendarEncodesAndDecodesInSequence) {
  Word y = 1, m = 1, d = 1;
  for (Int64 day = -693593; day <= 2958465; ++day) {
    Word yy, mm, dd;
    DecodeDate(static_cast<double>(day), yy, mm, dd);
    ASSERT_TRUE(yy == y && mm == m && dd == d && EncodeDate(y, m, d) == day)
        << "day " << day << " decoded as " << yy << '-' << mm << '-' << dd << ", expected " << y
        << '-' << m << '-' << d;
    if (++d > DaysInAMonth(y, m)) {
      d = 1;
      if (++m > 12) m = 1, ++y;
    }
  }
}

TEST(DateDecoding, RoundsToTheMillisecondSoNoTimeShowsAs24Hours) {
  EXPECT_EQ(Decode(0.999999999), (Fields{1899, 12, 31, 0, 0, 0, 0}));
  EXPECT_EQ(Decode(45000.0 - 1e-10), (Fields{2023, 3, 15, 0, 0, 0, 0}));
  EXPECT_EQ(Decode(-1.999999999), (Fields{1899, 12, 28, 0, 0, 0, 0}));
  // The last millisecond of every minute keeps its day, second and millisecond, also on the
  // negative side of the epoch.
  for (Word minute = 0; minute < 24 * 60; ++minute) {
    const TDateTime v = EncodeDateTime(2024, 2, 29, minute / 60, minute % 60, 59, 999);
    ASSERT_EQ(testutil::Join(DayOf(v), SecondOf(v), MilliSecondOf(v)), "29 59 999") << v;
    ASSERT_EQ(testutil::Join(SecondOf(-v), MilliSecondOf(-v)), "59 999") << -v;
  }
}

TEST(DateDecoding, ValuesOutsideTheCalendarDoNotCrash) {
  for (double v : {-693594.0, -1e300, double(NAN)}) EXPECT_EQ(Decode(v), Fields{}) << v;
  EXPECT_EQ(Decode(1e300), (Fields{9999, 12, 31, 23, 59, 59, 999}));
  EXPECT_THROW(StartOfTheMonth(-1e9), EConvertError);
  EXPECT_THROW(IncMonth(-1e9, 1), EConvertError);
  EXPECT_EQ(FormatDateTime("dd.mm.yyyy", -1e9), "00.00.0000");
}

// The strict decoding is for text that must read back as the same moment: inside the
// calendar it agrees with the plain one, outside it refuses where the plain one gives 0-0-0
// or bends the value to the last millisecond of 9999.
TEST(DateDecoding, StrictDecodingRefusesMomentsOutsideTheCalendar) {
  const double lastMs = 2958465.0 + 86399999.0 / 86400000.0;
  for (double v : {MinDateTime, MinDateTime - 0.5, 0.0, -1.25, kSample, lastMs, MaxDateTime}) {
    Word f[7];
    DecodeDateTimeStrict(v, f[0], f[1], f[2], f[3], f[4], f[5], f[6]);
    EXPECT_EQ((Fields{f[0], f[1], f[2], f[3], f[4], f[5], f[6]}), Decode(v)) << v;
  }
  const double outside[] = {MinDateTime - 1,            // 0000-12-31
                            2958466.0,                  // 10000-01-01
                            lastMs + 0.6 / 86400000.0,  // rounds to 10000-01-01 00:00:00.000
                            1e10,
                            -1e300,
                            INFINITY,
                            -INFINITY,
                            NAN};
  for (double v : outside) {
    Word y, m, d, h, n, s, ms;
    EXPECT_EQ(
        testutil::MessageOf<EConvertError>([&] { DecodeDateTimeStrict(v, y, m, d, h, n, s, ms); }),
        Format(SysConst::SInvalidDateTime, FloatToStr(v)))
        << v;
  }
}

TEST(DateEncoding, LeapYearsAndInvalidParts) {
  struct Row {
    Word year;
    bool leap;
    Word feb;
  };
  for (const Row& r : {Row{1900, false, 28}, Row{2000, true, 29}, Row{2024, true, 29},
                       Row{2023, false, 28}, Row{2100, false, 28}, Row{1600, true, 29}}) {
    EXPECT_EQ(IsLeapYear(r.year), r.leap) << r.year;
    EXPECT_EQ(DaysInAMonth(r.year, 2), r.feb) << r.year;
    EXPECT_EQ(DaysInAYear(r.year), r.leap ? 366 : 365) << r.year;
    TDateTime v = -5;
    EXPECT_EQ(TryEncodeDate(r.year, 2, 29, v), r.leap) << r.year;
    EXPECT_EQ(v == -5, !r.leap) << "value must stay untouched on failure";
  }
  EXPECT_EQ(DaysInAMonth(2024, 0) + DaysInAMonth(2024, 13), 0);
  TDateTime v;
  for (auto [y, m, d] :
       {std::array<Word, 3>{0, 1, 1}, {10000, 1, 1}, {2024, 13, 1}, {2024, 4, 31}, {2024, 1, 0}})
    EXPECT_FALSE(TryEncodeDate(y, m, d, v)) << y << '-' << m << '-' << d;
  for (auto [h, m, s, ms] :
       {std::array<Word, 4>{24, 0, 0, 0}, {0, 60, 0, 0}, {0, 0, 60, 0}, {0, 0, 0, 1000}})
    EXPECT_FALSE(TryEncodeTime(h, m, s, ms, v)) << h << ':' << m << ':' << s << '.' << ms;
  ExpectConvertError([] { EncodeDate(2023, 2, 29); }, "Invalid argument to date encode");
  ExpectConvertError([] { EncodeDateTime(2023, 2, 28, 24, 0, 0, 0); },
                     "Invalid argument to time encode");
}

TEST(DateParts, DayOfWeekTimeOfAndCompose) {
  // DayOfWeek counts from Sunday, DayOfTheWeek from Monday. Tuesday 5 March 2024, Sunday
  // 3 March 2024, Saturday 30 December 1899 (day 0), Friday 29 December 1899 (-1.25) and
  // Monday 1 January of the year 1.
  EXPECT_EQ(testutil::Join(DayOfWeek(kSample), DayOfTheWeek(kSample)), "3 2");
  EXPECT_EQ(DayOfTheWeek(EncodeDate(2024, 3, 3)), 7);
  EXPECT_EQ(testutil::Join(DayOfWeek(0), DayOfWeek(-1.25), DayOfWeek(EncodeDate(1, 1, 1))),
            "7 6 2");
  Word y, m, d, dow;
  EXPECT_TRUE(DecodeDateFully(kSample, y, m, d, dow));
  EXPECT_EQ(dow, 3);
  EXPECT_EQ(DateOf(-1.25), -1.0);
  EXPECT_EQ(TimeOf(-1.25), 0.25);
  EXPECT_EQ(ComposeDateTime(-1, 0.25), -1.25);
  EXPECT_EQ(ComposeDateTime(45000.7, -0.25), 45000.25);
  EXPECT_TRUE(SameDate(45000.1, 45000.9) && !SameDate(45000.9, 45001.0));
}

TEST(DateParts, IsoWeekNumberAndYearAroundNewYear) {
  struct {
    Word y, m, d, week, weekYear;
  } const rows[] = {{2020, 12, 31, 53, 2020}, {2021, 1, 3, 53, 2020}, {2021, 1, 4, 1, 2021},
                    {2024, 12, 30, 1, 2025},  {2024, 1, 1, 1, 2024},  {2027, 1, 1, 53, 2026},
                    {2008, 12, 29, 1, 2009},  {2024, 3, 5, 10, 2024}, {1, 1, 1, 1, 1}};
  for (const auto& r : rows) {
    Word year = 0;
    EXPECT_EQ(WeekOfTheYear(EncodeDateTime(r.y, r.m, r.d, 23, 0, 0, 0), year), r.week) << r.y;
    EXPECT_EQ(year, r.weekYear);
    EXPECT_EQ(WeekOfTheYear(EncodeDate(r.y, r.m, r.d)), r.week);
  }
}

// ---- arithmetic --------------------------------------------------------------------------

TEST(DateArithmetic, IncMonthClampsTheDayAndKeepsTheTime) {
  // clang-format off
  struct { Fields from; int months; Word y, m, d; } const rows[] = {
      {{2024, 1, 31, 10, 30, 0, 0}, 1, 2024, 2, 29}, {{2023, 1, 31, 0, 0, 0, 0}, 1, 2023, 2, 28},
      {{2024, 1, 29, 8, 0, 0, 0}, 1, 2024, 2, 29}, {{2024, 3, 30, 0, 0, 0, 0}, -1, 2024, 2, 29},
      {{2024, 5, 31, 23, 59, 59, 999}, 1, 2024, 6, 30},
      {{2024, 12, 31, 0, 0, 0, 0}, 2, 2025, 2, 28}, {{2024, 1, 15, 0, 0, 0, 0}, -13, 2022, 12, 15},
      {{1899, 11, 30, 6, 0, 0, 0}, 1, 1899, 12, 30},  // across the epoch
      {{1900, 1, 31, 6, 0, 0, 0}, -2, 1899, 11, 30}};
  // clang-format on
  for (const auto& [f, months, y, m, d] : rows) {
    const Fields want{y, m, d, f[3], f[4], f[5], f[6]};
    EXPECT_EQ(IncMonth(Encode(f), months), Encode(want)) << f[0] << '-' << f[1] << '-' << f[2];
  }
}

TEST(DateArithmetic, YearsWeeksDaysAndRangeErrors) {
  const TDateTime leapDay = EncodeDate(2024, 2, 29);
  EXPECT_EQ(T(IncYear(leapDay, 1)) + " " + T(IncYear(leapDay, -4)),
            "2025-02-28 00:00:00.000 2020-02-29 00:00:00.000");
  EXPECT_EQ(T(IncWeek(EncodeDate(2024, 12, 30), 1)), "2025-01-06 00:00:00.000");
  EXPECT_EQ(T(IncDay(kSample, -5)), "2024-02-29 09:07:04.032");
  // Crossing the epoch keeps the time of day.
  EXPECT_EQ(IncDay(-1.25, 2), 1.25);
  EXPECT_EQ(IncDay(0.5, -1), -1.5);
  EXPECT_EQ(IncDay(-0.5, -1), -1.5);
  EXPECT_THROW(IncMonth(EncodeDate(9999, 12, 1), 1), EConvertError);
  EXPECT_THROW(IncMonth(EncodeDate(1, 1, 31), -1), EConvertError);
  EXPECT_THROW(IncYear(kSample, 2000000000), EConvertError);
}

TEST(DateArithmetic, StartAndEndOfPeriods) {
  const TDateTime v = EncodeDateTime(2024, 2, 15, 13, 0, 0, 0);
  EXPECT_EQ(T(StartOfTheDay(v)) + " .. " + T(EndOfTheDay(v)),
            "2024-02-15 00:00:00.000 .. 2024-02-15 23:59:59.999");
  EXPECT_EQ(T(StartOfTheMonth(v)) + " .. " + T(EndOfTheMonth(v)),
            "2024-02-01 00:00:00.000 .. 2024-02-29 23:59:59.999");
  EXPECT_EQ(T(StartOfTheYear(v)) + " .. " + T(EndOfTheYear(v)),
            "2024-01-01 00:00:00.000 .. 2024-12-31 23:59:59.999");
  EXPECT_EQ(T(StartOfTheMonth(-1.25)) + " .. " + T(EndOfTheDay(-1.25)),
            "1899-12-01 00:00:00.000 .. 1899-12-29 23:59:59.999");
}

TEST(DateArithmetic, DaysBetweenCountsWholeDays) {
  const struct {
    TDateTime a, b;
    Integer days;
  } rows[] = {{EncodeDate(2024, 3, 2), EncodeDate(2024, 3, 1), 1},
              {EncodeDateTime(2024, 3, 2, 11, 0, 0, 0), EncodeDateTime(2024, 3, 1, 12, 0, 0, 0), 0},
              {EncodeDate(2025, 1, 1), EncodeDate(2024, 1, 1), 366},
              // Across a power of two the difference lands a hair below one day.
              {EncodeDateTime(1989, 9, 17, 0, 0, 2, 0), EncodeDateTime(1989, 9, 16, 0, 0, 2, 0), 1},
              {0.25, -1.25, 1},  // 1899-12-30 06:00 and 1899-12-29 06:00
              {0.25, -1.75, 0},  // 1899-12-29 18:00 is only half a day earlier
              {NAN, 0, 0}};
  for (const auto& r : rows) {
    EXPECT_EQ(DaysBetween(r.a, r.b), r.days) << r.a << " " << r.b;
    EXPECT_EQ(DaysBetween(r.b, r.a), r.days) << r.b << " " << r.a;
  }
}

// ---- clock ------------------------------------------------------------------------------

TEST(Clock, ReplacementIsSeenByNowDateAndTimeAndRestored) {
  const TDateTime fixed = EncodeDateTime(2030, 6, 15, 18, 30, 0, 0);
  {
    PinnedClock clock(fixed);
    EXPECT_EQ(Now(), fixed);
    EXPECT_EQ(Date(), EncodeDate(2030, 6, 15));
    EXPECT_NEAR(Time(), EncodeTime(18, 30, 0, 0), 1e-9);
    gPinned = -1.25;
    EXPECT_EQ(Time(), 0.25);
    // Installing nullptr gives back the replaced clock and restores the system one.
    EXPECT_EQ(SetClock(nullptr), &testdates::PinnedNow);
    EXPECT_EQ(SetClock(&testdates::PinnedNow), &SystemNow);
  }
  EXPECT_LT(std::fabs(Now() - SystemNow()), 5 * OneSecond);
  EXPECT_GE(YearOf(Now()), 2024);
}

// ---- formatting -------------------------------------------------------------------------

TFormatSettings TestSettings() {
  TFormatSettings fs = TFormatSettings::Russian();
  fs.LongDateFormat = Cp1251(u8"d mmmm yyyy 'г.'");
  fs.TimeAMString = Cp1251(u8"дп");
  fs.TimePMString = Cp1251(u8"пп");
  return fs;
}

const TDateTime kEvening = EncodeDateTime(2024, 3, 5, 21, 7, 4, 32);

TEST(FormatDateTimeText, EveryLetterInTheRussianLocale) {
  const TDateTime halfPastMidnight = EncodeDateTime(2024, 3, 5, 0, 30, 0, 0);
  struct {
    const char* format;
    TDateTime value;
    const char8_t* expected;
  } const rows[] = {
      {"d|dd|ddd|dddd|ddddd|dddddd", kSample, u8"5|05|Вт|вторник|05.03.2024|5 Март 2024 г."},
      {"m|mm|mmm|mmmm", kSample, u8"3|03|мар|Март"},
      {"y|yy|yyy|yyyy", EncodeDate(987, 1, 1), u8"87|87|0987|0987"},
      {"h|hh|n|nn|s|ss|z|zz|zzz|t|tt", kSample, u8"9|09|7|07|4|04|32|32|032|9:07|9:07:04"},
      {"c", kSample, u8"05.03.2024 9:07:04"},
      {"", kSample, u8"05.03.2024 9:07:04"},
      {"c", EncodeDate(2024, 3, 5), u8"05.03.2024"},
      // m after an hour means minutes, until another letter intervenes.
      {"hh:mm|h:m", kSample, u8"09:07|9:7"},
      {"hh 'mm' mm", kSample, u8"09 mm 07"},
      {"hh:nn mm", kSample, u8"09:07 03"},
      {"hh:mm dd.mm", kSample, u8"09:07 05.03"},
      {"DD.MM.YYYY HH:NN:SS", kSample, u8"05.03.2024 09:07:04"},
      {"\"yyyy\" yyyy 'd''d'", kSample, u8"yyyy 2024 dd"},
      {"'unterminated d", kSample, u8"unterminated d"},
      {"[d] #%", kSample, u8"[5] #%"},
      {"dd/mm hh:nn", kSample, u8"05.03 09:07"},
      {"h:nn am/pm a/p", kEvening, u8"9:07 pm p"},
      {"h:nn AM/PM A/P", kSample, u8"9:07 AM A"},
      {"hh ampm", kEvening, u8"09 пп"},
      {"h ampm", halfPastMidnight, u8"12 дп"},
      {"h:nn AM/PM", EncodeDateTime(2024, 3, 5, 12, 0, 0, 0), u8"12:00 PM"},
      {"h 'am/pm' h", kEvening, u8"21 am/pm 21"},  // quoted markers do not count
      {"dd.mm.yyyy hh:nn", -1.25, u8"29.12.1899 06:00"}};
  for (const auto& r : rows)
    EXPECT_EQ(FormatDateTime(r.format, r.value, TestSettings()), Ansi(r.expected))
        << "format " << r.format;
}

TEST(FormatDateTimeText, SeparatorsAndNestedFormatsFollowTheSettings) {
  TFormatSettings fs = TestSettings();
  fs.DateSeparator = '-';
  fs.TimeSeparator = '.';
  EXPECT_EQ(FormatDateTime("dd/mm/yyyy hh:nn", kSample, fs), "05-03-2024 09.07");
  // A format that names itself expands one level and stops.
  fs.ShortDateFormat = "ddddd|d";
  EXPECT_EQ(FormatDateTime("ddddd", kSample, fs), "|5");
  fs.ShortDateFormat = "c";
  fs.LongTimeFormat = "tt";
  EXPECT_EQ(FormatDateTime("c", kSample, fs), "  ");
}

TEST(FormatDateTimeText, ToStrFunctionsUseTheProcessSettings) {
  TFormatSettingsGuard guard(TestSettings());
  EXPECT_EQ(DateToStr(kSample) + "|" + TimeToStr(kSample), "05.03.2024|9:07:04");
  EXPECT_EQ(DateTimeToStr(kSample), "05.03.2024 9:07:04");
  EXPECT_EQ(DateTimeToStr(EncodeDate(2024, 3, 5)), "05.03.2024");
  EXPECT_EQ(DateTimeToStr(EncodeDateTime(2024, 3, 5, 0, 0, 0, 500)), "05.03.2024");
  FormatSettings.ShortDateFormat = "yyyy-mm-dd";
  FormatSettings.DateSeparator = '-';
  EXPECT_EQ(DateTimeToStr(kSample), "2024-03-05 9:07:04");
}

// ---- parsing ----------------------------------------------------------------------------

TEST(ParseValid, ReadsTheValue) {
  TFormatSettingsGuard guard(TestSettings());
  PinnedClock clock(EncodeDate(2030, 6, 15));
  const std::pair<const char*, TDateTime> rows[] = {
      {"05.03.2024", EncodeDate(2024, 3, 5)},
      {" 5 .3. 2024 ", EncodeDate(2024, 3, 5)},
      {"05.03.24", EncodeDate(2024, 3, 5)},
      {"05.03.81", EncodeDate(1981, 3, 5)},  // window of 50 years back from 2030
      {"05.03.79", EncodeDate(2079, 3, 5)},
      {"05.03", EncodeDate(2030, 3, 5)},     // the clock's year
      {"05.03.0024", EncodeDate(24, 3, 5)},  // four digits are taken as written
      {"05.03.2024 10:30", EncodeDateTime(2024, 3, 5, 10, 30, 0, 0)},
      {"05.03.2024 10:30:15.250", EncodeDateTime(2024, 3, 5, 10, 30, 15, 250)},
      {"05.03.2024 10:30:15,250", EncodeDateTime(2024, 3, 5, 10, 30, 15, 250)},
      {"29.12.1899 06:00", -1.25},
      {"10:30", EncodeTime(10, 30, 0, 0)},
      {"10:30 PM", EncodeTime(22, 30, 0, 0)},
      {"pm 10:30", EncodeTime(22, 30, 0, 0)},
      {"12:00 AM", 0.0},
      {"1:15 \xEF\xEF", EncodeTime(13, 15, 0, 0)}};  // "пп" of the settings
  for (const auto& [text, expected] : rows) {
    TDateTime v = -7;
    ASSERT_TRUE(TryStrToDateTime(text, v)) << text;
    EXPECT_NEAR(v, expected, 1e-10) << text;
    EXPECT_EQ(StrToDateTime(text), v);
  }
}

TEST(ParseInvalid, TryFailsAndTheRaisingFormsNameTheText) {
  TFormatSettingsGuard guard(TestSettings());
  for (const char* text :
       {"31.02.2024", "1.13.2024", "abc", "", "   ", "01.01.2024 25:00", "01.01.2024 10:00 x",
        "01.01.2024x", "1..2024", "13:00 PM", "10:60", "0:00 AM", "05.03.2024 10:30:15.1000",
        "05.03.20245", "05.03.2024 10:", "-05.03.2024", "00.00.0000"}) {
    TDateTime v = 42;
    EXPECT_FALSE(TryStrToDateTime(text, v)) << text;
    EXPECT_FALSE(TryStrToDate(text, v)) << text;
    EXPECT_EQ(v, 42) << text;
    EXPECT_EQ(StrToDateDef(text, 7), 7) << text;
    ExpectConvertError([text] { StrToDateTime(text); },
                       "'" + std::string(text) + "' is not a valid date and time");
  }
  ExpectConvertError([] { StrToDate("31.02.2024"); }, "'31.02.2024' is not a valid date");
  ExpectConvertError([] { StrToTime("25:00"); }, "'25:00' is not a valid time");
  // A date is not a time, and a date with a time is not a date.
  TDateTime v;
  EXPECT_FALSE(TryStrToTime("05.03.2024", v));
  EXPECT_FALSE(TryStrToDate("05.03.2024 10:00", v));
}

TEST(ParseFieldOrder, FollowsTheShortDateFormatAndSeparator) {
  TFormatSettingsGuard guard(TestSettings());
  FormatSettings.ShortDateFormat = "yyyy-mm-dd";
  FormatSettings.DateSeparator = '-';
  EXPECT_EQ(StrToDate("2024-03-05"), EncodeDate(2024, 3, 5));
  EXPECT_EQ(StrToDateTime("2024-03-05 10:00"), EncodeDateTime(2024, 3, 5, 10, 0, 0, 0));
  TDateTime v;
  EXPECT_FALSE(TryStrToDate("05-03-2024", v));
  EXPECT_FALSE(TryStrToDate("05.03.2024", v));

  FormatSettings.ShortDateFormat = "MM/dd/yyyy";
  FormatSettings.DateSeparator = '/';
  EXPECT_EQ(StrToDate("03/05/2024"), EncodeDate(2024, 3, 5));
  EXPECT_FALSE(TryStrToDate("13/05/2024", v));

  // The same text reads back what the settings wrote.
  TFormatSettings fs = TestSettings();
  for (TDateTime x : {kSample, kEvening, -1.25, EncodeDateTime(1, 1, 1, 23, 59, 59, 999)}) {
    const AnsiString text = FormatDateTime("dd.mm.yyyy hh:nn:ss.zzz", x, fs);
    ASSERT_TRUE(TryStrToDateTime(text, v, fs)) << text;
    EXPECT_EQ(v, x) << text;
  }
}

}  // namespace
