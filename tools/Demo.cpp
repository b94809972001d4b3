// `ostrel demo`: the platform layer at work on Russian text. Every value is fixed (no clock,
// no host settings), so the output is the same on every machine and tests compare it.
#include "Cli.h"

#include <ostrel/Config.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Variants.h>
#include <ostrel/services/Sysserv.h>

namespace ostrel::cli {
namespace {

// "  label<padding> = value", the label being ASCII or CP1251.
void Row(Cli& cli, std::string_view label, std::string_view value) {
  constexpr std::size_t width = 48;
  AnsiString line = "  ";
  line += label;
  if (line.size() < width) line.append(width - line.size(), ' ');
  line += " = ";
  line += value;
  cli.WriteLn(line);
}

AnsiString Quoted(std::string_view s) {
  AnsiString q = "\"";
  q += s;
  q += '"';
  return q;
}

// 12 April 1961, 09:07: a fixed moment so that the day and month names are stable.
TDateTime DemoMoment() { return EncodeDate(1961, 4, 12) + EncodeTime(9, 7, 0, 0); }

void DemoVariants(Cli& cli) {
  Variant number(1234.5);
  Row(cli, "VarToStr(Variant(1234.5))", VarToStr(number));

  static constexpr auto text = Cp1251(u8"1234,5");
  Variant fromText(text.Str());
  double value = VarToDouble(fromText);
  Row(cli, "VarToDouble(Variant(\"1234,5\")) + 0.25", FloatToStr(value + 0.25));

  Variant date = VarFromDateTime(DemoMoment());
  Row(cli, "VarToStr(VarFromDateTime(12.04.1961 9:07))", VarToStr(date));
  Row(cli, "VarType of that variant", IntToStr(VarType(date)));

  Variant money(Currency::FromRaw(1234567891));  // 123 456,7891
  Row(cli, "Format(\"%m\", VarToCurr(123456.7891))", Format("%m", VarToCurr(money)));
}

void DemoCase(Cli& cli) {
  static constexpr auto tree = Cp1251(u8"ёлка и Ёж");
  Row(cli, AnsiString("AnsiUpperCase(") + Quoted(tree) + ")", AnsiUpperCase(tree));
  static constexpr auto shout = Cp1251(u8"ЁЛКА И ЁЖ");
  Row(cli, AnsiString("AnsiLowerCase(") + Quoted(shout) + ")", AnsiLowerCase(shout));
  static constexpr auto hedgehog = Cp1251(u8"ёж");
  static constexpr auto hedgehogUp = Cp1251(u8"ЁЖ");
  Row(cli, AnsiString("AnsiSameText(") + Quoted(hedgehog) + ", " + Quoted(hedgehogUp) + ")",
      BoolToStr(AnsiSameText(hedgehog, hedgehogUp), true));
  // Ё sorts right after Е, not after Я as its code would put it.
  static constexpr auto fir = Cp1251(u8"ель");
  static constexpr auto yolka = Cp1251(u8"ёлка");
  static constexpr auto yashik = Cp1251(u8"ящик");
  Row(cli, AnsiString("AnsiCompareText(") + Quoted(fir) + ", " + Quoted(yolka) + ")",
      IntToStr(AnsiCompareText(fir, yolka)));
  Row(cli, AnsiString("AnsiCompareText(") + Quoted(yolka) + ", " + Quoted(yashik) + ")",
      IntToStr(AnsiCompareText(yolka, yashik)));
}

void DemoTokens(Cli& cli) {
  static constexpr auto cities = Cp1251(u8"Москва; Санкт-Петербург;;Казань");
  cli.WriteLn(AnsiString("  ExtractStr(") + Quoted(cities) + ", [';']), each token trimmed:");
  int pos = 1;
  AnsiString token;
  int n = 0;
  while (ExtractStr(cities, pos, TCharSet{';'}, token))
    cli.WriteLn("    " + IntToStr(++n) + ". " + Trim(token));
}

void DemoDates(Cli& cli) {
  static constexpr auto pattern = Cp1251(u8"dddd, d mmmm yyyy 'г.' hh:nn");
  Row(cli, AnsiString("FormatDateTime(") + Quoted(pattern) + ")",
      FormatDateTime(pattern, DemoMoment()));
  Row(cli, "DateToStr", DateToStr(DemoMoment()));
  Row(cli, "IncMonth(31.01.2024)", DateToStr(IncMonth(EncodeDate(2024, 1, 31))));
  Row(cli, "Format(\"%.2n\", 1234567.891)", Format("%.2n", 1234567.891));
}

OSTREL_CLI_DEMO(10, "Variants in the Russian locale", DemoVariants);
OSTREL_CLI_DEMO(20, "Cyrillic case and collation (CP1251 tables)", DemoCase);
OSTREL_CLI_DEMO(30, "Tokens", DemoTokens);
OSTREL_CLI_DEMO(40, "Dates and numbers", DemoDates);

int RunDemo(Cli& cli, const Args& parsed) {
  const std::vector<AnsiString>& args = parsed.Values();
  cli.WriteLnUtf8(std::string("Ostrel ") + OSTREL_VERSION_STRING +
                  ": the platform layer on Russian text");
  // The demo shows the library's own defaults whatever an earlier section may have changed.
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const DemoSection& section : DemoSections()) {
    cli.WriteLn();
    cli.WriteLnUtf8(section.title);
    section.run(cli);
  }
  if (!args.empty()) {
    cli.WriteLn();
    cli.WriteLnUtf8("Your texts");
    for (const AnsiString& a : args) {
      Row(cli, AnsiString("AnsiUpperCase(") + Quoted(a) + ")", AnsiUpperCase(a));
      Row(cli, AnsiString("AnsiLowerCase(") + Quoted(a) + ")", AnsiLowerCase(a));
    }
  }
  return 0;
}

// Extra TEXTs given on the command line are case-folded too, showing the input conversion.
OSTREL_CLI_COMMAND(.name = "demo", .summary = "Show the platform layer at work on Russian text",
                   .run = RunDemo, .usage = "[TEXT...]");

}  // namespace
}  // namespace ostrel::cli
