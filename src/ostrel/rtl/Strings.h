// Windows-1251 text: conversions to and from UTF-8/UTF-16, case folding and comparison
// with the library's own tables (never the host locale), trimming and character sets.
#pragma once

#include <ostrel/rtl/Types.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <stdexcept>

namespace ostrel {

// ---------------------------------------------------------------------------------------
// Character sets: 256 bits, one per 8-bit code, passed by value.

struct CharRange {
  unsigned char Lo, Hi;
  constexpr CharRange(char c) : Lo(static_cast<unsigned char>(c)), Hi(Lo) {}
  constexpr CharRange(char lo, char hi)
      : Lo(static_cast<unsigned char>(lo)), Hi(static_cast<unsigned char>(hi)) {}
};

class TCharSet {
 public:
  constexpr TCharSet() = default;
  constexpr TCharSet(std::initializer_list<CharRange> items) {
    for (const CharRange& r : items)
      for (unsigned c = r.Lo; c <= r.Hi; ++c) Include(static_cast<unsigned char>(c));
  }
  // All codes lo..hi inclusive.
  static constexpr TCharSet FromCodes(unsigned lo, unsigned hi) {
    TCharSet s;
    for (unsigned c = lo; c <= hi && c < 256; ++c) s.Include(static_cast<unsigned char>(c));
    return s;
  }
  // Every character of the text.
  static constexpr TCharSet Of(std::string_view chars) {
    TCharSet s;
    for (char c : chars) s.Include(static_cast<unsigned char>(c));
    return s;
  }

  constexpr bool Contains(unsigned char c) const { return (fBits[c >> 6] >> (c & 63)) & 1u; }
  constexpr bool Contains(char c) const { return Contains(static_cast<unsigned char>(c)); }
  constexpr void Include(unsigned char c) { fBits[c >> 6] |= std::uint64_t{1} << (c & 63); }
  constexpr void Include(char c) { Include(static_cast<unsigned char>(c)); }
  constexpr void Exclude(unsigned char c) { fBits[c >> 6] &= ~(std::uint64_t{1} << (c & 63)); }
  constexpr void Exclude(char c) { Exclude(static_cast<unsigned char>(c)); }
  constexpr bool Empty() const { return !(fBits[0] | fBits[1] | fBits[2] | fBits[3]); }

  constexpr friend TCharSet operator+(TCharSet a, TCharSet b) {
    for (int i = 0; i < 4; ++i) a.fBits[i] |= b.fBits[i];
    return a;
  }
  constexpr friend TCharSet operator-(TCharSet a, TCharSet b) {
    for (int i = 0; i < 4; ++i) a.fBits[i] &= ~b.fBits[i];
    return a;
  }
  constexpr friend TCharSet operator*(TCharSet a, TCharSet b) {
    for (int i = 0; i < 4; ++i) a.fBits[i] &= b.fBits[i];
    return a;
  }
  constexpr friend bool operator==(const TCharSet&, const TCharSet&) = default;

 private:
  std::array<std::uint64_t, 4> fBits{};
};

constexpr bool CharInSet(char c, TCharSet set) { return set.Contains(c); }

// Codes 0..32: what Trim removes.
inline constexpr TCharSet BlankChars = TCharSet::FromCodes(0, 32);

// ---------------------------------------------------------------------------------------
// Code page conversion.

namespace cp1251 {
// Unicode code point of each CP1251 byte 0x80..0xFF (0x98 maps to U+0098 so that every byte
// survives a round trip).
inline constexpr char16_t HighTable[128] = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021,  // 80
    0x20AC, 0x2030, 0x0409, 0x2039, 0x040A, 0x040C, 0x040B, 0x040F,  // 88
    0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90
    0x0098, 0x2122, 0x0459, 0x203A, 0x045A, 0x045C, 0x045B, 0x045F,  // 98
    0x00A0, 0x040E, 0x045E, 0x0408, 0x00A4, 0x0490, 0x00A6, 0x00A7,  // A0
    0x0401, 0x00A9, 0x0404, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x0407,  // A8
    0x00B0, 0x00B1, 0x0406, 0x0456, 0x0491, 0x00B5, 0x00B6, 0x00B7,  // B0
    0x0451, 0x2116, 0x0454, 0x00BB, 0x0458, 0x0405, 0x0455, 0x0457,  // B8
    0x0410, 0x0411, 0x0412, 0x0413, 0x0414, 0x0415, 0x0416, 0x0417,  // C0
    0x0418, 0x0419, 0x041A, 0x041B, 0x041C, 0x041D, 0x041E, 0x041F, 0x0420, 0x0421, 0x0422, 0x0423,
    0x0424, 0x0425, 0x0426, 0x0427, 0x0428, 0x0429, 0x042A, 0x042B, 0x042C, 0x042D, 0x042E, 0x042F,
    0x0430, 0x0431, 0x0432, 0x0433, 0x0434, 0x0435, 0x0436, 0x0437,  // E0
    0x0438, 0x0439, 0x043A, 0x043B, 0x043C, 0x043D, 0x043E, 0x043F, 0x0440, 0x0441, 0x0442, 0x0443,
    0x0444, 0x0445, 0x0446, 0x0447, 0x0448, 0x0449, 0x044A, 0x044B, 0x044C, 0x044D, 0x044E, 0x044F,
};

// CP1251 byte for a code point, or -1 when it has none.
constexpr int FromCodePoint(char32_t cp) {
  if (cp < 0x80) return static_cast<int>(cp);
  if (cp >= 0x0410 && cp <= 0x044F) return static_cast<int>(cp - 0x0410 + 0xC0);
  for (int i = 0; i < 64; ++i)
    if (HighTable[i] == cp) return 0x80 + i;
  return -1;
}

// The Unicode code point of a CP1251 byte.
constexpr char16_t ToCodePoint(unsigned char b) {
  return b < 0x80 ? static_cast<char16_t>(b) : HighTable[b - 0x80];
}

// A UTF-8 literal converted to CP1251 at compile time; usable wherever a string_view is.
template <std::size_t N>
struct Literal {
  char Data[N]{};
  std::size_t Len = 0;
  constexpr operator std::string_view() const { return {Data, Len}; }
  constexpr std::string_view View() const { return {Data, Len}; }
  AnsiString Str() const { return AnsiString(Data, Len); }
  operator AnsiString() const { return Str(); }
};

// The conversion behind Cp1251(): a UTF-8 literal to CP1251 at compile time; a character
// that CP1251 cannot hold does not compile.
template <std::size_t N>
consteval Literal<N> Convert(const char8_t (&s)[N]) {
  Literal<N> out;
  std::size_t i = 0;
  while (i < N && s[i] != 0) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    char32_t cp;
    int extra;
    if (c < 0x80) {
      cp = c;
      extra = 0;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F;
      extra = 1;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F;
      extra = 2;
    } else {
      cp = c & 0x07;
      extra = 3;
    }
    for (int k = 1; k <= extra; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += 1 + extra;
    int b = FromCodePoint(cp);
    if (b < 0) throw std::logic_error("character has no Windows-1251 form");
    out.Data[out.Len++] = static_cast<char>(b);
  }
  return out;
}
}  // namespace cp1251

// Compile-time conversion of a UTF-8 literal: `static constexpr auto s = Cp1251(u8"Текст");`
template <std::size_t N>
consteval cp1251::Literal<N> Cp1251(const char8_t (&s)[N]) {
  return cp1251::Convert(s);
}

// Run-time conversions. Characters with no CP1251 form become '?'; malformed UTF-8 bytes
// become '?' one by one.
OSTREL_API AnsiString Utf8ToAnsi(std::string_view utf8);
OSTREL_API AnsiString Utf8ToAnsi(std::u8string_view utf8);
OSTREL_API std::string AnsiToUtf8(std::string_view ansi);
OSTREL_API WideString AnsiToWide(std::string_view ansi);
OSTREL_API AnsiString WideToAnsi(std::u16string_view wide);
OSTREL_API WideString Utf8ToWide(std::string_view utf8);
OSTREL_API std::string WideToUtf8(std::u16string_view wide);

// Shorthand used by tests and examples for a run-time UTF-8 -> CP1251 conversion.
inline AnsiString Ansi(std::u8string_view utf8) { return Utf8ToAnsi(utf8); }

// ---------------------------------------------------------------------------------------
// Case and comparison with the library's CP1251 tables.

OSTREL_API char AnsiUpperChar(char c);
OSTREL_API char AnsiLowerChar(char c);
OSTREL_API bool IsAnsiLetter(char c);
OSTREL_API AnsiString AnsiUpperCase(std::string_view s);
OSTREL_API AnsiString AnsiLowerCase(std::string_view s);
// ASCII letters only; every other byte unchanged.
OSTREL_API AnsiString UpperCase(std::string_view s);
OSTREL_API AnsiString LowerCase(std::string_view s);

// Ordering of case-folded alphabet weights (Ё right after Е, Latin before Cyrillic, other
// characters before letters in code order); a shorter text that is a prefix comes first.
// Results are -1, 0 or 1.
OSTREL_API int AnsiCompareText(std::string_view a, std::string_view b);
OSTREL_API bool AnsiSameText(std::string_view a, std::string_view b);
// As AnsiCompareText, then, when the texts differ only by case, lower case before upper case
// at the first position that differs.
OSTREL_API int AnsiCompareStr(std::string_view a, std::string_view b);
OSTREL_API bool AnsiSameStr(std::string_view a, std::string_view b);
// Byte-wise ordinal comparison (-1, 0, 1), and the ASCII-only case-insensitive one.
OSTREL_API int CompareStr(std::string_view a, std::string_view b);
OSTREL_API int CompareText(std::string_view a, std::string_view b);
OSTREL_API bool SameText(std::string_view a, std::string_view b);

// Case folding suited to hashing: equal exactly when AnsiSameText is true.
OSTREL_API AnsiString AnsiFoldCase(std::string_view s);
OSTREL_API std::size_t AnsiHashText(std::string_view s);

// ---------------------------------------------------------------------------------------
// Trimming (codes up to 32) and small searches.

OSTREL_API AnsiString Trim(std::string_view s);
OSTREL_API AnsiString TrimLeft(std::string_view s);
OSTREL_API AnsiString TrimRight(std::string_view s);

// 1-based position of sub in s, 0 when absent (and for an empty sub).
OSTREL_API int Pos(std::string_view sub, std::string_view s, int offset = 1);
// Case-insensitive (CP1251) position, 0 when absent.
OSTREL_API int AnsiPosText(std::string_view sub, std::string_view s);
// 1-based Copy: characters index..index+count-1, clamped to the string.
OSTREL_API AnsiString Copy(std::string_view s, int index, int count);
OSTREL_API AnsiString StringOfChar(char c, int count);
OSTREL_API AnsiString StringReplaceAll(std::string_view s, std::string_view from,
                                       std::string_view to, bool ignoreCase = false);
OSTREL_API AnsiString QuotedStr(std::string_view s, char quote = '\'');

}  // namespace ostrel
