// Numbers and amounts in words: the dictionary table and the conversions.
#include <ostrel/services/NumToText.h>

#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/services/ErrServ.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
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
      out += entry.substr(bar + 1,
                          next == std::string_view::npos ? entry.size() - bar - 1 : next - bar - 1);
      return;
    }
    bar = next;
  }
}

#if defined(__GNUC__) || defined(__clang__)
#define OSTREL_HOT_INLINE inline __attribute__((always_inline))
#else
#define OSTREL_HOT_INLINE inline
#endif

// A short text kept in a fixed cell, so that it is copied with one fixed-size move and
// then cut to its length.
struct alignas(32) Cell {
  char Text[31] = {};
  std::uint8_t Len = 0;

  // The pieces one after another; false when they do not fit.
  bool Set(std::initializer_list<std::string_view> pieces) {
    std::size_t len = 0;
    for (std::string_view piece : pieces) {
      if (piece.size() > sizeof Text - len) return false;
      std::copy(piece.begin(), piece.end(), Text + len);
      len += piece.size();
    }
    Len = static_cast<std::uint8_t>(len);
    return true;
  }
  std::string_view View() const { return std::string_view(Text, Len); }
  bool operator==(const Cell& other) const { return View() == other.View(); }
};

// The text being built: appends go to a buffer on the stack, and only a text longer than
// that moves to the heap. One string is made at the end.
class Sink {
 public:
  OSTREL_HOT_INLINE Sink& operator+=(std::string_view s) {
    const std::size_t n = s.size();
    if (fSpilled || fLen + n > sizeof fLocal) {
      Spill(s);
      return *this;
    }
    // Words and group texts are short: copy them with a few fixed-size moves instead of a
    // call.
    char* dst = fLocal + fLen;
    const char* src = s.data();
    if (n > 16 && n <= 32) {
      std::memcpy(dst, src, 16);
      std::memcpy(dst + n - 16, src + n - 16, 16);
    } else if (n >= 8 && n <= 16) {
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
  // A whole cell is copied while there is room for it; only its length counts.
  OSTREL_HOT_INLINE void Append(const Cell& c) {
    if (!fSpilled && fLen + sizeof c <= sizeof fLocal) {
      std::memcpy(fLocal + fLen, &c, sizeof c);
      fLen += c.Len;
    } else {
      *this += c.View();
    }
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
      Parts[k] = entry.substr(
          bar + 1, next == std::string_view::npos ? entry.size() - bar - 1 : next - bar - 1);
      bar = next;
    }
  }

  OSTREL_HOT_INLINE void AppendTo(Sink& out, int k) const {
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
  TSex Sex = Male;
  std::array<Cell, 4> Spoken{};  // [1..3]: a blank and the word in that form
  bool InCells = false;          // whether every form fits its cell

  Unit() = default;
  explicit Unit(std::string_view entry) {
    std::string_view stripped;
    Letter = SplitSex(entry, stripped);
    Word = Form(stripped);
    Sex = SexOfLetter(Letter);
    InCells = true;
    for (std::size_t k = 1; k <= 3; ++k)
      InCells = InCells && Spoken[k].Set({" ", Word.Stem, Word.Parts[k - 1]});
  }
  bool Russian() const { return Letter != 'A'; }

  // A blank and the word in form k.
  OSTREL_HOT_INLINE void AppendTo(Sink& out, int k) const {
    if (InCells && k >= 1 && k <= 3) {
      out.Append(Spoken[static_cast<std::size_t>(k)]);
      return;
    }
    out += ' ';
    Word.AppendTo(out, k);
  }
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

// The pieces numbers are made of, spoken once, in the five ways numbers use the groups of
// three digits: the lowest group in each gender (0..2), thousands (3) and the groups above
// (4). A group is its hundreds (with the joiner when more follows) and its last two digits.
// A dictionary of the table builds this on its first conversion; the tables are small
// enough to stay in the nearest cache, and ways that come out the same (in Russian the
// thousands are the feminine lowest group) share one.
struct GroupTexts {
  using Low = std::array<Cell, 100>;  // 1..99

  std::array<std::array<Cell, 2>, 10> Hundred{};  // [1..9][more follows]: with the joiner
  std::array<std::array<Cell, 4>, 5> Power{};     // [group 1..4][form 1..3]: " thousand "
  std::vector<Low> Lows;                          // the distinct ways
  std::array<const Low*, 5> Way{};                // the table of each way
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
// so these are a handful at most. Readers take no lock: every change publishes a new list
// of the dictionaries, and lists once published never change and are kept as well.
using DictList = std::vector<const Dict*>;

struct DictTable {
  std::mutex Lock;
  std::vector<std::unique_ptr<const Dict>> Dicts;
  std::vector<std::unique_ptr<const Dict>> Retired;
  std::vector<std::unique_ptr<const DictList>> Lists;
  std::atomic<const DictList*> Current{nullptr};  // null until the first dictionary comes
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
  // Whatever may fail comes first, so that the table and the published list agree.
  auto list = std::make_unique<DictList>();
  list->reserve(t.Dicts.size() + 1);
  for (const auto& d : t.Dicts) list->push_back(d.get());
  t.Lists.reserve(t.Lists.size() + 1);
  t.Retired.reserve(t.Retired.size() + 1);
  t.Dicts.reserve(t.Dicts.size() + 1);
  if (i >= 0) {
    (*list)[static_cast<std::size_t>(i)] = p.get();
    auto& slot = t.Dicts[static_cast<std::size_t>(i)];
    t.Retired.push_back(std::move(slot));
    slot = std::move(p);
  } else {
    list->push_back(p.get());
    t.Dicts.push_back(std::move(p));
  }
  t.Current.store(list.get(), std::memory_order_release);
  t.Lists.push_back(std::move(list));
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

// The dictionary for a code, filling the table with the built-in ones when it is empty.
const Dict* FindDict(std::string_view code, bool raiseIfAbsent) {
  DictTable& t = Table();
  if (const DictList* list = t.Current.load(std::memory_order_acquire)) {
    for (const Dict* d : *list)
      if (SameCode(d->Rec.Code, code)) return d;
    if (raiseIfAbsent) DIE(_SErrNumToTextUnkCode, code);
    return nullptr;
  }

  std::lock_guard<std::mutex> lock(t.Lock);
  if (t.Dicts.empty()) {
    AddLocked(t, BuiltInEnglish());
    AddLocked(t, BuiltInRussian());
  }
  const int i = IndexOfLocked(t, code);
  if (i >= 0) return t.Dicts[static_cast<std::size_t>(i)].get();
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

// The unit words of a currency of a dictionary of the table, raising when it is absent.
const std::array<Unit, 2>& FindUnits(const Dict* dict, std::string_view crcCode) {
  return dict->Units[static_cast<std::size_t>(FindCrc(dict->Rec, crcCode, true))];
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
    case 1: AppendDigitWord(out, w, d[0], sex); break;
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
    default: break;
  }
}

// Null when some piece is too long for a cell; such a dictionary is spoken word by word.
std::unique_ptr<GroupTexts> BuildGroups(const Words& w) {
  auto g = std::make_unique<GroupTexts>();
  const std::string_view joiner =
      w.Rec->HundredsDiv.empty() ? std::string_view(" ") : std::string_view(w.Rec->HundredsDiv);
  for (std::size_t d = 1; d <= 9; ++d)
    if (!g->Hundred[d][0].Set({w.Hundreds[d]}) || !g->Hundred[d][1].Set({w.Hundreds[d], joiner}))
      return nullptr;
  for (std::size_t group = 1; group <= 4; ++group) {
    const Form& power = w.PowerForms[group];
    for (std::size_t form = 1; form <= 3; ++form)
      if (!g->Power[group][form].Set({" ", power.Stem, power.Parts[form - 1], " "})) return nullptr;
  }

  g->Lows.reserve(g->Way.size());  // never moves once the pointers are taken
  for (std::size_t v = 0; v < g->Way.size(); ++v) {
    const int group = v < 3 ? 0 : static_cast<int>(v) - 2;
    const TSex sex = v < 3 ? static_cast<TSex>(v) : (v == 3 ? Female : Male);
    GroupTexts::Low low{};
    for (int n = 1; n < 100; ++n) {
      const char digits[2] = {static_cast<char>('0' + n / 10), static_cast<char>('0' + n % 10)};
      Sink one;
      AppendGroup(one, w, group, sex, std::string_view(digits, 2));
      if (!low[static_cast<std::size_t>(n)].Set({one.Take()})) return nullptr;
    }
    std::size_t same = 0;
    while (same < g->Lows.size() && g->Lows[same] != low) ++same;
    if (same == g->Lows.size()) g->Lows.push_back(low);
    g->Way[v] = &g->Lows[same];
  }
  return g;
}

// Group n (1..999) spoken in the given way, as AppendGroup speaks it.
OSTREL_HOT_INLINE void AppendCachedGroup(Sink& out, const GroupTexts& g, int variant, unsigned n) {
  const GroupTexts::Low& low = *g.Way[static_cast<std::size_t>(variant)];
  if (n < 100) {
    out.Append(low[n]);
    return;
  }
  const unsigned rest = n % 100;
  out.Append(g.Hundred[n / 100][rest != 0]);
  if (rest != 0) out.Append(low[rest]);
}

// The Russian word form after the whole number n (as GetNPadej on its digits), which only
// its last two digits decide; a table, as amounts make the choice unpredictable.
constexpr auto kRussianForms = [] {
  std::array<std::uint8_t, 100> forms{};
  for (unsigned n = 0; n < 100; ++n) {
    const unsigned last = n % 10;
    forms[n] = n / 10 == 1 ? 3 : (last == 1 ? 1 : (last >= 2 && last <= 4 ? 2 : 3));
  }
  return forms;
}();

int RussianForm(UInt64 n) { return kRussianForms[static_cast<std::size_t>(n % 100)]; }

// One group of a number with the power word after it: the group's value v (1..999) and its
// place (0 for the lowest). Thousands are feminine and the powers above masculine, whatever
// the gender of the lowest group.
OSTREL_HOT_INLINE void AppendPlace(Sink& out, const Words& w, const GroupTexts* groups, int group,
                                   TSex sex, unsigned v) {
  const int variant = group == 0 ? static_cast<int>(sex) : (group == 1 ? 3 : 4);
  if (groups && variant >= 0 && variant < 5) {
    AppendCachedGroup(out, *groups, variant, v);
  } else {
    const char digits[3] = {static_cast<char>('0' + v / 100), static_cast<char>('0' + v / 10 % 10),
                            static_cast<char>('0' + v % 10)};
    const TSex groupSex = group == 0 ? sex : (group == 1 ? Female : Male);
    AppendGroup(out, w, group, groupSex, std::string_view(digits, 3));
  }
  if (group >= 1 && group <= 4) {
    const auto form = static_cast<std::size_t>(RussianForm(v));
    if (groups) {
      out.Append(groups->Power[static_cast<std::size_t>(group)][form]);
    } else {
      out += ' ';
      w.PowerForms[static_cast<std::size_t>(group)].AppendTo(out, static_cast<int>(form));
      out += ' ';
    }
  } else if (group >= 5) {
    out += " ... ";
  }
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
    unsigned v = 0;
    for (int d = 0; d < p.Count; ++d) v = v * 10 + static_cast<unsigned>(p.Digits[d] - '0');
    AppendPlace(out, w, groups, p.Group, sex, v);
  }
}

constexpr auto kPow10 = [] {
  std::array<UInt64, 19> p{};
  UInt64 v = 1;
  for (UInt64& x : p) {
    x = v;
    v *= 10;
  }
  return p;
}();

// The same words as AppendNumber gives for the decimal text of n, "-" first when negative,
// taken from the number itself: amounts that need no decimal text are spoken without one.
void AppendWhole(Sink& out, const Words& w, UInt64 n, bool negative, TSex sex,
                 const GroupTexts* groups) {
  if (n == 0) {
    out += w.Rec->Zero;
    return;
  }
  if (negative) {
    out += w.Rec->Minus;
    out += ' ';
  }
  unsigned parts[7];  // groups of three digits, lowest first; 2^64 has seven
  int count = 0;
  for (UInt64 m = n; m != 0; m /= 1000) parts[count++] = static_cast<unsigned>(m % 1000);
  for (int group = count - 1; group >= 0; --group) {
    const unsigned v = parts[group];
    if (v != 0) AppendPlace(out, w, groups, group, sex, v);
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

  char digits[96];
  if (!isDouble) {
    // The extended value's own shortest digits, the same whatever the runtime's long double.
    int count = 0;
    const int first = Extended80ShortestDigits(a, digits, count);
    RoundDigits(value < 0, std::string_view(digits, static_cast<std::size_t>(count)),
                static_cast<long>(first) + 1, dec, out);
    return;
  }
  // Shortest digits in scientific form: "2.675e+00", "1e+40".
  char buf[96];
  const std::to_chars_result res =
      std::to_chars(buf, buf + sizeof buf, d, std::chars_format::scientific);
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

// An amount split at the point after rounding to a fixed number of decimals.
struct ExactAmount {
  bool Negative = false;  // only when some digit is not zero
  UInt64 Whole = 0;
  UInt64 Frac = 0;  // the decimals as a whole number
};

// The same result as PlainFixed, found with integer arithmetic, for the amounts that allow
// it: doubles that are whole, or whose shortest decimal has at most dec decimals. False for
// any other value (and for non-finite ones), which then go the long way.
//
// Below 2^52 / 10^dec two neighbouring doubles lie less than 10^-dec apart, so at most one
// number with dec decimals reads back as a given double; when one does, it is also the
// shortest decimal of that double, and no rounding is left to do. 4.5e15 stays below 2^52.
bool SplitExact(Extended value, std::size_t dec, ExactAmount& out) {
  const Extended a = std::fabs(value);
  const double d = static_cast<double>(a);
  if (!(static_cast<Extended>(d) == a)) return false;
  if (d < 1e15 && static_cast<double>(static_cast<UInt64>(d)) == d) {
    out.Whole = static_cast<UInt64>(d);
    out.Frac = 0;
  } else if (dec < kPow10.size() && d < 4.5e15 / static_cast<double>(kPow10[dec])) {
    const double scale = static_cast<double>(kPow10[dec]);
    const UInt64 n = static_cast<UInt64>(d * scale + 0.5);
    if (static_cast<double>(n) / scale != d) return false;
    out.Whole = n / kPow10[dec];
    out.Frac = n % kPow10[dec];
  } else {
    return false;
  }
  out.Negative = value < 0 && (out.Whole != 0 || out.Frac != 0);
  return true;
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
  AppendNumber(result, w, whole, intUnit.Sex, groups);
  intUnit.AppendTo(result, TkxNumToTextPr::GetNPadej(whole, intUnit.Russian()));
  if (!frac.empty()) {
    result += ' ';
    result += frac;
    fracUnit.AppendTo(result, TkxNumToTextPr::GetNPadej(frac, fracUnit.Russian()));
  }
  result.UpperFirst();
  return result.Take();
}

// The same text as AmountWords on the fixed text of the amount with dec decimals.
AnsiString ExactAmountWords(const Words& w, const GroupTexts* groups, const Unit& intUnit,
                            const Unit& fracUnit, const ExactAmount& x, std::size_t dec) {
  Sink result;
  AppendWhole(result, w, x.Whole, x.Negative, intUnit.Sex, groups);
  // English says the singular only after a bare "1".
  intUnit.AppendTo(
      result, intUnit.Russian() ? RussianForm(x.Whole) : (x.Whole == 1 && !x.Negative ? 1 : 2));
  if (dec > 0) {
    char digits[20];  // dec is at most 18
    UInt64 f = x.Frac;
    for (std::size_t i = dec; i > 0; --i, f /= 10) digits[i - 1] = static_cast<char>('0' + f % 10);
    result += ' ';
    for (std::size_t i = 0; i < dec; ++i) result += digits[i];
    fracUnit.AppendTo(result,
                      fracUnit.Russian() ? RussianForm(x.Frac) : (dec == 1 && x.Frac == 1 ? 1 : 2));
  }
  result.UpperFirst();
  return result.Take();
}

// An amount in a currency of a dictionary of the table.
OSTREL_HOT_INLINE AnsiString CurrencyText(std::string_view langCode, std::string_view crcCode,
                                          Extended value, int decimals) {
  const Dict* dict = FindDict(langCode, true);
  const auto& units = FindUnits(dict, crcCode);
  const std::size_t dec = ClampDecimals(decimals);
  ExactAmount x;
  if (SplitExact(value, dec, x))
    return ExactAmountWords(dict->W, dict->Groups(), units[0], units[1], x, dec);
  FixedText num;
  PlainFixed(value, decimals, "CrcToText", num);
  return AmountWords(dict->W, dict->Groups(), units[0], units[1], num.View());
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
  const std::size_t dec = ClampDecimals(decimals);
  ExactAmount x;
  if (SplitExact(value, dec, x))
    return ExactAmountWords(Words(rec), nullptr, Unit(intName), Unit(fracName), x, dec);
  FixedText num;
  PlainFixed(value, decimals, "CrcToText", num);
  return AmountWords(Words(rec), nullptr, Unit(intName), Unit(fracName), num.View());
}

AnsiString TkxNumToTextPr::CrcToText(std::string_view langCode, std::string_view intName,
                                     std::string_view fracName, Extended value, int decimals) {
  const Dict* dict = FindDict(langCode, true);
  const std::size_t dec = ClampDecimals(decimals);
  ExactAmount x;
  if (SplitExact(value, dec, x))
    return ExactAmountWords(dict->W, dict->Groups(), Unit(intName), Unit(fracName), x, dec);
  FixedText num;
  PlainFixed(value, decimals, "CrcToText", num);
  return AmountWords(dict->W, dict->Groups(), Unit(intName), Unit(fracName), num.View());
}

AnsiString TkxNumToTextPr::CrcToText(std::string_view langCode, std::string_view crcCode,
                                     Extended value, int decimals) {
  return CurrencyText(langCode, crcCode, value, decimals);
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
  ExactAmount x;
  if (SplitExact(value, 0, x)) {
    const Dict* dict = FindDict(langCode, true);
    Sink out;
    AppendWhole(out, dict->W, x.Whole, x.Negative, sex, dict->Groups());
    return out.Take();
  }
  FixedText num;
  PlainFixed(value, 0, "NumToText", num);
  AnsiString text;
  TkxNumToTextPr::NumToText(langCode, num.View(), text, sex);
  return text;
}

AnsiString CrcToText(std::string_view langCode, std::string_view crcCode, Extended value,
                     int decimals) {
  return CurrencyText(langCode, crcCode, value, decimals);
}

AnsiString AmountToText(std::string_view langCode, std::string_view crcCode,
                        std::string_view amount, int decimals) {
  const Dict* dict = FindDict(langCode, true);
  const auto& units = FindUnits(dict, crcCode);
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
