// CommModeToDCB: the Windows mode-string syntax. Windows parses it itself (BuildCommDCBA, in
// CommDeviceWin.cpp); elsewhere this is the parser.
#include <ostrel/devices/Kxcommport.h>

#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>

#include <cstring>
#include <optional>
#include <vector>

#ifndef _WIN32

namespace ostrel {

namespace {

std::vector<AnsiString> Split(std::string_view s, char separator) {
  std::vector<AnsiString> parts;
  std::size_t start = 0;
  for (;;) {
    std::size_t end = s.find(separator, start);
    parts.push_back(Trim(s.substr(start, end == std::string_view::npos ? end : end - start)));
    if (end == std::string_view::npos) return parts;
    start = end + 1;
  }
}

// A rate: a positive number, the two-digit classic abbreviations standing for their rates.
std::optional<Cardinal> ParseRate(std::string_view s) {
  Int64 v = 0;
  if (s.empty() || s.size() > 9 || !TryStrToInt64(s, v) || v <= 0 || s[0] < '0' || s[0] > '9')
    return std::nullopt;
  static constexpr std::pair<int, Cardinal> shortRates[] = {{11, 110},  {15, 150},  {30, 300},
                                                            {60, 600},  {12, 1200}, {24, 2400},
                                                            {48, 4800}, {96, 9600}, {19, 19200}};
  if (s.size() == 2)
    for (auto [abbr, rate] : shortRates)
      if (v == abbr) return rate;
  return static_cast<Cardinal>(v);
}

std::optional<Byte> ParseParity(std::string_view s) {
  if (s.size() != 1) return std::nullopt;
  switch (AnsiLowerChar(s[0])) {
    case 'n': return ptNone;
    case 'o': return ptOdd;
    case 'e': return ptEven;
    case 'm': return ptMark;
    case 's': return ptSpace;
    default: return std::nullopt;
  }
}

std::optional<Byte> ParseData(std::string_view s) {
  if (s.size() == 1 && s[0] >= '5' && s[0] <= '8') return static_cast<Byte>(s[0] - '0');
  return std::nullopt;
}

std::optional<Byte> ParseStop(std::string_view s) {
  if (s == "1") return sb1;
  if (s == "1.5") return sb1p5;
  if (s == "2") return sb2;
  return std::nullopt;
}

// "on"/"off" as the flag bit set or cleared in flags.
bool ParseSwitch(std::string_view s, Cardinal bit, Cardinal& flags) {
  if (SameText(s, "on")) {
    flags |= bit;
  } else if (SameText(s, "off")) {
    flags &= ~bit;
  } else {
    return false;
  }
  return true;
}

// A DTR or RTS control field: on, off, hs (handshake) and, for RTS, tg (toggle).
bool ParseControl(std::string_view s, Cardinal mask, Cardinal enable, Cardinal handshake,
                  std::optional<Cardinal> toggle, Cardinal& flags) {
  Cardinal value;
  if (SameText(s, "on"))
    value = enable;
  else if (SameText(s, "off"))
    value = 0;
  else if (SameText(s, "hs"))
    value = handshake;
  else if (toggle && SameText(s, "tg"))
    value = *toggle;
  else
    return false;
  flags = (flags & ~mask) | value;
  return true;
}

bool ParseKeyed(std::string_view text, TDCB& dcb) {
  TDCB d = dcb;
  bool haveRate = false;
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
    if (i >= text.size()) break;
    std::size_t end = text.find_first_of(" \t", i);
    if (end == std::string_view::npos) end = text.size();
    std::string_view item = text.substr(i, end - i);
    i = end;
    std::size_t eq = item.find('=');
    if (eq == std::string_view::npos) return false;
    AnsiString key = LowerCase(item.substr(0, eq));
    std::string_view value = item.substr(eq + 1);
    bool ok = true;
    if (key == "baud") {
      auto r = ParseRate(value);
      ok = r.has_value();
      if (ok) d.BaudRate = *r, haveRate = true;
    } else if (key == "parity") {
      auto r = ParseParity(value);
      ok = r.has_value();
      if (ok) d.Parity = *r;
    } else if (key == "data") {
      auto r = ParseData(value);
      ok = r.has_value();
      if (ok) d.ByteSize = *r;
    } else if (key == "stop") {
      auto r = ParseStop(value);
      ok = r.has_value();
      if (ok) d.StopBits = *r;
    } else if (key == "xon") {
      ok = ParseSwitch(value, DcbFlag::OutX | DcbFlag::InX, d.Flags);
    } else if (key == "odsr") {
      ok = ParseSwitch(value, DcbFlag::OutxDsrFlow, d.Flags);
    } else if (key == "octs") {
      ok = ParseSwitch(value, DcbFlag::OutxCtsFlow, d.Flags);
    } else if (key == "idsr") {
      ok = ParseSwitch(value, DcbFlag::DsrSensitivity, d.Flags);
    } else if (key == "dtr") {
      ok = ParseControl(value, DcbFlag::DtrControlMask, DcbFlag::DtrEnable, DcbFlag::DtrHandshake,
                        std::nullopt, d.Flags);
    } else if (key == "rts") {
      ok = ParseControl(value, DcbFlag::RtsControlMask, DcbFlag::RtsEnable, DcbFlag::RtsHandshake,
                        DcbFlag::RtsToggle, d.Flags);
    } else if (key == "to") {
      Cardinal ignored = 0;  // time-outs are not part of the DCB
      ok = ParseSwitch(value, 1, ignored);
    } else {
      ok = false;
    }
    if (!ok) return false;
  }
  if (!haveRate) return false;
  dcb = d;
  return true;
}

bool ParsePositional(std::string_view text, TDCB& dcb) {
  std::vector<AnsiString> f = Split(text, ',');
  if (f.size() > 5) return false;
  f.resize(5);
  auto rate = ParseRate(f[0]);
  if (!rate) return false;  // the default stop bits depend on it
  auto parity = f[1].empty() ? std::optional<Byte>(ptEven) : ParseParity(f[1]);
  auto data = f[2].empty() ? std::optional<Byte>(7) : ParseData(f[2]);
  auto stop = f[3].empty() ? std::optional<Byte>(*rate == 110 ? sb2 : sb1) : ParseStop(f[3]);
  // The retry letter of the mode command has no meaning for the device block.
  bool retry = f[4].empty() || (f[4].size() == 1 && std::strchr("pPeEbBrRnN", f[4][0]));
  if (!parity || !data || !stop || !retry) return false;
  dcb.BaudRate = *rate;
  dcb.Parity = *parity;
  dcb.ByteSize = *data;
  dcb.StopBits = *stop;
  return true;
}

}  // namespace

bool CommModeToDCB(std::string_view mode, TDCB& dcb) {
  AnsiString text = Trim(mode);
  // A leading device name ("COM3:") is allowed, as the system allows it.
  if (text.size() > 3 && SameText(text.substr(0, 3), "COM")) {
    std::size_t colon = text.find(':');
    if (colon != std::string::npos) {
      Integer n = 0;
      if (!TryStrToInt(text.substr(3, colon - 3), n)) return false;
      text = TrimLeft(text.substr(colon + 1));
    }
  }
  if (text.empty()) return false;
  return text.find('=') != std::string::npos ? ParseKeyed(text, dcb) : ParsePositional(text, dcb);
}

}  // namespace ostrel

#endif
