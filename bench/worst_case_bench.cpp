// How the cost of the library's entry points grows with the size of their input, on the
// inputs that are worst for each: a search text that nearly matches everywhere, many names
// removed or excluded at once, long ID lists, many attributes or controls. Each runs at sizes
// growing fourfold, and Google Benchmark fits the times to a growth order ("_BigO" rows: N,
// NlgN or N^2 with its coefficient). Everything here is expected to fit N or NlgN except the
// rows named "Known/", which grow with the square of their size for reasons written down in
// docs/ARCHITECTURE.md.
//
//   build/bench/worst_case_bench --benchmark_filter=BigO   (the fitted orders only)
#include <ostrel/controls/LayoutFiles.h>
#include <ostrel/core/BufStream.h>
#include <ostrel/core/Dump.h>
#include <ostrel/core/VarList.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/xml/Xdata.h>
#include <ostrel/xml/Xmlutils.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

using namespace ostrel;

std::string Repeat(std::string_view piece, std::int64_t n) {
  std::string s;
  s.reserve(piece.size() * static_cast<std::size_t>(n));
  for (std::int64_t i = 0; i < n; ++i) s += piece;
  return s;
}

void LoadText(TXItem& item, std::string_view text) {
  TMemoryStream stream;
  stream.WriteBuffer(text.data(), static_cast<Integer>(text.size()));
  stream.SetPosition(0);
  LoadXData(&item, stream);
}

// A document read from the text; its top element is the root item.
IPtr<IXDoc> Doc(std::string_view text) {
  IPtr<IXDoc> doc;
  GetXDocIntf(std::string_view(), doc);
  LoadText(*XRootOf(doc.Get()), text);
  return doc;
}

// Text of N bytes searched for a text of N/2 bytes that differs from it in its last byte.
void Search_NearMatch(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  const std::string text(static_cast<std::size_t>(n), 'a');
  const std::string near = std::string(static_cast<std::size_t>(n / 2 - 1), 'a') + "b";
  for (auto _ : state) {
    benchmark::DoNotOptimize(Pos(near, text));
    benchmark::DoNotOptimize(AnsiPosText(near, text));
    benchmark::DoNotOptimize(StringReplaceAll(text, near, "x", true));
  }
  state.SetComplexityN(n);
}
BENCHMARK(Search_NearMatch)->RangeMultiplier(4)->Range(1 << 14, 1 << 20)->Complexity();

// A stream of N bytes searched for a near match of 1,000 bytes.
void BufStreamSearch_NearMatch(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  const std::string data = std::string(static_cast<std::size_t>(n), 'a') + "b";
  const std::string text = std::string(999, 'a') + "b";
  for (auto _ : state) {
    TMemoryStream stream;
    stream.WriteBuffer(data.data(), static_cast<Integer>(data.size()));
    stream.SetPosition(0);
    TkxBufStream buffered(&stream, false, 1 << 16);
    benchmark::DoNotOptimize(buffered.Search(text, false));
  }
  state.SetComplexityN(n);
}
BENCHMARK(BufStreamSearch_NearMatch)->RangeMultiplier(4)->Range(1 << 16, 1 << 22)->Complexity();

// A dump of N names, half of them excluded from the name list and then removed at once.
void Dump_ExcludeAndRemoveHalf(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  std::vector<AnsiString> names;
  AnsiString list;
  for (std::int64_t i = 0; i < n; i += 2) {
    names.push_back("N" + IntToStr(i));
    list += "N" + IntToStr(i) + ";";
  }
  for (auto _ : state) {
    state.PauseTiming();
    IPtr<IDump> d = GetDumpIntf();
    for (std::int64_t i = 0; i < n; ++i) d->set_ByName("n" + IntToStr(i), i);
    state.ResumeTiming();
    benchmark::DoNotOptimize(Dump_Names_Exclude(d, names, ";"));
    Dump_Remove(d, list);
  }
  state.SetComplexityN(n);
}
BENCHMARK(Dump_ExcludeAndRemoveHalf)->RangeMultiplier(4)->Range(1 << 10, 1 << 16)->Complexity();

// An ID list of N IDs from text, compared as a set with the same IDs in reverse order.
void IDList_FromTextAndCompare(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  AnsiString text;
  for (std::int64_t i = 0; i < n; ++i) text += IntToStr(i) + ";";
  IPtr<IkxIDList> reversed = GetIDListIntf();
  for (std::int64_t i = n - 1; i >= 0; --i) reversed->Add(static_cast<Integer>(i));
  for (auto _ : state) {
    IPtr<IkxIDList> list = GetIDListIntf();
    list->SetAsString(text, ';');
    benchmark::DoNotOptimize(list->IsEqual(reversed, false));
  }
  state.SetComplexityN(n);
}
BENCHMARK(IDList_FromTextAndCompare)->RangeMultiplier(4)->Range(1 << 10, 1 << 16)->Complexity();

// One element of N attributes read and each attribute matched as a key of another.
void XML_WideElementLoadAndMatch(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  std::string attrs;
  for (std::int64_t i = 0; i < n; ++i)
    attrs += " a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
  const std::string doc = "<r><row" + attrs + "/></r>", keys = "<k" + attrs + "/>";
  for (auto _ : state) {
    IPtr<IDump> values;
    Doc(keys)->get_Root()->GetAttrList(values);
    IPtr<IXItem> found;
    benchmark::DoNotOptimize(LocateXItem(Doc(doc)->get_Root(), "row", values, true, found));
  }
  state.SetComplexityN(n);
}
BENCHMARK(XML_WideElementLoadAndMatch)->RangeMultiplier(4)->Range(1 << 10, 1 << 16)->Complexity();

// Known: a layout of N controls in one panel loaded, drawn and freed; the component model
// tells every owned component of each insert and removal.
void Known_LayoutWideLoad(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  std::string text = "<layout name=\"G\"><panel name=\"P\">";
  for (std::int64_t i = 0; i < n; ++i)
    text += "<control name=\"ed" + std::to_string(i) + "\" kind=\"TEdit\"/>";
  text += "</panel></layout>";
  TXItem file;
  LoadText(file, text);
  for (auto _ : state) {
    TComponent form(nullptr);
    auto* grid = NewComponent<TkxLayoutGrid>(form);
    Layout_LoadFromXItem(*grid, &file);
    benchmark::DoNotOptimize(Layout_Draw(*grid));
  }
  state.SetComplexityN(n);
}
BENCHMARK(Known_LayoutWideLoad)->RangeMultiplier(4)->Range(1 << 8, 1 << 14)->Complexity();

// Known: N attributes set one by one on an item, each set scanning the attribute text.
void Known_XML_SetAttrOneByOne(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  for (auto _ : state) {
    IPtr<IXItem> item = Doc("<r/>")->get_Root();
    for (std::int64_t i = 0; i < n; ++i) item->set_Attr("a" + std::to_string(i), "1");
  }
  state.SetComplexityN(n);
}
BENCHMARK(Known_XML_SetAttrOneByOne)->RangeMultiplier(4)->Range(1 << 8, 1 << 14)->Complexity();

}  // namespace

BENCHMARK_MAIN();
