// The `ostrel` program's terminal, registry and argument handling.
#include "Cli.h"

#include <ostrel/Config.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <istream>
#include <optional>
#include <ostream>

namespace ostrel::cli {

// ---------------------------------------------------------------------------------------
// Terminal

Cli::Cli(std::istream& in, std::ostream& out, std::ostream& err, bool rawCp1251)
    : fIn(in), fOut(out), fErr(err), fRaw(rawCp1251) {}

AnsiString Cli::FromTerminal(std::string_view text) const {
  return fRaw ? AnsiString(text) : Utf8ToAnsi(text);
}

std::string Cli::ToTerminal(std::string_view ansi) const {
  return fRaw ? std::string(ansi) : AnsiToUtf8(ansi);
}

void Cli::Write(std::string_view ansi) { fOut << ToTerminal(ansi); }

void Cli::WriteLn(std::string_view ansi) { fOut << ToTerminal(ansi) << '\n'; }

void Cli::WriteUtf8(std::string_view utf8) {
  if (fRaw)
    fOut << Utf8ToAnsi(utf8);
  else
    fOut << utf8;
}

void Cli::WriteLnUtf8(std::string_view utf8) {
  WriteUtf8(utf8);
  fOut << '\n';
}

void Cli::ErrorLn(std::string_view ansi) {
  fOut.flush();  // keep the order of output and error text on a shared terminal
  fErr << ToTerminal(ansi) << '\n';
  fErr.flush();
}

bool Cli::ReadLine(AnsiString& line) {
  std::string raw;
  if (!std::getline(fIn, raw)) {
    line.clear();
    return false;
  }
  if (!raw.empty() && raw.back() == '\r') raw.pop_back();
  line = FromTerminal(raw);
  return true;
}

// ---------------------------------------------------------------------------------------
// Registry

namespace {

// Built on first use so that registrars in any translation unit may run in any order.
std::vector<Command>& Registry() {
  static std::vector<Command> commands;
  return commands;
}

std::vector<DemoSection>& DemoRegistry() {
  static std::vector<DemoSection> sections;
  return sections;
}

// Static initialisation: nothing can catch an exception here, and a broken table must not
// pass unnoticed.
[[noreturn]] void RegistrationFailure(const char* what, const char* name) {
  std::fprintf(stderr, "ostrel: %s \"%s\" %s\n", what, name ? name : "",
               "is unnamed, has no handler or is registered twice");
  std::fflush(stderr);
  std::exit(70);
}

}  // namespace

CommandRegistrar::CommandRegistrar(const Command& command) {
  std::vector<Command>& commands = Registry();
  bool bad = command.name == nullptr || *command.name == '\0' || *command.name == '-' ||
             command.run == nullptr;
  for (const Command& c : commands)
    if (!bad && std::strcmp(c.name, command.name) == 0) bad = true;
  if (bad) RegistrationFailure("command", command.name);
  commands.push_back(command);
}

DemoRegistrar::DemoRegistrar(const DemoSection& section) {
  std::vector<DemoSection>& sections = DemoRegistry();
  bool bad = section.title == nullptr || *section.title == '\0' || section.run == nullptr;
  for (const DemoSection& s : sections)
    if (!bad && std::strcmp(s.title, section.title) == 0) bad = true;
  if (bad) RegistrationFailure("demo section", section.title);
  sections.push_back(section);
}

std::vector<DemoSection> DemoSections() {
  std::vector<DemoSection> sorted = DemoRegistry();
  std::sort(sorted.begin(), sorted.end(), [](const DemoSection& a, const DemoSection& b) {
    return a.order != b.order ? a.order < b.order : std::strcmp(a.title, b.title) < 0;
  });
  return sorted;
}

std::vector<Command> Commands() {
  std::vector<Command> sorted = Registry();
  std::sort(sorted.begin(), sorted.end(),
            [](const Command& a, const Command& b) { return std::strcmp(a.name, b.name) < 0; });
  return sorted;
}

const Command* FindCommand(std::string_view name) {
  for (const Command& c : Registry())
    if (name == c.name) return &c;
  return nullptr;
}

// ---------------------------------------------------------------------------------------
// Arguments

AnsiString TerminalLines(std::string_view text) {
  AnsiString out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r') {
      out += text[i];
    } else {
      out += '\n';
      if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
    }
  }
  return out;
}

bool Args::Flag(std::string_view name) const {
  for (const auto& [n, v] : fOptions)
    if (n == name) return true;
  return false;
}

const AnsiString* Args::Value(std::string_view name) const {
  const AnsiString* found = nullptr;
  for (const auto& [n, v] : fOptions)
    if (n == name) found = &v;
  return found;
}

AnsiString Args::Value(std::string_view name, std::string_view fallback) const {
  const AnsiString* v = Value(name);
  return v ? *v : AnsiString(fallback);
}

namespace {

constexpr std::string_view kProgram = "ostrel";

bool IsHelp(std::string_view a) { return a == "--help" || a == "-h"; }

// "-5", "-.5", "-,5" and "-" are values, whatever options a command has.
bool IsOption(std::string_view a) {
  if (a.size() < 2 || a[0] != '-') return false;
  return !((a[1] >= '0' && a[1] <= '9') || a[1] == '.' || a[1] == ',');
}

// The commands of a group ("layout" for "layout show" and "layout merge").
std::vector<Command> GroupCommands(std::string_view group) {
  std::vector<Command> found;
  for (const Command& c : Commands()) {
    const std::string_view name = c.name;
    if (name.size() > group.size() && name.substr(0, group.size()) == group &&
        name[group.size()] == ' ')
      found.push_back(c);
  }
  return found;
}

std::string Padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

void PrintList(Cli& cli, const std::vector<Command>& commands) {
  std::size_t width = 0;
  for (const Command& c : commands) width = std::max(width, std::strlen(c.name));
  for (const Command& c : commands)
    cli.WriteLnUtf8("  " + Padded(c.name, width + 2) + (c.summary ? c.summary : ""));
}

void PrintHelp(Cli& cli) {
  cli.WriteLnUtf8("Usage: ostrel [--cp1251] COMMAND [ARGUMENTS...]");
  cli.WriteLnUtf8("       ostrel --help | --version");
  cli.WriteLnUtf8("");
  cli.WriteLnUtf8("Commands:");
  PrintList(cli, Commands());
  cli.WriteLnUtf8("");
  cli.WriteLnUtf8("Options:");
  cli.WriteLnUtf8("  --cp1251   the terminal uses Windows-1251: write raw CP1251 bytes and take");
  cli.WriteLnUtf8("             arguments and input as CP1251 (the default is UTF-8)");
  cli.WriteLnUtf8("  --help     show this list; 'ostrel COMMAND --help' shows a command's options");
  cli.WriteLnUtf8("  --version  show the library version");
  cli.WriteLnUtf8("");
  cli.WriteLnUtf8("Every command takes '--name value' and '--name=value'; '--' ends the options.");
  cli.WriteLnUtf8("Exit status: 0 done, 1 the library reported an error, 2 bad usage.");
}

void PrintCommandHelp(Cli& cli, const Command& command) {
  std::string line = "Usage: ostrel ";
  line += command.name;
  if (command.usage && *command.usage) line += std::string(" ") + command.usage;
  if (!command.options.empty()) line += " [OPTIONS]";
  cli.WriteLnUtf8(line);
  if (command.summary && *command.summary) cli.WriteLnUtf8(command.summary);
  cli.WriteLnUtf8("");
  cli.WriteLnUtf8("Options:");
  std::vector<std::pair<std::string, std::string>> rows;
  for (const Option& o : command.options)
    rows.emplace_back(std::string(o.name) + (o.value ? std::string(" ") + o.value : ""),
                      o.help ? o.help : "");
  rows.emplace_back("--help", "show this help");
  std::size_t width = 0;
  for (const auto& r : rows) width = std::max(width, r.first.size());
  for (const auto& r : rows) cli.WriteLnUtf8("  " + Padded(r.first, width + 2) + r.second);
  if (command.details && *command.details) {
    cli.WriteLnUtf8("");
    cli.WriteLnUtf8(command.details);
  }
}

// The command the arguments name, for the hint after a usage error.
std::string gHelpHint = "ostrel --help";

}  // namespace

struct ArgsParser {
  // Parses the arguments after the command's name; false when --help was asked for.
  static bool Parse(Cli& cli, const Command& command, const std::vector<std::string>& raw,
                    std::size_t from, Args& out) {
    bool options = true;
    for (std::size_t i = from; i < raw.size(); ++i) {
      const std::string& a = raw[i];
      if (options && a == "--cp1251") continue;  // applied by Main
      if (options && a == "--") {
        options = false;
        continue;
      }
      if (options && IsHelp(a)) return false;
      if (!options || !IsOption(a)) {
        out.fValues.push_back(cli.FromTerminal(a));
        continue;
      }
      std::string name = a;
      std::optional<AnsiString> value;
      if (const std::size_t eq = name.find('='); eq != std::string::npos) {
        value = cli.FromTerminal(std::string_view(name).substr(eq + 1));
        name.resize(eq);
      }
      const Option* option = nullptr;
      for (const Option& o : command.options)
        if (name == o.name) option = &o;
      if (!option)
        throw UsageError("unknown option '" + cli.FromTerminal(name) + "' for '" + command.name +
                         "'");
      if (!option->value && value) throw UsageError("option " + name + " takes no value");
      if (option->value && !value) {
        if (i + 1 >= raw.size())
          throw UsageError("option " + name + " needs a value (" + option->value + ")");
        value = cli.FromTerminal(raw[++i]);
      }
      out.fOptions.emplace_back(name, value.value_or(AnsiString()));
    }
    const int n = static_cast<int>(out.fValues.size());
    if (n < command.minValues || (command.maxValues >= 0 && n > command.maxValues)) {
      std::string expected = command.usage && *command.usage ? command.usage : "no values";
      throw UsageError(std::string(command.name) + " takes " + expected + " (" + std::to_string(n) +
                       (n == 1 ? " value" : " values") + " given)");
    }
    return true;
  }
};

namespace {

int Run(const std::vector<std::string>& args, Cli& cli) {
  std::size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--cp1251") continue;  // already applied by Main
    if (IsHelp(a)) {
      PrintHelp(cli);
      return 0;
    }
    if (a == "--version") {
      cli.WriteLnUtf8(std::string(kProgram) + " " + OSTREL_VERSION_STRING);
      return 0;
    }
    if (a == "--") {
      ++i;
      break;
    }
    if (!a.empty() && a[0] == '-') throw UsageError("unknown option '" + cli.FromTerminal(a) + "'");
    break;
  }
  if (i >= args.size()) throw UsageError("no command given");
  const Command* command = nullptr;
  if (i + 1 < args.size()) command = FindCommand(args[i] + " " + args[i + 1]);
  if (command) {
    i += 2;
  } else if ((command = FindCommand(args[i]))) {
    ++i;
  } else if (const std::vector<Command> group = GroupCommands(args[i]); !group.empty()) {
    gHelpHint = "ostrel " + args[i] + " --help";
    std::string names;
    for (const Command& c : group)
      names += (names.empty() ? "" : ", ") + std::string(c.name + args[i].size() + 1);
    if (i + 1 < args.size() && IsHelp(args[i + 1])) {
      cli.WriteLnUtf8("Usage: ostrel " + args[i] + " COMMAND [ARGUMENTS...]");
      cli.WriteLnUtf8("");
      PrintList(cli, group);
      cli.WriteLnUtf8("");
      cli.WriteLnUtf8("'ostrel " + args[i] + " COMMAND --help' shows a command's options.");
      return 0;
    }
    if (i + 1 >= args.size())
      throw UsageError(cli.FromTerminal(args[i]) + " needs a command: " + names);
    throw UsageError("unknown " + cli.FromTerminal(args[i]) + " command '" +
                     cli.FromTerminal(args[i + 1]) + "' (" + names + ")");
  } else {
    throw UsageError("unknown command '" + cli.FromTerminal(args[i]) + "'");
  }
  gHelpHint = std::string("ostrel ") + command->name + " --help";
  Args parsed;
  if (!ArgsParser::Parse(cli, *command, args, i, parsed)) {
    PrintCommandHelp(cli, *command);
    return 0;
  }
  return command->run(cli, parsed);
}

}  // namespace

int Main(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
         std::ostream& err) {
  // The encoding must be known before any argument is converted; "--cp1251" counts anywhere
  // before a "--".
  bool raw = false;
  for (const std::string& a : args) {
    if (a == "--") break;
    if (a == "--cp1251") raw = true;
  }
  Cli cli(in, out, err, raw);
  gHelpHint = "ostrel --help";
  int status;
  try {
    status = Run(args, cli);
  } catch (const UsageError& e) {
    cli.ErrorLn(AnsiString(kProgram) + ": " + e.Message());
    cli.ErrorLn("Try '" + gHelpHint + "'.");
    status = 2;
  } catch (const Exception& e) {
    cli.ErrorLn(AnsiString(kProgram) + ": " + TerminalLines(e.Message()));
    status = 1;
  } catch (const std::exception& e) {
    cli.ErrorLn(AnsiString(kProgram) + ": " + Utf8ToAnsi(std::string_view(e.what())));
    status = 1;
  } catch (...) {
    cli.ErrorLn(AnsiString(kProgram) + ": unknown error");
    status = 1;
  }
  out.flush();
  if (!out) {
    cli.ErrorLn(AnsiString(kProgram) + ": cannot write the output");
    return 1;
  }
  return status;
}

}  // namespace ostrel::cli
