// Decimal rounding of amounts held in binary floating point, tolerant comparison of sums,
// percent and tax arithmetic, and the number <-> text helpers built on them.
#pragma once

#include <ostrel/rtl/Types.h>

#include <string_view>

namespace ostrel {

// The rounding modes. The ordinals are stored and passed around, so their order is fixed.
enum TDecimalRoundingCtrl : Byte {
  drNone = 0,      // no rounding at all
  drHalfEven = 1,  // an exact half goes towards zero (2.5 -> 2, 3.5 -> 3, -3.5 -> -3)
  drHalfPos = 2,   // halves towards plus infinity
  drHalfNeg = 3,   // halves towards minus infinity
  drHalfDown = 4,  // halves towards zero
  drHalfUp = 5,    // halves away from zero: the bookkeeper's rounding
  drRndNeg = 6,    // floor
  drRndPos = 7,    // ceiling
  drRndDown = 8,   // truncation
  drRndUp = 9,     // away from zero
};

// Relative tolerance of RoundExt: absorbs the representation error of decimal fractions so
// that 2.675 counts as exactly half-way between 2.67 and 2.68.
inline constexpr Extended RoundingTolerance = 5.48172618420937533e-16L;

// When false, FToStrSymb (and so CrcToStr) never adds a currency symbol. True at start.
OSTREL_API extern bool CurrencySymbol;

// Every step of the arithmetic below (Power10, RoundExt and what is built on it, the percent
// and tax functions) is done in the 80-bit extended format, rounding to nearest: on the x87
// unit where long double is that format, in software (Extended80) elsewhere, with the same
// bits as the result. Where long double is wider (64-bit ARM: 128 bits), an argument that
// the 80-bit format cannot hold exactly is first rounded to the nearest 80-bit value; every
// result is an 80-bit value and is returned exactly. Where long double is narrower (64 bits),
// arguments go in exactly and results are rounded to the nearest double. NaN and infinities
// pass through RoundExt unchanged on every platform.

// x multiplied by 10 n times (n > 0) or divided by 10 |n| times (n < 0).
OSTREL_API Extended Power10(Extended x, int n);

// x rounded to n decimal places (negative n rounds to tens, hundreds ...) in the given mode.
// NaN, infinities and drNone return x unchanged. Leaves the x87 unit, where there is one, in
// extended precision with round-to-nearest for the calling thread.
OSTREL_API Extended RoundExt(Extended x, int n, TDecimalRoundingCtrl mode);
// RoundExt computed in software on every platform: what RoundExt is where long double is not
// the x87 format, callable on x86 too so that the two paths can be compared.
OSTREL_API Extended RoundExtSoftware(Extended x, int n, TDecimalRoundingCtrl mode);
// RoundExt(x, n, drHalfUp); x untouched when n >= 15.
OSTREL_API Extended RoundF(Extended x, int n);
OSTREL_API Extended rnd(Extended x, int n);
OSTREL_API Extended rnd4(Extended x);
OSTREL_API Extended rnd8(Extended x);
// One unit of the n-th decimal place: 0.01 for 2, 1 for 0, 100 for -2.
OSTREL_API Extended RoundStep(int n);

// 0 for 0, -1 below zero, 1 otherwise.
OSTREL_API int Sign(Extended x);
// Sign(RoundF(a - b, n)).
OSTREL_API int cmpf(Extended a, Extended b, int n);
OSTREL_API int cmp8(Extended a, Extended b);
OSTREL_API int CompareSum(Extended a, Extended b, int n);
OSTREL_API bool equf(Extended a, Extended b, int n);
OSTREL_API bool equ8(Extended a, Extended b);
// -1 when a rounds below zero, 0 when it rounds to zero, else 1 (a < b), 2 (a = b), 3 (a > b).
OSTREL_API int estf(Extended a, Extended b, int n);
OSTREL_API int est8(Extended a, Extended b);

// By how many percent b lies below a: (a - b) * 100 / a. a = 0 divides by zero.
OSTREL_API Extended PercentCalc(Extended a, Extended b);
// value * (1 + percent / 100).
OSTREL_API Extended PercentApply(Extended value, Extended percent);
// The base to which percent was added: value * 100 / (percent + 100); 0 for percent = -100.
OSTREL_API Extended PercentBack(Extended value, Extended percent);
// The tax in sum, rounded to n places. rate >= 0: charged on top (sum * rate / 100);
// rate < 0: included in sum at the rate -rate.
OSTREL_API Extended TaxSum(Extended sum, Extended rate, int n);
// The gross amount for a positive rate, the net amount for a negative one.
OSTREL_API Extended TaxApply(Extended sum, Extended rate, int n);
// The rate in percent that tax is of sum; a negative tax is included in sum.
OSTREL_API Extended TaxCalc(Extended sum, Extended tax, int n);

// Fixed-point text with thousands separators in the current FormatSettings: at least
// minDecimals and at most maxDecimals decimals (trailing zeros dropped in between); with
// approxMark, a "~" in front when rounding to maxDecimals changed the value materially.
OSTREL_API AnsiString FToStr(Extended x, int minDecimals, int maxDecimals, bool approxMark);
// FToStr plus a currency symbol placed by symbolPos: 0 "$1", 1 "1$", 2 "$ 1", 3 "1 $".
OSTREL_API AnsiString FToStrSymb(Extended x, int minDecimals, int maxDecimals, Byte symbolPos,
                                 std::string_view symbol, bool approxMark);
// An amount with the locale's currency decimals, format and string; never rounded.
OSTREL_API AnsiString CrcToStr(Extended x, bool approxMark = false);

// The decimal text of value brought to exactly width characters: padded with "0" on the
// left, or cut on the right.
OSTREL_API AnsiString Int0Str(Integer value, int width);
// A byte count in binary multiples ("1 000 B", "2 kB", "4,77 MB"); a level outside 0..8
// picks the level by size.
OSTREL_API AnsiString MemSizeStr(Int64 size, int level = -1);
// The first number in a free text (signs are not part of it); false and 0 when none.
OSTREL_API bool TryExtractNum(std::string_view text, Extended& value);
// Hexadecimal text, "$" optional. Raises EConvertError for text that is no number.
OSTREL_API Integer HexToInt(std::string_view text);
// As above; any conversion failure gives def.
OSTREL_API Integer HexToInt(std::string_view text, Integer def);

}  // namespace ostrel
