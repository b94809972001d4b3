// The buffered stream: one fixed buffer in front of any stream, for byte-by-byte reading
// (peeking at the current character, matching keywords, reading lines) and for buffered
// writing.
#pragma once

#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/Strings.h>

#include <memory>
#include <new>
#include <string_view>

namespace ostrel {

inline constexpr auto _SErrBufStmFlushSeek =
    Cp1251(u8"TkxBufStream: Ошибка позиционирования в режиме записи буфера");
inline constexpr auto _SErrBufStmWrite = Cp1251(u8"TkxBufStream: Ошибка записи буфера в поток");
inline constexpr auto _SErrBufStmSetSize =
    Cp1251(u8"TkxBufStream: Ошибка установка нового размера потока");

// A stream itself, reading and writing through one buffer of a size fixed at construction.
//
// The buffer mirrors the stream's bytes base .. base + valid - 1 and the current position is
// base + offset. Character access is an index into the buffer; the underlying stream is
// touched only to reload the buffer, to write it back (flush) and to change its size.
// A write moves on as a read does: bytes written inside the buffered range stay in the
// buffer (marked dirty) until the buffer moves elsewhere, FlushBuffer or destruction, while a
// write that reaches the end of the buffered bytes (an append) re-bases and so goes to the
// stream before Write returns.
//
// Positions stay within 0 .. size: moving outside the buffer clamps the new position to the
// stream's size, so seeking past the end lands on the end.
//
// Writes that pass the end grow the underlying stream first (SetSize), so a stream that
// cannot grow refuses the write with _SErrBufStmSetSize before anything enters the buffer.
// A flush that fails raises _SErrBufStmFlushSeek or _SErrBufStmWrite and keeps the buffer
// dirty, so that a later flush tries again. When the flush was forced by leaving the
// buffered bytes (a read, write or seek past them), the position has moved on all the same;
// every later operation that needs the buffer elsewhere tries the flush again and raises
// again, so the refused bytes are never read back as if they had been written.
//
// Close (or FlushBuffer) is how to learn of a failed write: the destructor cannot raise.
// When its own final flush fails, the destructor reports the lost bytes to the system monitor
// (TkxSysMonitor) when one is registered, and otherwise writes the message to standard error.
class OSTREL_API TkxBufStream : public TStream {
  OSTREL_CLASS(TkxBufStream, TStream)
 public:
  // Starts at the stream's current position. With ownsStream the stream is freed with this
  // object (also when the constructor refuses its arguments). A buffer size below 1 or a
  // null stream raises Exception.
  TkxBufStream(TStream* stream, bool ownsStream, Integer bufSize);
  // The same over the caller's buffer of bufSize + 1 bytes (the extra byte lets NextChar
  // look one place past the valid bytes), which must outlive this object: a short-lived
  // reader keeps its buffer in its own storage and spares the heap a large block per use.
  TkxBufStream(TStream* stream, bool ownsStream, char* buffer, Integer bufSize);
  ~TkxBufStream() override;

  // TStream
  Integer Read(void* buffer, Integer count) override;
  Integer Write(const void* buffer, Integer count) override;
  // From the beginning, the current position or the end (the kept size); returns the new
  // position.
  Int64 Seek(Int64 offset, TSeekOrigin origin) override;
  // The size as kept by this object (the stream's size at construction, grown by writes).
  Int64 GetSize() override { return fSize; }
  // Sets the underlying stream's size and the kept one; raises _SErrBufStmSetSize when the
  // stream does not take it. Shrinking below buffered bytes writes them back first and
  // drops those past the new end; a position past the new end moves to it.
  void SetSize(Int64 newSize) override;
  Int64 GetSize64() const noexcept { return fSize; }
  void SetSize64(Int64 newSize) { SetSize(newSize); }

  Int64 GetPosition() const noexcept { return fBase + fOffset; }
  void SetPosition(Int64 position);

  // Whether the position has reached the size. (Named so because EOF is a C macro.)
  bool Eof() const noexcept { return fOffset >= fEndOffset; }

  // The byte at the position, or 0 when none is available. (The offset is outside 0 ..
  // valid - 1 only after a refused flush, and then the slow path raises its error again.)
  char CurChar() {
    if (static_cast<UInt64>(fOffset) < static_cast<UInt64>(fValid)) return fBuffer[fOffset];
    return CurCharSlow();
  }
  // CurChar, then one byte on (also at the end, where the position stays clamped).
  char GetChar() {
    if (fOffset >= 0 && fOffset + 1 < fValid) return fBuffer[fOffset++];
    return GetCharSlow();
  }
  // The byte after the current one when at least the current one is available, else 0.
  // With exactly one byte left the result is whatever the buffer holds after it, so test
  // Eof (or the position against the size) first.
  char NextChar() {
    if (fOffset >= 0 && fOffset + 2 <= fValid) return fBuffer[fOffset + 1];
    return NextCharSlow();
  }
  // Up to n bytes from the position (fewer near the end), without moving / moving past them.
  // n must stay below the buffer size: n of the buffer size or more raises
  // "TkxBufStream.LoadBuf: Count >= BufSize", as MatchStr and Search do.
  AnsiString CurStr(Integer n);
  AnsiString GetStr(Integer n);
  // Whether the text comes next, compared without regard to case: CP1251 letters with
  // useLocale, Latin letters only otherwise. With advance, a match is moved past.
  bool MatchStr(std::string_view text, bool useLocale, bool advance);
  // Moves forward to the next place where the text starts (compared as in MatchStr) and
  // returns true; false at the end, with the position at the end.
  bool Search(std::string_view text, bool useLocale);
  // The bytes up to the next line end (LF, CR or CR LF), which is consumed but not
  // returned. A last line without line end is returned whole; at the end "" is returned.
  // A stream that delivers fewer bytes than its size ends where its bytes end (Search
  // likewise), so that reading lines up to Eof always finishes.
  AnsiString Readln();
  // The same into an existing string (its capacity is reused).
  void Readln(AnsiString& line);

  // The number of bytes available from the position without moving, at most count (count 0:
  // all the buffer holds there); reloads the buffer when they are not in it. A count not
  // below the buffer size raises "TkxBufStream.LoadBuf: Count >= BufSize".
  // A reload fills the buffer however few bytes each Read of the stream gives; a Read that
  // gives none ends the stream there. What the stream raises while reading, and a seek that
  // does not land, reach the caller: they are never taken for the end of the data.
  Integer LoadBuf(Integer count);
  // The bytes buffered from the position on (empty when they are used up: LoadBuf brings
  // the next ones), so that a reader can scan a run of bytes in place and then MovePos past
  // it instead of taking them one call at a time.
  std::string_view Buffered() const noexcept {
    return fOffset < fValid ? std::string_view(fBuffer.get() + fOffset,
                                               static_cast<std::size_t>(fValid - fOffset))
                            : std::string_view();
  }
  // Moves the position; leaving the buffered bytes re-bases the buffer.
  void MovePos(Int64 delta);
  // Writes dirty bytes back, starts the buffer afresh at the position (clamped to 0 ..
  // size) and empties it.
  void InitBufPtr();
  // Writes the buffered bytes back when they are dirty; raises when the stream refuses.
  void FlushBuffer();
  // Flushes (raising as FlushBuffer does, with everything kept for another try) and then
  // lets go of the stream, freeing it when owned; afterwards the object holds no stream and
  // only its destruction is left. Call it before destruction wherever a lost write matters.
  void Close();

  // The underlying stream; null after Close.
  TStream* Stream() const noexcept { return fStream; }
  Integer BufSize() const noexcept { return fBufSize; }
  bool Dirty() const noexcept { return fDirty; }

 private:
  // The look-ahead limit shared by CurStr, GetStr, MatchStr and Search.
  void CheckAhead(std::size_t count) const;
  // The underlying stream; raises once Close has let go of it.
  TStream& Target() const;
  // Whether the offset lies on buffered bytes or just after them (false only after a
  // refused flush left the position elsewhere).
  bool OffsetInBuffer() const noexcept { return fOffset >= 0 && fOffset <= fValid; }
  char CurCharSlow();
  char GetCharSlow();
  char NextCharSlow();
  bool SameAhead(std::string_view text, bool useLocale);
  // Moves the buffer's start; keeps the offset of the end of the stream up to date.
  void SetBase(Int64 base) noexcept {
    fBase = base;
    fEndOffset = fSize - fBase;
  }

  TStream* fStream;
  bool fOwnsStream;
  // The buffer starts on a cache line: the system's copy into it runs at full speed only
  // at such an address.
  static constexpr std::align_val_t kBufferAlign{64};
  struct BufferDelete {
    bool owned;
    void operator()(char* p) const noexcept {
      if (owned) ::operator delete[](p, kBufferAlign);
    }
  };
  // Size checks and the starting position, shared by both constructors.
  void Init(TStream* stream, bool ownsStream, char* buffer, Integer bufSize);
  std::unique_ptr<char[], BufferDelete> fBuffer;
  Integer fBufSize;
  Int64 fBase = 0;
  Int64 fOffset = 0;
  Integer fValid = 0;
  Int64 fSize = 0;
  Int64 fEndOffset = 0;  // size - base: where the offset meets the end of the stream
  bool fDirty = false;
};

}  // namespace ostrel
