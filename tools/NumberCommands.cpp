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

// Arguments split into positional values and "--name value" / "--name=value" options. A
// negative number ("-5", "-.5") is a value, not an option.
struct Parsed {
  std::vector<AnsiString> values;
  std::map<std::string, AnsiString> options;
  std::set<std::string> flags;

  const AnsiString* Option(const std::string& name) const {
    auto it = options.find(name);
    return it == options.end() ? nullptr : &it->second;
  }
};

bool LooksNumeric(std::string_view a) {
  return a.size() > 1 && a[0] == '-' &&
         ((a[1] >= '0' && a[1] <= '9') || a[1] == '.' || a[1] == ',');
}

Parsed ParseArgs(const std::vector<AnsiString>& args, std::initializer_list<const char*> valued,
                 std::initializer_list<const char*> flags) {
  Parsed p;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const AnsiString& a = args[i];
    if (a.size() < 2 || a[0] != '-' || LooksNumeric(a)) {
      p.values.push_back(a);
      continue;
    }
    std::string name = a;
    AnsiString value;
    bool inlineValue = false;
    if (const std::size_t eq = name.find('='); eq != std::string::npos) {
      value = name.substr(eq + 1);
      name.resize(eq);
      inlineValue = true;
    }
    if (std::find_if(valued.begin(), valued.end(), [&](const char* v) { return name == v; }) !=
        valued.end()) {
      if (!inlineValue) {
        if (i + 1 >= args.size()) throw UsageError("option " + name + " needs a value");
        value = args[++i];
      }
      p.options[name] = value;
    } else if (!inlineValue && std::find_if(flags.begin(), flags.end(), [&](const char* f) {
                                 return name == f;
                               }) != flags.end()) {
      p.flags.insert(name);
    } else {
      throw UsageError("unknown option '" + a + "'");
    }
  }
  return p;
}

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
// A bad value on the command line stops with its error; a bad input line gives an empty
// output line (so that output lines stay beside their input lines), its error on standard
// error, and exit status 1 at the end.
int ForEachValue(Cli& cli, const std::vector<AnsiString>& values,
                 const std::function<AnsiString(const AnsiString&)>& convert) {
  if (!values.empty()) {
    for (const AnsiString& v : values) cli.WriteLn(convert(v));
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

int RunWords(Cli& cli, std::vector<AnsiString> args) {
  const Parsed p = ParseArgs(args, {"--lang", "--currency", "--decimals"}, {});
  const AnsiString lang = p.Option("--lang") ? *p.Option("--lang") : AnsiString("RU");
  const AnsiString currency = p.Option("--currency") ? *p.Option("--currency") : AnsiString("RUR");
  const int decimals =
      p.Option("--decimals") ? ParseInt(*p.Option("--decimals"), "--decimals", 0, 18) : 2;
  // Unknown codes fail before any input is read.
  TkxNumToTextRec rec;
  TkxNumToTextPr::GetNumRec(lang, rec, true);
  TkxCrcToTextRec crc;
  TkxNumToTextPr::GetCrcRec(rec, currency, crc, true);
  return ForEachValue(cli, p.values, [&](const AnsiString& amount) {
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

int RunNumber(Cli& cli, std::vector<AnsiString> args) {
  const Parsed p = ParseArgs(args, {"--lang", "--gender"}, {});
  const AnsiString lang = p.Option("--lang") ? *p.Option("--lang") : AnsiString("RU");
  const TSex sex = p.Option("--gender") ? ParseGender(*p.Option("--gender")) : Male;
  TkxNumToTextRec rec;
  TkxNumToTextPr::GetNumRec(lang, rec, true);
  return ForEachValue(cli, p.values, [&](const AnsiString& value) {
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
  static const char* const kNames[] = {"drNone",    "drHalfEven", "drHalfPos", "drHalfNeg",
                                       "drHalfDown", "drHalfUp",  "drRndNeg",  "drRndPos",
                                       "drRndDown", "drRndUp"};
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
  const auto r = places >= 0 && places <= 18
                     ? std::to_chars(buf.data(), buf.data() + buf.size(), v,
                                     std::chars_format::fixed, places)
                     : std::to_chars(buf.data(), buf.data() + buf.size(), v,
                                     std::chars_format::fixed);
  buf.resize(static_cast<std::size_t>(r.ptr - buf.data()));
  // No "-0" for a negative value that rounded to zero.
  if (buf[0] == '-' && buf.find_first_not_of("-0.") == std::string::npos) buf.erase(0, 1);
  std::replace(buf.begin(), buf.end(), '.', separator);
  return buf;
}

int RunRound(Cli& cli, std::vector<AnsiString> args) {
  const Parsed p = ParseArgs(args, {"--mode"}, {});
  const TDecimalRoundingCtrl mode = p.Option("--mode") ? ParseMode(*p.Option("--mode")) : drHalfUp;
  if (p.values.empty() || p.values.size() > 2)
    throw UsageError("round takes X and PLACES, or PLACES alone with X on each input line");
  const int places = ParseInt(p.values.back(), "PLACES", -4932, 4932);
  std::vector<AnsiString> xs;
  if (p.values.size() == 2) xs.push_back(p.values[0]);
  return ForEachValue(cli, xs, [&](const AnsiString& x) {
    const Extended v = ParseReal(x);
    const char separator = x.find(',') != AnsiString::npos ? ',' : '.';
    return RoundedText(RoundExt(v, places, mode), places, separator);
  });
}

int RunParams(Cli& cli, std::vector<AnsiString> args) {
  const Parsed p = ParseArgs(args, {"--marker"}, {"--strict"});
  char marker = '%';
  if (const AnsiString* m = p.Option("--marker")) {
    if (m->size() != 1) throw UsageError("--marker must be one character, not '" + *m + "'");
    marker = (*m)[0];
  }
  const bool strict = p.flags.count("--strict") > 0;
  IPtr<IDump> dump = GetDumpIntf();
  std::vector<AnsiString> templates;
  for (std::size_t i = 0; i < p.values.size(); ++i) {
    const AnsiString& v = p.values[i];
    if (i == 0) {
      if (v != "-") templates.push_back(v);
      continue;
    }
    const std::size_t eq = v.find('=');
    if (eq == AnsiString::npos)
      throw UsageError("'" + v + "' is not NAME=VALUE");
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

OSTREL_CLI_COMMAND("words", "Write an amount in words with its currency units",
                   "[AMOUNT...] [--lang RU|EN] [--currency RUR|USD|EUR] [--decimals N]  "
                   "(no AMOUNT: one per input line)",
                   RunWords);
OSTREL_CLI_COMMAND("number", "Write a whole number in words",
                   "[DIGITS...] [--lang RU|EN] [--gender m|f|n]  (no DIGITS: one per input line)",
                   RunNumber);
OSTREL_CLI_COMMAND("round", "Round a number to decimal places in one of the ten rounding modes",
                   "[X] PLACES [--mode NAME]  (no X: one per input line)", RunRound);
OSTREL_CLI_COMMAND("params", "Fill %name references of a template from NAME=VALUE pairs",
                   "[TEMPLATE|-] [NAME=VALUE...] [--marker C] [--strict]  (no TEMPLATE or -: "
                   "one per input line)",
                   RunParams);

}  // namespace ostrel::cli
