// Speed of the exact conversions between decimal text and the 80-bit extended format, beside
// the C library's exact conversions of the same values (snprintf "%.17Le" and strtold), in
// one process. The C library is the peer only where long double is the x87 format, since
// only there it converts the same values exactly; elsewhere the program measures the
// library alone.
//
// Two kinds of input:
// - business: decimal texts of 1 to 18 significant digits, |x| from 1e-10 to 1e18;
// - sweep/<bucket>: random significands at biased exponents from the denormals (bucket 0)
//   up to the largest normal in steps of 1024, the texts being their 21-digit forms, which
//   read back to the same values.
// The program ends with each conversion's ratio to its peer: the business ratio and the
// worst bucket of the sweep (CPU time, medians where repetitions are aggregated).
#include <ostrel/rtl/Extended80.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace ostrel;

constexpr std::size_t kCount = 256;  // a power of two: the index wraps with a mask
constexpr int kBuckets = 33;         // biased exponents 0 (denormals), 1, 1024, ..., 0x7FFE

struct Sample {
  Extended80 value;    // positive
  std::string digits;  // its decimal text as digits and a power of ten ...
  long exp10 = 0;
  std::string text;  // ... and as one text for strtold
};

std::string DigitText(const std::string& digits, long exp10) {
  return digits + "e" + std::to_string(exp10);
}

// 21 significant digits always read back, so the texts of the sweep are of that length.
Sample FromValue(Extended80 x) {
  char buf[48];
  const int e = Extended80Digits(x, 21, buf);
  Sample s;
  s.value = x;
  s.digits.assign(buf, 21);
  s.exp10 = e - 20;
  s.text = DigitText(s.digits, s.exp10);
  return s;
}

const std::vector<Sample>& Business() {
  static const std::vector<Sample> v = [] {
    std::mt19937_64 gen(19);
    std::vector<Sample> out;
    while (out.size() < kCount) {
      const int len = 1 + static_cast<int>(gen() % 18);
      std::string digits(1, static_cast<char>('1' + gen() % 9));
      for (int j = 1; j < len; ++j) digits += static_cast<char>('0' + gen() % 10);
      // The first digit's power of ten within -10 .. 17.
      const long first = static_cast<long>(gen() % 28) - 10;
      Sample s;
      s.digits = digits;
      s.exp10 = first - (len - 1);
      s.text = DigitText(s.digits, s.exp10);
      s.value = DecimalToExtended80(false, s.digits, s.exp10);
      out.push_back(s);
    }
    return out;
  }();
  return v;
}

int BucketExp(int bucket) {
  if (bucket == 0) return 0;
  return std::min(bucket == 1 ? 1 : (bucket - 1) * 1024, 0x7FFE);
}

const std::vector<Sample>& Sweep(int bucket) {
  static std::map<int, std::vector<Sample>> cache;
  std::vector<Sample>& v = cache[bucket];
  if (v.empty()) {
    std::mt19937_64 gen(static_cast<unsigned>(bucket) + 1000);
    const int biased = BucketExp(bucket);
    while (v.size() < kCount) {
      UInt64 mant = gen() | (UInt64{1} << 63);
      if (biased == 0) mant >>= 1 + gen() % 63;  // denormals of every length
      if (mant == 0) continue;
      v.push_back(FromValue(Extended80::FromBits(static_cast<Word>(biased), mant)));
    }
  }
  return v;
}

const std::vector<Sample>& Input(int arg) { return arg < 0 ? Business() : Sweep(arg); }

void Digits18(benchmark::State& state) {
  const std::vector<Sample>& in = Input(static_cast<int>(state.range(0)));
  char buf[48];
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Extended80Digits(in[i].value, 18, buf));
    benchmark::ClobberMemory();
    i = (i + 1) & (kCount - 1);
  }
}

void Shortest(benchmark::State& state) {
  const std::vector<Sample>& in = Input(static_cast<int>(state.range(0)));
  char buf[48];
  int count = 0;
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Extended80ShortestDigits(in[i].value, buf, count));
    benchmark::ClobberMemory();
    i = (i + 1) & (kCount - 1);
  }
}

void Parse(benchmark::State& state) {
  const std::vector<Sample>& in = Input(static_cast<int>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(DecimalToExtended80(false, in[i].digits, in[i].exp10));
    i = (i + 1) & (kCount - 1);
  }
}

#if OSTREL_X87_EXTENDED
void GlibcPrint(benchmark::State& state) {
  const std::vector<Sample>& in = Input(static_cast<int>(state.range(0)));
  char buf[64];
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::snprintf(buf, sizeof buf, "%.17Le", in[i].value.ToExtended()));
    benchmark::ClobberMemory();
    i = (i + 1) & (kCount - 1);
  }
}

void GlibcParse(benchmark::State& state) {
  const std::vector<Sample>& in = Input(static_cast<int>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::strtold(in[i].text.c_str(), nullptr));
    i = (i + 1) & (kCount - 1);
  }
}
#endif

// Argument -1 is the business input, 0 .. kBuckets-1 the buckets of the sweep.
void Args(benchmark::internal::Benchmark* b) {
  b->Arg(-1);
  for (int k = 0; k < kBuckets; ++k) b->Arg(k);
  b->ArgName("input");
}
BENCHMARK(Digits18)->Apply(Args);
BENCHMARK(Shortest)->Apply(Args);
BENCHMARK(Parse)->Apply(Args);
#if OSTREL_X87_EXTENDED
BENCHMARK(GlibcPrint)->Apply(Args);
BENCHMARK(GlibcParse)->Apply(Args);
#endif

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;
      if (r.run_type == Run::RT_Aggregate) {
        if (r.aggregate_name == "median") fTimes[r.run_name.str()] = r.GetAdjustedCPUTime();
      } else if (fTimes.find(r.benchmark_name()) == fTimes.end()) {
        fTimes[r.benchmark_name()] = r.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // ours / peer time (above 1: slower than the peer) on the business input and the worst
  // bucket of the sweep.
  void PrintRatios(const std::string& ours, const std::string& peer) const {
    const auto time = [&](const std::string& name, int arg) {
      const auto it = fTimes.find(name + "/input:" + std::to_string(arg));
      return it == fTimes.end() ? -1.0 : it->second;
    };
    const double a = time(ours, -1), b = time(peer, -1);
    if (a <= 0 || b <= 0) return;
    double worst = 0;
    int worstBucket = -1;
    for (int k = 0; k < kBuckets; ++k) {
      const double x = time(ours, k), y = time(peer, k);
      if (x > 0 && y > 0 && x / y > worst) {
        worst = x / y;
        worstBucket = k;
      }
    }
    std::printf("%-8s / %-10s business %6.2fx   worst of sweep %6.2fx (biased exponent %d)\n",
                ours.c_str(), peer.c_str(), a / b, worst, BucketExp(worstBucket));
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
  std::printf("time ratio to the C library (below 1: faster)\n");
  reporter.PrintRatios("Digits18", "GlibcPrint");
  reporter.PrintRatios("Shortest", "GlibcPrint");
  reporter.PrintRatios("Parse", "GlibcParse");
  benchmark::Shutdown();
  return 0;
}
