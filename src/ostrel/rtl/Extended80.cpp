// The 80-bit extended format in software. Every operation works on the exact value
// (a 64-bit significand times a power of two, widened to 128 bits) and rounds once, in Pack.
#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/detail/Extended80Exact.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace ostrel {

using namespace detail80;

// ---------------------------------------------------------------------------------------
// Conversions from and to the platform's long double

#if LDBL_MANT_DIG != 64
Extended80 Extended80::FromWider(Extended x) {
#if LDBL_MANT_DIG == 113
  static_assert(sizeof(Extended) == 16 && std::endian::native == std::endian::little);
  UInt64 lo = 0, hi = 0;
  std::memcpy(&lo, &x, 8);
  std::memcpy(&hi, reinterpret_cast<const char*>(&x) + 8, 8);
  const bool negative = (hi >> 63) != 0;
  const int biased = static_cast<int>((hi >> 48) & 0x7FFF);
  const U128 frac = (static_cast<U128>(hi & ((UInt64{1} << 48) - 1)) << 64) | lo;
  if (biased == 0x7FFF) {
    return frac == 0 ? Infinity(negative)
                     : FromBits(static_cast<Word>((negative ? kSign : 0) | kMaxExp),
                                kTop | (kTop >> 1) | static_cast<UInt64>(frac >> 49));
  }
  const U128 sig = biased == 0 ? frac : frac | (U128{1} << 112);
  return Pack(negative, (biased == 0 ? 1 : biased) - kBias - 112, sig);
#elif LDBL_MANT_DIG == 53
  const double d = static_cast<double>(x);
  UInt64 bits = 0;
  std::memcpy(&bits, &d, 8);
  const bool negative = (bits >> 63) != 0;
  const int biased = static_cast<int>((bits >> 52) & 0x7FF);
  const UInt64 frac = bits & ((UInt64{1} << 52) - 1);
  if (biased == 0x7FF) {
    return frac == 0 ? Infinity(negative)
                     : FromBits(static_cast<Word>((negative ? kSign : 0) | kMaxExp),
                                kTop | (kTop >> 1) | (frac << 11));
  }
  const UInt64 sig = biased == 0 ? frac : frac | (UInt64{1} << 52);
  return Pack(negative, (biased == 0 ? 1 : biased) - 1023 - 52, sig);
#else
#error "unsupported long double format"
#endif
}

Extended Extended80::ToOther() const {
#if LDBL_MANT_DIG == 113
  const int biased = BiasedExp();
  // The binary128 fraction: the 63 bits below the explicit integer bit, at its top; the
  // 80-bit denormals are binary128 denormals with the same last-bit value scaled by 2^49.
  const U128 frac = static_cast<U128>(biased == 0 ? fMant : fMant & ~kTop) << 49;
  const UInt64 hi = (static_cast<UInt64>(Negative()) << 63) | (static_cast<UInt64>(biased) << 48) |
                    static_cast<UInt64>(frac >> 64);
  const UInt64 lo = static_cast<UInt64>(frac);
  Extended x = 0;
  std::memcpy(&x, &lo, 8);
  std::memcpy(reinterpret_cast<char*>(&x) + 8, &hi, 8);
  return x;
#else
  if (IsNaN(*this)) return std::numeric_limits<Extended>::quiet_NaN();
  const Extended inf = std::numeric_limits<Extended>::infinity();
  if (!IsFinite(*this)) return Negative() ? -inf : inf;
  const Parts p = Unpack(*this);
  const Extended m = std::ldexp(static_cast<Extended>(p.mant), p.exp);
  return p.negative ? -m : m;
#endif
}
#endif

Extended80 Extended80::FromInt(Int64 v) {
  const UInt64 mag = v < 0 ? UInt64{0} - static_cast<UInt64>(v) : static_cast<UInt64>(v);
  return Pack(v < 0, 0, mag);
}

// ---------------------------------------------------------------------------------------
// Decimal conversions

namespace {

// Unsigned integer of any size, 32-bit limbs, least significant first, no leading zero
// limbs. Only what the exact conversions need.
class BigNum {
 public:
  BigNum() = default;
  explicit BigNum(UInt64 v) {
    while (v != 0) {
      fLimbs.push_back(static_cast<Cardinal>(v));
      v >>= 32;
    }
  }

  bool IsZero() const { return fLimbs.empty(); }
  int BitLength() const {
    if (fLimbs.empty()) return 0;
    return static_cast<int>(fLimbs.size() * 32) - std::countl_zero(fLimbs.back());
  }

  void MulAdd(Cardinal factor, Cardinal addend) {
    UInt64 carry = addend;
    for (Cardinal& limb : fLimbs) {
      const UInt64 t = static_cast<UInt64>(limb) * factor + carry;
      limb = static_cast<Cardinal>(t);
      carry = t >> 32;
    }
    if (carry != 0) fLimbs.push_back(static_cast<Cardinal>(carry));
  }

  void MulPow5(Int64 n) {
    constexpr Cardinal k5Pow13 = 1220703125;  // the largest power of 5 in 32 bits
    for (; n >= 13; n -= 13) MulAdd(k5Pow13, 0);
    Cardinal f = 1;
    for (; n > 0; --n) f *= 5;
    if (f != 1) MulAdd(f, 0);
  }

  void ShiftLeft(int bits) {
    if (fLimbs.empty() || bits <= 0) return;
    const std::size_t words = static_cast<std::size_t>(bits / 32);
    const int rest = bits % 32;
    if (rest != 0) {
      Cardinal carry = 0;
      for (Cardinal& limb : fLimbs) {
        const Cardinal next = limb >> (32 - rest);
        limb = (limb << rest) | carry;
        carry = next;
      }
      if (carry != 0) fLimbs.push_back(carry);
    }
    fLimbs.insert(fLimbs.begin(), words, 0);
  }

  void ShiftRightOne() {
    for (std::size_t i = 0; i < fLimbs.size(); ++i) {
      fLimbs[i] >>= 1;
      if (i + 1 < fLimbs.size()) fLimbs[i] |= fLimbs[i + 1] << 31;
    }
    Trim();
  }

  int Compare(const BigNum& other) const {
    if (fLimbs.size() != other.fLimbs.size()) return fLimbs.size() < other.fLimbs.size() ? -1 : 1;
    for (std::size_t i = fLimbs.size(); i-- > 0;)
      if (fLimbs[i] != other.fLimbs[i]) return fLimbs[i] < other.fLimbs[i] ? -1 : 1;
    return 0;
  }

  void Subtract(const BigNum& other) {  // *this >= other
    Int64 borrow = 0;
    for (std::size_t i = 0; i < fLimbs.size(); ++i) {
      Int64 t = static_cast<Int64>(fLimbs[i]) - borrow -
                (i < other.fLimbs.size() ? static_cast<Int64>(other.fLimbs[i]) : 0);
      borrow = t < 0 ? 1 : 0;
      fLimbs[i] = static_cast<Cardinal>(t + (borrow << 32));
    }
    Trim();
  }

  // The 128 bits from bit `from` upwards, and whether any bit below `from` is set.
  U128 Bits(int from, bool& lowerSet) const {
    U128 v = 0;
    lowerSet = false;
    for (std::size_t i = fLimbs.size(); i-- > 0;) {
      const int pos = static_cast<int>(i) * 32;  // bit position of this limb's bit 0
      for (int b = 31; b >= 0; --b) {
        if (((fLimbs[i] >> b) & 1) == 0) continue;
        const int bit = pos + b;
        if (bit >= from)
          v |= U128{1} << (bit - from);
        else
          lowerSet = true;
      }
      if (lowerSet) break;
    }
    return v;
  }

  Cardinal DivSmall(Cardinal divisor) {  // returns the remainder
    UInt64 rem = 0;
    for (std::size_t i = fLimbs.size(); i-- > 0;) {
      const UInt64 cur = (rem << 32) | fLimbs[i];
      fLimbs[i] = static_cast<Cardinal>(cur / divisor);
      rem = cur % divisor;
    }
    Trim();
    return static_cast<Cardinal>(rem);
  }

 private:
  void Trim() {
    while (!fLimbs.empty() && fLimbs.back() == 0) fLimbs.pop_back();
  }

  std::vector<Cardinal> fLimbs;
};

// num * 2^exp rounded: its top 128 bits with the rest jammed into the last one.
Extended80 PackBig(bool negative, int exp, const BigNum& num) {
  const int from = std::max(0, num.BitLength() - 128);
  bool lowerSet = false;
  const U128 top = num.Bits(from, lowerSet);
  return Pack(negative, exp + from, top | (lowerSet ? 1 : 0));
}

int BitLength(UInt64 v) { return 64 - std::countl_zero(v); }

// Every halfway point between two 80-bit values has fewer significant decimal digits than
// this (the denormal ones about 11 500), so digits beyond it only need to say "more".
constexpr std::size_t kMaxDigits = 12000;

}  // namespace

Extended80 detail80::ExactDecimalToExtended80(bool negative, std::string_view digits, Int64 exp10) {
  bool more = false;
  if (digits.size() > kMaxDigits) {
    exp10 += static_cast<Int64>(digits.size() - kMaxDigits);
    digits = digits.substr(0, kMaxDigits);
    more = true;  // the cut-off tail ends in a non-zero digit
  }

  // Up to 19 digits with a small exponent: 128-bit arithmetic is enough.
  if (!more && digits.size() <= 19 && exp10 >= -26 && exp10 <= 27) {
    UInt64 d = 0;
    for (char c : digits) d = d * 10 + static_cast<UInt64>(c - '0');
    UInt64 pow5 = 1;
    for (Int64 i = exp10 < 0 ? -exp10 : exp10; i > 0; --i) pow5 *= 5;
    if (exp10 >= 0) return Pack(negative, static_cast<int>(exp10), static_cast<U128>(d) * pow5);
    // d / 5^f * 2^-f: a quotient of at least 66 bits, the remainder jammed below it.
    const int shift = 66 + BitLength(pow5) - BitLength(d);
    const U128 num = static_cast<U128>(d) << shift;
    const U128 q = num / pow5;
    const bool rest = num % pow5 != 0;
    return Pack(negative, -shift + static_cast<int>(exp10), q | (rest ? 1 : 0));
  }

  BigNum num;
  std::size_t i = 0;
  for (; i + 9 <= digits.size(); i += 9) {
    Cardinal chunk = 0;
    for (std::size_t j = i; j < i + 9; ++j)
      chunk = chunk * 10 + static_cast<Cardinal>(digits[j] - '0');
    num.MulAdd(1000000000u, chunk);
  }
  for (; i < digits.size(); ++i) num.MulAdd(10, static_cast<Cardinal>(digits[i] - '0'));
  if (more) {
    num.MulAdd(10, 1);  // a trailing 1 stands for the non-zero tail
    --exp10;
  }

  if (exp10 >= 0) {
    num.MulPow5(exp10);
    return PackBig(negative, static_cast<int>(exp10), num);
  }
  // num / 5^f * 2^-f by long division to a quotient of 66 to 68 bits.
  const Int64 f = -exp10;
  BigNum den(1);
  den.MulPow5(f);
  const int shift = 66 + den.BitLength() - num.BitLength();
  if (shift > 0)
    num.ShiftLeft(shift);
  else
    den.ShiftLeft(-shift);
  int k = num.BitLength() - den.BitLength();
  den.ShiftLeft(k);
  U128 q = 0;
  for (; k >= 0; --k) {
    q <<= 1;
    if (num.Compare(den) >= 0) {
      num.Subtract(den);
      q |= 1;
    }
    den.ShiftRightOne();
  }
  return Pack(negative, -shift - static_cast<int>(f), q | (num.IsZero() ? 0 : 1));
}

int detail80::ExactDigits(Extended80 x, int precision, char* digits) {
  Parts p = Unpack(x);
  // The exact value as an integer times a power of ten: m * 2^e = (m * 5^-e) * 10^e.
  const int tz = std::countr_zero(p.mant);
  p.mant >>= tz;
  p.exp += tz;
  std::string text;
  int exp10 = 0;
  if (p.exp >= 0 && p.exp + BitLength(p.mant) <= 64) {
    char buf[24];
    const auto r = std::to_chars(buf, buf + sizeof buf, p.mant << p.exp);
    text.assign(buf, r.ptr);
  } else {
    BigNum num(p.mant);
    if (p.exp >= 0) {
      num.ShiftLeft(p.exp);
    } else {
      num.MulPow5(-p.exp);
      exp10 = p.exp;
    }
    // Nine digits at a time, least significant first.
    while (!num.IsZero()) {
      Cardinal chunk = num.DivSmall(1000000000u);
      for (int j = 0; j < 9; ++j) {
        text.push_back(static_cast<char>('0' + chunk % 10));
        chunk /= 10;
      }
    }
    while (text.size() > 1 && text.back() == '0') text.pop_back();
    std::reverse(text.begin(), text.end());
  }
  int sci = static_cast<int>(text.size()) - 1 + exp10;

  const std::size_t n = static_cast<std::size_t>(precision);
  if (text.size() <= n) {
    text.resize(n, '0');
  } else {
    const char next = text[n];
    const bool beyond = text.find_first_not_of('0', n + 1) != std::string::npos;
    const bool up = next > '5' || (next == '5' && (beyond || (text[n - 1] - '0') % 2 != 0));
    text.resize(n);
    if (up) {
      std::size_t j = n;
      while (j > 0 && text[j - 1] == '9') text[--j] = '0';
      if (j > 0) {
        ++text[j - 1];
      } else {
        text[0] = '1';
        ++sci;
      }
    }
  }
  std::memcpy(digits, text.data(), n);
  return sci;
}

int detail80::CheckedShortestDigits(Extended80 x, char* digits, int& count) {
  const Extended80 magnitude = Abs(x);
  for (count = 1;; ++count) {
    const int exp10 = Extended80Digits(magnitude, count, digits);
    // 21 digits always read back: 10^21 > 2^(64+1) * 2.
    if (count >= 21 ||
        DecimalToExtended80(false, std::string_view(digits, static_cast<std::size_t>(count)),
                            exp10 - count + 1) == magnitude)
      return exp10;
  }
}

namespace {

// ---------------------------------------------------------------------------------------
// The fast paths: a value times a power of ten, known to 190 bits.
//
// x * 10^s = m * 5^s * 2^(e + s). The power 5^s is taken from a table, its top 192 bits cut
// off below, so the product m * 5^s is known to lie in [m * w, m * (w + 3)) for a 192-bit
// w; the result is whatever rounding both ends of that interval give, since rounding never
// decreases as its argument grows. Only where the ends round differently (the value lies
// within 2^-120 or so of a rounding boundary, or exactly on one) is the answer left to the
// exact big-number code above. So each fast result is exact, and the slow code is reached
// for ties and for the rare values that lie nearly on one.

// An unsigned integer of up to five 64-bit limbs, least significant first.
struct Wide {
  UInt64 w[5] = {};
};

inline void MulAddLimb(UInt64 a, UInt64 b, UInt64& acc, UInt64& carry) {
  const U128 t = static_cast<U128>(a) * b + acc + carry;
  acc = static_cast<UInt64>(t);
  carry = static_cast<UInt64>(t >> 64);
}

// a (two limbs) times b (three limbs).
inline Wide Mul(const UInt64 a[2], const UInt64 b[3]) {
  Wide r;
  for (int i = 0; i < 2; ++i) {
    if (a[i] == 0) continue;
    UInt64 carry = 0;
    for (int j = 0; j < 3; ++j) MulAddLimb(a[i], b[j], r.w[i + j], carry);
    r.w[i + 3] += carry;  // r.w[i + 3] was 0 before row i reached it, or takes the last carry
  }
  return r;
}

// a + b, where b has up to three limbs and the sum stays within five.
inline Wide Add(Wide a, UInt64 b0, UInt64 b1 = 0, UInt64 b2 = 0) {
  const UInt64 b[5] = {b0, b1, b2, 0, 0};
  UInt64 carry = 0;
  for (int i = 0; i < 5; ++i) {
    const UInt64 s = a.w[i] + b[i];
    const UInt64 c1 = s < b[i] ? 1 : 0;
    a.w[i] = s + carry;
    carry = c1 | (a.w[i] < s ? 1 : 0);
  }
  return a;
}

inline Wide Add(Wide a, const Wide& b) {
  UInt64 carry = 0;
  for (int i = 0; i < 5; ++i) {
    const UInt64 s = a.w[i] + b.w[i];
    const UInt64 c1 = s < b.w[i] ? 1 : 0;
    a.w[i] = s + carry;
    carry = c1 | (a.w[i] < s ? 1 : 0);
  }
  return a;
}

inline Wide Sub(Wide a, const Wide& b) {  // a >= b
  UInt64 borrow = 0;
  for (int i = 0; i < 5; ++i) {
    const UInt64 d = a.w[i] - b.w[i];
    const UInt64 b1 = a.w[i] < b.w[i] ? 1 : 0;
    a.w[i] = d - borrow;
    borrow = b1 | (d < borrow ? 1 : 0);
  }
  return a;
}

inline Wide Add(Wide a, U128 b) {
  return Add(a, static_cast<UInt64>(b), static_cast<UInt64>(b >> 64));
}

// 5^s as a 192-bit w (top bit set) and exponent: 5^s lies in [w, w + 3) * 2^exp, and is
// w * 2^exp where `exact` (the small powers, whose bits all fit).
struct Pow5 {
  UInt64 w[3];
  int exp;
  bool exact;
};

// 5^(27k) for k in [-kPowIndex, kPowIndex], which covers every power the conversions need
// (|s| up to about 4990), cut to 192 bits below the exact value. Built on first use from
// exact big numbers: upwards by multiplying by 5^27, downwards by dividing a large power of
// two by 5^27 again and again (floor(floor(a / b) / c) = floor(a / (b * c))).
constexpr int kPowStep = 27;  // 5^27 is the largest power of five in 64 bits
constexpr int kPowIndex = 186;
constexpr UInt64 k5Pow27 = 7450580596923828125ull;

class Pow5Table {
 public:
  Pow5Table() {
    std::vector<UInt64> v{1};
    for (int k = 0; k <= kPowIndex; ++k) {
      fEntries[kPowIndex + k] = Top(v, 0);
      MulSmall(v, k5Pow27);
    }
    // 2^kDen with enough bits that the quotient keeps 192 of them at the last step.
    constexpr int kDen = 64 * 190;
    std::vector<UInt64> n(kDen / 64 + 1, 0);
    n.back() = 1;
    for (int k = 1; k <= kPowIndex; ++k) {
      DivSmall(n, k5Pow27);
      fEntries[kPowIndex - k] = Top(n, -kDen);
    }
  }

  const Pow5& Entry(int k) const { return fEntries[kPowIndex + k]; }

 private:
  static void MulSmall(std::vector<UInt64>& v, UInt64 f) {
    UInt64 carry = 0;
    for (UInt64& limb : v) {
      const U128 t = static_cast<U128>(limb) * f + carry;
      limb = static_cast<UInt64>(t);
      carry = static_cast<UInt64>(t >> 64);
    }
    if (carry != 0) v.push_back(carry);
  }
  static void DivSmall(std::vector<UInt64>& v, UInt64 d) {
    UInt64 rem = 0;
    for (std::size_t i = v.size(); i-- > 0;) {
      const U128 cur = (static_cast<U128>(rem) << 64) | v[i];
      v[i] = static_cast<UInt64>(cur / d);
      rem = static_cast<UInt64>(cur % d);
    }
    while (v.size() > 1 && v.back() == 0) v.pop_back();
  }
  // The top 192 bits of v, cut off below (or v shifted up, if shorter), as w * 2^exp.
  static Pow5 Top(const std::vector<UInt64>& v, int exp) {
    const int shift = static_cast<int>(v.size()) * 64 - std::countl_zero(v.back()) - 192;
    // The 64 bits of v from bit `from` up, zeros below bit 0 and above the top.
    auto bits = [&](int from) {
      UInt64 r = 0;
      for (int i = 0; i < 64; ++i) {
        const int at = from + i;
        if (at >= 0 && at / 64 < static_cast<int>(v.size()) && ((v[at / 64] >> (at % 64)) & 1))
          r |= UInt64{1} << i;
      }
      return r;
    };
    return Pow5{{bits(shift), bits(shift + 64), bits(shift + 128)}, exp + shift, shift <= 0};
  }

  Pow5 fEntries[2 * kPowIndex + 1];
};

constexpr UInt64 kPow5Small[kPowStep] = {1ull,
                                         5ull,
                                         25ull,
                                         125ull,
                                         625ull,
                                         3125ull,
                                         15625ull,
                                         78125ull,
                                         390625ull,
                                         1953125ull,
                                         9765625ull,
                                         48828125ull,
                                         244140625ull,
                                         1220703125ull,
                                         6103515625ull,
                                         30517578125ull,
                                         152587890625ull,
                                         762939453125ull,
                                         3814697265625ull,
                                         19073486328125ull,
                                         95367431640625ull,
                                         476837158203125ull,
                                         2384185791015625ull,
                                         11920928955078125ull,
                                         59604644775390625ull,
                                         298023223876953125ull,
                                         1490116119384765625ull};

// 5^s for |s| below 27 * kPowIndex: a table entry times an exact small power, the product
// cut to 192 bits again. The entry is short of its exact value by under one unit, which
// the product makes under 5^b units of the 256-bit product, and that is under two units
// once the product is cut to 192 bits (5^b is below 2^(t + 1) for a cut of t bits); the
// cut itself loses under one more: below three in all.
bool PowerOfFive(int s, Pow5& out) {
  static const Pow5Table table;
  int k = s / kPowStep, b = s % kPowStep;
  if (b < 0) {
    b += kPowStep;
    --k;
  }
  if (k < -kPowIndex || k > kPowIndex) return false;
  const Pow5& e = table.Entry(k);
  if (b == 0) {
    out = e;
    return true;
  }
  UInt64 r[4] = {};
  UInt64 carry = 0;
  for (int j = 0; j < 3; ++j) MulAddLimb(kPow5Small[b], e.w[j], r[j], carry);
  r[3] = carry;
  const int lz = std::countl_zero(r[3]);  // r[3] != 0: w's top bit times 5^b >= 5
  for (int j = 0; j < 3; ++j)
    out.w[j] = lz == 0 ? r[j + 1] : (r[j + 1] << lz) | (r[j] >> (64 - lz));
  out.exp = e.exp + 64 - lz;
  out.exact = e.exact && (r[0] << lz) == 0;  // nothing cut off
  return true;
}

int WideBitLength(const Wide& x) {
  for (int i = 4; i >= 0; --i)
    if (x.w[i] != 0) return 64 * i + 64 - std::countl_zero(x.w[i]);
  return 0;
}

// Bits [from, from + 128) of x, and whether any bit below `from` is set.
U128 WideBits(const Wide& x, int from, bool& lowerSet) {
  lowerSet = false;
  const int limb = from / 64, bit = from % 64;
  for (int i = 0; i < limb && i < 5; ++i) lowerSet = lowerSet || x.w[i] != 0;
  if (bit != 0 && limb < 5) lowerSet = lowerSet || (x.w[limb] << (64 - bit)) != 0;
  auto at = [&](int i) { return i >= 0 && i < 5 ? x.w[i] : UInt64{0}; };
  UInt64 lo, hi;
  if (bit == 0) {
    lo = at(limb);
    hi = at(limb + 1);
  } else {
    lo = (at(limb) >> bit) | (at(limb + 1) << (64 - bit));
    hi = (at(limb + 1) >> bit) | (at(limb + 2) << (64 - bit));
  }
  return (static_cast<U128>(hi) << 64) | lo;
}

// x * 2^exp rounded to the nearest 80-bit value (x != 0).
Extended80 PackWide(bool negative, int exp, const Wide& x) {
  const int from = std::max(0, WideBitLength(x) - 128);
  bool lowerSet = false;
  const U128 top = WideBits(x, from, lowerSet);
  return Pack(negative, exp + from, top | (lowerSet ? 1 : 0));
}

constexpr UInt64 kPow10[20] = {1ull,
                               10ull,
                               100ull,
                               1000ull,
                               10000ull,
                               100000ull,
                               1000000ull,
                               10000000ull,
                               100000000ull,
                               1000000000ull,
                               10000000000ull,
                               100000000000ull,
                               1000000000000ull,
                               10000000000000ull,
                               100000000000000ull,
                               1000000000000000ull,
                               10000000000000000ull,
                               100000000000000000ull,
                               1000000000000000000ull,
                               10000000000000000000ull};

struct Pow10Table {
  U128 v[39];
  constexpr Pow10Table() : v{} {
    v[0] = 1;
    for (int i = 1; i < 39; ++i) v[i] = v[i - 1] * 10;
  }
};
constexpr Pow10Table kPow10Wide;

inline U128 Pow10Wide(int n) { return kPow10Wide.v[n]; }  // n in 0..38

// digits * 10^exp10 for digits without leading or trailing zeros and an order within the
// format's range: the first 38 digits exactly, the rest (never all zeros) as "a little
// more", so the value lies in [d * 10^q, (d + 1) * 10^q).
bool ApproxDecimalToExtended80(bool negative, std::string_view digits, Int64 exp10,
                               Extended80& result) {
  const std::size_t used = std::min<std::size_t>(digits.size(), 38);
  UInt64 hi = 0, lo = 0;
  const std::size_t split = used > 19 ? used - 19 : 0;  // hi takes the digits above the last 19
  for (std::size_t i = 0; i < split; ++i) hi = hi * 10 + static_cast<UInt64>(digits[i] - '0');
  for (std::size_t i = split; i < used; ++i) lo = lo * 10 + static_cast<UInt64>(digits[i] - '0');
  const U128 d = static_cast<U128>(hi) * kPow10[used - split] + lo;
  const bool more = digits.size() > used;
  const Int64 q = exp10 + static_cast<Int64>(digits.size() - used);
  Pow5 p;
  if (!PowerOfFive(static_cast<int>(q), p)) return false;
  const UInt64 dl[2] = {static_cast<UInt64>(d), static_cast<UInt64>(d >> 64)};
  const Wide low = Mul(dl, p.w);
  // (d + more) * (w + 3) = d * w + 3 d + more * (w + 3).
  Wide high = p.exact ? low : Add(low, d * 3);
  if (more) high = Add(Add(high, UInt64{3}), p.w[0], p.w[1], p.w[2]);
  const int exp = p.exp + static_cast<int>(q);
  result = PackWide(negative, exp, low);
  const Extended80 other = PackWide(negative, exp, high);
  return result.SignExp() == other.SignExp() && result.Mantissa() == other.Mantissa();
}

// floor(x * 2^-f) (which must fit 128 bits) and where the fraction lies: 0 none, 1 below
// one half, 2 one half, 3 above.
struct Fixed {
  U128 ip;
  int frac;
};

bool SplitFixed(const Wide& x, int f, Fixed& out) {
  if (f < 2 || f > 300 || WideBitLength(x) - f > 127) return false;
  const int limb = f / 64, bit = f % 64;
  auto at = [&](int i) { return i < 5 ? x.w[i] : UInt64{0}; };
  const UInt64 lo = bit == 0 ? at(limb) : (at(limb) >> bit) | (at(limb + 1) << (64 - bit));
  const UInt64 hi = bit == 0 ? at(limb + 1) : (at(limb + 1) >> bit) | (at(limb + 2) << (64 - bit));
  out.ip = (static_cast<U128>(hi) << 64) | lo;
  // The fraction: bit f - 1 is the half, the bits below it say "more".
  const int h = f - 1, hLimb = h / 64, hBit = h % 64;
  const bool half = ((x.w[hLimb] >> hBit) & 1) != 0;
  bool below = (x.w[hLimb] & ((UInt64{1} << hBit) - 1)) != 0;
  for (int i = 0; i < hLimb && !below; ++i) below = x.w[i] != 0;
  out.frac = half ? (below ? 3 : 2) : (below ? 1 : 0);
  return true;
}

int DigitCount(U128 v) {
  const UInt64 hi = static_cast<UInt64>(v >> 64);
  const int bits =
      hi != 0 ? 128 - std::countl_zero(hi) : 64 - std::countl_zero(static_cast<UInt64>(v) | 1);
  // 2^(bits-1) <= v < 2^bits: the count is floor((bits - 1) log10 2) + 1, or one more.
  int n = static_cast<int>(((bits - 1) * 1233) >> 12) + 1;
  if (n < 39 && v >= Pow10Wide(n)) ++n;
  return n;
}

// A value of `precision` or one more digits rounded to `precision` digits, ties to even:
// the digits as an integer, with one added to `sci` where the value had the extra digit.
U128 RoundFixed(const Fixed& v, int precision, int& sci) {
  U128 q = v.ip;
  bool up;
  if (q >= Pow10Wide(precision)) {
    UInt64 last;
    if (static_cast<UInt64>(q >> 64) == 0) {
      const UInt64 q64 = static_cast<UInt64>(q);
      last = q64 % 10;
      q = q64 / 10;
    } else {
      last = static_cast<UInt64>(q % 10);
      q = q / 10;
    }
    up = last > 5 || (last == 5 && (v.frac != 0 || (static_cast<UInt64>(q) & 1) != 0));
    ++sci;
  } else {
    up = v.frac == 3 || (v.frac == 2 && (static_cast<UInt64>(q) & 1) != 0);
  }
  if (up) {
    q = q + 1;
    if (q == Pow10Wide(precision)) {
      q = Pow10Wide(precision - 1);
      ++sci;
    }
  }
  return q;
}

// v as exactly n digits (leading zeros where it is shorter).
void WriteDigits64(UInt64 v, int n, char* digits) {
  for (int i = n; i-- > 0;) {
    digits[i] = static_cast<char>('0' + v % 10);
    v /= 10;
  }
}

void WriteDigits(U128 q, int n, char* digits) {
  if (n <= 19) {
    WriteDigits64(static_cast<UInt64>(q), n, digits);
    return;
  }
  // One division splits off the last 19 digits, below 10^19 < 2^64.
  const U128 head = q / kPow10[19];
  WriteDigits64(static_cast<UInt64>(head), n - 19, digits);
  WriteDigits64(static_cast<UInt64>(q - head * kPow10[19]), 19, digits + (n - 19));
}

// floor(log10(2^e)), for |e| up to about 2^20.
int FloorLog10Pow2(int e) {
  return static_cast<int>((static_cast<Int64>(e) * 330985980541LL) >> 40);
}

// x (finite, not zero) times 10^s as [low, high) in units of 2^-f.
struct Scaled {
  Wide low, high;
  int f;
};

void ScaleBy(U128 m, int e, int s, const Pow5& p, Scaled& out) {
  const UInt64 ml[2] = {static_cast<UInt64>(m), static_cast<UInt64>(m >> 64)};
  out.low = Mul(ml, p.w);
  out.high = p.exact ? out.low : Add(out.low, m * 3);
  out.f = -(p.exp + e + s);
}

bool ScaleUp(U128 m, int e, int s, Scaled& out) {
  Pow5 p;
  if (!PowerOfFive(s, p)) return false;
  ScaleBy(m, e, s, p, out);
  return true;
}

// The first `precision` digits of |x| (up to 36), or false where the fast path cannot tell.
bool FastDigits(Extended80 x, int precision, char* digits, int& sci) {
  if (precision > 36) return false;
  const Parts p = Unpack(x);
  int k = FloorLog10Pow2(p.exp + 63);  // the first digit's place, or one below it
  for (int attempt = 0; attempt < 3; ++attempt) {
    Scaled v;
    Fixed lo, hi;
    const int s = precision - 1 - k;
    if (!ScaleUp(p.mant, p.exp, s, v) || !SplitFixed(v.low, v.f, lo)) return false;
    const int len = DigitCount(lo.ip);
    if (len < precision) {  // the estimate was one too high
      --k;
      continue;
    }
    if (len > precision + 1) {
      ++k;
      continue;
    }
    if (!SplitFixed(v.high, v.f, hi)) return false;
    int sciLo = k, sciHi = k;
    const U128 qLo = RoundFixed(lo, precision, sciLo);
    const U128 qHi = RoundFixed(hi, precision, sciHi);
    if (qLo != qHi || sciLo != sciHi) return false;
    WriteDigits(qLo, precision, digits);
    sci = sciLo;
    return true;
  }
  return false;
}

// Where an integer d lies against a value known to lie in [low, high) (high > low): -1
// surely below, 1 surely above, 0 too close to tell (or equal).
struct Bound {
  U128 ipLow, ipHigh;
  bool fracLow, fracHigh;  // a non-zero fraction
};

bool MakeBound(const Scaled& v, Bound& b) {
  Fixed lo, hi;
  if (!SplitFixed(v.low, v.f, lo) || !SplitFixed(v.high, v.f, hi)) return false;
  b = {lo.ip, hi.ip, lo.frac != 0, hi.frac != 0};
  return true;
}

int Against(U128 d, const Bound& b) {
  if (d < b.ipLow || (d == b.ipLow && b.fracLow)) return -1;
  if (d > b.ipHigh || (d == b.ipHigh && !b.fracHigh)) return 1;
  return 0;
}

// The shortest digits without the read-back: the rounding interval of x scaled by the same
// power of ten as x, and each count's digits compared with its ends.
bool FastShortest(Extended80 x, char* digits, int& count, int& sci) {
  const UInt64 mant = x.Mantissa();
  const int biased = x.BiasedExp();
  if ((biased == 0) == ((mant & kTop) != 0)) return false;            // not the canonical encoding
  const int e = (biased == 0 ? 1 : biased) - Extended80::kBias - 63;  // of the last bit
  // Everything in quarters of the last bit: x, the midpoint above, the midpoint below
  // (a quarter away where the value starts a binade and the step below is half as large).
  const U128 mx = static_cast<U128>(mant) << 2;
  const U128 mp = mx + 2;
  const U128 mm = mx - ((mant == kTop && biased > 1) ? 1 : 2);
  // Whether an end itself reads back (it does where the significand is even) is left to
  // the checked path: a count whose digits fall on an end is never decided here.
  int k = FloorLog10Pow2(e + 63 - std::countl_zero(mant));
  const int s = 20 - k;  // x scaled to 21 or 22 digits (or 20, if k is one too high)
  Pow5 p;
  if (!PowerOfFive(s, p)) return false;
  Scaled vx, vp, vm;
  ScaleBy(mx, e - 2, s, p, vx);
  // The ends from x's product: (mx + c) w = mx w + c w, c = 2 above, 1 or 2 below.
  const UInt64 one[2] = {1, 0}, two[2] = {2, 0};
  const Wide w2 = Mul(two, p.w);
  vp = {Add(vx.low, w2), {}, vx.f};
  // An exact end still gets an interval [low, low + 1) for Against, which needs its
  // value strictly below the interval's top.
  vp.high = Add(vp.low, p.exact ? U128(1) : mp * 3);
  vm = {Sub(vx.low, mx - mm == 2 ? w2 : Mul(one, p.w)), {}, vx.f};
  vm.high = Add(vm.low, p.exact ? U128(1) : mm * 3);
  Fixed lo, hi;
  if (!SplitFixed(vx.low, vx.f, lo) || !SplitFixed(vx.high, vx.f, hi)) return false;
  if (lo.ip != hi.ip || lo.frac != hi.frac) return false;
  Bound up, down;
  if (!MakeBound(vp, up) || !MakeBound(vm, down)) return false;
  const int len = DigitCount(lo.ip);
  if (len < 21 || len > 22) return false;
  char d[24];
  WriteDigits(lo.ip, len, d);
  // nonZeroAfter[i]: a digit after place i, or the fraction, is not zero.
  bool nonZeroAfter[24];
  nonZeroAfter[len - 1] = lo.frac != 0;
  for (int i = len - 1; i > 0; --i) nonZeroAfter[i - 1] = nonZeroAfter[i] || d[i] != '0';
  // The interval is under `width` units wide, below 10^t. Cut after the first n digits,
  // x's tail has digits in the places from t up; unless those are all zeros or all nines,
  // the tail is at least 10^t away from both 0 and the next step, so the rounded digits lie
  // beyond the interval. Those counts are passed over without a check.
  const int t = DigitCount(up.ipHigh - down.ipLow + 1);
  int firstCount = len - t;
  if (firstCount > 0 && (d[firstCount - 1] == '0' || d[firstCount - 1] == '9')) {
    const char c = d[--firstCount];
    while (firstCount > 0 && d[firstCount - 1] == c) --firstCount;
  }
  U128 prefix = 0;
  for (int n = 1; n <= 20; ++n) {
    prefix = prefix * 10 + static_cast<UInt64>(d[n - 1] - '0');
    if (n < firstCount) continue;
    const char next = d[n];
    const bool roundUp =
        next > '5' || (next == '5' && (nonZeroAfter[n] || (static_cast<UInt64>(prefix) & 1) != 0));
    const U128 rounded = prefix + (roundUp ? 1 : 0);
    const U128 value = rounded * Pow10Wide(len - n);
    const int below = Against(value, down), above = Against(value, up);
    if (below == 0 || above == 0) return false;
    if (below < 0 || above > 0) continue;
    sci = len - 1 - s;
    if (rounded == Pow10Wide(n)) {
      digits[0] = '1';
      std::memset(digits + 1, '0', static_cast<std::size_t>(n - 1));
      ++sci;
    } else {
      WriteDigits(rounded, n, digits);
    }
    count = n;
    return true;
  }
  sci = 20 - s;  // RoundFixed adds the place of a 22nd digit
  const U128 q = RoundFixed(lo, 21, sci);
  WriteDigits(q, 21, digits);
  count = 21;
  return true;
}

}  // namespace

Extended80 DecimalToExtended80(bool negative, std::string_view digits, Int64 exp10) {
  while (!digits.empty() && digits.front() == '0') digits.remove_prefix(1);
  while (!digits.empty() && digits.back() == '0') {
    digits.remove_suffix(1);
    ++exp10;
  }
  const Extended80 zero = Extended80::FromBits(negative ? kSign : 0, 0);
  if (digits.empty()) return zero;
  // The value lies in [10^(order-1), 10^order); the format spans about 3.6e-4951 to
  // 1.19e4932.
  const Int64 order = static_cast<Int64>(digits.size()) + exp10;
  if (order > 4934) return Infinity(negative);
  if (order < -4952) return zero;
  // Short texts of everyday size in 128 bits, exactly.
  if (digits.size() <= 19 && exp10 >= -26 && exp10 <= 27)
    return ExactDecimalToExtended80(negative, digits, exp10);
  Extended80 fast;
  if (ApproxDecimalToExtended80(negative, digits, exp10, fast)) return fast;
  return ExactDecimalToExtended80(negative, digits, exp10);
}

int Extended80Digits(Extended80 x, int precision, char* digits) {
  precision = std::clamp(precision, 1, 40);
  int sci = 0;
  if (FastDigits(x, precision, digits, sci)) return sci;
  return ExactDigits(x, precision, digits);
}

int Extended80ShortestDigits(Extended80 x, char* digits, int& count) {
  int sci = 0;
  if (FastShortest(Abs(x), digits, count, sci)) return sci;
  return CheckedShortestDigits(x, digits, count);
}
}  // namespace ostrel
