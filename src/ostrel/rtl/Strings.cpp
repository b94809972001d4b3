#include <ostrel/rtl/Strings.h>
#include <ostrel/rtl/detail/Common.h>

#include <algorithm>
#include <vector>

namespace ostrel {

namespace {

// ---- case tables --------------------------------------------------------------------

struct CaseTables {
  unsigned char upper[256];
  unsigned char lower[256];
  bool letter[256];
  // Primary weight of the case-folded character: the alphabet order used by comparisons.
  std::uint16_t weight[256];
};

constexpr CaseTables MakeCaseTables() {
  CaseTables t{};
  for (int i = 0; i < 256; ++i) {
    t.upper[i] = t.lower[i] = static_cast<unsigned char>(i);
    t.letter[i] = false;
  }
  auto pair = [&t](int up, int lo) {
    t.upper[lo] = static_cast<unsigned char>(up);
    t.lower[up] = static_cast<unsigned char>(lo);
    t.letter[up] = t.letter[lo] = true;
  };
  for (int c = 'A'; c <= 'Z'; ++c) pair(c, c + 32);
  for (int c = 0xC0; c <= 0xDF; ++c) pair(c, c + 32);
  // The other Cyrillic letters of the code page.
  pair(0x80, 0x90);  // Ђ ђ
  pair(0x81, 0x83);  // Ѓ ѓ
  pair(0x8A, 0x9A);  // Љ љ
  pair(0x8C, 0x9C);  // Њ њ
  pair(0x8D, 0x9D);  // Ќ ќ
  pair(0x8E, 0x9E);  // Ћ ћ
  pair(0x8F, 0x9F);  // Џ џ
  pair(0xA1, 0xA2);  // Ў ў
  pair(0xA3, 0xBC);  // Ј ј
  pair(0xA5, 0xB4);  // Ґ ґ
  pair(0xA8, 0xB8);  // Ё ё
  pair(0xAA, 0xBA);  // Є є
  pair(0xAF, 0xBF);  // Ї ї
  pair(0xB2, 0xB3);  // І і
  pair(0xBD, 0xBE);  // Ѕ ѕ

  // Weights: non-letters first in code order, then Latin a..z, then Cyrillic in alphabet
  // order with the extra letters right after the letter they extend.
  std::uint16_t w = 0;
  for (int i = 0; i < 256; ++i)
    if (!t.letter[i]) t.weight[i] = w++;
  for (int c = 'a'; c <= 'z'; ++c) {
    t.weight[c] = t.weight[c - 32] = w++;
  }
  // Cyrillic lower-case letters in collation order (CP1251 codes).
  const int order[] = {
      0xE0,                                            // а
      0xE1, 0xE2,                                      // б в
      0xE3, 0xB4, 0x83,                                // г ґ ѓ
      0xE4, 0x90,                                      // д ђ
      0xE5, 0xB8, 0xBA,                                // е ё є
      0xE6, 0xE7, 0xBE,                                // ж з ѕ
      0xE8, 0xB3, 0xBF,                                // и і ї
      0xE9, 0xBC,                                      // й ј
      0xEA, 0x9D,                                      // к ќ
      0xEB, 0x9A,                                      // л љ
      0xEC, 0xED, 0x9C,                                // м н њ
      0xEE, 0xEF, 0xF0, 0xF1, 0xF2, 0x9E,              // о п р с т ћ
      0xF3, 0xA2,                                      // у ў
      0xF4, 0xF5, 0xF6, 0xF7, 0x9F,                    // ф х ц ч џ
      0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF,  // ш щ ъ ы ь э ю я
  };
  for (int lo : order) {
    t.weight[lo] = w;
    t.weight[t.upper[lo]] = w;
    ++w;
  }
  return t;
}

constexpr CaseTables kCase = MakeCaseTables();

inline unsigned char U(char c) { return static_cast<unsigned char>(c); }

int Sign(int v) { return (v > 0) - (v < 0); }

// ---- UTF-8 decoding ---------------------------------------------------------------------

// Decodes one code point at s[i]; advances i. Malformed input yields U+FFFD for one byte.
char32_t DecodeUtf8(std::string_view s, std::size_t& i) {
  unsigned char c = U(s[i]);
  if (c < 0x80) {
    ++i;
    return c;
  }
  int extra;
  char32_t cp;
  if ((c & 0xE0) == 0xC0) {
    extra = 1;
    cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    extra = 2;
    cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    extra = 3;
    cp = c & 0x07;
  } else {
    ++i;
    return 0xFFFD;
  }
  if (i + extra >= s.size()) {
    ++i;
    return 0xFFFD;
  }
  for (int k = 1; k <= extra; ++k) {
    unsigned char cc = U(s[i + k]);
    if ((cc & 0xC0) != 0x80) {
      ++i;
      return 0xFFFD;
    }
    cp = (cp << 6) | (cc & 0x3F);
  }
  static constexpr char32_t kMin[] = {0, 0x80, 0x800, 0x10000};
  if (cp < kMin[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++i;
    return 0xFFFD;
  }
  i += 1 + extra;
  return cp;
}

void AppendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

void AppendUtf16(WideString& out, char32_t cp) {
  if (cp < 0x10000) {
    out += static_cast<char16_t>(cp);
  } else {
    cp -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (cp >> 10));
    out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
  }
}

// Decodes one code point of UTF-16 at s[i]; unpaired surrogates yield U+FFFD.
char32_t DecodeUtf16(std::u16string_view s, std::size_t& i) {
  char16_t c = s[i++];
  if (c >= 0xD800 && c <= 0xDBFF) {
    if (i < s.size() && s[i] >= 0xDC00 && s[i] <= 0xDFFF) {
      char32_t cp = 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) + (s[i] - 0xDC00);
      ++i;
      return cp;
    }
    return 0xFFFD;
  }
  if (c >= 0xDC00 && c <= 0xDFFF) return 0xFFFD;
  return c;
}

char AnsiOf(char32_t cp) {
  int b = cp1251::FromCodePoint(cp);
  return b < 0 ? '?' : static_cast<char>(b);
}

}  // namespace

// ---- conversions ------------------------------------------------------------------------

AnsiString Utf8ToAnsi(std::string_view utf8) {
  AnsiString out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) out += AnsiOf(DecodeUtf8(utf8, i));
  return out;
}

AnsiString Utf8ToAnsi(std::u8string_view utf8) {
  return Utf8ToAnsi(std::string_view(reinterpret_cast<const char*>(utf8.data()), utf8.size()));
}

std::string AnsiToUtf8(std::string_view ansi) {
  std::string out;
  out.reserve(ansi.size() * 2);
  for (char c : ansi) AppendUtf8(out, cp1251::ToCodePoint(U(c)));
  return out;
}

WideString AnsiToWide(std::string_view ansi) {
  WideString out;
  out.reserve(ansi.size());
  for (char c : ansi) out += cp1251::ToCodePoint(U(c));
  return out;
}

AnsiString WideToAnsi(std::u16string_view wide) {
  AnsiString out;
  out.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size();) out += AnsiOf(DecodeUtf16(wide, i));
  return out;
}

WideString Utf8ToWide(std::string_view utf8) {
  WideString out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) AppendUtf16(out, DecodeUtf8(utf8, i));
  return out;
}

std::string WideToUtf8(std::u16string_view wide) {
  std::string out;
  out.reserve(wide.size() * 2);
  for (std::size_t i = 0; i < wide.size();) AppendUtf8(out, DecodeUtf16(wide, i));
  return out;
}

// ---- case ---------------------------------------------------------------------------------

char AnsiUpperChar(char c) { return static_cast<char>(kCase.upper[U(c)]); }
char AnsiLowerChar(char c) { return static_cast<char>(kCase.lower[U(c)]); }
bool IsAnsiLetter(char c) { return kCase.letter[U(c)]; }

AnsiString AnsiUpperCase(std::string_view s) {
  AnsiString r(s);
  for (char& c : r) c = static_cast<char>(kCase.upper[U(c)]);
  return r;
}

AnsiString AnsiLowerCase(std::string_view s) {
  AnsiString r(s);
  for (char& c : r) c = static_cast<char>(kCase.lower[U(c)]);
  return r;
}

AnsiString UpperCase(std::string_view s) {
  AnsiString r(s);
  for (char& c : r)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  return r;
}

AnsiString LowerCase(std::string_view s) {
  AnsiString r(s);
  for (char& c : r)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return r;
}

int AnsiCompareText(std::string_view a, std::string_view b) {
  std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    int d = int(kCase.weight[U(a[i])]) - int(kCase.weight[U(b[i])]);
    if (d) return Sign(d);
  }
  return Sign(int(a.size() > b.size()) - int(a.size() < b.size()));
}

bool AnsiSameText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (kCase.weight[U(a[i])] != kCase.weight[U(b[i])]) return false;
  return true;
}

int AnsiCompareStr(std::string_view a, std::string_view b) {
  int r = AnsiCompareText(a, b);
  if (r) return r;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] == b[i]) continue;
    bool aLower = kCase.lower[U(a[i])] == U(a[i]);
    bool bLower = kCase.lower[U(b[i])] == U(b[i]);
    if (aLower != bLower) return aLower ? -1 : 1;
  }
  return 0;
}

bool AnsiSameStr(std::string_view a, std::string_view b) { return a == b; }

int CompareStr(std::string_view a, std::string_view b) { return Sign(a.compare(b)); }

namespace {
inline unsigned char AsciiUpper(char c) {
  return static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 32 : c);
}
}  // namespace

// As CompareStr over the upper-case forms, without making them: both run on every name a
// query or the reader compares.
int CompareText(std::string_view a, std::string_view b) {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char x = AsciiUpper(a[i]), y = AsciiUpper(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

bool SameText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (AsciiUpper(a[i]) != AsciiUpper(b[i])) return false;
  return true;
}

AnsiString AnsiFoldCase(std::string_view s) {
  AnsiString r(s);
  // Characters of equal weight fold to one byte: the upper-case form.
  for (char& c : r) c = static_cast<char>(kCase.upper[U(c)]);
  return r;
}

std::size_t AnsiHashText(std::string_view s) {
  // FNV-1a over the folded bytes.
  std::uint64_t h = 1469598103934665603ull;
  for (char c : s) {
    h ^= kCase.upper[U(c)];
    h *= 1099511628211ull;
  }
  return static_cast<std::size_t>(h);
}

// ---- trimming and searching -------------------------------------------------------------

AnsiString Trim(std::string_view s) {
  std::size_t b = 0, e = s.size();
  while (b < e && detail::IsBlank(s[b])) ++b;
  while (e > b && detail::IsBlank(s[e - 1])) --e;
  return AnsiString(s.substr(b, e - b));
}

AnsiString TrimLeft(std::string_view s) {
  std::size_t b = 0;
  while (b < s.size() && detail::IsBlank(s[b])) ++b;
  return AnsiString(s.substr(b));
}

AnsiString TrimRight(std::string_view s) {
  std::size_t e = s.size();
  while (e > 0 && detail::IsBlank(s[e - 1])) --e;
  return AnsiString(s.substr(0, e));
}

namespace {

// Where sub (not empty) first stands in s at or after `from`; npos when nowhere. Both come
// from callers and may both be large, so the cost must not grow with the product of their
// sizes: a short pattern is compared at each place, a bounded cost per byte; a longer one is
// found by Knuth-Morris-Pratt, which never steps back in the text.
std::size_t FindFirst(std::string_view s, std::string_view sub, std::size_t from) {
  constexpr std::size_t kShortPattern = 32;
  if (from > s.size() || sub.size() > s.size() - from) return std::string_view::npos;
  if (sub.size() <= kShortPattern) return s.find(sub, from);
  const std::vector<std::size_t> border = detail::TextBorders(sub);
  for (std::size_t i = from, k = 0; i < s.size(); ++i) {
    if (k == 0) {
      // Nothing matched yet: on to the next place where the first byte stands.
      i = s.find(sub[0], i);
      if (i == std::string_view::npos) break;
    }
    while (k > 0 && s[i] != sub[k]) k = border[k - 1];
    if (s[i] == sub[k]) ++k;
    if (k == sub.size()) return i + 1 - k;
  }
  return std::string_view::npos;
}

}  // namespace

int Pos(std::string_view sub, std::string_view s, int offset) {
  if (sub.empty() || offset < 1 || static_cast<std::size_t>(offset) > s.size()) return 0;
  std::size_t p = FindFirst(s, sub, static_cast<std::size_t>(offset - 1));
  return p == std::string_view::npos ? 0 : static_cast<int>(p) + 1;
}

int AnsiPosText(std::string_view sub, std::string_view s) {
  if (sub.empty() || sub.size() > s.size()) return 0;
  // Letters of one weight fold to one byte, so equal folded bytes are equal text.
  std::size_t p = FindFirst(AnsiFoldCase(s), AnsiFoldCase(sub), 0);
  return p == std::string_view::npos ? 0 : static_cast<int>(p) + 1;
}

AnsiString Copy(std::string_view s, int index, int count) {
  if (index < 1) index = 1;
  if (count <= 0 || static_cast<std::size_t>(index) > s.size()) return {};
  return AnsiString(s.substr(static_cast<std::size_t>(index - 1), static_cast<std::size_t>(count)));
}

AnsiString StringOfChar(char c, int count) {
  return count > 0 ? AnsiString(static_cast<std::size_t>(count), c) : AnsiString();
}

AnsiString StringReplaceAll(std::string_view s, std::string_view from, std::string_view to,
                            bool ignoreCase) {
  if (from.empty()) return AnsiString(s);
  AnsiString foldedText, foldedFrom;
  std::string_view text = s, pattern = from;
  if (ignoreCase) {
    foldedText = AnsiFoldCase(s);
    foldedFrom = AnsiFoldCase(from);
    text = foldedText;
    pattern = foldedFrom;
  }
  AnsiString out;
  out.reserve(s.size());
  std::size_t i = 0;
  for (std::size_t hit; (hit = FindFirst(text, pattern, i)) != std::string_view::npos;
       i = hit + from.size()) {
    out.append(s.substr(i, hit - i));
    out.append(to);
  }
  out.append(s.substr(i));
  return out;
}

AnsiString QuotedStr(std::string_view s, char quote) {
  AnsiString out;
  out.reserve(s.size() + 2);
  out += quote;
  for (char c : s) {
    out += c;
    if (c == quote) out += quote;
  }
  out += quote;
  return out;
}

}  // namespace ostrel
