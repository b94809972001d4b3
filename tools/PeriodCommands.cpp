// `ostrel bankday`, `period` and `steps`: bank-day arithmetic, the bounds and texts of a
// period, and step counts from the command line; and the period picker's section of
// `ostrel demo`. Dates are read as the Russian short date (dd.mm.yyyy, or dd.mm.yy) or in
// ISO form (yyyy-mm-dd).
#include "Cli.h"

#include <ostrel/periods/Kxdateutils.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/services/DateServ.h>

#include <array>
#include <cctype>

namespace ostrel::cli {
namespace {

constexpr std::array<const char*, 10> kKindNames = {
    "day", "week", "month", "quarter", "halfyear", "year", "interval", "from", "until", "all"};

bool AllDigits(std::string_view s) {
  if (s.empty()) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

TDateTime ReadDate(std::string_view text);

// yyyy-mm-dd (month and day of one or two digits); false when the text is not of that shape.
bool TryIsoDate(std::string_view s, TDateTime& value) {
  const std::size_t dash1 = s.find('-');
  const std::size_t dash2 = dash1 == std::string_view::npos ? dash1 : s.find('-', dash1 + 1);
  if (dash1 != 4 || dash2 == std::string_view::npos) return false;
  const std::string_view y = s.substr(0, 4), m = s.substr(5, dash2 - 5), d = s.substr(dash2 + 1);
  if (!AllDigits(y) || !AllDigits(m) || !AllDigits(d) || m.size() > 2 || d.size() > 2) return false;
  if (!TryEncodeDate(static_cast<Word>(StrToInt(y)), static_cast<Word>(StrToInt(m)),
                     static_cast<Word>(StrToInt(d)), value))
    throw EConvertError(Format(SysConst::SInvalidDate, s));
  return true;
}

// A date typed on the command line; one that is not a date is bad usage.
TDateTime ParseDate(std::string_view text) {
  return ArgValue([&] { return ReadDate(text); });
}

TDateTime ReadDate(std::string_view text) {
  const AnsiString t = Trim(text);
  TDateTime value = 0;
  if (TryIsoDate(t, value)) return value;
  // Anything else is read as a Russian short date; a text that is neither raises the
  // platform's conversion error naming it.
  const TFormatSettings russian = TFormatSettings::Russian();
  if (!TryStrToDate(t, value, russian)) throw EConvertError(Format(SysConst::SInvalidDate, t));
  return value;
}

int ParseInteger(std::string_view text, const char* what) {
  Integer n = 0;
  if (!TryStrToInt(Trim(text), n)) throw UsageError(std::string(what) + " must be an integer");
  return n;
}

// A name from the list or its number (the position plus `first`).
int ParseNamed(std::string_view text, std::size_t count, int first, const char* what) {
  const AnsiString name = LowerCase(Trim(text));
  for (std::size_t i = 0; i < count; ++i)
    if (name == kKindNames[i]) return static_cast<int>(i) + first;
  Integer n = 0;
  if (TryStrToInt(name, n) && n >= first && n < first + static_cast<int>(count)) return n;
  std::string names;
  for (std::size_t i = 0; i < count; ++i) names += (i ? ", " : "") + std::string(kKindNames[i]);
  throw UsageError(std::string("unknown ") + what + " '" + std::string(text) + "' (" + names +
                   ", or " + std::to_string(first) + ".." +
                   std::to_string(first + static_cast<int>(count) - 1) + ")");
}

AnsiString DateWithDay(TDateTime d) {
  return DateToStr(d) + " (" + FormatSettings.LongDayNames[DayOfWeek(d) - 1] + ")";
}

void Line(Cli& cli, std::string_view label, std::string_view value) {
  AnsiString line(label);
  if (line.size() < 10) line.append(10 - line.size(), ' ');
  line += value;
  cli.WriteLn(line);
}

int RunBankDay(Cli& cli, const Args& parsed) {
  const std::vector<AnsiString>& args = parsed.Values();
  TFormatSettingsGuard russian(TFormatSettings::Russian());
  const TDateTime from = ParseDate(args[0]);
  const int n = ParseInteger(args[1], "N");
  const TDateTime result = IncBankDay(from, n);
  if (DateOf(result) < MinDate() || DateOf(result) > MaxDate())
    throw Exception("bankday: the result lies outside the years 1 to 9999");
  cli.WriteLn(DateWithDay(result));
  return 0;
}

int RunPeriod(Cli& cli, const Args& parsed) {
  const std::vector<AnsiString>& args = parsed.Values();
  TFormatSettingsGuard russian(TFormatSettings::Russian());
  const int kind = ParseNamed(args[0], kKindNames.size(), 0, "kind");
  const TDateTime date = ParseDate(args[1]);
  if (args.size() == 3 && kind != pkInterval)
    throw UsageError("only an interval takes a LAST date");
  // An interval keeps the bounds it is given.
  TDateTime lo = date, hi = args.size() == 3 ? ParseDate(args[2]) : date;
  if (!TkxDateIntervalPr::GetPeriod(kind, date, lo, hi))
    TkxDateIntervalPr::CheckPeriod(kind, kind, lo, hi);  // puts the bounds in order
  Line(cli, "kind", IntToStr(kind) + " " + kKindNames[static_cast<std::size_t>(kind)]);
  Line(cli, "from", DateToStr(lo));
  Line(cli, "to", DateToStr(hi));
  Line(cli, "text", DatePeriodInfoStr(kind, lo, hi, false));
  Line(cli, "detailed", DatePeriodInfoStr(kind, lo, hi, true));
  return 0;
}

int RunSteps(Cli& cli, const Args& parsed) {
  const std::vector<AnsiString>& args = parsed.Values();
  TFormatSettingsGuard russian(TFormatSettings::Russian());
  const TDateTime first = ParseDate(args[0]);
  const TDateTime last = ParseDate(args[1]);
  // Step ids are 1 (day) to 6 (year): the first six kind names.
  const int step = ParseNamed(args[2], 6, 1, "step");
  const Integer count = CalcNumOfSteps(first, last, step);
  cli.WriteLn(IntToStr(count) + (count == 1 ? " step" : " steps"));
  constexpr Integer shown = 60;
  for (Integer i = 1; i <= count && i <= shown; ++i) {
    const TDateTime start = i == 1 ? first : IncDateByStepID(first, step, i - 1);
    const TDateTime end = IncDateByStepID(first, step, i) - 1;
    cli.WriteLn(Format("%4d  %s - %s", i, DateToStr(start), DateToStr(end)));
  }
  if (count > shown) cli.WriteLn(Format("  ... %d more", count - shown));
  return 0;
}

OSTREL_CLI_COMMAND(.name = "bankday", .summary = "Move a date by N bank days (Monday to Friday)",
                   .run = RunBankDay, .usage = "DATE N", .minValues = 2, .maxValues = 2,
                   .details = "Dates: dd.mm.yyyy, dd.mm.yy or yyyy-mm-dd. N may be negative.");
OSTREL_CLI_COMMAND(.name = "period",
                   .summary =
                       "Show the period of a kind (day, week, month, quarter, halfyear, year, "
                       "interval, from, until, all) that holds a date, with its texts",
                   .run = RunPeriod, .usage = "KIND DATE [LAST]", .minValues = 2, .maxValues = 3,
                   .details = "KIND is a name or its number 0..9; only an interval takes LAST.");
OSTREL_CLI_COMMAND(.name = "steps",
                   .summary = "Count the steps (day ... year) that cover FIRST to LAST",
                   .run = RunSteps, .usage = "FIRST LAST STEP", .minValues = 3, .maxValues = 3,
                   .details = "STEP is day, week, month, quarter, halfyear, year or 1..6.");

// ---- demo ----------------------------------------------------------------------------------

// Wednesday 18 March 2026, 10:00: the demo's "today".
TDateTime DemoToday() { return EncodeDateTime(2026, 3, 18, 10, 0, 0, 0); }

class DemoClock {
 public:
  DemoClock() : fPrev(SetClock(&DemoToday)) {}
  ~DemoClock() { SetClock(fPrev); }
  DemoClock(const DemoClock&) = delete;
  DemoClock& operator=(const DemoClock&) = delete;

 private:
  TClockFunc fPrev;
};

AnsiString Bounds(TDateTime lo, TDateTime hi) { return DateToStr(lo) + " - " + DateToStr(hi); }

void PickerRow(Cli& cli, std::string_view label, TDateTime lo, TDateTime hi, int kind) {
  AnsiString line = "  ";
  line += label;
  if (line.size() < 26) line.append(26 - line.size(), ' ');
  line += Bounds(lo, hi);
  line += "  ";
  line += DatePeriodInfoStr(kind, lo, hi, false);
  const AnsiString detailed = DatePeriodInfoStr(kind, lo, hi, true);
  if (detailed != DatePeriodInfoStr(kind, lo, hi, false)) line += " | " + detailed;
  cli.WriteLn(line);
}

void DemoPeriods(Cli& cli) {
  DemoClock clock;
  const TDateTime today = Date();
  cli.WriteLn("  today is " + DateWithDay(today));
  for (int kind = pkDay; kind <= pkAll; ++kind) {
    TDateTime lo = IncBankDay(today, -12), hi = today;  // the interval keeps these
    TkxDateIntervalPr::GetPeriod(kind, today, lo, hi);
    PickerRow(cli, IntToStr(kind) + " " + kKindNames[static_cast<std::size_t>(kind)], lo, hi, kind);
  }
  TDateTime lo = 0, hi = 0, newLo = 0, newHi = 0;
  TkxDateIntervalPr::GetPeriod(pkQuarter, today, lo, hi);
  TkxDateIntervalPr::IncPeriod(pkQuarter, -1, lo, hi, newLo, newHi);
  PickerRow(cli, "quarter, one back", newLo, newHi, pkQuarter);
  TkxDateIntervalPr::GetPeriod(pkYear, today, lo, hi);
  TkxDateIntervalPr::CheckPeriod(pkMonth, pkYear, lo, hi);
  PickerRow(cli, "year -> month", lo, hi, pkMonth);
  lo = EncodeDate(2025, 5, 1);
  hi = EncodeDate(2025, 5, 31);
  TkxDateIntervalPr::CheckPeriod(pkYear, pkMonth, lo, hi);
  PickerRow(cli, "May 2025 -> year", lo, hi, pkYear);
  const TDateTime friday = EncodeDate(2026, 3, 20), saturday = EncodeDate(2026, 3, 21);
  cli.WriteLn("  " + DateToStr(friday) + " + 1 bank day = " + DateWithDay(IncBankDay(friday, 1)));
  cli.WriteLn("  " + DateToStr(saturday) +
              " - 1 bank day = " + DateWithDay(IncBankDay(saturday, -1)));
}

OSTREL_CLI_DEMO(70, "Date periods as a period picker shows them", DemoPeriods);

}  // namespace
}  // namespace ostrel::cli
