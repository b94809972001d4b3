// `ostrel words`, `number`, `round` and `params`: amounts and numbers in words, decimal
// rounding and parameter templates from the command line. Each takes its value from the
// arguments, or, when none is given, one value per line of standard input, so that a script
// converts a column in one call.
#include "Cli.h"

#include <ostrel/core/Dump.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Variants.h>
#include <ostrel/services/NumToText.h>
#include <ostrel/services/Params.h>
#include <ostrel/services/Rounding.h>

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <set>

namespace ostrel::cli {
namespace {

int ParseInt(std::string_view text, const char* what, int lo, int hi) {
  const AnsiString t = Trim(text);
  int v = 0;
  const auto r = std::from_chars(t.data(), t.data() + t.size(), v);
  if (t.empty() || r.ec != std::errc() || r.ptr != t.data() + t.size() || v < lo || v > hi)
    throw UsageError(AnsiString(what) + " must be a whole number from " + IntToStr(lo) + " to " +
                     IntToStr(hi) + ", not '" + AnsiString(text) + "'");
  return v;
}

// A number typed by a person or a script: "2.675", "2,675", "-1e3", "nan", "inf".
Extended ParseReal(std::string_view text) {
  AnsiString t = Trim(text);
  const AnsiString lower = LowerCase(t);
  if (lower == "nan") return std::numeric_limits<Extended>::quiet_NaN();
  if (lower == "inf" || lower == "+inf") return std::numeric_limits<Extended>::infinity();
  if (lower == "-inf") return -std::numeric_limits<Extended>::infinity();
  std::replace(t.begin(), t.end(), ',', '.');
  Extended v = 0;
  const bool digit = std::any_of(t.begin(), t.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!digit || !TryStrToFloat(t, v, TFormatSettings::Invariant()))
    throw EConvertError("'" + Trim(text) + "' is not a number");
  return v;
}

// Runs convert on every value given, or on every line of standard input when none was.
// A bad value on the command line is bad usage (status 2); a bad input line gives an empty
// output line (so that output lines stay beside their input lines), its error on standard
// error, and exit status 1 at the end.
int ForEachValue(Cli& cli, const std::vector<AnsiString>& values,
                 const std::function<AnsiString(const AnsiString&)>& convert) {
  if (!values.empty()) {
    for (const AnsiString& v : values) cli.WriteLn(ArgValue([&] { return convert(v); }));
    return 0;
  }
  int status = 0;
  AnsiString line;
  for (long n = 1; cli.ReadLine(line); ++n) {
    try {
      cli.WriteLn(convert(line));
    } catch (const Exception& e) {
      cli.WriteLn();
      cli.ErrorLn("ostrel: line " + IntToStr(n) + ": " + e.Message());
      status = 1;
    }
  }
  return status;
}

// ---------------------------------------------------------------------------------------

int RunWords(Cli& cli, const Args& p) {
  const AnsiString lang = p.Value("--lang", "RU");
  const AnsiString currency = p.Value("--currency", "RUR");
  const int decimals =
      p.Value("--decimals") ? ParseInt(*p.Value("--decimals"), "--decimals", 0, 18) : 2;
  // Unknown codes fail before any input is read.
  TkxNumToTextRec rec;
  ArgValue([&] { TkxNumToTextPr::GetNumRec(lang, rec, true); });
  TkxCrcToTextRec crc;
  ArgValue([&] { TkxNumToTextPr::GetCrcRec(rec, currency, crc, true); });
  return ForEachValue(cli, p.Values(), [&](const AnsiString& amount) {
    const AnsiString t = LowerCase(Trim(amount));
    if (t == "nan" || t == "inf" || t == "-inf" || t == "+inf")
      throw EConvertError("'" + Trim(amount) + "' is not an amount");
    return TkxNumToTextPr::AmountToText(rec, crc.IntName, crc.FracName, amount, decimals);
  });
}

TSex ParseGender(std::string_view g) {
  const AnsiString t = LowerCase(Trim(g));
  if (t == "m") return Male;
  if (t == "f") return Female;
  if (t == "n" || t == "u") return Unmale;
  throw UsageError("--gender must be m, f or n, not '" + AnsiString(g) + "'");
}

int RunNumber(Cli& cli, const Args& p) {
  const AnsiString lang = p.Value("--lang", "RU");
  const TSex sex = p.Value("--gender") ? ParseGender(*p.Value("--gender")) : Male;
  TkxNumToTextRec rec;
  ArgValue([&] { TkxNumToTextPr::GetNumRec(lang, rec, true); });
  return ForEachValue(cli, p.Values(), [&](const AnsiString& value) {
    const AnsiString digits = Trim(value);
    const std::size_t start = !digits.empty() && (digits[0] == '-' || digits[0] == '+') ? 1 : 0;
    if (start >= digits.size() ||
        !std::all_of(digits.begin() + static_cast<std::ptrdiff_t>(start), digits.end(),
                     [](char c) { return c >= '0' && c <= '9'; }))
      throw EConvertError("'" + digits + "' is not a whole number in digits");
    AnsiString text;
    TkxNumToTextPr::NumToText(rec, digits, text, sex);
    return text;
  });
}

TDecimalRoundingCtrl ParseMode(std::string_view name) {
  static const char* const kNames[] = {"drNone",     "drHalfEven", "drHalfPos", "drHalfNeg",
                                       "drHalfDown", "drHalfUp",   "drRndNeg",  "drRndPos",
                                       "drRndDown",  "drRndUp"};
  const AnsiString t = Trim(name);
  for (int i = 0; i < 10; ++i) {
    const std::string_view full = kNames[i];
    if (SameText(t, full) || SameText(t, full.substr(2)) || t == IntToStr(i))
      return static_cast<TDecimalRoundingCtrl>(i);
  }
  throw UsageError("unknown rounding mode '" + AnsiString(name) +
                   "'; one of None HalfEven HalfPos HalfNeg HalfDown HalfUp RndNeg RndPos "
                   "RndDown RndUp (with or without dr), or 0..9");
}

// The rounded value with as many decimals as were asked for (none for negative places), in
// the decimal separator the input used.
AnsiString RoundedText(Extended v, int places, char separator) {
  if (std::isnan(v)) return "NAN";
  if (std::isinf(v)) return v < 0 ? "-INF" : "INF";
  std::string buf(LDBL_MAX_10_EXP + 64, '\0');
  const auto r =
      places >= 0 && places <= 18
          ? std::to_chars(buf.data(), buf.data() + buf.size(), v, std::chars_format::fixed, places)
          : std::to_chars(buf.data(), buf.data() + buf.size(), v, std::chars_format::fixed);
  buf.resize(static_cast<std::size_t>(r.ptr - buf.data()));
  // No "-0" for a negative value that rounded to zero.
  if (buf[0] == '-' && buf.find_first_not_of("-0.") == std::string::npos) buf.erase(0, 1);
  std::replace(buf.begin(), buf.end(), '.', separator);
  return buf;
}

int RunRound(Cli& cli, const Args& p) {
  const TDecimalRoundingCtrl mode = p.Value("--mode") ? ParseMode(*p.Value("--mode")) : drHalfUp;
  const int places = ParseInt(p.Values().back(), "PLACES", -4932, 4932);
  std::vector<AnsiString> xs;
  if (p.Values().size() == 2) xs.push_back(p.Values()[0]);
  return ForEachValue(cli, xs, [&](const AnsiString& x) {
    const Extended v = ParseReal(x);
    const char separator = x.find(',') != AnsiString::npos ? ',' : '.';
    return RoundedText(RoundExt(v, places, mode), places, separator);
  });
}

int RunParams(Cli& cli, const Args& p) {
  char marker = '%';
  if (const AnsiString* m = p.Value("--marker")) {
    if (m->size() != 1) throw UsageError("--marker must be one character, not '" + *m + "'");
    marker = (*m)[0];
  }
  const bool strict = p.Flag("--strict");
  IPtr<IDump> dump = GetDumpIntf();
  std::vector<AnsiString> templates;
  for (std::size_t i = 0; i < p.Values().size(); ++i) {
    const AnsiString& v = p.Values()[i];
    if (i == 0) {
      if (v != "-") templates.push_back(v);
      continue;
    }
    const std::size_t eq = v.find('=');
    if (eq == AnsiString::npos) throw UsageError("'" + v + "' is not NAME=VALUE");
    dump->set_ByName(v.substr(0, eq), Variant(v.substr(eq + 1)));
  }
  return ForEachValue(cli, templates, [&](const AnsiString& text) {
    return ParseParams(text, dump, marker, strict);
  });
}

// `ostrel demo`: a payment document's amount rounded, printed and written in words.
void DemoNumbers(Cli& cli) {
  auto row = [&](std::string_view label, std::string_view value) {
    AnsiString line = "  ";
    line += label;
    if (line.size() < 44) line.append(44 - line.size(), ' ');
    line += " = ";
    line += value;
    cli.WriteLn(line);
  };
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  row("RoundF(2.675, 2)", RoundedText(RoundF(2.675, 2), 2, '.'));
  row("RoundExt(2.5, 0, drHalfEven)", RoundedText(RoundExt(2.5, 0, drHalfEven), 0, '.'));
  row("TaxSum(118, -18, 2)", RoundedText(TaxSum(118, -18, 2), 2, '.'));
  row("CrcToStr(1234.5)", CrcToStr(1234.5));
  row("CrcToText(\"RU\", \"RUR\", 1021.05)", CrcToText("RU", "RUR", 1021.05));
  row("CrcToText(\"EN\", \"USD\", 1021.05)", CrcToText("EN", "USD", 1021.05));
  row("CrcToText(\"RU\", \"RUR\", 2000)", CrcToText("RU", "RUR", 2000));
  IPtr<IDump> d = GetDumpIntf();
  d->set_ByName("name", Variant(Ansi(u8"Иван")));
  row("ParseParams(\"%name: 100%%\", name=...)", ParseParams("%name: 100%%", d));
}

}  // namespace

OSTREL_CLI_DEMO(60, "Rounding, amounts in words and parameter templates", DemoNumbers);

OSTREL_CLI_COMMAND(.name = "words", .summary = "Write an amount in words with its currency units",
                   .run = RunWords, .usage = "[AMOUNT...]",
                   .options = {{"--lang", "RU|EN", "language (RU)"},
                               {"--currency", "CODE", "currency: RUR, USD, EUR (RUR)"},
                               {"--decimals", "N", "decimals of the fraction, 0 to 18 (2)"}},
                   .details = "Without AMOUNT, one amount per line of standard input.");
OSTREL_CLI_COMMAND(.name = "number", .summary = "Write a whole number in words", .run = RunNumber,
                   .usage = "[DIGITS...]",
                   .options = {{"--lang", "RU|EN", "language (RU)"},
                               {"--gender", "m|f|n", "grammatical gender of the counted word (m)"}},
                   .details = "Without DIGITS, one number per line of standard input.");
OSTREL_CLI_COMMAND(.name = "round",
                   .summary = "Round a number to decimal places in one of the ten rounding modes",
                   .run = RunRound, .usage = "[X] PLACES",
                   .options = {{"--mode", "NAME",
                                "HalfUp (default), HalfEven, HalfPos, HalfNeg, HalfDown, "
                                "RndNeg, RndPos, RndDown, RndUp, None; with or without "
                                "dr, or 0..9"}},
                   .minValues = 1, .maxValues = 2,
                   .details = "Without X, one number per line of standard input.");
OSTREL_CLI_COMMAND(
        .name = "params", .summary = "Fill %name references of a template from NAME=VALUE pairs",
        .run = RunParams, .usage = "[TEMPLATE|-] [NAME=VALUE...]",
        .options = {{"--marker", "C", "the reference marker (%)"},
                    {"--strict", nullptr, "a reference to a missing name is an error"}},
        .details = "Without TEMPLATE, or with -, one template per line of standard input.");

}  // namespace ostrel::cli
