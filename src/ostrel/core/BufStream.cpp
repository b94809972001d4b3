// The buffered stream.
#include <ostrel/core/BufStream.h>

#include <ostrel/core/ModuleLinks.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/detail/Common.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxBufStream)

namespace {

constexpr Int64 kMaxInt64 = std::numeric_limits<Int64>::max();
constexpr Int64 kMinInt64 = std::numeric_limits<Int64>::min();

Int64 SatAdd(Int64 a, Int64 b) {
  if (b > 0 && a > kMaxInt64 - b) return kMaxInt64;
  if (b < 0 && a < kMinInt64 - b) return kMinInt64;
  return a + b;
}

Int64 SatSub(Int64 a, Int64 b) {
  if (b < 0 && a > kMaxInt64 + b) return kMaxInt64;
  if (b > 0 && a < kMinInt64 + b) return kMinInt64;
  return a - b;
}

char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

// The first LF or CR in from .. end - 1, or end: one pass over the bytes, sixteen at a time
// where the processor allows.
const char* FindLineEnd(const char* from, const char* end) {
#if defined(__SSE2__)
  const __m128i lf = _mm_set1_epi8('\n');
  const __m128i cr = _mm_set1_epi8('\r');
  auto hits = [&](const char* at) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    return _mm_or_si128(_mm_cmpeq_epi8(v, lf), _mm_cmpeq_epi8(v, cr));
  };
  // Sixty-four bytes per test while no line end is near, then sixteen.
  for (; end - from >= 64; from += 64) {
    const __m128i any = _mm_or_si128(_mm_or_si128(hits(from), hits(from + 16)),
                                     _mm_or_si128(hits(from + 32), hits(from + 48)));
    if (_mm_movemask_epi8(any) != 0) break;
  }
  for (; end - from >= 16; from += 16) {
    const int mask = _mm_movemask_epi8(hits(from));
    if (mask != 0) return from + std::countr_zero(static_cast<unsigned>(mask));
  }
#endif
  for (; from < end; ++from)
    if (*from == '\n' || *from == '\r') return from;
  return end;
}

constexpr std::string_view kTooLong = "TkxBufStream.LoadBuf: Count >= BufSize";

// The bytes a destructor could not write: to the system monitor when there is one, else to
// standard error, so that the loss is never silent.
void ReportLostWrite(std::string_view message) noexcept {
  try {
    if (TkxSysMonitor::Active()) {
      Integer traceId = 0;
      TkxSysMonitor::TraceStart("TkxBufStream", "Destroy", message, {}, traceId);
      TkxSysMonitor::TraceEnd(traceId, message);
      return;
    }
    const std::string text = "TkxBufStream: " + AnsiToUtf8(message) + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
  } catch (...) {
  }
}

}  // namespace

TkxBufStream::TkxBufStream(TStream* stream, bool ownsStream, Integer bufSize)
    : fStream(stream),
      fOwnsStream(ownsStream),
      fBuffer(nullptr, BufferDelete{true}),
      fBufSize(bufSize) {
  Init(stream, ownsStream, nullptr, bufSize);
}

TkxBufStream::TkxBufStream(TStream* stream, bool ownsStream, char* buffer, Integer bufSize)
    : fStream(stream),
      fOwnsStream(ownsStream),
      fBuffer(nullptr, BufferDelete{false}),
      fBufSize(bufSize) {
  Init(stream, ownsStream, buffer, bufSize);
}

void TkxBufStream::Init(TStream* stream, bool ownsStream, char* buffer, Integer bufSize) {
  if (!stream) throw Exception("TkxBufStream.Create: Stream is nil");
  try {
    if (bufSize < 1)
      throw Exception(Format("TkxBufStream.Create: invalid buffer size (%d)", bufSize));
    if (buffer) {
      fBuffer.reset(buffer);
    } else {
      // One byte more than the buffer size, so that NextChar may look one place past the
      // valid bytes without leaving the block.
      fBuffer.reset(static_cast<char*>(
          ::operator new[](static_cast<std::size_t>(bufSize) + 1, kBufferAlign)));
    }
    fSize = std::max<Int64>(stream->GetSize(), 0);
    SetBase(std::clamp<Int64>(stream->Seek(0, soCurrent), 0, fSize));
  } catch (...) {
    if (ownsStream) delete stream;
    throw;
  }
}

TkxBufStream::~TkxBufStream() {
  // A destructor cannot raise; a flush that fails here is reported instead (see Close).
  try {
    FlushBuffer();
  } catch (const Exception& e) {
    ReportLostWrite(e.Message());
  } catch (const std::exception& e) {
    ReportLostWrite(e.what());
  }
  if (fOwnsStream) delete fStream;
}

void TkxBufStream::Close() {
  if (!fStream) return;
  FlushBuffer();
  if (fOwnsStream) delete fStream;
  fStream = nullptr;
  fOwnsStream = false;
  fSize = 0;
  SetBase(0);
  fOffset = 0;
  fValid = 0;
}

TStream& TkxBufStream::Target() const {
  if (!fStream) throw Exception("TkxBufStream: stream closed");
  return *fStream;
}

void TkxBufStream::CheckAhead(std::size_t count) const {
  if (count >= static_cast<std::size_t>(fBufSize)) throw Exception(kTooLong);
}

// ---- Buffer management -----------------------------------------------------------------

void TkxBufStream::FlushBuffer() {
  if (!fDirty) return;
  Int64 at = -1;
  try {
    at = Target().Seek(fBase, soBeginning);
  } catch (const Exception&) {
  }
  if (at != fBase) throw Exception(_SErrBufStmFlushSeek);
  Integer written = -1;
  try {
    written = fStream->Write(fBuffer.get(), fValid);
  } catch (const Exception&) {
  }
  if (written < fValid) throw Exception(_SErrBufStmWrite);
  fDirty = false;
}

void TkxBufStream::InitBufPtr() {
  FlushBuffer();
  SetBase(std::clamp<Int64>(fBase + fOffset, 0, fSize));
  fOffset = 0;
  fValid = 0;
}

void TkxBufStream::MovePos(Int64 delta) {
  if (delta >= -fOffset && delta < fValid - fOffset) {
    fOffset += delta;
    return;
  }
  // Leaving the buffered bytes: the position moves first (kept within 0 .. size), then
  // InitBufPtr. When its flush is refused the position has moved all the same and the
  // buffer stays dirty, so the next operation that needs the buffer elsewhere raises again
  // instead of serving the refused bytes.
  fOffset = std::clamp<Int64>(SatAdd(GetPosition(), delta), 0, fSize) - fBase;
  InitBufPtr();
}

Integer TkxBufStream::LoadBuf(Integer count) {
  if (count < 0) count = 0;
  const Integer avail = OffsetInBuffer() ? static_cast<Integer>(fValid - fOffset) : 0;
  if (avail > 0 && count <= avail) return count == 0 ? avail : count;
  CheckAhead(static_cast<std::size_t>(count));
  // Everything up to the end is here already, or nothing is left.
  const Int64 remaining = fSize - GetPosition();
  if (remaining <= avail) {
    const Integer left = static_cast<Integer>(std::max<Int64>(remaining, 0));
    return count == 0 ? left : std::min(count, left);
  }
  InitBufPtr();
  // The buffer never holds bytes past the kept size, so that reading stops at the size
  // even when the stream has grown behind this object's back.
  const Integer want = static_cast<Integer>(std::min<Int64>(fBufSize, fSize - fBase));
  if (Target().Seek(fBase, soBeginning) != fBase)
    throw Exception(Format("TkxBufStream.LoadBuf: cannot seek the stream to %d", fBase));
  // A stream may give fewer bytes than asked at a time; only a read that gives none is its
  // end. Filling the whole buffer is what keeps a look-ahead ("<!--", "]]>") from seeing the
  // end of one chunk as the end of the input. An error of the stream goes to the caller: a
  // reader that took it for the end would hand out the data cut short as if it were whole.
  while (fValid < want) {
    const Integer got = fStream->Read(fBuffer.get() + fValid, want - fValid);
    if (got <= 0) break;
    fValid += std::min(got, want - fValid);
  }
  return count > 0 && count <= fValid ? count : fValid;
}

// ---- TStream ---------------------------------------------------------------------------

Integer TkxBufStream::Read(void* buffer, Integer count) {
  if (count <= 0) return 0;
  char* out = static_cast<char*>(buffer);
  Integer copied = 0;
  while (copied < count) {
    const Integer avail = LoadBuf(0);
    if (avail <= 0) break;
    const Integer n = std::min(avail, count - copied);
    std::memcpy(out + copied, fBuffer.get() + fOffset, static_cast<std::size_t>(n));
    copied += n;
    MovePos(n);
  }
  return copied;
}

Integer TkxBufStream::Write(const void* buffer, Integer count) {
  if (count <= 0) return 0;
  const char* in = static_cast<const char*>(buffer);
  Integer written = 0;
  while (written < count) {
    const Integer left = count - written;
    // What does not fit behind the offset starts a fresh buffer at the position, so a chunk
    // is never split by a re-base half-way through its copy.
    // So does a position that a refused flush left away from the buffered bytes.
    if (!OffsetInBuffer() || (fOffset > 0 && fOffset + left > fBufSize)) InitBufPtr();
    const Integer chunk = static_cast<Integer>(std::min<Int64>(fBufSize - fOffset, left));
    // The stream grows before the bytes enter the buffer: a stream that cannot grow refuses
    // the write while the buffer still mirrors it.
    const Int64 end = GetPosition() + chunk;
    if (end > fSize) SetSize(end);
    std::memcpy(fBuffer.get() + fOffset, in + written, static_cast<std::size_t>(chunk));
    fValid = static_cast<Integer>(std::max<Int64>(fValid, fOffset + chunk));
    fDirty = true;
    written += chunk;
    // Moving on as reading does: a write that ends inside the buffered bytes stays in the
    // buffer, while one that reaches their end re-bases, which writes it through. Appended
    // data therefore reaches the stream by the end of the Write that produced it, and a
    // failing stream reports at that Write rather than at some later, unrelated call.
    MovePos(chunk);
  }
  return count;
}

Int64 TkxBufStream::Seek(Int64 offset, TSeekOrigin origin) {
  Int64 from;
  switch (origin) {
    case soBeginning: from = 0; break;
    case soCurrent: from = GetPosition(); break;
    case soEnd: from = fSize; break;
    default: return -1;
  }
  SetPosition(SatAdd(from, offset));
  return GetPosition();
}

void TkxBufStream::SetPosition(Int64 position) { MovePos(SatSub(position, GetPosition())); }

void TkxBufStream::SetSize(Int64 newSize) {
  if (newSize < 0) throw Exception(_SErrBufStmSetSize);
  // Buffered bytes past the new end must not come back with a later flush: they are
  // written first (so the stream cuts them itself) and then dropped from the buffer.
  if (newSize < fBase + fValid) FlushBuffer();
  TStream& stream = Target();
  bool done = false;
  try {
    stream.SetSize(newSize);
    done = stream.GetSize() == newSize;
  } catch (const Exception&) {
  }
  if (!done) throw Exception(_SErrBufStmSetSize);
  fSize = newSize;
  SetBase(fBase);
  if (fBase + fValid > fSize) {
    fValid = static_cast<Integer>(std::max<Int64>(fSize - fBase, 0));
    if (fOffset >= fValid) {
      SetBase(std::clamp<Int64>(fBase + fOffset, 0, fSize));
      fOffset = 0;
      fValid = 0;
    }
  }
}

// ---- Characters and strings ------------------------------------------------------------

char TkxBufStream::CurCharSlow() { return LoadBuf(1) > 0 ? fBuffer[fOffset] : '\0'; }

char TkxBufStream::GetCharSlow() {
  const char c = CurChar();
  MovePos(1);
  return c;
}

char TkxBufStream::NextCharSlow() { return LoadBuf(2) > 0 ? fBuffer[fOffset + 1] : '\0'; }

AnsiString TkxBufStream::CurStr(Integer n) {
  if (n <= 0) return AnsiString();
  CheckAhead(static_cast<std::size_t>(n));
  const Integer avail = LoadBuf(n);
  return AnsiString(fBuffer.get() + fOffset, static_cast<std::size_t>(std::max(avail, 0)));
}

AnsiString TkxBufStream::GetStr(Integer n) {
  AnsiString s = CurStr(n);
  MovePos(static_cast<Int64>(s.size()));
  return s;
}

bool TkxBufStream::SameAhead(std::string_view text, bool useLocale) {
  if (text.empty()) return true;
  CheckAhead(text.size());
  const Integer n = static_cast<Integer>(text.size());
  if (LoadBuf(n) < n) return false;
  const std::string_view ahead(fBuffer.get() + fOffset, text.size());
  if (useLocale) return AnsiSameText(ahead, text);
  for (std::size_t i = 0; i < text.size(); ++i)
    if (AsciiUpper(ahead[i]) != AsciiUpper(text[i])) return false;
  return true;
}

bool TkxBufStream::MatchStr(std::string_view text, bool useLocale, bool advance) {
  if (!SameAhead(text, useLocale)) return false;
  if (advance) MovePos(static_cast<Int64>(text.size()));
  return true;
}

bool TkxBufStream::Search(std::string_view text, bool useLocale) {
  if (Eof()) return false;
  if (!(OffsetInBuffer() && fOffset < fValid) && LoadBuf(0) <= 0) {
    SetPosition(fSize);  // the stream gives no more bytes
    return false;
  }
  if (text.empty()) return true;
  CheckAhead(text.size());
  // The position stays on the place being tried, with k bytes of the text known to match
  // there. A byte that breaks the match moves the place on as far as the text's borders allow
  // (Knuth-Morris-Pratt) instead of by one, so no byte is compared more than a few times:
  // comparing the whole text at each place cost the text's length for every byte.
  auto fold = [useLocale](char c) { return useLocale ? AnsiUpperChar(c) : AsciiUpper(c); };
  AnsiString pattern(text);
  for (char& c : pattern) c = fold(c);
  const std::vector<std::size_t> border = detail::TextBorders(pattern);
  const Integer n = static_cast<Integer>(pattern.size());
  Integer k = 0;
  while (!Eof() && LoadBuf(n) >= n) {
    const char* here = fBuffer.get() + fOffset;
    while (k < n && fold(here[k]) == pattern[static_cast<std::size_t>(k)]) ++k;
    if (k == n) return true;
    const Integer keep = k > 0 ? static_cast<Integer>(border[static_cast<std::size_t>(k - 1)]) : 0;
    MovePos(k > 0 ? k - keep : 1);
    k = keep;
  }
  // Fewer bytes are left than the text has (or the stream gives no more).
  SetPosition(fSize);
  return false;
}

void TkxBufStream::Readln(AnsiString& line) {
  line.clear();
  while (!Eof()) {
    if (!(OffsetInBuffer() && fOffset < fValid) && LoadBuf(0) <= 0) {
      SetPosition(fSize);  // the stream gives no more bytes
      return;
    }
    const char* from = fBuffer.get() + fOffset;
    const char* end = fBuffer.get() + fValid;
    const char* p = FindLineEnd(from, end);
    line.append(from, static_cast<std::size_t>(p - from));
    if (p == end) {
      MovePos(p - from);
      continue;
    }
    const char lineEnd = *p;
    MovePos(p - from + 1);
    if (lineEnd == '\r' && !Eof() && CurChar() == '\n') MovePos(1);
    return;
  }
}

AnsiString TkxBufStream::Readln() {
  // The common case, a whole line and its line end inside the buffer: one scan and the
  // string made once at its size.
  if (fOffset >= 0 && fOffset < fValid) {
    const char* from = fBuffer.get() + fOffset;
    const char* end = fBuffer.get() + fValid;
    const char* p = FindLineEnd(from, end);
    // A CR as the last buffered byte leaves open whether an LF follows.
    if (p != end && (*p == '\n' || p + 1 < end)) {
      const Int64 next = (p - fBuffer.get()) + ((*p == '\r' && p[1] == '\n') ? 2 : 1);
      if (next < fValid) {
        fOffset = next;
        return AnsiString(from, static_cast<std::size_t>(p - from));
      }
    }
  }
  AnsiString line;
  Readln(line);
  return line;
}

}  // namespace ostrel
