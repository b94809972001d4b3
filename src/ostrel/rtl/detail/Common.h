// Small mechanisms that several of the library's sources share, each written once here. Not
// part of the installed interface.
#pragma once

#include <ostrel/rtl/Types.h>

#include <cmath>
#include <cstddef>
#include <string_view>
#include <vector>

namespace ostrel::detail {

// The classic blank: a control character or the space (every byte up to 32), as Trim and
// the XML reader and path parser skip them.
constexpr bool IsBlank(char c) noexcept { return static_cast<unsigned char>(c) <= 32; }

// Rounds to the nearest integer, halves to the even neighbour, exactly: the classic Round,
// on the full extended value so that a double such as 2.5 is seen as it is, whatever the
// processor's rounding mode.
inline Extended RoundHalfEven(Extended x) {
  Extended lower = std::floor(x);
  Extended diff = x - lower;
  if (diff > 0.5L) return lower + 1;
  if (diff < 0.5L) return lower;
  return std::fmod(lower, 2.0L) == 0 ? lower : lower + 1;
}

// Knuth-Morris-Pratt's table for a search text: entry i is the length of the longest proper
// prefix of text[0..i] that also ends it. Where a match breaks after k bytes, a search goes on
// with entry k - 1 of them matched, so that no byte searched is looked at more than a few
// times, whatever the text.
inline std::vector<std::size_t> TextBorders(std::string_view text) {
  std::vector<std::size_t> border(text.size(), 0);
  for (std::size_t i = 1, k = 0; i < text.size(); ++i) {
    while (k > 0 && text[i] != text[k]) k = border[k - 1];
    if (text[i] == text[k]) ++k;
    border[i] = k;
  }
  return border;
}

}  // namespace ostrel::detail
