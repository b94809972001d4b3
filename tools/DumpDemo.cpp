// The dump in the `ostrel` program: a section of `ostrel demo`, and `ostrel dump`, which
// builds a dump from name=value items and shows it in both text forms.
#include "Cli.h"

#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/Sysserv.h>

namespace ostrel::cli {
namespace {

// Items read as texts get the type their text suggests: whole numbers, decimal numbers in
// the current locale, dates; anything else stays a string.
void GuessTypes(const IPtr<IDump>& dump) {
  for (Integer i = 0; i < dump->get_Count(); ++i) {
    AnsiString text = VarToStr(dump->get_Value(i));
    Integer whole;
    Extended number;
    TDateTime date;
    if (text.empty()) continue;
    if (TryStrToInt(text, whole))
      dump->set_Value(i, whole);
    else if (TryStrToFloat(text, number))
      dump->set_Value(i, number);
    else if (TryStrToDateTime(text, date))
      dump->set_Value(i, Variant::FromDate(date));
  }
}

// Tabs of the typed form made visible.
AnsiString ShowTabs(std::string_view typed) { return StringReplaceAll(typed, "\t", " <TAB> "); }

// What the typed form promises to give back: the same values, except that an empty text
// has no type of its own there and reads back as an empty value.
IPtr<IDump> TypedFormImage(const IPtr<IDump>& dump) {
  IPtr<IDump> image;
  Dump_Clone(dump, image);
  for (Integer i = 0; i < image->get_Count(); ++i) {
    const Variant v = image->get_Value(i);
    if (!VarIsArray(v) && VarType(v) == varString && VarToStr(v).empty())
      image->set_Value(i, Variant());
  }
  return image;
}

void ShowDump(Cli& cli, const IPtr<IDump>& dump) {
  AnsiString typed = Dump_ToStr(dump);
  cli.WriteLnUtf8("  typed form (Dump_ToStr):");
  cli.WriteLn("    " + ShowTabs(typed));
  cli.WriteLnUtf8("  plain form (Dump_AsString):");
  cli.WriteLn("    " + Dump_AsString(dump, "; "));
  IPtr<IDump> back = GetDumpIntf();
  Dump_FromStr(back, typed);
  const IPtr<IDump> expected = TypedFormImage(dump);
  const bool same = Dump_SameValues(expected, back) && Dump_SameValues(back, expected);
  cli.WriteLnUtf8(std::string("  typed form read back gives the same values: ") +
                  (same ? "yes" : "no"));
}

void DemoDump(Cli& cli) {
  static constexpr auto input = Cp1251(u8"name=Иванов; sum=1234,5; count=3; date=03.02.2024 14:05");
  cli.WriteLn(AnsiString("  input: ") + input.Str());
  IPtr<IDump> dump = GetDumpIntf();
  Dump_FromString(dump, input, ';');
  GuessTypes(dump);
  // Names compare without regard to case and keep their first spelling.
  static constexpr auto name = Cp1251(u8"NAME");
  static constexpr auto petrov = Cp1251(u8"Петров");
  dump->set_ByName(name, petrov.Str());
  ShowDump(cli, dump);
  // The typed form keeps scalars only; the plain form also lists an array's elements.
  dump->set_ByName("items", VarArrayOf({Ansi(u8"кофе"), Ansi(u8"чай")}));
  cli.WriteLnUtf8("  with an array, plain form:");
  cli.WriteLn("    " + Dump_AsString(dump, "; "));
}

OSTREL_CLI_DEMO(50, "The dump: named values in their two text forms", DemoDump);

int RunDump(Cli& cli, const Args& parsed) {
  const std::vector<AnsiString>& args = parsed.Values();
  AnsiString items;
  if (args.empty()) {
    AnsiString line;
    while (cli.ReadLine(line)) StrJoin(items, line, ";");
  } else {
    for (const AnsiString& a : args) StrJoin(items, a, ";");
  }
  if (Trim(items).empty()) throw UsageError("dump needs at least one name=value item");
  IPtr<IDump> dump = GetDumpIntf();
  Dump_FromString(dump, items, ';');
  GuessTypes(dump);
  ShowDump(cli, dump);
  return 0;
}

// Items may also be given one or more per line on standard input.
OSTREL_CLI_COMMAND(
        .name = "dump", .summary = "Build a dump from name=value items and show its text forms",
        .run = RunDump, .usage = "[NAME=VALUE[;NAME=VALUE...]...]",
        .details = "Without items, they are read from standard input, one or more a line.");

}  // namespace
}  // namespace ostrel::cli
