// Speed of decimal rounding, amounts in words and parameter templates. Where ICU is found,
// its Russian spellout of the same random integers runs beside CrcToText as a peer, and the
// program ends with the throughput ratio of the two.
#include <ostrel/core/Dump.h>
#include <ostrel/rtl/Variants.h>
#include <ostrel/services/NumToText.h>
#include <ostrel/services/Params.h>
#include <ostrel/services/Rounding.h>

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#if defined(OSTREL_HAVE_ICU)
#include <unicode/locid.h>
#include <unicode/rbnf.h>
#include <unicode/unistr.h>
#endif

namespace {

using namespace ostrel;

constexpr std::size_t kCount = 4096;  // a power of two: the index wraps with a mask

// Integers of up to nine digits, drawn once with a fixed seed so that every run and both
// peers see the same input.
const std::vector<std::int64_t>& Integers() {
  static const std::vector<std::int64_t> v = [] {
    std::mt19937_64 gen(20240531);
    std::uniform_int_distribution<std::int64_t> digits(1, 9);
    std::vector<std::int64_t> out;
    for (std::size_t i = 0; i < kCount; ++i) {
      std::int64_t limit = 1;
      for (std::int64_t k = digits(gen); k > 0; --k) limit *= 10;
      out.push_back(std::uniform_int_distribution<std::int64_t>(0, limit - 1)(gen));
    }
    return out;
  }();
  return v;
}

// The same integers with random kopecks.
const std::vector<double>& Amounts() {
  static const std::vector<double> v = [] {
    std::mt19937_64 gen(7);
    std::uniform_int_distribution<int> cents(0, 99);
    std::vector<double> out;
    for (std::int64_t n : Integers()) out.push_back(static_cast<double>(n) + cents(gen) / 100.0);
    return out;
  }();
  return v;
}

// RoundExt as the platform does it (the x87 unit on x86) and in software (what 64-bit ARM
// runs), on the same amounts.
template <Extended (*Round)(Extended, int, TDecimalRoundingCtrl)>
void BM_Round(benchmark::State& state) {
  const auto mode = static_cast<TDecimalRoundingCtrl>(state.range(0));
  const std::vector<double>& in = Amounts();
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Round(in[i] * 1.0375, 2, mode));
    i = (i + 1) & (kCount - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
void BM_RoundExt(benchmark::State& state) { BM_Round<RoundExt>(state); }
void BM_RoundExtSoftware(benchmark::State& state) { BM_Round<RoundExtSoftware>(state); }
BENCHMARK(BM_RoundExt)->DenseRange(0, 9)->ArgName("mode");
BENCHMARK(BM_RoundExtSoftware)->DenseRange(0, 9)->ArgName("mode");

void BM_CrcToText(benchmark::State& state, const char* lang, bool integers) {
  const std::vector<double>& amounts = Amounts();
  const std::vector<std::int64_t>& ints = Integers();
  std::size_t i = 0;
  for (auto _ : state) {
    const Extended v = integers ? static_cast<Extended>(ints[i]) : amounts[i];
    AnsiString s = CrcToText(lang, "RUR", v, 2);
    benchmark::DoNotOptimize(s.data());
    i = (i + 1) & (kCount - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(BM_CrcToText, RU_amounts, "RU", false);
BENCHMARK_CAPTURE(BM_CrcToText, EN_amounts, "EN", false);
BENCHMARK_CAPTURE(BM_CrcToText, RU_integers, "RU", true);

void BM_NumToText_RU_integers(benchmark::State& state) {
  const std::vector<std::int64_t>& ints = Integers();
  std::size_t i = 0;
  for (auto _ : state) {
    AnsiString s = NumToText("RU", static_cast<Extended>(ints[i]));
    benchmark::DoNotOptimize(s.data());
    i = (i + 1) & (kCount - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NumToText_RU_integers);

#if defined(OSTREL_HAVE_ICU)
void BM_IcuSpellout_RU_integers(benchmark::State& state) {
  UErrorCode status = U_ZERO_ERROR;
  icu::RuleBasedNumberFormat fmt(icu::URBNF_SPELLOUT, icu::Locale("ru"), status);
  if (U_FAILURE(status)) {
    state.SkipWithError("ICU has no Russian spellout rules");
    return;
  }
  const std::vector<std::int64_t>& ints = Integers();
  std::size_t i = 0;
  for (auto _ : state) {
    icu::UnicodeString s;
    fmt.format(static_cast<int64_t>(ints[i]), s);
    benchmark::DoNotOptimize(s.getBuffer());
    i = (i + 1) & (kCount - 1);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IcuSpellout_RU_integers);
#endif

void BM_ParseParams_TenRefs(benchmark::State& state) {
  IPtr<IDump> d = GetDumpIntf();
  d->set_ByName("DocNo", Variant(1024));
  d->set_ByName("DocDate", Variant("31.05.2024"));
  d->set_ByName("Payer", Variant("OOO Romashka"));
  d->set_ByName("Inn", Variant("7701234567"));
  d->set_ByName("Bank", Variant("PAO Sberbank"));
  d->set_ByName("Bik", Variant("044525225"));
  d->set_ByName("Sum", Variant(1021.05));
  d->set_ByName("Vat", Variant(170.18));
  d->set_ByName("long name", Variant("value"));
  const AnsiString tmpl =
      "Order %DocNo of %DocDate: payer %Payer (INN %Inn), bank %Bank, BIC %Bik. Amount %Sum, "
      "VAT %Vat; '%quoted' stays; %\"long name\"; 100%% paid; %Missing.";
  for (auto _ : state) {
    AnsiString s = ParseParams(tmpl, d);
    benchmark::DoNotOptimize(s.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ParseParams_TenRefs);

// Console output as usual, plus the CPU time of each benchmark (the median when repetitions
// are aggregated) so that the peer ratio can be printed at the end. CPU time, because the
// machines these run on are shared and wall time carries the neighbours' load.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;
      const std::string name = r.benchmark_name();
      if (r.run_type == Run::RT_Aggregate) {
        if (r.aggregate_name == "median") fTimes[r.run_name.str()] = r.GetAdjustedCPUTime();
      } else if (fTimes.find(name) == fTimes.end()) {
        fTimes[name] = r.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void PrintRatio(const char* ours, const char* peer) const {
    auto a = fTimes.find(ours), b = fTimes.find(peer);
    if (a == fTimes.end() || b == fTimes.end() || a->second <= 0) return;
    char ratio[32];
    const auto res = std::to_chars(ratio, ratio + sizeof ratio, b->second / a->second,
                                   std::chars_format::fixed, 1);
    std::string line = ours;
    line += " is ";
    line.append(ratio, res.ptr);
    line += "x the throughput of ";
    line += peer;
    line += " (on the same integers)\n";
    std::fputs(line.c_str(), stdout);
  }

 private:
  std::map<std::string, double> fTimes;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
#if defined(OSTREL_HAVE_ICU)
  reporter.PrintRatio("BM_CrcToText/RU_integers", "BM_IcuSpellout_RU_integers");
  reporter.PrintRatio("BM_NumToText_RU_integers", "BM_IcuSpellout_RU_integers");
#endif
  benchmark::Shutdown();
  return 0;
}
