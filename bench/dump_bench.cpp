// Speed of dump lookups by name: get_ByName, set_ByName of an existing name and IndexOf of an
// absent name, on dumps of 8, 64, 1024 and 16384 entries, beside a std::unordered_map keyed
// by the case-folded name (the least a case-insensitive lookup has to do) on the same names
// in the same run.
//
// Names are stored in mixed case and looked up in upper case, in a shuffled order, so every
// lookup folds case and the order gives the caches no help. The dump is reached through its
// IDump interface, as its users reach it. At the end a table gives, per size and operation,
// the dump's CPU time, the map's, their ratio, and the dump's time against its own 8-entry
// time (medians when run with repetitions).
#include <ostrel/core/Sysclasses.h>
#include <ostrel/services/Sysserv.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using namespace ostrel;

constexpr int kSizes[] = {8, 64, 1024, 16384};

struct Input {
  std::vector<AnsiString> stored;   // as set into the containers
  std::vector<AnsiString> queries;  // the same names in upper case, shuffled
  std::vector<AnsiString> absent;   // names that are never stored
};

const Input& InputFor(int n) {
  static std::map<int, Input> inputs;
  auto it = inputs.find(n);
  if (it != inputs.end()) return it->second;
  Input in;
  std::mt19937 rng(static_cast<unsigned>(n));
  const AnsiString stem = Ansi(u8"Поле_");
  const AnsiString other = Ansi(u8"Нет_");
  for (int k = 0; k < n; ++k) {
    in.stored.push_back(stem + IntToStr(k));
    in.absent.push_back(other + IntToStr(k));
  }
  for (const AnsiString& s : in.stored) in.queries.push_back(AnsiUpperCase(s));
  std::shuffle(in.queries.begin(), in.queries.end(), rng);
  return inputs.emplace(n, std::move(in)).first->second;
}

IPtr<IDump> MakeDump(const Input& in) {
  IPtr<IDump> d = GetDumpIntf();
  for (std::size_t k = 0; k < in.stored.size(); ++k) d->set_ByName(in.stored[k], Integer(k));
  return d;
}

using FoldedMap = std::unordered_map<AnsiString, Variant>;

FoldedMap MakeMap(const Input& in) {
  FoldedMap m;
  for (std::size_t k = 0; k < in.stored.size(); ++k) m[AnsiFoldCase(in.stored[k])] = Integer(k);
  return m;
}

// ---- the dump ------------------------------------------------------------------------------

void DumpGetByName(benchmark::State& state) {
  const Input& in = InputFor(static_cast<int>(state.range(0)));
  IPtr<IDump> d = MakeDump(in);
  std::size_t i = 0;
  for (auto _ : state) {
    Variant v = d->get_ByName(in.queries[i]);
    benchmark::DoNotOptimize(v);
    if (++i == in.queries.size()) i = 0;
  }
}

void DumpSetByName(benchmark::State& state) {
  const Input& in = InputFor(static_cast<int>(state.range(0)));
  IPtr<IDump> d = MakeDump(in);
  std::size_t i = 0;
  Integer value = 0;
  for (auto _ : state) {
    d->set_ByName(in.queries[i], Variant(++value));
    if (++i == in.queries.size()) i = 0;
  }
  if (d->get_Count() != static_cast<Integer>(in.stored.size())) state.SkipWithError("grew");
}

void DumpIndexOfAbsent(benchmark::State& state) {
  const Input& in = InputFor(static_cast<int>(state.range(0)));
  IPtr<IDump> d = MakeDump(in);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(d->IndexOf(in.absent[i]));
    if (++i == in.absent.size()) i = 0;
  }
}

// ---- the baseline --------------------------------------------------------------------------

void MapGetByName(benchmark::State& state) {
  const Input& in = InputFor(static_cast<int>(state.range(0)));
  FoldedMap m = MakeMap(in);
  std::size_t i = 0;
  for (auto _ : state) {
    auto it = m.find(AnsiFoldCase(in.queries[i]));
    Variant v = it->second;
    benchmark::DoNotOptimize(v);
    if (++i == in.queries.size()) i = 0;
  }
}

void MapSetByName(benchmark::State& state) {
  const Input& in = InputFor(static_cast<int>(state.range(0)));
  FoldedMap m = MakeMap(in);
  std::size_t i = 0;
  Integer value = 0;
  for (auto _ : state) {
    m.find(AnsiFoldCase(in.queries[i]))->second = Variant(++value);
    if (++i == in.queries.size()) i = 0;
  }
}

void MapFindAbsent(benchmark::State& state) {
  const Input& in = InputFor(static_cast<int>(state.range(0)));
  FoldedMap m = MakeMap(in);
  std::size_t i = 0;
  for (auto _ : state) {
    bool found = m.find(AnsiFoldCase(in.absent[i])) != m.end();
    benchmark::DoNotOptimize(found);
    if (++i == in.absent.size()) i = 0;
  }
}

struct Pair {
  const char* op;
  void (*dump)(benchmark::State&);
  void (*map)(benchmark::State&);
};
constexpr Pair kPairs[] = {
    {"get_ByName", DumpGetByName, MapGetByName},
    {"set_ByName", DumpSetByName, MapSetByName},
    {"IndexOf_absent", DumpIndexOfAbsent, MapFindAbsent},
};

// Collects the times (the medians when there are repetitions) for the closing table. CPU
// time rather than wall time, so that other work on a shared machine disturbs it less.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& r : runs) {
      bool use =
          r.run_type == Run::RT_Aggregate ? r.aggregate_name == "median" : r.repetitions <= 1;
      if (use && !r.error_occurred)
        fTimes[r.run_name.function_name + "/" + r.run_name.args] = r.GetAdjustedCPUTime();
    }
  }

  void PrintTable() const {
    std::printf("\n%-15s %6s %10s %10s %8s %10s\n", "operation", "size", "dump ns", "map ns",
                "dump/map", "vs 8");
    for (const Pair& p : kPairs) {
      double base = Time("Dump/", p.op, 8);
      for (int n : kSizes) {
        double d = Time("Dump/", p.op, n), m = Time("Map/", p.op, n);
        if (d <= 0 || m <= 0) continue;
        std::printf("%-15s %6d %10.1f %10.1f %8.2f %10.2f\n", p.op, n, d, m, d / m,
                    base > 0 ? d / base : 0.0);
      }
    }
  }

 private:
  double Time(const char* kind, const char* op, int n) const {
    auto it = fTimes.find(std::string(kind) + op + "/" + std::to_string(n));
    return it == fTimes.end() ? -1.0 : it->second;
  }
  std::map<std::string, double> fTimes;
};

}  // namespace

int main(int argc, char** argv) {
  for (const Pair& p : kPairs)
    for (int n : kSizes) {
      benchmark::RegisterBenchmark((std::string("Dump/") + p.op).c_str(), p.dump)->Arg(n);
      benchmark::RegisterBenchmark((std::string("Map/") + p.op).c_str(), p.map)->Arg(n);
    }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintTable();
  benchmark::Shutdown();
  return 0;
}
