// The platform's exception classes. Messages are CP1251 text; what() gives UTF-8.
#pragma once

#include <ostrel/rtl/Types.h>

#include <exception>
#include <string>

namespace ostrel {

// Classic English messages of the platform's own failures (format patterns where they
// take arguments).
namespace SysConst {
inline constexpr std::string_view SInvalidInteger = "'%s' is not a valid integer value";
inline constexpr std::string_view SInvalidFloat = "'%s' is not a valid floating point value";
inline constexpr std::string_view SInvalidCurrency = "'%s' is not a valid currency value";
inline constexpr std::string_view SInvalidDate = "'%s' is not a valid date";
inline constexpr std::string_view SInvalidTime = "'%s' is not a valid time";
inline constexpr std::string_view SInvalidDateTime = "'%s' is not a valid date and time";
inline constexpr std::string_view SInvalidBoolean = "'%s' is not a valid boolean value";
inline constexpr std::string_view SInvalidGUID = "'%s' is not a valid GUID value";
inline constexpr std::string_view SDateEncodeError = "Invalid argument to date encode";
inline constexpr std::string_view STimeEncodeError = "Invalid argument to time encode";
inline constexpr std::string_view SInvalidFormat =
    "Format '%s' invalid or incompatible with argument";
inline constexpr std::string_view SArgumentMissing = "No argument for format '%s'";
inline constexpr std::string_view SInvalidCast = "Invalid class typecast";
inline constexpr std::string_view SInvalidPointer = "Invalid pointer operation";
inline constexpr std::string_view SVarTypeCastError = "Invalid variant type cast";
inline constexpr std::string_view SVarTypeCouldNotConvert =
    "Could not convert variant of type (%s) into type (%s)";
inline constexpr std::string_view SVarArrayBounds = "Variant or safe array index out of bounds";
inline constexpr std::string_view SVarNotArray = "Variant is not an array";
inline constexpr std::string_view SVarInvalidOp = "Invalid variant operation";
inline constexpr std::string_view SVarOverflow = "Arithmetic overflow occurred";
inline constexpr std::string_view SListIndexError = "List index (%d) out of bounds";
inline constexpr std::string_view SListCapacityError = "List capacity (%d) exceeded.";
inline constexpr std::string_view SDuplicateString = "String list does not allow duplicates";
inline constexpr std::string_view SSortedListError = "Operation not allowed on sorted list";
inline constexpr std::string_view SFOpenError = "Cannot open file \"%s\". %s";
inline constexpr std::string_view SFCreateError = "Cannot create file \"%s\". %s";
inline constexpr std::string_view SReadError = "Stream read error";
inline constexpr std::string_view SWriteError = "Stream write error";
inline constexpr std::string_view SMemoryStreamError =
    "Out of memory while expanding memory stream";
inline constexpr std::string_view SOSError = "System Error.  Code: %d.\r\n%s";
inline constexpr std::string_view SUnkOSError = "A call to an OS function failed";
inline constexpr std::string_view SDuplicateName = "A component named %s already exists";
inline constexpr std::string_view SInvalidName = "''%s'' is not a valid component name";
}  // namespace SysConst

// The general exception: a message and nothing else.
class OSTREL_API Exception : public std::exception {
 public:
  explicit Exception(std::string_view message);
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;
  ~Exception() override;

  // The message in CP1251.
  const AnsiString& Message() const noexcept { return fMessage; }
  void SetMessage(std::string_view message);
  // The message in UTF-8, for generic C++ handlers.
  const char* what() const noexcept override { return fUtf8.c_str(); }
  // The class name as the classic RTL spells it ("Exception", "EConvertError", ...).
  virtual const char* ClassName() const noexcept { return "Exception"; }

 private:
  AnsiString fMessage;
  std::string fUtf8;
};

#define OSTREL_DECLARE_EXCEPTION(Name, Base)                          \
  class OSTREL_API Name : public Base {                               \
   public:                                                            \
    using Base::Base;                                                 \
    const char* ClassName() const noexcept override { return #Name; } \
  }

// The platform's exception classes under their classic names, each raised where the classic
// runtime raises it.
OSTREL_DECLARE_EXCEPTION(EAbort, Exception);
OSTREL_DECLARE_EXCEPTION(EConvertError, Exception);
OSTREL_DECLARE_EXCEPTION(EInvalidCast, Exception);
OSTREL_DECLARE_EXCEPTION(EInvalidPointer, Exception);
OSTREL_DECLARE_EXCEPTION(EInvalidOperation, Exception);
OSTREL_DECLARE_EXCEPTION(EInvalidArgument, Exception);
OSTREL_DECLARE_EXCEPTION(EIntOverflow, Exception);
OSTREL_DECLARE_EXCEPTION(EVariantError, Exception);
OSTREL_DECLARE_EXCEPTION(EVariantTypeCastError, EVariantError);
OSTREL_DECLARE_EXCEPTION(EVariantBadIndexError, EVariantError);
OSTREL_DECLARE_EXCEPTION(EVariantOverflowError, EVariantError);
OSTREL_DECLARE_EXCEPTION(EVariantInvalidOpError, EVariantError);
OSTREL_DECLARE_EXCEPTION(EListError, Exception);
OSTREL_DECLARE_EXCEPTION(EStringListError, EListError);
OSTREL_DECLARE_EXCEPTION(EComponentError, Exception);
OSTREL_DECLARE_EXCEPTION(EStreamError, Exception);
OSTREL_DECLARE_EXCEPTION(EFileStreamError, EStreamError);
OSTREL_DECLARE_EXCEPTION(EFOpenError, EFileStreamError);
OSTREL_DECLARE_EXCEPTION(EFCreateError, EFileStreamError);
OSTREL_DECLARE_EXCEPTION(EReadError, EStreamError);
OSTREL_DECLARE_EXCEPTION(EWriteError, EStreamError);

/// Raises EListError "List index (%d) out of bounds" with the index.
[[noreturn]] OSTREL_API void RaiseListIndexError(Integer index);
/// Raises EStringListError "List index (%d) out of bounds" with the index.
[[noreturn]] OSTREL_API void RaiseStringListIndexError(Integer index);
/// The index check of every list: EListError "List index (%d) out of bounds" unless
/// 0 <= index < count (a place to insert at is checked against count + 1).
inline void CheckListIndex(Integer index, Integer count) {
  if (index < 0 || index >= count) RaiseListIndexError(index);
}
/// As CheckListIndex, raising EStringListError (the string lists' class of error).
inline void CheckStringListIndex(Integer index, Integer count) {
  if (index < 0 || index >= count) RaiseStringListIndexError(index);
}

// An operating-system call failed; carries the system's error code.
class OSTREL_API EOSError : public Exception {
 public:
  EOSError(std::string_view message, Cardinal errorCode);
  Cardinal ErrorCode() const noexcept { return fErrorCode; }
  const char* ClassName() const noexcept override { return "EOSError"; }

 private:
  Cardinal fErrorCode;
};

// The last operating-system error code (errno or GetLastError) and its text.
OSTREL_API Cardinal GetLastOSError();
OSTREL_API AnsiString SysErrorMessage(Cardinal errorCode);
// Raises EOSError for the given code with the classic "System Error.  Code: %d." text.
[[noreturn]] OSTREL_API void RaiseLastOSError(Cardinal errorCode);
[[noreturn]] OSTREL_API void RaiseLastOSError();

}  // namespace ostrel
