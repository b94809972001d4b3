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
// Program

namespace {

constexpr std::string_view kProgram = "ostrel";

void PrintHelp(Cli& cli) {
  cli.WriteLnUtf8("Usage: ostrel [--cp1251] COMMAND [ARGUMENTS...]");
  cli.WriteLnUtf8("       ostrel --help | --version");
  cli.WriteLnUtf8("");
  cli.WriteLnUtf8("Commands:");
  std::size_t width = 0;
  const std::vector<Command> commands = Commands();
  for (const Command& c : commands) width = std::max(width, std::strlen(c.name));
  for (const Command& c : commands) {
    std::string line = "  ";
    line += c.name;
    line.append(width - std::strlen(c.name) + 2, ' ');
    line += c.summary ? c.summary : "";
    cli.WriteLnUtf8(line);
  }
  cli.WriteLnUtf8("");
  cli.WriteLnUtf8("Options:");
  cli.WriteLnUtf8("  --cp1251   the terminal uses Windows-1251: write raw CP1251 bytes and take");
  cli.WriteLnUtf8("             arguments and input as CP1251 (the default is UTF-8)");
  cli.WriteLnUtf8("  --help     show this list; 'ostrel COMMAND --help' shows a command's usage");
  cli.WriteLnUtf8("  --version  show the library version");
}

void PrintCommandHelp(Cli& cli, const Command& command) {
  std::string line = "Usage: ostrel ";
  line += command.name;
  if (command.usage && *command.usage) {
    line += ' ';
    line += command.usage;
  }
  cli.WriteLnUtf8(line);
  if (command.summary && *command.summary) cli.WriteLnUtf8(command.summary);
}

int UsageFailure(Cli& cli, std::string_view ansiMessage) {
  AnsiString text(kProgram);
  text += ": ";
  text += ansiMessage;
  cli.ErrorLn(text);
  cli.ErrorLn("Try 'ostrel --help'.");
  return 2;
}

int Run(const std::vector<std::string>& args, Cli& cli) {
  std::size_t i = 0;
  const Command* command = nullptr;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--cp1251") continue;  // already applied by Main
    if (a == "--help" || a == "-h") {
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
  command = FindCommand(args[i]);
  if (!command) throw UsageError("unknown command '" + cli.FromTerminal(args[i]) + "'");
  ++i;

  std::vector<AnsiString> commandArgs;
  bool options = true;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (options && a == "--cp1251") continue;
    if (options && a == "--") {
      options = false;
      continue;
    }
    if (options && commandArgs.empty() && (a == "--help" || a == "-h")) {
      PrintCommandHelp(cli, *command);
      return 0;
    }
    commandArgs.push_back(cli.FromTerminal(a));
  }
  return command->run(cli, std::move(commandArgs));
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
  int status;
  try {
    status = Run(args, cli);
  } catch (const UsageError& e) {
    status = UsageFailure(cli, e.Message());
  } catch (const Exception& e) {
    AnsiString text(kProgram);
    text += ": ";
    text += e.ClassName();
    text += ": ";
    text += e.Message();
    cli.ErrorLn(text);
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
