// Date periods: the kind-numbered period model behind period pickers, calendars and report
// filters (bounds from an anchor date, stepping, re-anchoring when the user switches kinds),
// the texts that name a period to the user, temporary date formats, and a list of date
// ranges with merging.
//
// "Today" is the platform clock's Date(); SetClock pins it. Everything that formats a date
// reads the process-wide FormatSettings and, through LockDateFormat, may change it for a
// moment, so these functions belong to the user-interface thread.
#pragma once

#include <ostrel/core/KeyIndex.h>
#include <ostrel/core/ModuleLinks.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/DateServ.h>

#include <memory>

namespace ostrel {

// Period kinds. The functions take plain integers; a value outside 0..9 is not a kind (see
// each function for what it does with one).
enum TkxDatePeriodKind : Integer {
  pkDay = 0,
  pkWeek = 1,  // ISO week, Monday to Sunday
  pkMonth = 2,
  pkQuarter = 3,
  pkHalfYear = 4,
  pkYear = 5,
  pkInterval = 6,  // free bounds
  pkFrom = 7,      // from a date, open end
  pkUntil = 8,     // until a date, open start
  pkAll = 9,
};

// What the period forms tell the user about a date they typed.
inline constexpr auto _SErrDateInput = Cp1251(u8"Ошибка при вводе даты");
inline constexpr auto _SErrDateUndefined = Cp1251(u8"Дата неопределена");

// The open bounds: 1 January of year 1 and 31 December 9999, as whole dates. A bound equal to
// one of them means "open".
OSTREL_API TDateTime MinDate();
OSTREL_API TDateTime MaxDate();

// Installs the short and long date formats and the date separator and returns what they
// were, as short format, NUL, long format, NUL, separator. UnlockDateFormat puts such a state
// back: it splits at NULs with ExtractStr, so runs of NULs count as one, and assigns the
// pieces it finds in order (short format, long format, first character of the separator
// piece); a missing piece leaves its setting alone, so UnlockDateFormat("") changes nothing.
// Pairs nest, each lock returning its own state.
OSTREL_API AnsiString LockDateFormat(std::string_view shortFormat, std::string_view longFormat,
                                     char separator);
OSTREL_API void UnlockDateFormat(std::string_view saved);

// (month - 1) div 3 + 1.
OSTREL_API Integer QuarterOfMonth(Integer month);
OSTREL_API Integer QuarterOf(TDateTime d);
// The first and the last day of d's quarter (whole dates).
OSTREL_API TDateTime StartOfTheQuarter(TDateTime d);
OSTREL_API TDateTime EndOfTheQuarter(TDateTime d);
// 1 for January to June, 2 for July to December.
OSTREL_API Integer HalfYearOf(TDateTime d);

// A compact from-to text: "01.03-31.03 2025" within one year, with a two-digit year ("26")
// in the current year, and "15.12.2024-10.01.2025" across years. The mark between the dates
// is ".." when the date separator is itself "-".
OSTREL_API AnsiString DatePeriodToStr(TDateTime d1, TDateTime d2);
// DatePeriodToStr with the given date separator in force for the call.
OSTREL_API AnsiString DatePeriodToStrEx(TDateTime d1, TDateTime d2, char separator);
// The user-facing name of a period of the kind: "<сегодня>", "10 неделя 2025",
// "Март 2025", "1 квартал 2025", "7 дн", "с 01.03.2025", "<все>" ... Every Russian word goes
// through the localisation hook `_` first. Detailed adds the bounds to weeks and intervals.
// A kind outside 0..9 gives "".
OSTREL_API AnsiString DatePeriodInfoStr(Integer kind, TDateTime d1, TDateTime d2, bool detailed);

// The period rules, as class methods.
class OSTREL_API TkxDateIntervalPr {
 public:
  TkxDateIntervalPr() = delete;

  // Sets lo and hi to the period of the kind that holds d, cut to whole dates, and returns
  // true; returns false and leaves both alone for an interval or a value that is not a kind.
  // From (7) and until (8) keep the caller's lo (hi) when d is 0.0. A d outside the calendar
  // is taken as its nearest end, NaN as 0.0.
  static bool GetPeriod(Integer kind, TDateTime d, TDateTime& lo, TDateTime& hi);
  // The date within [lo, hi] that a period re-anchored from it should hold: today when it
  // lies inside and keepToday is set, else the bound nearer today (an open bound is never
  // near), today again when both are equally far; a bound when today lies outside.
  static TDateTime GetNearDT(TDateTime lo, TDateTime hi, bool keepToday);
  // Brings [lo, hi] into the shape of the kind after the user switched from prevKind. A move
  // to a finer calendar unit keeps today when today lies inside the old period.
  static void CheckPeriod(Integer kind, Integer prevKind, TDateTime& lo, TDateTime& hi);
  // d moved by step units of the kind: days, weeks, months, quarters, half-years, years
  // (months clamp the day to the target month), days for 6..8, unchanged for 9 and any other
  // value. Results stop at MinDate and MaxDate.
  static TDateTime IncDT(Integer kind, Integer step, TDateTime d);
  // The period [lo, hi] moved by step units. An interval only widens: a step below 1 moves
  // the low bound, any other the high bound. From and until move their one bound. A shifted
  // month is not recomputed (its high bound is clamped, not re-anchored).
  static void IncPeriod(Integer kind, Integer step, TDateTime lo, TDateTime hi, TDateTime& newLo,
                        TDateTime& newHi);
};

// Closed date-time ranges kept as one sorted list of keys: range i is the keys 2i (its low
// bound) and 2i+1 (its high bound). AddRange merges locally (see there); the other
// operations work on positions as stated and raise EListError for a position out of range.
class OSTREL_API TkxDateRanges : public TObject {
  OSTREL_CLASS(TkxDateRanges, TObject)
 public:
  TkxDateRanges();
  ~TkxDateRanges() override;

  void Clear();
  // Inserts both bounds as keys, lo first, without merging.
  void Add(TDateTime lo, TDateTime hi);
  // Adds a range, merging it with the range its low bound falls into or lies just before.
  // The merge is deliberately local: it looks at that one range (and, when the low bound is
  // inside it, at its successor), absorbs at most one following range, and when the new
  // range starts inside range i and ends in the gap before range i+1 it stores a second,
  // overlapping range rather than widening range i. Callers rely on the counts this gives.
  void AddRange(TDateTime lo, TDateTime hi);
  // Deletes the keys 2*index+1 and 2*index.
  void DeleteRange(Integer index);
  // True and the bounds when the range exists; false and lo, hi untouched otherwise.
  bool GetRange(Integer index, TDateTime& lo, TDateTime& hi) const;
  // True when d lies on a stored bound or inside a range; index names the range that holds d
  // or the first range after it (-1 for an empty list).
  bool FindRange(TDateTime d, Integer& index) const;
  // Replaces the key at the position by d, re-sorted.
  void SetKey(Integer position, TDateTime d);
  void SetDTLo(Integer index, TDateTime d);
  void SetDTHi(Integer index, TDateTime d);
  // Days from the first low bound to the last high bound, gaps included: by date (whole
  // days between the date parts plus one) or by time (seconds / 86400, rounded up).
  Integer GetDaysCount(bool byTime) const;
  // The same measure summed range by range, so gaps do not count; by time the seconds are
  // summed first and rounded up once.
  Integer GetWorkDaysCount(bool byTime) const;
  // Shows the caption and every stored bound as a short date, one a line, through Alert.
  void ShowRanges(std::string_view caption) const;

  Integer get_Count() const;
  TDateTime get_DTLo() const;
  TDateTime get_DTHi() const;

 private:
  TDateTime Key(Integer position) const;

  std::unique_ptr<TkxKeyIndex> fKeys;
};

}  // namespace ostrel
