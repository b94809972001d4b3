// Date ranges: the local merge of AddRange, range lookup, editing, day counts and the
// diagnostic listing.
#include <ostrel/periods/Kxdateutils.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/services/ErrServ.h>

#include <TestUtil.h>
#include <periods/TestDates.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ostrel {
namespace {

using namespace testdates;

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
  const struct {
    const char* what;
    double lo, hi;
    std::vector<double> expected;
  } cases[] = {
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

// ---- day counts ----------------------------------------------------------------------------

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
