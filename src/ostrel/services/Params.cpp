// Parameter references in text, command-line switches and the application variables.
#include <ostrel/services/Params.h>

#include <ostrel/rtl/Process.h>
#include <ostrel/rtl/Variants.h>
#include <ostrel/services/ErrServ.h>

#include <array>

namespace ostrel {

namespace {

constexpr TCharSet kQuoteChars{'"', '\''};
constexpr TCharSet kNameChars{'$', {'0', '9'}, {'A', 'Z'}, {'a', 'z'}, '_'};
constexpr TCharSet kSwitchChars{'-', '/'};
constexpr TCharSet kValuePrefixChars{':', '='};

}  // namespace

AnsiString ParseParams(std::string_view text, const IPtr<IDump>& dump, char marker, bool strict) {
  // The walk ends at the first zero character, as it always has for these templates.
  const std::size_t zero = text.find('\0');
  if (zero != std::string_view::npos) text = text.substr(0, zero);
  const std::size_t n = text.size();

  enum class State { Normal, Quoted, Name };
  State state = State::Normal;
  AnsiString result;
  result.reserve(n + n / 2);
  AnsiString name;
  char openQuote = 0;
  bool quotedName = false;
  std::size_t refStart = 0;
  std::size_t i = 0;

  while (i < n) {
    const char c = text[i];
    switch (state) {
      case State::Normal:
        if (c == marker) {
          ++i;
          if (i < n && text[i] == marker) {
            result += marker;
            ++i;
          } else {
            refStart = i - 1;
            name.clear();
            quotedName = false;
            state = State::Name;
          }
          continue;
        }
        if (kQuoteChars.Contains(c)) {
          openQuote = c;
          state = State::Quoted;
        }
        result += c;
        ++i;
        continue;

      case State::Quoted:
        if (c == openQuote) state = State::Normal;
        result += c;
        ++i;
        continue;

      case State::Name: {
        bool ended = false;
        if (quotedName) {
          if (c == '"') {
            ++i;
            ended = true;
          } else {
            name += c;
          }
        } else if (c == '"' && name.empty()) {
          quotedName = true;
        } else if (kNameChars.Contains(c)) {
          name += c;
        } else {
          ended = true;  // the character stays under the cursor for the normal state
        }
        if (!ended) {
          ++i;
          if (i < n) continue;  // the end of the text ends the name as well
        }

        if (!dump) DIE("ParseParams: no parameter dump");
        Variant value;
        const Integer index = dump->IndexOf(name);
        if (index >= 0) {
          value = dump->get_Value(index);
        } else {
          if (strict) DIE(_SErrParamNotFound, name);
          dump->set_ByName(name, Variant());
        }
        if (VarIsEmpty(value)) {
          if (strict) DIE(_SErrParamIsEmpty, name);
          result.append(text.substr(refStart, i - refStart));
        } else {
          result += VarToStr(value);
        }
        state = State::Normal;
        continue;
      }
    }
  }
  return result;
}

AnsiString ReplaceParams(std::string_view text, const IPtr<IDump>& dump, char marker, bool strict) {
  return ParseParams(text, dump, marker, strict);
}

// ---------------------------------------------------------------------------------------
// Command line

void GetCmdParams(const IPtr<IDump>& dump, bool stripSwitch) {
  GetCmdParams(dump, stripSwitch, GetProcessArgs());
}

void GetCmdParams(const IPtr<IDump>& dump, bool stripSwitch, const std::vector<AnsiString>& args) {
  if (!dump) DIE("GetCmdParams: no parameter dump");
  auto arg = [&](std::size_t k) -> const AnsiString* {
    return k < args.size() ? &args[k] : nullptr;
  };
  std::size_t i = 1;
  while (arg(i) && !arg(i)->empty()) {
    AnsiString key = *arg(i);
    if (kSwitchChars.Contains(key[0])) key.erase(0, 1);
    if (!stripSwitch) key.insert(key.begin(), '-');

    AnsiString value;
    bool expectValue = false;
    const std::size_t eq = key.find('=');
    if (eq != AnsiString::npos) {
      value = Trim(std::string_view(key).substr(eq + 1));
      key = Trim(std::string_view(key).substr(0, eq));
      expectValue = true;
    } else if (const AnsiString* next = arg(i + 1);
               next && !next->empty() && kValuePrefixChars.Contains((*next)[0])) {
      value = next->substr(1);
      ++i;
      expectValue = true;
    }
    if (expectValue && value.empty() && arg(i + 1)) {
      value = *arg(i + 1);
      ++i;
    }
    dump->set_ByName(key, Variant(Trim(value)));
    ++i;
  }
}

// ---------------------------------------------------------------------------------------
// Booleans and the environment

bool Str2Bool(std::string_view text) {
  static constexpr auto kDa = Cp1251(u8"ДА");
  static constexpr auto kD = Cp1251(u8"Д");
  static constexpr std::array<std::string_view, 9> kTrue = {
      "1", "T", "TRUE", "Y", "YES", kD.View(), kDa.View(), "OK", "ON"};
  for (std::string_view t : kTrue)
    if (AnsiSameText(text, t)) return true;
  return false;
}

AnsiString GetEnv(std::string_view name, std::string_view def) {
  AnsiString value = ProcessEnvValue(name);
  return value.empty() ? AnsiString(def) : value;
}

bool SetEnv(std::string_view name, std::string_view value) {
  return SetProcessEnvValue(name, value);
}

bool SetEnvLoginInfo(std::string_view user, std::string_view password) {
  SetEnv("APP$UID", user);
  return SetEnv("APP$PWD", password);
}

AnsiString GetComputerNameStr() { return HostComputerName(); }

void LoadAppVars(const IPtr<IDump>& dump) {
  if (!dump) DIE("LoadAppVars: no parameter dump");
  dump->set_ByName("USER_NAME", Variant(GetEnv("APP$UID", "")));
  dump->set_ByName("PROFILE_NAME", Variant(GetEnv("APP$PROFILE", "")));
  dump->set_ByName("DATABASE_NAME", Variant(GetEnv("APP$DBN", "")));
  dump->set_ByName("COMPUTER_NAME", Variant(GetComputerNameStr()));
  dump->set_ByName("UID", dump->get_ByName("USER_NAME"));
  dump->set_ByName("PID", dump->get_ByName("PROFILE_NAME"));
  dump->set_ByName("DBN", dump->get_ByName("DATABASE_NAME"));
}

}  // namespace ostrel
