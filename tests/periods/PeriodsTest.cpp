#include <ostrel/periods/Kxdateutils.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/services/ErrServ.h>

#include <TestUtil.h>
#include <periods/TestDates.h>

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ostrel {
namespace {

using namespace testdates;
using Pr = TkxDateIntervalPr;

// Today is Wednesday 18 March 2026, 09:15, in every test here; the settings are the Russian
// defaults, and each test must leave the date formats as it found them.
class Periods : public ::testing::Test {
 protected:
  void SetUp() override {
    fClock.emplace(P("2026-03-18 09:15"));
    fSettings.emplace(TFormatSettings::Russian());
  }
  void TearDown() override {
    const TFormatSettings russian = TFormatSettings::Russian();
    EXPECT_EQ(FormatSettings.ShortDateFormat, russian.ShortDateFormat);
    EXPECT_EQ(FormatSettings.LongDateFormat, russian.LongDateFormat);
    EXPECT_EQ(FormatSettings.DateSeparator, russian.DateSeparator);
    fSettings.reset();
    fClock.reset();
  }

 private:
  std::optional<PinnedClock> fClock;
  std::optional<TFormatSettingsGuard> fSettings;
};

TEST_F(Periods, GetPeriodGivesWholeDayBounds) {
  const TDateTime aug20 = P("2025-08-20 14:30");  // a Wednesday
  // clang-format off
  const struct { int kind; TDateTime anchor; const char* expected; } cases[] = {
      {pkDay, aug20, "2025-08-20 .. 2025-08-20"}, {pkWeek, aug20, "2025-08-18 .. 2025-08-24"},
      {pkMonth, aug20, "2025-08-01 .. 2025-08-31"}, {pkQuarter, aug20, "2025-07-01 .. 2025-09-30"},
      {pkHalfYear, aug20, "2025-07-01 .. 2025-12-31"}, {pkYear, aug20, "2025-01-01 .. 2025-12-31"},
      {pkFrom, aug20, "2025-08-20 .. Max"}, {pkUntil, aug20, "Min .. 2025-08-20"},
      {pkAll, aug20, "Min .. Max"},
      // No bounds to compute: false, and the caller's bounds stay as they were.
      {pkInterval, aug20, ""}, {10, aug20, ""},
      // An empty anchor keeps the caller's bound, cut to its date.
      {pkFrom, 0.0, "2000-01-02 .. Max"}, {pkUntil, 0.0, "Min .. 2000-01-03"},
      {pkWeek, P("2025-01-01"), "2024-12-30 .. 2025-01-05"},
      {pkWeek, P("2025-03-16"), "2025-03-10 .. 2025-03-16"},  // a Sunday closes its week
      {pkMonth, P("2024-02-10"), "2024-02-01 .. 2024-02-29"},
      {pkMonth, P("1899-11-05 18:00"), "1899-11-01 .. 1899-11-30"},
      {pkWeek, P("9999-12-31"), "9999-12-27 .. Max"}, {pkMonth, 1e9, "9999-12-01 .. Max"},
      {pkDay, std::numeric_limits<double>::quiet_NaN(), "1899-12-30 .. 1899-12-30"}};
  // clang-format on
  for (const auto& c : cases) {
    TDateTime lo = P("2000-01-02 12:00"), hi = P("2000-01-03 12:00");
    EXPECT_EQ(Pr::GetPeriod(c.kind, c.anchor, lo, hi), *c.expected != 0) << c.kind;
    EXPECT_EQ(S(lo, hi), *c.expected ? c.expected : "2000-01-02 12:00 .. 2000-01-03 12:00")
        << "kind " << c.kind << " at " << S(c.anchor);
  }
}

TEST_F(Periods, IncDTMovesByTheKindsUnitWithinTheCalendar) {
  const struct {
    int kind, step;
    const char *from, *expected;
  } cases[] = {{pkDay, 1, "2024-02-28 08:00", "2024-02-29 08:00"},
               {pkWeek, -2, "2025-03-05", "2025-02-19"},
               {pkMonth, 1, "2025-03-31", "2025-04-30"},
               {pkQuarter, 1, "2024-11-30", "2025-02-28"},
               {pkYear, 1, "2024-02-29", "2025-02-28"},
               {pkInterval, 3, "2025-03-30", "2025-04-02"},
               {pkUntil, 1, "2025-12-31", "2026-01-01"},
               {pkAll, 5, "2025-03-05", "2025-03-05"},
               {42, 5, "2025-03-05", "2025-03-05"},
               {pkYear, 1, "9999-06-01", "Max"},
               {pkDay, -1, "Min", "Min"},
               {pkWeek, INT_MAX, "2025-03-05", "Max"}};
  for (const auto& c : cases)
    EXPECT_EQ(S(Pr::IncDT(c.kind, c.step, P(c.from))), c.expected)
        << "kind " << c.kind << " step " << c.step << " from " << c.from;
}

TEST_F(Periods, IncPeriodMovesOrWidensTheBounds) {
  // clang-format off
  const struct { int kind, step; const char* expected; } cases[] = {
      {pkMonth, 1, "2025-04-01 .. 2025-04-30"}, {pkInterval, -1, "2025-02-28 .. 2025-03-31"},
      {pkInterval, 0, "2025-03-01 .. 2025-03-31"}, {pkInterval, 2, "2025-03-01 .. 2025-04-02"},
      {pkFrom, 1, "2025-03-02 .. Max"}, {pkUntil, -1, "Min .. 2025-03-30"},
      {pkAll, 1, "2025-03-01 .. 2025-03-31"}};
  // clang-format on
  TDateTime newLo = 0, newHi = 0;
  for (const auto& c : cases) {
    Pr::IncPeriod(c.kind, c.step, P("2025-03-01"), P("2025-03-31"), newLo, newHi);
    EXPECT_EQ(S(newLo, newHi), c.expected) << "kind " << c.kind << " step " << c.step;
  }
  // A shifted month is not recomputed: February's 28th stays the 28th.
  Pr::IncPeriod(pkMonth, 1, P("2025-02-01"), P("2025-02-28"), newLo, newHi);
  EXPECT_EQ(S(newLo, newHi), "2025-03-01 .. 2025-03-28");
}

TEST_F(Periods, GetNearDTPrefersTodayThenTheNearerClosedBound) {
  // clang-format off
  const struct { const char *lo, *hi; bool keepToday; const char* expected; } cases[] = {
      {"2025-01-01", "2025-12-31", true, "2025-12-31"},
      {"2026-04-01", "2026-04-30", true, "2026-04-01"},
      {"2026-03-01", "2026-03-20", true, "2026-03-18"},
      {"2026-03-01", "2026-03-20", false, "2026-03-20"},
      {"2026-03-15", "2026-03-31", false, "2026-03-15"},
      {"2026-03-08", "2026-03-28", false, "2026-03-18"},  // midway: today
      {"Min", "2026-12-31", false, "2026-12-31"},  // an open bound is never near
      {"2026-01-01", "Max", false, "2026-01-01"}, {"Min", "Max", false, "2026-03-18"}};
  // clang-format on
  for (const auto& c : cases)
    EXPECT_EQ(S(Pr::GetNearDT(P(c.lo), P(c.hi), c.keepToday)), c.expected) << c.lo << " " << c.hi;
}

TEST_F(Periods, CheckPeriodReshapesForTheNewKind) {
  const struct {
    int kind, prevKind;
    const char *lo, *hi, *expected;
  } cases[] = {// Year to month: the current month while today lies in that year, else the month at
               // the end nearer today; month to year: the month's year.
               {pkMonth, pkYear, "2026-01-01", "2026-12-31", "2026-03-01 .. 2026-03-31"},
               {pkMonth, pkYear, "2024-01-01", "2024-12-31", "2024-12-01 .. 2024-12-31"},
               {pkYear, pkMonth, "2025-05-01", "2025-05-31", "2025-01-01 .. 2025-12-31"},
               // Month to quarter (coarser): the nearer bound, 31 March, not today, decides.
               {pkQuarter, pkMonth, "2026-03-01", "2026-03-31", "2026-01-01 .. 2026-03-31"},
               {pkFrom, pkInterval, "2025-12-20", "2026-03-20", "2026-03-20 .. Max"},
               {pkUntil, pkInterval, "2026-03-17", "2026-06-01", "Min .. 2026-03-17"},
               {pkMonth, pkAll, "Min", "Max", "2026-03-01 .. 2026-03-31"},
               {pkFrom, pkAll, "Min", "Max", "2026-03-18 .. Max"},
               {pkInterval, pkMonth, "2026-03-31", "2026-03-01", "2026-03-01 .. 2026-03-31"},
               {pkAll, pkMonth, "2026-03-01", "2026-03-31", "Min .. Max"},
               {12, pkMonth, "2026-03-01", "2026-03-31", "2026-03-01 .. 2026-03-31"}};
  for (const auto& c : cases) {
    TDateTime lo = P(c.lo), hi = P(c.hi);
    Pr::CheckPeriod(c.kind, c.prevKind, lo, hi);
    EXPECT_EQ(S(lo, hi), c.expected) << "kind " << c.prevKind << " -> " << c.kind;
  }
}

TEST_F(Periods, QuarterAndHalfYearNumbering) {
  std::string quarters, halves;
  for (int m = 1; m <= 12; ++m) {
    ASSERT_EQ(QuarterOf(EncodeDate(2025, static_cast<Word>(m), 15)), QuarterOfMonth(m));
    quarters += std::to_string(QuarterOfMonth(m));
    halves += std::to_string(HalfYearOf(EncodeDate(2025, static_cast<Word>(m), 15)));
  }
  EXPECT_EQ(quarters + " " + halves, "111222333444 111111222222");
  EXPECT_EQ(S(StartOfTheQuarter(P("2024-05-31 23:00")), EndOfTheQuarter(P("2024-05-31 23:00"))),
            "2024-04-01 .. 2024-06-30");
}

TEST_F(Periods, DatePeriodToStrShortensTheYear) {
  EXPECT_EQ(DatePeriodToStr(P("2025-03-01"), P("2025-03-31")), "01.03-31.03 2025");
  EXPECT_EQ(DatePeriodToStr(P("2026-03-01"), P("2026-03-31")), "01.03-31.03 26");
  EXPECT_EQ(DatePeriodToStr(P("2024-12-15"), P("2025-01-10")), "15.12.2024-10.01.2025");
  // Only one bound in the current year: both keep four digits.
  EXPECT_EQ(DatePeriodToStr(P("2025-12-15"), P("2026-01-10")), "15.12.2025-10.01.2026");
  FormatSettings.DateSeparator = '-';
  EXPECT_EQ(DatePeriodToStr(P("2024-12-15"), P("2025-01-10")), "15.12.2024..10.01.2025");
  FormatSettings.DateSeparator = '/';
  EXPECT_EQ(DatePeriodToStrEx(P("2025-03-01"), P("2025-03-31"), '.'), "01.03-31.03 2025");
  EXPECT_EQ(DatePeriodToStrEx(P("2024-12-15"), P("2025-01-10"), '-'), "15.12.2024..10.01.2025");
  EXPECT_EQ(FormatSettings.DateSeparator, '/');
  FormatSettings.DateSeparator = '.';
}

TEST_F(Periods, DatePeriodInfoStrNamesEachKind) {
  const struct {
    int kind;
    const char *d1, *d2;
    bool detailed;
    const char8_t* expected;
  } cases[] = {{pkDay, "2026-03-18 17:00", "2026-03-18", false, u8"<сегодня>"},
               {pkDay, "2025-03-01", "2025-03-01", false, u8"01 Март 2025"},
               {pkWeek, "2025-03-03", "2025-03-09", false, u8"10 неделя 2025"},
               {pkWeek, "2025-03-03", "2025-03-09", true, u8"03.03-09.03 2025 (нед)"},
               // 30 December 2024 opens ISO week 1; the year shown is the date's own.
               {pkWeek, "2024-12-30", "2025-01-05", false, u8"1 неделя 2024"},
               {pkMonth, "2025-03-01", "2025-03-31", false, u8"Март 2025"},
               {pkQuarter, "2025-07-01", "2025-09-30", false, u8"3 квартал 2025"},
               {pkHalfYear, "2025-07-01", "2025-12-31", false, u8"2 полугодие 2025"},
               {pkYear, "2025-01-01", "2025-12-31", false, u8"2025"},
               {pkInterval, "2025-03-01", "2025-03-07", false, u8"7 дн"},
               {pkInterval, "2025-03-01", "2025-03-07", true, u8"7 (01.03-07.03 2025)"},
               {pkFrom, "2025-03-01", "Max", false, u8"с 01.03.2025"},
               {pkUntil, "Min", "2025-03-07", false, u8"до 07.03.2025"},
               {pkAll, "Min", "Max", true, u8"<все>"},
               {10, "2025-03-01", "2025-03-07", false, u8""}};
  for (const auto& c : cases)
    EXPECT_EQ(AnsiToUtf8(DatePeriodInfoStr(c.kind, P(c.d1), P(c.d2), c.detailed)),
              reinterpret_cast<const char*>(c.expected))
        << "kind " << c.kind << " " << c.d1;
}

// Translates the period words into English and marks anything else with "?". The word for
// "days" carries a percent sign, which must reach the text as it is.
WideString English(std::u16string_view text, std::string_view) {
  static const std::map<std::u16string, std::u16string> words = {
      {u"<сегодня>", u"<today>"}, {u"неделя", u"week"}, {u"нед", u"wk"}, {u"квартал", u"quarter"},
      {u"полугодие", u"half"},    {u"дн", u"days%"},    {u"с", u"from"}, {u"до", u"till"},
      {u"<все>", u"<all>"}};
  const auto it = words.find(std::u16string(text));
  return it != words.end() ? it->second : u"?" + std::u16string(text);
}

TEST_F(Periods, EveryWordGoesThroughTheLocalisationHook) {
  RegisterLcLib(IPtr<IkxLcLib>(new testutil::TLcLib(English)));
  std::string texts;
  for (int kind = pkDay; kind <= pkAll; ++kind)
    for (bool detailed : {false, true})
      texts += AnsiToUtf8(DatePeriodInfoStr(kind, P(kind ? "2025-03-01" : "2026-03-18"),
                                            P("2025-03-07"), detailed)) +
               "|";
  RegisterLcLib(nullptr);
  // Month names come from the format settings, not from the hook.
  EXPECT_EQ(texts,
            "<today>|<today>|9 week 2025|01.03-07.03 2025 (wk)|Март 2025|Март 2025|"
            "1 quarter 2025|1 quarter 2025|1 half 2025|1 half 2025|2025|2025|"
            "7 days%|7 (01.03-07.03 2025)|from 01.03.2025|from 01.03.2025|"
            "till 07.03.2025|till 07.03.2025|<all>|<all>|");
}

TEST_F(Periods, LockAndUnlockNestAndAssignOnlyThePiecesFound) {
  const AnsiString longFormat = FormatSettings.LongDateFormat;
  const AnsiString outer = LockDateFormat("yyyy-mm-dd", "d mmmm yyyy", '-');
  EXPECT_EQ(outer, AnsiString("dd.mm.yyyy") + '\0' + longFormat + '\0' + '.');
  const AnsiString inner = LockDateFormat("m/d/yy", "mmmm", '/');
  EXPECT_EQ(DateToStr(P("2025-03-07")), "3/7/25");
  UnlockDateFormat(inner);
  EXPECT_EQ(DateToStr(P("2025-03-07")) + " " + FormatSettings.LongDateFormat,
            "2025-03-07 d mmmm yyyy");
  UnlockDateFormat(outer);
  EXPECT_EQ(DateToStr(P("2025-03-07")), "07.03.2025");

  UnlockDateFormat("");
  UnlockDateFormat("d/m/y");
  EXPECT_EQ(FormatSettings.ShortDateFormat + FormatSettings.DateSeparator, "d/m/y.");
  EXPECT_EQ(FormatSettings.LongDateFormat, longFormat);
  // Runs of NULs count as one, so an empty long format shifts the separator into its place.
  UnlockDateFormat(std::string_view("dd.mm.yyyy\0\0-", 13));
  EXPECT_EQ(FormatSettings.ShortDateFormat + FormatSettings.DateSeparator, "dd.mm.yyyy.");
  EXPECT_EQ(FormatSettings.LongDateFormat, "-");
  FormatSettings.LongDateFormat = longFormat;
}

// ---- date ranges ---------------------------------------------------------------------

std::vector<double> Keys(const TkxDateRanges& r) {
  std::vector<double> keys;
  TDateTime lo = 0, hi = 0;
  for (Integer i = 0; r.GetRange(i, lo, hi); ++i) {
    keys.push_back(lo);
    keys.push_back(hi);
  }
  EXPECT_EQ(keys.size(), 2 * static_cast<std::size_t>(r.get_Count()));
  return keys;
}

// Three stored ranges, added out of order: [110, 115], [120, 125], [130, 135].
void FillBase(TkxDateRanges& r) {
  r.Add(130, 135);
  r.Add(110, 115);
  r.Add(120, 125);
}

TEST(DateRanges, AddRangeMergesLocally) {
  // clang-format off
  const struct { const char* what; double lo, hi; std::vector<double> expected; } cases[] = {
      {"wholly before all", 100, 105, {100, 105, 110, 115, 120, 125, 130, 135}},
      {"wholly inside a range", 112, 114, {110, 115, 120, 125, 130, 135}},
      {"in a gap", 116, 119, {110, 115, 116, 119, 120, 125, 130, 135}},
      {"after all", 137, 140, {110, 115, 120, 125, 130, 135, 137, 140}},
      // Starts inside range 0 and ends in the gap: a second, overlapping range is stored,
      // and the sorted keys pair up anew.
      {"inside, ends in the gap", 112, 118, {110, 112, 115, 118, 120, 125, 130, 135}},
      {"on a high bound, ends in the gap", 125, 128, {110, 115, 120, 125, 125, 128, 130, 135}},
      // Starts inside range 0 and reaches range 1: range 1 is absorbed, and only range 1.
      {"inside, ends in the next", 112, 122, {110, 125, 130, 135}},
      {"inside, covers two more", 112, 150, {110, 125, 130, 135}},
      {"inside the last, past its end", 150, 132, {110, 115, 120, 125, 130, 150}},
      {"gap before range 0, into it", 107, 112, {107, 115, 120, 125, 130, 135}},
      // Widening range 0 past the others moves its high key behind theirs.
      {"gap before range 0, covering all", 107, 140, {107, 120, 125, 130, 135, 140}}};
  // clang-format on
  for (const auto& c : cases) {
    TkxDateRanges r;
    FillBase(r);
    r.AddRange(c.lo, c.hi);
    EXPECT_EQ(Keys(r), c.expected) << c.what;
  }
}

TEST(DateRanges, EditingAndBoundsOfTheList) {
  TkxDateRanges r;
  r.AddRange(5, 1);
  r.AddRange(3, 4);
  EXPECT_EQ(Keys(r), (std::vector<double>{1, 5}));
  FillBase(r);
  r.DeleteRange(1);
  EXPECT_EQ(Keys(r), (std::vector<double>{1, 5, 120, 125, 130, 135}));
  EXPECT_EQ(testutil::Join(r.get_DTLo(), r.get_DTHi()), "1 135");
  EXPECT_THROW(r.DeleteRange(3), EListError);
  r.SetDTHi(0, 118);
  r.SetDTLo(2, 127);
  EXPECT_EQ(Keys(r), (std::vector<double>{1, 118, 120, 125, 127, 135}));
  // A key moved past its neighbours lands in order and the ranges pair up anew.
  r.SetKey(0, 126);
  EXPECT_EQ(Keys(r), (std::vector<double>{118, 120, 125, 126, 127, 135}));
  EXPECT_THROW(r.SetKey(6, 1), EListError);
  TDateTime lo = -1, hi = -2;
  EXPECT_FALSE(r.GetRange(3, lo, hi) || r.GetRange(-1, lo, hi));
  EXPECT_EQ(testutil::Join(lo, hi), "-1 -2");
  r.Clear();
  EXPECT_EQ(r.get_Count(), 0);
  EXPECT_THROW(r.get_DTLo(), EListError);
  EXPECT_THROW(r.get_DTHi(), EListError);
}

TEST(DateRanges, FindRangeNamesTheHoldingOrNextRange) {
  TkxDateRanges r;
  Integer index = 7;
  EXPECT_FALSE(r.FindRange(100, index));
  EXPECT_EQ(index, -1);
  FillBase(r);
  std::string got;
  for (double d : {105.0, 110.0, 112.5, 115.0, 117.0, 120.0, 135.0, 140.0}) {
    const bool found = r.FindRange(d, index);
    got += (found ? "+" : "-") + std::to_string(index) + " ";
  }
  EXPECT_EQ(got, "-0 +0 +0 +0 -1 +1 +2 -3 ");
}

TEST(DateRanges, DayCountsByDateAndByTime) {
  TkxDateRanges r;
  EXPECT_EQ(r.GetDaysCount(false) + r.GetDaysCount(true) + r.GetWorkDaysCount(true), 0);
  r.Add(P("2025-03-05 10:00"), P("2025-03-05 11:00"));
  EXPECT_EQ(r.GetDaysCount(true), 1);
  EXPECT_EQ(r.GetDaysCount(false), 1);

  r.Clear();
  r.Add(P("2025-03-01 10:00"), P("2025-03-03 09:00"));  // 47 hours over 3 dates
  r.Add(P("2025-03-10 00:00"), P("2025-03-10 12:00"));  // 12 hours on 1 date
  // The whole span, gap included: 1 to 10 March, 9 days 2 hours.
  EXPECT_EQ(r.GetDaysCount(false), 10);
  EXPECT_EQ(r.GetDaysCount(true), 10);
  // Range by range: 3 + 1 dates; 59 hours.
  EXPECT_EQ(r.GetWorkDaysCount(false), 4);
  EXPECT_EQ(r.GetWorkDaysCount(true), 3);

  // By time the seconds are summed first and rounded up once: 3 x 8 hours is one day.
  r.Clear();
  for (const char* day : {"2025-03-03", "2025-03-04", "2025-03-05"})
    r.Add(P(day) + 9.0 / 24, P(day) + 17.0 / 24);
  EXPECT_EQ(r.GetWorkDaysCount(true), 1);
  EXPECT_EQ(r.GetWorkDaysCount(false), 3);
  r.Add(P("2025-03-06 09:00"), P("2025-03-06 09:01"));
  EXPECT_EQ(r.GetWorkDaysCount(true), 2);

  // 29 December 1899 18:00 to 30 December 06:00 is twelve hours, although the raw values
  // (-1.75 and 0.25) lie two apart.
  r.Clear();
  r.Add(P("1899-12-29 18:00"), P("1899-12-30 06:00"));
  EXPECT_EQ(r.GetDaysCount(true), 1);
  EXPECT_EQ(r.GetDaysCount(false), 2);
}

TEST(DateRanges, ShowRangesListsEveryBoundThroughAlert) {
  AnsiString shown;
  TAlertHandler prev =
      SetAlertHandler([&](const AnsiString&, const AnsiString& text) { shown = text; });
  TkxDateRanges r;
  r.Add(P("2025-03-01 10:00"), P("2025-03-03"));
  r.Add(P("2025-03-10"), P("2025-03-10"));
  r.ShowRanges(Ansi(u8"Периоды"));
  EXPECT_EQ(shown, Ansi(u8"Периоды\r01.03.2025\r03.03.2025\r10.03.2025\r10.03.2025"));
  r.ShowRanges("");
  EXPECT_EQ(shown, "01.03.2025\r03.03.2025\r10.03.2025\r10.03.2025");
  r.Clear();
  r.ShowRanges("50%");
  EXPECT_EQ(shown, "50%\r");
  SetAlertHandler(prev);
}

}  // namespace
}  // namespace ostrel
