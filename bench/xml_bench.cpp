// Speed of reading and writing XML: generated CP1251 documents of about 1 MB and 40 MB,
// loaded into a tree and freed, and written from a tree into memory. Two shapes: a register
// of payment documents (shallow, 2-5 attributes per element, Cyrillic names and values,
// amounts, dates, entities, comments and CDATA) and a book (sections nested up to eight deep,
// long paragraphs with entities and inline elements, few attributes). pugixml and tinyxml2,
// when found, do the same on the same bytes in the same run. The closing table gives MB/s
// (medians with --benchmark_repetitions), the ratios to the peers and the heap held by a
// loaded 40 MB document of each shape.
#include <ostrel/rtl/Format.h>
#include <ostrel/xml/Xdata.h>
#include <ostrel/xml/Xmlutils.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <malloc.h>
#include <algorithm>
#include <cstdlib>
#include <new>
#ifdef OSTREL_HAVE_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef OSTREL_HAVE_TINYXML2
#include <tinyxml2.h>
#endif

namespace {

using namespace ostrel;

constexpr int kSizesMB[] = {1, 40};
enum Shape { kRegister, kBook };
constexpr const char* kShapeNames[] = {"register", "book"};

// ---------------------------------------------------------------------------------------
// The document

std::string GenerateRegister(std::size_t bytes) {
  std::mt19937 rng(20240301);
  auto pick = [&](const std::vector<AnsiString>& v) -> const AnsiString& {
    return v[rng() % v.size()];
  };
  auto amount = [&] { return IntToStr(rng() % 100000) + "." + IntToStr(10 + rng() % 90); };
  auto date = [&] { return "2024-" + IntToStr(10 + rng() % 3) + "-" + IntToStr(10 + rng() % 19); };
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
    s += Ansi(u8"    <Назначение>Оплата по счёту № ") + IntToStr(rng() % 1000) + Ansi(u8" от ") +
         date() + Ansi(u8" &amp; НДС 20% (") + amount() + Ansi(u8" руб.)</Назначение>\r\n");
    if (n % 3 == 0)
      s += Ansi(u8"    <Примечание><![CDATA[Срочно: до 15:00 <без акцепта>]]></Примечание>\r\n");
    s += "  </" + docTag + ">\r\n";
  }
  s += Ansi(u8"</Реестр>\r\n");
  return s;
}

std::string GenerateBook(std::size_t bytes) {
  std::mt19937 rng(19991231);
  const std::vector<AnsiString> words = {Ansi(u8"договор"),
                                         Ansi(u8"поставка"),
                                         Ansi(u8"обязательства"),
                                         Ansi(u8"сторона"),
                                         Ansi(u8"оплата"),
                                         Ansi(u8"в"),
                                         Ansi(u8"и"),
                                         Ansi(u8"по"),
                                         Ansi(u8"срок"),
                                         Ansi(u8"&quot;Заказчик&quot;"),
                                         Ansi(u8"&lt;приложение&gt;"),
                                         Ansi(u8"&amp;"),
                                         Ansi(u8"рублей"),
                                         Ansi(u8"счёт"),
                                         Ansi(u8"акт"),
                                         Ansi(u8"2024"),
                                         Ansi(u8"№&#160;5")};
  auto sentence = [&] {
    AnsiString t;
    const int n = 8 + static_cast<int>(rng() % 30);
    for (int i = 0; i < n; ++i) t += (i ? " " : "") + words[rng() % words.size()];
    return t + ".";
  };
  const AnsiString section = Ansi(u8"Раздел");
  std::string s =
      std::string(XML_HEADER_WIN1251) + "\r\n" + Ansi(u8"<Книга название=\"Сборник условий\">\r\n");
  std::vector<int> open;  // numbers of the open sections
  int next = 1;
  while (s.size() < bytes || !open.empty()) {
    const std::string indent(2 * (open.size() + 1), ' ');
    const unsigned r = rng() % 10;
    if (s.size() < bytes && open.size() < 8 && (open.empty() || r < 3)) {
      s += indent + "<" + section + Ansi(u8" н=\"") + IntToStr(next) + "\">\r\n" + indent +
           Ansi(u8"  <Заголовок>") + sentence() + Ansi(u8"</Заголовок>\r\n");
      open.push_back(next++);
    } else if (s.size() >= bytes || r < 5) {
      s += std::string(2 * open.size(), ' ') + "</" + section + ">\r\n";
      open.pop_back();
    } else if (r < 8) {
      s += indent + Ansi(u8"<Абзац>");
      for (int k = 1 + static_cast<int>(rng() % 4); k > 0; --k) s += sentence() + " ";
      if (r == 7) s += Ansi(u8"<Выделение>") + sentence() + Ansi(u8"</Выделение> ") + sentence();
      s += Ansi(u8"</Абзац>\r\n");
    } else if (r == 8) {
      s += indent + Ansi(u8"<!-- правка ") + IntToStr(next) + " -->\r\n";
    } else {
      s += indent + Ansi(u8"<Формула><![CDATA[сумма < лимит && срок > 0]]></Формула>\r\n");
    }
  }
  s += Ansi(u8"</Книга>\r\n");
  return s;
}

const std::string& Document(int mb, int shape) {
  static std::map<std::pair<int, int>, std::string> docs;
  auto it = docs.find({mb, shape});
  if (it == docs.end()) {
    const std::size_t bytes = static_cast<std::size_t>(mb) << 20;
    it = docs.emplace(std::pair(mb, shape),
                      shape == kBook ? GenerateBook(bytes) : GenerateRegister(bytes))
             .first;
  }
  return it->second;
}
const std::string& Document(const benchmark::State& state) {
  return Document(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
}

TMemoryStream& DocumentStream(int mb, int shape) {
  static std::map<std::pair<int, int>, TMemoryStream> streams;
  TMemoryStream& stream = streams[{mb, shape}];
  if (stream.GetSize() == 0) {
    const std::string& doc = Document(mb, shape);
    stream.WriteBuffer(doc.data(), static_cast<Integer>(doc.size()));
  }
  return stream;
}
TMemoryStream& DocumentStream(const benchmark::State& state) {
  return DocumentStream(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
}

void Throughput(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// ---------------------------------------------------------------------------------------
// Ostrel

void OstrelLoad(benchmark::State& state) {
  TMemoryStream& stream = DocumentStream(state);
  for (auto _ : state) {
    stream.SetPosition(0);
    TXItem root;
    LoadXData(&root, stream);
    benchmark::DoNotOptimize(root.get_Count());
  }
  Throughput(state, Document(state).size());
}

void OstrelSave(benchmark::State& state) {
  TMemoryStream& stream = DocumentStream(state);
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
  Throughput(state, Document(state).size());
}

// ---------------------------------------------------------------------------------------
// Peers

#ifdef OSTREL_HAVE_PUGIXML
void PugiLoad(benchmark::State& state) {
  const std::string& doc = Document(state);
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
  const std::string& doc = Document(state);
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
  const std::string& doc = Document(state);
  for (auto _ : state) {
    tinyxml2::XMLDocument d;
    d.Parse(doc.data(), doc.size());
    benchmark::DoNotOptimize(d.FirstChild());
  }
  Throughput(state, doc.size());
}

void TinySave(benchmark::State& state) {
  const std::string& doc = Document(state);
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
// Heap of a load: the program's operator new and pugixml's allocation functions count the
// bytes they hand out while counting is on (off during the timed runs), so each library's
// peak during a load and what its loaded document holds are measured the same way.

bool gCounting = false;
std::int64_t gLive = 0, gPeak = 0;

void* CountedAlloc(std::size_t size, std::size_t align = 0) {
  void* p = align ? std::aligned_alloc(align, (size + align - 1) / align * align)
                  : std::malloc(size ? size : 1);
  if (p && gCounting)
    gPeak = std::max(gPeak, gLive += static_cast<std::int64_t>(malloc_usable_size(p)));
  return p;
}
void CountedFree(void* p) noexcept {
  if (p && gCounting) gLive -= static_cast<std::int64_t>(malloc_usable_size(p));
  std::free(p);
}
void* PugiAlloc(std::size_t size) { return CountedAlloc(size); }

struct HeapUse {
  double peakMB, heldMB;
};

template <class Load>
HeapUse MeasureHeap(Load load) {
  gLive = gPeak = 0;
  gCounting = true;
  std::int64_t held = 0;
  load([&] { held = gLive; });
  gCounting = false;
  return {static_cast<double>(gPeak) / (1 << 20), static_cast<double>(held) / (1 << 20)};
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
      const bool use =
          r.run_type == Run::RT_Aggregate ? r.aggregate_name == "median" : r.repetitions <= 1;
      auto it = r.counters.find("bytes_per_second");
      if (use && !r.error_occurred && it != r.counters.end())
        fRates[r.run_name.function_name + "/" + r.run_name.args] = it->second.value / (1 << 20);
    }
  }

  void PrintTable(const std::map<std::string, HeapUse>& heap) const {
    std::printf("\n%-6s %-9s %5s", "op", "shape", "MB");
    for (const Lib& lib : Libs()) std::printf(" %13s", (std::string(lib.name) + " MB/s").c_str());
    for (std::size_t i = 1; i < Libs().size(); ++i)
      std::printf(" %12s", ("vs " + std::string(Libs()[i].name)).c_str());
    std::printf("\n");
    for (const char* op : {"Load", "Save"})
      for (int shape : {kRegister, kBook})
        for (int mb : kSizesMB) {
          std::printf("%-6s %-9s %5d", op, kShapeNames[shape], mb);
          std::vector<double> rates;
          for (const Lib& lib : Libs()) {
            rates.push_back(Rate(std::string(lib.name) + "/" + op + "/" + std::to_string(mb) + "/" +
                                 std::to_string(shape)));
            std::printf(" %13.1f", rates.back());
          }
          for (std::size_t i = 1; i < rates.size(); ++i)
            std::printf(" %12.2f", rates[i] > 0 ? rates[0] / rates[i] : 0.0);
          std::printf("\n");
        }
    std::printf("\nheap of a loaded %d MB document, peak during the load / held after it:\n",
                kSizesMB[1]);
    for (const auto& [name, use] : heap)
      std::printf("  %-20s %8.1f MB / %8.1f MB\n", name.c_str(), use.peakMB, use.heldMB);
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
BENCHMARK(XCopyItemsWideKeys)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

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
BENCHMARK(WalkDownTakingInterfaces)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

void GetDocDeep(benchmark::State& state) {
  const IPtr<IXDoc> doc = Chain(static_cast<int>(state.range(0)));
  TXItem* deepest = static_cast<TXDocIntf*>(doc.Get())->Root();
  while (deepest->get_Count() > 0) deepest = deepest->get_Items(0);
  const IPtr<IXItem> item = deepest->get_Intf();
  for (auto _ : state) benchmark::DoNotOptimize(item->get_Doc());
}
BENCHMARK(GetDocDeep)->Arg(1000000)->Unit(benchmark::kMicrosecond);

}  // namespace

void* operator new(std::size_t size) {
  if (void* p = CountedAlloc(size)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, std::align_val_t align) {
  if (void* p = CountedAlloc(size, static_cast<std::size_t>(align))) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size, std::align_val_t align) { return operator new(size, align); }
void operator delete(void* p) noexcept { CountedFree(p); }
void operator delete[](void* p) noexcept { CountedFree(p); }
void operator delete(void* p, std::size_t) noexcept { CountedFree(p); }
void operator delete[](void* p, std::size_t) noexcept { CountedFree(p); }
void operator delete(void* p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void* p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { CountedFree(p); }

int main(int argc, char** argv) {
  for (const Lib& lib : Libs())
    for (int shape : {kRegister, kBook})
      for (int mb : kSizesMB) {
        benchmark::RegisterBenchmark((std::string(lib.name) + "/Load").c_str(), lib.load)
            ->Args({mb, shape})
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string(lib.name) + "/Save").c_str(), lib.save)
            ->Args({mb, shape})
            ->Unit(benchmark::kMillisecond);
      }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

#ifdef OSTREL_HAVE_PUGIXML
  pugi::set_memory_management_functions(PugiAlloc, CountedFree);
#endif
  const int big = kSizesMB[1];
  std::map<std::string, HeapUse> heap;
  for (int shape : {kRegister, kBook}) {
    const std::string& doc = Document(big, shape);
    TMemoryStream& stream = DocumentStream(big, shape);
    const std::string suffix = std::string(" ") + kShapeNames[shape];
    std::printf("%s document: %zu bytes\n", kShapeNames[shape], doc.size());
    heap["Ostrel" + suffix] = MeasureHeap([&](auto measure) {
      stream.SetPosition(0);
      TXItem root;
      LoadXData(&root, stream);
      measure();
    });
#ifdef OSTREL_HAVE_PUGIXML
    heap["pugixml" + suffix] = MeasureHeap([&](auto measure) {
      pugi::xml_document d;
      d.load_buffer(doc.data(), doc.size(), pugi::parse_default, pugi::encoding_utf8);
      measure();
    });
#endif
#ifdef OSTREL_HAVE_TINYXML2
    heap["tinyxml2" + suffix] = MeasureHeap([&](auto measure) {
      tinyxml2::XMLDocument d;
      d.Parse(doc.data(), doc.size());
      measure();
    });
#endif
  }

  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintTable(heap);
  benchmark::Shutdown();
  return 0;
}
