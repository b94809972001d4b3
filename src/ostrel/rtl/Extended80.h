// The 80-bit extended format (64-bit significand with an explicit integer bit, 15-bit
// exponent) computed in software, and the exact conversions between decimal text and it.
//
// Money and rounding results must come out the same, to the last bit, on every machine.
// x86 compilers make `long double` that format and compute it on the x87 unit; other
// platforms do not: 64-bit ARM Linux has a 128-bit `long double`, MSVC a 64-bit one, and
// the MinGW runtime converts text to `long double` through `double`. Where the hardware
// format is missing, the library computes its extended steps with `Extended80`, whose
// every operation rounds to nearest, ties to even, with gradual underflow, exactly as the
// x87 unit does in extended precision. Text is converted through the functions below on
// every platform, so that "0,1" is the same extended value everywhere.
//
// Conversion from and to `Extended` (= long double):
// - x87 (64-bit significand): bit for bit, both ways.
// - wider (128-bit long double): a value that the 80-bit format holds converts exactly both
//   ways; any other value (one that carries more than 64 significant bits, or lies beyond
//   the 80-bit exponent range) is first rounded to the nearest 80-bit value, ties to even.
//   Every result of the library's extended arithmetic is an 80-bit value and so is returned
//   exactly.
// - narrower (64-bit long double): every input converts exactly; results are rounded to the
//   nearest double on the way back, so they can differ from an x87 machine in the last bits.
#pragma once

#include <ostrel/rtl/Types.h>

#include <bit>
#include <cfloat>
#include <cstring>
#include <string_view>
#include <utility>

// 1 where long double is the x87 80-bit format and computed by the x87 unit.
#if (defined(__i386__) || defined(__x86_64__)) && LDBL_MANT_DIG == 64
#define OSTREL_X87_EXTENDED 1
#else
#define OSTREL_X87_EXTENDED 0
#endif

namespace ostrel {

// A number in the 80-bit extended format computed in software: every operation rounds to
// nearest-even with gradual underflow exactly as the x87 unit does.
class OSTREL_API Extended80 {
 public:
  static constexpr int kBias = 16383;
  static constexpr Word kMaxExp = 0x7FFF;

  constexpr Extended80() = default;  // +0
  // Rounded to nearest where Extended is wider (see above), exact otherwise.
  Extended80(Extended x) {  // NOLINT: converts implicitly, as a built-in float would
#if LDBL_MANT_DIG == 64
    std::memcpy(&fMant, &x, 8);
    std::memcpy(&fSignExp, reinterpret_cast<const char*>(&x) + 8, 2);
#else
    *this = FromWider(x);
#endif
  }
  static constexpr Extended80 FromBits(Word signExp, UInt64 mantissa) {
    Extended80 r;
    r.fSignExp = signExp;
    r.fMant = mantissa;
    return r;
  }
  static Extended80 FromInt(Int64 v);

  Extended ToExtended() const {
#if LDBL_MANT_DIG == 64
    Extended x = 0;
    std::memcpy(&x, &fMant, 8);
    std::memcpy(reinterpret_cast<char*>(&x) + 8, &fSignExp, 2);
    return x;
#else
    return ToOther();
#endif
  }
  constexpr Word SignExp() const { return fSignExp; }
  constexpr UInt64 Mantissa() const { return fMant; }
  constexpr bool Negative() const { return (fSignExp & 0x8000) != 0; }
  constexpr int BiasedExp() const { return fSignExp & 0x7FFF; }

  friend Extended80 operator+(Extended80 a, Extended80 b);
  friend Extended80 operator-(Extended80 a, Extended80 b);
  friend Extended80 operator*(Extended80 a, Extended80 b);
  friend Extended80 operator/(Extended80 a, Extended80 b);
  friend constexpr Extended80 operator-(Extended80 a) {
    return FromBits(static_cast<Word>(a.fSignExp ^ 0x8000), a.fMant);
  }
  Extended80& operator+=(Extended80 b) { return *this = *this + b; }
  Extended80& operator-=(Extended80 b) { return *this = *this - b; }
  Extended80& operator*=(Extended80 b) { return *this = *this * b; }
  Extended80& operator/=(Extended80 b) { return *this = *this / b; }

  // IEEE comparisons: NaN is unordered (every comparison but != false), -0 equals +0.
  friend bool operator==(Extended80 a, Extended80 b);
  friend bool operator<(Extended80 a, Extended80 b);
  friend bool operator!=(Extended80 a, Extended80 b) { return !(a == b); }
  friend bool operator>(Extended80 a, Extended80 b) { return b < a; }
  friend bool operator<=(Extended80 a, Extended80 b) { return a < b || a == b; }
  friend bool operator>=(Extended80 a, Extended80 b) { return b < a || a == b; }

  friend constexpr bool IsFinite(Extended80 a) { return a.BiasedExp() != kMaxExp; }
  friend constexpr bool IsNaN(Extended80 a) {
    return a.BiasedExp() == kMaxExp && (a.fMant << 1) != 0;
  }
  friend constexpr Extended80 Abs(Extended80 a) {
    return FromBits(static_cast<Word>(a.fSignExp & 0x7FFF), a.fMant);
  }
  // Towards zero, keeping the sign (-0.5 gives -0).
  friend Extended80 Trunc(Extended80 a);

 private:
  static Extended80 FromWider(Extended x);  // long double not the x87 format
  Extended ToOther() const;

  UInt64 fMant = 0;
  Word fSignExp = 0;
};

namespace detail80 {

#if defined(__SIZEOF_INT128__)
__extension__ typedef unsigned __int128 U128;  // GCC and Clang, on every 64-bit target
#else
// 32-bit targets have no 128-bit integer: the operations the arithmetic below uses, on two
// 64-bit halves, with the built-in type's meaning (results modulo 2^128).
class U128 {
 public:
  constexpr U128() = default;
  constexpr U128(UInt64 v) : fHi(0), fLo(v) {}  // NOLINT: converts as the built-in type does
  constexpr U128(int v) : fHi(v < 0 ? ~UInt64{0} : 0), fLo(static_cast<UInt64>(v)) {}  // NOLINT
  explicit constexpr operator UInt64() const { return fLo; }

  friend constexpr bool operator==(U128 a, U128 b) { return a.fHi == b.fHi && a.fLo == b.fLo; }
  friend constexpr bool operator<(U128 a, U128 b) {
    return a.fHi != b.fHi ? a.fHi < b.fHi : a.fLo < b.fLo;
  }
  friend constexpr bool operator>(U128 a, U128 b) { return b < a; }
  friend constexpr bool operator<=(U128 a, U128 b) { return !(b < a); }
  friend constexpr bool operator>=(U128 a, U128 b) { return !(a < b); }

  friend constexpr U128 operator|(U128 a, U128 b) { return Make(a.fHi | b.fHi, a.fLo | b.fLo); }
  friend constexpr U128 operator&(U128 a, U128 b) { return Make(a.fHi & b.fHi, a.fLo & b.fLo); }
  friend constexpr U128 operator+(U128 a, U128 b) {
    const UInt64 lo = a.fLo + b.fLo;
    return Make(a.fHi + b.fHi + (lo < a.fLo ? 1 : 0), lo);
  }
  friend constexpr U128 operator-(U128 a, U128 b) {
    return Make(a.fHi - b.fHi - (a.fLo < b.fLo ? 1 : 0), a.fLo - b.fLo);
  }
  friend constexpr U128 operator<<(U128 a, int n) {
    if (n <= 0) return a;
    if (n >= 128) return U128();
    if (n >= 64) return Make(a.fLo << (n - 64), 0);
    return Make((a.fHi << n) | (a.fLo >> (64 - n)), a.fLo << n);
  }
  friend constexpr U128 operator>>(U128 a, int n) {
    if (n <= 0) return a;
    if (n >= 128) return U128();
    if (n >= 64) return Make(0, a.fHi >> (n - 64));
    return Make(a.fHi >> n, (a.fLo >> n) | (a.fHi << (64 - n)));
  }
  friend constexpr U128 operator*(U128 a, U128 b) {
    U128 p = Mul64(a.fLo, b.fLo);
    p.fHi += a.fHi * b.fLo + a.fLo * b.fHi;
    return p;
  }
  // Division by a 64-bit divisor, the only kind the conversions need.
  friend constexpr U128 operator/(U128 a, UInt64 d) { return DivMod(a, d, nullptr); }
  friend constexpr UInt64 operator%(U128 a, UInt64 d) {
    UInt64 r = 0;
    DivMod(a, d, &r);
    return r;
  }
  constexpr U128& operator|=(U128 b) { return *this = *this | b; }
  constexpr U128& operator<<=(int n) { return *this = *this << n; }
  constexpr U128& operator>>=(int n) { return *this = *this >> n; }

 private:
  static constexpr U128 Make(UInt64 hi, UInt64 lo) {
    U128 v;
    v.fHi = hi;
    v.fLo = lo;
    return v;
  }
  static constexpr U128 Mul64(UInt64 a, UInt64 b) {
    const UInt64 aLo = a & 0xFFFFFFFFu, aHi = a >> 32, bLo = b & 0xFFFFFFFFu, bHi = b >> 32;
    const UInt64 ll = aLo * bLo, lh = aLo * bHi, hl = aHi * bLo, hh = aHi * bHi;
    const UInt64 mid = (ll >> 32) + (lh & 0xFFFFFFFFu) + (hl & 0xFFFFFFFFu);
    return Make(hh + (lh >> 32) + (hl >> 32) + (mid >> 32), (mid << 32) | (ll & 0xFFFFFFFFu));
  }
  // Schoolbook division one bit at a time: the high half first, then the remainder with the
  // low half, where the remainder stays below the divisor.
  static constexpr U128 DivMod(U128 a, UInt64 d, UInt64* rest) {
    const UInt64 qHi = a.fHi / d;
    UInt64 r = a.fHi % d, qLo = 0;
    for (int bit = 63; bit >= 0; --bit) {
      const bool carry = (r >> 63) != 0;
      r = (r << 1) | ((a.fLo >> bit) & 1);
      if (carry || r >= d) {
        r -= d;
        qLo |= UInt64{1} << bit;
      }
    }
    if (rest) *rest = r;
    return Make(qHi, qLo);
  }

  UInt64 fHi = 0;
  UInt64 fLo = 0;
};
#endif

constexpr UInt64 kTop = UInt64{1} << 63;
constexpr Word kSign = 0x8000;
// The value of the last significand bit of the denormals (and of the smallest normals).
constexpr int kMinLsbExp = 1 - Extended80::kBias - 63;

constexpr Extended80 Infinity(bool negative) {
  return Extended80::FromBits(static_cast<Word>((negative ? kSign : 0) | Extended80::kMaxExp),
                              kTop);
}
// What the x87 unit gives for an invalid operation (0/0, inf - inf, 0 * inf).
constexpr Extended80 kIndefinite = Extended80::FromBits(0xFFFF, 0xC000000000000000ull);

inline int LeadingZeros(U128 v) {
  const UInt64 hi = static_cast<UInt64>(v >> 64);
  return hi != 0 ? std::countl_zero(hi) : 64 + std::countl_zero(static_cast<UInt64>(v));
}

// v >> shift with every bit shifted out folded into the last bit, so that rounding further
// up still sees that something was there ("jamming").
inline U128 ShiftRightJam(U128 v, int shift) {
  if (shift <= 0) return v;
  if (shift >= 128) return v != 0 ? 1 : 0;
  const U128 kept = v >> shift;
  return kept | ((kept << shift) != v ? 1 : 0);
}

// sig * 2^exp rounded to nearest, ties to even, with gradual underflow and overflow to
// infinity: the one place where results are rounded.
inline Extended80 Pack(bool negative, int exp, U128 sig) {
  const Word sign = negative ? kSign : 0;
  if (sig == 0) return Extended80::FromBits(sign, 0);
  const int lz = LeadingZeros(sig);
  sig <<= lz;
  exp -= lz;
  int biased = exp + 64 - kMinLsbExp + 1;  // of the top 64 bits taken as the significand
  if (biased >= Extended80::kMaxExp) return Infinity(negative);
  if (biased <= 0) {
    sig = ShiftRightJam(sig, 1 - biased);
    biased = 0;
  }
  UInt64 mant = static_cast<UInt64>(sig >> 64);
  const UInt64 rest = static_cast<UInt64>(sig);
  if (rest > kTop || (rest == kTop && (mant & 1) != 0)) {
    if (++mant == 0) {  // carried out of the significand
      mant = kTop;
      if (++biased >= Extended80::kMaxExp) return Infinity(negative);
    } else if (biased == 0 && (mant & kTop) != 0) {
      biased = 1;  // the largest denormal rounded up to the smallest normal
    }
  }
  return Extended80::FromBits(static_cast<Word>(sign | biased), mant);
}

// A finite value as sign, normalised significand (top bit set unless zero) and the exponent
// of its last bit.
struct Parts {
  bool negative;
  int exp;
  UInt64 mant;
};

inline Parts Unpack(Extended80 a) {
  Parts p{a.Negative(), 0, a.Mantissa()};
  if ((p.mant & kTop) != 0 && a.BiasedExp() != 0) {  // normal: nothing to shift
    p.exp = a.BiasedExp() - Extended80::kBias - 63;
    return p;
  }
  if (p.mant == 0) return p;
  const int lz = std::countl_zero(p.mant);
  p.mant <<= lz;
  p.exp = (a.BiasedExp() == 0 ? 1 : a.BiasedExp()) - Extended80::kBias - 63 - lz;
  return p;
}

inline bool IsZero(Extended80 a) { return IsFinite(a) && a.Mantissa() == 0; }

// A NaN operand comes back quiet, the first one when both are NaN.
inline Extended80 PropagateNaN(Extended80 a, Extended80 b) {
  const Extended80 n = IsNaN(a) ? a : b;
  return Extended80::FromBits(n.SignExp(), n.Mantissa() | (kTop >> 1));
}

// |a| compared with |b|, both not NaN: canonical encodings order as (exponent, significand).
inline int CompareMagnitude(Extended80 a, Extended80 b) {
  if (a.BiasedExp() != b.BiasedExp()) return a.BiasedExp() < b.BiasedExp() ? -1 : 1;
  if (a.Mantissa() != b.Mantissa()) return a.Mantissa() < b.Mantissa() ? -1 : 1;
  return 0;
}

}  // namespace detail80

// ---------------------------------------------------------------------------------------
// Arithmetic, inline: the rounding code runs a dozen of these per call.

[[gnu::always_inline]] inline Extended80 operator*(Extended80 a, Extended80 b) {
  using namespace detail80;
  const bool negative = a.Negative() != b.Negative();
  // Two normal operands with a normal product, the common case, rounded here directly.
  const int ea = a.BiasedExp(), eb = b.BiasedExp();
  if ((a.Mantissa() & b.Mantissa() & kTop) != 0 && ea != 0 && eb != 0 &&
      ea != Extended80::kMaxExp && eb != Extended80::kMaxExp) {
    U128 p = static_cast<U128>(a.Mantissa()) * b.Mantissa();
    int biased = ea + eb - Extended80::kBias + 1;
    if ((p >> 127) == 0) {
      p <<= 1;
      --biased;
    }
    UInt64 mant = static_cast<UInt64>(p >> 64);
    const UInt64 rest = static_cast<UInt64>(p);
    if (biased >= 1 && biased < Extended80::kMaxExp - 1) {
      if (rest > kTop || (rest == kTop && (mant & 1) != 0)) {
        if (++mant == 0) {
          mant = kTop;
          ++biased;
        }
      }
      return Extended80::FromBits(static_cast<Word>((negative ? kSign : 0) | biased), mant);
    }
  }
  if (IsNaN(a) || IsNaN(b)) return PropagateNaN(a, b);
  if (!IsFinite(a) || !IsFinite(b)) {
    if (IsZero(a) || IsZero(b)) return kIndefinite;
    return Infinity(negative);
  }
  const Parts pa = Unpack(a), pb = Unpack(b);
  return Pack(negative, pa.exp + pb.exp, static_cast<U128>(pa.mant) * pb.mant);
}

namespace detail80 {

// A 64-bit quotient with its top bit set: num's high half is below the divisor.
inline UInt64 Divide(U128 num, UInt64 divisor, UInt64& rest) {
#if defined(__x86_64__)
  UInt64 q;
  // One divq: the quotient fits in 64 bits since the high half is below the divisor.
  __asm__("divq %4"
          : "=a"(q), "=d"(rest)
          : "a"(static_cast<UInt64>(num)), "d"(static_cast<UInt64>(num >> 64)), "rm"(divisor));
  return q;
#else
  rest = static_cast<UInt64>(num % divisor);
  return static_cast<UInt64>(num / divisor);
#endif
}

}  // namespace detail80

inline Extended80 operator/(Extended80 a, Extended80 b) {
  using namespace detail80;
  const int ea = a.BiasedExp(), eb = b.BiasedExp();
  if ((a.Mantissa() & b.Mantissa() & kTop) != 0 &&
      static_cast<unsigned>(ea - 1) < Extended80::kMaxExp - 1 &&
      static_cast<unsigned>(eb - 1) < Extended80::kMaxExp - 1) {
    // Two normal numbers: the quotient is normalised as it comes, and rounds on its remainder.
    const bool shifted = a.Mantissa() >= b.Mantissa();
    UInt64 r;
    UInt64 mant = Divide(static_cast<U128>(a.Mantissa()) << (shifted ? 63 : 64), b.Mantissa(), r);
    int biased = ea - eb + Extended80::kBias - (shifted ? 0 : 1);
    // Up when the remainder is above half the divisor; a quotient of two 64-bit significands
    // never lies exactly half-way between two 64-bit values.
    if (r > b.Mantissa() - r) {
      if (++mant == 0) {
        mant = kTop;
        ++biased;
      }
    }
    if (biased >= 1 && biased < Extended80::kMaxExp)
      return Extended80::FromBits(
          static_cast<Word>((a.Negative() != b.Negative() ? kSign : 0) | biased), mant);
  }
  if (IsNaN(a) || IsNaN(b)) return PropagateNaN(a, b);
  const bool negative = a.Negative() != b.Negative();
  if (!IsFinite(a)) return IsFinite(b) ? Infinity(negative) : kIndefinite;
  if (!IsFinite(b)) return Extended80::FromBits(negative ? kSign : 0, 0);
  if (IsZero(b)) return IsZero(a) ? kIndefinite : Infinity(negative);
  if (IsZero(a)) return Extended80::FromBits(negative ? kSign : 0, 0);
  const Parts pa = Unpack(a), pb = Unpack(b);
  // A 64-bit quotient with its top bit set, then the remainder as guard and sticky bits.
  const bool shifted = pa.mant >= pb.mant;
  const U128 num = static_cast<U128>(pa.mant) << (shifted ? 63 : 64);
  UInt64 r;
  const UInt64 q = Divide(num, pb.mant, r);
  UInt64 low = 0;
  if (r != 0) {
    const UInt64 other = pb.mant - r;  // r / mant compared with one half
    low = r > other ? (kTop | 1) : (r == other ? kTop : 1);
  }
  const int exp = pa.exp - pb.exp - (shifted ? 63 : 64) - 64;
  return Pack(negative, exp, (static_cast<U128>(q) << 64) | low);
}

namespace detail80 {

// Any sum: NaN, infinities, zeros, denormals, cancellation and far-apart exponents.
inline Extended80 AddAny(Extended80 a, Extended80 b) {
  using namespace detail80;
  // NaN, infinities and zeros behind one test.
  if (!IsFinite(a) || !IsFinite(b) || a.Mantissa() == 0 || b.Mantissa() == 0) {
    if (IsNaN(a) || IsNaN(b)) return PropagateNaN(a, b);
    if (!IsFinite(a) || !IsFinite(b)) {
      if (!IsFinite(a) && !IsFinite(b) && a.Negative() != b.Negative()) return kIndefinite;
      return IsFinite(a) ? b : a;
    }
    if (IsZero(a) && IsZero(b))
      return Extended80::FromBits(a.Negative() && b.Negative() ? kSign : 0, 0);
    return IsZero(a) ? b : a;
  }
  if (CompareMagnitude(a, b) < 0) std::swap(a, b);
  const Parts pa = Unpack(a), pb = Unpack(b);
  // The larger significand one bit below the top of 128, so that a sum cannot carry out;
  // 63 guard bits below it make the jammed smaller operand round correctly.
  const U128 big = static_cast<U128>(pa.mant) << 63;
  const U128 small = ShiftRightJam(static_cast<U128>(pb.mant) << 63, pa.exp - pb.exp);
  if (pa.negative == pb.negative) return Pack(pa.negative, pa.exp - 63, big + small);
  const U128 diff = big - small;
  if (diff == 0) return Extended80();  // x - x is +0 when rounding to nearest
  return Pack(pa.negative, pa.exp - 63, diff);
}

// The common sum, of two normal numbers whose exponents differ by less than 64, in 64-bit
// words: false (and r untouched) for any other, and where the result would leave the normal
// range or a difference of nearly equal numbers needs more than one bit of normalising.
[[gnu::always_inline]] inline bool AddNormal(Extended80 a, Extended80 b, Extended80& r) {
  int ea = a.BiasedExp(), eb = b.BiasedExp();
  UInt64 ma = a.Mantissa(), mb = b.Mantissa();
  if ((ma & mb & kTop) == 0 || static_cast<unsigned>(ea - 1) >= Extended80::kMaxExp - 1 ||
      static_cast<unsigned>(eb - 1) >= Extended80::kMaxExp - 1)
    return false;
  bool negative = a.Negative();
  if (ea < eb || (ea == eb && ma < mb)) {
    std::swap(ea, eb);
    std::swap(ma, mb);
    negative = b.Negative();
  }
  const int d = ea - eb;
  if (d >= 64) return false;
  // The smaller significand aligned: hi in the larger's place, lo the bits below it.
  const UInt64 hi = mb >> d, lo = d == 0 ? 0 : mb << (64 - d);
  UInt64 mant, rest;
  int exp = ea;
  if (a.Negative() == b.Negative()) {
    mant = ma + hi;
    rest = lo;
    if (mant < ma) {  // carried: one place right (lo's lowest bit is clear, nothing is lost)
      rest = (mant << 63) | (lo >> 1);
      mant = (mant >> 1) | kTop;
      ++exp;
    }
  } else {
    if (d == 1) return false;
    if (d == 0) {  // exact; zero when equal
      const UInt64 diff = ma - mb;
      if (diff == 0) {
        r = Extended80();
        return true;
      }
      const int lz = std::countl_zero(diff);
      if (ea - lz < 1) return false;
      r = Extended80::FromBits(static_cast<Word>((negative ? kSign : 0) | (ea - lz)), diff << lz);
      return true;
    }
    // The smaller is below half the larger: the difference loses at most its top bit.
    rest = 0 - lo;
    mant = ma - hi - (lo != 0 ? 1 : 0);
    if ((mant & kTop) == 0) {
      mant = (mant << 1) | (rest >> 63);
      rest <<= 1;
      --exp;
    }
  }
  if (rest > kTop || (rest == kTop && (mant & 1) != 0)) {
    if (++mant == 0) {
      mant = kTop;
      ++exp;
    }
  }
  if (exp < 1 || exp >= Extended80::kMaxExp) return false;
  r = Extended80::FromBits(static_cast<Word>((negative ? kSign : 0) | exp), mant);
  return true;
}

}  // namespace detail80

[[gnu::always_inline]] inline Extended80 operator+(Extended80 a, Extended80 b) {
  Extended80 r;
  if (detail80::AddNormal(a, b, r)) return r;
  return detail80::AddAny(a, b);
}

inline Extended80 operator-(Extended80 a, Extended80 b) { return a + (-b); }

inline bool operator==(Extended80 a, Extended80 b) {
  using namespace detail80;
  if (IsNaN(a) || IsNaN(b)) return false;
  if (IsZero(a) && IsZero(b)) return true;
  return a.Negative() == b.Negative() && CompareMagnitude(a, b) == 0;
}

inline bool operator<(Extended80 a, Extended80 b) {
  using namespace detail80;
  if (IsNaN(a) || IsNaN(b)) return false;
  if (IsZero(a) && IsZero(b)) return false;
  if (a.Negative() != b.Negative()) return a.Negative();
  const int c = CompareMagnitude(a, b);
  return a.Negative() ? c > 0 : c < 0;
}

inline Extended80 Trunc(Extended80 a) {
  using namespace detail80;
  if (!IsFinite(a) || a.Mantissa() == 0) return a;
  const int biased = a.BiasedExp();
  if (biased < Extended80::kBias) return Extended80::FromBits(a.SignExp() & kSign, 0);
  const int fracBits = Extended80::kBias + 63 - biased;
  if (fracBits <= 0) return a;
  return Extended80::FromBits(a.SignExp(), a.Mantissa() & ~((UInt64{1} << fracBits) - 1));
}

// digits (only '0'..'9', any number of them) times 10^exp10, correctly rounded to the
// nearest 80-bit value, ties to even. Too large gives infinity, too small zero (with the
// sign), in between the denormals are exact as well.
OSTREL_API Extended80 DecimalToExtended80(bool negative, std::string_view digits, Int64 exp10);

// The first `precision` (1..40) significant decimal digits of |x|, correctly rounded from
// its exact binary value, ties to even, written to digits (no terminator). Returns the
// decimal exponent of the first digit (x ~ d.ddd * 10^result). x must be finite and not 0.
OSTREL_API int Extended80Digits(Extended80 x, int precision, char* digits);

// The fewest significant digits (at most 21) that read back as x through
// DecimalToExtended80, correctly rounded; count receives their number. Returns the decimal
// exponent of the first digit. x must be finite and not 0.
OSTREL_API int Extended80ShortestDigits(Extended80 x, char* digits, int& count);

}  // namespace ostrel
