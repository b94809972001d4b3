// Format settings (Russian business defaults), Format and the number <-> text conversions
// of the classic RTL, independent of the host locale.
#pragma once

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>

#include <array>
#include <cstddef>
#include <type_traits>

namespace ostrel {

// One process-wide record of separators, formats and names. Several operations change it
// temporarily (through TFormatSettingsGuard), so it belongs to the main thread.
struct OSTREL_API TFormatSettings {
  char DecimalSeparator;
  char ThousandSeparator;
  char DateSeparator;
  char TimeSeparator;
  char ListSeparator;
  AnsiString ShortDateFormat;
  AnsiString LongDateFormat;
  AnsiString ShortTimeFormat;
  AnsiString LongTimeFormat;
  AnsiString TimeAMString;
  AnsiString TimePMString;
  AnsiString CurrencyString;
  // 0 "$1", 1 "1$", 2 "$ 1", 3 "1 $".
  Byte CurrencyFormat;
  // The classic sixteen negative currency layouts; 8 is "-1 $".
  Byte NegCurrFormat;
  Byte CurrencyDecimals;
  Word TwoDigitYearCenturyWindow;
  std::array<AnsiString, 12> ShortMonthNames;
  std::array<AnsiString, 12> LongMonthNames;
  // Index 0 is Sunday, as in DayOfWeek - 1.
  std::array<AnsiString, 7> ShortDayNames;
  std::array<AnsiString, 7> LongDayNames;

  // The Russian business locale: "," decimals, no-break space (0xA0) thousands, "." dates as
  // "dd.mm.yyyy", ":" times, "р." after the amount, 2 currency decimals, Russian names.
  static TFormatSettings Russian();
  // The invariant (English) settings: "." decimals, "," thousands, "/" dates as "MM/dd/yyyy".
  static TFormatSettings Invariant();
};

// The process-wide settings; starts as TFormatSettings::Russian().
OSTREL_API extern TFormatSettings FormatSettings;

// Saves the process-wide settings and restores them when it goes out of scope, on every
// path out, exceptions included.
class OSTREL_API TFormatSettingsGuard {
 public:
  TFormatSettingsGuard();
  explicit TFormatSettingsGuard(const TFormatSettings& replaceWith);
  ~TFormatSettingsGuard();
  TFormatSettingsGuard(const TFormatSettingsGuard&) = delete;
  TFormatSettingsGuard& operator=(const TFormatSettingsGuard&) = delete;

 private:
  TFormatSettings fSaved;
};

// ---------------------------------------------------------------------------------------
// Format

// One argument of Format, as the classic "array of const" element.
class FormatArg {
 public:
  enum class Kind : Byte { Int64, UInt64, Extended, String, Char, Pointer, Currency };

  template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                          !std::is_same_v<T, char> && std::is_signed_v<T>,
                                      int> = 0>
  FormatArg(T v) : fKind(Kind::Int64), fInt(static_cast<Int64>(v)), fNarrow(sizeof(T) <= 4) {}
  template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> &&
                                          !std::is_same_v<T, char> && std::is_unsigned_v<T>,
                                      int> = 0>
  FormatArg(T v) : fKind(Kind::UInt64), fUInt(static_cast<UInt64>(v)), fNarrow(sizeof(T) <= 4) {}
  FormatArg(bool) = delete;  // the classic Format has no boolean specifier
  FormatArg(char c) : fKind(Kind::Char), fChar(c) {}
  FormatArg(float v) : fKind(Kind::Extended), fExt(v) {}
  FormatArg(double v) : fKind(Kind::Extended), fExt(v) {}
  FormatArg(long double v) : fKind(Kind::Extended), fExt(v) {}
  FormatArg(Currency v) : fKind(Kind::Currency), fInt(v.Raw) {}
  FormatArg(const char* s)
      : fKind(Kind::String), fStr(s ? std::string_view(s) : std::string_view()) {}
  FormatArg(std::string_view s) : fKind(Kind::String), fStr(s) {}
  FormatArg(const AnsiString& s) : fKind(Kind::String), fStr(s) {}
  template <std::size_t N>
  FormatArg(const cp1251::Literal<N>& s) : fKind(Kind::String), fStr(s.View()) {}
  FormatArg(const void* p) : fKind(Kind::Pointer), fPtr(p) {}

  Kind GetKind() const { return fKind; }
  bool IsString() const { return fKind == Kind::String || fKind == Kind::Char; }
  Int64 AsInt64() const { return fInt; }
  UInt64 AsUInt64() const { return fUInt; }
  Extended AsExtended() const { return fExt; }
  std::string_view AsString() const {
    return fKind == Kind::Char ? std::string_view(&fChar, 1) : fStr;
  }
  const void* AsPointer() const { return fPtr; }
  Currency AsCurrency() const { return Currency::FromRaw(fInt); }
  // True for integers of 32 bits or fewer: %u and %x show a negative one as its 32-bit
  // two's complement, as the classic Integer argument did.
  bool IsNarrow() const { return fNarrow; }

 private:
  Kind fKind;
  Int64 fInt = 0;
  UInt64 fUInt = 0;
  Extended fExt = 0;
  const void* fPtr = nullptr;
  std::string_view fStr;
  char fChar = 0;
  bool fNarrow = false;
};

// The formatting engine: %[index:][-][width][.precision]type with the types
// d u x s f g e n m p and %%; '*' takes width or precision from the arguments.
// Raises EConvertError (SInvalidFormat / SArgumentMissing) on a bad specifier or argument,
// and SInvalidFormat for a width or precision above kMaxFormatField.
inline constexpr int kMaxFormatField = 65535;
OSTREL_API AnsiString FormatBuf(std::string_view fmt, const FormatArg* args, std::size_t count,
                                const TFormatSettings& settings);

template <class... A>
AnsiString Format(std::string_view fmt, const A&... args) {
  if constexpr (sizeof...(A) == 0) {
    return FormatBuf(fmt, nullptr, 0, FormatSettings);
  } else {
    const FormatArg arr[] = {FormatArg(args)...};
    return FormatBuf(fmt, arr, sizeof...(A), FormatSettings);
  }
}

template <class... A>
AnsiString Format(const TFormatSettings& settings, std::string_view fmt, const A&... args) {
  if constexpr (sizeof...(A) == 0) {
    return FormatBuf(fmt, nullptr, 0, settings);
  } else {
    const FormatArg arr[] = {FormatArg(args)...};
    return FormatBuf(fmt, arr, sizeof...(A), settings);
  }
}

// ---------------------------------------------------------------------------------------
// Integers

OSTREL_API AnsiString IntToStr(Int64 value);
OSTREL_API AnsiString UIntToStr(UInt64 value);
// Upper-case hexadecimal, at least `digits` digits (zero-padded); negative values as their
// two's complement of 64 bits (of 32 bits through the Integer overload).
OSTREL_API AnsiString IntToHex(Int64 value, int digits);
OSTREL_API AnsiString IntToHex(Integer value, int digits);

// Strict text -> integer: an optional sign, decimal digits, or hexadecimal after "$", "x",
// "0x" (either case); leading blanks are allowed, trailing ones are not; decimal overflow
// fails, hexadecimal takes the full unsigned width and wraps ("$FFFFFFFF" is -1).
OSTREL_API bool TryStrToInt(std::string_view s, Integer& value);
OSTREL_API bool TryStrToInt64(std::string_view s, Int64& value);
// Raise EConvertError "'%s' is not a valid integer value".
OSTREL_API Integer StrToInt(std::string_view s);
OSTREL_API Int64 StrToInt64(std::string_view s);
OSTREL_API Integer StrToIntDef(std::string_view s, Integer def);
OSTREL_API Int64 StrToInt64Def(std::string_view s, Int64 def);

// ---------------------------------------------------------------------------------------
// Floating point and currency

enum TFloatFormat { ffGeneral, ffExponent, ffFixed, ffNumber, ffCurrency };

// Shortest general text with 15 significant digits, current decimal separator
// ("0,1", "1E20", "1,5E-5"); NaN and infinities as "NAN", "INF", "-INF".
OSTREL_API AnsiString FloatToStr(Extended value);
OSTREL_API AnsiString FloatToStr(Extended value, const TFormatSettings& settings);
OSTREL_API AnsiString FloatToStrF(Extended value, TFloatFormat format, int precision, int digits);
OSTREL_API AnsiString FloatToStrF(Extended value, TFloatFormat format, int precision, int digits,
                                  const TFormatSettings& settings);
// The classic picture format: "0", "#", ".", ",", "E+", "E-", quoted text and ';' sections.
OSTREL_API AnsiString FormatFloat(std::string_view format, Extended value);
OSTREL_API AnsiString FormatFloat(std::string_view format, Extended value,
                                  const TFormatSettings& settings);

// Text -> float with the current decimal separator; surrounding blanks allowed; an exponent
// is accepted; thousands separators are not.
OSTREL_API bool TryStrToFloat(std::string_view s, Extended& value);
OSTREL_API bool TryStrToFloat(std::string_view s, double& value);
OSTREL_API bool TryStrToFloat(std::string_view s, Extended& value, const TFormatSettings& settings);
// Raise EConvertError "'%s' is not a valid floating point value" (StrToCurr too).
OSTREL_API Extended StrToFloat(std::string_view s);
OSTREL_API Extended StrToFloat(std::string_view s, const TFormatSettings& settings);
OSTREL_API Extended StrToFloatDef(std::string_view s, Extended def);

// Currency as text: up to four decimals, trailing zeros dropped ("1,5", "-0,0001", "3").
OSTREL_API AnsiString CurrToStr(Currency value);
OSTREL_API AnsiString CurrToStr(Currency value, const TFormatSettings& settings);
OSTREL_API AnsiString CurrToStrF(Currency value, TFloatFormat format, int digits);
OSTREL_API AnsiString CurrToStrF(Currency value, TFloatFormat format, int digits,
                                 const TFormatSettings& settings);
OSTREL_API bool TryStrToCurr(std::string_view s, Currency& value);
OSTREL_API bool TryStrToCurr(std::string_view s, Currency& value, const TFormatSettings& settings);
OSTREL_API Currency StrToCurr(std::string_view s);

// Boolean texts of the classic RTL: "True"/"False" or "-1"/"0".
OSTREL_API AnsiString BoolToStr(bool value, bool useBoolStrs = false);
OSTREL_API bool TryStrToBool(std::string_view s, bool& value);
OSTREL_API bool StrToBool(std::string_view s);

}  // namespace ostrel
