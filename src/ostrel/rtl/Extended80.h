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

#include <cfloat>
#include <string_view>

// 1 where long double is the x87 80-bit format and computed by the x87 unit.
#if (defined(__i386__) || defined(__x86_64__)) && LDBL_MANT_DIG == 64
#  define OSTREL_X87_EXTENDED 1
#else
#  define OSTREL_X87_EXTENDED 0
#endif

namespace ostrel {

class OSTREL_API Extended80 {
 public:
  static constexpr int kBias = 16383;
  static constexpr Word kMaxExp = 0x7FFF;

  constexpr Extended80() = default;  // +0
  // Rounded to nearest where Extended is wider (see above), exact otherwise.
  Extended80(Extended x);  // NOLINT: converts implicitly, as a built-in float would
  static constexpr Extended80 FromBits(Word signExp, UInt64 mantissa) {
    Extended80 r;
    r.fSignExp = signExp;
    r.fMant = mantissa;
    return r;
  }
  static Extended80 FromInt(Int64 v);

  Extended ToExtended() const;
  constexpr Word SignExp() const { return fSignExp; }
  constexpr UInt64 Mantissa() const { return fMant; }
  constexpr bool Negative() const { return (fSignExp & 0x8000) != 0; }
  constexpr int BiasedExp() const { return fSignExp & 0x7FFF; }

  friend OSTREL_API Extended80 operator+(Extended80 a, Extended80 b);
  friend OSTREL_API Extended80 operator-(Extended80 a, Extended80 b);
  friend OSTREL_API Extended80 operator*(Extended80 a, Extended80 b);
  friend OSTREL_API Extended80 operator/(Extended80 a, Extended80 b);
  friend constexpr Extended80 operator-(Extended80 a) {
    return FromBits(static_cast<Word>(a.fSignExp ^ 0x8000), a.fMant);
  }
  Extended80& operator+=(Extended80 b) { return *this = *this + b; }
  Extended80& operator-=(Extended80 b) { return *this = *this - b; }
  Extended80& operator*=(Extended80 b) { return *this = *this * b; }
  Extended80& operator/=(Extended80 b) { return *this = *this / b; }

  // IEEE comparisons: NaN is unordered (every comparison but != false), -0 equals +0.
  friend OSTREL_API bool operator==(Extended80 a, Extended80 b);
  friend OSTREL_API bool operator<(Extended80 a, Extended80 b);
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
  friend OSTREL_API Extended80 Trunc(Extended80 a);

 private:
  UInt64 fMant = 0;
  Word fSignExp = 0;
};

// digits (only '0'..'9', any number of them) times 10^exp10, correctly rounded to the
// nearest 80-bit value, ties to even. Too large gives infinity, too small zero (with the
// sign), in between the denormals are exact as well.
OSTREL_API Extended80 DecimalToExtended80(bool negative, std::string_view digits, Int64 exp10);

// The first `precision` (1..40) significant decimal digits of |x|, correctly rounded from
// its exact binary value, ties to even, written to digits (no terminator). Returns the
// decimal exponent of the first digit (x ~ d.ddd * 10^result). x must be finite and not 0.
OSTREL_API int Extended80Digits(Extended80 x, int precision, char* digits);

}  // namespace ostrel
