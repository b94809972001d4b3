// Numbers and amounts in words: the dictionary table and the conversions.
#include <ostrel/services/NumToText.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/services/ErrServ.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>

namespace ostrel {

namespace {

// ---------------------------------------------------------------------------------------
// Word entries and dictionaries taken apart once

// The n-th ";"-separated word, counting from 1.
std::string_view NthWord(std::string_view list, int n) {
  if (n < 1) return {};
  std::size_t start = 0;
  for (int i = 1; i < n; ++i) {
    const std::size_t p = list.find(';', start);
    if (p == std::string_view::npos) return {};
    start = p + 1;
  }
  const std::size_t end = list.find(';', start);
  return list.substr(start, end == std::string_view::npos ? list.size() - start : end - start);
}

// The first count words of a list into out[1..count]; missing ones stay empty.
template <std::size_t N>
void SplitList(std::string_view list, std::array<std::string_view, N>& out) {
  std::size_t start = 0;
  for (std::size_t i = 1; i < N; ++i) {
    const std::size_t end = list.find(';', start);
    out[i] = list.substr(start, end == std::string_view::npos ? list.size() - start : end - start);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
}

// Appends the stem of entry and its k-th part (the stem alone when there is no such part;
// the whole entry when it has no "|").
void AppendForm(AnsiString& out, std::string_view entry, int k) {
  std::size_t bar = entry.find('|');
  if (bar == std::string_view::npos) {
    out += entry;
    return;
  }
  out += entry.substr(0, bar);
  for (int part = 1; bar != std::string_view::npos; ++part) {
    const std::size_t next = entry.find('|', bar + 1);
    if (part == k) {
      out += entry.substr(bar + 1, next == std::string_view::npos ? entry.size() - bar - 1
                                                                    : next - bar - 1);
      return;
    }
    bar = next;
  }
}

// The text being built: appends go to a buffer on the stack, and only a text longer than
// that moves to the heap. One string is made at the end.
#if defined(__GNUC__) || defined(__clang__)
#  define OSTREL_HOT_INLINE inline __attribute__((always_inline))
#else
#  define OSTREL_HOT_INLINE inline
#endif

class Sink {
 public:
  OSTREL_HOT_INLINE Sink& operator+=(std::string_view s) {
    const std::size_t n = s.size();
    if (fSpilled || fLen + n > sizeof fLocal) {
      Spill(s);
      return *this;
    }
    // Words are short: copy them with a few fixed-size moves instead of a call.
    char* dst = fLocal + fLen;
    const char* src = s.data();
    if (n >= 8 && n <= 16) {
      std::memcpy(dst, src, 8);
      std::memcpy(dst + n - 8, src + n - 8, 8);
    } else if (n >= 4 && n < 8) {
      std::memcpy(dst, src, 4);
      std::memcpy(dst + n - 4, src + n - 4, 4);
    } else if (n < 4) {
      for (std::size_t i = 0; i < n; ++i) dst[i] = src[i];
    } else {
      std::memcpy(dst, src, n);
    }
    fLen += n;
    return *this;
  }
  OSTREL_HOT_INLINE Sink& operator+=(char c) {
    if (!fSpilled && fLen < sizeof fLocal)
      fLocal[fLen++] = c;
    else
      Spill(std::string_view(&c, 1));
    return *this;
  }
  void UpperFirst() {
    char* first = fSpilled ? (fHeap.empty() ? nullptr : &fHeap[0]) : (fLen ? fLocal : nullptr);
    if (first) *first = AnsiUpperChar(*first);
  }
  AnsiString Take() { return fSpilled ? std::move(fHeap) : AnsiString(fLocal, fLen); }

 private:
  void Spill(std::string_view s) {
    if (!fSpilled) {
      fHeap.reserve(2 * (fLen + s.size()));
      fHeap.append(fLocal, fLen);
      fSpilled = true;
    }
    fHeap += s;
  }

  char fLocal[480];
  std::size_t fLen = 0;
  bool fSpilled = false;
  std::string fHeap;
};

// One entry "stem|form1|form2|form3" taken apart, for the forms 1 to 3 that numbers use.
struct Form {
  std::string_view Stem;
  std::array<std::string_view, 3> Parts{};

  Form() = default;
  explicit Form(std::string_view entry) {
    std::size_t bar = entry.find('|');
    Stem = entry.substr(0, bar);
    for (std::size_t k = 0; k < 3 && bar != std::string_view::npos; ++k) {
      const std::size_t next = entry.find('|', bar + 1);
      Parts[k] = entry.substr(bar + 1, next == std::string_view::npos ? entry.size() - bar - 1
                                                                        : next - bar - 1);
      bar = next;
    }
  }

  void AppendTo(Sink& out, int k) const {
    out += Stem;
    if (k >= 1 && k <= 3) out += Parts[static_cast<std::size_t>(k - 1)];
  }
};

// The gender suffix after the last ":" or "(": the entry without it, and its letter
// upper-cased ('\0' when there is none).
char SplitSex(std::string_view entry, std::string_view& stripped) {
  const std::size_t p = entry.find_last_of(":(");
  if (p == std::string_view::npos) {
    stripped = entry;
    return '\0';
  }
  stripped = entry.substr(0, p);
  return p + 1 < entry.size() ? AnsiUpperChar(entry[p + 1]) : '\0';
}

// A unit word of a currency, ready to be inflected.
struct Unit {
  Form Word;
  char Letter = '\0';

  Unit() = default;
  explicit Unit(std::string_view entry) {
    std::string_view stripped;
    Letter = SplitSex(entry, stripped);
    Word = Form(stripped);
  }
  bool Russian() const { return Letter != 'A'; }
};

// The word lists of a dictionary split into their entries. The views point into the
// dictionary, which must outlive this.
struct Words {
  const TkxNumToTextRec* Rec;
  std::array<std::string_view, 10> Ones{}, Tens{}, Teens{}, Hundreds{};  // [1..9]
  std::array<std::string_view, 5> Powers{};                              // [1..4]
  std::array<Form, 3> OneTwo{};                                          // [1], [2]
  std::array<Form, 5> PowerForms{};

  explicit Words(const TkxNumToTextRec& rec) : Rec(&rec) {
    SplitList(rec.Ones, Ones);
    SplitList(rec.Tens, Tens);
    SplitList(rec.Teens, Teens);
    SplitList(rec.Hundreds, Hundreds);
    SplitList(rec.Powers, Powers);
    OneTwo[1] = Form(Ones[1]);
    OneTwo[2] = Form(Ones[2]);
    for (std::size_t i = 1; i < Powers.size(); ++i) PowerForms[i] = Form(Powers[i]);
  }
};

// Every group 0..999 spoken once, in the five ways numbers use them: the lowest group in
// each gender (0..2), thousands (3) and the groups above (4). A dictionary of the table
// builds this on its first conversion, so that a number is a few copies of ready text.
struct GroupTexts {
  std::string Text;
  std::array<std::array<std::uint32_t, 1001>, 5> Start{};  // text of n: Start[v][n]..[n + 1]

  std::string_view Get(int variant, int n) const {
    const auto& st = Start[static_cast<std::size_t>(variant)];
    const std::size_t i = static_cast<std::size_t>(n);
    return std::string_view(Text).substr(st[i], st[i + 1] - st[i]);
  }
};

std::unique_ptr<GroupTexts> BuildGroups(const Words& w);

// A dictionary of the table with its words and currency units taken apart. It is built in
// place on the heap and never moves, so the views stay valid.
struct Dict {
  TkxNumToTextRec Rec;
  Words W;
  std::vector<std::array<Unit, 2>> Units;  // parallel to Rec.Currencies

  explicit Dict(TkxNumToTextRec rec) : Rec(std::move(rec)), W(Rec) {
    for (const TkxCrcToTextRec& c : Rec.Currencies)
      Units.push_back({Unit(c.IntName), Unit(c.FracName)});
  }
  Dict(const Dict&) = delete;
  Dict& operator=(const Dict&) = delete;

  // Null when the dictionary's words are too long to be worth keeping spoken.
  const GroupTexts* Groups() const {
    if (fGroupsReady.load(std::memory_order_acquire)) return fOwnedGroups.get();
    std::lock_guard<std::mutex> lock(fGroupsLock);
    if (!fGroupsReady.load(std::memory_order_relaxed)) {
      fOwnedGroups = BuildGroups(W);
      fGroupsReady.store(true, std::memory_order_release);
    }
    return fOwnedGroups.get();
  }

 private:
  mutable std::mutex fGroupsLock;
  mutable std::unique_ptr<GroupTexts> fOwnedGroups;
  mutable std::atomic<bool> fGroupsReady{false};
};

// ---------------------------------------------------------------------------------------
// The table

// Replaced dictionaries stay allocated until the process ends: a conversion running in
// another thread may still be reading one. Applications replace dictionaries at start-up,
// so these are a handful at most. Every change bumps the version, which lets each thread
// keep its last lookup without taking the lock.
struct DictTable {
  std::mutex Lock;
  std::vector<std::unique_ptr<const Dict>> Dicts;
  std::vector<std::unique_ptr<const Dict>> Retired;
  std::atomic<std::uint64_t> Version{1};
};

// Codes compare without regard to case; plain ASCII codes, the usual case, need no tables.
bool SameCode(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const unsigned char x = static_cast<unsigned char>(a[i]);
    const unsigned char y = static_cast<unsigned char>(b[i]);
    if ((x | y) & 0x80) return AnsiSameText(a, b);
    const unsigned char fx = x >= 'A' && x <= 'Z' ? x + 32 : x;
    const unsigned char fy = y >= 'A' && y <= 'Z' ? y + 32 : y;
    if (fx != fy) return false;
  }
  return true;
}

DictTable& Table() {
  static DictTable table;
  return table;
}

int IndexOfLocked(const DictTable& t, std::string_view code) {
  for (std::size_t i = 0; i < t.Dicts.size(); ++i)
    if (SameCode(t.Dicts[i]->Rec.Code, code)) return static_cast<int>(i);
  return -1;
}

void AddLocked(DictTable& t, TkxNumToTextRec rec) {
  auto p = std::make_unique<const Dict>(std::move(rec));
  const int i = IndexOfLocked(t, p->Rec.Code);
  if (i >= 0) {
    auto& slot = t.Dicts[static_cast<std::size_t>(i)];
    t.Retired.push_back(std::move(slot));
    slot = std::move(p);
  } else {
    t.Dicts.push_back(std::move(p));
  }
  t.Version.fetch_add(1, std::memory_order_release);
}

// The dictionaries are built by aggregate initialisation in field order: Code, Plus, Minus,
// Zero, Ones, Tens, Teens, Hundreds, Powers, TensDiv, HundredsDiv, Currencies.
TkxNumToTextRec BuiltInEnglish() {
  return TkxNumToTextRec{
      "EN",
      "plus",
      "minus",
      "zero",
      "one;two;three;four;five;six;seven;eight;nine",
      // "fourty" and "ninty" are the built-in table's spelling since its first release;
      // texts compared against earlier output depend on it.
      "ten;twenty;thirty;fourty;fifty;sixty;seventy;eighty;ninty",
      "eleven;twelve;thirteen;fourteen;fifteen;sixteen;seventeen;eighteen;nineteen",
      "one hundred;two hundred;three hundred;four hundred;five hundred;six hundred;"
      "seven hundred;eight hundred;nine hundred",
      "thousand;million;billion;trillion",
      "-",
      " and ",
      {{"RUR", "rouble||s:a", "kopeck||s:a"},
       {"USD", "dollar||s:a", "cent||s:a"},
       {"EUR", "euro", "cent||s:a"}}};
}

TkxNumToTextRec BuiltInRussian() {
  return TkxNumToTextRec{
      "RU",
      Cp1251(u8"плюс"),
      Cp1251(u8"минус"),
      Cp1251(u8"ноль"),
      Cp1251(u8"од|ин|на|но;дв|а|е|е;три;четыре;пять;шесть;семь;восемь;девять"),
      Cp1251(u8"десять;двадцать;тридцать;сорок;пятьдесят;шестьдесят;семьдесят;восемьдесят;"
             u8"девяносто"),
      Cp1251(u8"одиннадцать;двенадцать;тринадцать;четырнадцать;пятнадцать;шестнадцать;"
             u8"семнадцать;восемнадцать;девятнадцать"),
      Cp1251(u8"сто;двести;триста;четыреста;пятьсот;шестьсот;семьсот;восемьсот;девятьсот"),
      Cp1251(u8"тысяч|а|и|;миллион||а|ов;миллиард||а|ов;триллион||а|ов"),
      "",
      "",
      {{"RUR", Cp1251(u8"рубл|ь|я|ей:m"), Cp1251(u8"копе|йка|йки|ек:f")},
       {"USD", Cp1251(u8"доллар| США|а США|ов США:m"), Cp1251(u8"цент||а|ов:m")},
       // The first letter of "eвро" is the Latin "e" (0x65), as the table has always had
       // it; texts compared against earlier output depend on it.
       {"EUR", Cp1251(u8"eвро"), Cp1251(u8"цент||а|ов:m")}}};
}

// The last lookup of this thread.
struct LastLookup {
  std::uint64_t Version = 0;
  const Dict* D = nullptr;
  std::size_t Len = 0;
  char Code[16] = {};
};
thread_local LastLookup tLast;

// The dictionary for a code, filling the table with the built-in ones when it is empty.
const Dict* FindDict(std::string_view code, bool raiseIfAbsent) {
  DictTable& t = Table();
  if (tLast.D && tLast.Len == code.size() &&
      tLast.Version == t.Version.load(std::memory_order_acquire) &&
      std::memcmp(tLast.Code, code.data(), code.size()) == 0)
    return tLast.D;

  std::lock_guard<std::mutex> lock(t.Lock);
  if (t.Dicts.empty()) {
    AddLocked(t, BuiltInEnglish());
    AddLocked(t, BuiltInRussian());
  }
  const int i = IndexOfLocked(t, code);
  if (i >= 0) {
    const Dict* d = t.Dicts[static_cast<std::size_t>(i)].get();
    if (code.size() <= sizeof tLast.Code) {
      tLast.Version = t.Version.load(std::memory_order_relaxed);
      tLast.D = d;
      tLast.Len = code.size();
      std::memcpy(tLast.Code, code.data(), code.size());
    }
    return d;
  }
  if (raiseIfAbsent) DIE(_SErrNumToTextUnkCode, code);
  return nullptr;
}

// Index of a currency in a dictionary, -1 when absent (raising when asked to).
int FindCrc(const TkxNumToTextRec& rec, std::string_view crcCode, bool raiseIfAbsent) {
  for (std::size_t i = 0; i < rec.Currencies.size(); ++i)
    if (SameCode(rec.Currencies[i].Code, crcCode)) return static_cast<int>(i);
  if (raiseIfAbsent) DIE(_SErrNumToTextUnkCrcCode, rec.Code, crcCode);
  return -1;
}

// ---------------------------------------------------------------------------------------
// Numbers in words

std::string_view StripZeros(std::string_view d) {
  while (!d.empty() && d.front() == '0') d.remove_prefix(1);
  return d;
}

int DigitIndex(char c) { return c >= '1' && c <= '9' ? c - '0' : 0; }

void AppendDigitWord(Sink& out, const Words& w, char digit, TSex sex) {
  const int d = DigitIndex(digit);
  if (d == 1 || d == 2)
    w.OneTwo[static_cast<std::size_t>(d)].AppendTo(out, static_cast<int>(sex) + 1);
  else
    out += w.Ones[static_cast<std::size_t>(d)];
}

// One group of digits (leading zeros allowed) appended in words.
void AppendGroup(Sink& out, const Words& w, int group, TSex sex, std::string_view d) {
  d = StripZeros(d);
  if (d.size() > 3) d = StripZeros(d.substr(d.size() - 3));
  switch (d.size()) {
    case 1:
      AppendDigitWord(out, w, d[0], sex);
      break;
    case 2:
      if (d[0] == '1' && d[1] != '0') {
        out += w.Teens[static_cast<std::size_t>(DigitIndex(d[1]))];
      } else {
        out += w.Tens[static_cast<std::size_t>(DigitIndex(d[0]))];
        if (d[1] != '0') {
          // Only the lowest group joins with the dictionary's own joiner: English says
          // "twenty-one" but "twenty one thousand".
          if (group == 0 && !w.Rec->TensDiv.empty())
            out += w.Rec->TensDiv;
          else
            out += ' ';
          AppendDigitWord(out, w, d[1], sex);
        }
      }
      break;
    case 3:
      out += w.Hundreds[static_cast<std::size_t>(DigitIndex(d[0]))];
      if (d.substr(1) != "00") {
        if (w.Rec->HundredsDiv.empty())
          out += ' ';
        else
          out += w.Rec->HundredsDiv;
        AppendGroup(out, w, group, sex, d.substr(1));
      }
      break;
    default:
      break;
  }
}

std::unique_ptr<GroupTexts> BuildGroups(const Words& w) {
  auto g = std::make_unique<GroupTexts>();
  std::uint32_t pos = 0;
  for (int v = 0; v < 5; ++v) {
    const int group = v < 3 ? 0 : v - 2;
    const TSex sex = v < 3 ? static_cast<TSex>(v) : (v == 3 ? Female : Male);
    for (int n = 0; n < 1000; ++n) {
      const char digits[3] = {static_cast<char>('0' + n / 100),
                              static_cast<char>('0' + n / 10 % 10),
                              static_cast<char>('0' + n % 10)};
      Sink one;
      AppendGroup(one, w, group, sex, std::string_view(digits, 3));
      const AnsiString text = one.Take();
      // Ordinary dictionaries need about 100 kB; one with absurdly long words is spoken
      // group by group instead.
      if (g->Text.size() + text.size() > (std::size_t{4} << 20)) return nullptr;
      g->Start[static_cast<std::size_t>(v)][static_cast<std::size_t>(n)] = pos;
      g->Text += text;
      pos += static_cast<std::uint32_t>(text.size());
    }
    g->Start[static_cast<std::size_t>(v)][1000] = pos;
  }
  return g;
}

void AppendNumber(Sink& out, const Words& w, std::string_view s, TSex sex,
                  const GroupTexts* groups) {
  const std::size_t dot = s.find('.');
  if (dot != std::string_view::npos) s = s.substr(0, dot);

  struct Piece {
    int Group;
    int Count;
    char Digits[3];
  };
  // Spoken groups, lowest first; a heap list only for digit strings beyond 48 digits.
  Piece local[16];
  std::vector<Piece> more;
  int spoken = 0;
  const AnsiString* signWord = nullptr;
  std::size_t i = s.size();
  for (int group = 0; i > 0; ++group) {
    char rev[3];
    int count = 0;
    for (int c = 0; c < 3 && i > 0; ++c) {
      const char ch = s[--i];
      if (ch >= '0' && ch <= '9') {
        rev[count++] = ch;
        continue;
      }
      if (ch == '-')
        signWord = &w.Rec->Minus;
      else if (ch == '+')
        signWord = &w.Rec->Plus;
      break;  // a non-digit ends the group, which still counts
    }
    bool nonZero = false;
    for (int k = 0; k < count; ++k) nonZero = nonZero || rev[k] != '0';
    if (!nonZero) continue;
    Piece& p = spoken < 16 ? local[spoken] : more.emplace_back();
    p.Group = group;
    p.Count = count;
    for (int k = 0; k < count; ++k) p.Digits[k] = rev[count - 1 - k];
    ++spoken;
  }

  if (spoken == 0) {
    out += w.Rec->Zero;
    return;
  }
  if (signWord) {
    out += *signWord;
    out += ' ';
  }
  for (int k = spoken - 1; k >= 0; --k) {
    const Piece& p = k < 16 ? local[k] : more[static_cast<std::size_t>(k - 16)];
    const std::string_view digits(p.Digits, static_cast<std::size_t>(p.Count));
    const TSex groupSex = p.Group == 0 ? sex : (p.Group == 1 ? Female : Male);
    const int variant = p.Group == 0 ? static_cast<int>(sex) : (p.Group == 1 ? 3 : 4);
    if (groups && variant >= 0 && variant < 5) {
      int n = 0;
      for (int k = 0; k < p.Count; ++k) n = n * 10 + (p.Digits[k] - '0');
      out += groups->Get(variant, n);
    } else {
      AppendGroup(out, w, p.Group, groupSex, digits);
    }
    if (p.Group >= 1 && p.Group <= 4) {
      out += ' ';
      w.PowerForms[static_cast<std::size_t>(p.Group)].AppendTo(
          out, TkxNumToTextPr::GetNPadej(digits, true));
      out += ' ';
    } else if (p.Group >= 5) {
      out += " ... ";
    }
  }
}

// ---------------------------------------------------------------------------------------
// Amounts

// The fixed-point text of an amount: on the stack when short, on the heap otherwise.
class FixedText {
 public:
  FixedText() = default;
  FixedText(const FixedText&) = delete;
  FixedText& operator=(const FixedText&) = delete;

  char* Reserve(std::size_t n) {
    if (n <= sizeof fLocal) return fLocal;
    fHeap.assign(n, '\0');
    return fHeap.data();
  }
  void Set(const char* first, const char* end) {
    fView = std::string_view(first, static_cast<std::size_t>(end - first));
  }
  std::string_view View() const { return fView; }

 private:
  char fLocal[64];
  std::string fHeap;
  std::string_view fView;
};

// A decimal number given as its significant digits and the count of digits before the
// point (may be zero or negative), written with exactly dec decimals, "." before them and
// no grouping, rounded half away from zero.
void RoundDigits(bool negative, std::string_view digits, long intLen, std::size_t dec,
                 FixedText& out) {
  const std::size_t il = intLen > 0 ? static_cast<std::size_t>(intLen) : 0;
  const std::size_t len = il + dec;
  // Room for a sign, a carry out of the top digit and the point.
  char* const base = out.Reserve(len + 3);
  char* a = base + 2;
  std::memset(a, '0', len);
  // Position in a of digits[0]; digits further right than the first dropped place cannot
  // change the result.
  const long offset = static_cast<long>(il) - intLen;
  bool up = false;
  for (std::size_t k = 0; k < digits.size(); ++k) {
    const long pos = offset + static_cast<long>(k);
    if (pos < static_cast<long>(len)) {
      a[pos] = digits[k];
    } else {
      up = pos == static_cast<long>(len) && digits[k] >= '5';
      break;
    }
  }
  std::size_t intDigits = il;
  bool nonZero = up;
  if (up) {
    std::size_t i = len;
    while (i > 0 && a[i - 1] == '9') a[--i] = '0';
    if (i == 0) {
      *--a = '1';
      ++intDigits;
    } else {
      ++a[i - 1];
    }
  } else {
    for (std::size_t i = 0; i < len && !nonZero; ++i) nonZero = a[i] != '0';
  }
  char* const fracStart = a + intDigits;
  if (dec > 0) {
    std::memmove(fracStart + 1, fracStart, dec);
    *fracStart = '.';
  }
  char* first = a;
  if (intDigits == 0) {
    *--first = '0';  // no carry happened, so the byte before a is free
  } else {
    while (first < a + intDigits - 1 && *first == '0') ++first;
  }
  if (negative && nonZero) *--first = '-';
  out.Set(first, fracStart + (dec > 0 ? dec + 1 : 0));
}

std::size_t ClampDecimals(int decimals) {
  return static_cast<std::size_t>(std::clamp(decimals, 0, 18));
}

// The amount with a fixed number of decimals. The digits are those of the shortest decimal
// that reads back as the same value (as a double when the value is one, so that 2.675
// passed as a double counts as 2.675), rounded half away from zero. No tolerance is added
// here: beyond about ten trillion a relative tolerance would amount to whole kopecks.
void PlainFixed(Extended value, int decimals, const char* operation, FixedText& out) {
  if (!std::isfinite(value)) {
    AnsiString msg = operation;
    msg += ": the amount is not a finite number";
    throw EConvertError(msg);
  }
  const Extended a = std::fabs(value);
  const std::size_t dec = ClampDecimals(decimals);

  // Most amounts arrive as doubles: then the double's own digits are the ones meant, and
  // the work stays off the x87 unit, whose truncations are slow.
  const double d = static_cast<double>(a);
  const bool isDouble = static_cast<Extended>(d) == a;

  // Whole amounts below a quadrillion: their digits are the integer's own.
  if (isDouble && d < 1e15 && d == std::trunc(d)) {
    char digits[24];
    const auto r = std::to_chars(digits, digits + sizeof digits, static_cast<UInt64>(d));
    const std::size_t n = static_cast<std::size_t>(r.ptr - digits);
    RoundDigits(value < 0, std::string_view(digits, n), static_cast<long>(n), dec, out);
    return;
  }

  // Shortest digits in scientific form: "2.675e+00", "1e+40".
  char buf[96];
  const std::to_chars_result res =
      isDouble ? std::to_chars(buf, buf + sizeof buf, d, std::chars_format::scientific)
               : std::to_chars(buf, buf + sizeof buf, a, std::chars_format::scientific);
  char digits[96];
  std::size_t n = 0;
  const char* p = buf;
  for (; p < res.ptr && *p != 'e'; ++p)
    if (*p != '.') digits[n++] = *p;
  int exp10 = 0;
  if (p < res.ptr) ++p;  // past the 'e'
  if (p < res.ptr && *p == '+') ++p;
  std::from_chars(p, res.ptr, exp10);
  RoundDigits(value < 0, std::string_view(digits, n), static_cast<long>(exp10) + 1, dec, out);
}

// A decimal text ("-1021.05", "1 021,05", "+7") with exactly dec decimals, every digit kept.
void TextFixed(std::string_view text, int decimals, FixedText& out) {
  const AnsiString t = Trim(text);
  std::size_t i = 0;
  bool negative = false;
  if (i < t.size() && (t[i] == '-' || t[i] == '+')) negative = t[i++] == '-';
  std::string digits;
  long intLen = 0;
  bool point = false, any = false;
  for (; i < t.size(); ++i) {
    const char c = t[i];
    if (c >= '0' && c <= '9') {
      any = true;
      if (digits.empty() && c == '0') {
        if (point) --intLen;  // a leading zero after the point only moves the point
        continue;
      }
      digits += c;
      if (!point) ++intLen;
    } else if ((c == '.' || c == ',') && !point) {
      point = true;
    } else if ((c == ' ' || c == '\xA0') && !point && any) {
      // digit groups before the point
    } else {
      break;
    }
  }
  if (!any || i < t.size()) {
    AnsiString msg = "AmountToText: '";
    msg += t;
    msg += "' is not a decimal number";
    throw EConvertError(msg);
  }
  if (digits.empty()) digits.push_back('0');
  RoundDigits(negative, digits, intLen, ClampDecimals(decimals), out);
}

// The amount in words with its units, from its fixed text "[-]whole[.fraction]".
AnsiString AmountWords(const Words& w, const GroupTexts* groups, const Unit& intUnit,
                       const Unit& fracUnit, std::string_view num) {
  const std::size_t dot = num.find('.');
  const std::string_view whole = num.substr(0, dot);
  const std::string_view frac =
      dot == std::string_view::npos ? std::string_view() : num.substr(dot + 1);

  Sink result;
  AppendNumber(result, w, whole, SexOfLetter(intUnit.Letter), groups);
  result += ' ';
  intUnit.Word.AppendTo(result, TkxNumToTextPr::GetNPadej(whole, intUnit.Russian()));
  if (!frac.empty()) {
    result += ' ';
    result += frac;
    result += ' ';
    fracUnit.Word.AppendTo(result, TkxNumToTextPr::GetNPadej(frac, fracUnit.Russian()));
  }
  result.UpperFirst();
  return result.Take();
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The dictionary table

void TkxNumToTextPr::InitDict() {
  AddNumRec(BuiltInEnglish());
  AddNumRec(BuiltInRussian());
}

int TkxNumToTextPr::IndexOfNumRec(std::string_view code) {
  DictTable& t = Table();
  std::lock_guard<std::mutex> lock(t.Lock);
  return IndexOfLocked(t, code);
}

bool TkxNumToTextPr::GetNumRec(std::string_view code, TkxNumToTextRec& rec, bool raiseIfAbsent) {
  const Dict* p = FindDict(code, raiseIfAbsent);
  if (!p) return false;
  rec = p->Rec;
  return true;
}

void TkxNumToTextPr::AddNumRec(const TkxNumToTextRec& rec) {
  DictTable& t = Table();
  std::lock_guard<std::mutex> lock(t.Lock);
  AddLocked(t, rec);
}

int TkxNumToTextPr::IndexOfCrcRec(const TkxNumToTextRec& rec, std::string_view crcCode) {
  return FindCrc(rec, crcCode, false);
}

bool TkxNumToTextPr::GetCrcRec(const TkxNumToTextRec& rec, std::string_view crcCode,
                               TkxCrcToTextRec& crc, bool raiseIfAbsent) {
  const int i = FindCrc(rec, crcCode, raiseIfAbsent);
  if (i < 0) return false;
  crc = rec.Currencies[static_cast<std::size_t>(i)];
  return true;
}

bool TkxNumToTextPr::GetCrcRec(std::string_view langCode, std::string_view crcCode,
                               TkxCrcToTextRec& crc, bool raiseIfAbsent) {
  const Dict* dict = FindDict(langCode, raiseIfAbsent);
  return dict && GetCrcRec(dict->Rec, crcCode, crc, raiseIfAbsent);
}

void TkxNumToTextPr::AddCrcRec(TkxNumToTextRec& rec, const TkxCrcToTextRec& crc) {
  const int i = IndexOfCrcRec(rec, crc.Code);
  if (i >= 0)
    rec.Currencies[static_cast<std::size_t>(i)] = crc;
  else
    rec.Currencies.push_back(crc);
}

void TkxNumToTextPr::AddCrcRec(std::string_view langCode, const TkxCrcToTextRec& crc) {
  // Copy, change, put back: readers holding the old dictionary keep a consistent one.
  TkxNumToTextRec rec = FindDict(langCode, true)->Rec;
  AddCrcRec(rec, crc);
  AddNumRec(rec);
}

// ---------------------------------------------------------------------------------------
// Words

AnsiString TkxNumToTextPr::GetNS(std::string_view list, int n) {
  return AnsiString(NthWord(list, n));
}

AnsiString TkxNumToTextPr::GetNS(std::string_view list, char digit) {
  return AnsiString(NthWord(list, digit - '0'));
}

int TkxNumToTextPr::GetNPadej(std::string_view s, bool russian) {
  if (!russian) return s == "1" ? 1 : 2;
  if (s.size() > 1 && s[s.size() - 2] == '1') return 3;
  if (s.empty()) return 3;
  const char last = s.back();
  if (last == '1') return 1;
  if (last >= '2' && last <= '4') return 2;
  return 3;
}

void TkxNumToTextPr::GetNText(const TkxNumToTextRec& rec, int group, AnsiString& text, TSex sex,
                              std::string_view digits) {
  Sink out;
  AppendGroup(out, Words(rec), group, sex, digits);
  text = out.Take();
}

void TkxNumToTextPr::NumToText(const TkxNumToTextRec& rec, std::string_view s, AnsiString& text,
                               TSex sex) {
  Sink out;
  AppendNumber(out, Words(rec), s, sex, nullptr);
  text = out.Take();
}

void TkxNumToTextPr::NumToText(std::string_view langCode, std::string_view s, AnsiString& text,
                               TSex sex) {
  const Dict* dict = FindDict(langCode, true);
  Sink out;
  AppendNumber(out, dict->W, s, sex, dict->Groups());
  text = out.Take();
}

AnsiString TkxNumToTextPr::CrcToText(const TkxNumToTextRec& rec, std::string_view intName,
                                     std::string_view fracName, Extended value, int decimals) {
  FixedText num;
  PlainFixed(value, decimals, "CrcToText", num);
  return AmountWords(Words(rec), nullptr, Unit(intName), Unit(fracName), num.View());
}

AnsiString TkxNumToTextPr::CrcToText(std::string_view langCode, std::string_view intName,
                                     std::string_view fracName, Extended value, int decimals) {
  const Dict* dict = FindDict(langCode, true);
  FixedText num;
  PlainFixed(value, decimals, "CrcToText", num);
  return AmountWords(dict->W, dict->Groups(), Unit(intName), Unit(fracName), num.View());
}

AnsiString TkxNumToTextPr::CrcToText(std::string_view langCode, std::string_view crcCode,
                                     Extended value, int decimals) {
  const Dict* dict = FindDict(langCode, true);
  const auto& units = dict->Units[static_cast<std::size_t>(FindCrc(dict->Rec, crcCode, true))];
  FixedText num;
  PlainFixed(value, decimals, "CrcToText", num);
  return AmountWords(dict->W, dict->Groups(), units[0], units[1], num.View());
}

AnsiString TkxNumToTextPr::AmountToText(const TkxNumToTextRec& rec, std::string_view intName,
                                        std::string_view fracName, std::string_view amount,
                                        int decimals) {
  FixedText num;
  TextFixed(amount, decimals, num);
  return AmountWords(Words(rec), nullptr, Unit(intName), Unit(fracName), num.View());
}

// ---------------------------------------------------------------------------------------
// Free operations

AnsiString NumToText(std::string_view langCode, Extended value, TSex sex) {
  FixedText num;
  PlainFixed(value, 0, "NumToText", num);
  AnsiString text;
  TkxNumToTextPr::NumToText(langCode, num.View(), text, sex);
  return text;
}

AnsiString CrcToText(std::string_view langCode, std::string_view crcCode, Extended value,
                     int decimals) {
  return TkxNumToTextPr::CrcToText(langCode, crcCode, value, decimals);
}

AnsiString AmountToText(std::string_view langCode, std::string_view crcCode,
                        std::string_view amount, int decimals) {
  const Dict* dict = FindDict(langCode, true);
  const auto& units = dict->Units[static_cast<std::size_t>(FindCrc(dict->Rec, crcCode, true))];
  FixedText num;
  TextFixed(amount, decimals, num);
  return AmountWords(dict->W, dict->Groups(), units[0], units[1], num.View());
}

AnsiString FloatToText(Extended value, TSex sex) { return NumToText("ru", value, sex); }

AnsiString FloatToTextSymb(Extended value, int decimals, std::string_view intName,
                           std::string_view fracName) {
  return TkxNumToTextPr::CrcToText("ru", intName, fracName, value, decimals);
}

AnsiString IntToStrSymb(Int64 n, std::string_view word) {
  AnsiString s = IntToStr(n);
  const int form = TkxNumToTextPr::GetNPadej(s, true);
  s += ' ';
  AppendForm(s, word, form);
  return s;
}

AnsiString GetEnding(std::string_view entry, int k) {
  AnsiString s;
  AppendForm(s, entry, k);
  return s;
}

char ExtractSex(std::string_view entry, AnsiString& stripped) {
  std::string_view part;
  const char letter = SplitSex(entry, part);
  stripped.assign(part);
  return letter;
}

void ExtractSex(std::string_view entry, AnsiString& stripped, TSex& sex) {
  sex = SexOfLetter(ExtractSex(entry, stripped));
}

TSex SexOfLetter(char letter) {
  static constexpr auto kFemale = Cp1251(u8"Ж");
  static constexpr auto kNeuter = Cp1251(u8"С");
  letter = AnsiUpperChar(letter);
  if (letter == 'F' || letter == kFemale.Data[0]) return Female;
  if (letter == 'U' || letter == kNeuter.Data[0]) return Unmale;
  return Male;
}

}  // namespace ostrel
