// The software 80-bit extended type: its arithmetic against the x87 unit (on x86), and the
// exact decimal conversions against fixed bit patterns (everywhere).
#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/detail/Extended80Exact.h>

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

namespace ostrel {
namespace {

std::string Bits(Extended80 x) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04X:%016llX", x.SignExp(),
                static_cast<unsigned long long>(x.Mantissa()));
  return buf;
}

Extended80 Parse(const char* text) {
  // "[-]digits[.digits][e[-]exp]" into the digit string and the power of ten.
  bool negative = *text == '-';
  if (negative) ++text;
  std::string digits;
  long exp10 = 0;
  for (; *text && *text != 'e'; ++text) {
    if (*text == '.') {
      exp10 = 0;
      for (const char* p = text + 1; *p && *p != 'e'; ++p) --exp10;
      continue;
    }
    digits += *text;
  }
  if (*text == 'e') exp10 += std::strtol(text + 1, nullptr, 10);
  return DecimalToExtended80(negative, digits, exp10);
}

std::string Digits(Extended80 x, int precision) {
  char buf[48];
  const int e = Extended80Digits(x, precision, buf);
  return std::string(buf, static_cast<std::size_t>(precision)) + "e" + std::to_string(e);
}

// Decimal texts and their correctly rounded 80-bit patterns; texts whose double differs in
// value from the extended (0.1, 0.015), ties at 64 bits, denormals, the format's limits.
TEST(Extended80Test, DecimalTextConvertsExactly) {
  // clang-format off
  const struct { const char* text; const char* bits; } cases[] = {
      {"0.1", "3FFB:CCCCCCCCCCCCCCCD"}, {"0.015", "3FF8:F5C28F5C28F5C28F"},
      {"-2.675", "C000:AB33333333333333"}, {"1", "3FFF:8000000000000000"},
      {"123456789012345678.9", "4037:DB4DA5D31879A773"},
      {"922337203685477.5807", "4030:D1B71758E219652A"},
      {"123456789012345678", "4037:DB4DA5D31879A700"},
      // 2^64 + 1 and 2^64 + 3: ties below and above the last bit, to even.
      {"18446744073709551617", "403F:8000000000000000"},
      {"18446744073709551619", "403F:8000000000000002"},
      {"18446744073709551617.000000000000000000000000000000001", "403F:8000000000000001"},
      {"1.18973149535723176502e4932", "7FFE:FFFFFFFFFFFFFFFF"},
      {"1.2e4932", "7FFF:8000000000000000"},
      {"3.36210314311209350626e-4932", "0001:8000000000000000"},
      {"3.6451995318824746025e-4951", "0000:0000000000000001"},
      {"1.8225997659412373012e-4951", "0000:0000000000000000"},
      {"1.8225997659412373013e-4951", "0000:0000000000000001"},
      {"-1e-5000", "8000:0000000000000000"}, {"0.000", "0000:0000000000000000"},
      {"5.48172618420937533e-16", "3FCC:9E0000000F2F67FE"}};
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(Bits(Parse(c.text)), c.bits) << c.text;
  // A long tail decides the rounding even thousands of digits in.
  std::string tie = "18446744073709551617" + std::string(20000, '0');
  EXPECT_EQ(Bits(DecimalToExtended80(false, tie, -20000)), "403F:8000000000000000");
  tie += '1';
  EXPECT_EQ(Bits(DecimalToExtended80(false, tie, -20001)), "403F:8000000000000001");
}

TEST(Extended80Test, DigitsAreCorrectlyRoundedFromTheExactValue) {
  // clang-format off
  const struct { const char* bits; int precision; const char* digits; } cases[] = {
      {"0.1", 18, "100000000000000000e-1"}, {"0.1", 21, "100000000000000000001e-1"},
      {"2.675", 18, "267500000000000000e0"}, {"0.015", 20, "15000000000000000000e-2"},
      {"9.5", 1, "1e1"},  // a tie to even: 9.5 -> 10
      {"8.5", 1, "8e0"},  // 8.5 -> 8
      {"999999999999999999999", 18, "100000000000000000e21"},
      {"3.6451995318824746025e-4951", 5, "36452e-4951"},
      {"1.18973149535723176502e4932", 21, "118973149535723176502e4932"}};
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(Digits(Parse(c.bits), c.precision), c.digits) << c.bits;
}

TEST(Extended80Test, ArithmeticRoundsToNearestEven) {
  const Extended80 one = Parse("1"), three = Parse("3"), ten = Parse("10");
  EXPECT_EQ(Bits(one / three), "3FFD:AAAAAAAAAAAAAAAB");
  EXPECT_EQ(Bits(Parse("2") / three), "3FFE:AAAAAAAAAAAAAAAB");
  EXPECT_EQ(Bits(one / ten * ten), "3FFF:8000000000000000");
  EXPECT_EQ(Bits(Parse("18446744073709551616") + one), "403F:8000000000000000");  // tie, even
  EXPECT_EQ(Bits(Parse("18446744073709551618") + one), "403F:8000000000000002");  // tie, even
  EXPECT_EQ(Bits(one - one), "0000:0000000000000000");
  EXPECT_EQ(Bits(-one + one), "0000:0000000000000000");
  EXPECT_EQ(Bits(Trunc(Parse("-0.5"))), "8000:0000000000000000");
  EXPECT_EQ(Bits(Trunc(Parse("-123.75"))), "C005:F600000000000000");
  // Gradual underflow: the smallest normal halved is a denormal, the smallest denormal halved
  // is a tie that goes to zero; the largest finite doubled is infinite.
  const Extended80 minNormal = Extended80::FromBits(0x0001, 0x8000000000000000ull);
  EXPECT_EQ(Bits(minNormal / Parse("2")), "0000:4000000000000000");
  EXPECT_EQ(Bits(Extended80::FromBits(0, 1) / Parse("2")), "0000:0000000000000000");
  EXPECT_EQ(Bits(Extended80::FromBits(0, 3) / Parse("2")), "0000:0000000000000002");
  EXPECT_EQ(Bits(Extended80::FromBits(0x7FFE, ~0ull) * Parse("2")), "7FFF:8000000000000000");
  EXPECT_TRUE(IsNaN(Parse("0") / Parse("0")));
  EXPECT_FALSE(IsNaN(Parse("0") / Parse("0")) == IsNaN(one));
  EXPECT_TRUE(Parse("-0") == Parse("0"));
  EXPECT_TRUE(Parse("-1") < Parse("-0.5"));
  EXPECT_FALSE(Parse("0") < Parse("-0"));
}

// Values that the platform's long double holds as 80-bit values survive the round trip.
TEST(Extended80Test, ConvertsToAndFromLongDoubleExactly) {
  for (const char* text : {"0.1", "-2.675", "1e4000", "3.6451995318824746025e-4951",
                           "1.18973149535723176502e4932", "-0", "123456789012345678.9"}) {
    const Extended80 x = Parse(text);
    EXPECT_EQ(Bits(Extended80(x.ToExtended())), Bits(x)) << text;
  }
  EXPECT_EQ(Bits(Extended80(0.5L)), "3FFE:8000000000000000");
  EXPECT_EQ(Bits(Extended80::FromInt(-10)), "C002:A000000000000000");
  EXPECT_TRUE(std::isinf(Parse("1e5000").ToExtended()));
}

TEST(Extended80Test, ShortestDigitsReadBack) {
  // clang-format off
  const struct { const char* text; const char* digits; } cases[] = {
      {"0.1", "1e-1"}, {"2.675", "2675e0"}, {"2.665", "2665e0"}, {"1e4000", "1e4000"},
      {"123456789012345678.9", "1234567890123456789e17"},
      {"0.33333333333333333333333", "33333333333333333334e-1"}};
  // clang-format on
  for (const auto& c : cases) {
    char buf[24];
    int count = 0;
    const int e = Extended80ShortestDigits(Parse(c.text), buf, count);
    EXPECT_EQ(std::string(buf, static_cast<std::size_t>(count)) + "e" + std::to_string(e), c.digits)
        << c.text;
  }
}

// The conversions decide most values from a 192-bit power of ten and leave the rest to
// exact big-number arithmetic. Both must agree on every platform: values over the whole
// exponent range, with every kind of significand (random, few bits, which make exact ties
// and exact ends, the largest), and texts at and just around them.
TEST(Extended80Test, FastPathsAgreeWithTheExactForms) {
  std::mt19937_64 rng(1924);
  int checked = 0;
  for (int biased = 0; biased < 0x7FFF; biased += 1 + static_cast<int>(rng() % 400)) {
    for (int kind = 0; kind < 3; ++kind) {
      UInt64 mant = rng() | (UInt64{1} << 63);
      if (kind == 1) mant &= ~UInt64{0} << (40 + rng() % 24);  // few significant bits
      if (kind == 2) mant = rng() % 2 ? ~UInt64{0} : UInt64{1} << 63;
      if (biased == 0) mant = (mant >> (1 + rng() % 63)) | 1;
      const Extended80 x = Extended80::FromBits(static_cast<Word>(biased), mant);
      char fast[48], exact[48];
      for (int precision : {1 + static_cast<int>(rng() % 40)}) {
        const int e = Extended80Digits(x, precision, fast);
        const int ee = detail80::ExactDigits(x, precision, exact);
        ASSERT_EQ(std::string(fast, precision) + "e" + std::to_string(e),
                  std::string(exact, precision) + "e" + std::to_string(ee))
            << Bits(x);
      }
      int count = 0, exactCount = 0;
      const int e = Extended80ShortestDigits(x, fast, count);
      const int ee = detail80::CheckedShortestDigits(x, exact, exactCount);
      const std::string shortest(fast, static_cast<std::size_t>(count));
      ASSERT_EQ(shortest + "e" + std::to_string(e),
                std::string(exact, exactCount) + "e" + std::to_string(ee))
          << Bits(x);

      // The shortest text, its last digit one up and down, and the 21-digit text cut to 20
      // digits with a tie digit and a tail that tips it either way.
      const int e21 = Extended80Digits(x, 21, fast);
      const std::string d21(fast, 21);
      std::string up = shortest, down = shortest;
      if (up.back() != '9') ++up.back();
      if (down.back() != '0' && down.size() > 1) --down.back();
      const std::pair<std::string, int> texts[] = {
          {shortest, e},
          {up, e},
          {down, e},
          {d21, e21},
          {d21.substr(0, 20) + "5", e21},
          {d21.substr(0, 20) + "49999999999999999999999", e21},
          {d21.substr(0, 20) + "50000000000000000000001", e21}};
      for (const auto& [digits, first] : texts) {
        std::string trimmed = digits;
        while (trimmed.size() > 1 && trimmed.back() == '0') trimmed.pop_back();
        const Int64 exp10 = first - static_cast<Int64>(trimmed.size()) + 1;
        ASSERT_EQ(
            Bits(DecimalToExtended80(false, digits, first - static_cast<Int64>(digits.size()) + 1)),
            Bits(detail80::ExactDecimalToExtended80(false, trimmed, exp10)))
            << digits << "e" << exp10;
      }
      ++checked;
    }
  }
  EXPECT_GT(checked, 200);
}

#if OSTREL_X87_EXTENDED
// The same digits as the runtime's shortest form where long double is the x87 format.
TEST(Extended80Test, ShortestDigitsAgreeWithToChars) {
  std::mt19937_64 rng(21);
  for (int i = 0; i < 3000; ++i) {
    const Extended80 x = Extended80::FromBits(static_cast<Word>(0x3FFF - 70 + rng() % 140),
                                              rng() | (UInt64{1} << 63));
    char buf[64], mine[24];
    const auto r =
        std::to_chars(buf, buf + sizeof buf, x.ToExtended(), std::chars_format::scientific);
    std::string want(buf, r.ptr);
    const std::size_t epos = want.find('e');
    std::string digits = want.substr(0, epos);
    if (digits.size() > 1) digits.erase(1, 1);
    int count = 0;
    const int e = Extended80ShortestDigits(x, mine, count);
    ASSERT_EQ(std::string(mine, static_cast<std::size_t>(count)) + "e" + std::to_string(e),
              digits + "e" + std::to_string(std::atoi(want.c_str() + epos + 1)))
        << want;
  }
}

// Operands over the whole range, with many near ties and near the underflow and overflow
// thresholds, through the four operations in software and on the x87 unit.
TEST(Extended80Test, AgreesWithTheX87UnitBitForBit) {
  std::mt19937_64 rng(20261123);
  auto operand = [&]() {
    const UInt64 pick = rng() % 8;
    UInt64 mant = rng() | (UInt64{1} << 63);
    if (pick == 0) mant &= ~UInt64{0} << (rng() % 64);  // few significant bits
    int exp;
    switch (pick) {
      case 1: exp = static_cast<int>(rng() % 200); break;           // tiny and denormal
      case 2: exp = 0x7FFE - static_cast<int>(rng() % 200); break;  // huge
      case 3:
        exp = 0;
        mant >>= rng() % 64;
        break;                                                            // denormal
      default: exp = 0x3FFF - 80 + static_cast<int>(rng() % 160); break;  // ordinary
    }
    const Word sign = (rng() & 1) ? 0x8000 : 0;
    return Extended80::FromBits(static_cast<Word>(sign | exp), mant);
  };
  int failures = 0;
  for (int i = 0; i < 200000 && failures < 10; ++i) {
    const Extended80 a = operand();
    Extended80 b = operand();
    if (i % 4 == 0 && (b.BiasedExp() == 0) == (a.BiasedExp() == 0))  // near ties and equal values
      b = Extended80::FromBits(b.SignExp(), a.Mantissa() ^ (rng() % 4));
    if (i % 4 == 1 && a.BiasedExp() > 70 && (b.Mantissa() >> 63) != 0)  // 0 to 69 apart
      b = Extended80::FromBits(static_cast<Word>((b.SignExp() & 0x8000) |
                                                 (a.BiasedExp() - static_cast<int>(rng() % 70))),
                               b.Mantissa());
    const long double x = a.ToExtended(), y = b.ToExtended();
    // clang-format off
    const struct { Extended80 soft; long double hard; char op; } results[] = {
        {a + b, x + y, '+'}, {a - b, x - y, '-'}, {a * b, x * y, '*'}, {a / b, x / y, '/'}};
    // clang-format on
    for (const auto& r : results) {
      if (Bits(r.soft) == Bits(Extended80(r.hard))) continue;
      ADD_FAILURE() << Bits(a) << ' ' << r.op << ' ' << Bits(b) << ": software " << Bits(r.soft)
                    << ", x87 " << Bits(Extended80(r.hard));
      ++failures;
    }
    EXPECT_EQ(Bits(Trunc(a)), Bits(Extended80(std::trunc(x))));
    EXPECT_EQ(a < b, x < y);
  }
}

// Random decimal texts against the C library's strtold, which is exact on glibc.
TEST(Extended80Test, AgreesWithStrtold) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 3000; ++i) {
    std::string digits;
    const int len = 1 + static_cast<int>(rng() % 30);
    for (int j = 0; j < len; ++j) digits += static_cast<char>('0' + rng() % 10);
    // Mostly everyday magnitudes; some over the whole range.
    const int exp10 =
        (i % 8 == 0 ? static_cast<int>(rng() % 9900) - 4950 : static_cast<int>(rng() % 80) - 40) -
        len;
    const std::string text = digits + "e" + std::to_string(exp10);
    const long double expected = std::strtold(text.c_str(), nullptr);
    ASSERT_EQ(Bits(DecimalToExtended80(false, digits, exp10)), Bits(Extended80(expected))) << text;
    if (expected != 0 && std::isfinite(expected)) {
      char buf[64], mine[32];
      std::snprintf(buf, sizeof buf, "%.17Le", expected);
      const int e = Extended80Digits(Extended80(expected), 18, mine);
      std::string want(buf);
      want.erase(1, 1);  // the point
      ASSERT_EQ(std::string(mine, 18) + "e" + std::to_string(e),
                want.substr(0, 18) + "e" + std::to_string(std::atoi(want.c_str() + 19)))
          << text;
    }
  }
}
#endif

}  // namespace
}  // namespace ostrel
