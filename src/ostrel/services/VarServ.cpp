#include <ostrel/services/VarServ.h>

#include <ostrel/rtl/DateTime.h>

#include <cmath>

namespace ostrel {

int CompareVar(const Variant& a, const Variant& b, bool ignoreCase) {
  if (VarIsArray(a)) {
    // Indexes start at 0 whatever the arrays' low bounds: the arrays compared here are the
    // zero-based ones built by VarArrayOf, and any other shape fails loudly on access.
    const Integer high = VarArrayHighBound(a);
    for (Integer i = 0; i <= high; ++i) {
      int r = CompareVar(VarArrayGet(a, i), VarArrayGet(b, i), ignoreCase);
      if (r != 0) return r;
    }
    return 0;
  }
  if (ignoreCase && VarIsStr(a) && VarIsStr(b)) return AnsiCompareText(VarToStr(a), VarToStr(b));
  switch (VarCompareValue(a, b)) {
    case vrLessThan: return -1;
    case vrGreaterThan: return 1;
    default: return 0;
  }
}

bool VarAsBool(const Variant& v) { return VarIsNull(v) ? false : VarToBool(v); }

Integer VarAsInt(const Variant& v) { return VarIsNull(v) ? 0 : VarToInt(v); }

Extended VarAsFloat(const Variant& v) { return VarIsNull(v) ? 0.0L : VarToExtended(v); }

AnsiString VarAsStr(const Variant& v) {
  if (VarIsNull(v)) return AnsiString();
  if (VarType(v) == varDate) {
    // Values read back for display: the short formats keep dates and times compact, and a
    // value without a positive fraction (midnight, or any time before the epoch, whose
    // fraction is negative) shows as a plain date.
    const TDateTime d = VarToDateTime(v);
    AnsiString r = FormatDateTime(FormatSettings.ShortDateFormat, d);
    if (d - std::trunc(d) > 0) {
      r += ' ';
      r += FormatDateTime(FormatSettings.ShortTimeFormat, d);
    }
    return r;
  }
  return VarToStr(v);
}

}  // namespace ostrel
