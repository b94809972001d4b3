// Period kinds: bounds, stepping, re-anchoring on a kind switch, texts under a pinned today,
// localisation of the words, and temporary date formats.
#include <ostrel/periods/Kxdateutils.h>

#include <TestUtil.h>
#include <periods/TestDates.h>

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <map>
#include <optional>
#include <string>

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
  const struct {
    int kind;
    TDateTime anchor;
    const char* expected;
  } cases[] = {{pkDay, aug20, "2025-08-20 .. 2025-08-20"},
               {pkWeek, aug20, "2025-08-18 .. 2025-08-24"},
               {pkMonth, aug20, "2025-08-01 .. 2025-08-31"},
               {pkQuarter, aug20, "2025-07-01 .. 2025-09-30"},
               {pkHalfYear, aug20, "2025-07-01 .. 2025-12-31"},
               {pkYear, aug20, "2025-01-01 .. 2025-12-31"},
               {pkFrom, aug20, "2025-08-20 .. Max"},
               {pkUntil, aug20, "Min .. 2025-08-20"},
               {pkAll, aug20, "Min .. Max"},
               // No bounds to compute: false, and the caller's bounds stay as they were.
               {pkInterval, aug20, ""},
               {10, aug20, ""},
               // An empty anchor keeps the caller's bound, cut to its date.
               {pkFrom, 0.0, "2000-01-02 .. Max"},
               {pkUntil, 0.0, "Min .. 2000-01-03"},
               {pkWeek, P("2025-01-01"), "2024-12-30 .. 2025-01-05"},
               {pkWeek, P("2025-03-16"), "2025-03-10 .. 2025-03-16"},  // a Sunday closes its week
               {pkMonth, P("2024-02-10"), "2024-02-01 .. 2024-02-29"},
               {pkMonth, P("1899-11-05 18:00"), "1899-11-01 .. 1899-11-30"},
               {pkWeek, P("9999-12-31"), "9999-12-27 .. Max"},
               {pkMonth, 1e9, "9999-12-01 .. Max"},
               {pkDay, std::numeric_limits<double>::quiet_NaN(), "1899-12-30 .. 1899-12-30"}};
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
  const struct {
    int kind, step;
    const char* expected;
  } cases[] = {{pkMonth, 1, "2025-04-01 .. 2025-04-30"},
               {pkInterval, -1, "2025-02-28 .. 2025-03-31"},
               {pkInterval, 0, "2025-03-01 .. 2025-03-31"},
               {pkInterval, 2, "2025-03-01 .. 2025-04-02"},
               {pkFrom, 1, "2025-03-02 .. Max"},
               {pkUntil, -1, "Min .. 2025-03-30"},
               {pkAll, 1, "2025-03-01 .. 2025-03-31"}};
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
  const struct {
    const char *lo, *hi;
    bool keepToday;
    const char* expected;
  } cases[] = {{"2025-01-01", "2025-12-31", true, "2025-12-31"},
               {"2026-04-01", "2026-04-30", true, "2026-04-01"},
               {"2026-03-01", "2026-03-20", true, "2026-03-18"},
               {"2026-03-01", "2026-03-20", false, "2026-03-20"},
               {"2026-03-15", "2026-03-31", false, "2026-03-15"},
               {"2026-03-08", "2026-03-28", false, "2026-03-18"},  // midway: today
               {"Min", "2026-12-31", false, "2026-12-31"},         // an open bound is never near
               {"2026-01-01", "Max", false, "2026-01-01"},
               {"Min", "Max", false, "2026-03-18"}};
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
class EnglishLib : public testutil::TIntfObject<IkxLcLib> {
 public:
  void OSTREL_STDCALL Op1() override {}
  AnsiString OSTREL_STDCALL Op2(std::string_view) override { return {}; }
  WideString OSTREL_STDCALL TranslateW(std::u16string_view text, std::string_view) override {
    static const std::map<std::u16string, std::u16string> words = {
        {u"<сегодня>", u"<today>"}, {u"неделя", u"week"}, {u"нед", u"wk"}, {u"квартал", u"quarter"},
        {u"полугодие", u"half"},    {u"дн", u"days%"},    {u"с", u"from"}, {u"до", u"till"},
        {u"<все>", u"<all>"}};
    const auto it = words.find(std::u16string(text));
    return it != words.end() ? it->second : u"?" + std::u16string(text);
  }
  WideString OSTREL_STDCALL TranslateA(std::string_view text, std::string_view ctx) override {
    return TranslateW(AnsiToWide(text), ctx);
  }
  void OSTREL_STDCALL Op5() override {}
};

TEST_F(Periods, EveryWordGoesThroughTheLocalisationHook) {
  RegisterLcLib(IPtr<IkxLcLib>(new EnglishLib));
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

}  // namespace
}  // namespace ostrel
