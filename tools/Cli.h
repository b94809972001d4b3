// The `ostrel` command-line program: terminal I/O and the subcommand registry.
//
// A subcommand lives in its own tools/<Name>.cpp and registers itself:
//
//   static int RunHello(ostrel::cli::Cli& cli, const ostrel::cli::Args& args) {
//     const ostrel::AnsiString name = args.Values().empty() ? "world" : args.Values()[0];
//     cli.WriteLn(args.Value("--greeting", "Hello") + ", " + name);  // CP1251 text
//     return 0;
//   }
//   OSTREL_CLI_COMMAND(.name = "hello", .summary = "Greet someone", .run = RunHello,
//                      .usage = "[NAME]", .options = {{"--greeting", "TEXT", "the word"}},
//                      .maxValues = 1);
//
// Arguments reach the command already converted to CP1251, parsed by the one parser every
// command shares (Args), with the program's own options removed. Errors are reported one
// way for all: a UsageError (bad usage, a bad value typed by the user) prints "ostrel: "
// and its message with a hint about --help and gives status 2; a library Exception prints
// "ostrel: " and its message (line breaks kept) and gives status 1. Everything written
// through Cli is CP1251 and is converted to the terminal's encoding (UTF-8, or raw CP1251
// under --cp1251) on the way out.
#pragma once

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Types.h>

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::cli {

// Thrown for bad command-line usage: the message (CP1251) goes to stderr with a hint about
// --help, and the program exits with status 2.
class UsageError : public std::runtime_error {
 public:
  explicit UsageError(std::string_view ansiMessage)
      : std::runtime_error(std::string(ansiMessage)) {}
  // The message as given, in CP1251.
  AnsiString Message() const { return what(); }
};

// The terminal as a command sees it.
class Cli {
 public:
  // `rawCp1251` makes the terminal a CP1251 one: output bytes are written unconverted and
  // input is taken as CP1251.
  Cli(std::istream& in, std::ostream& out, std::ostream& err, bool rawCp1251);

  // CP1251 text to standard output, converted for the terminal.
  void Write(std::string_view ansi);
  void WriteLn(std::string_view ansi = {});
  // UTF-8 text (such as a literal in source) to standard output.
  void WriteUtf8(std::string_view utf8);
  void WriteLnUtf8(std::string_view utf8);
  // CP1251 text to standard error, converted the same way, with a line break.
  void ErrorLn(std::string_view ansi);

  // One line of standard input as CP1251, without the line break (a trailing CR is dropped
  // too); false at end of input.
  bool ReadLine(AnsiString& line);

  // Terminal text (UTF-8, or CP1251 under --cp1251) to CP1251, for arguments and input.
  AnsiString FromTerminal(std::string_view text) const;
  // CP1251 to terminal text.
  std::string ToTerminal(std::string_view ansi) const;

  bool RawCp1251() const { return fRaw; }
  std::ostream& Out() { return fOut; }
  std::ostream& Err() { return fErr; }

 private:
  std::istream& fIn;
  std::ostream& fOut;
  std::ostream& fErr;
  bool fRaw;
};

// One option of a command: "--name" (or a short "-o"); `value` names the value it takes
// ("FILE"), null for a flag; `help` says what it does. ASCII or UTF-8 literals.
struct Option {
  const char* name;
  const char* value;
  const char* help;
};

// A command's arguments as the common parser leaves them: options by name, the rest in
// order. Every command takes options the same way: "--name value" and "--name=value"
// anywhere, "--" ending the options; a negative number ("-5", "-.5") or "-" alone is a
// value. "--help" (or "-h") anywhere before "--" shows the command's help instead.
class Args {
 public:
  // The arguments that are not options, in order.
  const std::vector<AnsiString>& Values() const { return fValues; }
  // Whether the flag was given.
  bool Flag(std::string_view name) const;
  // The value of an option (the last one when given twice), or null when not given.
  const AnsiString* Value(std::string_view name) const;
  AnsiString Value(std::string_view name, std::string_view fallback) const;

 private:
  friend struct ArgsParser;
  std::vector<AnsiString> fValues;
  std::vector<std::pair<std::string, AnsiString>> fOptions;
};

// Runs fn on a value taken from the command line; a library error it raises (the text is
// not a date, not a number...) becomes a UsageError, because the user typed it.
template <class Fn>
auto ArgValue(Fn&& fn) -> decltype(fn()) {
  try {
    return fn();
  } catch (const Exception& e) {
    throw UsageError(e.Message());
  }
}

// Text with CR LF, CR or LF line ends as terminal lines (LF): the library's messages break
// lines with CR, which a terminal would overprint.
AnsiString TerminalLines(std::string_view text);

// One command, registered with OSTREL_CLI_COMMAND and designated initialisers. `name` is one
// word ("words") or a group and a word ("layout merge"); `usage` lists the values after the
// name ("FORM FRAME SCHEMA"); the parser checks that between minValues and maxValues (-1: no
// limit) values are given before `run` is called. `details` is more help text (lines).
struct Command {
  const char* name;
  const char* summary;
  int (*run)(Cli&, const Args& args);
  const char* usage = nullptr;
  std::vector<Option> options = {};
  int minValues = 0;
  int maxValues = -1;
  const char* details = nullptr;
};

// Adds a command to the registry; used through OSTREL_CLI_COMMAND at namespace scope.
// A second command with an existing name is a programming error reported at start-up.
struct CommandRegistrar {
  explicit CommandRegistrar(const Command& command);
};

// Every registered command, sorted by name.
std::vector<Command> Commands();
// The command of that name, or null.
const Command* FindCommand(std::string_view name);

// A section of `ostrel demo`: the demo prints each registered section's title and runs it,
// in ascending `order` (sections of equal order in name order). A piece of the library shows
// itself by adding a section in its own tools/Demo<Name>.cpp:
//
//   static void DemoWords(ostrel::cli::Cli& cli) { cli.WriteLn(...); }
//   OSTREL_CLI_DEMO(60, "Numbers in words", DemoWords);
//
// `title` is an ASCII or UTF-8 literal; the output should not depend on the clock or the host
// so that tests can compare it.
struct DemoSection {
  int order;
  const char* title;
  void (*run)(Cli&);
};

struct DemoRegistrar {
  explicit DemoRegistrar(const DemoSection& section);
};

// Every registered demo section in the order the demo shows them.
std::vector<DemoSection> DemoSections();

// Runs the program on its arguments (argv without the program name, as the terminal gave
// them) and returns the exit status: 0 or the command's own status, 1 after an error or a
// failed write, 2 after bad usage.
int Main(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
         std::ostream& err);

}  // namespace ostrel::cli

#define OSTREL_CLI_CONCAT_(a, b) a##b
#define OSTREL_CLI_CONCAT(a, b) OSTREL_CLI_CONCAT_(a, b)
// Registers a command: OSTREL_CLI_COMMAND(.name = "hello", .summary = "...", .run = RunHello,
// .usage = "[NAME]", .maxValues = 1).
#define OSTREL_CLI_COMMAND(...)                                                                    \
  static const ::ostrel::cli::CommandRegistrar OSTREL_CLI_CONCAT(ostrelCliCommand_, __COUNTER__) { \
    ::ostrel::cli::Command { __VA_ARGS__ }                                                         \
  }
// Registers `fn` as a section of `ostrel demo`.
#define OSTREL_CLI_DEMO(order, title, fn)                                                    \
  static const ::ostrel::cli::DemoRegistrar OSTREL_CLI_CONCAT(ostrelCliDemo_, __COUNTER__) { \
    ::ostrel::cli::DemoSection { order, title, fn }                                          \
  }
