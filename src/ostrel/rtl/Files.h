// File names and whole files: expanding and splitting names, renaming and deleting files.
// Names are CP1251 text, handed to the system as UTF-8 on POSIX and UTF-16 on Windows.
#pragma once

#include <ostrel/rtl/Types.h>

#include <string_view>

namespace ostrel {

// The absolute, normalised name; the name as given when it cannot be expanded.
OSTREL_API AnsiString ExpandFileName(std::string_view fileName);
// The part after the last path delimiter ("/" everywhere, also "\" and ":" on Windows).
OSTREL_API AnsiString ExtractFileName(std::string_view fileName);
// Renames the file, replacing a file of the new name in one step where the system allows;
// false when it fails, with the system's error code (for SysErrorMessage) in *errorCode.
OSTREL_API bool RenameFile(std::string_view oldName, std::string_view newName,
                           Cardinal* errorCode = nullptr);
// Deletes the file; false when it fails or does not exist.
OSTREL_API bool DeleteFile(std::string_view fileName);
OSTREL_API bool FileExists(std::string_view fileName);

}  // namespace ostrel
