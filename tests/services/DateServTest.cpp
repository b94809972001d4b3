// Date arithmetic: month steps, bank days, week starts, clock arithmetic, step counts, the
// current periods under a pinned clock, and parsing with a temporary short date format.
#include <ostrel/services/DateServ.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>

namespace ostrel {
namespace {

TDateTime D(int y, int m, int d) {
  return EncodeDate(static_cast<Word>(y), static_cast<Word>(m), static_cast<Word>(d));
}
TDateTime DT(int y, int m, int d, int h, int n, int s = 0, int ms = 0) {
  return EncodeDateTime(static_cast<Word>(y), static_cast<Word>(m), static_cast<Word>(d),
                        static_cast<Word>(h), static_cast<Word>(n), static_cast<Word>(s),
                        static_cast<Word>(ms));
}

std::string Show(TDateTime d) {
  return FormatDateTime("yyyy-mm-dd hh:nn:ss.zzz ddd", d, TFormatSettings::Invariant());
}

TDateTime gPinned = 0;
TDateTime PinnedNow() { return gPinned; }

// Pins Now() for the life of the object.
class PinnedClock {
 public:
  explicit PinnedClock(TDateTime now) : fPrev(SetClock(&PinnedNow)) { gPinned = now; }
  ~PinnedClock() { SetClock(fPrev); }

 private:
  TClockFunc fPrev;
};

// ---- month and day steps -------------------------------------------------------------

struct StepCase {
  TDateTime from;
  int id;
  int count;
  TDateTime expected;
};

class StepTable : public ::testing::TestWithParam<StepCase> {};

TEST_P(StepTable, LandsOnTheClampedCalendarDay) {
  const StepCase& c = GetParam();
  EXPECT_EQ(Show(IncDateByStepID(c.from, c.id, c.count)), Show(c.expected))
      << Show(c.from) << " id " << c.id << " x" << c.count;
}

INSTANTIATE_TEST_SUITE_P(
    EndsOfMonths, StepTable,
    ::testing::Values(StepCase{D(2025, 1, 31), psMonth, 1, D(2025, 2, 28)},
                      StepCase{D(2024, 1, 31), psMonth, 1, D(2024, 2, 29)},
                      StepCase{D(2024, 1, 30), psMonth, 1, D(2024, 2, 29)},
                      StepCase{D(2023, 1, 29), psMonth, 1, D(2023, 2, 28)},
                      StepCase{D(2024, 1, 29), psMonth, 1, D(2024, 2, 29)},
                      StepCase{D(2025, 3, 31), psMonth, 1, D(2025, 4, 30)},
                      StepCase{D(2024, 12, 31), psMonth, 2, D(2025, 2, 28)},
                      StepCase{D(2024, 11, 30), psQuarter, 1, D(2025, 2, 28)},
                      StepCase{D(2024, 8, 31), psHalfYear, 1, D(2025, 2, 28)},
                      StepCase{D(2024, 2, 29), psYear, 1, D(2025, 2, 28)},
                      StepCase{D(2024, 2, 29), psYear, 4, D(2028, 2, 29)},
                      StepCase{D(1900, 2, 28), psYear, 100, D(2000, 2, 28)},
                      StepCase{DT(2025, 1, 31, 10, 15), psMonth, 1, DT(2025, 2, 28, 10, 15)}));

INSTANTIATE_TEST_SUITE_P(
    DaysWeeksAndNonSteps, StepTable,
    ::testing::Values(StepCase{D(2024, 2, 28), psDay, 1, D(2024, 2, 29)},
                      StepCase{D(2024, 2, 22), psWeek, 2, D(2024, 3, 7)},
                      StepCase{DT(1899, 12, 29, 6, 0), psDay, 2, DT(1899, 12, 31, 6, 0)},
                      StepCase{D(2025, 5, 15), psMonth, 0, D(2025, 5, 15)},
                      StepCase{D(2025, 5, 15), psDay, -3, D(2025, 5, 15)},
                      StepCase{D(2025, 5, 15), 7, 0, D(2025, 5, 15)},
                      StepCase{D(2025, 5, 15), 7, 1, 0.0},
                      StepCase{D(2025, 5, 15), 0, 1, 0.0}));

TEST(IncDate, AddsYearsAndMonthsTogetherThenDays) {
  // 13 months from 31 January 2024 is 28 February 2025 (not 29 February 2024 plus a year).
  EXPECT_EQ(IncDate(D(2024, 1, 31), 1, 1, 1), D(2025, 3, 1));
  EXPECT_EQ(IncDate(D(2024, 3, 31), 0, -1, 0), D(2024, 2, 29));
  EXPECT_EQ(IncDate(D(2025, 1, 1), -1, 12, -1), D(2024, 12, 31));
  EXPECT_EQ(IncDate(DT(2025, 6, 30, 23, 59), 0, 0, 1), DT(2025, 7, 1, 23, 59));
  EXPECT_THROW(IncDate(D(9999, 12, 1), 0, 1, 0), EConvertError);
  EXPECT_THROW(IncDate(D(2025, 1, 1), INT_MAX, INT_MAX, 0), EConvertError);
}

TEST(CalendarParts, DaysPerMonthAndExtraction) {
  EXPECT_EQ(DaysPerMonth(2024, 2), 29);
  EXPECT_EQ(DaysPerMonth(2100, 2), 28);
  EXPECT_EQ(DaysPerMonth(2000, 2), 29);
  EXPECT_EQ(DaysPerMonth(2025, 4), 30);
  EXPECT_EQ(DaysPerMonth(2025, 0), 0);
  EXPECT_EQ(DaysPerMonth(2025, 13), 0);
  const TDateTime d = DT(2025, 3, 7, 23, 59, 59, 999);
  EXPECT_EQ(ExtractDay(d), 7);
  EXPECT_EQ(ExtractMonth(d), 3);
  EXPECT_EQ(ExtractYear(d), 2025);
}

// ---- bank days -----------------------------------------------------------------------

struct BankCase {
  TDateTime from;
  int n;
  TDateTime expected;
};

class BankDayTable : public ::testing::TestWithParam<BankCase> {};

TEST_P(BankDayTable, SkipsWeekends) {
  const BankCase& c = GetParam();
  EXPECT_EQ(Show(IncBankDay(c.from, c.n)), Show(c.expected)) << Show(c.from) << " " << c.n;
}

// March 2025: Wednesday 5, Thursday 6, Friday 7, Saturday 8, Sunday 9, Monday 10.
INSTANTIATE_TEST_SUITE_P(
    AroundAWeekend, BankDayTable,
    ::testing::Values(BankCase{D(2025, 3, 5), 0, D(2025, 3, 5)},
                      BankCase{D(2025, 3, 8), 0, D(2025, 3, 10)},
                      BankCase{D(2025, 3, 9), 0, D(2025, 3, 10)},
                      BankCase{D(2025, 3, 7), 1, D(2025, 3, 10)},
                      BankCase{D(2025, 3, 10), -1, D(2025, 3, 7)},
                      BankCase{D(2025, 3, 8), 1, D(2025, 3, 11)},
                      BankCase{D(2025, 3, 8), -1, D(2025, 3, 6)},
                      BankCase{D(2025, 3, 9), -1, D(2025, 3, 6)},
                      BankCase{D(2025, 3, 7), 5, D(2025, 3, 14)},
                      BankCase{D(2025, 3, 10), -5, D(2025, 3, 3)},
                      BankCase{D(2025, 3, 5), 250, D(2026, 2, 18)},
                      BankCase{D(2025, 3, 10), -250, D(2024, 3, 25)},
                      BankCase{DT(2025, 3, 7, 15, 30), 1, DT(2025, 3, 10, 15, 30)},
                      // Friday 29 December 1899 06:00 lies before the epoch (-1.25).
                      BankCase{DT(1899, 12, 29, 6, 0), 1, DT(1900, 1, 1, 6, 0)}));

// The week-skipping shortcut must agree with walking day by day as the rule is stated.
TDateTime WalkBankDays(TDateTime d, int n) {
  const int s = n >= 0 ? 1 : -1;
  for (;;) {
    const int dow = DayOfWeek(d);
    if (dow != 1 && dow != 7) {
      if (n == 0) return d;
      n -= s;
    }
    d += s;
  }
}

TEST(IncBankDay, AgreesWithTheDayByDayWalkFromEveryWeekday) {
  for (int start = 0; start < 14; ++start) {
    const TDateTime from = D(2025, 3, 1) + start;
    for (int n = -40; n <= 40; ++n)
      ASSERT_EQ(Show(IncBankDay(from, n)), Show(WalkBankDays(from, n))) << Show(from) << " " << n;
  }
}

TEST(IncBankDay, ExtremeCountsAndNonDatesDoNotHang) {
  const TDateTime far = IncBankDay(D(2025, 3, 5), INT_MAX);
  EXPECT_GT(far, 3.0e9);
  EXPECT_LT(IncBankDay(D(2025, 3, 5), INT_MIN), -3.0e9);
  EXPECT_TRUE(std::isnan(IncBankDay(std::numeric_limits<double>::quiet_NaN(), 1)));
  EXPECT_EQ(IncBankDay(1e300, 1), 1e300);
}

// ---- week starts and period starts -------------------------------------------------

class WeekStartTable : public ::testing::TestWithParam<int> {};

// Wednesday 5 March 2025 at 14:00; each first day of the week gives the last such day on or
// before it, and the time of day stays.
TEST_P(WeekStartTable, IsTheLastFirstDayOnOrBefore) {
  const int w = GetParam();
  static const TDateTime expected[8] = {0, DT(2025, 3, 2, 14, 0), DT(2025, 3, 3, 14, 0),
                                        DT(2025, 3, 4, 14, 0), DT(2025, 3, 5, 14, 0),
                                        DT(2025, 2, 27, 14, 0), DT(2025, 2, 28, 14, 0),
                                        DT(2025, 3, 1, 14, 0)};
  const TDateTime got = GetDLoCorrect(DT(2025, 3, 5, 14, 0), psWeek, w);
  EXPECT_EQ(Show(got), Show(expected[w]));
  EXPECT_EQ(DayOfWeek(got), w);
}

INSTANTIATE_TEST_SUITE_P(EachFirstDay, WeekStartTable, ::testing::Range(1, 8));

TEST(GetDLoCorrect, MonthQuarterHalfYearYearStartAtMidnight) {
  const TDateTime d = DT(2025, 8, 20, 9, 30);
  EXPECT_EQ(GetDLoCorrect(d, psMonth, 2), D(2025, 8, 1));
  EXPECT_EQ(GetDLoCorrect(d, psQuarter, 2), D(2025, 7, 1));
  EXPECT_EQ(GetDLoCorrect(DT(2025, 6, 30, 9, 30), psQuarter, 2), D(2025, 4, 1));
  EXPECT_EQ(GetDLoCorrect(d, psHalfYear, 2), D(2025, 7, 1));
  EXPECT_EQ(GetDLoCorrect(DT(2025, 6, 30, 9, 30), psHalfYear, 2), D(2025, 1, 1));
  EXPECT_EQ(GetDLoCorrect(d, psYear, 2), D(2025, 1, 1));
  EXPECT_EQ(GetDLoCorrect(d, psDay, 2), d);
  EXPECT_EQ(GetDLoCorrect(d, 42, 2), d);
}

// ---- clock arithmetic ----------------------------------------------------------------

struct TimeCase {
  const char* what;
  TDateTime got;
  TDateTime expected;
};

class IncTimeTable : public ::testing::TestWithParam<TimeCase> {};

TEST_P(IncTimeTable, MovesTheClock) {
  EXPECT_NEAR(GetParam().got, GetParam().expected, 1e-9) << GetParam().what;
}

const TDateTime kBase = D(2025, 3, 5);

INSTANTIATE_TEST_SUITE_P(
    Cases, IncTimeTable,
    ::testing::Values(
        TimeCase{"25 hours", IncHour(kBase, 25), kBase + 1 + 1.0 / 24},
        TimeCase{"-25 hours", IncHour(kBase, -25), kBase - 1 - 1.0 / 24},
        TimeCase{"86400 seconds", IncSecond(kBase, 86400), kBase + 1},
        TimeCase{"1 ms", IncMSec(kBase, 1), kBase + 1.0 / 86400000},
        TimeCase{"all parts", IncTime(kBase, 49, 30, 15, 500),
                 kBase + 2 + (3600000.0 + 30 * 60000 + 15500) / 86400000},
        TimeCase{"35791 minutes still fit", IncMinute(kBase, 35791), kBase + 35791.0 / 1440},
        // 35792 minutes are 2 147 520 000 ms: past the 32-bit limit, so they wrap negative.
        TimeCase{"35792 minutes wrap", IncMinute(kBase, 35792),
                 kBase + (2147520000.0 - 4294967296.0) / 86400000},
        // Half a day minus 13 hours is below zero, and a negative result has 1 added.
        TimeCase{"negative result", IncHour(0.5, -13), 0.5 - 13.0 / 24 + 1}));

// ---- next day ------------------------------------------------------------------------

TEST(NextDay, StopsAtTheEndOfTheCalendar) {
  EXPECT_EQ(NextDay(D(9999, 12, 30)), D(9999, 12, 31));
  EXPECT_EQ(NextDay(D(9999, 12, 31)), D(9999, 12, 31));
  EXPECT_EQ(NextDay(MaxDateTime), MaxDateTime);
  EXPECT_EQ(Show(NextDay(DT(1899, 12, 29, 6, 0))), Show(DT(1899, 12, 30, 6, 0)));
  EXPECT_EQ(Show(NextDay(DT(1899, 12, 30, 18, 0))), Show(DT(1899, 12, 31, 18, 0)));
  EXPECT_TRUE(std::isnan(NextDay(std::numeric_limits<double>::quiet_NaN())));
}

// ---- step counts ---------------------------------------------------------------------

struct CountCase {
  TDateTime first, last;
  int id;
  int expected;
};

class StepCountTable : public ::testing::TestWithParam<CountCase> {};

TEST_P(StepCountTable, IsTheSmallestCoveringCount) {
  const CountCase& c = GetParam();
  EXPECT_EQ(CalcNumOfSteps(c.first, c.last, c.id), c.expected)
      << Show(c.first) << " .. " << Show(c.last) << " id " << c.id;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StepCountTable,
    ::testing::Values(CountCase{D(2025, 1, 1), D(2025, 3, 31), psMonth, 3},
                      CountCase{D(2025, 1, 1), D(2025, 4, 1), psMonth, 4},
                      CountCase{D(2025, 5, 5), D(2025, 5, 5), psDay, 1},
                      CountCase{D(2025, 5, 5), D(2025, 1, 1), psYear, 1},
                      CountCase{D(2024, 1, 1), D(2024, 12, 31), psDay, 366},
                      CountCase{D(2025, 3, 3), D(2025, 3, 9), psWeek, 1},
                      CountCase{D(2025, 3, 3), D(2025, 3, 10), psWeek, 2},
                      CountCase{D(2025, 1, 1), D(2025, 12, 31), psQuarter, 4},
                      CountCase{D(2025, 1, 1), D(2025, 12, 31), psHalfYear, 2},
                      CountCase{D(2025, 1, 1), D(2026, 1, 1), psYear, 2},
                      CountCase{D(2024, 1, 31), D(2024, 3, 30), psMonth, 2},
                      CountCase{D(1, 1, 1), D(9999, 12, 31), psDay, 3652059},
                      CountCase{D(1, 1, 1), D(9999, 11, 30), psMonth, 119987}));

TEST(CalcNumOfSteps, RefusesWhatWouldNeverEnd) {
  EXPECT_THROW(CalcNumOfSteps(D(2025, 1, 1), D(2025, 2, 1), 7), Exception);
  EXPECT_THROW(CalcNumOfSteps(D(2025, 1, 1), D(2025, 2, 1), 0), Exception);
  EXPECT_THROW(CalcNumOfSteps(D(2025, 1, 1), std::numeric_limits<double>::infinity(), psDay),
               Exception);
  EXPECT_THROW(CalcNumOfSteps(D(2025, 1, 1), 1e300, psDay), EConvertError);
  EXPECT_THROW(CalcNumOfSteps(D(2025, 1, 1), D(9999, 12, 31), psMonth), EConvertError);
}

// ---- today's periods -----------------------------------------------------------------

TEST(CurrentPeriods, FollowThePinnedClock) {
  PinnedClock clock(DT(2024, 2, 10, 13, 45));
  TDateTime lo = 0, hi = 0;
  GetCurrentMonth(lo, hi);
  EXPECT_EQ(Show(lo), Show(D(2024, 2, 1)));
  EXPECT_EQ(Show(hi), Show(DT(2024, 2, 29, 23, 59, 59, 999)));
  GetCurrentQuarter(lo, hi);
  EXPECT_EQ(Show(lo), Show(D(2024, 1, 1)));
  EXPECT_EQ(Show(hi), Show(DT(2024, 3, 31, 23, 59, 59, 999)));
  gPinned = D(2025, 12, 31);
  GetCurrentQuarter(lo, hi);
  EXPECT_EQ(Show(lo), Show(D(2025, 10, 1)));
  EXPECT_EQ(Show(hi), Show(DT(2025, 12, 31, 23, 59, 59, 999)));
  GetCurrentYear(lo, hi);
  EXPECT_EQ(Show(lo), Show(D(2025, 1, 1)));
  EXPECT_EQ(Show(hi), Show(DT(2025, 12, 31, 23, 59, 59, 999)));
}

// ---- formats -------------------------------------------------------------------------

TEST(FourDigitYearFormat, LooksAtTheShortDateFormat) {
  TFormatSettingsGuard guard;
  EXPECT_TRUE(FourDigitYearFormat());  // dd.mm.yyyy
  FormatSettings.ShortDateFormat = "dd.MM.YY";
  EXPECT_FALSE(FourDigitYearFormat());
  FormatSettings.ShortDateFormat = "YyYy/m/d";
  EXPECT_TRUE(FourDigitYearFormat());
}

TEST(StrToDateFmt, ParsesInTheGivenOrderAndPutsTheFormatBack) {
  TFormatSettingsGuard guard;
  const AnsiString before = FormatSettings.ShortDateFormat;
  EXPECT_EQ(StrToDateFmt("mm.dd.yyyy", "03.15.2025"), D(2025, 3, 15));
  EXPECT_EQ(FormatSettings.ShortDateFormat, before);
  EXPECT_EQ(StrToDateFmt("yyyy.mm.dd", "2025.03.15"), D(2025, 3, 15));
  EXPECT_EQ(FormatSettings.ShortDateFormat, before);
  // A view into the settings themselves is a legal argument.
  EXPECT_EQ(StrToDateFmt(FormatSettings.ShortDateFormat, "15.03.2025"), D(2025, 3, 15));
  for (const char* bad : {"31.02.2025", "15.03.2025x", ""}) {
    try {
      StrToDateFmt("dd.mm.yyyy", bad);
      ADD_FAILURE() << bad << " parsed";
    } catch (const EConvertError& e) {
      EXPECT_NE(e.Message().find(std::string("'") + bad + "'"), std::string::npos) << e.Message();
    }
    EXPECT_EQ(FormatSettings.ShortDateFormat, before);
  }
}

}  // namespace
}  // namespace ostrel
