// The buffered stream over random bytes with a random buffer size: a random sequence of
// character, string, line, read, write, seek and size operations, each checked against a
// plain model of the stream (bytes and a position). In the second mode the underlying
// stream refuses writes, seeks or size changes at random moments; then only the library's
// own errors may come out, and the stream must never hand out bytes it could not write.
#include <FuzzUtil.h>

#include <ostrel/core/BufStream.h>

#include <algorithm>

using namespace ostrel;

namespace {

// A memory stream that refuses on demand.
class FlakyStream : public TMemoryStream {
 public:
  bool failWrite = false, failSeek = false, failSize = false;
  Integer Write(const void* buffer, Integer count) override {
    return failWrite ? 0 : TMemoryStream::Write(buffer, count);
  }
  Int64 Seek(Int64 offset, TSeekOrigin origin) override {
    return failSeek ? -1 : TMemoryStream::Seek(offset, origin);
  }
  void SetSize(Int64 newSize) override {
    if (failSize) throw Exception("refused");
    TMemoryStream::SetSize(newSize);
  }
};

struct Model {
  AnsiString data;
  Int64 pos = 0;
  Int64 Size() const { return static_cast<Int64>(data.size()); }
  Int64 Left() const { return Size() - pos; }
  void MoveTo(Int64 p) { pos = std::clamp<Int64>(p, 0, Size()); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const bool failures = in.Byte() % 4 == 0;
  // From 3 bytes: CurChar and NextChar ask LoadBuf for 1 and 2 bytes, which a buffer must
  // exceed.
  const Integer bufSize =
      in.Bool() ? static_cast<Integer>(in.Range(3, 16)) : static_cast<Integer>(in.Range(3, 300));
  Model m;
  m.data = AnsiString(in.Text());
  auto* stream = new FlakyStream;
  stream->Write(m.data.data(), static_cast<Integer>(m.data.size()));
  m.pos = in.Range(0, m.Size());
  stream->Seek(m.pos, soBeginning);
  auto bs = std::make_unique<TkxBufStream>(stream, true, bufSize);

  bool exact = true;  // the model holds until the stream refuses something
  auto check = [&](bool ok, std::string_view what) {
    if (exact) fuzz::Require(ok, what);
  };
  auto text = [&]() -> AnsiString {
    // Often a piece of the data itself, so that matches happen.
    if (in.Bool() && m.Size() > 0) {
      Int64 from = in.Range(0, m.Size() - 1);
      return m.data.substr(static_cast<std::size_t>(from),
                           static_cast<std::size_t>(in.Range(0, 20)));
    }
    return AnsiString(in.Text());
  };

  for (int round = 0; round < 64 && !in.Empty(); ++round) {
    if (failures) {
      stream->failWrite = in.Byte() % 8 == 0;
      stream->failSeek = in.Byte() % 16 == 0;
      stream->failSize = in.Byte() % 16 == 0;
      // A refused seek or read makes the buffer come up short without an error, so the
      // model stops at the first refusal.
      if (stream->failWrite || stream->failSeek || stream->failSize) exact = false;
    }
    const Byte op = in.Byte() % 13;
    const Int64 n = in.Range(-2, bufSize + 2);
    AnsiString error;
    bool ok = fuzz::Guarded([&] {
      try {
        switch (op) {
          case 0: {
            char c = bs->CurChar();
            check(c == (m.Left() > 0 ? m.data[m.pos] : '\0'), "CurChar");
            break;
          }
          case 1: {
            char c = bs->GetChar();
            check(c == (m.Left() > 0 ? m.data[m.pos] : '\0'), "GetChar");
            m.MoveTo(m.pos + 1);
            break;
          }
          case 2: {
            char c = bs->NextChar();
            if (m.Left() >= 2) check(c == m.data[m.pos + 1], "NextChar");
            if (m.Left() <= 0) check(c == '\0', "NextChar at the end");
            break;
          }
          case 3:
          case 4: {
            bool moving = op == 4;
            bool tooLong = n >= bufSize;
            AnsiString s;
            bool raised = !fuzz::Guarded([&] {
              s = moving ? bs->GetStr(static_cast<Integer>(n))
                         : bs->CurStr(static_cast<Integer>(n));
            });
            check(raised == tooLong, "CurStr/GetStr of the buffer size or more raises");
            if (!raised) {
              AnsiString want = n <= 0 ? AnsiString()
                                       : m.data.substr(static_cast<std::size_t>(m.pos),
                                                       static_cast<std::size_t>(n));
              check(s == want, "CurStr/GetStr");
              if (moving) m.MoveTo(m.pos + static_cast<Int64>(s.size()));
            }
            break;
          }
          case 5: {
            AnsiString t = text();
            bool advance = in.Bool();
            bool raised = false, got = false;
            raised = !fuzz::Guarded([&] { got = bs->MatchStr(t, false, advance); });
            check(raised == (t.size() >= static_cast<std::size_t>(bufSize)), "MatchStr raising");
            if (!raised) {
              bool want = t.size() <= static_cast<std::size_t>(m.Left()) &&
                          SameText(std::string_view(m.data).substr(static_cast<std::size_t>(m.pos),
                                                                   t.size()),
                                   t);
              check(got == want, "MatchStr");
              if (got && advance) m.MoveTo(m.pos + static_cast<Int64>(t.size()));
            }
            break;
          }
          case 6: {
            AnsiString t = text();
            bool got = false;
            bool raised = !fuzz::Guarded([&] { got = bs->Search(t, false); });
            if (raised) {
              check(m.Left() > 0 && t.size() >= static_cast<std::size_t>(bufSize),
                    "Search raising");
              exact = false;  // the position after a refused search is the search's business
              break;
            }
            Int64 at = m.pos;
            while (at < m.Size() && !(t.size() <= static_cast<std::size_t>(m.Size() - at) &&
                                      SameText(std::string_view(m.data).substr(
                                                   static_cast<std::size_t>(at), t.size()),
                                               t)))
              ++at;
            check(got == (at < m.Size()), "Search result");
            m.MoveTo(at);
            break;
          }
          case 7: {
            AnsiString line = bs->Readln();
            std::size_t from = static_cast<std::size_t>(m.pos);
            std::size_t end = m.data.find_first_of("\r\n", from);
            if (end == AnsiString::npos) end = m.data.size();
            check(line == m.data.substr(from, end - from), "Readln");
            Int64 next = static_cast<Int64>(end);
            if (end < m.data.size()) {
              next = static_cast<Int64>(end) + 1;
              if (m.data[end] == '\r' && end + 1 < m.data.size() && m.data[end + 1] == '\n') ++next;
            }
            m.MoveTo(next);
            break;
          }
          case 8: {
            AnsiString buf(static_cast<std::size_t>(std::max<Int64>(n * 3, 0)), '\0');
            Integer got = bs->Read(buf.data(), static_cast<Integer>(buf.size()));
            Int64 want = std::min<Int64>(static_cast<Int64>(buf.size()), m.Left());
            check(got == want, "Read count");
            check(buf.compare(0, static_cast<std::size_t>(want), m.data,
                              static_cast<std::size_t>(m.pos), static_cast<std::size_t>(want)) == 0,
                  "Read bytes");
            m.MoveTo(m.pos + want);
            break;
          }
          case 9: {
            AnsiString t = text();
            if (in.Bool()) t += t + t;
            bs->Write(t.data(), static_cast<Integer>(t.size()));
            if (m.pos + static_cast<Int64>(t.size()) > m.Size())
              m.data.resize(static_cast<std::size_t>(m.pos) + t.size());
            m.data.replace(static_cast<std::size_t>(m.pos), t.size(), t);
            m.pos += static_cast<Int64>(t.size());
            break;
          }
          case 10: {
            Int64 offset = in.Range(-400, 400);
            TSeekOrigin origin = static_cast<TSeekOrigin>(in.Byte() % 3);
            Int64 from = origin == soBeginning ? 0 : origin == soCurrent ? m.pos : m.Size();
            bs->Seek(offset, origin);
            m.MoveTo(from + offset);
            break;
          }
          case 11: {
            Int64 newSize = in.Range(0, m.Size() + 40);
            bs->SetSize(newSize);
            m.data.resize(static_cast<std::size_t>(newSize), '\0');
            m.MoveTo(m.pos);
            break;
          }
          default: bs->FlushBuffer(); break;
        }
      } catch (const Exception& e) {
        error = e.Message();
        throw;
      }
    });
    if (!ok) {
      fuzz::Require(failures, "an operation raised over a stream that refuses nothing", error);
      exact = false;
    }
    check(bs->GetPosition() == m.pos, "position");
    check(bs->GetSize() == m.Size(), "size");
    check(bs->Eof() == (m.pos >= m.Size()), "Eof");
  }

  stream->failWrite = stream->failSeek = stream->failSize = false;
  bool flushed = fuzz::Guarded([&] { bs->FlushBuffer(); });
  fuzz::Require(flushed, "a flush fails once the stream takes writes again");
  if (exact) {
    AnsiString written(static_cast<const char*>(stream->Memory()),
                       static_cast<std::size_t>(stream->GetSize()));
    fuzz::Require(written == m.data, "the stream holds other bytes than were written");
  }
  return 0;
}
