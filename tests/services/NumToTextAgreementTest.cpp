// Amounts given as doubles against the same amounts given as decimal text, and the table's
// dictionaries, whose pieces are spoken in advance, against dictionaries passed in, which
// are spoken word by word.
#include <ostrel/services/NumToText.h>

#include <ostrel/rtl/Strings.h>

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <random>
#include <string>

namespace ostrel {
namespace {

std::string U8(std::u8string_view s) { return std::string(s.begin(), s.end()); }
std::string Utf(const AnsiString& s) { return AnsiToUtf8(s); }

// A double's amount in words is the same as that of the shortest decimal text that reads
// back as the double, whatever its size (below 2^53, where fixed and shortest digits agree),
// sign and count of decimals.
TEST(CrcToText, AgreesWithTheShortestDecimalTextOfTheDouble) {
  std::mt19937_64 gen(11);
  std::uniform_int_distribution<int> digits(0, 15), decimals(0, 4), cents(0, 999);
  TkxNumToTextRec en, ru;
  ASSERT_TRUE(TkxNumToTextPr::GetNumRec("EN", en, true));
  ASSERT_TRUE(TkxNumToTextPr::GetNumRec("RU", ru, true));
  for (int k = 0; k < 3000; ++k) {
    double whole =
        std::floor(std::ldexp(static_cast<double>(gen() >> 11), -53) * std::pow(10.0, digits(gen)));
    const int fraction = k % 5 < 2 ? cents(gen) % 22 : cents(gen);  // often 1 and the teens
    double value = whole + fraction / std::pow(10.0, k % 4);
    if (k % 3 == 0) value = -value;
    if (k % 7 == 0) value = whole;
    char text[400];
    const auto r = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    const std::string_view amount(text, static_cast<std::size_t>(r.ptr - text));
    const int dec = decimals(gen);
    // The table's dictionaries keep their groups spoken in advance; a dictionary passed in
    // is spoken word by word.
    for (const TkxNumToTextRec* rec : {&ru, &en}) {
      const TkxCrcToTextRec& crc = rec->Currencies[static_cast<std::size_t>(k) % 3];
      const AnsiString spoken = CrcToText(rec->Code, crc.Code, value, dec);
      ASSERT_EQ(spoken, AmountToText(rec->Code, crc.Code, amount, dec)) << amount << " " << dec;
      ASSERT_EQ(spoken, TkxNumToTextPr::CrcToText(*rec, crc.IntName, crc.FracName, value, dec))
          << amount << " " << dec;
      ASSERT_EQ(spoken, TkxNumToTextPr::AmountToText(*rec, crc.IntName, crc.FracName, amount, dec))
          << amount << " " << dec;
    }
    // The whole number alone: the same words with the unit's gender, first letter aside.
    const AnsiString words = NumToText("RU", value, Female);
    const AnsiString withUnit = TkxNumToTextPr::AmountToText(ru, "x:f", "", amount, 0);
    ASSERT_FALSE(words.empty());
    ASSERT_EQ(AnsiUpperChar(words[0]), withUnit[0]) << amount;
    ASSERT_EQ(words.substr(1) + " x", withUnit.substr(1)) << amount;
  }
  // Unit words too long to be kept ready are put together on each call, to the same text.
  EXPECT_EQ(Utf(FloatToTextSymb(22.01, 2,
                                Ansi(u8"условн|ая расчётная единица учёта|ые расчётные "
                                     u8"единицы учёта|ых расчётных единиц учёта:f"),
                                Ansi(u8"дол|я расчётной единицы учёта|и расчётной единицы "
                                     u8"учёта|ей расчётной единицы учёта:f"))),
            U8(u8"Двадцать две условные расчётные единицы учёта 01 доля расчётной единицы "
               u8"учёта"));
}

}  // namespace
}  // namespace ostrel
