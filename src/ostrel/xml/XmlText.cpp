// XML text: entity coding, value conversions, the reader, the writer, file loads and saves.
#include <ostrel/core/ModuleLinks.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Files.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/SafeFile.h>
#include <ostrel/rtl/detail/Common.h>
#include <ostrel/services/ErrServ.h>
#include <ostrel/xml/Xmlutils.h>
#include <ostrel/xml/detail/XTextBlock.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ostrel {

TXFixProc XFixProc = nullptr;

namespace {

using detail::IsBlank;

// The first c in from .. end - 1, or end. Most runs searched here are short (an attribute
// value, a tag, a few words of text), where a library call costs more than the search
// itself: the first 128 bytes are looked at inline, and only a longer run goes to memchr.
inline const char* FindByte(const char* from, const char* end, char c) {
#if defined(__SSE2__)
  if (end - from < 16) {
    while (from < end && *from != c) ++from;
    return from;
  }
  const __m128i wanted = _mm_set1_epi8(c);
  for (int step = 0; step < 8 && end - from >= 16; ++step, from += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, wanted));
    if (mask != 0) return from + std::countr_zero(static_cast<unsigned>(mask));
  }
#endif
  const void* hit = std::memchr(from, c, static_cast<std::size_t>(end - from));
  return hit ? static_cast<const char*>(hit) : end;
}

// Decodes the entity at p ("&" first) when it is a whole &lt; &gt; &amp; &quot; or
// &#digits; before end, writing its character to out: the bytes taken, or 0 for anything else
// (which DecodeTo then takes, with its rules for the unusual forms).
inline std::size_t DecodeOne(const char* p, const char* end, char* out) {
  const std::ptrdiff_t n = end - p;
  if (n < 3) return 0;
  switch (p[1]) {
    case 'l':
    case 'g':
      if (n < 4 || p[2] != 't' || p[3] != ';') return 0;
      *out = p[1] == 'l' ? '<' : '>';
      return 4;
    case 'a':
      if (n < 5 || p[2] != 'm' || p[3] != 'p' || p[4] != ';') return 0;
      *out = '&';
      return 5;
    case 'q':
      if (n < 6 || p[2] != 'u' || p[3] != 'o' || p[4] != 't' || p[5] != ';') return 0;
      *out = '"';
      return 6;
    case '#': {
      unsigned code = 0;
      for (std::ptrdiff_t j = 2; j < n && j < 12; ++j) {
        if (p[j] == ';') {
          *out = static_cast<char>(code);
          return static_cast<std::size_t>(j + 1);
        }
        if (p[j] < '0' || p[j] > '9') return 0;
        code = (code * 10 + static_cast<unsigned>(p[j] - '0')) & 0xFF;
      }
      return 0;
    }
    default: return 0;
  }
}

// Copies from .. to - 1 to out. Runs between entities are a few words: they are moved
// sixteen bytes at a time, and the last piece may take bytes up to limit along (out has room
// for as many bytes as from .. limit), which whatever comes next overwrites or cuts off.
inline void CopyRun(char* out, const char* from, const char* to, const char* limit) {
#if defined(__SSE2__)
  for (; to - from >= 16; from += 16, out += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
  if (from == to) return;
  if (limit - from >= 16) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
    return;
  }
#else
  (void)limit;
#endif
  std::memcpy(out, from, static_cast<std::size_t>(to - from));
}

std::string_view TrimView(std::string_view s) {
  std::size_t b = 0, e = s.size();
  while (b < e && IsBlank(s[b])) ++b;
  while (e > b && IsBlank(s[e - 1])) --e;
  return s.substr(b, e - b);
}

// The first byte at or after from that can end a run inside a tag, or end: in a name a
// blank (codes up to 32) as well as '"', '<' and '>'; in attribute text only the last three
// (blanks there are part of the text). Runs are short (a name, an attribute's name): sixteen
// bytes are looked at together, so a run costs one test instead of one per byte.
template <bool Blanks>
inline const char* FindTagStop(const char* from, const char* end) {
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"'), lt = _mm_set1_epi8('<'), gt = _mm_set1_epi8('>');
  for (; end - from >= 16; from += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    __m128i hit = _mm_or_si128(_mm_cmpeq_epi8(b, quote),
                               _mm_or_si128(_mm_cmpeq_epi8(b, lt), _mm_cmpeq_epi8(b, gt)));
    if constexpr (Blanks)
      hit = _mm_or_si128(hit, _mm_cmpeq_epi8(_mm_min_epu8(b, _mm_set1_epi8(32)), b));
    const int bits = _mm_movemask_epi8(hit);
    if (bits != 0) return from + std::countr_zero(static_cast<unsigned>(bits));
  }
#endif
  for (; from < end; ++from) {
    const char c = *from;
    if (c == '"' || c == '<' || c == '>' || (Blanks && IsBlank(c))) break;
  }
  return from;
}

// Whether from .. end - 1 holds an even number of '"' and no '<'. The bytes up to limit may
// be read (and are not counted), so that the last piece is looked at sixteen at a time too.
inline bool QuotesPairedNoLt(const char* from, const char* end,
                             [[maybe_unused]] const char* limit) {
  // Only the count's parity matters: the quote masks are folded together with exclusive or
  // (a population count is a library call on the baseline processor).
  unsigned quotes = 0;
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"'), lt = _mm_set1_epi8('<');
  for (; from < end && limit - from >= 16; from += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    unsigned in = 0xFFFF;
    if (end - from < 16) in = (1u << (end - from)) - 1;
    if ((static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(b, lt))) & in) != 0) return false;
    quotes ^= static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(b, quote))) & in;
  }
  quotes ^= quotes >> 8;
  quotes ^= quotes >> 4;
  quotes ^= quotes >> 2;
  quotes ^= quotes >> 1;
#endif
  for (; from < end; ++from) {
    if (*from == '<') return false;
    quotes ^= *from == '"';
  }
  return (quotes & 1) == 0;
}

// Which bytes Encode must replace: 1 in element text, 2 in attribute values (strict).
constexpr std::array<unsigned char, 256> kEncodeClass = [] {
  std::array<unsigned char, 256> t{};
  for (int c = 0; c < 32; ++c) t[c] = (c == 10 || c == 13) ? 2 : 3;
  t['"'] = t['&'] = t['<'] = t['>'] = 3;
  return t;
}();

// The first byte at or after from that Encode must replace (class bit mask), or end. Text
// is mostly plain: it is looked at sixteen bytes at a time.
inline const char* FindEncodable(const char* from, const char* end, unsigned char mask) {
#if defined(__SSE2__)
  const __m128i quote = _mm_set1_epi8('"'), amp = _mm_set1_epi8('&'), lt = _mm_set1_epi8('<'),
                gt = _mm_set1_epi8('>'), below = _mm_set1_epi8(31), cr = _mm_set1_epi8('\r'),
                lf = _mm_set1_epi8('\n');
  const bool strict = (mask & 1) == 0;
  for (; end - from >= 16; from += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(b, below), b);  // codes 0 to 31
    if (!strict)
      control =
          _mm_andnot_si128(_mm_or_si128(_mm_cmpeq_epi8(b, cr), _mm_cmpeq_epi8(b, lf)), control);
    const __m128i hit =
        _mm_or_si128(_mm_or_si128(control, _mm_cmpeq_epi8(b, quote)),
                     _mm_or_si128(_mm_cmpeq_epi8(b, amp),
                                  _mm_or_si128(_mm_cmpeq_epi8(b, lt), _mm_cmpeq_epi8(b, gt))));
    const int bits = _mm_movemask_epi8(hit);
    if (bits != 0) return from + std::countr_zero(static_cast<unsigned>(bits));
  }
#endif
  while (from < end && !(kEncodeClass[static_cast<unsigned char>(*from)] & mask)) ++from;
  return from;
}

void EncodeTo(AnsiString& out, std::string_view s, bool strict) {
  const unsigned char mask = strict ? 2 : 1;
  const char* const begin = s.data();
  const char* const end = begin + s.size();
  const char* run = begin;
  for (const char* p = begin; (p = FindEncodable(p, end, mask)) != end; run = ++p) {
    out.append(run, p);
    const unsigned char c = static_cast<unsigned char>(*p);
    switch (c) {
      case '"': out += "&quot;"; break;
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      default:
        out += "&#";
        if (c >= 10) out += static_cast<char>('0' + c / 10);
        out += static_cast<char>('0' + c % 10);
        out += ';';
    }
  }
  out.append(run, end);
}

// The settings of XML numbers and dates: "." decimals, ISO dates.
const TFormatSettings& XMLSettings() {
  static const TFormatSettings settings = [] {
    TFormatSettings s = TFormatSettings::Invariant();
    s.DateSeparator = '-';
    s.TimeSeparator = ':';
    s.DecimalSeparator = '.';
    s.ShortDateFormat = "yyyy-mm-dd";
    return s;
  }();
  return settings;
}

void AppendDigits(AnsiString& out, unsigned value, int width) {
  char digits[10];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  for (int i = n; i < width; ++i) out += '0';
  while (n > 0) out += digits[--n];
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Entity coding

AnsiString TkxXMLPr::Encode(std::string_view s, bool strict) {
  AnsiString out;
  out.reserve(s.size());
  EncodeTo(out, s, strict);
  return out;
}

namespace {

// Decodes s and appends the result to out (the reader decodes straight into its text).
void DecodeTo(AnsiString& out, std::string_view s) {
  std::size_t i = s.find('&');
  if (i == std::string_view::npos) i = s.size();
  out.append(s.data(), i);
  while (i < s.size()) {
    if (s[i] != '&') {
      std::size_t next = s.find('&', i);
      if (next == std::string_view::npos) next = s.size();
      out.append(s.data() + i, next - i);
      i = next;
      continue;
    }
    // The usual forms whole; a name that starts like a known one but is not one (&apos;) is
    // kept as it stands.
    char c;
    if (const std::size_t taken = DecodeOne(s.data() + i, s.data() + s.size(), &c)) {
      out += c;
      i += taken;
      continue;
    }
    const char letter = i + 1 < s.size() ? s[i + 1] : '\0';
    switch (letter) {
      case 'l':
      case 'g':
      case 'q':
      case 'a': out += s[i++]; break;
      case '#': {
        // The digits up to ";" (or the end), kept to their low 8 bits as they are read, so
        // that any length of number is safe; a sign is taken as a number reader takes it.
        std::size_t j = i + 2;
        const std::size_t semi = s.find(';', j);
        const std::size_t end = semi == std::string_view::npos ? s.size() : semi;
        bool negative = false;
        if (j < end && (s[j] == '-' || s[j] == '+')) negative = s[j++] == '-';
        unsigned code = 0;
        for (; j < end && s[j] >= '0' && s[j] <= '9'; ++j) code = (code * 10 + (s[j] - '0')) & 0xFF;
        if (negative) code = (0x100 - code) & 0xFF;
        out += static_cast<char>(code);
        i = semi == std::string_view::npos ? s.size() : semi + 1;
        break;
      }
      default: throw EConvertError(Format("XEncode: error encode character (%s)", s.substr(i, 2)));
    }
  }
}

}  // namespace

AnsiString TkxXMLPr::Decode(std::string_view s) {
  AnsiString out;
  DecodeTo(out, s);
  return out;
}

// ---------------------------------------------------------------------------------------
// Values

AnsiString DT2XML(TDateTime value) {
  Word year = 0, month = 0, day = 0, hour = 0, min = 0, sec = 0, msec = 0;
  // A moment outside the calendar would be written as another date or as one that does not
  // read back: refused instead.
  DecodeDateTimeStrict(value, year, month, day, hour, min, sec, msec);
  AnsiString s;
  AppendDigits(s, year, 4);
  s += '-';
  AppendDigits(s, month, 2);
  s += '-';
  AppendDigits(s, day, 2);
  if (value - std::trunc(value) != 0) {
    s += 'T';
    AppendDigits(s, hour, 2);
    s += ':';
    AppendDigits(s, min, 2);
    s += ':';
    AppendDigits(s, sec, 2);
    s += '.';
    AppendDigits(s, msec, 3);
  }
  return s;
}

AnsiString FLOAT2XML(Extended value) { return FloatToStr(value, XMLSettings()); }

AnsiString BOOL2XML(bool value) { return value ? "true" : "false"; }

TDateTime XML2DT(const Variant& value) {
  if (VarIsNull(value)) return 0;
  AnsiString text = VarToStr(value);
  const std::size_t t = text.find('T');
  if (t != AnsiString::npos) text[t] = ' ';
  TDateTime result = 0;
  bool ok = false;
  try {
    ok = TryStrToDateTime(text, result, XMLSettings());
  } catch (const Exception&) {
  }
  if (!ok) DIE("XML2DT Error");
  return result;
}

Extended XML2FLOAT(const Variant& value) {
  if (VarIsNull(value)) return 0;
  return StrToFloat(VarToStr(value), XMLSettings());
}

bool XML2BOOL(const Variant& value) { return SameText(VarToStr(value), "true"); }

AnsiString Var2XML(const Variant& value, bool strict) {
  switch (value.VarType()) {
    case varSmallint:
    case varInteger:
    case varShortInt:
    case varByte:
    case varWord: return IntToStr(VarToInt64(value));
    case varSingle:
    case varDouble:
    case varCurrency: return FLOAT2XML(VarToExtended(value));
    case varDate: return DT2XML(VarToDateTime(value));
    case varBoolean: return BOOL2XML(VarToBool(value));
    case varString: return TkxXMLPr::Encode(value.StrRef(), strict);
    case varOleStr:
    case varUString:
    case varVariant | varByRef: return TkxXMLPr::Encode(VarToStr(value), strict);
    default: DIE("Var2XML: invalid variant type conversion");
  }
}

Variant XMLCast(const Variant& value, TVarType varType) {
  if (VarIsNull(value)) return value;
  switch (varType) {
    case varSmallint:
    case varInteger:
    case varByte: return Variant(StrToInt(VarToStr(value)));
    case varSingle:
    case varDouble:
    case varCurrency: return Variant(XML2FLOAT(value));
    case varDate: return Variant::FromDate(XML2DT(value));
    case varBoolean: return Variant(XML2BOOL(value));
    default: return value;
  }
}

// ---------------------------------------------------------------------------------------
// TXReader

TXReader::TXReader(TStream& stream) : fSource(stream), fStart(stream.GetPosition()) {
  fWindowPos = fStart;
  if (auto* memory = dynamic_cast<TMemoryStream*>(&stream)) {
    // The bytes are in memory already: read where they are.
    const char* data = static_cast<const char*>(memory->Memory());
    const Int64 size = memory->GetSize();
    fInPlace = fExhausted = true;
    fWindow = fCur = data + std::min(fStart, size);
    fEnd = data + size;
  } else {
    fOwned.reset(new char[kBufSize]);
    fWindow = fCur = fEnd = fOwned.get();
  }
}

TXReader::~TXReader() {
  TXItem::GiveBlocks(fBlocks.data(), static_cast<int>(fBlocks.size()));
  detail::TXTextBlock::Release(fBlock);
  try {
    fSource.SetPosition(Position());
  } catch (const Exception&) {
  }
}

inline char* TXReader::BlockRoom(std::size_t size) {
  if (!fBlock || fBlock->capacity - fBlock->used < size) {
    constexpr std::size_t kLargest = 64 * 1024;
    detail::TXTextBlock* block =
        detail::TXTextBlock::Make(std::max(fBlockSize - sizeof(detail::TXTextBlock), size));
    detail::TXTextBlock::Release(fBlock);
    fBlock = block;
    fBlockSize = std::min(2 * fBlockSize, kLargest);
  }
  return fBlock->Data() + fBlock->used;
}

inline void TXReader::StoreAttrText(TXItem* item, std::string_view text) {
  // An item read again (the top one) keeps its value.
  if (item->fValueSize != 0) item->MakeValue();
  if (text.empty()) {
    if (item->fText) item->ReleaseTexts();
    return;
  }
  const Cardinal size = detail::TextSize(text.size());
  char* const at = BlockRoom(text.size());
  std::memcpy(at, text.data(), text.size());
  fBlock->used += text.size();
  item->SetBlockTexts(fBlock, at, size, 0);
}

void TXReader::StoreText(std::string_view text, bool cdata, bool endTag) {
  text = TrimView(text);
  if (text.empty()) return;
  TXItem* target = fOpen.back().item;
  if (fOpen.back().count > 0 || !endTag) {
    target = NewChild();
    target->set_Name("#text");
  }
  if (detail::IsCDATAWrapped(text)) {
    // Unwrapped as set_Value and set_CDATA unwrap it.
    if (cdata)
      target->set_CDATA(text);
    else
      target->set_Value(Variant(text));
    return;
  }
  // The value's text follows the attribute text in the block: where that is the last thing
  // stored (a leaf's value comes right after its start tag), only the value is copied.
  const std::string_view attrText = target->get_AttrText();
  const Cardinal attrSize = detail::TextSize(attrText.size());
  const Cardinal valueSize = detail::TextSize(text.size());
  const bool follows = target->fBlock && target->fBlock == fBlock &&
                       attrText.data() + attrText.size() == fBlock->Data() + fBlock->used &&
                       fBlock->capacity - fBlock->used >= text.size();
  char* at;
  if (follows) {
    at = const_cast<char*>(attrText.data());
  } else {
    at = BlockRoom(attrText.size() + text.size());
    if (!attrText.empty()) std::memcpy(at, attrText.data(), attrText.size());
    fBlock->used += attrText.size();
  }
  std::memcpy(fBlock->Data() + fBlock->used, text.data(), text.size());
  fBlock->used += text.size();
  target->SetBlockTexts(fBlock, at, attrSize, valueSize);
  target->fValue = Variant::Null();
  target->fIsCDATA = cdata;
}

bool TXReader::Refill() {
  if (fExhausted) return fCur < fEnd;
  const std::size_t keep = static_cast<std::size_t>(fEnd - fCur);
  char* const window = fOwned.get();
  fWindowPos += fCur - fWindow;
  std::memmove(window, fCur, keep);
  fWindow = fCur = window;
  fEnd = window + keep;
  // The window is filled however few bytes each read gives, so that an error of the stream
  // within its reach is met now, as a read of the whole would meet it.
  while (fEnd < window + kBufSize) {
    char* const free = window + (fEnd - window);
    const Integer got = fSource.Read(free, static_cast<Integer>(window + kBufSize - free));
    if (got <= 0) {
      fExhausted = true;
      break;
    }
    fEnd += got;
  }
  return fCur < fEnd;
}

bool TXReader::Match(std::string_view text, bool advance) {
  // Look-ahead is a few bytes (the longest is "<![CDATA["), far below the window's size.
  while (static_cast<std::size_t>(fEnd - fCur) < text.size() && !fExhausted) Refill();
  if (static_cast<std::size_t>(fEnd - fCur) < text.size() ||
      !SameText(std::string_view(fCur, text.size()), text))
    return false;
  if (advance) fCur += text.size();
  return true;
}

void TXReader::SkipSpaces() {
  while (!AtEnd()) {
    const std::string_view v = Buffered();
    std::size_t i = 0;
    while (i < v.size() && IsBlank(v[i])) ++i;
    MovePos(i);
    if (i < v.size()) return;
  }
}

inline bool TXReader::MayBeBang() {
  // Whether "<!" may come next: a quick look at the buffered bytes, so that the common case
  // (a tag) does not go through MatchStr.
  const std::string_view v = Buffered();
  return v.size() < 2 || (v[0] == '<' && v[1] == '!');
}

bool TXReader::SkipComment() {
  if (!MayBeBang() || !Match("<!--", true)) return false;
  while (!AtEnd()) {
    const std::string_view v = Buffered();
    const std::size_t dash = v.find('-');
    if (dash == std::string_view::npos) {
      MovePos(v.size());
      continue;
    }
    MovePos(dash);
    if (Match("-->", true)) break;
    MovePos(1);
  }
  return true;
}

void TXReader::ReadTag(AnsiString& name, AnsiString& attrText, bool& selfClosing, bool& endTag) {
  Tag tag;
  ReadTagView(tag);
  name.assign(tag.name.data(), tag.name.size());
  attrText.assign(tag.attrText.data(), tag.attrText.size());
  selfClosing = tag.selfClosing;
  endTag = tag.endTag;
}

void TXReader::ReadTagView(Tag& tag) {
  tag = Tag();
  // Blanks and comments before the tag; the common case, a tag right here, without calls.
  if (!(fEnd - fCur >= 2 && fCur[0] == '<' && fCur[1] != '!')) {
    do SkipSpaces();
    while (SkipComment());
  }
  if (AtEnd()) return;
  fTagPos = Position();
  if (Buffered()[0] != '<') RaiseException("< expected");
  MovePos(1);
  // A tag within the window is taken where it lies; one that goes on past the window's end
  // is gathered into fTagName and fTagAttr (spilled).
  bool spilled = false;
  fTagName.clear();
  fTagAttr.clear();
  // A quote in the name opens a quoted run in which brackets do not count, but a blank still
  // ends the name; in the attribute text a quoted value is taken whole.
  bool inQuotes = false, inName = true;
  for (;;) {
    if (AtEnd()) RaiseException({});  // the input ends inside the tag
    const std::string_view v = Buffered();
    const char* run = v.data();
    const char* p = run;
    const char* const end = run + v.size();
    while (p < end) {
      if (inName) {
        p = FindTagStop<true>(p, end);
        if (p == end) break;
        if (IsBlank(*p)) {
          if (spilled)
            fTagName.append(run, p);
          else
            tag.name = std::string_view(run, static_cast<std::size_t>(p - run));
          inName = false;
          run = ++p;
        } else if (*p == '"') {
          inQuotes = !inQuotes;
          ++p;
        } else if (inQuotes) {
          ++p;
        } else {
          break;
        }
        continue;
      }
      // Blanks before the attribute text are dropped.
      if (run == p && (!spilled || fTagAttr.empty())) {
        while (p < end && IsBlank(*p)) ++p;
        run = p;
        if (p == end) break;
      }
      if (inQuotes) {
        p = FindByte(p, end, '"');
        if (p == end) break;
        inQuotes = false;
        ++p;
        continue;
      }
      // Most tags end at the next '>' with the quotes before it paired and no '<' among them:
      // one scan finds it and one checks the bytes up to it, instead of a scan per quote.
      if (const char* gt = FindByte(p, end, '>'); gt != end && QuotesPairedNoLt(p, gt, end)) {
        p = gt;
        break;
      }
      p = FindTagStop<false>(p, end);
      if (p == end || *p != '"') break;
      inQuotes = true;
      ++p;
    }
    const std::string_view piece(run, static_cast<std::size_t>(p - run));
    if (p == end && !spilled) {
      // The window moves on: what was taken where it lay is copied first.
      fTagName.assign(tag.name.data(), tag.name.size());
      spilled = true;
    }
    if (spilled)
      (inName ? fTagName : fTagAttr).append(piece);
    else
      (inName ? tag.name : tag.attrText) = piece;
    MovePos(static_cast<std::size_t>(p - v.data()));
    if (p == end) continue;
    if (*p == '<') RaiseException({});
    MovePos(1);
    break;
  }
  if (spilled) {
    tag.name = fTagName;
    tag.attrText = fTagAttr;
  }
  if (!tag.name.empty() && tag.name[0] == '/') {
    tag.endTag = true;
  } else if (!tag.name.empty() && tag.name.back() == '/') {
    tag.name.remove_suffix(1);
    tag.selfClosing = true;
  } else if (!tag.attrText.empty() && tag.attrText.back() == '/') {
    tag.attrText.remove_suffix(1);
    tag.selfClosing = true;
  }
}

void TXReader::ReadText(AnsiString& text, bool& cdata, bool dropLeading) {
  text.clear();
  cdata = false;
  // Where the next '<' is, once found: text with many unusual entities is taken a piece at a
  // time, and the bytes up to that '<' are not searched again for each piece.
  Int64 ltAt = -1;
  while (!AtEnd()) {
    const std::string_view v = Buffered();
    std::size_t from = 0;
    if (dropLeading && text.empty())
      while (from < v.size() && IsBlank(v[from])) ++from;
    // Plain text and the usual entities up to the next '<' are decoded straight into room
    // made in the text at once (decoding never lengthens it); the rest is cut off after.
    const char* const base = v.data();
    const char* const end = base + v.size();
    const char* p = base + from;
    const Int64 at = Position();
    const char* lt;
    if (ltAt >= at && ltAt - at < static_cast<Int64>(v.size())) {
      lt = base + (ltAt - at);
    } else {
      lt = FindByte(p, end, '<');
      ltAt = lt != end ? at + (lt - base) : -1;
    }
    // The room is made for a piece of at most kPiece bytes at a time, so that what is made
    // and cut off again stays in proportion to what is decoded.
    constexpr std::ptrdiff_t kPiece = 1024;
    const char* const stop = lt - p > kPiece ? p + kPiece : lt;
    if (p != stop) {
      const std::size_t old = text.size();
      text.resize(old + static_cast<std::size_t>(stop - p));
      char* const first = text.data() + old;
      char* out = first;
      for (;;) {
        const char* const amp = FindByte(p, stop, '&');
        CopyRun(out, p, amp, stop);
        out += amp - p;
        p = amp;
        if (p == stop) break;
        const std::size_t taken = DecodeOne(p, stop, out);
        if (taken == 0) break;
        p += taken;
        ++out;
      }
      text.resize(old + static_cast<std::size_t>(out - first));
    }
    MovePos(static_cast<std::size_t>(p - base));
    if (p == end) continue;
    if (p != lt && *p != '&') continue;     // the piece's end: the next piece
    if (*p == '<' && !MayBeBang()) return;  // a tag
    if (*p == '&') {
      const std::string_view w = Buffered();
      // Up to and with the next ";", or to the end of the input; decoded in place when the
      // buffer holds all of it.
      const std::size_t semi =
          static_cast<std::size_t>(FindByte(w.data(), w.data() + w.size(), ';') - w.data());
      if (semi < w.size()) {
        DecodeTo(text, w.substr(0, semi + 1));
        MovePos(semi + 1);
        continue;
      }
      fEntity.clear();
      while (!AtEnd()) {
        const std::string_view w = Buffered();
        const std::size_t semi = w.find(';');
        const std::size_t take = semi == std::string_view::npos ? w.size() : semi + 1;
        fEntity.append(w.data(), take);
        MovePos(take);
        if (semi != std::string_view::npos) break;
      }
      DecodeTo(text, fEntity);
    } else if (Match("<!--", false)) {
      SkipComment();
    } else if (Match("<![CDATA[", true)) {
      cdata = true;
      while (!AtEnd()) {
        const std::string_view w = Buffered();
        const std::size_t bracket = w.find(']');
        if (bracket == std::string_view::npos) {
          text.append(w);
          MovePos(w.size());
          continue;
        }
        text.append(w.data(), bracket);
        MovePos(bracket);
        if (Match("]]>", true)) break;
        text += ']';
        MovePos(1);
      }
    } else if (Match("<!", false)) {
      // Neither a comment nor CDATA (a DOCTYPE, say): not part of the dialect.
      RaiseException({});
    } else {
      return;  // a tag
    }
  }
}

void TXReader::ReadValue(Variant& value, bool& cdata) {
  ReadText(fText, cdata, false);
  value = fText.empty() ? Variant::Null() : Variant(fText);
}

inline TXItem* TXReader::NewChild() {
  Open& open = fOpen.back();
  std::vector<TXItem*>& children = fChildren[fOpen.size() - 1];
  if (fBlocks.empty()) {
    // Item memory is taken from the pool some at a time, more each time, up to 64.
    fBlocks.resize(fBlockBatch);
    try {
      TXItem::TakeBlocks(fBlocks.data(), static_cast<int>(fBlocks.size()));
    } catch (...) {
      fBlocks.clear();
      throw;
    }
    fBlockBatch = std::min<std::size_t>(2 * fBlockBatch, 64);
  }
  children.push_back(nullptr);  // the place first, so that a failure loses no item
  TXItem* child = ::new (fBlocks.back()) TXItem;
  fBlocks.pop_back();
  child->fParent = open.item;
  children.back() = child;
  ++open.count;
  return child;
}

void TXReader::CloseOpen(bool raise) {
  std::vector<TXItem*>& children = fChildren[fOpen.size() - 1];
  TXItem* const item = fOpen.back().item;
  if (item->fItems.empty()) {
    // One list of the exact size, not one grown child by child; short of memory for it, the
    // gathered list itself serves (a swap allocates nothing).
    try {
      item->fItems.assign(children.begin(), children.end());
      children.clear();
    } catch (const std::bad_alloc&) {
      item->fItems.swap(children);
    }
  } else {
    try {
      item->fItems.insert(item->fItems.end(), children.begin(), children.end());
      children.clear();
    } catch (const std::bad_alloc&) {
      // Children that found no place are freed, and the failure goes to the caller; while an
      // error is already on its way out (raise false) that error is the one reported.
      for (TXItem* child : children) delete child;
      children.clear();
      fOpen.pop_back();
      if (raise) throw;
      return;
    }
  }
  fOpen.pop_back();
}

void TXReader::ReadItem(TXItem* item) {
  // The open elements are a stack (fOpen), so that nesting of any depth is read without
  // recursion. The children of each are gathered apart and put in its list when it ends;
  // whatever ends the read closes the elements still open, so a tree cut short by an error
  // or by the end of the input holds everything read.
  struct CloseAll {
    TXReader* reader;
    std::size_t depth;
    ~CloseAll() {
      while (reader->fOpen.size() > depth) reader->CloseOpen(false);
    }
  } closeAll{this, fOpen.size()};
  const std::size_t base = fOpen.size();
  bool cdata = false;
  for (;;) {
    const bool inside = fOpen.size() > base;
    fText.clear();
    cdata = false;
    // Leading blanks would be trimmed away, so they are not even gathered. Between tags
    // there are mostly only blanks (a line end and an indentation): skipped here at once.
    if (inside) {
      const char* p = fCur;
      while (p != fEnd && IsBlank(*p)) ++p;
      if (fEnd - p >= 2 && p[0] == '<' && p[1] != '!')
        fCur = p;
      else
        ReadText(fText, cdata, true);
    }
    Tag tag;
    do ReadTagView(tag);
    while (tag.name.size() >= 4 && tag.name.substr(0, 4) == "?xml");
    // The tag's views last until the next read.
    if (inside) StoreText(fText, cdata, tag.endTag);
    if (tag.name.empty()) {
      // The input ended inside open elements: they are closed here, where a failure can go
      // to the caller.
      while (fOpen.size() > base) CloseOpen(true);
      return;
    }
    if (tag.endTag) {
      if (!inside) RaiseAt(fTagPos, Format(_SErrXMLEndTagFound, AnsiString(tag.name)));
      const AnsiString& openName = fOpen.back().item->get_Name();
      const std::string_view closes = tag.name.substr(1);
      if (closes != openName && !AnsiSameText(closes, openName))
        RaiseAt(fTagPos, Format(_SErrXMLNoEndTag, openName));
      CloseOpen(true);
      if (fOpen.size() == base) return;
      continue;
    }
    TXItem* element = inside ? NewChild() : item;
    element->fName.assign(tag.name.data(), tag.name.size());
    StoreAttrText(element, tag.attrText);
    if (!tag.selfClosing) {
      fOpen.push_back({element, element->get_Count()});
      if (fChildren.size() < fOpen.size()) fChildren.resize(fOpen.size());
    } else if (!inside) {
      return;
    }
  }
}

void TXReader::RaiseException(std::string_view detail) { RaiseAt(Position(), detail); }

void TXReader::RaiseAt(Int64 position, std::string_view detail) {
  AnsiString message(_SErrXMLFormat);
  if (!detail.empty()) {
    message += "\r\r";
    message += detail;
  }
  // Lines and columns are counted only now, over the input again up to the place.
  Int64 line = 1, column = 1;
  bool afterCR = false;
  auto count = [&](std::string_view bytes) {
    for (const char c : bytes) {
      if (c == '\n' || c == '\r') {
        if (!(c == '\n' && afterCR)) ++line;
        column = 1;
      } else {
        ++column;
      }
      afterCR = c == '\r';
    }
  };
  if (fInPlace) {
    count(std::string_view(fWindow - (fWindowPos - fStart),
                           static_cast<std::size_t>(std::max<Int64>(position - fStart, 0))));
  } else {
    try {
      fSource.SetPosition(fStart);
      std::unique_ptr<char[]> chunk(new char[kBufSize]);
      for (Int64 at = fStart; at < position;) {
        const Integer got = fSource.Read(
            chunk.get(), static_cast<Integer>(std::min<Int64>(kBufSize, position - at)));
        if (got <= 0) break;
        count(std::string_view(chunk.get(), static_cast<std::size_t>(got)));
        at += got;
      }
    } catch (const Exception&) {
    }
  }
  throw EXMLError(message, line, column);
}

// ---------------------------------------------------------------------------------------
// TXWriter

TXWriter::TXWriter(TStream& stream) : fStream(stream) {}

void TXWriter::EndLine() {
  fBuffer += "\r\n";
  if (fBuffer.size() > 4096) FlushBuffer();
}

void TXWriter::WriteLn(std::string_view text, Integer level) {
  fBuffer.append(2 * static_cast<std::size_t>(std::max(level, 0)), ' ');
  fBuffer += text;
  EndLine();
}

void TXWriter::WriteHeader() { WriteLn(XML_HEADER_WIN1251, 0); }

void TXWriter::FlushBuffer() {
  if (fBuffer.empty()) return;
  fStream.WriteBuffer(fBuffer.data(), static_cast<Integer>(fBuffer.size()));
  fBuffer.clear();
}

void TXWriter::WriteItem(const TXItem* item) {
  struct Frame {
    const TXItem* item;
    Integer next;
  };
  std::vector<Frame> open;
  // Writes an item's first line; an item with children stays open for them.
  auto start = [&](const TXItem* x) {
    const std::size_t level = open.size();
    fBuffer.append(2 * level, ' ');
    const bool text = x->get_IsText();
    if (!text) {
      fBuffer += '<';
      fBuffer += x->get_Name();
      const std::string_view attrs = TrimView(x->get_AttrText());
      if (!attrs.empty()) {
        fBuffer += ' ';
        fBuffer += attrs;
      }
    }
    if (x->get_Count() > 0) {
      fBuffer += '>';
      EndLine();
      open.push_back({x, 0});
      return;
    }
    // A value still held as read text is written from there, without making a variant.
    static const Variant none = Variant::Null();
    const bool read = x->fValueSize != 0;
    const Variant& value = read ? none : x->get_Value();
    const bool string = read || value.VarType() == varString;
    AnsiString converted;
    std::string_view content;
    bool hasContent = false;
    if (read) {
      content = x->ValueText();
      hasContent = !TrimView(content).empty();
    } else if (!VarIsNull(value)) {
      if (string) {
        content = value.StrRef();
      } else {
        converted = VarToStr(value);
        content = converted;
      }
      hasContent = !TrimView(content).empty();
    }
    if (!hasContent) {
      fBuffer += "/>";
    } else {
      if (!text) fBuffer += '>';
      if (x->get_IsCDATA()) {
        fBuffer += "<![CDATA[";
        fBuffer += content;
        fBuffer += "]]>";
      } else if (string) {
        EncodeTo(fBuffer, content, false);
      } else {
        fBuffer += Var2XML(value, false);
      }
      if (!text) {
        fBuffer += "</";
        fBuffer += x->get_Name();
        fBuffer += '>';
      }
    }
    EndLine();
  };
  start(item);
  while (!open.empty()) {
    Frame& frame = open.back();
    if (frame.next < frame.item->get_Count()) {
      start(frame.item->get_Items(frame.next++));
      continue;
    }
    const TXItem* done = frame.item;
    open.pop_back();
    fBuffer.append(2 * open.size(), ' ');
    fBuffer += "</";
    fBuffer += done->get_Name();
    fBuffer += '>';
    EndLine();
  }
  FlushBuffer();
}

// ---------------------------------------------------------------------------------------
// Loading and saving

void LoadXData(TXItem* item, TStream& stream) {
  TXReader reader(stream);
  reader.ReadItem(item);
}

void LoadXData(TXItem* item, std::string_view fileName, bool callFix) {
  const AnsiString fullName = ExpandFileName(fileName);
  Integer traceId = 0;
  TkxSysMonitor::TraceStart("file", "load", "LoadXData:" + ExtractFileName(fileName), fullName,
                            traceId);
  struct SpanEnd {
    Integer id;
    ~SpanEnd() {
      try {
        TkxSysMonitor::TraceEnd(id, {});
      } catch (...) {
      }
    }
  } spanEnd{traceId};
  try {
    {
      TFileStream file(fileName, fmOpenRead | fmShareDenyWrite);
      LoadXData(item, file);
    }
    if (callFix && XFixProc) XFixProc(item, fileName);
  } catch (Exception& e) {
    e.SetMessage(AnsiString(_SErrXMLLoadFile) + "\r" + fullName + "\r\r" + e.Message());
    throw;
  }
}

void SaveXData(const TXItem* item, bool withHeader, TStream& stream) {
  TXWriter writer(stream);
  if (withHeader) writer.WriteHeader();
  writer.WriteItem(item);
}

AnsiString XDataText(const TXItem* item, bool withHeader) {
  TMemoryStream stream;
  SaveXData(item, withHeader, stream);
  return AnsiString(static_cast<const char*>(stream.Memory()),
                    static_cast<std::size_t>(stream.GetSize()));
}

void SaveXData(const TXItem* item, bool withHeader, std::string_view fileName) {
  TSafeFileWriter file(fileName);
  SaveXData(item, withHeader, file);
  file.Commit();
}

}  // namespace ostrel
