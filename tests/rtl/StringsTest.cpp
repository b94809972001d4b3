#include <ostrel/rtl/Strings.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <vector>

using namespace ostrel;
using testutil::Join;

namespace {

TEST(Cp1251Conversion, EveryByteSurvivesUtf8AndUtf16RoundTrips) {
  for (int b = 0; b < 256; ++b) {
    AnsiString one(1, static_cast<char>(b));
    EXPECT_EQ(Utf8ToAnsi(AnsiToUtf8(one)), one) << "byte " << b;
    EXPECT_EQ(WideToAnsi(AnsiToWide(one)), one) << "byte " << b;
  }
}

TEST(Cp1251Conversion, KnownLettersAndWhatHasNoFormBecomesQuestionMarks) {
  const std::pair<const char*, const char*> rows[] = {
      {"Ёё", "\xA8\xB8"},     {"АЯая", "\xC0\xDF\xE0\xFF"},
      {"№ €", "\xB9 \x88"},   {"a\u4E2Db", "a?b"},  // CJK
      {"\U0001F600", "?"},                          // outside the BMP
      {"a\377b", "a?b"},         // malformed UTF-8 (octal 377) is replaced bytewise
      {"\xD0", "?"},             // truncated sequence at the end
      {"\xC0\xAF", "??"},        // overlong encoding of '/'
      {"\xED\xA0\x80", "???"}};  // encoded surrogate
  for (const auto& [utf8, ansi] : rows) EXPECT_EQ(Utf8ToAnsi(utf8), ansi) << utf8;
  EXPECT_EQ(AnsiToUtf8("\xA0"), "\xC2\xA0");  // no-break space
  EXPECT_EQ(AnsiToWide("\xC0"), u"\u0410");
  EXPECT_EQ(WideToAnsi(u"x\u00E9y"), "x?y");                        // é has no CP1251 form
  EXPECT_EQ(WideToAnsi(std::u16string(1, char16_t(0xD800))), "?");  // lone surrogate
}

TEST(Cp1251Conversion, CompileTimeLiteralMatchesRunTimeConversion) {
  static constexpr auto lit = Cp1251(u8"Привет, мир! Ёжик № 5");
  EXPECT_EQ(lit.Str(), Ansi(u8"Привет, мир! Ёжик № 5"));
  static_assert(lit.View().size() == 21);
  // UTF-16 and UTF-8 agree also outside the code page.
  EXPECT_EQ(WideToUtf8(Utf8ToWide("Ж\U0001F600z")), "Ж\U0001F600z");
}

TEST(AnsiCase, UpperAndLowerAreInverseForEveryLetter) {
  const std::pair<const char8_t*, const char8_t*> rows[] = {
      {u8"ёлка и ёж", u8"ЁЛКА И ЁЖ"},
      {u8"абвгдежзийклмнопрстуфхцчшщъыьэюя", u8"АБВГДЕЖЗИЙКЛМНОПРСТУФХЦЧШЩЪЫЬЭЮЯ"},
      {u8"ґєіїўђѓљњќћџјѕ", u8"ҐЄІЇЎЂЃЉЊЌЋЏЈЅ"},
      {u8"abc xyz 123", u8"ABC XYZ 123"}};
  for (const auto& [lower, upper] : rows) {
    const AnsiString lo = Ansi(lower), up = Ansi(upper);
    EXPECT_EQ(AnsiUpperCase(lo), up);
    EXPECT_EQ(AnsiLowerCase(up), lo);
    EXPECT_TRUE(AnsiSameText(lo, up));
    EXPECT_EQ(AnsiCompareText(lo, up), 0);
  }
}

TEST(AnsiCase, NonLettersAndAsciiFormsLeaveTheRestAlone) {
  AnsiString all;
  for (int b = 0; b < 256; ++b)
    if (!IsAnsiLetter(static_cast<char>(b))) all += static_cast<char>(b);
  EXPECT_EQ(AnsiUpperCase(all), all);
  EXPECT_EQ(AnsiLowerCase(all), all);
  EXPECT_EQ(AnsiUpperCase(Ansi(u8"µ°№")), Ansi(u8"µ°№"));
  // The ASCII forms leave Cyrillic alone.
  EXPECT_EQ(UpperCase(Ansi(u8"abcЖ")), Ansi(u8"ABCЖ"));
  EXPECT_EQ(LowerCase(Ansi(u8"ABCЖ")), Ansi(u8"abcЖ"));
  EXPECT_FALSE(SameText(Ansi(u8"ж"), Ansi(u8"Ж")));
  EXPECT_TRUE(SameText("Abc", "aBC"));
  // CompareText and SameText agree with comparing the ASCII upper-case forms, over prefixes,
  // bytes above 127 (unsigned order) and the letters' neighbours.
  const char pool[] = {'a', 'A', 'z', '[', '`', '{', '\x80', '\xC6', '\xE6', '\0'};
  std::mt19937 rng(7);
  for (int round = 0; round < 20000; ++round) {
    AnsiString a, b;
    for (int n = rng() % 4; n > 0; --n) a += pool[rng() % sizeof pool];
    for (int n = rng() % 4; n > 0; --n) b += pool[rng() % sizeof pool];
    if (rng() % 2) b.insert(0, a);
    const int model = CompareStr(UpperCase(a), UpperCase(b));
    ASSERT_EQ(CompareText(a, b), model) << a << " / " << b;
    ASSERT_EQ(SameText(a, b), model == 0) << a << " / " << b;
  }
}

TEST(AnsiCompare, AlphabetOrderPutsYoRightAfterYe) {
  std::vector<AnsiString> words;
  for (auto w : {u8"жук", u8"ёж", u8"еда", u8"Ель", u8"яма", u8"apple", u8"Zebra", u8"10"})
    words.push_back(Ansi(w));
  std::sort(words.begin(), words.end(),
            [](const AnsiString& a, const AnsiString& b) { return AnsiCompareText(a, b) < 0; });
  AnsiString sorted;
  for (const AnsiString& w : words) sorted += w + " ";
  EXPECT_EQ(sorted, Ansi(u8"10 apple Zebra еда Ель ёж жук яма "));
}

TEST(AnsiCompare, PrefixSortsFirstAndCaseBreaksTiesLowerFirst) {
  EXPECT_EQ(Join(AnsiCompareText("ab", "abc"), AnsiCompareText("abc", "AB")), "-1 1");
  EXPECT_EQ(Join(AnsiCompareStr("a", "A"), AnsiCompareStr(Ansi(u8"Ёж"), Ansi(u8"ёж"))), "-1 1");
  EXPECT_EQ(AnsiCompareStr("A", "ab"), -1);  // letters first, case only on a tie
  EXPECT_EQ(AnsiCompareStr("same", "same"), 0);
  EXPECT_FALSE(AnsiSameStr("a", "A"));
}

TEST(AnsiCompare, FoldAndHashAgreeWithSameText) {
  const AnsiString a = Ansi(u8"Сумма Ёлки"), b = Ansi(u8"сУММА ёЛКИ");
  EXPECT_EQ(AnsiFoldCase(a), AnsiFoldCase(b));
  EXPECT_EQ(AnsiHashText(a), AnsiHashText(b));
  EXPECT_NE(AnsiFoldCase(Ansi(u8"е")), AnsiFoldCase(Ansi(u8"ё")));
  EXPECT_EQ(AnsiPosText(Ansi(u8"ЁЛ"), Ansi(u8"мелкая ёлка")), 8);
}

TEST(Trim, RemovesControlCodesAndBlanksOnly) {
  EXPECT_EQ(Trim("\t\r\n  x y \x01\x1F "), "x y");
  EXPECT_EQ(TrimLeft("  x ") + "|" + TrimRight("  x \n"), "x |  x");
  EXPECT_EQ(Trim("\xA0x\xA0"), "\xA0x\xA0");  // the no-break space is code 160, kept
  EXPECT_EQ(Trim("   ") + Trim(""), "");
}

TEST(CharSets, MembershipRangesAndAlgebra) {
  constexpr TCharSet digits{{'0', '9'}};
  constexpr TCharSet sep{';', ',', ' '};
  static_assert(CharInSet('5', digits) && !CharInSet('a', digits));
  const TCharSet both = digits + sep;
  EXPECT_TRUE(both.Contains(';') && both.Contains('0') && !(both - sep).Contains(';'));
  EXPECT_TRUE((both * sep) == sep);
  const TCharSet high = TCharSet::FromCodes(0xC0, 0xFF);
  EXPECT_TRUE(high.Contains('\xFF') && !high.Contains('\xBF') && TCharSet().Empty());
  EXPECT_TRUE(BlankChars.Contains('\0') && BlankChars.Contains(' ') && !BlankChars.Contains('!'));
}

TEST(SmallSearches, PosCopyAndReplaceUseOneBasedPositions) {
  EXPECT_EQ(Join(Pos("b", "abcb"), Pos("b", "abcb", 3), Pos("", "abc"), Pos("z", "abc")),
            "2 4 0 0");
  EXPECT_EQ(Copy("abcdef", 2, 3) + "|" + Copy("abc", 0, 2) + "|" + Copy("abc", 3, 100) + "|" +
                Copy("abc", 4, 1),
            "bcd|ab|c|");
  EXPECT_EQ(StringReplaceAll(Ansi(u8"Да да ДА"), Ansi(u8"да"), "+", true), "+ + +");
  EXPECT_EQ(QuotedStr("it's"), "'it''s'");
}

// Patterns longer than a few bytes are searched another way than short ones. Both agree with
// a comparison at every place, on texts made of repeats (where a search is easily misled),
// and a long pattern costs time in proportion to the text: a million bytes searched for a
// near match of half that length took seconds when each place was compared in full.
TEST(SmallSearches, PatternsOfAnyLengthAgreeWithAPlainScanAndStayLinear) {
  auto at = [](std::string_view sub, std::string_view s, std::size_t from, bool fold) {
    for (std::size_t i = from; i + sub.size() <= s.size(); ++i)
      if (fold ? AnsiSameText(s.substr(i, sub.size()), sub) : s.substr(i, sub.size()) == sub)
        return static_cast<int>(i) + 1;
    return 0;
  };
  auto replaced = [&](std::string_view s, std::string_view sub, bool fold) {
    AnsiString out;
    std::size_t i = 0;
    for (int p; (p = at(sub, s, i, fold)) > 0; i = static_cast<std::size_t>(p - 1) + sub.size())
      out += AnsiString(s.substr(i, static_cast<std::size_t>(p - 1) - i)) + "#";
    return out + AnsiString(s.substr(i));
  };
  std::mt19937 rng(7);
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  for (int round = 0; round < 4000; ++round) {
    AnsiString period, text, sub;
    for (int i = 1 + pick(6); i > 0; --i) period += "aAbB"[pick(pick(3) ? 2 : 4)];
    while (text.size() < static_cast<std::size_t>(pick(300))) text += period;
    if (pick(4) && !text.empty()) {
      const std::size_t from = static_cast<std::size_t>(pick(static_cast<int>(text.size())));
      sub = text.substr(from, static_cast<std::size_t>(1 + pick(100)));
      if (pick(2)) sub[static_cast<std::size_t>(pick(static_cast<int>(sub.size())))] ^= 1;
    } else {
      for (int i = 1 + pick(60); i > 0; --i) sub += "abAB"[pick(4)];
    }
    const int offset = 1 + pick(4);
    ASSERT_EQ(Pos(sub, text, offset),
              offset > static_cast<int>(text.size())
                  ? 0
                  : at(sub, text, static_cast<std::size_t>(offset - 1), false))
        << sub << " in " << text;
    ASSERT_EQ(AnsiPosText(sub, text), at(sub, text, 0, true)) << sub << " in " << text;
    for (bool fold : {false, true})
      ASSERT_EQ(StringReplaceAll(text, sub, "#", fold), replaced(text, sub, fold))
          << sub << " in " << text << " " << fold;
  }

  const AnsiString text(1000000, 'a'), near = AnsiString(499999, 'a') + "b";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Join(Pos(near, text), Pos("b" + near.substr(1), text), AnsiPosText(near, text)),
            "0 0 0");
  EXPECT_EQ(StringReplaceAll(text, near, "x", true), text);
  EXPECT_EQ(Pos(near.substr(1), text + "b"), 500003);
  EXPECT_LT(std::chrono::steady_clock::now() - start, testutil::LinearTimeBudget());
}

}  // namespace
