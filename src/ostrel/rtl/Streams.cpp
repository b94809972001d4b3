// TStream, TFileStream and TMemoryStream.
#include <ostrel/rtl/Classes.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/SafeFile.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <limits>
#include <new>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#endif

namespace ostrel {

OSTREL_DEFINE_CLASS(TStream)
OSTREL_DEFINE_CLASS(TFileStream)
OSTREL_DEFINE_CLASS(TMemoryStream)

// ---- TStream --------------------------------------------------------------------------

TStream::~TStream() = default;

Int64 TStream::GetSize() {
  Int64 pos = Seek(0, soCurrent);
  Int64 size = Seek(0, soEnd);
  Seek(pos, soBeginning);
  return size;
}

void TStream::SetSize(Int64) {}

void TStream::ReadBuffer(void* buffer, Integer count) {
  if (count != 0 && Read(buffer, count) != count) throw EReadError(SysConst::SReadError);
}

void TStream::WriteBuffer(const void* buffer, Integer count) {
  if (count != 0 && Write(buffer, count) != count) throw EWriteError(SysConst::SWriteError);
}

Int64 TStream::CopyFrom(TStream& source, Int64 count) {
  constexpr Int64 maxChunk = 0xF000;
  if (count < 0) throw EReadError(SysConst::SReadError);
  if (count == 0) {
    source.SetPosition(0);
    count = source.GetSize();
    if (count < 0) throw EReadError(SysConst::SReadError);
  }
  std::vector<Byte> buffer(static_cast<std::size_t>(std::min(count, maxChunk)));
  Int64 left = count;
  while (left > 0) {
    Integer n = static_cast<Integer>(std::min(left, maxChunk));
    source.ReadBuffer(buffer.data(), n);
    WriteBuffer(buffer.data(), n);
    left -= n;
  }
  return count;
}

// ---- TFileStream ----------------------------------------------------------------------

namespace {

// The full name for messages, as CP1251 text; the name as given when it cannot be expanded.
AnsiString ExpandedName(std::string_view fileName) {
  std::error_code ec;
  std::string utf8 = AnsiToUtf8(fileName);
  std::filesystem::path p =
      std::filesystem::absolute(std::filesystem::path(std::u8string(utf8.begin(), utf8.end())), ec);
  if (ec) return AnsiString(fileName);
  std::u8string full = p.lexically_normal().u8string();
  return Utf8ToAnsi(std::u8string_view(full));
}

[[noreturn]] void RaiseOpenError(bool create, std::string_view fileName, Cardinal code) {
  AnsiString reason = SysErrorMessage(code);
  if (create) throw EFCreateError(Format(SysConst::SFCreateError, ExpandedName(fileName), reason));
  throw EFOpenError(Format(SysConst::SFOpenError, ExpandedName(fileName), reason));
}

}  // namespace

TFileStream::TFileStream(std::intptr_t handle, std::string_view fileName) noexcept
    : fFileName(fileName), fHandle(handle) {}

#ifdef _WIN32

TFileStream::TFileStream(std::string_view fileName, Word mode) : fFileName(fileName) {
  static constexpr DWORD shareModes[5] = {0, 0, FILE_SHARE_READ, FILE_SHARE_WRITE,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE};
  const bool create = (mode & fmCreate) == fmCreate;
  const unsigned access = create ? fmOpenReadWrite : (mode & 0x0F);
  const unsigned share = (mode & 0xF0) >> 4;
  if (access > fmOpenReadWrite || share > 4 || fileName.find('\0') != std::string_view::npos)
    RaiseOpenError(create, fileName, ERROR_INVALID_PARAMETER);
  static constexpr DWORD accessModes[3] = {GENERIC_READ, GENERIC_WRITE,
                                           GENERIC_READ | GENERIC_WRITE};
  std::wstring wide;
  for (char16_t c : AnsiToWide(fileName)) wide.push_back(static_cast<wchar_t>(c));
  HANDLE h = ::CreateFileW(wide.c_str(), accessModes[access], shareModes[share], nullptr,
                           create ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) RaiseOpenError(create, fileName, ::GetLastError());
  fHandle = reinterpret_cast<std::intptr_t>(h);
}

TFileStream::~TFileStream() {
  if (fHandle != -1) ::CloseHandle(reinterpret_cast<HANDLE>(fHandle));
}

Integer TFileStream::Read(void* buffer, Integer count) {
  if (count <= 0) return 0;
  DWORD done = 0;
  if (!::ReadFile(reinterpret_cast<HANDLE>(fHandle), buffer, static_cast<DWORD>(count), &done,
                  nullptr))
    return 0;
  return static_cast<Integer>(done);
}

Integer TFileStream::Write(const void* buffer, Integer count) {
  if (count <= 0) return 0;
  DWORD done = 0;
  if (!::WriteFile(reinterpret_cast<HANDLE>(fHandle), buffer, static_cast<DWORD>(count), &done,
                   nullptr))
    return 0;
  return static_cast<Integer>(done);
}

Int64 TFileStream::Seek(Int64 offset, TSeekOrigin origin) {
  DWORD method;
  switch (origin) {
    case soBeginning: method = FILE_BEGIN; break;
    case soCurrent: method = FILE_CURRENT; break;
    case soEnd: method = FILE_END; break;
    default: return -1;
  }
  LARGE_INTEGER distance, result;
  distance.QuadPart = offset;
  if (!::SetFilePointerEx(reinterpret_cast<HANDLE>(fHandle), distance, &result, method)) return -1;
  return result.QuadPart;
}

Int64 TFileStream::GetSize() {
  LARGE_INTEGER size;
  if (!::GetFileSizeEx(reinterpret_cast<HANDLE>(fHandle), &size)) return -1;
  return size.QuadPart;
}

void TFileStream::SetSize(Int64 newSize) {
  if (newSize < 0) RaiseLastOSError(ERROR_INVALID_PARAMETER);
  if (Seek(newSize, soBeginning) != newSize || !::SetEndOfFile(reinterpret_cast<HANDLE>(fHandle)))
    RaiseLastOSError();
}

#else  // POSIX

namespace {

int OpenFlags(bool create, unsigned access) {
  if (create) return O_RDWR | O_CREAT;
  switch (access) {
    case fmOpenRead: return O_RDONLY;
    case fmOpenWrite: return O_WRONLY;
    default: return O_RDWR;
  }
}

// The advisory lock standing for the sharing mode (see the class comment); 0 for none.
int LockFor(bool create, unsigned access, unsigned share) {
  if (share == fmShareDenyNone) return 0;
  if (!create && access == fmOpenRead && share == fmShareDenyWrite) return LOCK_SH;
  return LOCK_EX;
}

}  // namespace

TFileStream::TFileStream(std::string_view fileName, Word mode) : fFileName(fileName) {
  const bool create = (mode & fmCreate) == fmCreate;
  const unsigned access = mode & 0x0F;
  const unsigned share = mode & 0xF0;
  // A zero byte would cut the name short and open another file.
  if ((!create && access > fmOpenReadWrite) || share > fmShareDenyNone ||
      fileName.find('\0') != std::string_view::npos)
    RaiseOpenError(create, fileName, EINVAL);
  std::string path = AnsiToUtf8(fileName);
  int fd;
  do fd = ::open(path.c_str(), OpenFlags(create, access) | O_CLOEXEC, 0666);
  while (fd < 0 && errno == EINTR);
  if (fd < 0) RaiseOpenError(create, fileName, static_cast<Cardinal>(errno));
  // A directory opens for reading on POSIX; as a file stream it makes no sense.
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    ::close(fd);
    RaiseOpenError(create, fileName, EISDIR);
  }
  if (int lock = LockFor(create, access, share)) {
    int rc;
    do rc = ::flock(fd, lock | LOCK_NB);
    while (rc != 0 && errno == EINTR);
    // File systems without lock support (ENOLCK, EINVAL) open without sharing control;
    // only a lock held by somebody else refuses the open.
    if (rc != 0 && (errno == EWOULDBLOCK || errno == EAGAIN)) {
      int err = errno;
      ::close(fd);
      RaiseOpenError(create, fileName, static_cast<Cardinal>(err));
    }
  }
  // Truncate only once the lock is ours, so that a refused fmCreate leaves the file alone.
  if (create && ::ftruncate(fd, 0) != 0) {
    int err = errno;
    ::close(fd);
    RaiseOpenError(create, fileName, static_cast<Cardinal>(err));
  }
  fHandle = fd;
}

TFileStream::~TFileStream() {
  if (fHandle >= 0) ::close(static_cast<int>(fHandle));
}

Integer TFileStream::Read(void* buffer, Integer count) {
  Integer done = 0;
  while (done < count) {
    ssize_t n = ::read(static_cast<int>(fHandle), static_cast<char*>(buffer) + done,
                       static_cast<std::size_t>(count - done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<Integer>(n);
  }
  return done;
}

Integer TFileStream::Write(const void* buffer, Integer count) {
  Integer done = 0;
  while (done < count) {
    ssize_t n = ::write(static_cast<int>(fHandle), static_cast<const char*>(buffer) + done,
                        static_cast<std::size_t>(count - done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<Integer>(n);
  }
  return done;
}

Int64 TFileStream::Seek(Int64 offset, TSeekOrigin origin) {
  int whence;
  switch (origin) {
    case soBeginning: whence = SEEK_SET; break;
    case soCurrent: whence = SEEK_CUR; break;
    case soEnd: whence = SEEK_END; break;
    default: return -1;
  }
  static_assert(sizeof(off_t) == 8, "64-bit file offsets are required");
  off_t r = ::lseek(static_cast<int>(fHandle), static_cast<off_t>(offset), whence);
  return r < 0 ? -1 : static_cast<Int64>(r);
}

Int64 TFileStream::GetSize() {
  struct stat st;
  if (::fstat(static_cast<int>(fHandle), &st) != 0) return -1;
  return static_cast<Int64>(st.st_size);
}

// The classic handle stream moves to the new end before cutting the file there; it is kept
// so on every system, so the position is newSize afterwards.
void TFileStream::SetSize(Int64 newSize) {
  if (newSize < 0) RaiseLastOSError(EINVAL);
  int rc;
  do rc = ::ftruncate(static_cast<int>(fHandle), static_cast<off_t>(newSize));
  while (rc != 0 && errno == EINTR);
  if (rc != 0 || Seek(newSize, soBeginning) != newSize) RaiseLastOSError();
}

#endif

// ---- TMemoryStream --------------------------------------------------------------------

TMemoryStream::~TMemoryStream() = default;

void TMemoryStream::Reserve(std::size_t size) {
  if (size <= fData.capacity()) return;
  // Geometric growth keeps byte-by-byte appending amortised constant.
  std::size_t grown = fData.capacity() + fData.capacity() / 2;
  std::size_t target = std::max<std::size_t>({size, grown, 256});
  try {
    try {
      fData.reserve(target);
    } catch (const std::bad_alloc&) {
      fData.reserve(size);  // no headroom: just what is needed
    }
  } catch (const std::exception&) {
    throw EStreamError(SysConst::SMemoryStreamError);
  }
}

void TMemoryStream::SetSize(Int64 newSize) {
  if (newSize < 0 || static_cast<UInt64>(newSize) > std::min<UInt64>(fData.max_size(), SIZE_MAX))
    throw EStreamError(SysConst::SMemoryStreamError);
  std::size_t size = static_cast<std::size_t>(newSize);
  if (size > fData.size()) Reserve(size);
  fData.resize(size);
  if (fPosition > newSize) fPosition = newSize;
}

Integer TMemoryStream::Read(void* buffer, Integer count) {
  Int64 size = GetSize();
  if (count <= 0 || fPosition < 0 || fPosition >= size) return 0;
  Integer n = static_cast<Integer>(std::min<Int64>(count, size - fPosition));
  std::memcpy(buffer, fData.data() + fPosition, static_cast<std::size_t>(n));
  fPosition += n;
  return n;
}

Integer TMemoryStream::Write(const void* buffer, Integer count) {
  if (count <= 0 || fPosition < 0) return 0;
  if (fPosition > std::numeric_limits<Int64>::max() - count)
    throw EStreamError(SysConst::SMemoryStreamError);
  Int64 end = fPosition + count;
  if (end > GetSize()) SetSize(end);
  std::memcpy(fData.data() + fPosition, buffer, static_cast<std::size_t>(count));
  fPosition = end;
  return count;
}

Int64 TMemoryStream::Seek(Int64 offset, TSeekOrigin origin) {
  Int64 base;
  switch (origin) {
    case soBeginning: base = 0; break;
    case soCurrent: base = fPosition; break;
    case soEnd: base = GetSize(); break;
    default: return -1;
  }
  if ((offset > 0 && base > std::numeric_limits<Int64>::max() - offset) || base + offset < 0)
    return -1;
  fPosition = base + offset;
  return fPosition;
}

void TMemoryStream::Clear() {
  std::vector<Byte>().swap(fData);
  fPosition = 0;
}

namespace {
// Transfers beyond 2 GiB go in pieces, as Read and Write take a 32-bit count.
constexpr Int64 maxPiece = Int64{1} << 30;
}  // namespace

void TMemoryStream::LoadFromStream(TStream& stream) {
  stream.SetPosition(0);
  Int64 size = stream.GetSize();
  if (size < 0) throw EReadError(SysConst::SReadError);
  SetSize(size);
  for (Int64 done = 0; done < size;) {
    Integer n = static_cast<Integer>(std::min(size - done, maxPiece));
    stream.ReadBuffer(fData.data() + done, n);
    done += n;
  }
}

void TMemoryStream::LoadFromFile(std::string_view fileName) {
  TFileStream file(fileName, fmOpenRead | fmShareDenyWrite);
  LoadFromStream(file);
}

void TMemoryStream::SaveToStream(TStream& stream) {
  const Int64 size = GetSize();
  for (Int64 done = 0; done < size;) {
    Integer n = static_cast<Integer>(std::min(size - done, maxPiece));
    stream.WriteBuffer(fData.data() + done, n);
    done += n;
  }
}

void TMemoryStream::SaveToFile(std::string_view fileName) {
  TSafeFileWriter file(fileName);
  SaveToStream(file);
  file.Commit();
}

}  // namespace ostrel
