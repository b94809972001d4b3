// Item queries over a document of N rows (each with an id, a Cyrillic name, an amount and
// two children): a filtered path that has to look at every row, the key search through the
// whole subtree, and the keyed index, built once and then searched by binary search.
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/xml/Xdata.h>

#include <benchmark/benchmark.h>

namespace ostrel {
namespace {

IPtr<IXItem> Rows(int n) {
  IPtr<IXDoc> doc;
  GetXDocIntf("", doc);
  TXItem* root = static_cast<TXDocIntf*>(doc.Get())->Root();
  root->set_Name(std::string_view("rows"));
  static constexpr auto name = Cp1251(u8"Контрагент № %d");
  for (int i = 0; i < n; ++i) {
    TXItem* row = root->Add();
    row->set_Name(std::string_view("row"));
    row->set_Attr("id", IntToStr(i));
    row->set_Attr("name", Format(name, i));
    row->set_Attr("sum", FloatToStr(i * 10.25));
    row->Add()->set_Name(std::string_view("account"));
    row->Add()->set_Name(std::string_view("purpose"));
  }
  return doc->get_Root();
}

void BM_FindXPathFilter(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const IPtr<IXItem> root = Rows(n);
  const AnsiString path = "row[@id=\"" + IntToStr(n - 1) + "\"]/purpose";
  for (auto _ : state) {
    IPtr<IXItem> found;
    benchmark::DoNotOptimize(FindXPath(root, path, true, found));
  }
  state.SetItemsProcessed(state.iterations() * n);  // rows looked at
}
BENCHMARK(BM_FindXPathFilter)->Arg(10000);

void BM_FindXRecurse(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const IPtr<IXItem> root = Rows(n);
  for (auto _ : state) benchmark::DoNotOptimize(FindXRecurse(root, "row", "id", "-1", false));
  state.SetItemsProcessed(state.iterations() * n * 3);  // items looked at
}
BENCHMARK(BM_FindXRecurse)->Arg(10000);

void BM_IndexBuild(benchmark::State& state) {
  const IPtr<IXItem> root = Rows(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    IPtr<IXItemList> list;
    GetXItemListIntf(root, "row", list);
    IPtr<IXItemIndex> index;
    GetXItemIndexIntf(list, "name", index);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_IndexBuild)->Arg(10000);

void BM_IndexFind(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const IPtr<IXItem> root = Rows(n);
  IPtr<IXItemList> list;
  GetXItemListIntf(root, "row", list);
  IPtr<IXItemIndex> index;
  GetXItemIndexIntf(list, "id", index);
  int i = 0;
  for (auto _ : state) {
    IPtr<IXItem> found;
    benchmark::DoNotOptimize(index->FindItem(IntToStr(i), found));
    i = (i + 7919) % n;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_IndexFind)->Arg(10000);

}  // namespace
}  // namespace ostrel

BENCHMARK_MAIN();
