// Speed of bank-day arithmetic, period texts and date-range merging. IncBankDay skips whole
// weeks, so a walk of n bank days costs a handful of day steps whatever n is; the day-by-day
// walk of the stated rule runs beside it for comparison.
#include <ostrel/periods/Kxdateutils.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using namespace ostrel;

// Fourteen starting days, weekends included, at 10:00.
TDateTime StartDay(std::size_t i) {
  return EncodeDate(2025, 3, 1) + static_cast<double>(i % 14) + 10.0 / 24;
}

// The rule as stated: one day at a time, counting bank days.
TDateTime WalkBankDays(TDateTime d, int n) {
  const int s = n >= 0 ? 1 : -1;
  for (;;) {
    const int dow = DayOfWeek(d);
    if (dow != 1 && dow != 7) {
      if (n == 0) return d;
      n -= s;
    }
    d += s;
  }
}

void BM_IncBankDay(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(IncBankDay(StartDay(i++), n));
}
BENCHMARK(BM_IncBankDay)->Arg(1)->Arg(250)->Arg(-250)->Arg(100000);

void BM_WalkBankDays(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(WalkBankDays(StartDay(i++), n));
}
BENCHMARK(BM_WalkBankDays)->Arg(1)->Arg(250);

// One period of each kind around a fixed day; today is the system clock's, so kind 0 takes
// the formatting branch.
void BM_DatePeriodInfoStr(benchmark::State& state) {
  const int kind = static_cast<int>(state.range(0));
  const bool detailed = state.range(1) != 0;
  TDateTime lo = EncodeDate(2025, 2, 17), hi = EncodeDate(2025, 3, 7);
  TkxDateIntervalPr::GetPeriod(kind, EncodeDate(2025, 3, 5), lo, hi);
  for (auto _ : state) benchmark::DoNotOptimize(DatePeriodInfoStr(kind, lo, hi, detailed));
}
BENCHMARK(BM_DatePeriodInfoStr)->ArgsProduct({benchmark::CreateDenseRange(0, 9, 1), {0, 1}});

// 10 000 disjoint one-day ranges with one-day gaps, added in ascending or shuffled order.
void BM_AddRange(benchmark::State& state) {
  constexpr int count = 10000;
  std::vector<int> order(count);
  for (int i = 0; i < count; ++i) order[static_cast<std::size_t>(i)] = i;
  if (state.range(0) != 0) std::shuffle(order.begin(), order.end(), std::mt19937(20250305));
  const TDateTime base = EncodeDate(2000, 1, 1);
  for (auto _ : state) {
    TkxDateRanges ranges;
    for (int i : order) ranges.AddRange(base + 3.0 * i, base + 3.0 * i + 1);
    benchmark::DoNotOptimize(ranges.get_Count());
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_AddRange)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
