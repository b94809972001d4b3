// Variant: storage, conversions between the type codes, comparison and variant arrays.
#include <ostrel/rtl/Variants.h>

#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/detail/Common.h>

#include <cfloat>
#include <charconv>
#include <cmath>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace ostrel {

namespace detail {
struct VarArrayData {
  Integer Low = 0;
  TVarType ElemType = varVariant;
  std::vector<Variant> Items;
};
}  // namespace detail

using detail::VarArrayData;

namespace {

constexpr std::string_view kArrayCreateError = "Error creating variant or safe array";
constexpr std::string_view kBadVarType = "Invalid variant type";

[[noreturn]] void CastError(TVarType from, TVarType to) {
  throw EVariantTypeCastError(
      Format(SysConst::SVarTypeCouldNotConvert, VarTypeAsText(from), VarTypeAsText(to)));
}

[[noreturn]] void OverflowError() { throw EVariantOverflowError(SysConst::SVarOverflow); }

[[noreturn]] void InvalidOpError() { throw EVariantInvalidOpError(SysConst::SVarInvalidOp); }

using detail::RoundHalfEven;

// Rounds and checks the range of a signed 64-bit result; NaN and infinities overflow.
Int64 RoundToInt64(Extended x) {
  if (!std::isfinite(x)) OverflowError();
  Extended r = RoundHalfEven(x);
  // 2^63 is exact in every floating type; the range is [-2^63, 2^63).
  constexpr Extended kTwo63 = 9223372036854775808.0L;
  if (r < -kTwo63 || r >= kTwo63) OverflowError();
  return static_cast<Int64>(r);
}

UInt64 RoundToUInt64(Extended x) {
  if (!std::isfinite(x)) OverflowError();
  Extended r = RoundHalfEven(x);
  constexpr Extended kTwo64 = 18446744073709551616.0L;
  if (r < 0 || r >= kTwo64) OverflowError();
  return static_cast<UInt64>(r);
}

// Currency to an integer: the classic Round of the scaled value, halves to even.
Int64 RoundCurrency(Int64 raw) {
  Int64 q = raw / Currency::Scale;
  Int64 rem = raw % Currency::Scale;  // same sign as raw
  Int64 absRem = rem < 0 ? -rem : rem;
  Int64 step = raw < 0 ? -1 : 1;
  if (absRem > Currency::Scale / 2 || (absRem == Currency::Scale / 2 && q % 2 != 0)) q += step;
  return q;
}

// Number texts allow spaces and tabs around them, nothing else.
bool IsSpaceOrTab(char c) { return c == ' ' || c == '\t'; }

// Plain unsigned decimal text (blanks around allowed), for values beyond the signed range.
bool TryParseUInt64(std::string_view s, UInt64& value) {
  while (!s.empty() && IsSpaceOrTab(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsSpaceOrTab(s.back())) s.remove_suffix(1);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  if (s.empty()) return false;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
  return ec == std::errc() && end == s.data() + s.size();
}

}  // namespace

// Access to the representation for the free functions of this file.
struct VariantAccess {
  static TVarType Tag(const Variant& v) noexcept { return v.fType; }
  static Int64 Int(const Variant& v) noexcept { return v.fInt; }
  static UInt64 UInt(const Variant& v) noexcept { return v.fUInt; }
  static double Dbl(const Variant& v) noexcept { return v.fDouble; }
  static float Sgl(const Variant& v) noexcept { return v.fSingle; }
  static IInterface* Intf(const Variant& v) noexcept { return v.fIntf; }
  static const AnsiString& Str(const Variant& v) noexcept { return *v.fStr; }
  static const WideString& Wide(const Variant& v) noexcept { return *v.fWide; }
  static VarArrayData* Array(const Variant& v) noexcept { return v.fArray; }
  static constexpr TVarType kArrayTag = Variant::kArrayTag;

  static Variant Make(TVarType type, Int64 raw) noexcept {
    Variant v;
    v.fType = type;
    v.fInt = raw;
    return v;
  }
  static Variant MakeDouble(TVarType type, double value) noexcept {
    Variant v;
    v.fType = type;
    v.fDouble = value;
    return v;
  }
  static Variant MakeWide(TVarType type, WideString&& value) {
    Variant v;
    v.fWide = new WideString(std::move(value));
    v.fType = type;
    return v;
  }
  static Variant MakeIntf(TVarType type, IPtr<IInterface> value) noexcept {
    Variant v;
    v.fIntf = value.Detach();
    v.fType = type;
    return v;
  }
  static Variant MakeArray(std::unique_ptr<VarArrayData> data) noexcept {
    Variant v;
    v.fArray = data.release();
    v.fType = Variant::kArrayTag;
    return v;
  }
};

using VA = VariantAccess;

// ---------------------------------------------------------------------------------------
// Storage

Variant::Variant(const Variant& other) : fType(varEmpty), fRaw(other.fRaw) {
  switch (other.fType) {
    case varString: fStr = new AnsiString(*other.fStr); break;
    case varOleStr:
    case varUString: fWide = new WideString(*other.fWide); break;
    case varUnknown:
    case varDispatch:
      if (fIntf) fIntf->_AddRef();
      break;
    case kArrayTag: fArray = new VarArrayData(*other.fArray); break;
    default: break;
  }
  fType = other.fType;
}

Variant& Variant::operator=(const Variant& other) {
  if (this != &other) {
    Variant copy(other);
    Swap(copy);
  }
  return *this;
}

Variant& Variant::operator=(Variant&& other) noexcept {
  if (this != &other) {
    Variant taken(std::move(other));
    Swap(taken);
  }
  return *this;
}

void Variant::Swap(Variant& other) noexcept {
  std::swap(fType, other.fType);
  std::swap(fRaw, other.fRaw);
}

void Variant::Release() noexcept {
  TVarType type = std::exchange(fType, varEmpty);
  switch (type) {
    case varString: delete fStr; break;
    case varOleStr:
    case varUString: delete fWide; break;
    case varUnknown:
    case varDispatch:
      if (fIntf) fIntf->_Release();
      break;
    case kArrayTag: delete fArray; break;
    default: break;
  }
  fRaw = 0;
}

void Variant::Clear() noexcept {
  if (HoldsReference()) Release();
  fType = varEmpty;
  fRaw = 0;
}

Variant::Variant(const char* value) : Variant(std::string_view(value ? value : "")) {}
Variant::Variant(char value) : Variant(std::string_view(&value, 1)) {}
Variant::Variant(std::string_view value) : fType(varEmpty), fStr(new AnsiString(value)) {
  fType = varString;
}
Variant::Variant(const AnsiString& value) : fType(varEmpty), fStr(new AnsiString(value)) {
  fType = varString;
}
Variant::Variant(AnsiString&& value) : fType(varEmpty), fStr(new AnsiString(std::move(value))) {
  fType = varString;
}
Variant::Variant(const char16_t* value) : Variant(std::u16string_view(value ? value : u"")) {}
Variant::Variant(std::u16string_view value) : fType(varEmpty), fWide(new WideString(value)) {
  fType = varOleStr;
}
Variant::Variant(const WideString& value) : fType(varEmpty), fWide(new WideString(value)) {
  fType = varOleStr;
}
Variant::Variant(WideString&& value) : fType(varEmpty), fWide(new WideString(std::move(value))) {
  fType = varOleStr;
}
Variant::Variant(IPtr<IInterface> value) noexcept : fType(varUnknown), fIntf(value.Detach()) {}

Variant Variant::Null() noexcept { return VA::Make(varNull, 0); }
Variant Variant::FromDate(TDateTime value) noexcept { return VA::MakeDouble(varDate, value); }
Variant Variant::FromDispatch(IPtr<IInterface> value) noexcept {
  return VA::MakeIntf(varDispatch, std::move(value));
}
Variant Variant::FromUString(std::u16string_view value) {
  return VA::MakeWide(varUString, WideString(value));
}
Variant Variant::FromError(Integer code) noexcept { return VA::Make(varError, code); }

TVarType Variant::VarType() const noexcept {
  return fType == kArrayTag ? static_cast<TVarType>(varArray | fArray->ElemType) : fType;
}

const AnsiString& Variant::StrRef() const {
  if (fType != varString) CastError(VarType(), varString);
  return *fStr;
}

const WideString& Variant::WideRef() const {
  if (fType != varOleStr && fType != varUString) CastError(VarType(), varOleStr);
  return *fWide;
}

IInterface* Variant::IntfPtr() const {
  if (fType != varUnknown && fType != varDispatch) CastError(VarType(), varUnknown);
  return fIntf;
}

constinit const Variant Unassigned;

// ---------------------------------------------------------------------------------------
// Type queries

TVarType VarType(const Variant& v) { return v.VarType(); }
bool VarIsNull(const Variant& v) { return v.IsNull(); }
bool VarIsEmpty(const Variant& v) { return v.IsEmpty(); }
bool VarIsClear(const Variant& v) { return v.IsEmpty() || VA::Tag(v) == varError; }
bool VarIsArray(const Variant& v) { return v.IsArray(); }
bool VarIsStr(const Variant& v) {
  TVarType t = VA::Tag(v);
  return t == varString || t == varOleStr || t == varUString;
}
bool VarIsOrdinal(const Variant& v) {
  switch (VA::Tag(v)) {
    case varSmallint:
    case varInteger:
    case varBoolean:
    case varShortInt:
    case varByte:
    case varWord:
    case varLongWord:
    case varInt64:
    case varUInt64: return true;
    default: return false;
  }
}
bool VarIsFloat(const Variant& v) {
  TVarType t = VA::Tag(v);
  return t == varSingle || t == varDouble || t == varCurrency || t == varDate;
}
bool VarIsNumeric(const Variant& v) { return VarIsOrdinal(v) || VarIsFloat(v); }
bool VarIsType(const Variant& v, TVarType type) { return v.VarType() == type; }
bool VarIsType(const Variant& v, std::initializer_list<TVarType> types) {
  for (TVarType t : types)
    if (v.VarType() == t) return true;
  return false;
}
void VarClear(Variant& v) { v.Clear(); }

AnsiString VarTypeAsText(TVarType type) {
  static constexpr std::string_view kNames[] = {
      "Empty",    "Null",     "Smallint", "Integer",  "Single",  "Double",  "Currency", "Date",
      "OleStr",   "Dispatch", "Error",    "Boolean",  "Variant", "Unknown", "Decimal",  "",
      "ShortInt", "Byte",     "Word",     "LongWord", "Int64",   "UInt64"};
  TVarType base = type & varTypeMask;
  AnsiString name;
  if (base < std::size(kNames) && !kNames[base].empty())
    name = kNames[base];
  else if (base == varString)
    name = "String";
  else if (base == 0x101)
    name = "Any";
  else if (base == varUString)
    name = "UnicodeString";
  else
    name = "$" + IntToHex(Integer{base}, 4);
  if (type & varArray) name = "Array " + name;
  if (type & varByRef) name = "ByRef " + name;
  return name;
}

// ---------------------------------------------------------------------------------------
// Conversions

namespace {

bool IsSignedInt(TVarType t) {
  return t == varSmallint || t == varInteger || t == varShortInt || t == varInt64;
}
bool IsUnsignedInt(TVarType t) {
  return t == varByte || t == varWord || t == varLongWord || t == varUInt64;
}
bool IsWide(TVarType t) { return t == varOleStr || t == varUString; }

// The 8-bit text of a string variant (only for varString, varOleStr and varUString).
AnsiString StringOf(const Variant& v) {
  return VA::Tag(v) == varString ? VA::Str(v) : WideToAnsi(VA::Wide(v));
}

// A variant holding a date shows the time alone when the day part is zero, as the
// system's own variant-to-text conversion does (so 0.5 is "12:00:00").
AnsiString DateText(TDateTime value) {
  if (std::trunc(value) == 0) return TimeToStr(value);
  return DateTimeToStr(value);
}

// Signed integer result in [lo, hi]; `to` names the target type in the cast error.
Int64 ToSigned(const Variant& v, TVarType to, Int64 lo, Int64 hi) {
  TVarType t = VA::Tag(v);
  Int64 r = 0;
  if (t == varEmpty) return 0;
  if (IsSignedInt(t)) {
    r = VA::Int(v);
  } else if (IsUnsignedInt(t)) {
    if (VA::UInt(v) > static_cast<UInt64>(std::numeric_limits<Int64>::max())) OverflowError();
    r = static_cast<Int64>(VA::UInt(v));
  } else if (t == varBoolean) {
    r = VA::Int(v) ? -1 : 0;
  } else if (t == varSingle) {
    r = RoundToInt64(VA::Sgl(v));
  } else if (t == varDouble || t == varDate) {
    r = RoundToInt64(VA::Dbl(v));
  } else if (t == varCurrency) {
    r = RoundCurrency(VA::Int(v));
  } else if (t == varString || IsWide(t)) {
    AnsiString s = StringOf(v);
    Extended f = 0;
    if (!TryStrToInt64(s, r)) {
      if (!TryStrToFloat(s, f)) CastError(t, to);
      r = RoundToInt64(f);
    }
  } else {
    CastError(v.VarType(), to);
  }
  if (r < lo || r > hi) OverflowError();
  return r;
}

// Unsigned integer result up to hi; true becomes all ones, as the system's cast does.
UInt64 ToUnsigned(const Variant& v, TVarType to, UInt64 hi) {
  TVarType t = VA::Tag(v);
  UInt64 r = 0;
  if (t == varEmpty) return 0;
  if (IsUnsignedInt(t)) {
    r = VA::UInt(v);
  } else if (IsSignedInt(t)) {
    if (VA::Int(v) < 0) OverflowError();
    r = static_cast<UInt64>(VA::Int(v));
  } else if (t == varBoolean) {
    r = VA::Int(v) ? hi : 0;
  } else if (t == varSingle) {
    r = RoundToUInt64(VA::Sgl(v));
  } else if (t == varDouble || t == varDate) {
    r = RoundToUInt64(VA::Dbl(v));
  } else if (t == varCurrency) {
    Int64 q = RoundCurrency(VA::Int(v));
    if (q < 0) OverflowError();
    r = static_cast<UInt64>(q);
  } else if (t == varString || IsWide(t)) {
    AnsiString s = StringOf(v);
    Int64 i = 0;
    Extended f = 0;
    if (TryStrToInt64(s, i)) {
      if (i < 0) OverflowError();
      r = static_cast<UInt64>(i);
    } else if (!TryParseUInt64(s, r)) {
      if (!TryStrToFloat(s, f)) CastError(t, to);
      r = RoundToUInt64(f);
    }
  } else {
    CastError(v.VarType(), to);
  }
  if (r > hi) OverflowError();
  return r;
}

Extended ToExtended(const Variant& v, TVarType to) {
  TVarType t = VA::Tag(v);
  switch (t) {
    case varEmpty: return 0;
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varInt64: return static_cast<Extended>(VA::Int(v));
    case varByte:
    case varWord:
    case varLongWord:
    case varUInt64: return static_cast<Extended>(VA::UInt(v));
    case varBoolean: return VA::Int(v) ? -1 : 0;
    case varSingle: return VA::Sgl(v);
    case varDouble:
    case varDate: return VA::Dbl(v);
    case varCurrency: return CurrencyToExtended(Currency::FromRaw(VA::Int(v)));
    case varString:
    case varOleStr:
    case varUString: {
      Extended f = 0;
      if (!TryStrToFloat(StringOf(v), f)) CastError(t, to);
      return f;
    }
    default: CastError(v.VarType(), to);
  }
}

double ToDouble(const Variant& v, TVarType to) {
  if (VA::Tag(v) == varDouble || VA::Tag(v) == varDate) return VA::Dbl(v);
  Extended f = ToExtended(v, to);
  if (std::isfinite(f) && std::fabs(f) > DBL_MAX) OverflowError();
  return static_cast<double>(f);
}

float ToSingle(const Variant& v) {
  if (VA::Tag(v) == varSingle) return VA::Sgl(v);
  Extended f = ToExtended(v, varSingle);
  if (std::isfinite(f) && std::fabs(f) > FLT_MAX) OverflowError();
  return static_cast<float>(f);
}

TDateTime ToDate(const Variant& v) {
  TVarType t = VA::Tag(v);
  if (t == varString || IsWide(t)) {
    TDateTime d = 0;
    if (!TryStrToDateTime(StringOf(v), d)) CastError(t, varDate);
    return d;
  }
  return ToDouble(v, varDate);
}

Currency FloatToCurrency(Extended f) {
  if (!std::isfinite(f)) OverflowError();
  try {
    return DoubleToCurrency(f);
  } catch (const EConvertError&) {
    OverflowError();
  }
}

Currency ToCurr(const Variant& v) {
  TVarType t = VA::Tag(v);
  constexpr Int64 kMaxUnits = std::numeric_limits<Int64>::max() / Currency::Scale;
  switch (t) {
    case varEmpty: return Currency();
    case varCurrency: return Currency::FromRaw(VA::Int(v));
    case varBoolean: return Currency::FromInt(VA::Int(v) ? -1 : 0);
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varInt64:
      if (VA::Int(v) > kMaxUnits || VA::Int(v) < -kMaxUnits) OverflowError();
      return Currency::FromInt(VA::Int(v));
    case varByte:
    case varWord:
    case varLongWord:
    case varUInt64:
      if (VA::UInt(v) > static_cast<UInt64>(kMaxUnits)) OverflowError();
      return Currency::FromInt(static_cast<Int64>(VA::UInt(v)));
    case varSingle: return FloatToCurrency(VA::Sgl(v));
    case varDouble:
    case varDate: return FloatToCurrency(VA::Dbl(v));
    case varString:
    case varOleStr:
    case varUString: {
      Currency c;
      if (!TryStrToCurr(StringOf(v), c)) CastError(t, varCurrency);
      return c;
    }
    default: CastError(v.VarType(), varCurrency);
  }
}

bool ToBool(const Variant& v) {
  TVarType t = VA::Tag(v);
  switch (t) {
    case varEmpty: return false;
    case varBoolean:
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varInt64:
    case varByte:
    case varWord:
    case varLongWord:
    case varUInt64:
    case varCurrency: return VA::Int(v) != 0;
    case varSingle: return VA::Sgl(v) != 0;
    case varDouble:
    case varDate: return VA::Dbl(v) != 0;
    case varString:
    case varOleStr:
    case varUString: {
      bool b = false;
      if (!TryStrToBool(StringOf(v), b)) CastError(t, varBoolean);
      return b;
    }
    default: CastError(v.VarType(), varBoolean);
  }
}

// Text of a scalar; `to` names the target in the cast error (null is refused here: the
// callers that give "" for null check for it first).
AnsiString ToAnsi(const Variant& v, TVarType to) {
  TVarType t = VA::Tag(v);
  switch (t) {
    case varEmpty: return AnsiString();
    case varString: return VA::Str(v);
    case varOleStr:
    case varUString: return WideToAnsi(VA::Wide(v));
    case varBoolean: return BoolToStr(VA::Int(v) != 0, true);
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varInt64: return IntToStr(VA::Int(v));
    case varByte:
    case varWord:
    case varLongWord:
    case varUInt64: return UIntToStr(VA::UInt(v));
    // A single shows the digits a single holds, not the tail of its widened binary value.
    case varSingle: return FloatToStrF(VA::Sgl(v), ffGeneral, 7, 0);
    case varDouble: return FloatToStr(VA::Dbl(v));
    case varDate: return DateText(VA::Dbl(v));
    case varCurrency: return CurrToStr(Currency::FromRaw(VA::Int(v)));
    default: CastError(v.VarType(), to);
  }
}

WideString ToWide(const Variant& v, TVarType to) {
  if (IsWide(VA::Tag(v))) return VA::Wide(v);
  return AnsiToWide(ToAnsi(v, to));
}

IPtr<IInterface> ToIntf(const Variant& v, TVarType to) {
  TVarType t = VA::Tag(v);
  if (t == varEmpty) return nullptr;
  // Every dispatch interface is also an unknown one; the reverse would need a query.
  if (t == varDispatch || (t == varUnknown && to == varUnknown))
    return IPtr<IInterface>(VA::Intf(v));
  CastError(v.VarType(), to);
}

}  // namespace

Variant VarAsType(const Variant& v, TVarType type) {
  if (v.VarType() == type) return v;
  if (type & ~varTypeMask) CastError(v.VarType(), type);
  switch (type) {
    case varEmpty: return Variant();
    case varNull: return Variant::Null();
    case varSmallint: return Variant(static_cast<SmallInt>(ToSigned(v, type, -32768, 32767)));
    case varShortInt: return Variant(static_cast<ShortInt>(ToSigned(v, type, -128, 127)));
    case varInteger:
      return Variant(static_cast<Integer>(ToSigned(v, type, std::numeric_limits<Integer>::min(),
                                                   std::numeric_limits<Integer>::max())));
    case varInt64:
      return Variant(
          ToSigned(v, type, std::numeric_limits<Int64>::min(), std::numeric_limits<Int64>::max()));
    case varByte: return Variant(static_cast<Byte>(ToUnsigned(v, type, 0xFF)));
    case varWord: return Variant(static_cast<Word>(ToUnsigned(v, type, 0xFFFF)));
    case varLongWord: return Variant(static_cast<LongWord>(ToUnsigned(v, type, 0xFFFFFFFFu)));
    case varUInt64: return Variant(ToUnsigned(v, type, std::numeric_limits<UInt64>::max()));
    case varSingle: return Variant(ToSingle(v));
    case varDouble: return Variant(ToDouble(v, varDouble));
    case varDate: return Variant::FromDate(ToDate(v));
    case varCurrency: return Variant(ToCurr(v));
    case varBoolean: return Variant(ToBool(v));
    case varString: return Variant(ToAnsi(v, type));
    case varOleStr: return Variant(ToWide(v, type));
    case varUString: return VA::MakeWide(varUString, ToWide(v, type));
    case varUnknown: return Variant(ToIntf(v, type));
    case varDispatch: return Variant::FromDispatch(ToIntf(v, type));
    default: CastError(v.VarType(), type);
  }
}

void VarCast(Variant& dest, const Variant& source, TVarType type) {
  dest = VarAsType(source, type);
}

AnsiString VarToStr(const Variant& v) { return v.IsNull() ? AnsiString() : ToAnsi(v, varString); }

AnsiString VarToStrDef(const Variant& v, std::string_view def) {
  if (v.IsNull() || v.IsEmpty()) return AnsiString(def);
  return ToAnsi(v, varString);
}

WideString VarToWideStr(const Variant& v) {
  return v.IsNull() ? WideString() : ToWide(v, varOleStr);
}

Integer VarToInt(const Variant& v) {
  return static_cast<Integer>(ToSigned(v, varInteger, std::numeric_limits<Integer>::min(),
                                       std::numeric_limits<Integer>::max()));
}
Int64 VarToInt64(const Variant& v) {
  return ToSigned(v, varInt64, std::numeric_limits<Int64>::min(),
                  std::numeric_limits<Int64>::max());
}
double VarToDouble(const Variant& v) { return ToDouble(v, varDouble); }
Extended VarToExtended(const Variant& v) { return ToExtended(v, varDouble); }
bool VarToBool(const Variant& v) { return ToBool(v); }
TDateTime VarToDateTime(const Variant& v) { return ToDate(v); }
Currency VarToCurr(const Variant& v) { return ToCurr(v); }
IPtr<IInterface> VarToIntf(const Variant& v) { return ToIntf(v, varUnknown); }
Variant VarFromDateTime(TDateTime value) { return Variant::FromDate(value); }

// ---------------------------------------------------------------------------------------
// Arrays

namespace {

bool IsValidElemType(TVarType t) {
  switch (t) {
    case varSmallint:
    case varInteger:
    case varSingle:
    case varDouble:
    case varCurrency:
    case varDate:
    case varOleStr:
    case varDispatch:
    case varError:
    case varBoolean:
    case varVariant:
    case varUnknown:
    case varShortInt:
    case varByte:
    case varWord:
    case varLongWord:
    case varInt64:
    case varUInt64: return true;
    default: return false;
  }
}

// The value a fresh element of the given type holds.
Variant FreshElement(TVarType elemType) {
  switch (elemType) {
    case varVariant: return Variant();
    case varError: return Variant::FromError(0);
    case varDispatch: return Variant::FromDispatch(nullptr);
    default: return VarAsType(Unassigned, elemType);
  }
}

// Bounds far apart would ask for gigabytes; such a request is refused like a bad one.
constexpr Int64 kMaxArrayCount = Int64{1} << 27;

void Resize(VarArrayData& data, Int64 count) {
  if (count < 0 || count > kMaxArrayCount) throw EVariantError(kArrayCreateError);
  try {
    data.Items.resize(static_cast<std::size_t>(count), FreshElement(data.ElemType));
  } catch (const std::bad_alloc&) {
    throw EVariantError(kArrayCreateError);
  } catch (const std::length_error&) {
    throw EVariantError(kArrayCreateError);
  }
}

VarArrayData& ArrayOf(const Variant& v) {
  if (!v.IsArray()) throw EVariantError(SysConst::SVarNotArray);
  return *VA::Array(v);
}

std::size_t Slot(const VarArrayData& data, Integer index) {
  Int64 offset = Int64{index} - data.Low;
  if (offset < 0 || offset >= static_cast<Int64>(data.Items.size()))
    throw EVariantBadIndexError(SysConst::SVarArrayBounds);
  return static_cast<std::size_t>(offset);
}

void CheckDim(int dim) {
  if (dim != 1) throw EVariantBadIndexError(SysConst::SVarArrayBounds);
}

}  // namespace

Variant Variant::GetElement(Integer index) const {
  const VarArrayData& data = ArrayOf(*this);
  return data.Items[Slot(data, index)];
}

void Variant::SetElement(Integer index, const Variant& value) {
  VarArrayData& data = ArrayOf(*this);
  std::size_t slot = Slot(data, index);
  // Convert (or copy) first: the value may be this array or one of its elements.
  Variant stored = data.ElemType == varVariant ? value : VarAsType(value, data.ElemType);
  data.Items[slot] = std::move(stored);
}

Variant VarArrayCreate(Integer lowBound, Integer highBound, TVarType elemType) {
  if (!IsValidElemType(elemType)) throw EVariantError(kBadVarType);
  auto data = std::make_unique<VarArrayData>();
  data->Low = lowBound;
  data->ElemType = elemType;
  Resize(*data, Int64{highBound} - lowBound + 1);
  return VA::MakeArray(std::move(data));
}

Variant VarArrayOf(std::initializer_list<Variant> values) {
  auto data = std::make_unique<VarArrayData>();
  data->Items.assign(values.begin(), values.end());
  return VA::MakeArray(std::move(data));
}

Variant VarArrayOf(const std::vector<Variant>& values) {
  auto data = std::make_unique<VarArrayData>();
  data->Items = values;
  return VA::MakeArray(std::move(data));
}

Integer VarArrayLowBound(const Variant& v, int dim) {
  const VarArrayData& data = ArrayOf(v);
  CheckDim(dim);
  return data.Low;
}

Integer VarArrayHighBound(const Variant& v, int dim) {
  const VarArrayData& data = ArrayOf(v);
  CheckDim(dim);
  return static_cast<Integer>(Int64{data.Low} + static_cast<Int64>(data.Items.size()) - 1);
}

int VarArrayDimCount(const Variant& v) { return v.IsArray() ? 1 : 0; }

Variant VarArrayGet(const Variant& v, Integer index) { return v.GetElement(index); }

void VarArrayPut(Variant& v, const Variant& value, Integer index) { v.SetElement(index, value); }

void VarArrayRedim(Variant& v, Integer highBound) {
  VarArrayData& data = ArrayOf(v);
  Resize(data, Int64{highBound} - data.Low + 1);
}

// ---------------------------------------------------------------------------------------
// Comparison

namespace {

enum class Cat { Empty, Null, Bool, Int, Float, Date, Curr, Str, Other };

Cat CatOf(const Variant& v) {
  switch (VA::Tag(v)) {
    case varEmpty: return Cat::Empty;
    case varNull: return Cat::Null;
    case varBoolean: return Cat::Bool;
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varInt64:
    case varByte:
    case varWord:
    case varLongWord:
    case varUInt64: return Cat::Int;
    case varSingle:
    case varDouble: return Cat::Float;
    case varDate: return Cat::Date;
    case varCurrency: return Cat::Curr;
    case varString:
    case varOleStr:
    case varUString: return Cat::Str;
    default: return Cat::Other;
  }
}

template <class T>
int Sign3(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

// Floats: unequal values (NaN included) are simply "not equal" for the equality tests.
int CompareFloat(Extended a, Extended b, bool equality) {
  if (a == b) return 0;
  if (equality || a < b) return -1;
  return 1;
}

// An ordinal as a sign and magnitude pair so that the whole UInt64 range compares right.
int CompareOrdinal(const Variant& a, const Variant& b) {
  auto isBig = [](const Variant& v) {
    TVarType t = VA::Tag(v);
    return t == varUInt64 && VA::UInt(v) > static_cast<UInt64>(std::numeric_limits<Int64>::max());
  };
  auto value = [](const Variant& v) -> Int64 {
    TVarType t = VA::Tag(v);
    if (t == varBoolean) return VA::Int(v) ? -1 : 0;
    if (IsUnsignedInt(t)) return static_cast<Int64>(VA::UInt(v));
    return VA::Int(v);
  };
  bool bigA = isBig(a), bigB = isBig(b);
  if (bigA || bigB) {
    if (bigA && bigB) return Sign3(VA::UInt(a), VA::UInt(b));
    return bigA ? 1 : -1;
  }
  return Sign3(value(a), value(b));
}

int CompareStrings(const Variant& a, const Variant& b, bool equality) {
  if (VA::Tag(a) == varString && VA::Tag(b) == varString) {
    const AnsiString& x = VA::Str(a);
    const AnsiString& y = VA::Str(b);
    if (x == y) return 0;
    if (equality) return -1;
    int r = AnsiCompareStr(x, y);
    if (r == 0) r = x.compare(y);
    return r < 0 ? -1 : 1;
  }
  WideString x = ToWide(a, varOleStr);
  WideString y = ToWide(b, varOleStr);
  if (x == y) return 0;
  if (equality) return -1;
  int r = AnsiCompareStr(WideToAnsi(x), WideToAnsi(y));
  if (r == 0) r = x.compare(y);
  return r < 0 ? -1 : 1;
}

// A currency against a number compares in currency (so a float is rounded to four
// places), unless the number lies beyond the currency range.
int CompareCurrency(const Variant& a, const Variant& b) {
  auto asCurr = [](const Variant& v, bool& fits) -> Currency {
    fits = true;
    if (CatOf(v) == Cat::Float || CatOf(v) == Cat::Int) {
      Extended f = ToExtended(v, varCurrency);
      if (!std::isfinite(f) || std::fabs(f) >= 922337203685477.0L) {
        fits = false;
        return Currency();
      }
    }
    return ToCurr(v);
  };
  bool fitsA = true, fitsB = true;
  Currency x = asCurr(a, fitsA);
  Currency y = asCurr(b, fitsB);
  if (fitsA && fitsB) return Sign3(x, y);
  return CompareFloat(ToExtended(a, varDouble), ToExtended(b, varDouble), false);
}

// -1, 0 or 1 by the system's variant comparison; `equality` when only = or <> is asked.
int CompareVariants(const Variant& a, const Variant& b, bool equality) {
  Cat ca = CatOf(a), cb = CatOf(b);
  // Empty is equal to empty and below everything else; null likewise after empty.
  if (ca == Cat::Empty || cb == Cat::Empty) return ca == cb ? 0 : (ca == Cat::Empty ? -1 : 1);
  if (ca == Cat::Null || cb == Cat::Null) return ca == cb ? 0 : (ca == Cat::Null ? -1 : 1);
  if (ca == Cat::Other || cb == Cat::Other) InvalidOpError();
  if (ca == Cat::Str && cb == Cat::Str) return CompareStrings(a, b, equality);

  // A string takes the other side's kind; two numbers meet in the wider kind.
  Cat common;
  if (ca == Cat::Str) {
    common = cb;
  } else if (cb == Cat::Str) {
    common = ca;
  } else if (ca == Cat::Date || cb == Cat::Date) {
    common = Cat::Date;
  } else if (ca == Cat::Curr || cb == Cat::Curr) {
    common = Cat::Curr;
  } else if (ca == Cat::Float || cb == Cat::Float) {
    common = Cat::Float;
  } else if (ca == Cat::Bool && cb == Cat::Bool) {
    common = Cat::Bool;
  } else {
    common = Cat::Int;
  }
  switch (common) {
    case Cat::Bool: return Sign3(ToBool(a), ToBool(b));
    case Cat::Int:
      // Against a string an ordinal compares as a float, so "1,5" is not 1 or 2.
      if (ca == Cat::Str || cb == Cat::Str)
        return CompareFloat(ToExtended(a, varDouble), ToExtended(b, varDouble), equality);
      return CompareOrdinal(a, b);
    case Cat::Date: return CompareFloat(ToDate(a), ToDate(b), equality);
    case Cat::Curr: return CompareCurrency(a, b);
    default: return CompareFloat(ToExtended(a, varDouble), ToExtended(b, varDouble), equality);
  }
}

}  // namespace

bool operator==(const Variant& a, const Variant& b) { return CompareVariants(a, b, true) == 0; }
bool operator!=(const Variant& a, const Variant& b) { return CompareVariants(a, b, true) != 0; }
bool operator<(const Variant& a, const Variant& b) { return CompareVariants(a, b, false) < 0; }
bool operator>(const Variant& a, const Variant& b) { return CompareVariants(a, b, false) > 0; }
bool operator<=(const Variant& a, const Variant& b) { return CompareVariants(a, b, false) <= 0; }
bool operator>=(const Variant& a, const Variant& b) { return CompareVariants(a, b, false) >= 0; }

TVariantRelationship VarCompareValue(const Variant& a, const Variant& b) {
  bool clearA = a.IsEmpty() || a.IsNull();
  bool clearB = b.IsEmpty() || b.IsNull();
  if (clearA) return VA::Tag(a) == VA::Tag(b) ? vrEqual : vrNotEqual;
  if (clearB) return vrNotEqual;
  if (a == b) return vrEqual;
  return a < b ? vrLessThan : vrGreaterThan;
}

bool VarSameValue(const Variant& a, const Variant& b) {
  if (a.IsEmpty() || a.IsNull()) return VA::Tag(a) == VA::Tag(b);
  if (b.IsEmpty() || b.IsNull()) return false;
  return a == b;
}

}  // namespace ostrel
