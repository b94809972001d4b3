// Small string helpers used everywhere in the library: trimming and deleting by character
// sets, joining pieces, cutting strings into tokens, integer comparison and a quick sort
// over any indexable list. Positions are 1-based.
#pragma once

#include <ostrel/rtl/Strings.h>

#include <concepts>
#include <type_traits>
#include <utility>

namespace ostrel {

// Trimming in place; the free functions below return a trimmed copy through these.
class OSTREL_API TkxStrPr {
 public:
  TkxStrPr() = delete;

  // Removes the leading run of characters that are in `set`.
  static void TrimLtCh(AnsiString& s, TCharSet set);
  // Removes the trailing run of characters that are in `set`.
  static void TrimRtCh(AnsiString& s, TCharSet set);
  // The right side first, then the left side.
  static void TrimCh(AnsiString& s, TCharSet set);
};

// Copies of `s` without the characters of `set` at its left end, its right end, or both.
OSTREL_API AnsiString TrimLeftCh(std::string_view s, TCharSet set);
OSTREL_API AnsiString TrimRightCh(std::string_view s, TCharSet set);
OSTREL_API AnsiString TrimCh(std::string_view s, TCharSet set);
// `s` with every character in `set` removed, the others kept in order.
OSTREL_API AnsiString DelCh(std::string_view s, TCharSet set);

// Appends `piece` to `s` after `sep`: an empty piece changes nothing and an empty `s` takes
// the piece alone, so empty pieces never give doubled or leading separators.
OSTREL_API void StrJoin(AnsiString& s, std::string_view piece, std::string_view sep);
// The same joining rule, returning the result.
OSTREL_API AnsiString StrAdd(std::string_view s, std::string_view piece, std::string_view sep);

// Tokenising. `pos` is 1-based; a position past the length means the end of the string and
// a position below 1 is taken as 1.
//
// Advances `pos` over the characters in `set`.
OSTREL_API void SkipDivChar(std::string_view s, int& pos, TCharSet set);
// The characters from `pos` up to (not including) the first one in `set`, or to the end;
// `pos` is left on that delimiter or after the last character.
OSTREL_API AnsiString GetSubStr(std::string_view s, int& pos, TCharSet set);
// Skips delimiters, then takes the next token. `token` is cleared first; the result is true
// when the token is not empty. A run of delimiters counts as one, so empty fields are never
// returned; at or past the end the result is false.
OSTREL_API bool ExtractStr(std::string_view s, int& pos, TCharSet set, AnsiString& token);
OSTREL_API AnsiString ExtractStr(std::string_view s, int& pos, TCharSet set);
// The n-th word (from 1) where words are maximal runs of characters not in `set`; "" when
// there are fewer than n words.
OSTREL_API AnsiString ExtractWord(int n, std::string_view s, TCharSet set);
// Splits `s` at the first `ch`: returns the part before it and puts the part after it in
// `tail`, both trimmed of codes up to 32. Without `ch` the result is `s` trimmed and `tail`
// is cleared.
OSTREL_API AnsiString StrDiv(std::string_view s, AnsiString& tail, char ch);

// 1 when a > b, -1 when a < b, 0 when equal.
OSTREL_API int CompareInt(Int64 a, Int64 b);

// Callbacks of ListQuickSort. `list` and `data` are passed through untouched; `i` and `j`
// are indexes into the list.
using TListSortCompareProc = int (*)(void* list, int i, int j, void* data);
using TListSortExchangeProc = void (*)(void* list, int i, int j, void* data);

// Sorts the index range l..r of any list through its two callbacks (not stable). The pivot
// is an index, not a copied value: when an exchange moves the pivot element, the pivot
// index follows it, so the compare callback always sees the same element as pivot. A
// compare callback that contradicts itself (an element found less than itself, say) is
// reported with an exception instead of reading past the range.
OSTREL_API void ListQuickSort(void* list, int l, int r, void* data, TListSortExchangeProc exchange,
                              TListSortCompareProc compare);

// The same sort with callables taking two indexes: exchange(i, j) and compare(i, j) -> int.
template <class TExchange, class TCompare>
requires std::invocable<TExchange&, int, int> &&
    std::convertible_to < std::invoke_result_t<TCompare&, int, int>,
int > void ListQuickSort(int l, int r, TExchange&& exchange, TCompare&& compare) {
  using Pair = std::pair<std::remove_reference_t<TExchange>*, std::remove_reference_t<TCompare>*>;
  Pair callbacks{&exchange, &compare};
  ListQuickSort(
      nullptr, l, r, &callbacks,
      [](void*, int i, int j, void* data) { (*static_cast<Pair*>(data)->first)(i, j); },
      [](void*, int i, int j, void* data) -> int {
        return static_cast<int>((*static_cast<Pair*>(data)->second)(i, j));
      });
}

}  // namespace ostrel
