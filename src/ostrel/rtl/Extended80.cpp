// The 80-bit extended format in software. Every operation works on the exact value
// (a 64-bit significand times a power of two, widened to 128 bits) and rounds once, in Pack.
#include <ostrel/rtl/Extended80.h>

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
#  if LDBL_MANT_DIG == 113
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
#  elif LDBL_MANT_DIG == 53
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
#  else
#    error "unsupported long double format"
#  endif
}

Extended Extended80::ToOther() const {
#  if LDBL_MANT_DIG == 113
  const int biased = BiasedExp();
  // The binary128 fraction: the 63 bits below the explicit integer bit, at its top; the
  // 80-bit denormals are binary128 denormals with the same last-bit value scaled by 2^49.
  const U128 frac = static_cast<U128>(biased == 0 ? fMant : fMant & ~kTop) << 49;
  const UInt64 hi = (static_cast<UInt64>(Negative()) << 63) |
                    (static_cast<UInt64>(biased) << 48) | static_cast<UInt64>(frac >> 64);
  const UInt64 lo = static_cast<UInt64>(frac);
  Extended x = 0;
  std::memcpy(&x, &lo, 8);
  std::memcpy(reinterpret_cast<char*>(&x) + 8, &hi, 8);
  return x;
#  else
  if (IsNaN(*this)) return std::numeric_limits<Extended>::quiet_NaN();
  const Extended inf = std::numeric_limits<Extended>::infinity();
  if (!IsFinite(*this)) return Negative() ? -inf : inf;
  const Parts p = Unpack(*this);
  const Extended m = std::ldexp(static_cast<Extended>(p.mant), p.exp);
  return p.negative ? -m : m;
#  endif
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
    for (std::size_t j = i; j < i + 9; ++j) chunk = chunk * 10 + static_cast<Cardinal>(digits[j] - '0');
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

int Extended80Digits(Extended80 x, int precision, char* digits) {
  precision = std::clamp(precision, 1, 40);
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

int Extended80ShortestDigits(Extended80 x, char* digits, int& count) {
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

}  // namespace ostrel
