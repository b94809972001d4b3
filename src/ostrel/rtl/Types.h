// Basic types of the platform layer: the Object Pascal shaped scalar and string types.
#pragma once

#include <ostrel/Config.h>

#include <cfloat>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace ostrel {

// 8-bit text, bytes in Windows-1251; positions passed through the API are 1-based.
using AnsiString = std::string;
// 16-bit text (UTF-16).
using WideString = std::u16string;

using Byte = std::uint8_t;
using ShortInt = std::int8_t;
using SmallInt = std::int16_t;
using Word = std::uint16_t;
using Integer = std::int32_t;
using Cardinal = std::uint32_t;
using LongWord = std::uint32_t;
using Int64 = std::int64_t;
using UInt64 = std::uint64_t;
using Single = float;
using Double = double;
// 80-bit extended precision on x86; the rounding code checks the mantissa width itself.
using Extended = long double;

// Days since 1899-12-30; the fraction is the time of day. For negative values the
// fraction counts away from the day number (-1.25 is 1899-12-29 06:00).
using TDateTime = double;

// Fixed-point money: an integer scaled by 10 000, four decimal places.
struct Currency {
  Int64 Raw = 0;  // value * 10000

  static constexpr Int64 Scale = 10000;

  constexpr Currency() = default;
  static constexpr Currency FromRaw(Int64 raw) {
    Currency c;
    c.Raw = raw;
    return c;
  }
  static constexpr Currency FromInt(Int64 v) { return FromRaw(v * Scale); }

  constexpr friend bool operator==(Currency a, Currency b) = default;
  constexpr friend auto operator<=>(Currency a, Currency b) = default;
  constexpr Currency operator-() const { return FromRaw(-Raw); }
  constexpr friend Currency operator+(Currency a, Currency b) { return FromRaw(a.Raw + b.Raw); }
  constexpr friend Currency operator-(Currency a, Currency b) { return FromRaw(a.Raw - b.Raw); }
};

// Extended -> Currency rounds half to even at the fourth decimal, as the x87 store does;
// a value outside the Currency range raises EConvertError.
OSTREL_API Currency DoubleToCurrency(Extended value);
OSTREL_API Extended CurrencyToExtended(Currency value);

}  // namespace ostrel
