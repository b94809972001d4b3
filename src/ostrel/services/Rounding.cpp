// Decimal rounding in 80-bit extended arithmetic, and the formatting helpers on top of it.
#include <ostrel/services/Rounding.h>

#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/Format.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>

namespace ostrel {

bool CurrencySymbol = true;

namespace {

// The steps below are written once for two number types: long double where it is the x87
// extended format (the hardware path), and Extended80, the same format in software, used
// where long double is something else. Both round every step to nearest with a 64-bit
// significand, so both give the same bits.
inline bool IsFinite(long double x) { return std::isfinite(x); }
inline long double Abs(long double x) { return std::fabs(x); }
inline long double Trunc(long double x) { return std::trunc(x); }
[[maybe_unused]] inline Extended ToExtended(long double x) { return x; }
[[maybe_unused]] inline Extended ToExtended(Extended80 x) { return x.ToExtended(); }

// The constants of the arithmetic, in the type that computes it.
template <class F>
struct Constants {
  F zero, half, one, ten, hundred, tolerance;
  F approxRelative, approxAbsolute;  // when FToStr marks a rounded value with "~"
  // 10^k made by k multiplications by ten, as RoundExt's scale is: the first steps of that
  // loop done once.
  std::array<F, 28> tens{};

  Constants(F tol, F approxRel, F approxAbs)
      : zero(0.0L),
        half(0.5L),
        one(1.0L),
        ten(10.0L),
        hundred(100.0L),
        tolerance(tol),
        approxRelative(approxRel),
        approxAbsolute(approxAbs) {
    tens[0] = one;
    for (std::size_t k = 1; k < tens.size(); ++k) tens[k] = tens[k - 1] * ten;
  }
};

// Long double arithmetic runs on the x87 unit, whose precision and rounding come from its
// control word, not from the instructions. On Linux the unit starts in extended precision,
// but a host may change it: a library loaded into a 32-bit Windows program commonly finds
// the unit in 53-bit precision (the Microsoft runtime's default), and then every extended
// operation here would silently round to double. So each RoundExt makes sure of extended
// precision (PC = 11) and round-to-nearest (RC = 00) and leaves it so for the thread, as
// the callers of this library expect; the exception masks are not touched. Loading the
// control word is skipped when it already holds the right bits.
inline void EnsureExtendedNearest() {
#if (defined(__i386__) || defined(__x86_64__)) && (defined(__GNUC__) || defined(__clang__))
  unsigned short cw = 0;
  __asm__ __volatile__("fnstcw %0" : "=m"(cw));
  const unsigned short want = static_cast<unsigned short>((cw & ~0x0F00u) | 0x0300u);
  if (want != cw) __asm__ __volatile__("fldcw %0" : : "m"(want));
#endif
}

// Keeps the compiler from moving arithmetic on v above the control-word setting: the empty
// volatile statement claims to change v, so every use of v must follow it.
template <class T>
inline void Barrier(T& v) {
#if defined(__GNUC__) || defined(__clang__)
  __asm__ __volatile__("" : "+m"(v));
#else
  (void)v;
#endif
}

// y rounded as integer part plus its fraction rounded to the nearest integer (ties to even,
// and since the fraction lies in (-1, 1) a tie always goes to 0). k receives that rounded
// fraction.
template <class F>
[[gnu::always_inline]] inline F TwoPiece(F y, int& k, const Constants<F>& c) {
  const F ip = Trunc(y);
  const F f = y - ip;  // exact: ip and y share the exponent
  k = f > c.half ? 1 : (f < -c.half ? -1 : 0);
  if (k != 0) return ip + (k > 0 ? c.one : -c.one);
  return ip == c.zero ? c.zero : ip;  // ip + 0, which turns -0 into +0
}

// The same for the software type, read off y's bits: the whole part is the significand with
// its fraction bits cleared, and the rounded fraction is 1 exactly when those bits are above
// one half. Values that are not normal take the general steps.
[[gnu::always_inline]] inline Extended80 TwoPiece(Extended80 y, int& k,
                                                  const Constants<Extended80>& c) {
  const int biased = y.BiasedExp();
  const UInt64 mant = y.Mantissa();
  using detail80::kTop;
  if ((mant & kTop) == 0 || biased == 0 || biased == Extended80::kMaxExp)
    return TwoPiece<Extended80>(y, k, c);
  const bool negative = y.Negative();
  const int e = biased - Extended80::kBias;  // y = mant * 2^(e - 63)
  k = 0;
  if (e < -1) return c.zero;  // below one half
  if (e == -1) {              // [0.5, 1): one when above the half, else 0
    if (mant == kTop) return c.zero;
    k = negative ? -1 : 1;
    return negative ? -c.one : c.one;
  }
  if (e >= 63) return y;  // no fraction
  const int fracBits = 63 - e;
  const UInt64 mask = (UInt64{1} << fracBits) - 1;
  const UInt64 whole = mant & ~mask;
  if ((mant & mask) <= (UInt64{1} << (fracBits - 1)))
    return Extended80::FromBits(y.SignExp(), whole);
  k = negative ? -1 : 1;
  const UInt64 up = whole + (UInt64{1} << fracBits);  // one more in magnitude
  if (up == 0) return Extended80::FromBits(static_cast<Word>(y.SignExp() + 1), kTop);
  return Extended80::FromBits(y.SignExp(), up);
}

template <class F>
F Power10In(F x, int n, const Constants<F>& c) {
  Int64 count = n < 0 ? -static_cast<Int64>(n) : n;
  // Once the value is zero, infinite or NaN further steps change nothing.
  for (; count > 0 && IsFinite(x) && x != c.zero; --count) {
    if (n > 0)
      x *= c.ten;
    else
      x /= c.ten;
  }
  return x;
}

// RoundExt for a finite x and a mode other than drNone.
template <class F>
F RoundIn(F x, int n, TDecimalRoundingCtrl mode, const Constants<F>& c) {
  // 10^|n| by repeated multiplication; beyond about 10^4932 it is infinite and stays so.
  const Int64 places = n < 0 ? -static_cast<Int64>(n) : n;
  const Int64 first = std::min<Int64>(places, static_cast<Int64>(c.tens.size()) - 1);
  F m = c.tens[static_cast<std::size_t>(first)];
  for (Int64 count = places - first; count > 0 && IsFinite(m); --count) m *= c.ten;

  const F tol = Abs(c.tolerance * x);
  F s, e;
  if (n >= 0) {
    s = x * m;
    e = tol * m;
    // No representable value has digits that far right: nothing to round.
    if (!IsFinite(s) || !IsFinite(e)) return x;
  } else {
    s = x / m;
    e = tol / m;
  }

  F y;
  switch (mode) {
    case drHalfEven: y = s - e; break;
    case drHalfPos: y = s + e; break;
    case drHalfNeg: y = s - e; break;
    case drHalfDown: y = Abs(s) - e; break;
    case drHalfUp: y = Abs(s) + e; break;
    case drRndNeg: y = s + (e - c.half); break;
    case drRndPos: y = s - (e - c.half); break;
    case drRndDown: y = Abs(s) + (e - c.half); break;
    case drRndUp: y = Abs(s) - (e - c.half); break;
    default: y = s; break;
  }

  int k = 0;
  F r = TwoPiece(y, k, c);
  // An odd rounded fraction means the value lay above the half (after the tolerance was
  // taken off); then round again with the tolerance added. The net effect is that an exact
  // half goes towards zero in this mode, which existing documents rely on.
  if (mode == drHalfEven && k != 0) r = TwoPiece(s + e, k, c);

  F result;
  if (r == c.zero)
    result = r;  // also where m overflowed: 0 * infinity must not become NaN
  else
    result = n >= 0 ? r / m : r * m;

  switch (mode) {
    case drHalfDown:
    case drHalfUp:
    case drRndDown:
    case drRndUp:
      if (x < c.zero) result = -result;
      break;
    default: break;
  }
  return result;
}

const Constants<Extended80>& SoftConstants() {
  // The tolerance from its decimal digits, so that it is the same 80-bit value everywhere.
  static const Constants<Extended80> c(DecimalToExtended80(false, "548172618420937533", -33),
                                       DecimalToExtended80(false, "1", -12),
                                       DecimalToExtended80(false, "1", -15));
  return c;
}

#if OSTREL_X87_EXTENDED
// The x87 literals are the same 80-bit values as the software constants.
using Real = long double;
const Constants<Real>& RealConstants() {
  static const Constants<long double> c(RoundingTolerance, 1e-12L, 1e-15L);
  return c;
}
#else
using Real = Extended80;
const Constants<Real>& RealConstants() { return SoftConstants(); }
#endif

}  // namespace

Extended Power10(Extended x, int n) {
#if OSTREL_X87_EXTENDED
  EnsureExtendedNearest();
  Barrier(x);
#endif
  return ToExtended(Power10In(Real(x), n, RealConstants()));
}

Extended RoundExt(Extended x, int n, TDecimalRoundingCtrl mode) {
#if OSTREL_X87_EXTENDED
  if (!std::isfinite(x) || mode == drNone) return x;
  EnsureExtendedNearest();
  Barrier(x);
  Barrier(n);
  return RoundIn(x, n, mode, RealConstants());
#else
  return RoundExtSoftware(x, n, mode);
#endif
}

Extended RoundExtSoftware(Extended x, int n, TDecimalRoundingCtrl mode) {
  const Extended80 v = x;
  if (!IsFinite(v) || mode == drNone) return x;
  return RoundIn(v, n, mode, SoftConstants()).ToExtended();
}

Extended RoundF(Extended x, int n) { return n >= 15 ? x : RoundExt(x, n, drHalfUp); }
Extended rnd(Extended x, int n) { return RoundF(x, n); }
Extended rnd4(Extended x) { return RoundF(x, 4); }
Extended rnd8(Extended x) { return RoundF(x, 8); }

Extended RoundStep(int n) { return n == 0 ? 1.0L : Power10(1.0L, -n); }

int Sign(Extended x) {
  if (x == 0) return 0;
  return x < 0 ? -1 : 1;
}

int cmpf(Extended a, Extended b, int n) { return Sign(RoundF(a - b, n)); }
int cmp8(Extended a, Extended b) { return cmpf(a, b, 8); }
int CompareSum(Extended a, Extended b, int n) { return cmpf(a, b, n); }
bool equf(Extended a, Extended b, int n) { return cmpf(a, b, n) == 0; }
bool equ8(Extended a, Extended b) { return equf(a, b, 8); }

int estf(Extended a, Extended b, int n) {
  const int s = Sign(RoundF(a, n));
  if (s <= 0) return s;
  return cmpf(a, b, n) + 2;
}

int est8(Extended a, Extended b) { return estf(a, b, 8); }

// The percent and tax arithmetic is done in the 80-bit format as well (Real), so that its
// results do not depend on how wide the platform's long double is.
Extended PercentCalc(Extended a, Extended b) {
  const auto& c = RealConstants();
  return ToExtended((Real(a) - Real(b)) * c.hundred / Real(a));
}

Extended PercentApply(Extended value, Extended percent) {
  const auto& c = RealConstants();
  const Real v = value;
  const Real part = v * Abs(Real(percent)) / c.hundred;
  return ToExtended(percent > 0 ? v + part : v + -part);
}

Extended PercentBack(Extended value, Extended percent) {
  if (percent == -100.0L) return 0.0L;
  const auto& c = RealConstants();
  return ToExtended(Real(value) * c.hundred / (Real(percent) + c.hundred));
}

Extended TaxSum(Extended sum, Extended rate, int n) {
  const auto& c = RealConstants();
  Real tax;
  if (rate >= 0) {
    tax = Real(sum) * Real(rate) / c.hundred;
  } else {
    const Real p = -Real(rate);
    tax = Real(sum) * p / (p + c.hundred);
  }
  return RoundF(ToExtended(tax), n);
}

Extended TaxApply(Extended sum, Extended rate, int n) {
  const Real sign = static_cast<Extended>(Sign(rate));
  return RoundF(ToExtended(Real(sum) + sign * Real(TaxSum(sum, rate, n))), n);
}

Extended TaxCalc(Extended sum, Extended tax, int n) {
  const auto& c = RealConstants();
  Real s = sum, t = tax;
  if (tax < 0) {
    t = Abs(t);
    s = s - t;
  }
  if (s == c.zero) return 0.0L;
  return RoundF(ToExtended(t / s * c.hundred), n);
}

AnsiString FToStr(Extended x, int minDecimals, int maxDecimals, bool approxMark) {
  Extended y = x;
  bool approx = false;
  if (maxDecimals < 15) {
    y = RoundF(x, maxDecimals);
    const auto& c = RealConstants();
    approx =
        approxMark && Abs(Real(x)) * c.approxRelative + c.approxAbsolute <= Abs(Real(x) - Real(y));
  }
  const int lo = std::clamp(minDecimals, 0, 15);
  const int hi = std::min(maxDecimals, 15);
  AnsiString s = FloatToStrF(y, ffNumber, 15, std::max(lo, hi));

  if (lo < hi) {
    const char dec = FormatSettings.DecimalSeparator;
    const std::size_t len = s.size();
    // Only a text of the expected fixed shape is touched (not "INF" or an exponent form).
    if (len > static_cast<std::size_t>(hi) && s[len - hi - 1] == dec) {
      const std::size_t sep = len - hi - 1;
      std::size_t end = len;
      while (end - sep - 1 > static_cast<std::size_t>(lo) && s[end - 1] == '0') --end;
      if (end == sep + 1) end = sep;  // no decimals left: drop the separator as well
      s.resize(end);
    }
  }
  if (approx) s.insert(s.begin(), '~');
  return s;
}

AnsiString FToStrSymb(Extended x, int minDecimals, int maxDecimals, Byte symbolPos,
                      std::string_view symbol, bool approxMark) {
  AnsiString s = FToStr(x, minDecimals, maxDecimals, approxMark);
  if (!CurrencySymbol) return s;
  switch (symbolPos) {
    case 0: return AnsiString(symbol) + s;
    case 1: return s + AnsiString(symbol);
    case 2: return AnsiString(symbol) + ' ' + s;
    case 3: return s + ' ' + AnsiString(symbol);
    default: return s;
  }
}

AnsiString CrcToStr(Extended x, bool approxMark) {
  return FToStrSymb(x, FormatSettings.CurrencyDecimals, 15, FormatSettings.CurrencyFormat,
                    FormatSettings.CurrencyString, approxMark);
}

AnsiString Int0Str(Integer value, int width) {
  if (width <= 0) return AnsiString();
  AnsiString s = IntToStr(value);
  const std::size_t w = static_cast<std::size_t>(width);
  if (s.size() < w) return AnsiString(w - s.size(), '0') + s;
  s.resize(w);
  return s;
}

AnsiString MemSizeStr(Int64 size, int level) {
  static constexpr char kPrefix[] = "=kMGTPEZY";
  Extended v = static_cast<Extended>(size);
  if (level < 0 || level >= 9) {
    level = 0;
    while (v >= 1024.0L && level < 8) {
      v /= 1024.0L;
      ++level;
    }
  } else {
    for (int i = 0; i < level; ++i) v /= 1024.0L;
  }
  AnsiString s = Format(level > 1 ? "%.2n " : "%.0n ", v);
  if (level > 0) s += kPrefix[level];
  s += 'B';
  return s;
}

bool TryExtractNum(std::string_view text, Extended& value) {
  value = 0;
  auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (std::none_of(text.begin(), text.end(), isDigit)) return false;
  const char dec = FormatSettings.DecimalSeparator;
  // Control characters are not delimiters; signs are, so a sign never joins the number.
  auto isDelim = [&](char c) {
    return static_cast<unsigned char>(c) >= 32 && !isDigit(c) && c != dec;
  };
  std::size_t i = 0;
  const std::size_t n = text.size();
  while (i < n) {
    while (i < n && isDelim(text[i])) ++i;
    const std::size_t start = i;
    while (i < n && !isDelim(text[i])) ++i;
    const std::string_view run = text.substr(start, i - start);
    if (std::any_of(run.begin(), run.end(), isDigit)) {
      Extended v = 0;
      if (TryStrToFloat(run, v)) {
        value = v;
        return true;
      }
    }
  }
  return false;
}

Integer HexToInt(std::string_view text) {
  AnsiString s(text);
  if (!s.empty() && s[0] != '$') s.insert(s.begin(), '$');
  return StrToInt(s);
}

Integer HexToInt(std::string_view text, Integer def) {
  try {
    return HexToInt(text);
  } catch (const Exception&) {
    return def;
  }
}

}  // namespace ostrel
