// Standard input as bytes, with a way to wake the reader, and the signals that ask a program
// to end: what a console program that also waits on a device needs so that it can notice the
// device, a signal and its input alike, and clean up before it ends.
#pragma once

#include <ostrel/rtl/Types.h>

#include <cstddef>

namespace ostrel {

// True when standard input is a terminal (a person typing), false for a file or a pipe.
OSTREL_API bool StdInputIsTerminal();
// True when standard output is a terminal; false for a file or a pipe.
OSTREL_API bool StdOutputIsTerminal();

// Reads what standard input has, up to size bytes, waiting until something arrives. Returns
// the count read (> 0), 0 at end of input, or -1 when WakeStdInput was called meanwhile (or
// before: a wake is kept until a read uses it). Raises EOSError when the system refuses.
// Windows: a console or pipe read is cancelled by the wake (CancelSynchronousIo).
OSTREL_API std::ptrdiff_t ReadStdInput(void* buffer, std::size_t size);
// From any thread, and from a signal handler: makes the current or the next ReadStdInput
// return -1.
OSTREL_API void WakeStdInput();

// From here on SIGINT, SIGTERM and SIGHUP (on Windows Ctrl-C, Ctrl-Break and closing the
// console) no longer end the process at once: the first is remembered and wakes
// ReadStdInput, so that the program restores what it changed and then ends with
// EndBySignal. Calling it again changes nothing.
OSTREL_API void CatchTerminationSignals();
// The signal caught since CatchTerminationSignals (SIGINT, SIGTERM or SIGHUP), 0 for none.
OSTREL_API int TerminationSignal();
// Ends the process as the signal itself would have, so that the shell sees the conventional
// status (128 + n); on Windows the status of a console program ended by Ctrl-C (0xC000013A).
[[noreturn]] OSTREL_API void EndBySignal(int signal);

}  // namespace ostrel
