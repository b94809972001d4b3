// Saving a whole file so that a crash, a refusal or a failed write never costs the text the
// file had: the one way every save in the library writes a file.
#pragma once

#include <ostrel/rtl/Classes.h>

#include <memory>
#include <string_view>

namespace ostrel {

// A stream onto the next contents of a file. The bytes go to a temporary file beside the
// target, named "<target name>.~<12 hex digits>.tmp" (the hex digits a hash of the name, the
// name cut short where the whole would not fit in a folder entry); Commit syncs it to the disk
// and puts it in the target's place in one step, then syncs the folder (POSIX), or replaces
// the target with write-through (Windows). Until Commit has succeeded the target is as it
// was; destroying the writer without Commit removes the temporary file.
//
// What the target keeps, and what refuses a save:
// - A target that could not be opened for writing in place (a read-only file, a folder, a
//   file held by a TFileStream whose sharing denies writers) refuses the save at
//   construction, as TFileStream(fileName, fmOpenWrite) would.
// - A save under way holds the target as an exclusive writer, and its temporary file, until
//   it ends; a second save of the same file meanwhile is refused.
// - POSIX: the new file gets the old one's permission bits and, where the system permits,
//   its owner and group. A symbolic link is followed, and its final target written. A file
//   with several hard links, or one that is not a regular file, is written in place after the
//   temporary file holds the whole text (renaming would split the links or replace a device
//   with a file); a crash while it is copied in leaves the complete text in the temporary file.
//   Windows: ReplaceFileW keeps the target's attributes, security and creation time.
// - A temporary file left by a killed save is recognised by the next save of the same file,
//   which takes it over (an active save's temporary file is locked, so it is never taken).
//
// Every error raises EFCreateError "Cannot create file "<full name>". <reason>" naming the file
// the caller gave, never the temporary one.
class OSTREL_API TSafeFileWriter : public TStream {
  OSTREL_CLASS(TSafeFileWriter, TStream)
 public:
  // newFileMode: POSIX permission bits of a file that does not exist yet, before the umask
  // (0666, as a plain create makes it); ignored on Windows.
  explicit TSafeFileWriter(std::string_view fileName, unsigned newFileMode = 0666);
  ~TSafeFileWriter() override;
  TSafeFileWriter(const TSafeFileWriter&) = delete;
  TSafeFileWriter& operator=(const TSafeFileWriter&) = delete;

  // The stream is the new contents as written so far. A write the system refuses (a full
  // disk) raises EFCreateError with the system's reason.
  Integer Read(void* buffer, Integer count) override;
  Integer Write(const void* buffer, Integer count) override;
  Int64 Seek(Int64 offset, TSeekOrigin origin) override;
  Int64 GetSize() override;
  void SetSize(Int64 newSize) override;

  // Makes the written bytes the target's contents; afterwards the stream is closed. Raises
  // when the data cannot be synced or the target replaced, and the target is then untouched.
  void Commit();

  // The name the caller gave.
  const AnsiString& FileName() const noexcept { return fFileName; }

 private:
  struct Impl;
  [[noreturn]] void Fail(Cardinal errorCode) const;
  TFileStream& Temp() const;

  AnsiString fFileName;
  std::unique_ptr<Impl> fImpl;
};

}  // namespace ostrel
