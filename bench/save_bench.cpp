// What a safe save costs: a file of 1 KB, 64 KB and 4 MB written through TSafeFileWriter
// (temporary file, sync, rename, folder sync) against the same bytes written in place with a
// plain TFileStream (no sync), in the system's temporary folder. The difference is mostly the
// disk's sync, so the numbers say more about the machine's storage than about the library.
#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/SafeFile.h>
#include <ostrel/rtl/Strings.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>

namespace {

using namespace ostrel;

std::filesystem::path TargetPath() {
  return std::filesystem::temp_directory_path() / "ostrel-save-bench.txt";
}

std::string TargetName() {
  std::u8string name = TargetPath().u8string();
  return Utf8ToAnsi(std::u8string_view(name));
}

void BM_SafeSave(benchmark::State& state) {
  const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
  const std::string name = TargetName();
  for (auto _ : state) {
    TSafeFileWriter file(name);
    file.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
    file.Commit();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
  std::filesystem::remove(TargetPath());
}

void BM_InPlaceWrite(benchmark::State& state) {
  const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
  const std::string name = TargetName();
  for (auto _ : state) {
    TFileStream file(name, fmCreate);
    file.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
  std::filesystem::remove(TargetPath());
}

BENCHMARK(BM_SafeSave)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 22)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_InPlaceWrite)->Arg(1 << 10)->Arg(1 << 16)->Arg(1 << 22)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
