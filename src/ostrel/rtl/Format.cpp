// Format settings, Format and the number <-> text conversions. Everything here is written
// against the library's own settings record; the host locale is never consulted.
//
// How digits are chosen. A float is first turned into 18 significant decimal digits taken
// from its exact binary value (correctly rounded, ties to even, as the x87 packed-decimal
// store produces them). Those 18 digits are then cut to the requested precision or number of
// decimals by looking at the next digit only: '5' and above round away from zero. Because
// the cut looks at the 18 produced digits and not at the binary value, 2.675L (whose 18
// digits are 2.67500000000000000) gives "2,68" with two decimals, while the double 2.675
// (2.67499999999999982) gives "2,67". Currency values are exact, so their digits are the
// scaled integer's own.

#include <ostrel/rtl/Format.h>

#include <ostrel/rtl/Extended80.h>
#include <ostrel/rtl/System.h>
#include <ostrel/rtl/detail/Common.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace ostrel {

static_assert(std::numeric_limits<Extended>::digits >= 53, "Extended must hold a double");

// ---------------------------------------------------------------------------------------
// Settings

TFormatSettings TFormatSettings::Russian() {
  TFormatSettings s{};
  s.DecimalSeparator = ',';
  s.ThousandSeparator = '\xA0';
  s.DateSeparator = '.';
  s.TimeSeparator = ':';
  s.ListSeparator = ';';
  s.ShortDateFormat = "dd.mm.yyyy";
  s.LongDateFormat = Cp1251(u8"d mmmm yyyy 'г.'").Str();
  s.ShortTimeFormat = "h:mm";
  s.LongTimeFormat = "h:mm:ss";
  s.CurrencyString = Cp1251(u8"р.").Str();
  s.CurrencyFormat = 3;
  s.NegCurrFormat = 8;
  s.CurrencyDecimals = 2;
  s.TwoDigitYearCenturyWindow = 50;
  s.LongMonthNames = {
      Cp1251(u8"Январь").Str(),  Cp1251(u8"Февраль").Str(), Cp1251(u8"Март").Str(),
      Cp1251(u8"Апрель").Str(),  Cp1251(u8"Май").Str(),     Cp1251(u8"Июнь").Str(),
      Cp1251(u8"Июль").Str(),    Cp1251(u8"Август").Str(),  Cp1251(u8"Сентябрь").Str(),
      Cp1251(u8"Октябрь").Str(), Cp1251(u8"Ноябрь").Str(),  Cp1251(u8"Декабрь").Str()};
  s.ShortMonthNames = {Cp1251(u8"янв").Str(), Cp1251(u8"фев").Str(), Cp1251(u8"мар").Str(),
                       Cp1251(u8"апр").Str(), Cp1251(u8"май").Str(), Cp1251(u8"июн").Str(),
                       Cp1251(u8"июл").Str(), Cp1251(u8"авг").Str(), Cp1251(u8"сен").Str(),
                       Cp1251(u8"окт").Str(), Cp1251(u8"ноя").Str(), Cp1251(u8"дек").Str()};
  s.LongDayNames = {Cp1251(u8"воскресенье").Str(), Cp1251(u8"понедельник").Str(),
                    Cp1251(u8"вторник").Str(),     Cp1251(u8"среда").Str(),
                    Cp1251(u8"четверг").Str(),     Cp1251(u8"пятница").Str(),
                    Cp1251(u8"суббота").Str()};
  s.ShortDayNames = {Cp1251(u8"Вс").Str(), Cp1251(u8"Пн").Str(), Cp1251(u8"Вт").Str(),
                     Cp1251(u8"Ср").Str(), Cp1251(u8"Чт").Str(), Cp1251(u8"Пт").Str(),
                     Cp1251(u8"Сб").Str()};
  return s;
}

TFormatSettings TFormatSettings::Invariant() {
  TFormatSettings s{};
  s.DecimalSeparator = '.';
  s.ThousandSeparator = ',';
  s.DateSeparator = '/';
  s.TimeSeparator = ':';
  s.ListSeparator = ',';
  s.ShortDateFormat = "MM/dd/yyyy";
  s.LongDateFormat = "dddd, dd MMMM yyyy";
  s.ShortTimeFormat = "HH:mm";
  s.LongTimeFormat = "HH:mm:ss";
  s.TimeAMString = "AM";
  s.TimePMString = "PM";
  s.CurrencyString = "\xA4";  // the generic currency sign
  s.CurrencyFormat = 0;
  s.NegCurrFormat = 0;
  s.CurrencyDecimals = 2;
  s.TwoDigitYearCenturyWindow = 50;
  s.LongMonthNames = {"January", "February", "March",     "April",   "May",      "June",
                      "July",    "August",   "September", "October", "November", "December"};
  s.ShortMonthNames = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  s.LongDayNames = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  s.ShortDayNames = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  return s;
}

TFormatSettings FormatSettings = TFormatSettings::Russian();

TFormatSettingsGuard::TFormatSettingsGuard() : fSaved(FormatSettings) {}

TFormatSettingsGuard::TFormatSettingsGuard(const TFormatSettings& replaceWith)
    : fSaved(FormatSettings) {
  FormatSettings = replaceWith;
}

// Swapping back cannot throw, unlike a copy, so the destructor is safe during unwinding.
TFormatSettingsGuard::~TFormatSettingsGuard() { std::swap(FormatSettings, fSaved); }

namespace {

// ---------------------------------------------------------------------------------------
// Small helpers

// Fills the single "%s" of a message pattern; messages must not depend on Format itself,
// which reports its own errors through them.
AnsiString FillMessage(std::string_view pattern, std::string_view arg) {
  AnsiString out(pattern);
  std::size_t at = out.find("%s");
  if (at != AnsiString::npos) out.replace(at, 2, arg);
  return out;
}

[[noreturn]] void ConvertError(std::string_view pattern, std::string_view arg) {
  throw EConvertError(FillMessage(pattern, arg));
}

[[noreturn]] void InvalidFormat(std::string_view fmt) {
  ConvertError(SysConst::SInvalidFormat, fmt);
}

AnsiString UnsignedToText(UInt64 v) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, v);
  return AnsiString(buf, r.ptr);
}

AnsiString HexText(UInt64 v, int minDigits) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  char buf[16];
  int n = 0;
  do {
    buf[n++] = kHex[v & 15];
    v >>= 4;
  } while (v != 0);
  AnsiString out;
  if (minDigits > n) out.assign(static_cast<std::size_t>(minDigits - n), '0');
  while (n > 0) out += buf[--n];
  return out;
}

// A number's digits padded with leading zeros to minDigits; a minus sign stays in front.
AnsiString PadDigits(AnsiString text, int minDigits) {
  std::size_t start = (!text.empty() && text[0] == '-') ? 1 : 0;
  int have = static_cast<int>(text.size() - start);
  if (minDigits > have) text.insert(start, static_cast<std::size_t>(minDigits - have), '0');
  return text;
}

// ---------------------------------------------------------------------------------------
// Decimal digits of a value: value = 0.d1d2d3... * 10^Exponent.

struct FloatRec {
  enum Kind : Byte { Finite, Infinite, NotANumber };
  Kind kind = Finite;
  bool negative = false;
  int exponent = 0;
  int count = 0;  // significant digits, no trailing zeros; 0 for zero
  char digits[24] = {};

  char Digit(int i) const { return i >= 0 && i < count ? digits[i] : '0'; }
  bool IsZero() const { return kind == Finite && count == 0; }
};

constexpr int kExtendedDigits = 18;  // what the classic digit generator produces
constexpr int kCurrencyPrecision = 19;

void StripTrailingZeros(FloatRec& rec) {
  while (rec.count > 0 && rec.digits[rec.count - 1] == '0') --rec.count;
  if (rec.count == 0) {
    rec.exponent = 0;
    rec.negative = false;  // a value that rounds to zero shows no sign
  }
}

// Cuts the digits at min(precision, decimals + exponent), rounding half away from zero on
// the next digit.
void RoundRec(FloatRec& rec, int precision, int decimals) {
  if (rec.kind != FloatRec::Finite || rec.count == 0) return;
  int n = precision;
  if (decimals < n - rec.exponent) n = decimals + rec.exponent;
  if (n < 0) {
    rec.count = 0;
  } else if (n < rec.count) {
    bool up = rec.digits[n] >= '5';
    rec.count = n;
    if (up) {
      int i = n - 1;
      while (i >= 0 && rec.digits[i] == '9') rec.digits[i--] = '0';
      if (i >= 0) {
        ++rec.digits[i];
      } else {
        rec.digits[0] = '1';
        rec.count = 1;
        ++rec.exponent;
      }
    }
  }
  StripTrailingZeros(rec);
}

FloatRec MakeRec(Extended value, int precision, int decimals) {
  FloatRec rec;
  if (std::isnan(value)) {
    rec.kind = FloatRec::NotANumber;
    return rec;
  }
  rec.negative = std::signbit(value);
  if (std::isinf(value)) {
    rec.kind = FloatRec::Infinite;
    return rec;
  }
  if (value == 0) {
    rec.negative = false;
    return rec;
  }
  // The digits of the 80-bit value on every platform (a wider long double is rounded to it
  // first), so that texts do not depend on the runtime's long double formatting.
  rec.count = kExtendedDigits;
  rec.exponent = Extended80Digits(Abs(Extended80(value)), kExtendedDigits, rec.digits) + 1;
  RoundRec(rec, std::min(precision, kExtendedDigits), decimals);
  return rec;
}

FloatRec MakeCurrRec(Int64 raw, int precision, int decimals) {
  FloatRec rec;
  rec.negative = raw < 0;
  UInt64 mag = raw < 0 ? UInt64{0} - static_cast<UInt64>(raw) : static_cast<UInt64>(raw);
  if (mag == 0) {
    rec.negative = false;
    return rec;
  }
  auto r = std::to_chars(rec.digits, rec.digits + sizeof rec.digits, mag);
  rec.count = static_cast<int>(r.ptr - rec.digits);
  rec.exponent = rec.count - 4;
  StripTrailingZeros(rec);
  RoundRec(rec, std::min(precision, kCurrencyPrecision), decimals);
  return rec;
}

void PutExponent(AnsiString& out, int exp, int minDigits, bool alwaysSign) {
  out += 'E';
  if (exp < 0)
    out += '-';
  else if (alwaysSign)
    out += '+';
  out += PadDigits(UnsignedToText(static_cast<UInt64>(exp < 0 ? -exp : exp)),
                   std::clamp(minDigits, 0, 4));
}

// Integer part of rec with optional grouping, then `decimals` fraction digits.
AnsiString FixedText(const FloatRec& rec, int decimals, char thousands, const TFormatSettings& s) {
  AnsiString out;
  int e = rec.exponent;
  if (e > 0) {
    for (int i = 0; i < e; ++i) {
      if (thousands != '\0' && i > 0 && (e - i) % 3 == 0) out += thousands;
      out += rec.Digit(i);
    }
  } else {
    out += '0';
  }
  if (decimals > 0) {
    out += s.DecimalSeparator;
    for (int i = 0; i < decimals; ++i) out += rec.Digit(e + i);
  }
  return out;
}

AnsiString CurrencyLayout(const AnsiString& num, bool negative, const TFormatSettings& s) {
  const AnsiString& c = s.CurrencyString;
  if (!negative) {
    switch (s.CurrencyFormat) {
      case 0: return c + num;
      case 1: return num + c;
      case 2: return c + ' ' + num;
      default: return num + ' ' + c;
    }
  }
  switch (s.NegCurrFormat) {
    case 0: return '(' + c + num + ')';
    case 1: return '-' + c + num;
    case 2: return c + '-' + num;
    case 3: return c + num + '-';
    case 4: return '(' + num + c + ')';
    case 5: return '-' + num + c;
    case 6: return num + '-' + c;
    case 7: return num + c + '-';
    case 8: return '-' + num + ' ' + c;
    case 9: return '-' + c + ' ' + num;
    case 10: return num + ' ' + c + '-';
    case 11: return c + ' ' + num + '-';
    case 12: return c + ' ' + '-' + num;
    case 13: return num + '-' + ' ' + c;
    case 14: return '(' + c + ' ' + num + ')';
    default: return '(' + num + ' ' + c + ')';
  }
}

// The text of a rounded record. precision is the significant-digit limit already applied;
// digits means decimals for the fixed formats and the minimum exponent width otherwise.
AnsiString FloatText(const FloatRec& rec, TFloatFormat format, int precision, int digits,
                     const TFormatSettings& s) {
  if (rec.kind == FloatRec::NotANumber) return "NAN";
  if (rec.kind == FloatRec::Infinite) return rec.negative ? "-INF" : "INF";
  // Too many integer digits for the fixed formats: fall back to the general form.
  if (format != ffExponent && rec.exponent > precision) format = ffGeneral;

  AnsiString out;
  switch (format) {
    case ffGeneral: {
      if (rec.negative) out += '-';
      int e = rec.exponent;
      if (e > precision || e < -3) {
        out += rec.Digit(0);
        if (rec.count > 1) {
          out += s.DecimalSeparator;
          out.append(rec.digits + 1, static_cast<std::size_t>(rec.count - 1));
        }
        PutExponent(out, e - 1, digits, false);
      } else if (e <= 0) {
        out += '0';
        if (rec.count > 0) {
          out += s.DecimalSeparator;
          out.append(static_cast<std::size_t>(-e), '0');
          out.append(rec.digits, static_cast<std::size_t>(rec.count));
        }
      } else {
        for (int i = 0; i < e; ++i) out += rec.Digit(i);
        if (rec.count > e) {
          out += s.DecimalSeparator;
          out.append(rec.digits + e, static_cast<std::size_t>(rec.count - e));
        }
      }
      return out;
    }
    case ffExponent: {
      if (rec.negative) out += '-';
      out += rec.Digit(0);
      out += s.DecimalSeparator;
      for (int i = 1; i < precision; ++i) out += rec.Digit(i);
      PutExponent(out, rec.IsZero() ? 0 : rec.exponent - 1, digits, true);
      return out;
    }
    case ffFixed: return (rec.negative ? "-" : "") + FixedText(rec, digits, '\0', s);
    case ffNumber:
      return (rec.negative ? "-" : "") + FixedText(rec, digits, s.ThousandSeparator, s);
    case ffCurrency:
      return CurrencyLayout(FixedText(rec, digits, s.ThousandSeparator, s), rec.negative, s);
  }
  return out;
}

int ClampDecimals(int digits) { return std::clamp(digits, 0, 18); }

AnsiString ExtendedToText(Extended value, TFloatFormat format, int precision, int digits,
                          const TFormatSettings& s) {
  precision = std::clamp(precision, 2, kExtendedDigits);
  bool fixed = format == ffFixed || format == ffNumber || format == ffCurrency;
  if (fixed) digits = ClampDecimals(digits);
  FloatRec rec = MakeRec(value, precision, fixed ? digits : 9999);
  return FloatText(rec, format, precision, digits, s);
}

AnsiString CurrencyToText(Currency value, TFloatFormat format, int digits,
                          const TFormatSettings& s) {
  bool fixed = format == ffFixed || format == ffNumber || format == ffCurrency;
  if (fixed) digits = ClampDecimals(digits);
  FloatRec rec = MakeCurrRec(value.Raw, kCurrencyPrecision, fixed ? digits : 9999);
  return FloatText(rec, format, kCurrencyPrecision, digits, s);
}

// ---------------------------------------------------------------------------------------
// The picture format of FormatFloat

struct Picture {
  std::string_view text;
  int digitCount = 0;    // '0' and '#' placeholders (exponent digits excluded)
  int decimalIndex = 0;  // placeholders before the decimal point
  int firstZero = -1;    // index of the first '0' placeholder
  int lastZero = -1;     // index of the last '0' placeholder
  bool thousands = false;
  bool scientific = false;
};

bool IsQuote(char c) { return c == '"' || c == '\''; }

// Splits at ';' outside quotes; at most three sections count, the rest is ignored.
int SplitSections(std::string_view format, std::string_view (&out)[3]) {
  int n = 0;
  std::size_t start = 0;
  char quote = 0;
  for (std::size_t i = 0; i < format.size() && n < 2; ++i) {
    char c = format[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (IsQuote(c)) {
      quote = c;
    } else if (c == ';') {
      out[n++] = format.substr(start, i - start);
      start = i + 1;
    }
  }
  std::string_view rest = format.substr(std::min(start, format.size()));
  if (n == 2) {
    // The third section ends at the next unquoted ';' if there is one.
    char q = 0;
    std::size_t end = rest.size();
    for (std::size_t i = 0; i < rest.size(); ++i) {
      char c = rest[i];
      if (q != 0) {
        if (c == q) q = 0;
      } else if (IsQuote(c)) {
        q = c;
      } else if (c == ';') {
        end = i;
        break;
      }
    }
    rest = rest.substr(0, end);
  }
  out[n++] = rest;
  return n;
}

Picture AnalyzePicture(std::string_view text) {
  Picture p;
  p.text = text;
  bool point = false;
  char quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
      continue;
    }
    switch (c) {
      case '"':
      case '\'': quote = c; break;
      case '.':
        if (!point) {
          point = true;
          p.decimalIndex = p.digitCount;
        }
        break;
      case ',': p.thousands = true; break;
      case 'E':
      case 'e':
        if (i + 1 < text.size()) {
          ++i;
          if (!p.scientific && (text[i] == '+' || text[i] == '-')) {
            p.scientific = true;
            while (i + 1 < text.size() && text[i + 1] == '0') ++i;
          }
        }
        break;
      case '0':
        if (p.firstZero < 0) p.firstZero = p.digitCount;
        p.lastZero = p.digitCount;
        ++p.digitCount;
        break;
      case '#': ++p.digitCount; break;
      default: break;
    }
  }
  if (!point) p.decimalIndex = p.digitCount;
  return p;
}

AnsiString ApplyPicture(const Picture& p, Extended value, bool signInFront,
                        const TFormatSettings& s) {
  int fracPlaces = p.digitCount - p.decimalIndex;
  FloatRec rec = p.scientific ? MakeRec(value, std::clamp(p.digitCount, 1, kExtendedDigits), 9999)
                              : MakeRec(value, kExtendedDigits, fracPlaces);
  if (!p.scientific && rec.exponent > kExtendedDigits)
    return ExtendedToText(value, ffGeneral, 15, 0, s);

  int minInt =
      (p.firstZero >= 0 && p.firstZero < p.decimalIndex) ? p.decimalIndex - p.firstZero : 0;
  int minFrac = p.lastZero >= p.decimalIndex ? p.lastZero - p.decimalIndex + 1 : 0;

  // The integer digits, the fraction digits and the exponent to show.
  AnsiString intDigits;
  AnsiString fracDigits;
  int shownExponent = 0;
  int fracStart;  // index in rec of the first fraction digit
  if (p.scientific) {
    if (rec.count > 0) {
      for (int i = 0; i < p.decimalIndex; ++i) intDigits += rec.Digit(i);
      shownExponent = rec.exponent - p.decimalIndex;
    } else {
      intDigits.assign(static_cast<std::size_t>(minInt), '0');
    }
    fracStart = p.decimalIndex;
  } else {
    for (int i = 0; i < rec.exponent; ++i) intDigits += rec.Digit(i);
    if (static_cast<int>(intDigits.size()) < minInt)
      intDigits.insert(0, static_cast<std::size_t>(minInt) - intDigits.size(), '0');
    fracStart = rec.exponent;
  }
  int fracCount = std::max(minFrac, std::min(fracPlaces, rec.count - fracStart));
  for (int i = 0; i < fracCount; ++i) fracDigits += rec.Digit(fracStart + i);

  AnsiString out;
  if (signInFront && rec.negative) out += '-';
  const int intLen = static_cast<int>(intDigits.size());
  auto putIntDigit = [&](int pos) {
    out += intDigits[static_cast<std::size_t>(pos)];
    int slot = intLen - 1 - pos;  // digits still to come before the decimal point
    if (p.thousands && s.ThousandSeparator != '\0' && slot > 0 && slot % 3 == 0)
      out += s.ThousandSeparator;
  };
  bool intDone = false;
  auto putAllIntDigits = [&]() {
    if (!intDone)
      for (int i = 0; i < intLen; ++i) putIntDigit(i);
    intDone = true;
  };

  int placeholder = 0;
  char quote = 0;
  bool exponentDone = false;
  const std::string_view t = p.text;
  for (std::size_t i = 0; i < t.size(); ++i) {
    char c = t[i];
    if (quote != 0) {
      if (c == quote)
        quote = 0;
      else
        out += c;
      continue;
    }
    switch (c) {
      case '"':
      case '\'': quote = c; break;
      case '0':
      case '#': {
        int k = placeholder++;
        if (k < p.decimalIndex) {
          int slot = p.decimalIndex - 1 - k;  // place of this placeholder left of the point
          int pos = intLen - 1 - slot;
          if (k == 0) {
            for (int j = 0; j <= pos; ++j) putIntDigit(j);
          } else if (pos >= 0) {
            putIntDigit(pos);
          }
          if (k == p.decimalIndex - 1) intDone = true;
        } else {
          putAllIntDigits();  // a picture with no integer placeholders
          int j = k - p.decimalIndex;
          if (j < fracCount) {
            if (j == 0) out += s.DecimalSeparator;
            out += fracDigits[static_cast<std::size_t>(j)];
          }
        }
        break;
      }
      case '.':
      case ',': break;
      case 'E':
      case 'e':
        out += c;
        if (i + 1 < t.size()) {
          char sign = t[++i];
          if (!exponentDone && (sign == '+' || sign == '-')) {
            exponentDone = true;
            int width = 0;
            while (i + 1 < t.size() && t[i + 1] == '0') {
              ++width;
              ++i;
            }
            if (shownExponent < 0)
              out += '-';
            else if (sign == '+')
              out += '+';
            out += PadDigits(UnsignedToText(static_cast<UInt64>(std::abs(shownExponent))),
                             std::min(width, 4));
          } else {
            out += sign;
          }
        }
        break;
      default: out += c; break;
    }
  }
  return out;
}

// ---------------------------------------------------------------------------------------
// Parsing

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The classic Val for integers of `bits` (32 or 64) bits. Decimal values must fit the
// signed range; hexadecimal ones may use every bit and wrap into the negatives.
bool ParseInteger(std::string_view s, int bits, Int64& value) {
  std::size_t i = 0;
  while (i < s.size() && s[i] == ' ') ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
  bool hex = false;
  if (i < s.size() && (s[i] == '$' || s[i] == 'x' || s[i] == 'X')) {
    hex = true;
    ++i;
  } else if (i + 1 < s.size() && s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X')) {
    hex = true;
    i += 2;
  }
  if (i >= s.size()) return false;
  const UInt64 mask = bits == 64 ? ~UInt64{0} : 0xFFFFFFFFull;
  UInt64 acc = 0;
  for (; i < s.size(); ++i) {
    char c = s[i];
    if (hex) {
      int d = HexDigitValue(c);
      if (d < 0 || acc > (mask >> 4)) return false;
      acc = (acc << 4) | static_cast<UInt64>(d);
    } else {
      if (!IsDigit(c)) return false;
      UInt64 d = static_cast<UInt64>(c - '0');
      if (acc > (mask - d) / 10) return false;
      acc = acc * 10 + d;
    }
  }
  const UInt64 signBit = UInt64{1} << (bits - 1);
  if (hex) {
    if (negative) acc = (0 - acc) & mask;
    // The low `bits` bits taken as a two's complement number.
    value = bits == 64 ? static_cast<Int64>(acc)
                       : static_cast<Int64>(static_cast<Integer>(static_cast<Cardinal>(acc)));
    return true;
  }
  if (acc > signBit - (negative ? 0 : 1)) return false;
  value = negative ? static_cast<Int64>(0 - acc) : static_cast<Int64>(acc);
  return true;
}

// A float in the classic syntax: blanks, sign, digits with one decimal separator, an
// optional exponent, blanks. Gives the text rewritten for from_chars (no '+', '.' as the
// point, exponent shifted by `shift`) or an empty string when the syntax is wrong.
std::string NormalizeFloat(std::string_view s, char decimalSeparator, int shift) {
  std::size_t i = 0;
  const std::size_t n = s.size();
  while (i < n && s[i] == ' ') ++i;
  std::string out;
  if (i < n && (s[i] == '-' || s[i] == '+')) {
    if (s[i] == '-') out += '-';
    ++i;
  }
  std::size_t intStart = i;
  while (i < n && IsDigit(s[i])) ++i;
  std::string_view intPart = s.substr(intStart, i - intStart);
  std::string_view fracPart;
  if (i < n && s[i] == decimalSeparator) {
    std::size_t fracStart = ++i;
    while (i < n && IsDigit(s[i])) ++i;
    fracPart = s.substr(fracStart, i - fracStart);
  }
  if (intPart.empty() && fracPart.empty()) return {};
  if (intPart.empty())
    out += '0';
  else
    out += intPart;
  if (!fracPart.empty()) {
    out += '.';
    out += fracPart;
  }
  Int64 exponent = 0;
  if (i < n && (s[i] == 'E' || s[i] == 'e')) {
    ++i;
    bool negative = false;
    if (i < n && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
    if (i >= n || !IsDigit(s[i])) return {};
    while (i < n && IsDigit(s[i])) {
      // Beyond this the value is infinite or zero anyway.
      if (exponent < 100000) exponent = exponent * 10 + (s[i] - '0');
      ++i;
    }
    if (negative) exponent = -exponent;
  }
  while (i < n && s[i] == ' ') ++i;
  if (i != n) return {};
  exponent += shift;
  if (exponent != 0) {
    out += 'e';
    out += std::to_string(exponent);
  }
  return out;
}

// True when the normalised text stands for a value too small to represent rather than too
// large: its decimal order (digits before the point, less leading zeros, plus the exponent)
// is negative.
bool IsUnderflow(const std::string& text) {
  std::size_t e = text.find('e');
  Int64 exponent = 0;
  if (e != std::string::npos)
    std::from_chars(text.data() + e + 1, text.data() + text.size(), exponent);
  std::string_view mant(text.data(), e == std::string::npos ? text.size() : e);
  Int64 intDigits = 0;
  Int64 leadingZeros = 0;
  bool point = false;
  bool seen = false;
  for (char c : mant) {
    if (c == '.') point = true;
    if (!IsDigit(c)) continue;
    if (!point) ++intDigits;
    if (c != '0') seen = true;
    if (!seen) ++leadingZeros;
  }
  return !seen || intDigits - leadingZeros + exponent < 0;
}

// The normalised text as an extended value, correctly rounded by the library itself on
// every platform (the runtime's long double conversion is not exact everywhere: MinGW's
// goes through double). False when the value is too large; too small gives zero.
bool NormalizedToExtended(const std::string& text, Extended& value) {
  const bool negative = !text.empty() && text[0] == '-';
  std::string digits;
  Int64 exp10 = 0;
  bool point = false;
  std::size_t i = negative ? 1 : 0;
  for (; i < text.size() && text[i] != 'e'; ++i) {
    if (text[i] == '.') {
      point = true;
    } else {
      digits += text[i];
      if (point) --exp10;
    }
  }
  Int64 exponent = 0;
  if (i < text.size()) std::from_chars(text.data() + i + 1, text.data() + text.size(), exponent);
  const Extended80 x = DecimalToExtended80(negative, digits, exp10 + exponent);
  if (!IsFinite(x)) return false;
  value = x.ToExtended();
  return std::isfinite(value);
}

template <class T>
bool ParseFloat(std::string_view s, char decimalSeparator, T& value) {
  std::string text = NormalizeFloat(s, decimalSeparator, 0);
  if (text.empty()) return false;
  if constexpr (std::is_same_v<T, Extended>) return NormalizedToExtended(text, value);
  T v{};
  auto r = std::from_chars(text.data(), text.data() + text.size(), v);
  if (r.ec == std::errc::result_out_of_range) {
    if (!IsUnderflow(text)) return false;
    v = text[0] == '-' ? -T(0) : T(0);
  } else if (r.ec != std::errc() || r.ptr != text.data() + text.size()) {
    return false;
  }
  if (!std::isfinite(v)) return false;
  value = v;
  return true;
}

bool ScaledToCurrency(Extended scaled, Currency& out) {
  if (!std::isfinite(scaled)) return false;
  Extended r = detail::RoundHalfEven(scaled);
  constexpr Extended kLimit = 9223372036854775808.0L;  // 2^63
  if (r < -kLimit || r >= kLimit) return false;
  out = Currency::FromRaw(static_cast<Int64>(r));
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Format

AnsiString FormatBuf(std::string_view fmt, const FormatArg* args, std::size_t count,
                     const TFormatSettings& settings) {
  AnsiString out;
  out.reserve(fmt.size() + 16 * count);
  std::size_t argPos = 0;
  std::size_t i = 0;
  const std::size_t n = fmt.size();

  auto nextArg = [&]() -> const FormatArg& {
    if (argPos >= count) ConvertError(SysConst::SArgumentMissing, fmt);
    return args[argPos++];
  };
  // A number in the specifier: digits or '*' (taken from the arguments); -1 when absent.
  auto readNumber = [&]() -> Int64 {
    if (i < n && fmt[i] == '*') {
      ++i;
      const FormatArg& a = nextArg();
      if (a.GetKind() == FormatArg::Kind::Int64) return std::max<Int64>(a.AsInt64(), 0);
      if (a.GetKind() == FormatArg::Kind::UInt64)
        return static_cast<Int64>(
            std::min<UInt64>(a.AsUInt64(), std::numeric_limits<Integer>::max()));
      InvalidFormat(fmt);
    }
    if (i >= n || !IsDigit(fmt[i])) return -1;
    Int64 v = 0;
    while (i < n && IsDigit(fmt[i])) {
      v = v * 10 + (fmt[i++] - '0');
      if (v > std::numeric_limits<Integer>::max()) InvalidFormat(fmt);
    }
    return v;
  };

  while (i < n) {
    std::size_t run = fmt.find('%', i);
    if (run == std::string_view::npos) run = n;
    out.append(fmt.substr(i, run - i));
    i = run;
    if (i >= n) break;
    ++i;  // '%'
    if (i >= n) InvalidFormat(fmt);
    if (fmt[i] == '%') {
      out += '%';
      ++i;
      continue;
    }
    Int64 number = (i < n && fmt[i] == ':') ? 0 : readNumber();
    if (i < n && fmt[i] == ':') {
      if (number < 0) InvalidFormat(fmt);
      argPos = static_cast<std::size_t>(number);
      ++i;
      number = -1;
    }
    bool left = false;
    if (number < 0 && i < n && fmt[i] == '-') {
      left = true;
      ++i;
    }
    Int64 width = number >= 0 ? number : readNumber();
    Int64 prec = -1;
    if (i < n && fmt[i] == '.') {
      ++i;
      prec = readNumber();
      if (prec < 0) prec = 0;
    }
    // One field is at most kMaxFormatField characters wide or precise, so that a few bytes of
    // format cannot ask for gigabytes.
    if (width > kMaxFormatField || prec > kMaxFormatField) InvalidFormat(fmt);
    if (i >= n) InvalidFormat(fmt);
    char type = fmt[i++];
    if (type >= 'a' && type <= 'z') type = static_cast<char>(type - 'a' + 'A');

    AnsiString text;
    switch (type) {
      case 'D': {
        const FormatArg& a = nextArg();
        if (a.GetKind() == FormatArg::Kind::Int64)
          text = IntToStr(a.AsInt64());
        else if (a.GetKind() == FormatArg::Kind::UInt64)
          text = UIntToStr(a.AsUInt64());
        else
          InvalidFormat(fmt);
        text = PadDigits(std::move(text), static_cast<int>(prec));
        break;
      }
      case 'U':
      case 'X': {
        const FormatArg& a = nextArg();
        UInt64 v;
        if (a.GetKind() == FormatArg::Kind::Int64) {
          v = static_cast<UInt64>(a.AsInt64());
          if (a.IsNarrow()) v &= 0xFFFFFFFFull;
        } else if (a.GetKind() == FormatArg::Kind::UInt64) {
          v = a.AsUInt64();
        } else {
          InvalidFormat(fmt);
        }
        text = type == 'U' ? PadDigits(UIntToStr(v), static_cast<int>(prec))
                           : HexText(v, static_cast<int>(prec));
        break;
      }
      case 'E':
      case 'F':
      case 'G':
      case 'N':
      case 'M': {
        const FormatArg& a = nextArg();
        TFloatFormat f = type == 'E'   ? ffExponent
                         : type == 'F' ? ffFixed
                         : type == 'G' ? ffGeneral
                         : type == 'N' ? ffNumber
                                       : ffCurrency;
        int precision = 18;
        int digits;
        if (type == 'E' || type == 'G') {
          precision = prec < 0 ? 15 : static_cast<int>(std::min<Int64>(prec, 18));
          digits = 3;
        } else {
          digits = prec >= 0     ? static_cast<int>(std::min<Int64>(prec, 18))
                   : type == 'M' ? settings.CurrencyDecimals
                                 : 2;
        }
        if (a.GetKind() == FormatArg::Kind::Extended)
          text = ExtendedToText(a.AsExtended(), f, precision, digits, settings);
        else if (a.GetKind() == FormatArg::Kind::Currency)
          text = CurrencyToText(a.AsCurrency(), f, digits, settings);
        else
          InvalidFormat(fmt);
        break;
      }
      case 'S': {
        const FormatArg& a = nextArg();
        if (!a.IsString()) InvalidFormat(fmt);
        std::string_view v = a.AsString();
        if (prec >= 0 && static_cast<std::size_t>(prec) < v.size())
          v = v.substr(0, static_cast<std::size_t>(prec));
        text = AnsiString(v);
        break;
      }
      case 'P': {
        const FormatArg& a = nextArg();
        if (a.GetKind() != FormatArg::Kind::Pointer) InvalidFormat(fmt);
        text = HexText(reinterpret_cast<std::uintptr_t>(a.AsPointer()),
                       static_cast<int>(sizeof(void*) * 2));
        break;
      }
      default: InvalidFormat(fmt);
    }
    if (width > static_cast<Int64>(text.size())) {
      std::size_t pad = static_cast<std::size_t>(width) - text.size();
      if (left)
        text.append(pad, ' ');
      else
        text.insert(0, pad, ' ');
    }
    out += text;
  }
  return out;
}

// ---------------------------------------------------------------------------------------
// Integers

AnsiString IntToStr(Int64 value) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, value);
  return AnsiString(buf, r.ptr);
}

AnsiString UIntToStr(UInt64 value) { return UnsignedToText(value); }

AnsiString IntToHex(Int64 value, int digits) { return HexText(static_cast<UInt64>(value), digits); }

AnsiString IntToHex(Integer value, int digits) {
  return HexText(static_cast<UInt64>(static_cast<Cardinal>(value)), digits);
}

bool TryStrToInt(std::string_view s, Integer& value) {
  Int64 v;
  if (!ParseInteger(s, 32, v)) return false;
  value = static_cast<Integer>(v);
  return true;
}

bool TryStrToInt64(std::string_view s, Int64& value) { return ParseInteger(s, 64, value); }

Integer StrToInt(std::string_view s) {
  Integer v;
  if (!TryStrToInt(s, v)) ConvertError(SysConst::SInvalidInteger, s);
  return v;
}

Int64 StrToInt64(std::string_view s) {
  Int64 v;
  if (!TryStrToInt64(s, v)) ConvertError(SysConst::SInvalidInteger, s);
  return v;
}

Integer StrToIntDef(std::string_view s, Integer def) {
  Integer v;
  return TryStrToInt(s, v) ? v : def;
}

Int64 StrToInt64Def(std::string_view s, Int64 def) {
  Int64 v;
  return TryStrToInt64(s, v) ? v : def;
}

// ---------------------------------------------------------------------------------------
// Floats

AnsiString FloatToStr(Extended value) { return FloatToStr(value, FormatSettings); }

AnsiString FloatToStr(Extended value, const TFormatSettings& settings) {
  return ExtendedToText(value, ffGeneral, 15, 0, settings);
}

AnsiString FloatToStrF(Extended value, TFloatFormat format, int precision, int digits) {
  return ExtendedToText(value, format, precision, digits, FormatSettings);
}

AnsiString FloatToStrF(Extended value, TFloatFormat format, int precision, int digits,
                       const TFormatSettings& settings) {
  return ExtendedToText(value, format, precision, digits, settings);
}

AnsiString FormatFloat(std::string_view format, Extended value) {
  return FormatFloat(format, value, FormatSettings);
}

AnsiString FormatFloat(std::string_view format, Extended value, const TFormatSettings& settings) {
  if (!std::isfinite(value)) return ExtendedToText(value, ffGeneral, 15, 0, settings);
  std::string_view sections[3];
  int count = SplitSections(format, sections);
  int index = value > 0 ? 0 : value < 0 ? 1 : 2;
  if (index >= count || sections[index].empty()) index = 0;
  if (sections[index].empty()) return ExtendedToText(value, ffGeneral, 15, 0, settings);
  // A negative value shown through the first section gets its minus sign in front; the
  // negative section carries its own.
  return ApplyPicture(AnalyzePicture(sections[index]), value, index == 0, settings);
}

bool TryStrToFloat(std::string_view s, Extended& value) {
  return ParseFloat(s, FormatSettings.DecimalSeparator, value);
}

bool TryStrToFloat(std::string_view s, double& value) {
  return ParseFloat(s, FormatSettings.DecimalSeparator, value);
}

bool TryStrToFloat(std::string_view s, Extended& value, const TFormatSettings& settings) {
  return ParseFloat(s, settings.DecimalSeparator, value);
}

Extended StrToFloat(std::string_view s) { return StrToFloat(s, FormatSettings); }

Extended StrToFloat(std::string_view s, const TFormatSettings& settings) {
  Extended v;
  if (!TryStrToFloat(s, v, settings)) ConvertError(SysConst::SInvalidFloat, s);
  return v;
}

Extended StrToFloatDef(std::string_view s, Extended def) {
  Extended v;
  return TryStrToFloat(s, v) ? v : def;
}

// ---------------------------------------------------------------------------------------
// Currency

Currency DoubleToCurrency(Extended value) {
  Currency c;
  if (!ScaledToCurrency(value * 10000.0L, c))
    ConvertError(SysConst::SInvalidCurrency, FloatToStr(value));
  return c;
}

Extended CurrencyToExtended(Currency value) { return static_cast<Extended>(value.Raw) / 10000.0L; }

AnsiString CurrToStr(Currency value) { return CurrToStr(value, FormatSettings); }

AnsiString CurrToStr(Currency value, const TFormatSettings& settings) {
  return CurrencyToText(value, ffGeneral, 0, settings);
}

AnsiString CurrToStrF(Currency value, TFloatFormat format, int digits) {
  return CurrencyToText(value, format, digits, FormatSettings);
}

AnsiString CurrToStrF(Currency value, TFloatFormat format, int digits,
                      const TFormatSettings& settings) {
  return CurrencyToText(value, format, digits, settings);
}

bool TryStrToCurr(std::string_view s, Currency& value) {
  return TryStrToCurr(s, value, FormatSettings);
}

bool TryStrToCurr(std::string_view s, Currency& value, const TFormatSettings& settings) {
  // Parse the text scaled by 10^4 so that the integer part of the result is the raw value;
  // every Currency raw value is exact in an Extended.
  std::string text = NormalizeFloat(s, settings.DecimalSeparator, 4);
  if (text.empty()) return false;
  Extended scaled{};
  return NormalizedToExtended(text, scaled) && ScaledToCurrency(scaled, value);
}

Currency StrToCurr(std::string_view s) {
  Currency c;
  if (!TryStrToCurr(s, c)) ConvertError(SysConst::SInvalidFloat, s);
  return c;
}

// ---------------------------------------------------------------------------------------
// Booleans

AnsiString BoolToStr(bool value, bool useBoolStrs) {
  if (useBoolStrs) return value ? "True" : "False";
  return value ? "-1" : "0";
}

bool TryStrToBool(std::string_view s, bool& value) {
  Extended number;
  if (TryStrToFloat(s, number)) {
    value = number != 0;
    return true;
  }
  if (AnsiSameText(s, "True")) {
    value = true;
    return true;
  }
  if (AnsiSameText(s, "False")) {
    value = false;
    return true;
  }
  return false;
}

bool StrToBool(std::string_view s) {
  bool v;
  if (!TryStrToBool(s, v)) ConvertError(SysConst::SInvalidBoolean, s);
  return v;
}

}  // namespace ostrel
