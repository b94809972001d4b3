// The exact conversions between decimal text and the 80-bit extended format
// (Extended80Digits, Extended80ShortestDigits, DecimalToExtended80) against the C library on
// x86-64 Linux, where glibc's snprintf("%.*Le") and strtold are exact for that format.
//
// Each input picks an extended value anywhere in the range (denormals included) and a
// precision, and also a decimal text of its own. Checked: the digits at that precision,
// the shortest digits (the fewest that glibc itself reads back, rounded as glibc rounds
// them), and the reading of the value's texts, of the exact midpoint between the value and
// the next one (a tie), of that midpoint with a digit more or cut short (either side of the
// tie), and of the input's own text. Slow cases are findings as well: the run limits each
// input's time.
#include "FuzzUtil.h"

#include <ostrel/rtl/Extended80.h>

#include <cstdlib>
#include <string>

using namespace ostrel;

namespace {

std::string Show(Extended80 x) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04X:%016llX", x.SignExp(),
                static_cast<unsigned long long>(x.Mantissa()));
  return buf;
}

bool Same(Extended80 a, Extended80 b) {
  return a.SignExp() == b.SignExp() && a.Mantissa() == b.Mantissa();
}

// A finite, positive, canonical value from any bits; never zero.
Extended80 MakeValue(Word biasedBits, UInt64 mant) {
  int biased = biasedBits & 0x7FFF;
  if (biased == 0x7FFF) biased = 0x7FFE;
  if (biased != 0) {
    mant |= UInt64{1} << 63;
  } else {
    mant &= ~(UInt64{1} << 63);
    if (mant == 0) mant = 1;
  }
  return Extended80::FromBits(static_cast<Word>(biased), mant);
}

#if OSTREL_X87_EXTENDED && defined(__GLIBC__)

// glibc's text of x in the form "d.ddde[+-]xx" with `precision` significant digits, split
// into digits and the exponent of the first one.
std::string GlibcDigits(Extended80 x, int precision, int& exp10) {
  std::string buf(static_cast<std::size_t>(precision) + 32, '\0');
  const int n = std::snprintf(buf.data(), buf.size(), "%.*Le", precision - 1, x.ToExtended());
  buf.resize(static_cast<std::size_t>(n));
  const std::size_t e = buf.find('e');
  exp10 = std::atoi(buf.c_str() + e + 1);
  std::string digits = buf.substr(0, e);
  if (digits.size() > 1) digits.erase(1, 1);
  return digits;
}

// The exact decimal value of x: its digits without trailing zeros and the exponent of the
// first one. 12 000 significant digits hold every extended value exactly.
std::string ExactDigits(Extended80 x, int& exp10) {
  std::string d = GlibcDigits(x, 12000, exp10);
  while (d.size() > 1 && d.back() == '0') d.pop_back();
  return d;
}

// (a + b) / 2 for two exact decimals given as digits and the exponent of the first digit.
std::string Midpoint(const std::string& a, int ea, const std::string& b, int eb, int& exp10) {
  // Both as digit strings on the same grid: top place max(ea, eb) + 1 (room for a carry).
  const int top = (ea > eb ? ea : eb) + 1;
  const int low =
      std::min(ea - static_cast<int>(a.size()) + 1, eb - static_cast<int>(b.size()) + 1);
  const std::size_t width = static_cast<std::size_t>(top - low + 2);  // one more place for the half
  std::string sa(width, '0'), sb(width, '0');
  sa.replace(static_cast<std::size_t>(top - ea), a.size(), a);
  sb.replace(static_cast<std::size_t>(top - eb), b.size(), b);
  std::string sum(width, '0');
  int carry = 0;
  for (std::size_t i = width; i-- > 0;) {
    const int v = (sa[i] - '0') + (sb[i] - '0') + carry;
    sum[i] = static_cast<char>('0' + v % 10);
    carry = v / 10;
  }
  int rem = 0;
  for (char& c : sum) {
    const int v = rem * 10 + (c - '0');
    c = static_cast<char>('0' + v / 2);
    rem = v % 2;
  }
  // sum now holds the midpoint with its first place at `top`.
  std::size_t first = sum.find_first_not_of('0');
  exp10 = top - static_cast<int>(first);
  std::string out = sum.substr(first);
  while (out.size() > 1 && out.back() == '0') out.pop_back();
  return out;
}

void CheckParse(std::string_view digits, long exp10) {
  // digits as d.ddd * 10^exp10 read by glibc and by the library (which takes the power of
  // the last digit).
  std::string text(digits);
  text += 'e';
  text += std::to_string(exp10 - static_cast<long>(digits.size()) + 1);
  const Extended80 want(std::strtold(text.c_str(), nullptr));
  const Extended80 got =
      DecimalToExtended80(false, digits, exp10 - static_cast<Int64>(digits.size()) + 1);
  fuzz::Require(Same(got, want), "DecimalToExtended80 differs from strtold",
                text.substr(0, 200) + ": " + Show(got) + " vs " + Show(want));
}

void Check(Extended80 x, int precision) {
  int glibcExp = 0;
  char mine[48];
  const std::string want = GlibcDigits(x, precision, glibcExp);
  const int e = Extended80Digits(x, precision, mine);
  fuzz::Require(e == glibcExp && want == std::string(mine, static_cast<std::size_t>(precision)),
                "Extended80Digits differs from snprintf",
                Show(x) + " precision " + std::to_string(precision) + ": " + want);

  int count = 0, shortExp = 0;
  const int se = Extended80ShortestDigits(x, mine, count);
  std::string shortest;
  for (int n = 1; n <= 21; ++n) {
    shortest = GlibcDigits(x, n, shortExp);
    std::string text = shortest + "e" + std::to_string(shortExp - n + 1);
    if (n == 21 || Same(Extended80(std::strtold(text.c_str(), nullptr)), x)) break;
  }
  fuzz::Require(se == shortExp && shortest == std::string(mine, static_cast<std::size_t>(count)),
                "Extended80ShortestDigits differs from the C library's shortest", Show(x));

  CheckParse(shortest, shortExp);
  int e21 = 0;
  CheckParse(GlibcDigits(x, 21, e21), e21);

  // The tie between x and the next value up (if that is finite), and either side of it.
  const Extended80 next = Extended80::FromBits(
      static_cast<Word>(x.Mantissa() == ~UInt64{0} ? x.BiasedExp() + 1 : x.BiasedExp()),
      x.Mantissa() == ~UInt64{0} ? UInt64{1} << 63 : x.Mantissa() + 1);
  if (!IsFinite(next)) return;
  int ex = 0, en = 0, em = 0;
  const std::string dx = ExactDigits(x, ex), dn = ExactDigits(next, en);
  const std::string mid = Midpoint(dx, ex, dn, en, em);
  CheckParse(mid, em);
  CheckParse(mid + "1", em);
  if (mid.size() > 2) CheckParse(std::string_view(mid).substr(0, mid.size() / 2 + 1), em);
}

#else

// Elsewhere glibc is not the reference: the library's own texts must read back.
void CheckParse(std::string_view digits, long exp10) {
  DecimalToExtended80(false, digits, exp10 - static_cast<Int64>(digits.size()) + 1);
}

void Check(Extended80 x, int precision) {
  char digits[48];
  Extended80Digits(x, precision, digits);
  int count = 0;
  const int e = Extended80ShortestDigits(x, digits, count);
  const Extended80 back = DecimalToExtended80(
      false, std::string_view(digits, static_cast<std::size_t>(count)), e - count + 1);
  fuzz::Require(Same(back, x), "shortest digits do not read back", Show(x));
}

#endif

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const Word biased = in.Raw<Word>();
  const UInt64 mant = in.Raw<UInt64>();
  const int precision = 1 + in.Byte() % 40;
  Check(MakeValue(biased, mant), precision);

  // The input's own decimal text: up to 255 digits, any power of ten in the range and a
  // little beyond it.
  const long exp10 = static_cast<long>(in.Range(-5000, 5000));
  std::string digits;
  for (char c : in.Text()) digits += static_cast<char>('0' + static_cast<unsigned char>(c) % 10);
  if (!digits.empty()) CheckParse(digits, exp10);
  return 0;
}
