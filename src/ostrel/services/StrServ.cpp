#include <ostrel/services/StrServ.h>

#include <ostrel/rtl/Exceptions.h>

#include <cstddef>
#include <functional>

namespace ostrel {

namespace {

// The 0-based offset a 1-based position stands for, clamped to 0..size.
std::size_t Offset(int pos, std::size_t size) {
  if (pos < 1) return 0;
  std::size_t off = static_cast<std::size_t>(pos) - 1;
  return off < size ? off : size;
}

int Position(std::size_t offset) { return static_cast<int>(offset) + 1; }

// True when `view` points into the buffer of `s`, so that growing `s` would invalidate it.
bool Overlaps(const AnsiString& s, std::string_view view) {
  if (view.empty()) return false;
  std::less_equal<const char*> le;
  return le(s.data(), view.data()) && le(view.data(), s.data() + s.capacity());
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Trimming and deleting

void TkxStrPr::TrimLtCh(AnsiString& s, TCharSet set) {
  std::size_t i = 0;
  while (i < s.size() && set.Contains(s[i])) ++i;
  s.erase(0, i);
}

void TkxStrPr::TrimRtCh(AnsiString& s, TCharSet set) {
  std::size_t n = s.size();
  while (n > 0 && set.Contains(s[n - 1])) --n;
  s.resize(n);
}

void TkxStrPr::TrimCh(AnsiString& s, TCharSet set) {
  TrimRtCh(s, set);
  TrimLtCh(s, set);
}

AnsiString TrimLeftCh(std::string_view s, TCharSet set) {
  AnsiString r(s);
  TkxStrPr::TrimLtCh(r, set);
  return r;
}

AnsiString TrimRightCh(std::string_view s, TCharSet set) {
  AnsiString r(s);
  TkxStrPr::TrimRtCh(r, set);
  return r;
}

AnsiString TrimCh(std::string_view s, TCharSet set) {
  AnsiString r(s);
  TkxStrPr::TrimCh(r, set);
  return r;
}

AnsiString DelCh(std::string_view s, TCharSet set) {
  AnsiString r;
  r.reserve(s.size());
  for (char c : s)
    if (!set.Contains(c)) r.push_back(c);
  return r;
}

// ---------------------------------------------------------------------------------------
// Joining

void StrJoin(AnsiString& s, std::string_view piece, std::string_view sep) {
  if (piece.empty()) return;
  if (s.empty()) {
    s.assign(piece.data(), piece.size());
    return;
  }
  if (Overlaps(s, piece) || Overlaps(s, sep)) {
    // The piece or separator lives inside `s`: build the result aside.
    AnsiString r;
    r.reserve(s.size() + sep.size() + piece.size());
    r.append(s).append(sep).append(piece);
    s.swap(r);
    return;
  }
  s.append(sep).append(piece);
}

AnsiString StrAdd(std::string_view s, std::string_view piece, std::string_view sep) {
  AnsiString r(s);
  StrJoin(r, piece, sep);
  return r;
}

// ---------------------------------------------------------------------------------------
// Tokenising

void SkipDivChar(std::string_view s, int& pos, TCharSet set) {
  if (pos < 1) pos = 1;
  if (static_cast<std::size_t>(pos) > s.size()) return;
  std::size_t i = Offset(pos, s.size());
  while (i < s.size() && set.Contains(s[i])) ++i;
  pos = Position(i);
}

AnsiString GetSubStr(std::string_view s, int& pos, TCharSet set) {
  if (pos < 1) pos = 1;
  if (static_cast<std::size_t>(pos) > s.size()) return AnsiString();
  std::size_t start = Offset(pos, s.size());
  std::size_t i = start;
  while (i < s.size() && !set.Contains(s[i])) ++i;
  pos = Position(i);
  return AnsiString(s.substr(start, i - start));
}

bool ExtractStr(std::string_view s, int& pos, TCharSet set, AnsiString& token) {
  // `s` may be a view of `token` itself, so the token is read before it is replaced.
  if (pos < 1) pos = 1;
  SkipDivChar(s, pos, set);
  AnsiString r = GetSubStr(s, pos, set);
  token = std::move(r);
  return !token.empty();
}

AnsiString ExtractStr(std::string_view s, int& pos, TCharSet set) {
  AnsiString token;
  ExtractStr(s, pos, set, token);
  return token;
}

AnsiString ExtractWord(int n, std::string_view s, TCharSet set) {
  if (n < 1) return AnsiString();
  std::size_t i = 0;
  int word = 0;
  while (i < s.size()) {
    while (i < s.size() && set.Contains(s[i])) ++i;
    if (i == s.size()) break;
    std::size_t start = i;
    while (i < s.size() && !set.Contains(s[i])) ++i;
    if (++word == n) return AnsiString(s.substr(start, i - start));
  }
  return AnsiString();
}

AnsiString StrDiv(std::string_view s, AnsiString& tail, char ch) {
  std::size_t at = s.find(ch);
  if (at == std::string_view::npos) {
    AnsiString head = Trim(s);
    tail.clear();
    return head;
  }
  AnsiString head = Trim(s.substr(0, at));
  AnsiString rest = Trim(s.substr(at + 1));
  tail = std::move(rest);
  return head;
}

// ---------------------------------------------------------------------------------------
// Comparing and sorting

int CompareInt(Int64 a, Int64 b) { return a > b ? 1 : (a < b ? -1 : 0); }

namespace {

[[noreturn]] void InconsistentCompare() {
  throw Exception("ListQuickSort: the compare function is inconsistent");
}

}  // namespace

void ListQuickSort(void* list, int l, int r, void* data, TListSortExchangeProc exchange,
                   TListSortCompareProc compare) {
  if (!exchange || !compare) throw Exception("ListQuickSort: no compare or exchange function");
  // A range of one element or none is already sorted; the loop below would otherwise take
  // its pivot outside the range.
  if (r <= l) return;
  int i;
  do {
    i = l;
    int j = r;
    int p = static_cast<int>((static_cast<unsigned>(l) + static_cast<unsigned>(r)) >> 1);
    do {
      // With a consistent compare the scans stop at the pivot at the latest; running past
      // the range means the callback contradicts itself.
      while (compare(list, i, p, data) < 0)
        if (++i > r) InconsistentCompare();
      while (compare(list, j, p, data) > 0)
        if (--j < l) InconsistentCompare();
      if (i <= j) {
        exchange(list, i, j, data);
        if (p == i)
          p = j;
        else if (p == j)
          p = i;
        ++i;
        --j;
      }
    } while (i <= j);
    if (l < j) ListQuickSort(list, l, j, data, exchange, compare);
    l = i;
  } while (i < r);
}

}  // namespace ostrel
