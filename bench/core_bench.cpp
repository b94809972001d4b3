// Speed of the buffered stream and of the sorted key index, each beside a standard-library
// baseline on the same input in the same run.
//
// The stream benchmarks read two 64 MiB files made in the temporary directory at start-up
// (random bytes, and text in 80-byte lines) and removed at exit. The key index benchmarks
// insert the same random integer keys into the index and into a std::multimap, then look
// each key up. A flat pointer vector with the same binary search and insert, the obvious
// way to keep records in order, runs beside them at small sizes to show how its cost grows.
#include <ostrel/core/BufStream.h>
#include <ostrel/core/KeyIndex.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace ostrel;
namespace fs = std::filesystem;

constexpr std::size_t kFileSize = std::size_t{64} << 20;
constexpr std::size_t kLineLen = 80;  // 79 characters and a line feed

// The two input files, made once and removed when the program ends.
class Files {
 public:
  static const Files& Get() {
    static const Files files;
    return files;
  }
  std::string bytes, lines;

 private:
  Files() {
    const fs::path dir =
        fs::temp_directory_path() / ("ostrel_core_bench_" + std::to_string(std::random_device{}()));
    fs::create_directories(dir);
    fDir = dir;
    bytes = (dir / "bytes.bin").string();
    lines = (dir / "lines.txt").string();
    std::mt19937_64 rng(1);
    std::string block(1 << 20, '\0');
    std::ofstream b(bytes, std::ios::binary);
    for (std::size_t done = 0; done < kFileSize; done += block.size()) {
      for (char& c : block) c = static_cast<char>(rng());
      b.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    std::ofstream t(lines, std::ios::binary);
    std::string line(kLineLen, ' ');
    line.back() = '\n';
    for (std::size_t done = 0; done < kFileSize; done += kLineLen) {
      for (std::size_t i = 0; i + 1 < kLineLen; ++i) line[i] = static_cast<char>('a' + rng() % 26);
      t.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
  }
  ~Files() {
    std::error_code ec;
    fs::remove_all(fDir, ec);
  }
  fs::path fDir;
};

// ---- Buffered stream -------------------------------------------------------------------

void BM_BufStream_GetChar(benchmark::State& state) {
  const std::string& path = Files::Get().bytes;
  for (auto _ : state) {
    TkxBufStream bs(new TFileStream(path, fmOpenRead | fmShareDenyNone), true,
                    static_cast<Integer>(state.range(0)));
    std::uint64_t sum = 0;
    while (!bs.Eof()) sum += static_cast<unsigned char>(bs.GetChar());
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_BufStream_GetChar)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond);

void BM_Ifstream_Get(benchmark::State& state) {
  const std::string& path = Files::Get().bytes;
  for (auto _ : state) {
    std::ifstream f(path, std::ios::binary);
    std::uint64_t sum = 0;
    char c;
    while (f.get(c)) sum += static_cast<unsigned char>(c);
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_Ifstream_Get)->Unit(benchmark::kMillisecond);

void BM_BufStream_Readln(benchmark::State& state) {
  const std::string& path = Files::Get().lines;
  for (auto _ : state) {
    TkxBufStream bs(new TFileStream(path, fmOpenRead | fmShareDenyNone), true,
                    static_cast<Integer>(state.range(0)));
    std::size_t total = 0;
    while (!bs.Eof()) total += bs.Readln().size();
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_BufStream_Readln)->Arg(4096)->Arg(65536)->Unit(benchmark::kMillisecond);

// Readln into one reused string, as std::getline is used.
void BM_BufStream_ReadlnReuse(benchmark::State& state) {
  const std::string& path = Files::Get().lines;
  for (auto _ : state) {
    TkxBufStream bs(new TFileStream(path, fmOpenRead | fmShareDenyNone), true, 65536);
    std::size_t total = 0;
    AnsiString line;
    while (!bs.Eof()) {
      bs.Readln(line);
      total += line.size();
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_BufStream_ReadlnReuse)->Unit(benchmark::kMillisecond);

void BM_Ifstream_Getline(benchmark::State& state) {
  const std::string& path = Files::Get().lines;
  for (auto _ : state) {
    std::ifstream f(path, std::ios::binary);
    std::size_t total = 0;
    std::string line;
    while (std::getline(f, line)) total += line.size();
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}
BENCHMARK(BM_Ifstream_Getline)->Unit(benchmark::kMillisecond);

// ---- Sorted key index ------------------------------------------------------------------

const std::vector<Integer>& Keys(std::size_t n) {
  static std::map<std::size_t, std::vector<Integer>> cache;
  auto& keys = cache[n];
  if (keys.empty()) {
    std::mt19937 rng(static_cast<unsigned>(n));
    keys.resize(n);
    for (Integer& k : keys) k = static_cast<Integer>(rng() & 0x7FFFFFFF);
  }
  return keys;
}

void BM_KeyIndex_Insert(benchmark::State& state) {
  const auto& keys = Keys(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    auto index = std::make_unique<TkxKeyIndex>(dupAccept, false, true);
    for (Integer k : keys) index->AddKey(k, nullptr);
    state.PauseTiming();
    index.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_KeyIndex_Insert)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_Multimap_Insert(benchmark::State& state) {
  const auto& keys = Keys(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    auto map = std::make_unique<std::multimap<Integer, void*>>();
    for (Integer k : keys) map->emplace(k, nullptr);
    state.PauseTiming();
    map.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_Multimap_Insert)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_KeyIndex_Lookup(benchmark::State& state) {
  const auto& keys = Keys(static_cast<std::size_t>(state.range(0)));
  TkxKeyIndex index(dupAccept, false, true);
  for (Integer k : keys) index.AddKey(k, nullptr);
  for (auto _ : state) {
    std::size_t found = 0;
    Integer at;
    for (Integer k : keys) found += index.FindKey(k, at);
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_KeyIndex_Lookup)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_Multimap_Lookup(benchmark::State& state) {
  const auto& keys = Keys(static_cast<std::size_t>(state.range(0)));
  std::multimap<Integer, void*> map;
  for (Integer k : keys) map.emplace(k, nullptr);
  for (auto _ : state) {
    std::size_t found = 0;
    for (Integer k : keys) found += map.find(k) != map.end();
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_Multimap_Lookup)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// The records in one flat vector: the same search, and an insert that moves every pointer
// behind the position.
void BM_FlatVector_Insert(benchmark::State& state) {
  const auto& keys = Keys(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::vector<TkxKeyRec*> recs;
    for (Integer k : keys) {
      auto at = std::lower_bound(recs.begin(), recs.end(), k,
                                 [](TkxKeyRec* r, Integer key) { return VarToInt(r->Key) < key; });
      recs.insert(at, new TkxKeyRec{k, nullptr});
    }
    state.PauseTiming();
    for (TkxKeyRec* r : recs) delete r;
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * keys.size()));
}
BENCHMARK(BM_FlatVector_Insert)
    ->Arg(100000)
    ->Arg(200000)
    ->Arg(400000)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
