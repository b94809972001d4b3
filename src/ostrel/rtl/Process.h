// The running process and its host, as the operating system gives them: arguments, the
// executable's path, environment variables, the computer's name and the system's message box.
// Every text is CP1251 on the library's side, converted at this edge.
#pragma once

#include <ostrel/rtl/Types.h>

#include <vector>

namespace ostrel {

// The process's own arguments as CP1251 text, the program first, read from the running
// process: the UTF-16 command line split by the system's rules on Windows, /proc/self/cmdline
// (UTF-8) on Linux. Empty where the system does not tell.
OSTREL_API std::vector<AnsiString> GetProcessArgs();

// The full path of the running executable ("" when the system cannot tell).
OSTREL_API AnsiString GetExeFileName();

// The process environment, the block child processes inherit: on Windows the one that
// GetEnvironmentVariableA and SetEnvironmentVariableA work on (the C runtime's getenv keeps a
// copy of its own there, taken at start, which later changes do not reach); the C library's
// environ elsewhere. ProcessEnvValue gives "" for an unset variable and for a name the system
// cannot hold.
OSTREL_API AnsiString ProcessEnvValue(std::string_view name);
// False when the system refuses: an empty name, one containing "=" or a zero character, or
// a value containing a zero character. An empty value is stored as such.
OSTREL_API bool SetProcessEnvValue(std::string_view name, std::string_view value);

// The computer's network name ("" when the system cannot tell).
OSTREL_API AnsiString HostComputerName();

// Whether this process owns the window the user works in: on Windows the process of the
// foreground window; true elsewhere, where there is no window system to ask and the program
// is the one its user works with.
OSTREL_API bool IsForegroundProcess();

// Shows text to the user and returns when it has been seen: on Windows a modal MessageBoxA
// without owner window and one OK button; elsewhere "caption: text" in UTF-8 on standard error.
OSTREL_API void SystemMessageBox(std::string_view caption, std::string_view text);

}  // namespace ostrel
