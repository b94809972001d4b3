// The exact, slow forms of the decimal conversions in Extended80.h: big-number arithmetic
// digit by digit, with no shortcut. The public conversions take a fast path and fall back
// on these where it cannot decide; tests compare the two on every platform. Not part of the
// installed interface.
#pragma once

#include <ostrel/rtl/Extended80.h>

namespace ostrel::detail80 {

// As DecimalToExtended80, for digits without leading or trailing zeros whose value lies
// within 10^-4952 .. 10^4934 (the public function has taken the rest off before).
OSTREL_API Extended80 ExactDecimalToExtended80(bool negative, std::string_view digits, Int64 exp10);

// As Extended80Digits, precision 1..40.
OSTREL_API int ExactDigits(Extended80 x, int precision, char* digits);

// As Extended80ShortestDigits, by rounding to each count in turn and reading it back through
// the public conversions (the definition of "shortest", without its fast path).
OSTREL_API int CheckedShortestDigits(Extended80 x, char* digits, int& count);

}  // namespace ostrel::detail80
