#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/Sysserv.h>

#include <TestUtil.h>
#if defined(_WIN32)
#include <ImportPatch.h>
#endif

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace ostrel {
namespace {

const TCharSet kSemi{';'};

TEST(StrServTokens, ExtractStrYieldsNonEmptyTokensThenFalseWithEmptyToken) {
  const struct {
    const char* s;
    int startPos;
    std::vector<std::string> tokens;
  } cases[] = {{";a;;b;", 1, {"a", "b"}},
               // clang-format off
               {"a;b", 0, {"a", "b"}}, {"ab;c", -7, {"ab", "c"}}, {"", 1, {}}, {";;;", 1, {}},
               {"abc", 4, {}}, {"abc", 1000, {}}, {"xy;z", 2, {"y", "z"}},
               // clang-format on
               {"one", 1, {"one"}}};
  for (const auto& c : cases) {
    int pos = c.startPos;
    std::vector<std::string> got;
    AnsiString token = "stale";
    while (ExtractStr(c.s, pos, kSemi, token) && got.size() < 100) got.push_back(token);
    EXPECT_EQ(got, c.tokens) << c.s;
    EXPECT_EQ(token, "");
    EXPECT_FALSE(ExtractStr(c.s, pos, kSemi, token));  // stays exhausted
    pos = c.startPos;
    std::vector<std::string> again;  // the returning overload walks the same tokens
    for (AnsiString t; !(t = ExtractStr(c.s, pos, kSemi)).empty() && again.size() < 100;)
      again.push_back(t);
    EXPECT_EQ(again, c.tokens) << c.s;
  }
}

TEST(StrServTokens, DelimiterEndingATokenIsLeftForTheNextCall) {
  int pos = 1;
  std::string walk;  // each token taken, then the position after it
  auto take = [&] {
    walk += GetSubStr("ab;;c", pos, kSemi);
    walk += std::to_string(pos);
  };
  take();
  take();  // already on a delimiter: nothing is taken
  SkipDivChar("ab;;c", pos, kSemi);
  walk += std::to_string(pos);
  take();
  EXPECT_EQ(walk, "ab335c6");
  // The token may be the very string being cut.
  AnsiString s = "first;second";
  pos = 1;
  EXPECT_TRUE(ExtractStr(s, pos, kSemi, s));
  EXPECT_EQ(s, "first");
}

TEST(StrServTokens, ExtractWordTakesTheNthRunOfNonDelimiters) {
  // clang-format off
  const struct { int n; const char* s; const char* word; } cases[] = {
      {1, "  one two ", "one"}, {2, "  one two ", "two"}, {3, "  one two ", ""}, {0, "one", ""},
      {-1, "one", ""}, {1, "", ""}, {1, " ;; ", ""}, {2, ";;a; ;b;", "b"}, {1, "whole", "whole"}};
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(ExtractWord(c.n, c.s, TCharSet{' ', ';'}), c.word) << c.n;
}

TEST(StrServTokens, StrDivSplitsAtTheFirstCharAndTrimsBothParts) {
  // clang-format off
  const struct { const char *s, *head, *tail; } cases[] = {
      {"  key : value ", "key", "value"}, {"abc", "abc", ""}, {"  abc\t", "abc", ""},
      {"\t\x01" "a\r:\x1F" "b\r\n", "a", "b"}, {":x", "", "x"}, {"a:", "a", ""},
      {"a:b:c", "a", "b:c"},
      // A no-break space (0xA0) is above code 32, so it stays.
      {"\xA0k\xA0 : v", "\xA0k\xA0", "v"}};
  // clang-format on
  for (const auto& c : cases) {
    AnsiString tail = "stale";
    EXPECT_EQ(StrDiv(c.s, tail, ':'), c.head);
    EXPECT_EQ(tail, c.tail);
  }
}

TEST(StrServJoin, EmptyPiecesNeverDoubleOrLeadSeparators) {
  AnsiString s;
  for (const char* piece : {"", "x", "", "y", ""}) StrJoin(s, piece, ", ");
  EXPECT_EQ(s, "x, y");
  EXPECT_EQ(StrAdd("", "", ";"), "");
  EXPECT_EQ(StrAdd("", "b", ";"), "b");
  EXPECT_EQ(StrAdd("a", "", ";"), "a");
  EXPECT_EQ(StrAdd("a", "b", ""), "ab");
  // Joining a string to itself must not read freed memory when it grows.
  AnsiString self = "abcdefghijklmnopqrstuvwxyz";
  StrJoin(self, self, std::string_view(self).substr(0, 1));
  EXPECT_EQ(self, "abcdefghijklmnopqrstuvwxyzaabcdefghijklmnopqrstuvwxyz");
}

TEST(StrServJoin, TrimAndDeleteRemoveOnlyCharactersOfTheSet) {
  const struct {
    std::u8string s, set, left, right, both, deleted;
  } cases[] = {{u8"ааБвагаа", u8"а", u8"Бвагаа", u8"ааБваг", u8"Бваг", u8"Бвг"},
               {u8"Аа", u8"а", u8"Аа", u8"А", u8"А", u8"А"},  // case matters: 'А' is not in {'а'}
               // Codes above 0x7F (я is 0xFF, ё 0xB8) must not be taken as negative.
               {u8"яёxяё", u8"ёя", u8"xяё", u8"яёx", u8"x", u8"x"},
               {u8"--", u8"-", u8"", u8"", u8"", u8""},
               {u8"", u8"-", u8"", u8"", u8"", u8""},
               {u8" a b ", u8"", u8" a b ", u8" a b ", u8" a b ", u8" a b "}};
  for (const auto& c : cases) {
    const AnsiString s = Ansi(c.s);
    const TCharSet set = TCharSet::Of(Ansi(c.set));
    EXPECT_EQ(TrimLeftCh(s, set), Ansi(c.left));
    EXPECT_EQ(TrimRightCh(s, set), Ansi(c.right));
    EXPECT_EQ(TrimCh(s, set), Ansi(c.both));
    EXPECT_EQ(DelCh(s, set), Ansi(c.deleted));
    AnsiString inPlace = s;
    TkxStrPr::TrimCh(inPlace, set);
    EXPECT_EQ(inPlace, Ansi(c.both));
  }
}

TEST(StrServCompare, CompareVarGivesSignAndIsAntisymmetric) {
  EXPECT_EQ(CompareInt(7, 7), 0);
  EXPECT_EQ(testutil::Join(CompareInt(INT64_MIN, INT64_MAX), CompareInt(INT64_MAX, -1)), "-1 1");
  const struct {
    Variant a, b;
    bool ignoreCase;
    int expected;
  } cases[] = {{"abc", "ABC", true, 0},
               // clang-format off
               {"abc", "abd", true, -1}, {Ansi(u8"ёЛка"), Ansi(u8"ЁлКА"), true, 0},
               {"abc", "ABC", false, -1},
               {VarArrayOf({"b"}), VarArrayOf({"B"}), false, -1},  // case counts
               {Variant(u"Abc"), "aBC", true, 0},
               // Not both strings: the case flag does not turn numbers into text.
               {10, "9", true, 1}, {10, 9.5, false, 1}, {1, 2.5, false, -1},
               {Variant::Null(), 1, false, 0}, {Variant(), Variant::Null(), true, 0},
               {VarArrayOf({1, 5, 0}), VarArrayOf({1, 2, 9}), false, 1},
               {VarArrayOf({1, "b", 3}), VarArrayOf({1, "B", 0}), true, 1},
               {VarArrayOf({1, 2, 3}), VarArrayOf({0}), false, 1},
               {VarArrayOf({1, 2}), VarArrayOf({1, 2, 3}), false, 0},
               // clang-format on
               {VarArrayCreate(0, -1), VarArrayOf({1}), false, 0}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    EXPECT_EQ(CompareVar(c.a, c.b, c.ignoreCase), c.expected) << "case #" << i;
    if (!VarIsArray(c.a)) {
      EXPECT_EQ(CompareVar(c.b, c.a, c.ignoreCase), -c.expected) << "case #" << i;
    }
  }
}

TEST(StrServCompare, ArrayAgainstShorterArrayFailsOnAccess) {
  EXPECT_THROW(CompareVar(VarArrayOf({1, 2, 3}), VarArrayOf({1, 2}), false), EVariantError);
  EXPECT_THROW(CompareVar(VarArrayOf({1}), Variant(1), false), EVariantError);
}

int CompareInts(void* list, int i, int j, void*) {
  auto& v = *static_cast<std::vector<int>*>(list);
  return CompareInt(v.at(static_cast<std::size_t>(i)), v.at(static_cast<std::size_t>(j)));
}

void ExchangeInts(void* list, int i, int j, void* data) {
  auto& v = *static_cast<std::vector<int>*>(list);
  std::swap(v.at(static_cast<std::size_t>(i)), v.at(static_cast<std::size_t>(j)));
  ++*static_cast<int*>(data);
}

TEST(StrServSort, RandomListsWithDuplicatesEndSorted) {
  // The compare callback compares by index, so a pivot that does not follow its element
  // through exchanges leaves some of these lists unsorted.
  std::mt19937 rng(20240501);
  int unsorted = 0;
  for (int trial = 0; trial < 3000; ++trial) {
    const int n = static_cast<int>(rng() % 70);
    const int range = 1 + static_cast<int>(rng() % (trial % 3 == 0 ? 4 : 1000));
    std::vector<int> v(static_cast<std::size_t>(n));
    for (int& x : v) x = static_cast<int>(rng() % static_cast<unsigned>(range));
    std::vector<int> expected = v;
    std::sort(expected.begin(), expected.end());
    int exchanges = 0;
    ListQuickSort(&v, 0, n - 1, &exchanges, ExchangeInts, CompareInts);
    if (v != expected) ++unsorted;
  }
  EXPECT_EQ(unsorted, 0);
}

TEST(StrServSort, SortsOnlyTheGivenRange) {
  std::vector<int> v = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
  int exchanges = 0;
  ListQuickSort(&v, 3, 7, &exchanges, ExchangeInts, CompareInts);
  EXPECT_EQ(v, (std::vector<int>{9, 8, 7, 2, 3, 4, 5, 6, 1, 0}));
  // Already sorted input of one element or none: nothing to exchange.
  exchanges = 0;
  ListQuickSort(&v, 4, 4, &exchanges, ExchangeInts, CompareInts);
  ListQuickSort(&v, 0, -1, &exchanges, ExchangeInts, CompareInts);
  EXPECT_EQ(exchanges, 0);
}

TEST(StrServSort, LambdasRouteToTheSameSort) {
  std::vector<std::string> v = {"pear", "apple", "fig", "apple", "kiwi", "date"};
  auto at = [&](int i) -> std::string& { return v.at(static_cast<std::size_t>(i)); };
  ListQuickSort(
      0, static_cast<int>(v.size()) - 1, [&](int i, int j) { std::swap(at(i), at(j)); },
      [&](int i, int j) { return at(j).compare(at(i)); });  // descending
  EXPECT_EQ(v, (std::vector<std::string>{"pear", "kiwi", "fig", "date", "apple", "apple"}));
}

TEST(StrServSort, SelfContradictingCompareRaisesInsteadOfLeavingTheRange) {
  std::vector<int> v(8, 0);
  auto swap = [&](int i, int j) {
    std::swap(v.at(static_cast<std::size_t>(i)), v.at(static_cast<std::size_t>(j)));
  };
  EXPECT_THROW(ListQuickSort(0, 7, swap, [](int, int) { return -1; }), Exception);
  EXPECT_THROW(ListQuickSort(0, 7, swap, [](int, int) { return 1; }), Exception);
}

TEST(StrServVarAs, NullAndEmptyGiveZeroValuesOthersConvert) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  for (const Variant& v : {Variant::Null(), Variant()})
    EXPECT_TRUE(!VarAsBool(v) && VarAsInt(v) == 0 && VarAsFloat(v) == 0 && VarAsStr(v).empty());
  EXPECT_TRUE(VarAsBool("True") && VarAsInt("42") == 42 && VarAsFloat("1,5") == 1.5L);
  EXPECT_EQ(VarAsStr(1.5), "1,5");
  EXPECT_THROW(VarAsInt("abc"), EVariantError);
  EXPECT_THROW(VarAsBool("maybe"), EVariantError);
}

TEST(StrServVarAs, DateTimeShowsTimeOnlyWithPositiveFraction) {
  TFormatSettingsGuard guard(TFormatSettings::Russian());
  // Before the epoch the fraction is negative: the date alone. A double is no date.
  EXPECT_EQ(VarAsStr(Variant::FromDate(45000.0)) + "|" + VarAsStr(Variant::FromDate(45000.5)) +
                "|" + VarAsStr(Variant::FromDate(-1.25)) + "|" + VarAsStr(45000.5),
            "15.03.2023|15.03.2023 12:00|29.12.1899|45000,5");
  // The short formats are the ones used.
  FormatSettings.ShortDateFormat = "yyyy-mm-dd";
  FormatSettings.ShortTimeFormat = "hh:nn";
  FormatSettings.LongTimeFormat = "hh:nn:ss";
  EXPECT_EQ(VarAsStr(Variant::FromDate(45000.25)), "2023-03-15 06:00");
}

// Message and class name of what `f` raises.
template <class F>
std::pair<AnsiString, std::string> Caught(F f) {
  try {
    f();
  } catch (const Exception& e) {
    return {e.Message(), e.ClassName()};
  }
  return {"nothing raised", ""};
}

TEST(StrServErrors, DieAndBugRaiseTheGeneralExceptionWithTheirMessages) {
  const AnsiString apology =
      Ansi(u8"Невозможная ошибка (BUG). Пожалуйста, обратитесь к разработчикам.");
  const std::pair<std::pair<AnsiString, std::string>, AnsiString> rows[] = {
      {Caught([] { DIE("plain"); }), "plain"},
      {Caught([] { DIE("%s = %d", "x", 5); }), "x = 5"},
      {Caught([] { DIE(Cp1251(u8"Нет файла %s"), "a.txt"); }), Ansi(u8"Нет файла a.txt")},
      {Caught([] { BUG(""); }), apology},  // no trailing line breaks
      {Caught([] { BUG(); }), apology},
      {Caught([] { BUG("lost %d", 3); }), apology + "\r\rlost 3"}};
  for (const auto& [caught, message] : rows) {
    EXPECT_EQ(caught.first, message);
    EXPECT_EQ(caught.second, "Exception");
  }
}

TEST(StrServErrors, AlertGoesToHandlerWithExecutableNameAsCaption) {
  std::vector<std::pair<AnsiString, AnsiString>> seen;
  TAlertHandler previous = SetAlertHandler(
      [&](const AnsiString& caption, const AnsiString& text) { seen.emplace_back(caption, text); });
  Alert("hello");
  Alert("%d items in %s", 3, Ansi(u8"корзине"));
  SetAlertHandler(previous);
  ASSERT_EQ(seen.size(), 2u);
  const AnsiString& caption = seen[0].first;
  EXPECT_TRUE(caption == "ostrel_services_tests" || caption == "ostrel_services_tests.exe")
      << caption;
  EXPECT_EQ(seen[0].second + "|" + seen[1].second, Ansi(u8"hello|3 items in корзине"));
  // The full path: a directory, then the caption.
  const AnsiString path = GetExeFileName();
  ASSERT_GT(path.size(), caption.size() + 1);
  EXPECT_EQ(path.substr(path.size() - caption.size()), caption);
}

#if defined(_WIN32)
struct TShownBox {
  int calls = 0;
  HWND owner = nullptr;
  std::string text, caption;
  UINT type = 0;
} gShownBox;

int WINAPI RecordMessageBoxA(HWND owner, LPCSTR text, LPCSTR caption, UINT type) {
  gShownBox = {gShownBox.calls + 1, owner, text, caption, type};
  return IDOK;
}

TEST(StrServErrors, DefaultAlertIsTheSystemsMessageBoxCaptionedWithTheExecutable) {
  HMODULE library = testutil::LibraryModule(reinterpret_cast<const void*>(&SystemMessageBox));
  ASSERT_TRUE(library);
  testutil::TImportPatch patch(library, "user32.dll", "MessageBoxA",
                               reinterpret_cast<void*>(&RecordMessageBoxA));
  ASSERT_TRUE(patch.Patched()) << "the library does not import MessageBoxA from user32.dll";
  TAlertHandler previous = SetAlertHandler({});  // the default
  Alert("%d items in %s", 3, Ansi(u8"корзине"));
  SetAlertHandler(previous);
  EXPECT_EQ(gShownBox.calls, 1);
  EXPECT_EQ(gShownBox.owner, nullptr);
  EXPECT_EQ(gShownBox.caption, "ostrel_services_tests.exe");
  EXPECT_EQ(gShownBox.text, Ansi(u8"3 items in корзине"));
  EXPECT_EQ(gShownBox.type, static_cast<UINT>(MB_OK));
}
#endif

}  // namespace
}  // namespace ostrel
