// Variant helpers of the services: comparison with an optional case rule, and the
// null-tolerant conversions the containers use to read their values.
#pragma once

#include <ostrel/rtl/Variants.h>

namespace ostrel {

// Compares two values: -1, 0 or 1.
// - An array `a` is compared element by element, for the indexes 0 up to its upper bound,
//   with `b`'s elements at the same indexes (so a `b` with fewer elements raises the array
//   bounds error); the first difference decides.
// - With `ignoreCase`, two strings (8-bit or 16-bit) compare by their case-insensitive text
//   order.
// - Anything else by the platform's variant comparison, where values that are neither less
//   nor greater (including empty or null against other values) give 0.
OSTREL_API int CompareVar(const Variant& a, const Variant& b, bool ignoreCase = false);

// The platform's conversions, except that null gives false, 0, 0.0 or "" instead of
// raising. Empty goes through the conversion like any other value.
OSTREL_API bool VarAsBool(const Variant& v);
OSTREL_API Integer VarAsInt(const Variant& v);
OSTREL_API Extended VarAsFloat(const Variant& v);
// A date-time value gives its date alone when it has no positive time of day, else the date
// and the time, both in the short formats of the current settings.
OSTREL_API AnsiString VarAsStr(const Variant& v);

}  // namespace ostrel
