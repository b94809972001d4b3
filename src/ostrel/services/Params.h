// Named values between a dump and text: "%name" references in templates, the process's
// command-line switches, the application variables of the environment, and tolerant
// text-to-boolean conversion.
#pragma once

#include <ostrel/core/Sysintf.h>
#include <ostrel/rtl/Process.h>  // GetProcessArgs
#include <ostrel/rtl/Strings.h>

#include <string_view>
#include <vector>

namespace ostrel {

inline constexpr std::string_view _SErrParamNotFound = "Parameter \"%s\" not found";
inline constexpr std::string_view _SErrParamIsEmpty = "Value of parameter \"%s\" is empty";

// The template with every reference replaced by the value of the named entry of dump.
// A reference is the marker followed by a name of the characters $ 0-9 A-Z a-z _, or by a
// name of any characters between double quotes (%"long name"). A doubled marker stands for
// one; text between quotes (' or ") is copied untouched; substituted values are not scanned
// again; the text ends at its first zero character.
// Without strict, a reference that names nothing or an unassigned value stays as written,
// and every name not found is added to dump with an unassigned value, so that afterwards
// dump lists what the text asked for. With strict, either case raises Exception
// (_SErrParamNotFound / _SErrParamIsEmpty) and dump is left unchanged.
OSTREL_API AnsiString ParseParams(std::string_view text, const IPtr<IDump>& dump, char marker = '%',
                                  bool strict = false);
// Another name for ParseParams.
OSTREL_API AnsiString ReplaceParams(std::string_view text, const IPtr<IDump>& dump,
                                    char marker = '%', bool strict = false);

// Stores every command-line switch of the process into dump as a string value. A leading
// "-" or "/" is taken off, and with stripSwitch false every key gets "-" in front (so "/x"
// and "-x" both give "-x"); a value follows "=" in the same argument, or comes in the next
// argument when that begins with ":" or "=", or is the argument after a lone "=" or ":".
// The scan stops at the first empty argument.
OSTREL_API void GetCmdParams(const IPtr<IDump>& dump, bool stripSwitch = false);
// The same over a given argument list whose element 0 is the program.
OSTREL_API void GetCmdParams(const IPtr<IDump>& dump, bool stripSwitch,
                             const std::vector<AnsiString>& args);

// True for "1", "T", "TRUE", "Y", "YES", "Д", "ДА", "OK", "ON" in any letter case; the text
// is compared whole, blanks included.
OSTREL_API bool Str2Bool(std::string_view text);

// A process environment variable, or def when it is unset or empty. It is read from the
// system's environment (ProcessEnvValue), so it sees what SetEnv and the system's own calls
// stored; on Windows the C runtime's getenv does not. On systems whose environment is UTF-8
// the text is converted from and to CP1251 at this edge.
OSTREL_API AnsiString GetEnv(std::string_view name, std::string_view def = {});
// Sets a process environment variable; false when the system refuses (an empty name or one
// containing "=").
OSTREL_API bool SetEnv(std::string_view name, std::string_view value);
// Hands a login to child processes: APP$UID and APP$PWD. The result is that of the second.
OSTREL_API bool SetEnvLoginInfo(std::string_view user, std::string_view password);
// The host's network name.
OSTREL_API AnsiString GetComputerNameStr();
// Fills USER_NAME, PROFILE_NAME, DATABASE_NAME (from APP$UID, APP$PROFILE, APP$DBN),
// COMPUTER_NAME, and their short copies UID, PID, DBN. The password is never read.
OSTREL_API void LoadAppVars(const IPtr<IDump>& dump);

}  // namespace ostrel
