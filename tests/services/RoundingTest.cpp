// Decimal rounding, comparison of sums, percent and tax, and the number formatting helpers.
#include <ostrel/services/Rounding.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>

namespace ostrel {
namespace {

using testutil::X;

std::string U8(std::u8string_view s) { return std::string(s.begin(), s.end()); }

// Just inside and just outside the relative tolerance around 2.5.
constexpr Extended kHalfPlusIn = 2.5L + 2.5L * 5.0e-16L;
constexpr Extended kHalfPlusOut = 2.5L + 2.5L * 6.0e-16L;
constexpr Extended kHalfMinusIn = 2.5L - 2.5L * 5.0e-16L;
constexpr Extended kHalfMinusOut = 2.5L - 2.5L * 6.0e-16L;

TEST(RoundExt, GivesTheBookkeepersResultInEveryMode) {
  const auto beyond = static_cast<TDecimalRoundingCtrl>(12);
  const struct {
    Extended x;
    int places;
    TDecimalRoundingCtrl mode;
    Extended expected;
  } cases[] = {
      // clang-format off
      {2.675, 2, drHalfUp, 2.68L}, {-2.675, 2, drHalfUp, -2.68L}, {2.675L, 2, drHalfUp, 2.68L},
      {1.005, 2, drHalfUp, 1.01L}, {2.5, 0, drHalfUp, 3}, {-2.5, 0, drHalfUp, -3},
      {2.4999, 0, drHalfUp, 2}, {1234.5, -2, drHalfUp, 1200}, {1250, -2, drHalfUp, 1300},
      {-1250, -2, drHalfUp, -1300}, {0.3, 0, drHalfUp, 0}, {0.1 + 0.2, 1, drHalfUp, 0.3L},
      {kHalfMinusIn, 0, drHalfUp, 3}, {kHalfMinusOut, 0, drHalfUp, 2},
      {123456789.125, 2, drHalfUp, 123456789.13L},
      {2.5, 0, drHalfEven, 2}, {3.5, 0, drHalfEven, 3}, {3.51, 0, drHalfEven, 4},
      {-3.5, 0, drHalfEven, -3}, {-3.51, 0, drHalfEven, -4}, {2.6, 0, drHalfEven, 3},
      {2.4, 0, drHalfEven, 2}, {2.675, 2, drHalfEven, 2.67L}, {1350, -2, drHalfEven, 1300},
      {1351, -2, drHalfEven, 1400}, {kHalfPlusIn, 0, drHalfEven, 2},
      {kHalfPlusOut, 0, drHalfEven, 3},
      {2.5, 0, drHalfPos, 3}, {-2.5, 0, drHalfPos, -2}, {2.675, 2, drHalfPos, 2.68L},
      {-2.675, 2, drHalfPos, -2.67L}, {-150, -2, drHalfPos, -100},
      {2.5, 0, drHalfNeg, 2}, {-2.5, 0, drHalfNeg, -3}, {2.675, 2, drHalfNeg, 2.67L},
      {-2.675, 2, drHalfNeg, -2.68L}, {150, -2, drHalfNeg, 100},
      {2.5, 0, drHalfDown, 2}, {-2.5, 0, drHalfDown, -2}, {2.6, 0, drHalfDown, 3},
      {-2.6, 0, drHalfDown, -3}, {-2.675, 2, drHalfDown, -2.67L}, {kHalfPlusIn, 0, drHalfDown, 2},
      {kHalfPlusOut, 0, drHalfDown, 3},
      {2.1, 0, drRndNeg, 2}, {-2.1, 0, drRndNeg, -3}, {2, 0, drRndNeg, 2}, {-2, 0, drRndNeg, -2},
      {1299, -2, drRndNeg, 1200}, {-1201, -2, drRndNeg, -1300},
      {2.1, 0, drRndPos, 3}, {-2.9, 0, drRndPos, -2}, {2, 0, drRndPos, 2},
      {1201, -2, drRndPos, 1300},
      {2.9, 0, drRndDown, 2}, {-2.9, 0, drRndDown, -2}, {1.15, 1, drRndDown, 1.1L},
      {-1299, -2, drRndDown, -1200},
      {2.1, 0, drRndUp, 3}, {-2.1, 0, drRndUp, -3}, {2, 0, drRndUp, 2}, {1201, -2, drRndUp, 1300},
      // Representation noise within the tolerance is forgiven.
      {1.0000000000000002, 0, drRndUp, 1}, {0.1 + 0.2, 1, drRndUp, 0.3L},
      {0.7 - 0.4, 1, drRndDown, 0.3L},
      {0.7 - 0.4, 1, drRndNeg, 0.3L},
      {2.675L, 2, drNone, 2.675L}, {-7.77L, -1, drNone, -7.77L},
      // An ordinal beyond the modes rounds the scaled value as it is.
      {2.6, 0, beyond, 3}, {2.5, 0, beyond, 2}
      // clang-format on
  };
  for (const auto& c : cases)
    EXPECT_EQ(RoundExt(c.x, c.places, c.mode), c.mode == drNone ? c.expected : X(c.expected))
        << "RoundExt(" << static_cast<double>(c.x) << ", " << c.places << ", mode "
        << static_cast<int>(c.mode) << ")";
}

TEST(RoundExt, LeavesNonFiniteValuesAndExtremePlacesAlone) {
  const Extended nan = std::numeric_limits<Extended>::quiet_NaN();
  const Extended inf = std::numeric_limits<Extended>::infinity();
  for (int mode = 1; mode <= 9; ++mode) {
    const auto m = static_cast<TDecimalRoundingCtrl>(mode);
    EXPECT_TRUE(std::isnan(RoundExt(nan, 2, m)));
    EXPECT_EQ(RoundExt(inf, 2, m), inf);
    EXPECT_EQ(RoundExt(-inf, -2, m), -inf);
    // More places than any extended value has: unchanged, and no NaN from 0 * infinity.
    EXPECT_EQ(RoundExt(1e-10L, 6000, m), X(1e-10L));
    EXPECT_EQ(RoundExt(0.0L, INT_MAX, m), 0.0L);
    EXPECT_EQ(RoundExt(5.0L, INT_MIN, m), 0.0L);
    EXPECT_EQ(RoundExt(1e4900L, 100, m), X(1e4900L));
  }
}

#if (defined(__i386__) || defined(__x86_64__)) && (defined(__GNUC__) || defined(__clang__))
unsigned short ReadControlWord() {
  unsigned short cw = 0;
  __asm__ __volatile__("fnstcw %0" : "=m"(cw));
  return cw;
}

void LoadControlWord(unsigned short cw) { __asm__ __volatile__("fldcw %0" : : "m"(cw)); }

TEST(RoundExt, RunsInExtendedPrecisionWhateverTheHostSetUp) {
  const unsigned short saved = ReadControlWord();
  // What a host program may leave behind: double precision and truncation.
  LoadControlWord(static_cast<unsigned short>((saved & ~0x0F00u) | 0x0200u | 0x0C00u));
  volatile Extended x = 2.675L;
  const Extended r = RoundExt(x, 2, drHalfUp);
  const unsigned short after = ReadControlWord();
  LoadControlWord(saved);
  // 268 / 100 in double precision or truncated would miss the extended 2.68.
  EXPECT_EQ(r, 2.68L);
  EXPECT_EQ(after & 0x0F00u, 0x0300u) << "precision and rounding control stay as set";
  EXPECT_EQ(after & 0x00FFu, saved & 0x00FFu) << "exception masks untouched";
}
#endif

TEST(RoundF, ShorthandsAndSteps) {
  const Extended x = 0.123456789012345678L;
  EXPECT_TRUE(RoundF(x, 15) == x && RoundF(x, 40) == x && RoundF(x, 14) != x);
  EXPECT_TRUE(rnd(2.675, 2) == X(2.68L) && rnd4(1.00005) == X(1.0001L));
  EXPECT_EQ(rnd8(-0.000000125), X(-0.00000013L));
  EXPECT_TRUE(RoundStep(0) == 1.0L && RoundStep(-3) == 1000.0L);
  EXPECT_NEAR(static_cast<double>(RoundStep(2)), 0.01, 1e-18);
  EXPECT_TRUE(Power10(1.5L, 2) == 150.0L && Power10(1500.0L, -3) == 1.5L);
  EXPECT_TRUE(Power10(7.0L, 0) == 7.0L && Power10(1.0L, INT_MIN) == 0.0L);
}

TEST(CompareSums, RoundTheDifferenceBeforeComparing) {
  struct Case {
    Extended a, b;
    int places, cmp, est;
  } cases[] = {{1.004, 1.0, 2, 0, 2}, {1.006, 1.0, 2, 1, 3},     {1.0, 1.006, 2, -1, 1},
               {0, 5, 2, -1, 0},      {-1, 5, 2, -1, -1},        {5, 5, 2, 0, 2},
               {0.004, 5, 2, -1, 0},  {0.1 + 0.2, 0.3, 8, 0, 2}, {-0.006, 0, 2, -1, -1}};
  for (const Case& c : cases) {
    EXPECT_EQ(cmpf(c.a, c.b, c.places), c.cmp) << c.a << " vs " << c.b;
    EXPECT_EQ(estf(c.a, c.b, c.places), c.est) << c.a << " vs " << c.b;
  }
  EXPECT_EQ(testutil::Join(cmp8(1.000000004, 1.0), cmp8(1.000000006, 1.0)), "0 1");
  EXPECT_TRUE(equ8(0.1 + 0.2, 0.3));
  EXPECT_EQ(est8(2, 1), 3);
  EXPECT_TRUE(Sign(-0.0L) == 0 && Sign(-1e-300L) == -1 && Sign(1e-4000L) == 1);
}

TEST(PercentAndTax, Sums) {
  // clang-format off
  struct Case { Extended got, expected; const char* what; } cases[] = {
      {TaxSum(100, 18, 2), 18, "18% on top of 100"}, {TaxSum(118, -18, 2), 18, "18% inside 118"},
      {TaxSum(10.01, 20, 2), 2, "2.002 rounds to 2.00"},
      {TaxSum(0.05, 18, 2), 0.01L, "0.009 rounds to 0.01"},
      {TaxSum(1.15, 10, 3), 0.115L, "three places"}, {TaxSum(-100, 18, 2), -18, "a refund"},
      {TaxApply(100, 18, 2), 118, "gross"}, {TaxApply(118, -18, 2), 100, "net"},
      {TaxApply(99.99, 20, 2), 119.99L, "19.998 rounds up"},
      {TaxCalc(118, -18, 2), 18, "rate of an included tax"},
      {TaxCalc(100, 18, 2), 18, "rate of a tax on top"},
      {TaxCalc(18, -18, 2), 0, "nothing left but tax"}, {TaxCalc(0, 5, 2), 0, "empty sum"},
      {TaxCalc(300, 1, 4), 0.3333L, "rounded rate"}, {PercentBack(118, 18), 100, "base of 118"},
      {PercentBack(118, -100), 0, "guarded division"},
      {PercentApply(100, 10), 110, "plus ten percent"},
      {PercentApply(100, -10), 90, "minus ten percent"},
      {PercentApply(100, 0), 100, "zero percent"},
      {PercentCalc(200, 150), 25, "150 is 25% below 200"},
      {PercentCalc(200, 250), -25, "250 is 25% above 200"}};
  // clang-format on
  for (const Case& c : cases)
    EXPECT_NEAR(static_cast<double>(c.got), static_cast<double>(c.expected), 1e-12) << c.what;
  EXPECT_TRUE(std::isinf(PercentCalc(0, 1)));
}

TEST(Formatting, FixedPointInTheRussianLocale) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  struct Case {
    Extended x;
    int lo, hi;
    bool mark;
    std::u8string_view expected;
  } cases[] = {{1.5, 0, 2, false, u8"1,5"},
               // clang-format off
               {1.2345, 0, 2, true, u8"~1,23"}, {1.2345, 0, 2, false, u8"1,23"},
               {1.0, 0, 2, false, u8"1"}, {1.2, 2, 4, false, u8"1,20"},
               {1.23456, 2, 4, false, u8"1,2346"},
               {0.1 + 0.2, 0, 2, true, u8"0,3"},  // representation noise is no approximation
               {1.005, 0, 2, false, u8"1,01"}, {0.0, 0, 3, false, u8"0"},
               {-1234567.891, 0, 2, false, u8"-1\u00A0234\u00A0567,89"},
               {1234567.0, 0, 2, false, u8"1\u00A0234\u00A0567"},
               {1234.5, 2, 15, false, u8"1\u00A0234,50"}, {1234.5, -3, 0, false, u8"1\u00A0235"},
               // clang-format on
               {1234.5, 0, -2, true, u8"~1\u00A0200"}};
  for (const Case& c : cases)
    EXPECT_EQ(AnsiToUtf8(FToStr(c.x, c.lo, c.hi, c.mark)), U8(c.expected))
        << static_cast<double>(c.x) << " " << c.lo << ".." << c.hi;
}

TEST(Formatting, CurrencySymbols) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  const AnsiString rub = Ansi(u8"р.");
  const std::u8string_view layouts[] = {u8"р.5,00", u8"5,00р.", u8"р. 5,00", u8"5,00 р.", u8"5,00"};
  for (int f = 0; f < 5; ++f)
    EXPECT_EQ(AnsiToUtf8(FToStrSymb(5, 2, 2, f, rub, false)), U8(layouts[f])) << f;
  EXPECT_EQ(AnsiToUtf8(CrcToStr(1234.5)), U8(u8"1\u00A0234,50 р."));
  EXPECT_EQ(AnsiToUtf8(CrcToStr(0.125, true)), U8(u8"0,125 р."));
  CurrencySymbol = false;
  EXPECT_EQ(AnsiToUtf8(CrcToStr(1234.5)), U8(u8"1\u00A0234,50"));
  CurrencySymbol = true;
}

TEST(Formatting, IntegersAndMemorySizes) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  EXPECT_EQ(Int0Str(7, 3) + "|" + Int0Str(12345, 3) + "|" + Int0Str(-5, 3) + "|" + Int0Str(42, 2) +
                "|" + Int0Str(42, 0) + "|" + Int0Str(42, -1),
            "007|123|0-5|42||");

  const std::pair<AnsiString, std::u8string_view> sizes[] = {
      // clang-format off
      {MemSizeStr(1000), u8"1\u00A0000 B"}, {MemSizeStr(0), u8"0 B"}, {MemSizeStr(1536), u8"2 kB"},
      {MemSizeStr(5000000), u8"4,77 MB"}, {MemSizeStr(5000000, 1), u8"4\u00A0883 kB"},
      {MemSizeStr(5000000, 0), u8"5\u00A0000\u00A0000 B"}, {MemSizeStr(3LL << 40), u8"3,00 TB"},
      // clang-format on
      {MemSizeStr(INT64_MAX), u8"8,00 EB"}};
  for (const auto& [got, expected] : sizes) EXPECT_EQ(AnsiToUtf8(got), U8(expected));
}

TEST(Formatting, NumbersFromFreeText) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  // clang-format off
  struct Case { std::u8string_view text; bool found; Extended value; } cases[] = {
      {u8"Итого: -12,50 руб.", true, 12.5}, {u8"нет", false, 0}, {u8"", false, 0},
      {u8"1,2,3 шт. и 7", true, 7},  // a run that is no number is skipped
      {u8"x+5", true, 5}, {u8"№42", true, 42}, {u8",", false, 0}};
  // clang-format on
  for (const Case& c : cases) {
    Extended v = -1;
    EXPECT_EQ(TryExtractNum(Ansi(c.text), v), c.found) << U8(c.text);
    EXPECT_EQ(v, c.value) << U8(c.text);
  }
}

TEST(Formatting, Hexadecimal) {
  EXPECT_EQ(HexToInt("FF"), 255);
  EXPECT_EQ(HexToInt("$1a"), 26);
  EXPECT_EQ(HexToInt("7FFFFFFF"), INT_MAX);
  for (const char* bad : {"", "xyz", "$"}) EXPECT_THROW(HexToInt(bad), EConvertError) << bad;
  EXPECT_EQ(HexToInt("xyz", -7) + HexToInt("", 3), -4);
  EXPECT_EQ(HexToInt("10", 3), 16);
}

}  // namespace
}  // namespace ostrel
