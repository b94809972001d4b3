#include <ostrel/rtl/Exceptions.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/detail/Common.h>

#include <cerrno>
#include <cstring>

#ifdef _WIN32
#include <windows.h>
#endif

namespace ostrel {

Exception::Exception(std::string_view message) : fMessage(message), fUtf8(AnsiToUtf8(message)) {}

Exception::~Exception() = default;

void Exception::SetMessage(std::string_view message) {
  fMessage = AnsiString(message);
  fUtf8 = AnsiToUtf8(message);
}

EOSError::EOSError(std::string_view message, Cardinal errorCode)
    : Exception(message), fErrorCode(errorCode) {}

Cardinal GetLastOSError() {
#ifdef _WIN32
  return ::GetLastError();
#else
  return static_cast<Cardinal>(errno);
#endif
}

AnsiString SysErrorMessage(Cardinal errorCode) {
#ifdef _WIN32
  char buf[512];
  DWORD n = ::FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             errorCode, 0, buf, sizeof buf, nullptr);
  // The system's texts end in a full stop and a line break, sometimes with blanks between.
  while (n > 0 && (detail::IsBlank(buf[n - 1]) || buf[n - 1] == '.')) --n;
  return AnsiString(buf, n);
#else
  // The C library's English text (strerror is locale-dependent only in its language, and the
  // library never sets a locale).
  char buf[256];
#if (_POSIX_C_SOURCE >= 200112L) && !defined(_GNU_SOURCE)
  if (strerror_r(static_cast<int>(errorCode), buf, sizeof buf) != 0) return "Unknown error";
  return buf;
#else
  return strerror_r(static_cast<int>(errorCode), buf, sizeof buf);
#endif
#endif
}

void RaiseLastOSError(Cardinal errorCode) {
  if (errorCode != 0)
    throw EOSError(
        Format(SysConst::SOSError, static_cast<Integer>(errorCode), SysErrorMessage(errorCode)),
        errorCode);
  throw EOSError(SysConst::SUnkOSError, 0);
}

void RaiseLastOSError() { RaiseLastOSError(GetLastOSError()); }

}  // namespace ostrel
