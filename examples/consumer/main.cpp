// A small program using Ostrel as an installed library: Russian text is kept in CP1251
// inside the program and converted to UTF-8 only when printed.
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Exceptions.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>

#include <iostream>

using namespace ostrel;

static void Print(std::string_view ansi) { std::cout << AnsiToUtf8(ansi) << '\n'; }

int main() {
  // A Russian literal becomes CP1251 at compile time.
  static constexpr auto city = Cp1251(u8"Санкт-Петербург");
  Print(AnsiUpperCase(city));

  // Numbers follow the Russian defaults: decimal comma.
  static constexpr auto total = Cp1251(u8"Итого: %d шт. по %.2f");
  Print(Format(total, 3, 1234.5));
  Print(FloatToStr(StrToFloat("0,125") * 2));

  // Dates: the leap day moves to the end of February a year later.
  TDateTime leapDay = EncodeDate(2024, 2, 29);
  Print(FormatDateTime("dd.mm.yyyy", IncMonth(leapDay, 12)));
  Print(FormatDateTime("yyyy-mm-dd hh:nn", leapDay + EncodeTime(18, 30, 0, 0)));

  // Case-insensitive comparison knows Cyrillic, Ё included.
  static constexpr auto lower = Cp1251(u8"ёлка");
  static constexpr auto upper = Cp1251(u8"ЁЛКА");
  Print(AnsiSameText(lower, upper) ? "same text" : "different texts");

  // Errors are exceptions; what() is UTF-8.
  try {
    StrToInt("12x");
    Print("no error");
  } catch (const EConvertError& e) {
    std::cout << e.ClassName() << ": " << e.what() << '\n';
  }
  return 0;
}
