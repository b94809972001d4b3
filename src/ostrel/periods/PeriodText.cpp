// Open bounds, temporary date formats, quarter and half-year numbering, and the texts that
// name a period to the user.
#include <ostrel/periods/Kxdateutils.h>

#include <ostrel/services/ErrServ.h>
#include <ostrel/services/StrServ.h>

#include <climits>
#include <cmath>

namespace ostrel {

namespace {

// The words of the period texts, each passed through `_` before use.
constexpr auto kToday = Cp1251(u8"<сегодня>");
constexpr auto kWeek = Cp1251(u8"неделя");
constexpr auto kWeekShort = Cp1251(u8"нед");
constexpr auto kQuarter = Cp1251(u8"квартал");
constexpr auto kHalfYear = Cp1251(u8"полугодие");
constexpr auto kDays = Cp1251(u8"дн");
constexpr auto kFrom = Cp1251(u8"с");
constexpr auto kUntil = Cp1251(u8"до");
constexpr auto kAll = Cp1251(u8"<все>");

AnsiString Translate(std::string_view word) { return WideToAnsi(_(word)); }

// A translated word that becomes part of a Format pattern: a "%" in it stays a "%".
AnsiString ForPattern(std::string_view word) {
  return StringReplaceAll(Translate(word), "%", "%%");
}

// "<n> "<word>" yyyy" formatted with d: "1 квартал 2025".
AnsiString NumberedOfYear(std::string_view word, Integer n, TDateTime d) {
  const AnsiString pattern = Format("%d \"" + ForPattern(word) + "\" yyyy", n);
  return FormatDateTime(pattern, d);
}

// Unlocks on every way out.
class DateFormatLock {
 public:
  DateFormatLock(std::string_view shortFormat, std::string_view longFormat, char separator)
      : fSaved(LockDateFormat(shortFormat, longFormat, separator)) {}
  ~DateFormatLock() { UnlockDateFormat(fSaved); }
  DateFormatLock(const DateFormatLock&) = delete;
  DateFormatLock& operator=(const DateFormatLock&) = delete;

 private:
  AnsiString fSaved;
};

}  // namespace

TDateTime MinDate() { return std::trunc(MinDateTime); }
TDateTime MaxDate() { return std::trunc(MaxDateTime); }

// ---- temporary date formats ---------------------------------------------------------

AnsiString LockDateFormat(std::string_view shortFormat, std::string_view longFormat,
                          char separator) {
  AnsiString saved = FormatSettings.ShortDateFormat;
  saved += '\0';
  saved += FormatSettings.LongDateFormat;
  saved += '\0';
  saved += FormatSettings.DateSeparator;
  // The arguments may be views into the settings being replaced.
  AnsiString newShort(shortFormat), newLong(longFormat);
  FormatSettings.ShortDateFormat.swap(newShort);
  FormatSettings.LongDateFormat.swap(newLong);
  FormatSettings.DateSeparator = separator;
  return saved;
}

void UnlockDateFormat(std::string_view saved) {
  const AnsiString text(saved);
  static constexpr TCharSet nul{'\0'};
  int pos = 1;
  AnsiString piece;
  if (ExtractStr(text, pos, nul, piece)) FormatSettings.ShortDateFormat = piece;
  if (ExtractStr(text, pos, nul, piece)) FormatSettings.LongDateFormat = piece;
  if (ExtractStr(text, pos, nul, piece)) FormatSettings.DateSeparator = piece[0];
}

// ---- quarters and half-years --------------------------------------------------------

Integer QuarterOfMonth(Integer month) { return (month - 1) / 3 + 1; }

Integer QuarterOf(TDateTime d) { return QuarterOfMonth(MonthOf(d)); }

TDateTime StartOfTheQuarter(TDateTime d) {
  Word y, m, day;
  DecodeDate(d, y, m, day);
  return EncodeDate(y, static_cast<Word>(QuarterOfMonth(m) * 3 - 2), 1);
}

TDateTime EndOfTheQuarter(TDateTime d) {
  Word y, m, day;
  DecodeDate(d, y, m, day);
  const auto last = static_cast<Word>(QuarterOfMonth(m) * 3);
  return EncodeDate(y, last, DaysInAMonth(y, last));
}

Integer HalfYearOf(TDateTime d) { return (MonthOf(d) - 1) / 6 + 1; }

// ---- period texts --------------------------------------------------------------------

AnsiString DatePeriodToStr(TDateTime d1, TDateTime d2) {
  const char separator = FormatSettings.DateSeparator;
  const std::string_view mark = separator == '-' ? ".." : "-";
  const Word thisYear = YearOf(Date());
  const Word y1 = YearOf(d1), y2 = YearOf(d2);
  const std::string_view yearPattern = y1 == thisYear && y2 == thisYear ? "yy" : "yyyy";
  AnsiString pattern = "dd.mm.";
  pattern += yearPattern;
  const bool sameYear = y1 == y2;
  if (sameYear) pattern = TrimCh(DelCh(pattern, TCharSet{'y'}), TCharSet{separator});
  AnsiString result = FormatDateTime(pattern, d1);
  result += mark;
  result += FormatDateTime(pattern, d2);
  if (sameYear) {
    result += ' ';
    result += FormatDateTime(yearPattern, d1);
  }
  return result;
}

AnsiString DatePeriodToStrEx(TDateTime d1, TDateTime d2, char separator) {
  DateFormatLock lock(FormatSettings.ShortDateFormat, FormatSettings.LongDateFormat, separator);
  return DatePeriodToStr(d1, d2);
}

AnsiString DatePeriodInfoStr(Integer kind, TDateTime d1, TDateTime d2, bool detailed) {
  switch (kind) {
    case pkDay:
      if (SameDate(d1, Date())) return Translate(kToday.View());
      return FormatDateTime("dd mmmm yyyy", d1);
    case pkWeek:
      if (!detailed) return NumberedOfYear(kWeek.View(), WeekOfTheYear(d1), d1);
      return Format("%s (" + ForPattern(kWeekShort.View()) + ")", DatePeriodToStrEx(d1, d2, '.'));
    case pkMonth: return FormatDateTime("mmmm yyyy", d1);
    case pkQuarter: return NumberedOfYear(kQuarter.View(), QuarterOf(d1), d1);
    case pkHalfYear: return NumberedOfYear(kHalfYear.View(), HalfYearOf(d1), d1);
    case pkYear: return FormatDateTime("yyyy", d1);
    case pkInterval: {
      const Integer between = DaysBetween(d1, d2);
      const Integer days = between < INT_MAX ? between + 1 : between;
      if (!detailed) return Format("%d " + ForPattern(kDays.View()), days);
      return Format("%d", days) + " (" + DatePeriodToStrEx(d1, d2, '.') + ")";
    }
    case pkFrom: return Format(ForPattern(kFrom.View()) + " %s", DateToStr(d1));
    case pkUntil: return Format(ForPattern(kUntil.View()) + " %s", DateToStr(d2));
    case pkAll: return Translate(kAll.View());
    default: return {};
  }
}

}  // namespace ostrel
