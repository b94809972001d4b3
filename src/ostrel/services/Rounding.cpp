// Decimal rounding in 80-bit extended arithmetic, and the formatting helpers on top of it.
#include <ostrel/services/Rounding.h>

#include <ostrel/rtl/Format.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace ostrel {

// The tolerance and the two-piece rounding below are tuned to the 64-bit mantissa of the
// x87 extended format: with a narrower long double (MSVC makes it a plain double) amounts
// such as 2.675 would no longer round the way a bookkeeper expects.
static_assert(LDBL_MANT_DIG == 64, "rounding needs the 80-bit extended long double");

bool CurrencySymbol = true;

namespace {

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
inline Extended TwoPiece(Extended y, int& k) {
  const Extended ip = std::trunc(y);
  const Extended f = y - ip;  // exact: ip and y share the exponent
  k = f > 0.5L ? 1 : (f < -0.5L ? -1 : 0);
  return ip + static_cast<Extended>(k);
}

}  // namespace

Extended Power10(Extended x, int n) {
  Int64 count = n < 0 ? -static_cast<Int64>(n) : n;
  // Once the value is zero, infinite or NaN further steps change nothing.
  for (; count > 0 && std::isfinite(x) && x != 0; --count) {
    if (n > 0)
      x *= 10.0L;
    else
      x /= 10.0L;
  }
  return x;
}

Extended RoundExt(Extended x, int n, TDecimalRoundingCtrl mode) {
  if (!std::isfinite(x) || mode == drNone) return x;
  EnsureExtendedNearest();
  Barrier(x);
  Barrier(n);

  // 10^|n| by repeated multiplication; beyond about 10^4932 it is infinite and stays so.
  Extended m = 1.0L;
  for (Int64 count = n < 0 ? -static_cast<Int64>(n) : n; count > 0 && std::isfinite(m); --count)
    m *= 10.0L;

  const Extended tol = std::fabs(RoundingTolerance * x);
  Extended s, e;
  if (n >= 0) {
    s = x * m;
    e = tol * m;
    // No representable value has digits that far right: nothing to round.
    if (!std::isfinite(s) || !std::isfinite(e)) return x;
  } else {
    s = x / m;
    e = tol / m;
  }

  Extended y;
  switch (mode) {
    case drHalfEven: y = s - e; break;
    case drHalfPos: y = s + e; break;
    case drHalfNeg: y = s - e; break;
    case drHalfDown: y = std::fabs(s) - e; break;
    case drHalfUp: y = std::fabs(s) + e; break;
    case drRndNeg: y = s + (e - 0.5L); break;
    case drRndPos: y = s - (e - 0.5L); break;
    case drRndDown: y = std::fabs(s) + (e - 0.5L); break;
    case drRndUp: y = std::fabs(s) - (e - 0.5L); break;
    default: y = s; break;
  }

  int k = 0;
  Extended r = TwoPiece(y, k);
  // An odd rounded fraction means the value lay above the half (after the tolerance was
  // taken off); then round again with the tolerance added. The net effect is that an exact
  // half goes towards zero in this mode, which existing documents rely on.
  if (mode == drHalfEven && k != 0) r = TwoPiece(s + e, k);

  Extended result;
  if (r == 0)
    result = r;  // also where m overflowed: 0 * infinity must not become NaN
  else
    result = n >= 0 ? r / m : r * m;

  switch (mode) {
    case drHalfDown:
    case drHalfUp:
    case drRndDown:
    case drRndUp:
      if (x < 0) result = -result;
      break;
    default: break;
  }
  return result;
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

Extended PercentCalc(Extended a, Extended b) { return (a - b) * 100.0L / a; }

Extended PercentApply(Extended value, Extended percent) {
  const Extended s = percent > 0 ? 1.0L : -1.0L;
  return value + value * std::fabs(percent) / 100.0L * s;
}

Extended PercentBack(Extended value, Extended percent) {
  if (percent == -100.0L) return 0.0L;
  return value * 100.0L / (percent + 100.0L);
}

Extended TaxSum(Extended sum, Extended rate, int n) {
  Extended tax;
  if (rate >= 0) {
    tax = sum * rate / 100.0L;
  } else {
    const Extended p = -rate;
    tax = sum * p / (p + 100.0L);
  }
  return RoundF(tax, n);
}

Extended TaxApply(Extended sum, Extended rate, int n) {
  return RoundF(sum + Sign(rate) * TaxSum(sum, rate, n), n);
}

Extended TaxCalc(Extended sum, Extended tax, int n) {
  if (tax < 0) {
    tax = std::fabs(tax);
    sum -= tax;
  }
  if (sum == 0) return 0.0L;
  return RoundF(tax / sum * 100.0L, n);
}

AnsiString FToStr(Extended x, int minDecimals, int maxDecimals, bool approxMark) {
  Extended y = x;
  bool approx = false;
  if (maxDecimals < 15) {
    y = RoundF(x, maxDecimals);
    approx = approxMark && std::fabs(x) * 1e-12L + 1e-15L <= std::fabs(x - y);
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
