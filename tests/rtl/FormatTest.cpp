#include <ostrel/rtl/Format.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

namespace ostrel {
namespace {

using testutil::MessageOf;

// Test literals are UTF-8; the library speaks CP1251. NBSP is the Russian thousands mark.
AnsiString R(std::u8string_view s) { return Ansi(s); }
const AnsiString NB = "\xA0";

constexpr Extended kInf = std::numeric_limits<Extended>::infinity();
constexpr Extended kNaN = std::numeric_limits<Extended>::quiet_NaN();

TEST(FormatSettingsTest, RussianDefaultsAndInvariant) {
  EXPECT_EQ(TFormatSettings::Russian().LongDateFormat, R(u8"d mmmm yyyy 'г.'"));
  EXPECT_EQ(FormatSettings.DecimalSeparator, ',');  // the process starts Russian
  EXPECT_EQ(FloatToStrF(-1234.5, ffCurrency, 15, 2, TFormatSettings::Invariant()),
            "(\2441,234.50)");  // octal 244: the generic currency sign
}

TEST(FormatSettingsTest, GuardRestoresAfterException) {
  AnsiString before = FloatToStr(1.5);
  try {
    TFormatSettingsGuard guard(TFormatSettings::Invariant());
    EXPECT_EQ(FloatToStr(1.5), "1.5");
    FormatSettings.CurrencyString = "X";
    StrToInt("bad");
    FAIL() << "StrToInt accepted garbage";
  } catch (const EConvertError&) {
  }
  EXPECT_EQ(FloatToStr(1.5), before);
  EXPECT_EQ(FormatSettings.CurrencyString, R(u8"р."));
  {
    TFormatSettingsGuard guard;
    FormatSettings.DecimalSeparator = '#';
  }
  EXPECT_EQ(FormatSettings.DecimalSeparator, ',');
}

TEST(FormatTest, SpecifiersIndexWidthPrecision) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  EXPECT_EQ(Format("%d|%5d|%-5d|%.5d", 42, 42, 42, -42), "42|   42|42   |-00042");
  EXPECT_EQ(Format("%d", std::numeric_limits<UInt64>::max()), "18446744073709551615");
  EXPECT_EQ(Format("%x|%.4x|%x|%u", 255, 255, -1, -1), "FF|00FF|FFFFFFFF|4294967295");
  EXPECT_EQ(Format("%X", Int64{-1}), "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(Format("%s-%s-%s", "a", AnsiString("b"), 'c'), "a-b-c");
  EXPECT_EQ(Format("%.2s|%6.2s|%-4s|", "abcdef", "abcdef", "ab"), "ab|    ab|ab  |");
  EXPECT_EQ(Format("%1:s %0:s %s", "a", "b"), "b a b");
  EXPECT_EQ(Format("%*d|%-*.*f|", 5, 42, 8, 1, 2.25), "   42|2,3     |");
  EXPECT_EQ(Format("%D %%", 7), "7 %");
  EXPECT_EQ(Format(R(u8"Сумма: %d"), 5), R(u8"Сумма: 5"));
  EXPECT_EQ(Format("%p", static_cast<const void*>(nullptr)), std::string(sizeof(void*) * 2, '0'));
}

TEST(FormatTest, FloatSpecifiers) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  const AnsiString rub = " " + R(u8"р.");
  EXPECT_EQ(Format("%f|%.0f|%.3f", 1234.5, 2.5, -0.0004), "1234,50|3|0,000");
  EXPECT_EQ(Format("%n|%.0n", 1234567.891, -1234.5),
            "1" + NB + "234" + NB + "567,89|-1" + NB + "235");
  EXPECT_EQ(Format("%m|%m", 1234.5, -5.0), "1" + NB + "234,50" + rub + "|-5,00" + rub);
  EXPECT_EQ(Format("%.1m", Currency::FromInt(3)), "3,0" + rub);
  EXPECT_EQ(Format("%g|%g|%g", 0.1, 1e20, 1.5e-7), "0,1|1E020|1,5E-007");
  EXPECT_EQ(Format("%e|%.3e", 1234.56789, -0.000123456), "1,23456789000000E+003|-1,23E-004");
  EXPECT_EQ(Format("%e", 0.0), "0,00000000000000E+000");
  EXPECT_EQ(Format("%.4f", Currency::FromRaw(125000)), "12,5000");
}

TEST(FormatTest, FieldsUpToTheLimitAreBuilt) {
  EXPECT_EQ(Format("%65535d", 7).size(), 65535u);
  EXPECT_EQ(Format("%-*s|", 65535, "x").size(), 65536u);
  EXPECT_EQ(Format("%.65535x", 255).substr(65530), "000FF");
}

TEST(FormatTest, BadSpecifiersRaiseWithTheFormatText) {
  const struct {
    const char* fmt;
    bool missing;  // "No argument", else "invalid or incompatible"
    AnsiString (*call)(const char*);
  } cases[] = {{"%d", false, [](const char* f) { return Format(f, 1.5); }},
               {"%f", false, [](const char* f) { return Format(f, 1); }},
               {"%s", false, [](const char* f) { return Format(f, 1); }},
               {"%x", false, [](const char* f) { return Format(f, "1"); }},
               {"%d %d", true, [](const char* f) { return Format(f, 1); }},
               {"%2:d", true, [](const char* f) { return Format(f, 1); }},
               {"%*d", true, [](const char* f) { return Format(f, 5); }},
               {"%*d", false, [](const char* f) { return Format(f, "x", 1); }},
               {"50%", false, [](const char* f) { return Format(f); }},
               {"%5", false, [](const char* f) { return Format(f, 1); }},
               {"%y", false, [](const char* f) { return Format(f, 1); }},
               {"%99999999999d", false, [](const char* f) { return Format(f, 1); }},
               // One field is at most 65535 wide or precise, however the size is given.
               {"%65536d", false, [](const char* f) { return Format(f, 1); }},
               {"%2000000000d", false, [](const char* f) { return Format(f, 1); }},
               {"%.65536d", false, [](const char* f) { return Format(f, 1); }},
               {"%.65536s", false, [](const char* f) { return Format(f, "x"); }},
               {"%*x", false, [](const char* f) { return Format(f, 2000000000, 1); }},
               {"%.*f", false, [](const char* f) { return Format(f, 65536u, 1.5); }},
               {"%-*s", false, [](const char* f) { return Format(f, Int64{1} << 40, "x"); }},
               {"%9d%9d%99999d", false, [](const char* f) { return Format(f, 1, 2, 3); }}};
  for (const auto& c : cases) {
    const std::string f = c.fmt;
    EXPECT_EQ(MessageOf<EConvertError>([&] { c.call(c.fmt); }),
              c.missing ? "No argument for format '" + f + "'"
                        : "Format '" + f + "' invalid or incompatible with argument");
  }
}

TEST(FloatTextTest, ShortestGeneralText) {
  const struct {
    Extended value;
    const char* expected;
  } cases[] = {{0.0, "0"},
               {-0.0, "0"},
               {0.1, "0,1"},
               {0.1 + 0.2, "0,3"},
               {-1.5, "-1,5"},
               {100.0, "100"},
               {1.0 / 3.0, "0,333333333333333"},
               {2.0 / 3.0, "0,666666666666667"},
               {123456789012345.0, "123456789012345"},
               {1e15, "1E15"},
               {1234567890123456.0, "1,23456789012346E15"},
               {999999999999999.5, "1E15"},  // the carry runs through every digit
               {0.0001, "0,0001"},
               {0.00001, "1E-5"},
               {1.5e-5, "1,5E-5"},
               {-2.5e-300, "-2,5E-300"},
               {1e4000L, "1E4000"},
               {kNaN, "NAN"},
               {kInf, "INF"},
               {-kInf, "-INF"},
               // 18 digits are produced first (1.00000000000000500), then cut half-up at 15.
               {1.000000000000004999999L, "1,00000000000001"}};
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const auto& c : cases) EXPECT_EQ(FloatToStr(c.value), c.expected) << c.expected;
}

TEST(FloatTextTest, AllFormats) {
  const AnsiString rub = " " + R(u8"р.");
  const struct {
    Extended value;
    TFloatFormat format;
    int precision, digits;
    AnsiString expected;
  } cases[] = {{1234.5678, ffFixed, 15, 2, "1234,57"},
               {2.675L, ffFixed, 15, 2, "2,68"},
               {2.675, ffFixed, 15, 2, "2,67"},  // the double lies below the half
               {1.005L, ffFixed, 15, 2, "1,01"},
               {0.125, ffFixed, 15, 2, "0,13"},  // half away from zero, not to even
               {-2.5, ffFixed, 15, 0, "-3"},
               {0.5, ffFixed, 15, 0, "1"},
               {-0.004, ffFixed, 15, 2, "0,00"},
               {1e16, ffFixed, 15, 2, "1E16"},
               {123.456, ffFixed, 4, 2, "123,50"},  // precision wins over digits
               {0.001, ffFixed, 15, 25, "0,001000000000000000"},
               {1234.5678, ffNumber, 15, 2, "1" + NB + "234,57"},
               {-1234567.5, ffNumber, 15, 0, "-1" + NB + "234" + NB + "568"},
               {999.999, ffNumber, 15, 2, "1" + NB + "000,00"},
               {1234.5678, ffExponent, 4, 2, "1,235E+03"},
               {0.0, ffExponent, 3, 0, "0,00E+0"},
               {-1.5e-10, ffExponent, 5, 9, "-1,5000E-0010"},
               {1234.5, ffGeneral, 3, 0, "1,23E3"},
               {1234.5, ffGeneral, 15, 2, "1234,5"},
               {0.00001, ffGeneral, 15, 2, "1E-05"},
               {1234.5, ffCurrency, 15, 2, "1" + NB + "234,50" + rub},
               {-1234.5, ffCurrency, 15, 2, "-1" + NB + "234,50" + rub},
               {-0.001, ffCurrency, 15, 2, "0,00" + rub},
               {kNaN, ffFixed, 15, 2, "NAN"},
               {-kInf, ffCurrency, 15, 2, "-INF"}};
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const auto& c : cases)
    EXPECT_EQ(FloatToStrF(c.value, c.format, c.precision, c.digits), c.expected) << c.expected;
}

TEST(FloatTextTest, CurrencyLayouts) {
  TFormatSettings s = TFormatSettings::Russian();
  s.CurrencyString = "$";
  const char* negative[16] = {"($1)", "-$1",  "$-1",  "$1-",  "(1$)", "-1$",  "1-$",   "1$-",
                              "-1 $", "-$ 1", "1 $-", "$ 1-", "$ -1", "1- $", "($ 1)", "(1 $)"};
  for (int f = 0; f < 16; ++f) {
    s.NegCurrFormat = static_cast<Byte>(f);
    EXPECT_EQ(FloatToStrF(-1.0, ffCurrency, 15, 0, s), negative[f]) << "NegCurrFormat " << f;
  }
  const char* positive[4] = {"$1", "1$", "$ 1", "1 $"};
  for (int f = 0; f < 4; ++f) {
    s.CurrencyFormat = static_cast<Byte>(f);
    EXPECT_EQ(FloatToStrF(1.0, ffCurrency, 15, 0, s), positive[f]) << "CurrencyFormat " << f;
  }
}

TEST(FormatFloatTest, Pictures) {
  const struct {
    AnsiString format;
    Extended value;
    AnsiString expected;
  } cases[] = {{"0.00", 1234.567, "1234,57"},
               {"#,##0.00", 1234567.891, "1" + NB + "234" + NB + "567,89"},
               {"#,##0", -1234567.0, "-1" + NB + "234" + NB + "567"},
               {"#,##0.00", 0.5, "0,50"},
               {"#.##", 0.5, ",5"},
               {"#.##", 0.0, ""},
               {"0.##", 1.0, "1"},
               {"0.##", 1.5, "1,5"},
               {"000", 7.0, "007"},
               {"00.00", 0.125, "00,13"},
               {"0", 2.5, "3"},
               {"0", -2.5, "-3"},
               {"0.00", -0.001, "0,00"},
               {"0.00;(0.00);'zero'", -12.25, "(12,25)"},
               {"0.00;(0.00);'zero'", 0.0, "zero"},
               {"0.00;(0.00);'zero'", 5.0, "5,00"},
               {"0.00;;zero", -1.5, "-1,50"},
               {"0.00E+00", 1234.5, "1,23E+03"},
               {"0.000E-0", 0.0001220703125, "1,221E-4"},
               {"0.0e+00", 0.0, "0,0e+00"},
               {"00.0E+0", 1234.5, "12,3E+2"},
               {"\"x\"0", 5.0, "x5"},
               {"0.0", 1e25, "1E25"},
               {"", 1.5, "1,5"},
               {"0.00", kNaN, "NAN"},
               {R(u8"'Итого: '#,##0.00' р.'"), 1500.0, R(u8"Итого: 1") + NB + R(u8"500,00 р.")}};
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const auto& c : cases)
    EXPECT_EQ(FormatFloat(c.format, c.value), c.expected) << "'" << c.format << "'";
}

TEST(IntParseTest, AcceptsTheClassicSyntax) {
  const struct {
    const char* text;
    Integer value;
  } cases[] = {{"0", 0},
               {"  42", 42},
               {"+7", 7},
               {"-2147483648", INT32_MIN},
               {"2147483647", INT32_MAX},
               {"$FF", 255},
               {"0x1f", 31},
               {"x10", 16},
               {"-$10", -16},
               {"$FFFFFFFF", -1},
               {"007", 7}};
  for (const auto& c : cases) EXPECT_EQ(StrToInt(c.text), c.value) << c.text;
  EXPECT_EQ(StrToInt64("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(StrToInt64("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(StrToInt64("$FFFFFFFFFFFFFFFF"), -1);
  EXPECT_EQ(StrToInt64("99999999999"), 99999999999);
}

TEST(IntParseTest, RejectsEverythingElse) {
  const char* bad[] = {"",      " ",          "12 ",         "1a",  "99999999999", "--1",
                       "+",     "2147483648", "-2147483649", "$",   "0x",          "$100000000",
                       "1 000", "\t5",        "1.0",         "1e3", "- 1"};
  for (const char* text : bad) {
    Integer v = 99;
    EXPECT_FALSE(TryStrToInt(text, v)) << "'" << text << "'";
    EXPECT_EQ(StrToIntDef(text, -7), -7) << "'" << text << "'";
  }
  Int64 w;
  EXPECT_FALSE(TryStrToInt64("9223372036854775808", w));
  EXPECT_FALSE(TryStrToInt64("$10000000000000000", w));
  EXPECT_EQ(MessageOf<EConvertError>([] { StrToInt("1a"); }), "'1a' is not a valid integer value");
}

TEST(IntTextTest, DecimalAndHex) {
  EXPECT_EQ(IntToStr(std::numeric_limits<Int64>::min()), "-9223372036854775808");
  EXPECT_EQ(UIntToStr(std::numeric_limits<UInt64>::max()), "18446744073709551615");
  EXPECT_EQ(IntToHex(255, 4), "00FF");
  EXPECT_EQ(IntToHex(-1, 2), "FFFFFFFF");
  EXPECT_EQ(IntToHex(Int64{-2}, 1), "FFFFFFFFFFFFFFFE");
  EXPECT_EQ(IntToHex(0, 0), "0");
}

TEST(FloatParseTest, ParsesWithTheLocaleSeparator) {
  // clang-format off
  const struct { const char* text; Extended value; } cases[] = {
      {"1,5", 1.5L}, {"  -2,25  ", -2.25L}, {"1E3", 1000.0L}, {"1,5e-2", 0.015L}, {",5", 0.5L},
      {"5,", 5.0L}, {"+3", 3.0L}, {"0,1", 0.1L}, {"1E-5000", 0.0L}};
  // clang-format on
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const auto& c : cases) EXPECT_EQ(StrToFloat(c.text), testutil::X(c.value)) << c.text;
  double d = 0;
  ASSERT_TRUE(TryStrToFloat("0,1", d));
  EXPECT_EQ(d, 0.1);  // rounded once, straight to double
  Extended v = 0;
  EXPECT_TRUE(TryStrToFloat("1.5", v, TFormatSettings::Invariant()));
  EXPECT_EQ(v, 1.5L);
}

TEST(FloatParseTest, RejectsForeignSyntax) {
  // "1\240000" is 1, the no-break space (octal 240) and 000.
  const char* bad[] = {"",  " ",      "1.5", "1,5,5", "1 000", "1\240000", "1E",  "E5",  ",",
                       "-", "1e5000", "abc", "1,5x",  "\t1",   "NAN",      "INF", "1E+", "--1"};
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const char* text : bad) {
    Extended v = 42;
    EXPECT_FALSE(TryStrToFloat(text, v)) << "'" << text << "'";
    EXPECT_EQ(v, 42) << "'" << text << "'";
  }
  EXPECT_EQ(StrToFloatDef("1.5", -1), -1);
  EXPECT_EQ(MessageOf<EConvertError>([] { StrToFloat("1.5"); }),
            "'1.5' is not a valid floating point value");
}

TEST(CurrencyTextTest, DoubleToCurrencyRoundsHalfToEven) {
  const struct {
    Extended value;
    Int64 raw;
  } cases[] = {{0.03125, 312},  // exactly 312.5 ten-thousandths: to the even neighbour
               {0.09375, 938},
               {-0.03125, -312},
               {1.23456, 12346},
               {0.0, 0},
               {0.00015, 1},  // the double is just below 1.5 ten-thousandths
               {-922337203685477.0L, -9223372036854770000}};
  for (const auto& c : cases) EXPECT_EQ(DoubleToCurrency(c.value).Raw, c.raw) << c.raw;
  EXPECT_EQ(CurrencyToExtended(Currency::FromRaw(-15000)), -1.5L);
  for (Extended bad : {1e15L, -1e15L, kNaN, kInf})
    EXPECT_THROW(DoubleToCurrency(bad), EConvertError);
}

TEST(CurrencyTextTest, TextInAndOut) {
  struct Case {
    Int64 raw;
    const char* text;
  };
  const Case out[] = {{15000, "1,5"},
                      {-1, "-0,0001"},
                      {30000, "3"},
                      {0, "0"},
                      {123456789, "12345,6789"},
                      {INT64_MAX, "922337203685477,5807"},
                      {INT64_MIN, "-922337203685477,5808"}};
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const auto& c : out) {
    EXPECT_EQ(CurrToStr(Currency::FromRaw(c.raw)), c.text);
    EXPECT_EQ(StrToCurr(c.text).Raw, c.raw) << c.text;
  }
  EXPECT_EQ(CurrToStrF(Currency::FromRaw(12345678), ffNumber, 2), "1" + NB + "234,57");
  EXPECT_EQ(CurrToStrF(Currency::FromRaw(10050), ffFixed, 2), "1,01");
  EXPECT_EQ(CurrToStrF(Currency::FromRaw(-12345678), ffCurrency, 1),
            "-1" + NB + "234,6 " + R(u8"р."));

  const Case in[] = {{12346, "1,23455"}, {12344, "1,23445"}, {0, "-0,00005"}, {10000, " 1 "}};
  for (const auto& c : in) EXPECT_EQ(StrToCurr(c.text).Raw, c.raw) << c.text;
  Currency c;
  for (const char* bad : {"922337203685478", "1.5", "", "1,5 р."})
    EXPECT_FALSE(TryStrToCurr(bad, c)) << bad;
  EXPECT_THROW(StrToCurr("x"), EConvertError);
}

TEST(BoolTextTest, TextsBothWays) {
  EXPECT_EQ(BoolToStr(true) + BoolToStr(false) + BoolToStr(true, true) + BoolToStr(false, true),
            "-10TrueFalse");
  // clang-format off
  const struct { const char* text; bool value; } good[] = {
      {"true", true}, {"FALSE", false}, {"0", false}, {"-1", true}, {"2,5", true}, {"0,0", false}};
  // clang-format on
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const auto& c : good) EXPECT_EQ(StrToBool(c.text), c.value) << c.text;
  bool b;
  for (const char* bad : {"yes", "", "T", "1.0"}) EXPECT_FALSE(TryStrToBool(bad, b)) << bad;
  EXPECT_EQ(MessageOf<EConvertError>([] { StrToBool("maybe"); }),
            "'maybe' is not a valid boolean value");
}

}  // namespace
}  // namespace ostrel
