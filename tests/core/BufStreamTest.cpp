// The buffered stream: reads, writes and seeks across buffer boundaries against a plain
// model, line ends, matching and searching, the size limit of look-ahead, flushing, and
// streams that refuse to write, to seek or to deliver their bytes.
#include <ostrel/core/BufStream.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace ostrel {
namespace {

// A stream over a string that counts the calls made to it and can be told to fail.
class ProbeStream : public TStream {
 public:
  explicit ProbeStream(std::string_view bytes = {}) : fData(bytes) {}
  Integer Read(void* buffer, Integer count) override {
    ++reads;
    const Int64 n = std::clamp<Int64>(static_cast<Int64>(fData.size()) - fPos, 0, count);
    fData.copy(static_cast<char*>(buffer), static_cast<std::size_t>(n), static_cast<std::size_t>(fPos));
    fPos += n;
    return static_cast<Integer>(n);
  }
  Integer Write(const void* buffer, Integer count) override {
    ++writes;
    if (readOnly || count <= 0) return 0;
    if (fPos > static_cast<Int64>(fData.size())) fData.resize(static_cast<std::size_t>(fPos));
    fData.replace(static_cast<std::size_t>(fPos), static_cast<std::size_t>(count),
                  static_cast<const char*>(buffer), static_cast<std::size_t>(count));
    fPos += count;
    return count;
  }
  Int64 Seek(Int64 offset, TSeekOrigin origin) override {
    const Int64 from = origin == soBeginning ? 0 : origin == soCurrent ? fPos : GetSize();
    if (failSeek || from + offset < 0) return -1;
    return fPos = from + offset;
  }
  Int64 GetSize() override {
    return claimedSize >= 0 ? claimedSize : static_cast<Int64>(fData.size());
  }
  void SetSize(Int64 size) override {
    if (!readOnly) fData.resize(static_cast<std::size_t>(size));
  }
  const std::string& Bytes() const { return fData; }

  int reads = 0, writes = 0;
  bool readOnly = false, failSeek = false;
  Int64 claimedSize = -1;  // when set, GetSize reports it whatever the real size

 private:
  std::string fData;
  Int64 fPos = 0;
};

std::string RandomBytes(std::mt19937& rng, std::size_t n) {
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(rng());
  return s;
}

template <class Fn>
std::string MessageOf(Fn&& fn) {
  try {
    fn();
  } catch (const Exception& e) {
    return e.Message();
  }
  return "<no exception>";
}

// ---- Lines --------------------------------------------------------------------------

struct LinesCase {
  std::string text;
  std::vector<std::string> lines;
};

class BufStreamLines : public ::testing::TestWithParam<int> {};

TEST_P(BufStreamLines, ReadlnSplitsAtEveryKindOfLineEnd) {
  const std::vector<LinesCase> cases = {
      {"a\r\nb\rc", {"a", "b", "c"}},
      {"\n\nx", {"", "", "x"}},
      {"abc\r", {"abc"}},
      {"\r\n\r\n", {"", ""}},
      {"x\n\ry\n", {"x", "", "y"}},  // LF CR is two line ends
      {"", {}},
      {"a line longer than the smaller buffers\r\nand", {"a line longer than the smaller buffers", "and"}},
      {std::string("nul\0inside\r\n", 12) + Ansi(u8"Кириллица"), {std::string("nul\0inside", 10), Ansi(u8"Кириллица")}},
  };
  for (const LinesCase& c : cases) {
    TkxBufStream bs(new ProbeStream(c.text), true, GetParam());
    std::vector<std::string> lines;
    AnsiString reused;
    while (!bs.Eof() && lines.size() < 10) {
      // Both forms, alternately.
      if (lines.size() % 2 == 0) lines.push_back(bs.Readln());
      else bs.Readln(reused), lines.push_back(reused);
    }
    EXPECT_EQ(lines, c.lines) << "buffer " << GetParam() << ", text " << c.text;
    EXPECT_EQ(bs.Readln(), "");
  }
}

INSTANTIATE_TEST_SUITE_P(BufferSizes, BufStreamLines, ::testing::Values(3, 4, 5, 16, 4096));

// ---- Reading, writing and seeking against a model -----------------------------------

class BufStreamModel : public ::testing::TestWithParam<int> {};

TEST_P(BufStreamModel, ReadsAndSeeksAgreeWithTheBytes) {
  std::mt19937 rng(static_cast<unsigned>(GetParam()));
  const std::string data = RandomBytes(rng, 5000);
  TkxBufStream bs(new ProbeStream(data), true, GetParam());
  Int64 pos = 0;
  for (int step = 0; step < 3000; ++step) {
    switch (rng() % 4) {
      case 0: {
        pos = static_cast<Int64>(rng() % 5100) - 50;  // also before the start, past the end
        EXPECT_EQ(bs.Seek(pos, soBeginning), std::clamp<Int64>(pos, 0, 5000));
        pos = std::clamp<Int64>(pos, 0, 5000);
        break;
      }
      case 1: {
        std::string got(rng() % 300, '\0');
        const Integer n = bs.Read(got.data(), static_cast<Integer>(got.size()));
        ASSERT_EQ(got.substr(0, static_cast<std::size_t>(n)),
                  data.substr(static_cast<std::size_t>(pos), got.size()));
        pos += n;
        break;
      }
      case 2:
        ASSERT_EQ(bs.GetChar(), pos < 5000 ? data[static_cast<std::size_t>(pos)] : '\0');
        pos = std::min<Int64>(pos + 1, 5000);
        break;
      default: {
        const auto n = static_cast<Integer>(rng() % static_cast<unsigned>(GetParam()));
        ASSERT_EQ(bs.CurStr(n), data.substr(static_cast<std::size_t>(pos), static_cast<std::size_t>(n)));
        if (pos + 1 < 5000 && GetParam() > 2) {
          ASSERT_EQ(bs.NextChar(), data[static_cast<std::size_t>(pos) + 1]);
        }
      }
    }
    ASSERT_EQ(bs.GetPosition(), pos);
    ASSERT_EQ(bs.Eof(), pos >= 5000);
  }
}

TEST_P(BufStreamModel, WritesOverwritesAndReadsBackAgreeWithTheBytes) {
  std::mt19937 rng(static_cast<unsigned>(GetParam()) + 100);
  ProbeStream target(RandomBytes(rng, 700));
  std::string model = target.Bytes();
  {
    TkxBufStream bs(&target, false, GetParam());
    Int64 pos = 0;
    for (int step = 0; step < 2000; ++step) {
      if (rng() % 3 == 0) {
        pos = static_cast<Int64>(rng() % (model.size() + 1));
        bs.SetPosition(pos);
      }
      if (rng() % 2 == 0) {
        const std::string piece = RandomBytes(rng, rng() % (3 * static_cast<unsigned>(GetParam())));
        ASSERT_EQ(bs.Write(piece.data(), static_cast<Integer>(piece.size())),
                  static_cast<Integer>(piece.size()));
        model.replace(static_cast<std::size_t>(pos), piece.size(), piece);
        pos += static_cast<Int64>(piece.size());
      } else {
        ASSERT_EQ(bs.CurChar(), pos < static_cast<Int64>(model.size()) ? model[static_cast<std::size_t>(pos)] : '\0');
      }
      ASSERT_EQ(bs.GetPosition(), pos);
      ASSERT_EQ(bs.GetSize(), static_cast<Int64>(model.size()));
    }
    // Read back through the buffer before anything is forced out.
    bs.SetPosition(0);
    std::string all(model.size(), '\0');
    ASSERT_EQ(bs.Read(all.data(), static_cast<Integer>(all.size())), static_cast<Integer>(all.size()));
    EXPECT_EQ(all, model);
  }
  EXPECT_EQ(target.Bytes(), model);
}

INSTANTIATE_TEST_SUITE_P(BufferSizes, BufStreamModel, ::testing::Values(2, 7, 64, 1000));

TEST(BufStream, DestructionFlushesAndFreesAnOwnedStream) {
  ProbeStream target;
  {
    TkxBufStream bs(&target, false, 4096);
    bs.Write("0123456789", 10);
    EXPECT_TRUE(bs.Dirty());
    EXPECT_EQ(target.Bytes(), std::string(10, '\0'));  // grown, the bytes still buffered
  }
  EXPECT_EQ(target.Bytes(), "0123456789");
  // An owned stream goes with the buffered stream (the leak checker watches this one).
  auto* owned = new ProbeStream("abc");
  TkxBufStream(owned, true, 16).Write("xy", 2);
}

TEST(BufStream, StreamIsTouchedOnlyToReloadTheBuffer) {
  auto* raw = new ProbeStream(std::string(10000, 'q'));
  TkxBufStream bs(raw, true, 1000);
  Int64 n = 0;
  while (!bs.Eof()) {
    bs.CurChar();
    n += bs.GetChar() == 'q';
  }
  EXPECT_EQ(n, 10000);
  EXPECT_EQ(raw->reads, 10);
}

TEST(BufStream, EndOfStreamAndPositionsClampToTheSize) {
  TkxBufStream bs(new ProbeStream("xyz"), true, 8);
  EXPECT_EQ(bs.Seek(10, soBeginning), 3);
  EXPECT_TRUE(bs.Eof());
  EXPECT_EQ(bs.CurChar(), '\0');
  EXPECT_EQ(bs.GetChar(), '\0');
  EXPECT_EQ(bs.GetPosition(), 3);
  EXPECT_EQ(bs.Seek(-1, soEnd), 2);
  EXPECT_EQ(bs.GetChar(), 'z');
  EXPECT_EQ(bs.Seek(-100, soCurrent), 0);
  EXPECT_EQ(bs.GetStr(2), "xy");
  EXPECT_EQ(bs.CurStr(5), "z");
  EXPECT_EQ(bs.CurStr(0), "");
  EXPECT_EQ(bs.Seek(INT64_MAX, soCurrent), 3);
}

TEST(BufStream, LookAheadOfBufferSizeOrMoreIsRefused) {
  TkxBufStream bs(new ProbeStream(std::string(100, 'a')), true, 8);
  const std::string expected = "TkxBufStream.LoadBuf: Count >= BufSize";
  EXPECT_EQ(MessageOf([&] { bs.CurStr(8); }), expected);
  EXPECT_EQ(MessageOf([&] { bs.MatchStr("aaaaaaaa", false, false); }), expected);
  EXPECT_EQ(MessageOf([&] { bs.Search("aaaaaaaaa", true); }), expected);
  EXPECT_EQ(bs.CurStr(7), "aaaaaaa");
}

TEST(BufStream, MatchAndSearchIgnoreCaseAsAsked) {
  const std::string text = Ansi(u8"Начало: Hello, ПРИВЕТ мир; end");
  struct Case {
    std::string word;
    bool locale;
    bool found;
    Int64 at;  // where Search stops (the size when not found)
  };
  const Int64 size = static_cast<Int64>(text.size());
  const std::vector<Case> cases = {
      {"hello", false, true, 8},
      {Ansi(u8"привет"), true, true, 15},
      {Ansi(u8"привет"), false, false, size},  // Cyrillic letters need the locale rule
      {"END", false, true, size - 3},
      {"ends", true, false, size},
  };
  for (int bufSize : {8, 64}) {
    for (const Case& c : cases) {
      TkxBufStream bs(new ProbeStream(text), true, bufSize);
      EXPECT_EQ(bs.Search(c.word, c.locale), c.found) << c.word;
      EXPECT_EQ(bs.GetPosition(), c.at) << c.word;
      if (c.found) {
        EXPECT_TRUE(bs.MatchStr(c.word, c.locale, false));
        EXPECT_EQ(bs.GetPosition(), c.at);
        EXPECT_TRUE(bs.MatchStr(c.word, c.locale, true));
        EXPECT_EQ(bs.GetPosition(), c.at + static_cast<Int64>(c.word.size()));
      }
    }
  }
}

TEST(BufStream, SetSizeCutsBufferedBytesAndGrowsTheStream) {
  ProbeStream target;
  {
    TkxBufStream bs(&target, false, 256);
    const std::string hundred(100, 'w');
    bs.Write(hundred.data(), 100);
    bs.SetSize(50);
    EXPECT_EQ(bs.GetPosition(), 50);
    EXPECT_EQ(bs.GetSize(), 50);
    bs.SetSize(60);
    EXPECT_EQ(target.Bytes().size(), 60u);
    bs.Write("e", 1);
  }
  EXPECT_EQ(target.Bytes(), std::string(50, 'w') + "e" + std::string(9, '\0'));
}

// ---- Failing streams ------------------------------------------------------------------

TEST(BufStream, FailedFlushKeepsTheBufferDirtyAndIsRetried) {
  ProbeStream target("0123456789");
  target.readOnly = true;
  {
    TkxBufStream bs(&target, false, 16);
    // Growing a stream that cannot grow is refused before the bytes enter the buffer.
    bs.Seek(0, soEnd);
    EXPECT_EQ(MessageOf([&] { bs.Write("zz", 2); }), std::string(_SErrBufStmSetSize.View()));
    EXPECT_FALSE(bs.Dirty());
    EXPECT_EQ(bs.GetSize(), 10);
    EXPECT_EQ(bs.GetPosition(), 10);

    bs.SetPosition(0);
    EXPECT_EQ(bs.Write("ab", 2), 2);  // inside the stream: no growth needed
    EXPECT_EQ(MessageOf([&] { bs.FlushBuffer(); }), std::string(_SErrBufStmWrite.View()));
    EXPECT_TRUE(bs.Dirty());
    EXPECT_EQ(target.writes, 1);
    // Leaving the buffer flushes first; when that fails the position stays.
    EXPECT_EQ(MessageOf([&] { bs.SetPosition(8); }), std::string(_SErrBufStmWrite.View()));
    EXPECT_EQ(bs.GetPosition(), 2);
    EXPECT_EQ(target.writes, 2);
  }
  EXPECT_EQ(target.writes, 3);  // and the destructor once more, silently
  EXPECT_EQ(target.Bytes(), "0123456789");
}

TEST(BufStream, FailedSeekOnFlushIsReported) {
  ProbeStream target("0123456789");
  TkxBufStream bs(&target, false, 16);
  bs.Write("ab", 2);
  target.failSeek = true;
  EXPECT_EQ(MessageOf([&] { bs.FlushBuffer(); }), std::string(_SErrBufStmFlushSeek.View()));
  EXPECT_TRUE(bs.Dirty());
  target.failSeek = false;
  bs.FlushBuffer();
  EXPECT_FALSE(bs.Dirty());
  EXPECT_EQ(target.Bytes(), "ab23456789");
}

TEST(BufStream, StreamThatDeliversLessThanItsSizeEndsThere) {
  auto* raw = new ProbeStream("one\ntwo");
  raw->claimedSize = 1 << 30;
  TkxBufStream bs(raw, true, 16);
  std::vector<std::string> lines;
  while (!bs.Eof()) lines.push_back(bs.Readln());
  EXPECT_EQ(lines, (std::vector<std::string>{"one", "two"}));
  bs.SetPosition(0);
  char buf[32];
  EXPECT_EQ(bs.Read(buf, sizeof buf), 7);
  bs.SetPosition(0);
  EXPECT_FALSE(bs.Search("three", false));
  EXPECT_TRUE(bs.Eof());
}

TEST(BufStream, BadConstructionArgumentsRaise) {
  EXPECT_THROW(TkxBufStream(nullptr, true, 16), Exception);
  EXPECT_THROW(TkxBufStream(new ProbeStream("x"), true, 0), Exception);  // and frees it
}

}  // namespace
}  // namespace ostrel
