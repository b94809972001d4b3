// Date arithmetic: month steps, bank days, week starts, clock arithmetic, step counts, the
// current periods under a pinned clock, and parsing with a temporary short date format.
#include <ostrel/services/DateServ.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>

#include <TestUtil.h>
#include <periods/TestDates.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>

namespace ostrel {
namespace {

using namespace testdates;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(IncDateByStepID, LandsOnTheClampedCalendarDay) {
  const struct {
    const char* from;
    int id, count;
    const char* expected;
  } cases[] = {{"2025-01-31", psMonth, 1, "2025-02-28"},
               // clang-format off
               {"2024-01-31", psMonth, 1, "2024-02-29"}, {"2024-01-30", psMonth, 1, "2024-02-29"},
               {"2023-01-29", psMonth, 1, "2023-02-28"}, {"2024-11-30", psQuarter, 1, "2025-02-28"},
               {"2024-08-31", psHalfYear, 1, "2025-02-28"}, {"2024-02-29", psYear, 1, "2025-02-28"},
               {"2024-02-29", psYear, 4, "2028-02-29"},
               {"2025-01-31 10:15", psMonth, 1, "2025-02-28 10:15"},
               {"2024-02-28", psDay, 1, "2024-02-29"}, {"2024-02-22", psWeek, 2, "2024-03-07"},
               {"1899-12-29 06:00", psDay, 2, "1899-12-31 06:00"},
               // No count, no step: the date itself; a step id that is not one: the zero date.
               {"2025-05-15", psMonth, 0, "2025-05-15"}, {"2025-05-15", 7, 0, "2025-05-15"},
               // clang-format on
               {"2025-05-15", 7, 1, "1899-12-30"}};
  for (const auto& c : cases)
    EXPECT_EQ(S(IncDateByStepID(P(c.from), c.id, c.count)), c.expected)
        << c.from << " id " << c.id << " x" << c.count;
}

TEST(IncDate, AddsYearsAndMonthsTogetherThenDays) {
  // 13 months from 31 January 2024 is 28 February 2025 (not 29 February 2024 plus a year).
  EXPECT_EQ(S(IncDate(P("2024-01-31"), 1, 1, 1)), "2025-03-01");
  EXPECT_EQ(S(IncDate(P("2024-03-31"), 0, -1, 0)), "2024-02-29");
  EXPECT_EQ(S(IncDate(P("2025-06-30 23:59"), -1, 12, 1)), "2025-07-01 23:59");
  EXPECT_THROW(IncDate(P("9999-12-01"), 0, 1, 0), EConvertError);
  EXPECT_THROW(IncDate(P("2025-01-01"), INT_MAX, INT_MAX, 0), EConvertError);
  EXPECT_EQ(testutil::Join(DaysPerMonth(2024, 2), DaysPerMonth(2100, 2)), "29 28");
  EXPECT_EQ(DaysPerMonth(2025, 13), 0);
}

// March 2025: Wednesday 5, Thursday 6, Friday 7, Saturday 8, Sunday 9, Monday 10.
TEST(IncBankDay, SkipsWeekendsInBothDirections) {
  const struct {
    const char* from;
    int n;
    const char* expected;
  } cases[] = {{"2025-03-05", 0, "2025-03-05"},
               // clang-format off
               {"2025-03-08", 0, "2025-03-10"}, {"2025-03-09", 0, "2025-03-10"},
               {"2025-03-07", 1, "2025-03-10"}, {"2025-03-10", -1, "2025-03-07"},
               {"2025-03-08", 1, "2025-03-11"}, {"2025-03-08", -1, "2025-03-06"},
               {"2025-03-09", -1, "2025-03-06"}, {"2025-03-07", 5, "2025-03-14"},
               {"2025-03-10", -5, "2025-03-03"}, {"2025-03-05", 250, "2026-02-18"},
               {"2025-03-10", -250, "2024-03-25"}, {"2025-03-07 15:30", 1, "2025-03-10 15:30"},
               // clang-format on
               // Friday 29 December 1899 06:00 lies before the epoch (-1.25).
               {"1899-12-29 06:00", 1, "1900-01-01 06:00"}};
  for (const auto& c : cases)
    EXPECT_EQ(S(IncBankDay(P(c.from), c.n)), c.expected) << c.from << " " << c.n;
}

// The rule as stated, one day at a time: the week-skipping shortcut must agree with it.
TDateTime WalkBankDays(TDateTime d, int n) {
  const int s = n >= 0 ? 1 : -1;
  for (;; d += s) {
    const int dow = DayOfWeek(d);
    if (dow == 1 || dow == 7) continue;
    if (n == 0) return d;
    n -= s;
  }
}

TEST(IncBankDay, AgreesWithTheDayByDayWalkAndSurvivesExtremes) {
  for (int start = 0; start < 14; ++start)
    for (int n = -40; n <= 40; ++n)
      ASSERT_EQ(IncBankDay(P("2025-03-01") + start, n), WalkBankDays(P("2025-03-01") + start, n))
          << start << " " << n;
  EXPECT_GT(IncBankDay(P("2025-03-05"), INT_MAX), 3.0e9);
  EXPECT_LT(IncBankDay(P("2025-03-05"), INT_MIN), -3.0e9);
  EXPECT_TRUE(std::isnan(IncBankDay(kNaN, 1)));
  EXPECT_EQ(IncBankDay(1e300, 1), 1e300);
}

TEST(GetDLoCorrect, StartsTheWeekOnEachFirstDayAndOtherStepsAtMidnight) {
  // Wednesday 5 March 2025: the last day on or before it with each day-of-week number.
  const char* weeks[8] = {"",
                          "2025-03-02 14:00",
                          "2025-03-03 14:00",
                          "2025-03-04 14:00",
                          "2025-03-05 14:00",
                          "2025-02-27 14:00",
                          "2025-02-28 14:00",
                          "2025-03-01 14:00"};
  for (int w = 1; w <= 7; ++w)
    EXPECT_EQ(S(GetDLoCorrect(P("2025-03-05 14:00"), psWeek, w)), weeks[w]) << w;
  const TDateTime d = P("2025-08-20 09:30"), june30 = P("2025-06-30 09:30");
  EXPECT_EQ(S(GetDLoCorrect(d, psMonth, 2)), "2025-08-01");
  EXPECT_EQ(S(GetDLoCorrect(d, psQuarter, 2)) + S(GetDLoCorrect(june30, psQuarter, 2)),
            "2025-07-012025-04-01");
  EXPECT_EQ(S(GetDLoCorrect(d, psHalfYear, 2)) + S(GetDLoCorrect(june30, psHalfYear, 2)),
            "2025-07-012025-01-01");
  EXPECT_EQ(S(GetDLoCorrect(d, psYear, 2)), "2025-01-01");
  EXPECT_EQ(GetDLoCorrect(d, psDay, 2), d);
  EXPECT_EQ(GetDLoCorrect(d, 42, 2), d);
}

TEST(IncTime, MovesTheClockWithThe32BitRest) {
  const TDateTime b = P("2025-03-05");
  constexpr double ms = 1.0 / 86400000;
  EXPECT_NEAR(IncHour(b, 25), b + 1 + 1.0 / 24, 1e-9);
  EXPECT_NEAR(IncHour(b, -25), b - 1 - 1.0 / 24, 1e-9);
  EXPECT_NEAR(IncSecond(b, 86400), b + 1, 1e-9);
  EXPECT_NEAR(IncMSec(b, 1), b + ms, 1e-12);
  EXPECT_NEAR(IncTime(b, 49, 30, 15, 500), b + 2 + (3600000.0 + 30 * 60000 + 15500) * ms, 1e-9);
  EXPECT_NEAR(IncMinute(b, 35791), b + 35791.0 / 1440, 1e-9);
  // 35792 minutes are 2 147 520 000 ms: past the 32-bit limit, so they wrap negative.
  EXPECT_NEAR(IncMinute(b, 35792), b + (2147520000.0 - 4294967296.0) * ms, 1e-9);
  // Half a day minus 13 hours is below zero, and a negative result has 1 added.
  EXPECT_NEAR(IncHour(0.5, -13), 0.5 - 13.0 / 24 + 1, 1e-9);
}

TEST(NextDay, StopsAtTheEndOfTheCalendar) {
  EXPECT_EQ(S(NextDay(P("9999-12-30"))), "Max");
  EXPECT_EQ(S(NextDay(P("9999-12-31"))), "Max");
  EXPECT_EQ(NextDay(MaxDateTime), MaxDateTime);
  EXPECT_EQ(S(NextDay(P("1899-12-29 06:00"))), "1899-12-30 06:00");
  EXPECT_EQ(S(NextDay(P("1899-12-30 18:00"))), "1899-12-31 18:00");
  EXPECT_TRUE(std::isnan(NextDay(kNaN)));
}

TEST(CalcNumOfSteps, IsTheSmallestCoveringCount) {
  // clang-format off
  const struct { const char *first, *last; int id, expected; } cases[] = {
      {"2025-01-01", "2025-03-31", psMonth, 3}, {"2025-01-01", "2025-04-01", psMonth, 4},
      {"2024-01-31", "2024-03-30", psMonth, 2}, {"2025-05-05", "2025-01-01", psYear, 1},
      {"2024-01-01", "2024-12-31", psDay, 366}, {"2025-03-03", "2025-03-10", psWeek, 2},
      {"2025-01-01", "2025-12-31", psQuarter, 4}, {"0001-01-01", "9999-12-31", psDay, 3652059},
      {"0001-01-01", "9999-11-30", psMonth, 119987}};
  // clang-format on
  for (const auto& c : cases)
    EXPECT_EQ(CalcNumOfSteps(P(c.first), P(c.last), c.id), c.expected)
        << c.first << " .. " << c.last << " id " << c.id;
  // What would never end is refused.
  const TDateTime first = P("2025-01-01");
  EXPECT_THROW(CalcNumOfSteps(first, P("2025-02-01"), 7), Exception);
  EXPECT_THROW(CalcNumOfSteps(first, P("2025-02-01"), 0), Exception);
  EXPECT_THROW(CalcNumOfSteps(first, std::numeric_limits<double>::infinity(), psDay), Exception);
  EXPECT_THROW(CalcNumOfSteps(first, 1e300, psDay), EConvertError);
  EXPECT_THROW(CalcNumOfSteps(first, P("9999-12-31"), psMonth), EConvertError);
}

TEST(CurrentPeriods, FollowThePinnedClock) {
  PinnedClock clock(P("2024-02-10 13:45"));
  TDateTime lo = 0, hi = 0;
  GetCurrentMonth(lo, hi);
  EXPECT_EQ(S(lo) + " .. " + FormatDateTime("yyyy-mm-dd hh:nn:ss.zzz", hi),
            "2024-02-01 .. 2024-02-29 23:59:59.999");
  GetCurrentQuarter(lo, hi);
  EXPECT_EQ(S(lo, hi), "2024-01-01 .. 2024-03-31 23:59");
  gPinned = P("2025-12-31");
  GetCurrentQuarter(lo, hi);
  EXPECT_EQ(S(lo, hi), "2025-10-01 .. 2025-12-31 23:59");
  GetCurrentYear(lo, hi);
  EXPECT_EQ(S(lo, hi), "2025-01-01 .. 2025-12-31 23:59");
}

TEST(StrToDateFmt, ParsesInTheGivenOrderAndPutsTheFormatBack) {
  TFormatSettingsGuard guard;
  EXPECT_TRUE(FourDigitYearFormat());  // dd.mm.yyyy
  EXPECT_EQ(S(StrToDateFmt("mm.dd.yyyy", "03.15.2025")), "2025-03-15");
  EXPECT_EQ(S(StrToDateFmt("yyyy.mm.dd", "2025.03.15")), "2025-03-15");
  // A view into the settings themselves is a legal argument.
  EXPECT_EQ(S(StrToDateFmt(FormatSettings.ShortDateFormat, "15.03.2025")), "2025-03-15");
  EXPECT_EQ(FormatSettings.ShortDateFormat, "dd.mm.yyyy");
  for (const char* bad : {"31.02.2025", "15.03.2025x", ""}) {
    const std::string message =
        testutil::MessageOf<EConvertError>([&] { StrToDateFmt("yy.mm.dd", bad); });
    EXPECT_NE(message.find(std::string("'") + bad + "'"), std::string::npos) << message;
    EXPECT_EQ(FormatSettings.ShortDateFormat, "dd.mm.yyyy");
  }
  FormatSettings.ShortDateFormat = "dd.MM.YY";
  EXPECT_FALSE(FourDigitYearFormat());
  FormatSettings.ShortDateFormat = "YyYy/m/d";
  EXPECT_TRUE(FourDigitYearFormat());
}

}  // namespace
}  // namespace ostrel
