#include <ostrel/core/BufStream.h>
#include <ostrel/core/ModuleLinks.h>
#include <ostrel/rtl/Strings.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <string>
#include <vector>

namespace ostrel {
namespace {

using testutil::MessageOf;

std::size_t At(Int64 p) { return static_cast<std::size_t>(p); }

// A stream over a string that counts the calls made to it and can be told to fail.
class ProbeStream : public TStream {
 public:
  explicit ProbeStream(std::string_view bytes = {}) : data(bytes) {}
  Integer Read(void* buffer, Integer count) override {
    ++reads;
    if (raiseAt >= 0 && pos >= raiseAt) throw EReadError("probe read failed");
    Int64 n = std::clamp<Int64>(static_cast<Int64>(data.size()) - pos, 0, count);
    if (chunk > 0) n = std::min<Int64>(n, chunk);
    data.copy(static_cast<char*>(buffer), At(n), At(pos));
    pos += n;
    return static_cast<Integer>(n);
  }
  Integer Write(const void* buffer, Integer count) override {
    ++writes;
    if (readOnly || count <= 0) return 0;
    if (pos > static_cast<Int64>(data.size())) data.resize(At(pos));
    data.replace(At(pos), At(count), static_cast<const char*>(buffer), At(count));
    pos += count;
    return count;
  }
  Int64 Seek(Int64 offset, TSeekOrigin origin) override {
    const Int64 from = origin == soBeginning ? 0 : origin == soCurrent ? pos : GetSize();
    if (failSeek || from + offset < 0) return -1;
    return pos = from + offset;
  }
  Int64 GetSize() override {
    return claimedSize >= 0 ? claimedSize : static_cast<Int64>(data.size());
  }
  void SetSize(Int64 size) override {
    if (!readOnly) data.resize(At(size));
  }

  std::string data;
  Int64 pos = 0;
  int reads = 0, writes = 0;
  bool readOnly = false, failSeek = false;
  Int64 claimedSize = -1;  // when set, GetSize reports it whatever the real size
  Integer chunk = 0;       // when set, the most bytes one Read gives
  Int64 raiseAt = -1;      // when set, a Read from there on raises
};

std::string RandomBytes(std::mt19937& rng, std::size_t n) {
  std::string s(n, '\0');
  for (char& c : s) c = static_cast<char>(rng());
  return s;
}

class BufStreamSizes : public ::testing::TestWithParam<int> {};

TEST_P(BufStreamSizes, ReadlnSplitsAtEveryKindOfLineEnd) {
  const std::string nul("nul\0in\r\n", 8);
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"a\r\nb\rc", {"a", "b", "c"}},
      {"\n\nx", {"", "", "x"}},
      {"abc\r", {"abc"}},
      {"\r\n\r\n", {"", ""}},
      {"", {}},
      {"x\n\ry\n", {"x", "", "y"}},  // LF CR is two line ends
      {"a line longer than small buffers\r\nz", {"a line longer than small buffers", "z"}},
      {nul + Ansi(u8"Кириллица"), {nul.substr(0, 6), Ansi(u8"Кириллица")}}};
  for (const auto& [text, expected] : cases) {
    TkxBufStream bs(new ProbeStream(text), true, GetParam());
    std::vector<std::string> lines;
    AnsiString reused;
    while (!bs.Eof() && lines.size() < 10) {  // both forms, alternately
      if (lines.size() % 2 == 0)
        lines.push_back(bs.Readln());
      else
        lines.push_back((bs.Readln(reused), reused));
    }
    EXPECT_EQ(lines, expected) << "buffer " << GetParam() << ", text " << text;
    EXPECT_EQ(bs.Readln(), "");
  }
}

TEST_P(BufStreamSizes, ReadsAndSeeksAgreeWithTheBytes) {
  std::mt19937 rng(static_cast<unsigned>(GetParam()));
  const std::string data = RandomBytes(rng, 5000);
  TkxBufStream bs(new ProbeStream(data), true, GetParam());
  Int64 pos = 0;
  for (int step = 0; step < 3000; ++step) {
    const unsigned op = rng() % 4;
    if (op == 0) {
      const Int64 to = static_cast<Int64>(rng() % 5100) - 50;  // also outside the stream
      pos = std::clamp<Int64>(to, 0, 5000);
      ASSERT_EQ(bs.Seek(to, soBeginning), pos);
    } else if (op == 1) {
      std::string got(rng() % 300, '\0');
      const Integer n = bs.Read(got.data(), static_cast<Integer>(got.size()));
      ASSERT_EQ(got.substr(0, At(n)), data.substr(At(pos), got.size()));
      pos += n;
    } else if (op == 2) {
      ASSERT_EQ(bs.GetChar(), pos < 5000 ? data[At(pos)] : '\0');
      pos = std::min<Int64>(pos + 1, 5000);
    } else {
      const auto n = static_cast<Integer>(rng() % static_cast<unsigned>(GetParam()));
      ASSERT_EQ(bs.CurStr(n), data.substr(At(pos), At(n)));
      if (pos + 1 < 5000 && GetParam() > 2) {
        ASSERT_EQ(bs.NextChar(), data[At(pos) + 1]);
      }
    }
    ASSERT_EQ(bs.GetPosition(), pos);
    ASSERT_EQ(bs.Eof(), pos >= 5000);
  }
}

TEST_P(BufStreamSizes, WritesOverwritesAndReadsBackAgreeWithTheBytes) {
  std::mt19937 rng(static_cast<unsigned>(GetParam()) + 100);
  ProbeStream target(RandomBytes(rng, 700));
  std::string model = target.data;
  {
    TkxBufStream bs(&target, false, GetParam());
    Int64 pos = 0;
    for (int step = 0; step < 2000; ++step) {
      if (rng() % 3 == 0) bs.SetPosition(pos = static_cast<Int64>(rng() % (model.size() + 1)));
      if (rng() % 2 == 0) {
        const std::string piece = RandomBytes(rng, rng() % (3 * static_cast<unsigned>(GetParam())));
        ASSERT_EQ(bs.Write(piece.data(), static_cast<Integer>(piece.size())),
                  static_cast<Integer>(piece.size()));
        model.replace(At(pos), piece.size(), piece);
        pos += static_cast<Int64>(piece.size());
      } else {
        ASSERT_EQ(bs.CurChar(), pos < static_cast<Int64>(model.size()) ? model[At(pos)] : '\0');
      }
      ASSERT_EQ(bs.GetPosition(), pos);
      ASSERT_EQ(bs.GetSize(), static_cast<Int64>(model.size()));
    }
  }
  EXPECT_TRUE(target.data == model);
}

INSTANTIATE_TEST_SUITE_P(BufferSizes, BufStreamSizes, ::testing::Values(2, 3, 7, 64, 4096));

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

TEST(BufStream, PositionsClampToTheStreamAndLookAheadStaysBelowTheBufferSize) {
  TkxBufStream bs(new ProbeStream("xyz"), true, 4);
  bs.SetPosition(3);
  EXPECT_EQ(bs.Seek(-100, soCurrent), 0);
  EXPECT_EQ(bs.GetStr(2), "xy");
  EXPECT_EQ(bs.CurStr(3), "z");
  const std::string tooLong = "TkxBufStream.LoadBuf: Count >= BufSize";
  EXPECT_EQ(MessageOf([&] { bs.CurStr(4); }), tooLong);
  // Also with the whole buffer loaded, where the bytes would be at hand: the look-ahead
  // limit is the same for CurStr, GetStr, MatchStr and Search.
  TkxBufStream full(new ProbeStream("abcdefgh"), true, 4);
  EXPECT_EQ(full.CurChar(), 'a');
  EXPECT_EQ(MessageOf([&] { full.CurStr(4); }), tooLong);
  EXPECT_EQ(MessageOf([&] { full.GetStr(4); }), tooLong);
  EXPECT_EQ(MessageOf([&] { full.MatchStr("abcd", false, true); }), tooLong);
  EXPECT_EQ(full.GetPosition(), 0);
  EXPECT_EQ(full.GetStr(3), "abc");
  EXPECT_EQ(MessageOf([&] { bs.MatchStr("xyza", false, false); }), tooLong);
  EXPECT_EQ(MessageOf([&] { bs.Search("abcde", true); }), tooLong);
  EXPECT_THROW(TkxBufStream(new ProbeStream("x"), true, 0), Exception);  // and frees it
}

TEST(BufStream, MatchAndSearchIgnoreCaseAsAsked) {
  const std::string text = Ansi(u8"Начало: Hello, ПРИВЕТ мир; end");
  const std::string hi = Ansi(u8"привет");
  TkxBufStream bs(new ProbeStream(text), true, 8);
  EXPECT_TRUE(bs.Search("hello", false));
  EXPECT_EQ(bs.GetPosition(), 8);
  EXPECT_TRUE(bs.MatchStr("HELLO", false, true));
  EXPECT_FALSE(bs.Search(hi, false));  // Cyrillic letters need the locale rule
  EXPECT_TRUE(bs.Eof());
  bs.SetPosition(0);
  EXPECT_TRUE(bs.Search(hi, true));
  EXPECT_EQ(bs.GetPosition(), 15);
  EXPECT_FALSE(bs.MatchStr(hi, false, true));
  EXPECT_TRUE(bs.MatchStr(hi, true, true));
  EXPECT_EQ(bs.GetPosition(), 21);
  EXPECT_TRUE(bs.Search("END", false));
  EXPECT_EQ(bs.GetPosition(), static_cast<Int64>(text.size()) - 3);
}

// Search agrees with trying each place in turn, across buffer boundaries and in both letter
// rules, on texts of repeats (where a search that skips is easily misled); and a long text
// costs time in proportion to the stream: 20 MB searched for a near match of 1,000 bytes took
// about 20 seconds when each place was compared in full.
TEST(BufStream, SearchAgreesWithAPlainScanAndStaysLinear) {
  std::mt19937 rng(11);
  auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  for (int round = 0; round < 3000; ++round) {
    std::string period, data, text;
    for (int i = 1 + pick(5); i > 0; --i) period += "aAbB\xE0\xC0"[pick(pick(3) ? 2 : 6)];
    while (data.size() < static_cast<std::size_t>(pick(120))) data += period;
    const Integer bufSize = 4 + pick(40);
    const int length = 1 + pick(static_cast<int>(bufSize) - 1);
    if (pick(4) && data.size() > 0) {
      text = data.substr(static_cast<std::size_t>(pick(static_cast<int>(data.size()))),
                         static_cast<std::size_t>(length));
      if (pick(2)) text[static_cast<std::size_t>(pick(static_cast<int>(text.size())))] ^= 1;
    } else {
      for (int i = length; i > 0; --i) text += "abAB\xE0\xC0"[pick(6)];
    }
    const bool locale = pick(2);
    const Int64 from = pick(static_cast<int>(data.size()) + 1);
    Int64 at = from;
    auto same = [&](Int64 p) {
      const std::string_view here = std::string_view(data).substr(static_cast<std::size_t>(p));
      if (here.size() < text.size()) return false;
      return locale ? AnsiSameText(here.substr(0, text.size()), text)
                    : SameText(here.substr(0, text.size()), text);
    };
    while (at < static_cast<Int64>(data.size()) && !same(at)) ++at;
    TkxBufStream bs(new ProbeStream(data), true, bufSize);
    bs.SetPosition(from);
    ASSERT_EQ(bs.Search(text, locale), at < static_cast<Int64>(data.size()))
        << text << " in " << data << " from " << from << " buffer " << bufSize;
    ASSERT_EQ(bs.GetPosition(), at) << text << " in " << data;
  }

  std::string data(20 << 20, 'a');
  data += std::string(999, 'a') + "b";
  TkxBufStream bs(new ProbeStream(data), true, 1 << 16);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(bs.Search(std::string(999, 'A') + "B", false));
  EXPECT_LT(std::chrono::steady_clock::now() - start, testutil::LinearTimeBudget());
  EXPECT_EQ(bs.GetPosition(), 20 << 20);
}

TEST(BufStream, SetSizeCutsBufferedBytesAndGrowsTheStream) {
  ProbeStream target;
  {
    TkxBufStream bs(&target, false, 256);
    bs.Write(std::string(100, 'w').data(), 100);
    bs.SetSize(50);
    EXPECT_EQ(bs.GetPosition(), 50);
    bs.SetSize(60);
    bs.Write("e", 1);
    // An append is written through by the Write that makes it.
    EXPECT_EQ(target.data, std::string(50, 'w') + "e" + std::string(9, '\0'));
  }
  EXPECT_EQ(target.data, std::string(50, 'w') + "e" + std::string(9, '\0'));
}

TEST(BufStream, RefusedFlushMovesOnKeepsTheBufferDirtyAndKeepsReporting) {
  ProbeStream target("0123456789");
  target.readOnly = true;
  TkxBufStream bs(&target, false, 16);
  // Growing a stream that cannot grow is refused before the bytes enter the buffer.
  bs.Seek(0, soEnd);
  EXPECT_EQ(MessageOf([&] { bs.Write("zz", 2); }), _SErrBufStmSetSize.Str());
  EXPECT_FALSE(bs.Dirty());
  EXPECT_EQ(bs.GetSize(), 10);

  bs.SetPosition(0);
  // The write reaches the end of the buffered bytes, so it goes through at once; the stream
  // refuses. The position has moved past the bytes all the same, and they stay dirty.
  const std::string refused = _SErrBufStmWrite.Str();
  EXPECT_EQ(MessageOf([&] { bs.Write("ab", 2); }), refused);
  EXPECT_TRUE(bs.Dirty());
  EXPECT_EQ(bs.GetPosition(), 2);
  // Whatever needs the buffer elsewhere tries the flush again and reports again; nothing
  // serves the refused bytes as if they had been written.
  char buf[4];
  EXPECT_EQ(MessageOf([&] { bs.GetChar(); }), refused);
  EXPECT_EQ(MessageOf([&] { bs.Read(buf, 2); }), refused);
  EXPECT_EQ(MessageOf([&] { bs.Readln(); }), refused);
  EXPECT_EQ(MessageOf([&] { bs.SetPosition(8); }), refused);
  EXPECT_EQ(bs.GetPosition(), 8);
  EXPECT_EQ(MessageOf([&] { bs.Write("c", 1); }), refused);
  EXPECT_EQ(MessageOf([&] { bs.Seek(-5, soCurrent); }), refused);
  EXPECT_EQ(bs.GetPosition(), 3);
  EXPECT_EQ(MessageOf([&] { bs.CurStr(3); }), refused);
  EXPECT_EQ(bs.GetPosition(), 3);
  // Back over the dirty bytes nothing needs the stream: they read as written.
  bs.SetPosition(0);
  EXPECT_EQ(bs.CurStr(2), "ab");
  target.failSeek = true;
  EXPECT_EQ(MessageOf([&] { bs.FlushBuffer(); }), _SErrBufStmFlushSeek.Str());
  target.failSeek = false;
  target.readOnly = false;
  bs.FlushBuffer();
  EXPECT_EQ(target.data, "ab23456789");
  EXPECT_EQ(bs.GetStr(3), "ab2");
}

TEST(BufStream, CloseReportsAFailedFlushAndDestructionDoesNotLoseOneSilently) {
  ProbeStream target("0123456789");
  target.readOnly = true;
  // Loads the buffer and overwrites its first bytes: they stay dirty in it, nothing raised.
  auto overwrite = [](TkxBufStream& bs, std::string_view text) {
    bs.SetPosition(0);
    bs.GetChar();
    bs.SetPosition(0);
    bs.Write(text.data(), static_cast<Integer>(text.size()));
  };
  const std::string refused = _SErrBufStmWrite.Str();
  {
    TkxBufStream bs(&target, false, 16);
    overwrite(bs, "ab");
    EXPECT_TRUE(bs.Dirty());
    EXPECT_EQ(MessageOf([&] { bs.Close(); }), refused);
    EXPECT_EQ(bs.Stream(), &target);  // kept for another try
    target.readOnly = false;
    bs.Close();
    EXPECT_EQ(bs.Stream(), nullptr);
    EXPECT_EQ(MessageOf([&] { bs.Write("x", 1); }), "TkxBufStream: stream closed");
  }
  EXPECT_EQ(target.data, "ab23456789");

  // The destructor cannot raise: with a monitor registered it reports there ...
  target.readOnly = true;
  auto* monitor = new testutil::TRecordingMonitor;
  IPtr<IkxSysMonitor> keep(monitor);
  TkxSysMonitor::RegIntf(keep);
  {
    TkxBufStream bs(&target, false, 16);
    overwrite(bs, "xy");
    EXPECT_TRUE(bs.Dirty());
  }
  TkxSysMonitor::RegIntf(nullptr);
  EXPECT_EQ(monitor->log,
            "start TkxBufStream|Destroy|" + refused + "|; next 42||" + refused + "; ");
  // ... and on standard error otherwise.
  testing::internal::CaptureStderr();
  {
    TkxBufStream bs(&target, false, 16);
    overwrite(bs, "xy");
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "TkxBufStream: " + AnsiToUtf8(refused) + "\n");
  EXPECT_EQ(target.data, "ab23456789");
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

TEST(BufStream, ShortReadsFillTheBuffer) {
  // However few bytes the stream gives at a time, a look-ahead sees all that it asks for.
  for (Integer chunk = 1; chunk <= 9; ++chunk) {
    auto* raw = new ProbeStream("<![CDATA[x]]>\r\nnext line");
    raw->chunk = chunk;
    TkxBufStream bs(raw, true, 16);
    EXPECT_TRUE(bs.MatchStr("<![cdata[", false, true)) << chunk;
    EXPECT_EQ(bs.CurStr(4), "x]]>") << chunk;
    EXPECT_EQ(bs.Readln(), "x]]>");
    EXPECT_EQ(bs.Readln(), "next line");
    EXPECT_TRUE(bs.Eof());
  }
}

TEST(BufStream, StreamErrorsAreNotTheEnd) {
  // A stream that raises part-way: the error reaches the reader after the bytes before it.
  auto* raw = new ProbeStream("0123456789abcdefghij");
  raw->raiseAt = 12;
  raw->chunk = 5;
  TkxBufStream bs(raw, true, 8);
  char buf[32];
  EXPECT_EQ(bs.Read(buf, 8), 8);
  EXPECT_EQ(MessageOf<EReadError>([&] { bs.Read(buf, 8); }), "probe read failed");
  EXPECT_EQ(MessageOf<EReadError>([&] { bs.Readln(); }), "probe read failed");
  // A seek that does not land when the buffer is reloaded is an error too.
  raw->raiseAt = -1;
  raw->failSeek = true;
  bs.SetPosition(0);
  EXPECT_EQ(MessageOf([&] { bs.GetChar(); }), "TkxBufStream.LoadBuf: cannot seek the stream to 0");
}

}  // namespace
}  // namespace ostrel
