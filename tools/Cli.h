// The `ostrel` command-line program: terminal I/O and the subcommand registry.
//
// A subcommand lives in its own tools/<Name>.cpp and registers itself:
//
//   static int RunHello(ostrel::cli::Cli& cli, std::vector<ostrel::AnsiString> args) {
//     if (args.size() > 1) throw ostrel::cli::UsageError("hello takes at most one name");
//     cli.WriteLn(args.empty() ? ostrel::AnsiString("world") : args[0]);  // CP1251 text
//     return 0;
//   }
//   OSTREL_CLI_COMMAND("hello", "Greet someone", "[NAME]", RunHello);
//
// Arguments reach the command already converted to CP1251 and with the program's own
// options removed; everything written through Cli is CP1251 and is converted to the
// terminal's encoding (UTF-8, or raw CP1251 under --cp1251) on the way out.
#pragma once

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

// One subcommand. `name`, `summary` and `usage` are ASCII or UTF-8 literals; `usage` lists
// the arguments after the name ("FILE [COUNT]") and may be null for none.
struct Command {
  const char* name;
  const char* summary;
  int (*run)(Cli&, std::vector<AnsiString> args);
  const char* usage = nullptr;
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
// Registers `fn` as the subcommand `name` (a string literal); `usage` may be nullptr.
#define OSTREL_CLI_COMMAND(name, summary, usage, fn)                             \
  static const ::ostrel::cli::CommandRegistrar OSTREL_CLI_CONCAT(                \
      ostrelCliCommand_, __COUNTER__){::ostrel::cli::Command{name, summary, fn, usage}}
// Registers `fn` as a section of `ostrel demo`.
#define OSTREL_CLI_DEMO(order, title, fn)                                        \
  static const ::ostrel::cli::DemoRegistrar OSTREL_CLI_CONCAT(                   \
      ostrelCliDemo_, __COUNTER__){::ostrel::cli::DemoSection{order, title, fn}}
