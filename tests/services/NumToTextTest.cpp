// Numbers and amounts in words: Russian word forms, English joiners, the dictionary table.
#include <ostrel/services/NumToText.h>

#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Strings.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

namespace ostrel {
namespace {

// Results are compared as UTF-8 so that a failure prints readable text.
std::string U8(std::u8string_view s) { return std::string(s.begin(), s.end()); }
std::string Utf(const AnsiString& s) { return AnsiToUtf8(s); }

std::string Words(std::string_view lang, std::string_view digits, TSex sex = Male) {
  AnsiString text;
  TkxNumToTextPr::NumToText(lang, digits, text, sex);
  return Utf(text);
}

TEST(CrcToText, WorkedExamplesComeOutByteForByte) {
  EXPECT_EQ(Utf(CrcToText("RU", "RUR", 1021.05, 2)),
            U8(u8"Одна тысяча двадцать один рубль 05 копеек"));
  EXPECT_EQ(Utf(CrcToText("EN", "USD", 1021.05, 2)), "One thousand twenty-one dollars 05 cents");
  // The doubled blank comes from the thousands group standing last.
  EXPECT_EQ(Utf(CrcToText("RU", "RUR", 2000, 2)), U8(u8"Две тысячи  рублей 00 копеек"));
}

TEST(CrcToText, RussianAmountsUseTheRightWordForms) {
  const std::pair<double, const char8_t*> cases[] = {
      // clang-format off
      {1, u8"Один рубль 00 копеек"}, {2.01, u8"Два рубля 01 копейка"},
      {3.02, u8"Три рубля 02 копейки"}, {4.04, u8"Четыре рубля 04 копейки"},
      {5.05, u8"Пять рублей 05 копеек"}, {10.1, u8"Десять рублей 10 копеек"},
      {11.11, u8"Одиннадцать рублей 11 копеек"}, {12.12, u8"Двенадцать рублей 12 копеек"},
      {14.14, u8"Четырнадцать рублей 14 копеек"}, {20, u8"Двадцать рублей 00 копеек"},
      {21.21, u8"Двадцать один рубль 21 копейка"}, {22.22, u8"Двадцать два рубля 22 копейки"},
      {111, u8"Сто одиннадцать рублей 00 копеек"}, {101, u8"Сто один рубль 00 копеек"},
      {999, u8"Девятьсот девяносто девять рублей 00 копеек"},
      {1001, u8"Одна тысяча один рубль 00 копеек"}, {3000, u8"Три тысячи  рублей 00 копеек"},
      {5000, u8"Пять тысяч  рублей 00 копеек"}, {11000, u8"Одиннадцать тысяч  рублей 00 копеек"},
      {21000, u8"Двадцать одна тысяча  рублей 00 копеек"},
      {22000, u8"Двадцать две тысячи  рублей 00 копеек"},
      {1000000, u8"Один миллион  рублей 00 копеек"},
      {2002000, u8"Два миллиона две тысячи  рублей 00 копеек"},
      {5000001, u8"Пять миллионов один рубль 00 копеек"},
      {1000000000, u8"Один миллиард  рублей 00 копеек"},
      {12000000000, u8"Двенадцать миллиардов  рублей 00 копеек"},
      {3000000000000, u8"Три триллиона  рублей 00 копеек"}, {1e15, u8"Один ...  рублей 00 копеек"},
      // clang-format on
      {12345678901234.56,
       u8"Двенадцать триллионов триста сорок пять миллиардов шестьсот семьдесят восемь "
       u8"миллионов девятьсот одна тысяча двести тридцать четыре рубля 56 копеек"},
      {0, u8"Ноль рублей 00 копеек"},
      {0.01, u8"Ноль рублей 01 копейка"},
      {-5, u8"Минус пять рублей 00 копеек"},
      {-0.001, u8"Ноль рублей 00 копеек"},
      // Amounts round half away from zero, forgiving the binary representation error.
      {2.675, u8"Два рубля 68 копеек"},
      {0.125, u8"Ноль рублей 13 копеек"},
      {1.005, u8"Один рубль 01 копейка"},
      {19.999, u8"Двадцать рублей 00 копеек"}};
  for (const auto& [value, text] : cases)
    EXPECT_EQ(Utf(CrcToText("ru", "rur", value, 2)), U8(text));
}

TEST(CrcToText, CurrenciesAndLanguages) {
  EXPECT_EQ(Utf(CrcToText("RU", "USD", 21.5, 2)), U8(u8"Двадцать один доллар США 50 центов"));
  EXPECT_EQ(Utf(CrcToText("RU", "USD", 3.01, 2)), U8(u8"Три доллара США 01 цент"));
  // The euro keeps its Latin first letter and does not inflect.
  EXPECT_EQ(CrcToText("RU", "EUR", 5, 2), Ansi(u8"Пять ") + "e" + Ansi(u8"вро 00 центов"));
  EXPECT_EQ(Utf(CrcToText("EN", "EUR", 5, 2)), "Five euro 00 cents");
  EXPECT_EQ(Utf(CrcToText("EN", "RUR", 1.01, 2)), "One rouble 01 kopecks");
  EXPECT_EQ(Utf(CrcToText("EN", "USD", 2.01, 2)), "Two dollars 01 cents");
  EXPECT_EQ(Utf(CrcToText("EN", "USD", 7, 0)), "Seven dollars");
  EXPECT_EQ(Utf(CrcToText("EN", "USD", 7.5, 1)), "Seven dollars 5 cents");
  EXPECT_EQ(Utf(FloatToTextSymb(2, 0, Ansi(u8"штук|а|и|:f"), "")), U8(u8"Две штуки"));
}

TEST(AmountToText, KeepsEveryDigitOfADecimalText) {
  EXPECT_EQ(Utf(AmountToText("RU", "RUR", " 1 021,05 ")),
            U8(u8"Одна тысяча двадцать один рубль 05 копеек"));
  EXPECT_EQ(Utf(AmountToText("RU", "RUR", "2.675")), U8(u8"Два рубля 68 копеек"));
  EXPECT_EQ(Utf(AmountToText("RU", "RUR", "9.995")), U8(u8"Десять рублей 00 копеек"));
  EXPECT_EQ(Utf(AmountToText("RU", "RUR", "0.00499999999999999999999")),
            U8(u8"Ноль рублей 00 копеек"));
  // A whole part of "-0" is spoken as plain zero, as NumToText speaks "-0".
  EXPECT_EQ(Utf(AmountToText("RU", "RUR", "-0.005")), U8(u8"Ноль рублей 01 копейка"));
  EXPECT_EQ(Utf(AmountToText("RU", "RUR", "-1.005")), U8(u8"Минус один рубль 01 копейка"));
  EXPECT_EQ(Utf(AmountToText("EN", "USD", "+007.5", 0)), "Eight dollars");
  EXPECT_EQ(Utf(AmountToText("EN", "USD", ".5", 1)), "Zero dollars 5 cents");
  // Forty digits, each of them spoken: the lowest group is not lost to floating point.
  const std::string forty = Utf(AmountToText("EN", "USD", std::string(39, '9') + "1"));
  EXPECT_EQ(forty.substr(0, 11), "Nine ... ni");
  EXPECT_NE(forty.find("nine hundred and ninty-one dollars 00 cents"), std::string::npos);
  for (const char* bad :
       {"", " ", "-", "+", ".", "1e5", "12a", "1.2.3", "1,2,3", "--1", "nan", "1 .5 5"})
    EXPECT_THROW(AmountToText("RU", "RUR", bad), EConvertError) << bad;
}

TEST(NumToText, RussianGendersAndSigns) {
  const struct {
    const char* digits;
    TSex sex;
    const char8_t* words;
  } cases[] = {{"1", Male, u8"один"},
               // clang-format off
               {"1", Female, u8"одна"}, {"1", Unmale, u8"одно"}, {"2", Male, u8"два"},
               {"2", Female, u8"две"}, {"-5", Male, u8"минус пять"}, {"0", Male, u8"ноль"},
               {"+12", Male, u8"плюс двенадцать"}, {"000", Male, u8"ноль"}, {"-0", Male, u8"ноль"},
               {"10", Male, u8"десять"}, {"11", Male, u8"одиннадцать"},
               // Thousands are feminine whatever the gender asked for; millions masculine.
               {"2002001", Unmale, u8"два миллиона две тысячи одно"},
               // clang-format on
               {"7.99", Male, u8"семь"}};  // only the part before the point is read
  for (const auto& c : cases) EXPECT_EQ(Words("RU", c.digits, c.sex), U8(c.words)) << c.digits;
  EXPECT_EQ(Utf(FloatToText(41, Female)), U8(u8"сорок одна"));
  EXPECT_EQ(Utf(NumToText("ru", 2.5)), U8(u8"три"));
}

TEST(NumToText, EnglishJoinersAndSpelling) {
  const std::pair<const char*, const char*> cases[] = {{"21", "twenty-one"},
                                                       {"21000", "twenty one thousand "},
                                                       {"110", "one hundred and ten"},
                                                       {"121", "one hundred and twenty-one"},
                                                       {"100", "one hundred"},
                                                       {"40", "fourty"},
                                                       {"90", "ninty"},
                                                       {"-3", "minus three"},
                                                       {"2000000", "two million "},
                                                       {"1000001", "one million one"}};
  for (const auto& [digits, words] : cases) EXPECT_EQ(Words("EN", digits), words);
}

TEST(NumToText, HostileDigitStringsNeverFail) {
  // 40 digits: groups above the trillions are joined by " ... ".
  const std::string big = Words("RU", "1234567890123456789012345678901234567890");
  EXPECT_NE(big.find(" ... "), std::string::npos);
  EXPECT_EQ(big.substr(0, big.find(' ')), U8(u8"один"));
  for (const char* digits : {"", "-", "+-+", "abc"}) EXPECT_EQ(Words("RU", digits), U8(u8"ноль"));
  EXPECT_EQ(Words("EN", "."), "zero");
}

TEST(CrcToText, RejectsNonFiniteAmountsAndUnknownCodes) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_THROW(CrcToText("RU", "RUR", nan, 2), Exception);
  EXPECT_THROW(CrcToText("RU", "RUR", -inf, 2), Exception);
  EXPECT_THROW(FloatToText(inf), Exception);
  EXPECT_EQ(Utf(testutil::MessageOf([] { CrcToText("DE", "RUR", 1, 2); })),
            U8(u8"NumToText: нет словаря для языка \"DE\""));
  EXPECT_EQ(Utf(testutil::MessageOf([] { CrcToText("RU", "GBP", 1, 2); })),
            U8(u8"NumToText: в словаре \"RU\" нет данных по валюте \"GBP\""));
  TkxNumToTextRec rec;
  EXPECT_FALSE(TkxNumToTextPr::GetNumRec("", rec, false));
  TkxCrcToTextRec crc;
  EXPECT_FALSE(TkxNumToTextPr::GetCrcRec("RU", "XXX", crc, false));
  // A 41-digit amount is spoken, not refused; the digits are those the value was written with.
  const AnsiString big = CrcToText("EN", "USD", 1e40, 2);
  EXPECT_EQ(big.substr(0, 8), "Ten ... ");
  EXPECT_EQ(big.substr(big.size() - 16), "dollars 00 cents");
}

TEST(NumToTextPr, WordFormsSelection) {
  // clang-format off
  struct Case { const char* digits; int russian; int english; } cases[] = {
      {"1", 1, 1}, {"2", 2, 2}, {"4", 2, 2}, {"5", 3, 2}, {"0", 3, 2}, {"11", 3, 2}, {"14", 3, 2},
      {"21", 1, 2}, {"01", 1, 2}, {"111", 3, 2}, {"1001", 1, 2}, {"22", 2, 2}, {"", 3, 2},
      {"-1", 1, 2}};
  // clang-format on
  for (const Case& c : cases) {
    EXPECT_EQ(TkxNumToTextPr::GetNPadej(c.digits, true), c.russian) << c.digits;
    EXPECT_EQ(TkxNumToTextPr::GetNPadej(c.digits, false), c.english) << c.digits;
  }
  const AnsiString rouble = Ansi(u8"рубл|ь|я|ей");
  EXPECT_EQ(Utf(IntToStrSymb(5, rouble) + "|" + IntToStrSymb(1, rouble) + "|" +
                IntToStrSymb(113, rouble) + "|" + IntToStrSymb(-23, rouble)),
            U8(u8"5 рублей|1 рубль|113 рублей|-23 рубля"));
}

TEST(NumToTextPr, EntryNotation) {
  EXPECT_EQ(Utf(GetEnding(Ansi(u8"тысяч|а|и|"), 3) + " " + GetEnding(Ansi(u8"тысяч|а|и|"), 2)),
            U8(u8"тысяч тысячи"));
  EXPECT_EQ(testutil::Join(GetEnding("euro", 2), GetEnding("rouble||s", 1),
                           GetEnding("rouble||s", 2), GetEnding("rouble||s", 7)),
            "euro rouble roubles rouble");

  struct Case {
    std::u8string_view entry;
    std::u8string_view stripped;
    TSex sex;
    bool englishRule;
  } cases[] = {
      {u8"рубл|ь|я|ей:m", u8"рубл|ь|я|ей", Male, false},
      {u8"копе|йка|йки|ек:f", u8"копе|йка|йки|ек", Female, false},
      {u8"сут|ки|ок|ок:Ж", u8"сут|ки|ок|ок", Female, false},
      {u8"сол|нце|нца|нц(С)", u8"сол|нце|нца|нц", Unmale, false},
      {u8"дел|о|а|:u", u8"дел|о|а|", Unmale, false},
      {u8"cent||s:a", u8"cent||s", Male, true},
      {u8"a:b:F", u8"a:b", Female, false},
      {u8"eвро", u8"eвро", Male, false},
      {u8"x:", u8"x", Male, false},
  };
  for (const Case& c : cases) {
    AnsiString stripped;
    TSex sex = Female;
    ExtractSex(Ansi(c.entry), stripped, sex);
    EXPECT_EQ(Utf(stripped), U8(c.stripped));
    EXPECT_EQ(sex, c.sex) << U8(c.entry);
    EXPECT_EQ(ExtractSex(Ansi(c.entry), stripped) == 'A', c.englishRule) << U8(c.entry);
  }

  using Pr = TkxNumToTextPr;
  EXPECT_EQ(Pr::GetNS("a;b;c", 2) + Pr::GetNS("a;b;c", '3'), "bc");
  EXPECT_EQ(Pr::GetNS("a;b;c", 4) + Pr::GetNS("a;b;c", 0) + Pr::GetNS("a;;c", 2), "");
}

TEST(NumToTextPr, ShortWordListsGiveEmptyWords) {
  TkxNumToTextRec rec;
  rec.Code = "T1";
  rec.Zero = "nil";
  rec.Ones = "one;two";
  rec.Tens = "ten";
  rec.Powers = "k";
  AnsiString text;
  TkxNumToTextPr::NumToText(rec, "9", text, Male);
  EXPECT_EQ(text, "");
  TkxNumToTextPr::NumToText(rec, "2001", text, Male);
  EXPECT_EQ(text, "two k one");
  TkxNumToTextPr::GetNText(rec, 0, text, Male, "012");
  EXPECT_EQ(text, "");  // no teens at all
  TkxNumToTextPr::GetNText(rec, 0, text, Male, "000");
  EXPECT_EQ(text, "");
}

TEST(NumToTextPr, DictionariesAreReplacedAndExtended) {
  TkxNumToTextRec rec;
  ASSERT_TRUE(TkxNumToTextPr::GetNumRec("en", rec, true));
  EXPECT_EQ(rec.Code, "EN");
  EXPECT_EQ(rec.Currencies.size(), 3u);

  // A pseudo-language added by an application, then replaced under the same code.
  TkxNumToTextRec custom = rec;
  custom.Code = "XQ";
  custom.Zero = "none";
  TkxNumToTextPr::AddNumRec(custom);
  EXPECT_GE(TkxNumToTextPr::IndexOfNumRec("xq"), 0);
  custom.Zero = "nothing";
  const int before = TkxNumToTextPr::IndexOfNumRec("XQ");
  TkxNumToTextPr::AddNumRec(custom);
  EXPECT_EQ(TkxNumToTextPr::IndexOfNumRec("XQ"), before);
  EXPECT_EQ(Words("XQ", "0"), "nothing");

  TkxNumToTextPr::AddCrcRec("XQ", {"GBP", "pound||s:a", "penny||:a"});
  TkxNumToTextPr::AddCrcRec("XQ", {"gbp", "pound||s:a", "pence"});
  ASSERT_TRUE(TkxNumToTextPr::GetNumRec("XQ", rec, true));
  EXPECT_EQ(rec.Currencies.size(), 4u);
  EXPECT_EQ(Utf(CrcToText("XQ", "GBP", 3.5, 2)), "Three pounds 50 pence");
  EXPECT_EQ(TkxNumToTextPr::IndexOfCrcRec(rec, "Gbp"), 3);
  EXPECT_EQ(TkxNumToTextPr::IndexOfCrcRec(rec, "JPY"), -1);
  // The built-in dictionaries are untouched by the change.
  ASSERT_TRUE(TkxNumToTextPr::GetNumRec("EN", rec, true));
  EXPECT_EQ(rec.Currencies.size(), 3u);
}

TEST(NumToTextPr, ADictionaryAddedFirstKeepsTheBuiltInOnesOut) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process with an empty table
  EXPECT_EXIT(
      {
        TkxNumToTextRec own;
        own.Code = "XX";
        own.Zero = "zip";
        TkxNumToTextPr::AddNumRec(own);
        TkxNumToTextRec rec;
        const bool ru = TkxNumToTextPr::GetNumRec("RU", rec, false);
        const bool xx = TkxNumToTextPr::GetNumRec("XX", rec, false);
        std::exit(!ru && xx && rec.Zero == "zip" ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace ostrel
