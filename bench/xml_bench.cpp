// Speed of reading and writing XML: a generated CP1251 business document (a register of
// payment documents: nested elements with 2-5 attributes, Cyrillic names and text, amounts,
// dates, entities, comments and CDATA) of about 1 MB and 40 MB, loaded into a tree and
// freed, and written from a tree into memory. pugixml and tinyxml2, when found, do the same
// on the same bytes in the same run. The closing table gives MB/s, the ratios to the peers
// and the heap held by a loaded 40 MB document.
#include <ostrel/rtl/Format.h>
#include <ostrel/xml/Xdata.h>
#include <ostrel/xml/Xmlutils.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#ifdef OSTREL_HAVE_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef OSTREL_HAVE_TINYXML2
#include <tinyxml2.h>
#endif

namespace {

using namespace ostrel;

constexpr int kSizesMB[] = {1, 40};

// ---------------------------------------------------------------------------------------
// The document

std::string Generate(std::size_t bytes) {
  std::mt19937 rng(20240301);
  auto pick = [&](const std::vector<AnsiString>& v) -> const AnsiString& {
    return v[rng() % v.size()];
  };
  auto amount = [&] {
    return IntToStr(rng() % 100000) + "." + IntToStr(10 + rng() % 90);
  };
  auto date = [&] {
    return "2024-" + IntToStr(10 + rng() % 3) + "-" + IntToStr(10 + rng() % 19);
  };
  const std::vector<AnsiString> firms = {
      Ansi(u8"ООО &quot;Ромашка&quot;"), Ansi(u8"АО &quot;Вектор &amp; К&quot;"),
      Ansi(u8"ИП Сидоров Пётр Ильич"), Ansi(u8"ПАО &quot;Северная верфь&quot;")};
  const std::vector<AnsiString> goods = {
      Ansi(u8"Бумага офисная А4"), Ansi(u8"Картридж лазерный"), Ansi(u8"Услуги связи"),
      Ansi(u8"Аренда помещения &lt;офис 12&gt;"), Ansi(u8"Доставка груза")};
  const AnsiString docTag = Ansi(u8"Документ"), lineTag = Ansi(u8"Строка");
  std::string s = std::string(XML_HEADER_WIN1251) + "\r\n" +
                  Ansi(u8"<Реестр версия=\"2\" дата=\"2024-03-01\" отправитель=\"Банк\">\r\n");
  for (int n = 1; s.size() < bytes; ++n) {
    if (n % 10 == 1) s += Ansi(u8"  <!-- Пакет ") + IntToStr(n / 10 + 1) + " -->\r\n";
    s += "  <" + docTag + Ansi(u8" номер=\"") + IntToStr(100000 + n) + Ansi(u8"\" дата=\"") +
         date() + Ansi(u8"\" вид=\"Платёжное поручение\" сумма=\"") + amount() + "\">\r\n";
    s += Ansi(u8"    <Плательщик ИНН=\"77") + IntToStr(10000000 + rng() % 89999999) +
         Ansi(u8"\" КПП=\"770101001\" наименование=\"") + pick(firms) + "\"/>\r\n";
    s += Ansi(u8"    <Получатель ИНН=\"78") + IntToStr(10000000 + rng() % 89999999) +
         Ansi(u8"\" наименование=\"") + pick(firms) + Ansi(u8"\" счёт=\"40702810") +
         IntToStr(100000000 + rng() % 899999999) + "\"/>\r\n";
    s += Ansi(u8"    <Строки>\r\n");
    const int lines = 2 + static_cast<int>(rng() % 5);
    for (int k = 1; k <= lines; ++k)
      s += "      <" + lineTag + Ansi(u8" н=\"") + IntToStr(k) + Ansi(u8"\" товар=\"") +
           pick(goods) + Ansi(u8"\" кол=\"") + IntToStr(1 + rng() % 50) + Ansi(u8"\" цена=\"") +
           amount() + Ansi(u8"\" сумма=\"") + amount() + "\"/>\r\n";
    s += Ansi(u8"    </Строки>\r\n");
    s += Ansi(u8"    <Назначение>Оплата по счёту № ") + IntToStr(rng() % 1000) +
         Ansi(u8" от ") + date() + Ansi(u8" &amp; НДС 20% (") + amount() +
         Ansi(u8" руб.)</Назначение>\r\n");
    if (n % 3 == 0)
      s += Ansi(u8"    <Примечание><![CDATA[Срочно: до 15:00 <без акцепта>]]></Примечание>\r\n");
    s += "  </" + docTag + ">\r\n";
  }
  s += Ansi(u8"</Реестр>\r\n");
  return s;
}

const std::string& Document(int mb) {
  static std::map<int, std::string> docs;
  auto it = docs.find(mb);
  if (it == docs.end()) it = docs.emplace(mb, Generate(static_cast<std::size_t>(mb) << 20)).first;
  return it->second;
}

TMemoryStream& DocumentStream(int mb) {
  static std::map<int, TMemoryStream> streams;
  TMemoryStream& stream = streams[mb];
  if (stream.GetSize() == 0) {
    const std::string& doc = Document(mb);
    stream.WriteBuffer(doc.data(), static_cast<Integer>(doc.size()));
  }
  return stream;
}

void Throughput(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// ---------------------------------------------------------------------------------------
// Ostrel

void OstrelLoad(benchmark::State& state) {
  const int mb = static_cast<int>(state.range(0));
  TMemoryStream& stream = DocumentStream(mb);
  for (auto _ : state) {
    stream.SetPosition(0);
    TXItem root;
    LoadXData(&root, stream);
    benchmark::DoNotOptimize(root.get_Count());
  }
  Throughput(state, Document(mb).size());
}

void OstrelSave(benchmark::State& state) {
  const int mb = static_cast<int>(state.range(0));
  TMemoryStream& stream = DocumentStream(mb);
  stream.SetPosition(0);
  TXItem root;
  LoadXData(&root, stream);
  // One output stream for all rounds (rewritten from its start), so that what is measured is
  // the writer and not the system handing out fresh pages; the peers do the same.
  TMemoryStream out;
  for (auto _ : state) {
    out.SetPosition(0);
    SaveXData(&root, true, out);
    benchmark::DoNotOptimize(out.Memory());
  }
  Throughput(state, Document(mb).size());
}

// ---------------------------------------------------------------------------------------
// Peers

#ifdef OSTREL_HAVE_PUGIXML
void PugiLoad(benchmark::State& state) {
  const std::string& doc = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    pugi::xml_document d;
    // Bytes as they stand (no conversion), as the Ostrel reader takes them.
    d.load_buffer(doc.data(), doc.size(), pugi::parse_default, pugi::encoding_utf8);
    benchmark::DoNotOptimize(d.first_child());
  }
  Throughput(state, doc.size());
}

struct StringWriter : pugi::xml_writer {
  std::string out;
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
};

void PugiSave(benchmark::State& state) {
  const std::string& doc = Document(static_cast<int>(state.range(0)));
  pugi::xml_document d;
  d.load_buffer(doc.data(), doc.size(), pugi::parse_default, pugi::encoding_utf8);
  StringWriter w;
  for (auto _ : state) {
    w.out.clear();
    d.save(w, "  ", pugi::format_default, pugi::encoding_utf8);
    benchmark::DoNotOptimize(w.out.data());
  }
  Throughput(state, doc.size());
}
#endif

#ifdef OSTREL_HAVE_TINYXML2
void TinyLoad(benchmark::State& state) {
  const std::string& doc = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    tinyxml2::XMLDocument d;
    d.Parse(doc.data(), doc.size());
    benchmark::DoNotOptimize(d.FirstChild());
  }
  Throughput(state, doc.size());
}

void TinySave(benchmark::State& state) {
  const std::string& doc = Document(static_cast<int>(state.range(0)));
  tinyxml2::XMLDocument d;
  d.Parse(doc.data(), doc.size());
  tinyxml2::XMLPrinter printer;
  for (auto _ : state) {
    printer.ClearBuffer();
    d.Print(&printer);
    benchmark::DoNotOptimize(printer.CStr());
  }
  Throughput(state, doc.size());
}
#endif

// ---------------------------------------------------------------------------------------
// Memory held by a loaded document (glibc's count of allocated heap bytes)

std::size_t HeapInUse() {
#if defined(__GLIBC__)
  return mallinfo2().uordblks + mallinfo2().hblkhd;  // heap chunks and mapped blocks
#else
  return 0;
#endif
}

template <class Load>
double HeapMBOfLoaded(Load load) {
  const std::size_t before = HeapInUse();
  std::size_t held = 0;
  load([&] { held = HeapInUse() - before; });
  return static_cast<double>(held) / (1 << 20);
}

// ---------------------------------------------------------------------------------------
// The table

struct Lib {
  const char* name;
  void (*load)(benchmark::State&);
  void (*save)(benchmark::State&);
};
const std::vector<Lib>& Libs() {
  static const std::vector<Lib> libs = {
      {"Ostrel", OstrelLoad, OstrelSave},
#ifdef OSTREL_HAVE_PUGIXML
      {"pugixml", PugiLoad, PugiSave},
#endif
#ifdef OSTREL_HAVE_TINYXML2
      {"tinyxml2", TinyLoad, TinySave},
#endif
  };
  return libs;
}

// Collects bytes per second (medians when there are repetitions) for the closing table.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& r : runs) {
      const bool use = r.run_type == Run::RT_Aggregate ? r.aggregate_name == "median"
                                                       : r.repetitions <= 1;
      auto it = r.counters.find("bytes_per_second");
      if (use && !r.error_occurred && it != r.counters.end())
        fRates[r.run_name.function_name + "/" + r.run_name.args] = it->second.value / (1 << 20);
    }
  }

  void PrintTable(const std::map<std::string, double>& heap) const {
    std::printf("\n%-6s %5s", "op", "MB");
    for (const Lib& lib : Libs()) std::printf(" %10s", (std::string(lib.name) + " MB/s").c_str() + 0);
    for (std::size_t i = 1; i < Libs().size(); ++i)
      std::printf(" %12s", ("vs " + std::string(Libs()[i].name)).c_str());
    std::printf("\n");
    for (const char* op : {"Load", "Save"})
      for (int mb : kSizesMB) {
        std::printf("%-6s %5d", op, mb);
        std::vector<double> rates;
        for (const Lib& lib : Libs()) {
          rates.push_back(Rate(std::string(lib.name) + "/" + op + "/" + std::to_string(mb)));
          std::printf(" %10.1f", rates.back());
        }
        for (std::size_t i = 1; i < rates.size(); ++i)
          std::printf(" %12.2f", rates[i] > 0 ? rates[0] / rates[i] : 0.0);
        std::printf("\n");
      }
    std::printf("\nheap held by a loaded %d MB document:", kSizesMB[1]);
    for (const auto& [name, mb] : heap) std::printf("  %s %.1f MB", name.c_str(), mb);
    std::printf("\n");
  }

 private:
  double Rate(const std::string& key) const {
    auto it = fRates.find(key);
    return it == fRates.end() ? 0.0 : it->second;
  }
  std::map<std::string, double> fRates;
};

// ---------------------------------------------------------------------------------------
// Extremes of the tree and the queries: one item with 100 000 attributes matched on all of
// them (XCopyItems, and XFix keyed on them), interfaces taken while walking down a chain of
// 100 000 items, and get_Doc of an item 10^6 levels deep.

// a0="v0" a1="v1" ...
AnsiString WideAttrs(int count) {
  AnsiString text;
  for (int i = 0; i < count; ++i) text += " a" + IntToStr(i) + "=\"v" + IntToStr(i) + "\"";
  return text;
}

// A new document <r><row a0="v0" ... /></r>; its root.
IPtr<IXItem> WideRow(int attrs) {
  IPtr<IXDoc> doc;
  GetXDocIntf(std::string_view(), doc);
  TXItem* row = static_cast<TXDocIntf*>(doc.Get())->Root()->Add();
  row->set_Name("row");
  row->set_AttrText(WideAttrs(attrs));
  return doc->get_Root();
}

void XCopyItemsWideKeys(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const IPtr<IXItem> dest = WideRow(n), source = WideRow(n);
  for (auto _ : state) XCopyItems(dest, source);  // the row matches: nothing is added
  if (dest->get_Count() != 1) state.SkipWithError("the wide row was not matched");
}
BENCHMARK(XCopyItemsWideKeys)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

// The target row <row a0=...><v/></row>; the fixes <f><row a0=...><v fix="u"/></row></f>
// find it by all its attributes and replace its v.
void XFixWideKeys(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  TXItem target;
  target.set_Name("row");
  target.set_AttrText(WideAttrs(n));
  target.Add()->set_Name("v");
  TXItem fixes;
  TXItem* fix = fixes.Add();
  fix->set_Name("row");
  fix->set_AttrText(WideAttrs(n));
  TXItem* change = fix->Add();
  change->set_Name("v");
  change->set_AttrText("fix=\"u\"");
  for (auto _ : state) XFix(&target, &fixes);
  if (target.get_Items(0)->get_AttrText().empty()) state.SkipWithError("the fix was not applied");
}
BENCHMARK(XFixWideKeys)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

// A document whose root holds a chain of `depth` items.
IPtr<IXDoc> Chain(int depth) {
  IPtr<IXDoc> doc;
  GetXDocIntf(std::string_view(), doc);
  TXItem* item = static_cast<TXDocIntf*>(doc.Get())->Root();
  for (int i = 0; i < depth; ++i) item = item->Add();
  return doc;
}

void WalkDownTakingInterfaces(benchmark::State& state) {
  const int depth = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    IPtr<IXDoc> doc = Chain(depth);
    state.ResumeTiming();
    IPtr<IXItem> item = doc->get_Root();
    while (item->get_Count() > 0) item = item->get_Items(0);
    state.PauseTiming();
    item = nullptr;
    doc = nullptr;
    state.ResumeTiming();
  }
}
BENCHMARK(WalkDownTakingInterfaces)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(3);

void GetDocDeep(benchmark::State& state) {
  const IPtr<IXDoc> doc = Chain(static_cast<int>(state.range(0)));
  TXItem* deepest = static_cast<TXDocIntf*>(doc.Get())->Root();
  while (deepest->get_Count() > 0) deepest = deepest->get_Items(0);
  const IPtr<IXItem> item = deepest->get_Intf();
  for (auto _ : state) benchmark::DoNotOptimize(item->get_Doc());
}
BENCHMARK(GetDocDeep)->Arg(1000000)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  for (const Lib& lib : Libs())
    for (int mb : kSizesMB) {
      benchmark::RegisterBenchmark((std::string(lib.name) + "/Load").c_str(), lib.load)
          ->Arg(mb)->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark((std::string(lib.name) + "/Save").c_str(), lib.save)
          ->Arg(mb)->Unit(benchmark::kMillisecond);
    }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  const int big = kSizesMB[1];
  std::map<std::string, double> heap;
  const std::string& doc = Document(big);
  TMemoryStream& stream = DocumentStream(big);
  std::printf("document: %zu bytes\n", doc.size());
  heap["Ostrel"] = HeapMBOfLoaded([&](auto measure) {
    stream.SetPosition(0);
    TXItem root;
    LoadXData(&root, stream);
    measure();
  });
#ifdef OSTREL_HAVE_PUGIXML
  heap["pugixml"] = HeapMBOfLoaded([&](auto measure) {
    pugi::xml_document d;
    d.load_buffer(doc.data(), doc.size(), pugi::parse_default, pugi::encoding_utf8);
    measure();
  });
#endif
#ifdef OSTREL_HAVE_TINYXML2
  heap["tinyxml2"] = HeapMBOfLoaded([&](auto measure) {
    tinyxml2::XMLDocument d;
    d.Parse(doc.data(), doc.size());
    measure();
  });
#endif

  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintTable(heap);
  benchmark::Shutdown();
  return 0;
}
