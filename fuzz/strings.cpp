// The string helpers that split text: ExtractStr, ExtractWord, GetSubStr and StrDiv with a
// fuzzed character set and start position. Tokens never hold a delimiter, and scanning a
// text token by token ends.
#include <FuzzUtil.h>

#include <ostrel/services/Sysserv.h>

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input in(data, size);
  std::string_view delimiters = in.Text();
  TCharSet set = TCharSet::Of(delimiters);
  int pos = static_cast<int>(in.Raw<std::int16_t>());
  int n = static_cast<int>(in.Raw<std::int16_t>());
  char ch = static_cast<char>(in.Byte());
  std::string_view s = in.Rest();

  auto clean = [&](const AnsiString& token) {
    for (char c : token)
      if (set.Contains(c)) return false;
    return true;
  };

  int p = pos;
  AnsiString token;
  std::size_t rounds = 0;
  while (ExtractStr(s, p, set, token)) {
    fuzz::Require(!token.empty() && clean(token), "ExtractStr gives a delimiter or nothing", token);
    fuzz::Require(++rounds <= s.size(), "ExtractStr does not move on", s);
  }
  p = pos;
  fuzz::Require(clean(GetSubStr(s, p, set)), "GetSubStr passes a delimiter", s);
  if (pos >= 1 && static_cast<std::size_t>(pos) <= s.size() + 1)
    fuzz::Require(p >= pos && static_cast<std::size_t>(p) <= s.size() + 1,
                  "GetSubStr leaves the position outside the text", s);
  fuzz::Require(clean(ExtractWord(n, s, set)), "ExtractWord gives a delimiter", s);
  AnsiString tail;
  StrDiv(s, tail, ch);
  return 0;
}
