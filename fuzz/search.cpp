// The substring searches: Pos from any offset, AnsiPosText and StringReplaceAll in both letter
// rules agree with comparing the pattern at each place in turn, for patterns of any length
// (long ones are searched another way than short ones).
#include <FuzzUtil.h>

#include <ostrel/rtl/Strings.h>

using namespace ostrel;

namespace {

// Where sub first stands in s at or after from (1-based), 0 when nowhere.
int PlainPos(std::string_view sub, std::string_view s, std::size_t from, bool fold) {
  for (std::size_t i = from; i + sub.size() <= s.size(); ++i)
    if (fold ? AnsiSameText(s.substr(i, sub.size()), sub) : s.substr(i, sub.size()) == sub)
      return static_cast<int>(i) + 1;
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  const int offset = static_cast<int>(in.Raw<std::int16_t>());
  const bool fold = in.Bool();
  // The pattern is either its own text or a piece of the searched text, so that matches and
  // near matches of long patterns come up often.
  const bool piece = in.Bool();
  const std::size_t at = in.Byte() * 16u, length = in.Byte() * 2u + 1;
  std::string_view own = in.Text();
  const std::string_view s = in.Rest();
  const std::string sub(piece ? s.substr(std::min(at, s.size()), length) : own);

  int want = 0;
  if (!sub.empty() && offset >= 1 && static_cast<std::size_t>(offset) <= s.size())
    want = PlainPos(sub, s, static_cast<std::size_t>(offset - 1), false);
  fuzz::Require(Pos(sub, s, offset) == want, "Pos differs from a plain scan", sub);
  want = sub.empty() ? 0 : PlainPos(sub, s, 0, true);
  fuzz::Require(AnsiPosText(sub, s) == want, "AnsiPosText differs from a plain scan", sub);

  AnsiString replaced;
  if (sub.empty()) {
    replaced = AnsiString(s);
  } else {
    std::size_t i = 0;
    for (int p; (p = PlainPos(sub, s, i, fold)) > 0;
         i = static_cast<std::size_t>(p - 1) + sub.size())
      replaced += AnsiString(s.substr(i, static_cast<std::size_t>(p - 1) - i)) + "#";
    replaced += AnsiString(s.substr(i));
  }
  fuzz::Require(StringReplaceAll(s, sub, "#", fold) == replaced,
                "StringReplaceAll differs from a plain scan", sub);
  return 0;
}
