// Numbers and money amounts in words, with the word forms of each language: "Одна тысяча
// двадцать один рубль 05 копеек". Russian and English are built in; applications may add or
// replace dictionaries at start-up.
#pragma once

#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/Types.h>

#include <string_view>
#include <vector>

namespace ostrel {

// Grammatical gender of a counted noun or of the digits before it.
enum TSex : Byte { Male, Female, Unmale };

// Word entries use the form notation "stem|form1|form2|form3" with an optional gender suffix
// after the last ":" or "(": "m" or "М" masculine, "f" or "Ж" feminine, "u" or "С" neuter,
// anything else masculine; "a" also selects the English plural rule for a unit word.

// One currency of a dictionary: code and the unit words of the whole part and the fraction.
struct TkxCrcToTextRec {
  AnsiString Code;
  AnsiString IntName;
  AnsiString FracName;
};

// One language dictionary. Word lists are ";"-separated.
struct TkxNumToTextRec {
  AnsiString Code;         // language code, matched without regard to case
  AnsiString Plus;         // said for a leading "+"
  AnsiString Minus;        // said for a leading "-"
  AnsiString Zero;         // the whole text when every digit is 0
  AnsiString Ones;         // 1..9
  AnsiString Tens;         // 10, 20 .. 90
  AnsiString Teens;        // 11..19
  AnsiString Hundreds;     // 100 .. 900
  AnsiString Powers;       // 10^3, 10^6, 10^9, 10^12
  AnsiString TensDiv;      // between tens and units of the lowest group; empty means a blank
  AnsiString HundredsDiv;  // between hundreds and the rest of a group; empty means a blank
  std::vector<TkxCrcToTextRec> Currencies;
};

// Messages of the lookups: the language code; the dictionary code and the currency code.
inline constexpr auto _SErrNumToTextUnkCode = Cp1251(u8"NumToText: нет словаря для языка \"%s\"");
inline constexpr auto _SErrNumToTextUnkCrcCode =
    Cp1251(u8"NumToText: в словаре \"%s\" нет данных по валюте \"%s\"");

// The process-wide dictionary table and the conversions. The table is filled with the
// built-in dictionaries (English first) by the first lookup that finds it empty; a
// dictionary added before that keeps the built-in ones out.
class OSTREL_API TkxNumToTextPr {
 public:
  TkxNumToTextPr() = delete;

  static void InitDict();
  static int IndexOfNumRec(std::string_view code);
  // Copies the dictionary out; an unknown code raises _SErrNumToTextUnkCode when
  // raiseIfAbsent, otherwise returns false.
  static bool GetNumRec(std::string_view code, TkxNumToTextRec& rec, bool raiseIfAbsent);
  // Replaces the dictionary with the same code, or appends it.
  static void AddNumRec(const TkxNumToTextRec& rec);

  static int IndexOfCrcRec(const TkxNumToTextRec& rec, std::string_view crcCode);
  static bool GetCrcRec(const TkxNumToTextRec& rec, std::string_view crcCode, TkxCrcToTextRec& crc,
                        bool raiseIfAbsent);
  static bool GetCrcRec(std::string_view langCode, std::string_view crcCode, TkxCrcToTextRec& crc,
                        bool raiseIfAbsent);
  // Replaces the currency with the same code, or appends it.
  static void AddCrcRec(TkxNumToTextRec& rec, const TkxCrcToTextRec& crc);
  // The same on a dictionary of the table; an unknown language raises.
  static void AddCrcRec(std::string_view langCode, const TkxCrcToTextRec& crc);

  // The n-th ";"-separated word of list, counting from 1; "" beyond the list.
  static AnsiString GetNS(std::string_view list, int n);
  // The same with a digit character standing for its value.
  static AnsiString GetNS(std::string_view list, char digit);
  // Word form after the number s: Russian rule 1 (after one), 2 (two to four), 3 (the rest,
  // and 11..14); English rule 1 for exactly "1", else 2.
  static int GetNPadej(std::string_view s, bool russian);
  // One group of up to three digits in words; group 0 is the lowest.
  static void GetNText(const TkxNumToTextRec& rec, int group, AnsiString& text, TSex sex,
                       std::string_view digits);
  // A digit string (optional leading sign; only the part before "." is read) in words.
  static void NumToText(const TkxNumToTextRec& rec, std::string_view s, AnsiString& text, TSex sex);
  static void NumToText(std::string_view langCode, std::string_view s, AnsiString& text, TSex sex);
  // An amount with its unit words, the fraction written in digits: "One thousand twenty-one
  // dollars 05 cents". Non-finite amounts raise.
  static AnsiString CrcToText(const TkxNumToTextRec& rec, std::string_view intName,
                              std::string_view fracName, Extended value, int decimals);
  static AnsiString CrcToText(std::string_view langCode, std::string_view intName,
                              std::string_view fracName, Extended value, int decimals);
  static AnsiString CrcToText(std::string_view langCode, std::string_view crcCode, Extended value,
                              int decimals);
  // As CrcToText for an amount written as decimal text ("-1021.05", "1 021,05"): every digit
  // is kept, however many there are, and the rounding to decimals is exact. Text that is no
  // decimal number raises EConvertError.
  static AnsiString AmountToText(const TkxNumToTextRec& rec, std::string_view intName,
                                 std::string_view fracName, std::string_view amount, int decimals);
};

// value rounded to a whole number, in words.
OSTREL_API AnsiString NumToText(std::string_view langCode, Extended value, TSex sex = Male);
OSTREL_API AnsiString CrcToText(std::string_view langCode, std::string_view crcCode, Extended value,
                                int decimals = 2);
// An amount given as decimal text, in words; see TkxNumToTextPr::AmountToText.
OSTREL_API AnsiString AmountToText(std::string_view langCode, std::string_view crcCode,
                                   std::string_view amount, int decimals = 2);
// Russian words for a whole number.
OSTREL_API AnsiString FloatToText(Extended value, TSex sex = Male);
// A Russian amount with explicit unit words.
OSTREL_API AnsiString FloatToTextSymb(Extended value, int decimals, std::string_view intName,
                                      std::string_view fracName);
// "5 рублей": the number, a blank and the word in the form the Russian rule selects.
OSTREL_API AnsiString IntToStrSymb(Int64 n, std::string_view word);
// The stem of entry followed by its k-th part; an invariable entry is returned whole.
OSTREL_API AnsiString GetEnding(std::string_view entry, int k);
// Splits the gender suffix off an entry: stripped gets the entry without it, the result is
// the suffix letter upper-cased ('\0' when there is none).
OSTREL_API char ExtractSex(std::string_view entry, AnsiString& stripped);
// The same, giving the gender.
OSTREL_API void ExtractSex(std::string_view entry, AnsiString& stripped, TSex& sex);
// The gender a suffix letter stands for.
OSTREL_API TSex SexOfLetter(char letter);

}  // namespace ostrel
