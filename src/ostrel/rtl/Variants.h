// Variant: the tagged value of the platform, with the classic type codes, conversions,
// comparisons and one-dimensional variant arrays.
#pragma once

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/System.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <type_traits>
#include <vector>

namespace ostrel {

using TVarType = Word;

enum : TVarType {
  varEmpty = 0,
  varNull = 1,
  varSmallint = 2,
  varInteger = 3,
  varSingle = 4,
  varDouble = 5,
  varCurrency = 6,
  varDate = 7,
  varOleStr = 8,
  varDispatch = 9,
  varError = 10,
  varBoolean = 11,
  varVariant = 12,
  varUnknown = 13,
  varShortInt = 16,
  varByte = 17,
  varWord = 18,
  varLongWord = 19,
  varInt64 = 20,
  varUInt64 = 21,
  varString = 0x100,
  varUString = 0x102,
  varTypeMask = 0x0FFF,
  varArray = 0x2000,
  varByRef = 0x4000
};

class Variant;

namespace detail {
struct VarArrayData;

// Integer types other than bool and the character types map to a type code by their size
// and sign, so that int32 is always varInteger and int64 always varInt64 whatever the
// platform calls them.
template <class T>
inline constexpr bool IsVariantInteger =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
    !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char8_t> && !std::is_same_v<T, char16_t> &&
    !std::is_same_v<T, char32_t>;

template <class T>
constexpr TVarType IntegerVarType() {
  if constexpr (std::is_signed_v<T>) {
    if constexpr (sizeof(T) == 1)
      return varShortInt;
    else if constexpr (sizeof(T) == 2)
      return varSmallint;
    else if constexpr (sizeof(T) == 4)
      return varInteger;
    else
      return varInt64;
  } else {
    if constexpr (sizeof(T) == 1)
      return varByte;
    else if constexpr (sizeof(T) == 2)
      return varWord;
    else if constexpr (sizeof(T) == 4)
      return varLongWord;
    else
      return varUInt64;
  }
}
}  // namespace detail

// A value of any of the classic variant types (the var* codes above), at most 16 bytes: strings
// and arrays are copied with the variant, interfaces counted.
class OSTREL_API Variant {
 public:
  constexpr Variant() noexcept : fType(varEmpty), fInt(0) {}
  Variant(const Variant& other);
  Variant(Variant&& other) noexcept : fType(other.fType), fRaw(other.fRaw) {
    other.fType = varEmpty;
    other.fRaw = 0;
  }
  Variant& operator=(const Variant& other);
  Variant& operator=(Variant&& other) noexcept;
  ~Variant() {
    if (HoldsReference()) Release();
  }

  Variant(bool value) noexcept : fType(varBoolean), fInt(value ? 1 : 0) {}
  // Every integer type: ShortInt 16, Byte 17, SmallInt 2, Word 18, Integer 3, LongWord 19,
  // 64-bit signed 20, 64-bit unsigned 21.
  template <class T, std::enable_if_t<detail::IsVariantInteger<T>, int> = 0>
  Variant(T value) noexcept : fType(detail::IntegerVarType<T>()) {
    if constexpr (std::is_signed_v<T>)
      fInt = static_cast<Int64>(value);
    else
      fUInt = static_cast<UInt64>(value);
  }
  Variant(float value) noexcept : fType(varSingle), fRaw(0) { fSingle = value; }
  Variant(double value) noexcept : fType(varDouble), fDouble(value) {}
  // An extended value held by a variant is a double, as the classic variant stores it.
  Variant(long double value) noexcept : fType(varDouble), fDouble(static_cast<double>(value)) {}
  Variant(Currency value) noexcept : fType(varCurrency), fInt(value.Raw) {}

  // 8-bit strings (varString); a null pointer gives the empty string.
  Variant(const char* value);
  Variant(char value);
  Variant(std::string_view value);
  Variant(const AnsiString& value);
  Variant(AnsiString&& value);
  template <std::size_t N>
  Variant(const cp1251::Literal<N>& value) : Variant(value.View()) {}
  // 16-bit strings (varOleStr).
  Variant(const char16_t* value);
  Variant(std::u16string_view value);
  Variant(const WideString& value);
  Variant(WideString&& value);

  // Interfaces (varUnknown; a null pointer gives varUnknown holding nil).
  Variant(IPtr<IInterface> value) noexcept;
  template <
      class T,
      std::enable_if_t<std::is_base_of_v<IInterface, T> && !std::is_same_v<T, IInterface>, int> = 0>
  Variant(const IPtr<T>& value) noexcept
      : Variant(IPtr<IInterface>(static_cast<IInterface*>(value.Get()))) {}
  // A raw interface pointer is held counted, as assigning it to a variant does.
  template <class T, std::enable_if_t<std::is_base_of_v<IInterface, T>, int> = 0>
  Variant(T* value) noexcept : Variant(IPtr<IInterface>(static_cast<IInterface*>(value))) {}
  // Any other pointer would quietly turn into a boolean: refused at compile time.
  template <class T, std::enable_if_t<!std::is_base_of_v<IInterface, T> &&
                                          !std::is_same_v<std::remove_cv_t<T>, char> &&
                                          !std::is_same_v<std::remove_cv_t<T>, char16_t>,
                                      int> = 0>
  Variant(T*) = delete;

  static Variant Null() noexcept;
  static Variant FromDate(TDateTime value) noexcept;
  static Variant FromDispatch(IPtr<IInterface> value) noexcept;
  static Variant FromUString(std::u16string_view value);
  // A value of type varError carrying an error code (the classic "missing parameter" is
  // 0x80020004).
  static Variant FromError(Integer code) noexcept;

  TVarType VarType() const noexcept;
  bool IsEmpty() const noexcept { return fType == varEmpty; }
  bool IsNull() const noexcept { return fType == varNull; }
  bool IsArray() const noexcept { return fType == kArrayTag; }
  // Back to empty, releasing what it held.
  void Clear() noexcept;
  void Swap(Variant& other) noexcept;

  // Typed access without conversion; the wrong type raises EVariantTypeCastError.
  const AnsiString& StrRef() const;   // varString
  const WideString& WideRef() const;  // varOleStr, varUString
  IInterface* IntfPtr() const;        // varUnknown, varDispatch (not counted)

  // Array elements with bounds checking: EVariantBadIndexError outside the bounds,
  // EVariantError "Variant is not an array" for a non-array. SetElement converts the value
  // to the array's element type unless that is varVariant.
  Variant GetElement(Integer index) const;
  void SetElement(Integer index, const Variant& value);

  // The classic variant comparison: see VarCompareValue for the rules. Incomparable pairs
  // (arrays, interfaces, a string that is no number against a number) raise.
  friend OSTREL_API bool operator==(const Variant& a, const Variant& b);
  friend OSTREL_API bool operator!=(const Variant& a, const Variant& b);
  friend OSTREL_API bool operator<(const Variant& a, const Variant& b);
  friend OSTREL_API bool operator>(const Variant& a, const Variant& b);
  friend OSTREL_API bool operator<=(const Variant& a, const Variant& b);
  friend OSTREL_API bool operator>=(const Variant& a, const Variant& b);

 private:
  friend struct VariantAccess;
  // Internal tags (above every scalar code, below the flags) for the heap-held payloads,
  // so that the destructor only looks at one number.
  static constexpr TVarType kArrayTag = 0x0FFF;

  bool HoldsReference() const noexcept {
    return fType == varOleStr || fType == varString || fType == varUString || fType == varUnknown ||
           fType == varDispatch || fType == kArrayTag;
  }
  void Release() noexcept;

  TVarType fType;  // scalar codes as is; kArrayTag for arrays
  union {
    Int64 fInt;
    UInt64 fUInt;
    UInt64 fRaw;
    double fDouble;
    float fSingle;
    IInterface* fIntf;
    AnsiString* fStr;
    WideString* fWide;
    detail::VarArrayData* fArray;
  };
};

static_assert(sizeof(Variant) <= 16, "Variant must stay two words");

// The empty variant.
OSTREL_API extern const Variant Unassigned;

// The variant's type code, and tests of it.
OSTREL_API TVarType VarType(const Variant& v);
OSTREL_API bool VarIsNull(const Variant& v);
OSTREL_API bool VarIsEmpty(const Variant& v);
// Empty, or an error value (a missing optional parameter).
OSTREL_API bool VarIsClear(const Variant& v);
OSTREL_API bool VarIsArray(const Variant& v);
OSTREL_API bool VarIsStr(const Variant& v);      // varString, varOleStr, varUString
OSTREL_API bool VarIsNumeric(const Variant& v);  // ordinal or float
OSTREL_API bool VarIsOrdinal(const Variant& v);  // integer types and boolean
OSTREL_API bool VarIsFloat(const Variant& v);    // single, double, currency, date
OSTREL_API bool VarIsType(const Variant& v, TVarType type);
OSTREL_API bool VarIsType(const Variant& v, std::initializer_list<TVarType> types);
OSTREL_API void VarClear(Variant& v);

// "Empty", "Null", "Smallint", "Integer", ... "String", "UnicodeString"; arrays as
// "Array Integer"; unknown codes as their number.
OSTREL_API AnsiString VarTypeAsText(TVarType type);

// Text of the value in the current FormatSettings; null and empty give "".
OSTREL_API AnsiString VarToStr(const Variant& v);
OSTREL_API AnsiString VarToStrDef(const Variant& v, std::string_view def);
OSTREL_API WideString VarToWideStr(const Variant& v);

// The value converted to the given type code (the classic VarAsType/VarCast); the result's
// VarType is exactly `type`. Impossible conversions raise EVariantTypeCastError
// "Could not convert variant of type (%s) into type (%s)"; out-of-range numbers raise
// EVariantOverflowError.
OSTREL_API Variant VarAsType(const Variant& v, TVarType type);
OSTREL_API void VarCast(Variant& dest, const Variant& source, TVarType type);

// The classic typecasts of a variant: Integer(V), Double(V), Boolean(V) ...
OSTREL_API Integer VarToInt(const Variant& v);
OSTREL_API Int64 VarToInt64(const Variant& v);
OSTREL_API double VarToDouble(const Variant& v);
OSTREL_API Extended VarToExtended(const Variant& v);
OSTREL_API bool VarToBool(const Variant& v);
OSTREL_API TDateTime VarToDateTime(const Variant& v);
OSTREL_API Currency VarToCurr(const Variant& v);
// varUnknown/varDispatch give their interface, empty gives nil, anything else raises.
OSTREL_API IPtr<IInterface> VarToIntf(const Variant& v);
OSTREL_API Variant VarFromDateTime(TDateTime value);

// One-dimensional arrays lowBound..highBound (highBound = lowBound - 1 for none). Elements
// of a varVariant array start empty; of another element type, as that type's zero.
OSTREL_API Variant VarArrayCreate(Integer lowBound, Integer highBound,
                                  TVarType elemType = varVariant);
OSTREL_API Variant VarArrayOf(std::initializer_list<Variant> values);
OSTREL_API Variant VarArrayOf(const std::vector<Variant>& values);
OSTREL_API Integer VarArrayLowBound(const Variant& v, int dim = 1);
OSTREL_API Integer VarArrayHighBound(const Variant& v, int dim = 1);
OSTREL_API int VarArrayDimCount(const Variant& v);  // 0 for a non-array
OSTREL_API Variant VarArrayGet(const Variant& v, Integer index);
OSTREL_API void VarArrayPut(Variant& v, const Variant& value, Integer index);
// Changes the upper bound, keeping the elements that stay and adding fresh ones.
OSTREL_API void VarArrayRedim(Variant& v, Integer highBound);

enum TVariantRelationship { vrEqual, vrLessThan, vrGreaterThan, vrNotEqual };
// Empty and null are equal only to their own kind (vrNotEqual against anything else);
// numbers compare by value across types; strings case-sensitively in the CP1251 order;
// a string against a number is converted to the number's type first.
OSTREL_API TVariantRelationship VarCompareValue(const Variant& a, const Variant& b);
// Empty equals only empty and null only null (never raising for them); any other pair is
// compared as operator== does.
OSTREL_API bool VarSameValue(const Variant& a, const Variant& b);

}  // namespace ostrel
