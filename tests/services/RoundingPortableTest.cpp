// RoundExt gives the same bits on every platform: one large table of cases through the x87
// path and the software path (on x86), and a digest of the table's results that every
// platform must reproduce.
#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/services/Rounding.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace ostrel {
namespace {

Extended80 Dec(std::string_view digits, Int64 exp10, bool negative = false) {
  return DecimalToExtended80(negative, digits, exp10);
}

// The inputs, built from decimal texts, bit patterns and software arithmetic only, so that
// every platform has the same 80-bit values.
std::vector<Extended80> TableValues() {
  std::vector<Extended80> v;
  // Halves at every decimal place, and values a little off them.
  for (const char* digits : {"25", "35", "2675", "1005", "115", "12345", "999995", "5",
                             "123456789125", "9223372036854775807", "45", "55"}) {
    for (int e = -14; e <= 4; e += 2) {
      v.push_back(Dec(digits, e));
      v.push_back(Dec(digits, e, true));
      v.push_back(Dec(std::string(digits) + "0001", e - 4));
      v.push_back(Dec(std::string(digits) + "9999", e - 4, true));
    }
  }
  // Just inside and outside the relative tolerance (5.48e-16) around a half.
  const Extended80 tol = Dec("548172618420937533", -33);
  for (const char* f : {"5", "9", "99", "999", "1001", "101", "11", "2"}) {
    const Extended80 factor = tol * Dec(f, -static_cast<Int64>(std::string_view(f).size()) + 1);
    for (const char* half : {"25", "2675", "1234565", "5"}) {
      const Extended80 h = Dec(half, -static_cast<Int64>(std::string_view(half).size()) + 1);
      v.push_back(h + h * factor);
      v.push_back(h - h * factor);
      v.push_back(-(h + h * factor));
    }
  }
  // Huge, tiny and denormal values, zeros and infinities.
  for (const auto& [digits, e] :
       std::vector<std::pair<const char*, Int64>>{{"1", 4900},
                                                  // clang-format off
                                                  {"118973149535723176502", 4912}, {"1", 4000},
                                                  {"5", 30}, {"1", 18}, {"1", -4940},
                                                  {"336210314311209350626", -4952}, {"1", -300},
                                                  {"5", -20},
                                                  // clang-format on
                                                  {"0", 0}}) {
    v.push_back(Dec(digits, e));
    v.push_back(Dec(digits, e, true));
  }
  v.push_back(Extended80::FromBits(0x0000, 1));
  v.push_back(Extended80::FromBits(0x8000, 0x7FFFFFFFFFFFFFFFull));
  v.push_back(Extended80::FromBits(0x7FFF, 0x8000000000000000ull));
  v.push_back(Extended80::FromBits(0xFFFF, 0x8000000000000000ull));
  // Random finite values over the whole range and around one.
  std::mt19937_64 rng(14);
  for (int i = 0; i < 120; ++i) {
    const int exp =
        i % 3 == 0 ? static_cast<int>(rng() % 0x7FFF) : 0x3FFF - 40 + static_cast<int>(rng() % 100);
    const UInt64 mant = exp == 0 ? rng() >> 1 : rng() | (UInt64{1} << 63);
    v.push_back(Extended80::FromBits(static_cast<Word>(((rng() & 1) << 15) | exp), mant));
  }
  return v;
}

constexpr int kPlaces[] = {0, 1, 2, 3, 4, 6, 8, 14, 15, 19, 30, -1, -2, -3, -6, -19, -30};
// Places beyond the format's range make thousands of steps each: tried on every 16th value.
constexpr int kFarPlaces[] = {4931, 4950, 5000, -4931, -5000, INT_MAX, INT_MIN};

// FNV-1a over the result bits, in table order.
struct Digest {
  UInt64 value = 1469598103934665603ull;
  void Add(Extended80 x) {
    const UInt64 words[] = {x.SignExp(), x.Mantissa()};
    for (UInt64 w : words)
      for (int i = 0; i < 8; ++i) value = (value ^ ((w >> (8 * i)) & 0xFF)) * 1099511628211ull;
  }
};

std::string Bits(Extended80 x) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04X:%016llX", x.SignExp(),
                static_cast<unsigned long long>(x.Mantissa()));
  return buf;
}

TEST(RoundExtPortable, TheWholeTableGivesTheSameBitsOnEveryPath) {
  const std::vector<Extended80> values = TableValues();
  Digest digest;
  int cases = 0, mismatches = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Extended80 v = values[i];
    const Extended x = v.ToExtended();
    std::vector<int> places(std::begin(kPlaces), std::end(kPlaces));
    if (i % 16 == 0) places.insert(places.end(), std::begin(kFarPlaces), std::end(kFarPlaces));
    for (int n : places) {
      for (int mode = 0; mode <= 10; ++mode) {
        const auto m = static_cast<TDecimalRoundingCtrl>(mode == 10 ? 12 : mode);
        const Extended80 soft(RoundExtSoftware(x, n, m));
        const Extended80 used(RoundExt(x, n, m));
        digest.Add(soft);
        ++cases;
        if (Bits(soft) != Bits(used) && ++mismatches <= 10)
          ADD_FAILURE() << "RoundExt(" << Bits(v) << ", " << n << ", mode " << mode
                        << "): software " << Bits(soft) << ", hardware " << Bits(used);
      }
    }
  }
  EXPECT_EQ(mismatches, 0) << "of " << cases << " cases";
  EXPECT_GT(cases, 100000);
  // The digest of the x87 results; a platform that computes any case differently fails.
  EXPECT_EQ(digest.value, 0x6de4179891ac4300ull) << std::hex << digest.value;
}

// NaN passes through untouched on both paths.
TEST(RoundExtPortable, NaNIsLeftAlone) {
  const Extended nan = std::numeric_limits<Extended>::quiet_NaN();
  for (int mode = 0; mode <= 9; ++mode) {
    const auto m = static_cast<TDecimalRoundingCtrl>(mode);
    EXPECT_TRUE(std::isnan(RoundExtSoftware(nan, 2, m)));
    EXPECT_TRUE(std::isnan(RoundExt(-nan, -2, m)));
  }
}

// Text and extended values meet in the library's own conversions: the same values from text,
// and the same texts from values, on every platform. The expected values are given as 80-bit
// patterns: a platform whose double differs from the extended (0.1, 0.015) or whose long
// double is wider must still produce exactly these.
TEST(ExtendedText, TextConvertsToTheSameExtendedEverywhere) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  // clang-format off
  const struct { const char* text; Word signExp; UInt64 mant; } cases[] = {
      {"0,1", 0x3FFB, 0xCCCCCCCCCCCCCCCDull}, {"1,5e-2", 0x3FF8, 0xF5C28F5C28F5C28Full},
      {"-2,675", 0xC000, 0xAB33333333333333ull},
      {"123456789012345678,9", 0x4037, 0xDB4DA5D31879A773ull},
      {"1E-4950", 0x0000, 0x0000000000000003ull}};
  // clang-format on
  for (const auto& c : cases) {
    const Extended v = StrToFloat(c.text);
    EXPECT_EQ(Bits(Extended80(v)), Bits(Extended80::FromBits(c.signExp, c.mant))) << c.text;
  }
#if OSTREL_X87_EXTENDED
  EXPECT_EQ(StrToFloat("0,1"), 0.1L);
  EXPECT_NE(StrToFloat("0,1"), static_cast<Extended>(0.1));
  EXPECT_EQ(StrToFloat("1,5e-2"), 0.015L);
#endif
  Currency c;
  ASSERT_TRUE(TryStrToCurr("12345678901234,5678", c));
  EXPECT_EQ(c.Raw, 123456789012345678);
  ASSERT_TRUE(TryStrToCurr("922337203685477,5807", c));
  EXPECT_EQ(c.Raw, INT64_MAX);
  ASSERT_TRUE(TryStrToCurr("-922337203685477,5808", c));
  EXPECT_EQ(c.Raw, INT64_MIN);
  EXPECT_FALSE(TryStrToCurr("922337203685477,5808", c));
  EXPECT_EQ(StrToCurr("0,00005").Raw, 0);  // a tie at the fourth decimal goes to even
  EXPECT_EQ(StrToCurr("0,00015").Raw, 2);
}

TEST(ExtendedText, ExtendedValuesGiveTheSameTextsEverywhere) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  const Extended third = (Extended80(1.0L) / Extended80(3.0L)).ToExtended();
  const Extended tenth = StrToFloat("0,1");
  const Extended big = StrToFloat("123456789012345678,9");
  const Extended tiny = Extended80::FromBits(0x0000, 3).ToExtended();
  EXPECT_EQ(FloatToStr(tenth), "0,1");
  EXPECT_EQ(FloatToStrF(tenth, ffGeneral, 18, 0), "0,1");
  EXPECT_EQ(FloatToStrF(third, ffGeneral, 18, 0), "0,333333333333333333");
  EXPECT_EQ(FloatToStrF(third, ffExponent, 18, 3), "3,33333333333333333E-001");
  EXPECT_EQ(FloatToStrF(big, ffFixed, 18, 2), "123456789012345679,00");
  EXPECT_EQ(FloatToStrF(StrToFloat("2,675"), ffFixed, 15, 2), "2,68");
  EXPECT_EQ(FloatToStr(tiny), "1,09355985956474E-4950");
  EXPECT_EQ(Format("%.3e", Extended80::FromBits(0x7FFE, ~0ull).ToExtended()), "1,19E+4932");
  EXPECT_EQ(FToStr(third, 0, 4, true), "~0,3333");
}

}  // namespace
}  // namespace ostrel
