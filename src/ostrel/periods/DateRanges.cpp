// A list of date-time ranges kept as one sorted key index: lo0, hi0, lo1, hi1, ...
#include <ostrel/periods/Kxdateutils.h>

#include <ostrel/services/ErrServ.h>

#include <climits>
#include <cmath>
#include <utility>

namespace ostrel {

OSTREL_DEFINE_CLASS(TkxDateRanges)

namespace {

// The moment on one straight time line (before the epoch the time of day counts away from
// the day number, so the raw values are not ordered within a day there).
double Linear(TDateTime d) {
  const double day = std::trunc(d);
  return d >= 0 ? d : day - (d - day);
}

// Whole seconds between two moments; half a millisecond absorbs the representation error of
// a span that should be a whole number of seconds.
Int64 SecondsBetween(TDateTime a, TDateTime b) {
  const double span = std::fabs(Linear(b) - Linear(a)) * SecsPerDay + 0.0005;
  return std::isfinite(span) ? static_cast<Int64>(span) : 0;
}

Integer Clamped(Int64 n) { return n > INT_MAX ? INT_MAX : static_cast<Integer>(n); }

Integer DaysUp(Int64 seconds) { return Clamped((seconds + 86399) / 86400); }

}  // namespace

TkxDateRanges::TkxDateRanges() : fKeys(std::make_unique<TkxKeyIndex>(dupAccept, true, true)) {}

TkxDateRanges::~TkxDateRanges() = default;

TDateTime TkxDateRanges::Key(Integer position) const {
  return VarToDateTime(fKeys->get_Rec(position)->Key);
}

Integer TkxDateRanges::get_Count() const { return fKeys->get_Count() / 2; }
TDateTime TkxDateRanges::get_DTLo() const { return Key(0); }
TDateTime TkxDateRanges::get_DTHi() const { return Key(fKeys->get_Count() - 1); }

void TkxDateRanges::Clear() { fKeys->Clear(); }

void TkxDateRanges::Add(TDateTime lo, TDateTime hi) {
  fKeys->AddKey(VarFromDateTime(lo), nullptr);
  fKeys->AddKey(VarFromDateTime(hi), nullptr);
}

void TkxDateRanges::DeleteRange(Integer index) {
  fKeys->DeleteKey(2 * index + 1);
  fKeys->DeleteKey(2 * index);
}

bool TkxDateRanges::GetRange(Integer index, TDateTime& lo, TDateTime& hi) const {
  const Integer keys = fKeys->get_Count();
  if (index < 0 || 2 * Int64{index} >= keys) return false;
  lo = Key(2 * index);
  // An odd key count, which the operations here never leave, gives a range without a high
  // bound; its low bound stands for both rather than reading past the list.
  hi = 2 * index + 1 < keys ? Key(2 * index + 1) : lo;
  return true;
}

bool TkxDateRanges::FindRange(TDateTime d, Integer& index) const {
  const Integer keys = fKeys->get_Count();
  if (keys == 0) {
    index = -1;
    return false;
  }
  Integer p = 0;
  bool found = fKeys->FindKey(VarFromDateTime(d), p);
  if (!found && p % 2 == 1) {
    // The first key after d is a high bound: d lies inside the range it closes.
    if (p < keys && !(d > Key(p)))
      found = true;
    else
      ++p;
  }
  index = p / 2;
  return found;
}

void TkxDateRanges::SetKey(Integer position, TDateTime d) {
  fKeys->DeleteKey(position);
  fKeys->AddKey(VarFromDateTime(d), nullptr);
}

void TkxDateRanges::SetDTLo(Integer index, TDateTime d) { SetKey(2 * index, d); }
void TkxDateRanges::SetDTHi(Integer index, TDateTime d) { SetKey(2 * index + 1, d); }

void TkxDateRanges::AddRange(TDateTime lo, TDateTime hi) {
  if (hi < lo) std::swap(lo, hi);
  if (fKeys->get_Count() == 0) {
    Add(lo, hi);
    return;
  }
  Integer i = 0;
  TDateTime rangeLo = 0, rangeHi = 0;
  if (!FindRange(lo, i)) {
    // lo lies in a gap; range i is the first one after it, if any.
    if (!GetRange(i, rangeLo, rangeHi) || hi < rangeLo) {
      Add(lo, hi);
      return;
    }
    if (lo < rangeLo) SetDTLo(i, lo);
    if (rangeHi < hi) SetDTHi(i, hi);
    return;
  }
  if (!GetRange(i, rangeLo, rangeHi)) BUG("TkxDateRanges.AddRange: range %d not found", i);
  if (!(rangeHi < hi)) return;  // already covered
  TDateTime nextLo = 0, nextHi = 0;
  if (!GetRange(i + 1, nextLo, nextHi)) {
    SetDTHi(i, hi);
  } else if (!(nextLo > hi)) {
    // Absorbs the following range, and only that one.
    DeleteRange(i + 1);
    SetDTHi(i, nextHi);
  } else {
    // Ends in the gap before range i+1: stored as a second range overlapping range i.
    Add(lo, hi);
  }
}

Integer TkxDateRanges::GetDaysCount(bool byTime) const {
  if (fKeys->get_Count() == 0) return 0;
  const TDateTime lo = get_DTLo(), hi = get_DTHi();
  if (!byTime) return DaysBetween(DateOf(lo), DateOf(hi)) + 1;
  return DaysUp(SecondsBetween(lo, hi));
}

Integer TkxDateRanges::GetWorkDaysCount(bool byTime) const {
  const Integer count = get_Count();
  Int64 days = 0, seconds = 0;
  for (Integer i = 0; i < count; ++i) {
    const TDateTime lo = Key(2 * i), hi = Key(2 * i + 1);
    if (byTime)
      seconds += SecondsBetween(lo, hi);
    else
      days += DaysBetween(DateOf(lo), DateOf(hi)) + 1;
  }
  return byTime ? DaysUp(seconds) : Clamped(days);
}

void TkxDateRanges::ShowRanges(std::string_view caption) const {
  AnsiString text(caption);
  if (!text.empty()) text += '\r';
  const Integer keys = fKeys->get_Count();
  for (Integer p = 0; p < keys; ++p) {
    if (p > 0) text += '\r';
    text += DateToStr(Key(p));
  }
  Alert(text);
}

}  // namespace ostrel
