// TSafeFileWriter: the system side of a save (which file is really written, its temporary
// file, syncing and replacing) per platform; the order of the steps is shared.
#include <ostrel/rtl/SafeFile.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Files.h>
#include <ostrel/rtl/Format.h>

#include <algorithm>
#include <type_traits>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#endif

namespace ostrel {

OSTREL_DEFINE_CLASS(TSafeFileWriter)

namespace {

// The longest folder entry the systems we run on take: bytes of UTF-8 on POSIX, UTF-16 units
// on Windows.
constexpr std::size_t kNameMax = 255;

#ifdef _WIN32
using SysString = std::wstring;
constexpr Cardinal kBadName = ERROR_INVALID_PARAMETER, kNoFile = ERROR_FILE_NOT_FOUND,
                   kClosed = ERROR_INVALID_HANDLE;
bool IsDelimiter(wchar_t c) { return c == L'\\' || c == L'/' || c == L':'; }
// The second half of a surrogate pair: a name is never cut in front of one.
bool IsTrailUnit(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
SysString ToSys(std::string_view ansi) {
  SysString wide;
  for (char16_t c : AnsiToWide(ansi)) wide.push_back(static_cast<wchar_t>(c));
  return wide;
}
#else
using SysString = std::string;
constexpr Cardinal kBadName = EINVAL, kNoFile = ENOENT, kClosed = EBADF;
bool IsDelimiter(char c) { return c == '/'; }
bool IsTrailUnit(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }
SysString ToSys(std::string_view ansi) { return AnsiToUtf8(ansi); }
#endif

// The folder part of a name, with its delimiter ("" for a name in the current folder).
SysString FolderOf(const SysString& path) {
  std::size_t i = path.size();
  while (i > 0 && !IsDelimiter(path[i - 1])) --i;
  return path.substr(0, i);
}

// "<name>.~<hash of the name>.tmp" beside the target. The name is the same for every save of
// one file, so a save finds what a killed one left; it is cut, never inside a character, so
// that the whole fits in a folder entry, and the hash of the full name keeps long names that
// share a beginning apart.
SysString TempNameFor(const SysString& path) {
  const SysString folder = FolderOf(path);
  const SysString name = path.substr(folder.size());
  UInt64 hash = 14695981039346656037ull;  // FNV-1a over the name's units
  for (auto c : name) {
    hash ^= static_cast<UInt64>(static_cast<std::make_unsigned_t<decltype(c)>>(c));
    hash *= 1099511628211ull;
  }
  const SysString suffix =
      ToSys(".~" + IntToHex(static_cast<Int64>(hash & 0xFFFFFFFFFFFFull), 12) + ".tmp");
  std::size_t keep = name.size();
  while (keep > 0 && keep + suffix.size() > kNameMax) {
    --keep;
    while (keep > 0 && IsTrailUnit(name[keep])) --keep;
  }
  return folder + name.substr(0, keep) + suffix;
}

}  // namespace

struct TSafeFileWriter::Impl {
  SysString target;  // the file really written: a symbolic link's final target
  SysString temp;
  std::unique_ptr<TFileStream> tempFile;
  // The existing target, open for writing: it holds the writer's lock on POSIX for the whole
  // save, and is what an in-place save writes through.
  std::unique_ptr<TFileStream> held;
  bool exists = false;
  bool regular = true;
  bool inPlace = false;
};

TFileStream& TSafeFileWriter::Temp() const {
  if (!fImpl->tempFile) Fail(kClosed);
  return *fImpl->tempFile;
}

void TSafeFileWriter::Fail(Cardinal errorCode) const {
  throw EFCreateError(
      Format(SysConst::SFCreateError, ExpandFileName(fFileName), SysErrorMessage(errorCode)));
}

Integer TSafeFileWriter::Read(void* buffer, Integer count) { return Temp().Read(buffer, count); }

Integer TSafeFileWriter::Write(const void* buffer, Integer count) {
  Integer done = Temp().Write(buffer, count);
  // A short write would lose the system's reason in the generic "Stream write error".
  if (count > 0 && done != count) Fail(GetLastOSError());
  return done;
}

Int64 TSafeFileWriter::Seek(Int64 offset, TSeekOrigin origin) {
  return Temp().Seek(offset, origin);
}
Int64 TSafeFileWriter::GetSize() { return Temp().GetSize(); }
void TSafeFileWriter::SetSize(Int64 newSize) { Temp().SetSize(newSize); }

#ifdef _WIN32

namespace {

std::intptr_t OpenTarget(const SysString& path, bool& exists, bool& regular, bool& inPlace,
                         Cardinal& error) {
  // Sharing everything, this open is refused exactly where another holder denies writers
  // (and a read-only file refuses it as well).
  HANDLE h = ::CreateFileW(path.c_str(), GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    error = ::GetLastError();
    if (error == ERROR_FILE_NOT_FOUND) error = 0;
    return -1;
  }
  BY_HANDLE_FILE_INFORMATION info{};
  exists = true;
  regular = ::GetFileType(h) == FILE_TYPE_DISK;
  inPlace = !regular || (::GetFileInformationByHandle(h, &info) && info.nNumberOfLinks > 1);
  if (!inPlace) {
    // Replacing needs the file closed here; the system checks other holders again then.
    ::CloseHandle(h);
    return -1;
  }
  return reinterpret_cast<std::intptr_t>(h);
}

// No sharing: a save still under way keeps its temporary file, one left by a killed save is
// replaced.
std::intptr_t CreateTemp(const SysString& temp, bool, unsigned, Cardinal& error) {
  HANDLE h = ::CreateFileW(temp.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    error = ::GetLastError();
    return -1;
  }
  return reinterpret_cast<std::intptr_t>(h);
}

Cardinal SyncFile(std::intptr_t handle, bool) {
  return ::FlushFileBuffers(reinterpret_cast<HANDLE>(handle)) ? 0 : ::GetLastError();
}

// ReplaceFileW carries the target's attributes, security and creation time over to the new
// file; a target that has gone meanwhile is simply created.
Cardinal Replace(const SysString& temp, const SysString& target, bool exists) {
  if (exists && ::ReplaceFileW(target.c_str(), temp.c_str(), nullptr,
                               REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr))
    return 0;
  Cardinal error = exists ? ::GetLastError() : 0;
  if (exists && error != ERROR_FILE_NOT_FOUND) return error;
  return ::MoveFileExW(temp.c_str(), target.c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)
             ? 0
             : ::GetLastError();
}

// The handle must go first: the file cannot be deleted while it is open without sharing.
void Discard(std::unique_ptr<TFileStream>& tempFile, const SysString& temp) {
  tempFile.reset();
  ::DeleteFileW(temp.c_str());
}

}  // namespace

#else  // POSIX

namespace {

// Follows symbolic links from path to the name they finally lead to, which need not exist
// (a save through a dangling link creates its target).
Cardinal ResolveLinks(SysString& path) {
  for (int hop = 0; hop < 40; ++hop) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return errno == ENOENT ? 0 : errno;
    if (!S_ISLNK(st.st_mode)) return 0;
    std::vector<char> link(PATH_MAX + 1);
    ssize_t n = ::readlink(path.c_str(), link.data(), link.size());
    if (n < 0) return errno;
    if (static_cast<std::size_t>(n) >= link.size()) return ENAMETOOLONG;
    SysString to(link.data(), static_cast<std::size_t>(n));
    path = to.starts_with('/') ? to : FolderOf(path) + to;
  }
  return ELOOP;
}

// True when another open of the file holds a conflicting lock. File systems without flock
// support cannot tell, and count as free, as they do for TFileStream.
bool LockedElsewhere(int fd) {
  int rc;
  do rc = ::flock(fd, LOCK_EX | LOCK_NB);
  while (rc != 0 && errno == EINTR);
  return rc != 0 && (errno == EWOULDBLOCK || errno == EAGAIN);
}

bool Names(int fd, const SysString& path) {
  struct stat a, b;
  return ::fstat(fd, &a) == 0 && ::lstat(path.c_str(), &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

std::intptr_t OpenTarget(const SysString& path, bool& exists, bool& regular, bool& inPlace,
                         Cardinal& error, struct stat& st) {
  // O_NONBLOCK so that a FIFO without a reader refuses instead of hanging.
  int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) {
    error = errno == ENOENT ? 0 : errno;
    return -1;
  }
  ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (LockedElsewhere(fd) || ::fstat(fd, &st) != 0) {
    error = errno;
    ::close(fd);
    return -1;
  }
  exists = true;
  regular = S_ISREG(st.st_mode);
  inPlace = !regular || st.st_nlink > 1;
  return fd;
}

// The temporary file is created anew and locked for the whole save. One that exists already
// is either a killed save's, whose lock went with its process, and is removed, or belongs to
// a save under way, which refuses this one. Between creating and locking, another save may
// take a new file for stale and remove it; the name is checked after locking, and made again.
std::intptr_t CreateTemp(const SysString& temp, bool exists, unsigned newFileMode,
                         Cardinal& error) {
  const mode_t mode = exists ? 0600 : static_cast<mode_t>(newFileMode & 07777);
  error = EWOULDBLOCK;  // when every attempt lost its file to another save
  for (int attempt = 0; attempt < 4; ++attempt) {
    int fd = ::open(temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd >= 0) {
      if (!LockedElsewhere(fd) && Names(fd, temp)) return fd;
      ::close(fd);
      continue;
    }
    if (errno != EEXIST) {
      error = static_cast<Cardinal>(errno);
      return -1;
    }
    int old = ::open(temp.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (old < 0) {
      if (errno == ENOENT) continue;
      error = static_cast<Cardinal>(errno);
      return -1;
    }
    const bool busy = LockedElsewhere(old);
    if (!busy && Names(old, temp)) ::unlink(temp.c_str());
    ::close(old);
    if (busy) return -1;
  }
  return -1;
}

Cardinal SyncFile(std::intptr_t handle, bool regular) {
  int rc;
  do rc = ::fsync(static_cast<int>(handle));
  while (rc != 0 && errno == EINTR);
  // Pipes and terminals have nothing to sync.
  return rc == 0 || (!regular && errno == EINVAL) ? 0 : static_cast<Cardinal>(errno);
}

// The rename is made durable by syncing the folder that holds the name. A folder that cannot
// be synced (some file systems refuse) leaves the save done all the same: its data is synced.
Cardinal Replace(const SysString& temp, const SysString& target, bool) {
  if (::rename(temp.c_str(), target.c_str()) != 0) return errno;
  const SysString folder = FolderOf(target);
  int dir = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return 0;
}

// Removed while still locked, so that no other save can have made a new file of that name.
void Discard(std::unique_ptr<TFileStream>& tempFile, const SysString& temp) {
  ::unlink(temp.c_str());
  tempFile.reset();
}

}  // namespace

#endif

TSafeFileWriter::TSafeFileWriter(std::string_view fileName, unsigned newFileMode)
    : fFileName(fileName), fImpl(std::make_unique<Impl>()) {
  if (fileName.empty()) Fail(kNoFile);
  // A zero byte would cut the name short and write another file.
  if (fileName.find('\0') != std::string_view::npos) Fail(kBadName);
  Impl& d = *fImpl;
  d.target = ToSys(fileName);
  Cardinal error = 0;
  std::intptr_t held;
#ifdef _WIN32
  held = OpenTarget(d.target, d.exists, d.regular, d.inPlace, error);
#else
  if ((error = ResolveLinks(d.target)) != 0) Fail(error);
  struct stat st;
  held = OpenTarget(d.target, d.exists, d.regular, d.inPlace, error, st);
#endif
  if (error) Fail(error);
  if (held != -1) d.held = std::make_unique<TFileStream>(held, fileName);
  d.temp = TempNameFor(d.target);
  std::intptr_t temp = CreateTemp(d.temp, d.exists, newFileMode, error);
  if (temp == -1) Fail(error);
  d.tempFile = std::make_unique<TFileStream>(temp, fileName);
#ifndef _WIN32
  if (d.exists && !d.inPlace) {
    // The owner first, since changing it clears the set-id bits. A user who may not give the
    // file away may still keep its group; failing both, the file is the saving user's.
    const int fd = static_cast<int>(temp);
    if (::fchown(fd, st.st_uid, st.st_gid) != 0)
      (void)!::fchown(fd, static_cast<uid_t>(-1), st.st_gid);
    (void)!::fchmod(fd, st.st_mode & 07777);
  }
#endif
}

TSafeFileWriter::~TSafeFileWriter() {
  if (fImpl->tempFile) Discard(fImpl->tempFile, fImpl->temp);
}

void TSafeFileWriter::Commit() {
  Impl& d = *fImpl;
  TFileStream& source = Temp();
  if (Cardinal error = SyncFile(source.Handle(), true)) Fail(error);
  if (d.inPlace) {
    // The complete text is on the disk in the temporary file before the target is touched;
    // should copying it in fail, the temporary file is kept as the one complete copy.
    try {
      constexpr Integer chunk = 1 << 16;
      std::vector<char> buffer(chunk);
      const Int64 size = source.GetSize();
      source.Seek(0, soBeginning);
      d.held->Seek(0, soBeginning);  // a pipe or terminal has no position, and needs none
      for (Int64 done = 0; done < size;) {
        Integer n =
            source.Read(buffer.data(), static_cast<Integer>(std::min<Int64>(size - done, chunk)));
        if (n <= 0 || d.held->Write(buffer.data(), n) != n) Fail(GetLastOSError());
        done += n;
      }
      if (d.regular) {
        try {
          d.held->SetSize(size);
        } catch (const EOSError& e) {
          Fail(e.ErrorCode());
        }
      }
      if (Cardinal error = SyncFile(d.held->Handle(), d.regular)) Fail(error);
    } catch (...) {
      d.tempFile.reset();
      throw;
    }
    Discard(d.tempFile, d.temp);
  } else {
#ifdef _WIN32
    d.tempFile.reset();  // ReplaceFileW and MoveFileExW take closed files
#endif
    if (Cardinal error = Replace(d.temp, d.target, d.exists)) {
      Discard(d.tempFile, d.temp);
      Fail(error);
    }
    d.tempFile.reset();
  }
  d.held.reset();
}

}  // namespace ostrel
