#include <ostrel/rtl/Classes.h>
#include <ostrel/rtl/Collections.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <thread>

namespace ostrel {
namespace {

namespace fs = std::filesystem;

using testutil::MessageOf;

std::string IndexError(Integer index) {
  return "List index (" + std::to_string(index) + ") out of bounds";
}

// A fresh directory per test; the names handed to the streams are CP1251 text.
class FileTest : public testing::Test {
 protected:
  void SetUp() override {
    fDir = fs::temp_directory_path() /
           ("ostrel-classes-" + std::to_string(std::random_device{}()) + "-" +
            testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(fDir);
    fs::create_directories(fDir);
  }
  void TearDown() override { fs::remove_all(fDir); }
  AnsiString Name(std::u8string_view leaf) const {
    std::u8string full = (fDir / leaf).u8string();
    return Utf8ToAnsi(std::u8string_view(full));
  }
  fs::path fDir;
};

AnsiString Bytes(TMemoryStream& m) {
  return AnsiString(static_cast<const char*>(m.Memory()), static_cast<std::size_t>(m.GetSize()));
}

AnsiString ReadAll(TStream& s) {
  AnsiString text(static_cast<std::size_t>(s.GetSize() - s.GetPosition()), '\0');
  s.ReadBuffer(text.data(), static_cast<Integer>(text.size()));
  return text;
}

TEST_F(FileTest, WritesSeeksResizesAndReadsBack) {
  const AnsiString name = Name(u8"Файл.txt");
  {
    TFileStream f(name, fmCreate);
    f.WriteBuffer("hello world", 11);
    EXPECT_EQ(f.GetSize(), 11);
    EXPECT_EQ(f.Seek(-5, soEnd), 6);
    EXPECT_EQ(ReadAll(f), "world");
    f.SetPosition(1);
    char buf[3];
    f.ReadBuffer(buf, 3);
    EXPECT_EQ(std::string(buf, 3), "ell");
    f.SetSize(5);
    EXPECT_EQ(f.GetSize(), 5);
    EXPECT_EQ(f.GetPosition(), 5);
    EXPECT_THROW(f.ReadBuffer(buf, 1), EReadError);
  }
  EXPECT_TRUE(fs::exists(fDir / u8"Файл.txt"));  // the CP1251 name reached the disk as UTF-8
  TFileStream f(name, fmOpenRead | fmShareDenyWrite);
  EXPECT_EQ(ReadAll(f), "hello");
  EXPECT_EQ(f.Write("x", 1), 0);  // opened for reading only
  EXPECT_THROW(f.WriteBuffer("x", 1), EWriteError);
}

TEST_F(FileTest, PositionsBeyondFourGigabytes) {
  TFileStream f(Name(u8"sparse.bin"), fmCreate);
  const Int64 far = (Int64{5} << 30) + 3;
  EXPECT_EQ(f.Seek(far, soBeginning), far);
  f.WriteBuffer("Z", 1);
  EXPECT_EQ(f.GetSize(), far + 1);
  EXPECT_EQ(f.Seek(-1, soCurrent), far);
  char c = 0;
  f.ReadBuffer(&c, 1);
  EXPECT_EQ(c, 'Z');
}

TEST_F(FileTest, OpenAndCreateFailuresNameTheFile) {
  const AnsiString missing = Name(u8"нет.txt");
  const std::string message = MessageOf<EFOpenError>([&] { TFileStream f(missing, fmOpenRead); });
  EXPECT_EQ(message.rfind("Cannot open file \"" + missing + "\". ", 0), 0u) << message;
  EXPECT_THROW(TFileStream(Name(u8"no/such/dir.txt"), fmCreate), EFCreateError);
  EXPECT_THROW(TFileStream(AnsiString(Name(u8"")), fmOpenRead), EFOpenError);  // a directory
}

TEST_F(FileTest, DenyWriteReadersShareButRefuseWriters) {
  const AnsiString name = Name(u8"shared.txt");
  TFileStream(name, fmCreate).WriteBuffer("keep", 4);
  {
    TFileStream r1(name, fmOpenRead | fmShareDenyWrite);
    TFileStream r2(name, fmOpenRead | fmShareDenyWrite);
    EXPECT_THROW(TFileStream(name, fmOpenReadWrite | fmShareDenyWrite), EFOpenError);
    EXPECT_THROW(TFileStream(name, fmOpenWrite), EFOpenError);
    EXPECT_THROW(TFileStream(name, fmCreate), EFCreateError);
    EXPECT_EQ(ReadAll(r2), "keep");  // the refused create did not truncate
  }
  {
    TFileStream w(name, fmOpenReadWrite | fmShareDenyWrite);
    EXPECT_THROW(TFileStream(name, fmOpenRead | fmShareDenyWrite), EFOpenError);
    TFileStream anyone(name, fmOpenRead | fmShareDenyNone);
  }
  TFileStream w(name, fmOpenWrite);  // all closed: writing is possible again
}

#if defined(_WIN32)
// The system enforces sharing for every program: an open succeeds when its access fits what
// the holder shares and the holder's access fits what it shares itself. (Compatibility mode
// shares nothing, as the classic runtime maps it.)
TEST_F(FileTest, WindowsShareModesBindEveryOpener) {
  const AnsiString name = Name(u8"доступ.txt");
  TFileStream(name, fmCreate).WriteBuffer("data", 4);
  // clang-format off
  const struct { Word holder, opener; bool opens; } cases[] = {
      {fmOpenRead | fmShareExclusive, fmOpenRead | fmShareDenyNone, false},
      {fmOpenRead | fmShareCompat, fmOpenRead | fmShareDenyNone, false},
      {fmOpenRead | fmShareDenyRead, fmOpenWrite | fmShareDenyNone, true},
      {fmOpenRead | fmShareDenyRead, fmOpenRead | fmShareDenyNone, false},
      {fmOpenWrite | fmShareDenyRead, fmOpenWrite | fmShareDenyRead, true},
      {fmOpenRead | fmShareDenyWrite, fmOpenRead | fmShareDenyNone, true},
      {fmOpenRead | fmShareDenyWrite, fmOpenRead | fmShareDenyRead, false},  // holder reads
      {fmOpenRead | fmShareDenyNone, fmOpenReadWrite | fmShareDenyNone, true},
      {fmOpenReadWrite | fmShareDenyNone, fmOpenRead | fmShareDenyWrite, false}};
  // clang-format on
  for (const auto& c : cases) {
    TFileStream holder(name, c.holder);
    bool opened = true;
    try {
      TFileStream opener(name, c.opener);
    } catch (const EFOpenError&) {
      opened = false;
    }
    EXPECT_EQ(opened, c.opens) << std::hex << "holder 0x" << c.holder << ", opener 0x" << c.opener;
  }
}
#endif

TEST(MemoryStream, SeekPastEndFillsGapAndClampsOnShrink) {
  TMemoryStream m;
  EXPECT_EQ(m.Seek(-1, soBeginning), -1);
  EXPECT_EQ(m.GetPosition(), 0);
  m.Seek(4, soBeginning);
  m.WriteBuffer("ab", 2);
  EXPECT_EQ(Bytes(m), AnsiString("\0\0\0\0ab", 6));
  char c;
  EXPECT_EQ(m.Read(&c, 1), 0);
  m.SetSize(3);
  EXPECT_EQ(m.GetPosition(), 3);
}

TEST_F(FileTest, MemoryStreamRoundTripsThroughFilesAndCopies) {
  TMemoryStream src;
  src.WriteBuffer("\0\xFF\r\n data!", 10);
  src.SaveToFile(Name(u8"m.bin"));
  TMemoryStream loaded;
  loaded.LoadFromFile(Name(u8"m.bin"));
  EXPECT_EQ(Bytes(loaded), AnsiString("\0\xFF\r\n data!", 10));
  TMemoryStream copy;
  EXPECT_EQ(copy.CopyFrom(src, 0), 10);  // whole source although src is at its end
  src.SetPosition(8);
  EXPECT_THROW(copy.CopyFrom(src, 3), EReadError);
}

// ---- lists ----------------------------------------------------------------------------

TEST(PointerList, IndexErrorsNameTheIndex) {
  TList l;
  int a, b;
  l.Add(&a);
  l.Add(&b);
  EXPECT_EQ(MessageOf<EListError>([&] { l.Items(2); }), IndexError(2));
  EXPECT_EQ(MessageOf<EListError>([&] { l.Items(-1); }), IndexError(-1));
  EXPECT_EQ(MessageOf<EListError>([&] { l.Insert(3, &a); }), IndexError(3));
  EXPECT_EQ(MessageOf<EListError>([&] { l.Delete(2); }), IndexError(2));
  EXPECT_EQ(MessageOf<EListError>([&] { l.Exchange(0, 5); }), IndexError(5));
  EXPECT_EQ(MessageOf<EListError>([&] { l.Move(0, 2); }), IndexError(2));
  EXPECT_EQ(MessageOf<EListError>([] { TList().Last(); }), IndexError(-1));
  EXPECT_EQ(l.Count(), 2);
}

TEST(PointerList, EditsAndSorts) {
  int v[5] = {5, 3, 9, 1, 7};
  TList l;
  for (int& x : v) l.Add(&x);
  l.Move(0, 4);
  EXPECT_EQ(l.Last(), &v[0]);
  EXPECT_EQ(l.Remove(&v[2]), 1);
  EXPECT_EQ(l.Remove(&v[2]), -1);
  l.Insert(0, nullptr);
  l.Pack();
  l.Sort([](void* x, void* y) { return *static_cast<int*>(x) - *static_cast<int*>(y); });
  std::vector<int> got;
  for (Integer i = 0; i < l.Count(); ++i) got.push_back(*static_cast<int*>(l[i]));
  EXPECT_EQ(got, (std::vector<int>{1, 3, 5, 7}));
}

TEST(PointerList, ContradictorySortComparisonKeepsItems) {
  std::vector<int> v(500);
  TList l;
  for (int& x : v) l.Add(&x);
  std::mt19937 rng(1);
  l.Sort([&](void*, void*) { return static_cast<int>(rng() % 3) - 1; });
  std::vector<void*> items(l.List(), l.List() + l.Count());
  std::sort(items.begin(), items.end());
  EXPECT_EQ(std::unique(items.begin(), items.end()), items.end());
  EXPECT_EQ(items.size(), 500u);
}

TEST(StringList, SortedListAppliesDuplicatesPolicy) {
  struct Case {
    TDuplicates dup;
    Integer count;
    bool raises;
  };
  for (Case c : {Case{dupIgnore, 2, false}, Case{dupAccept, 3, false}, Case{dupError, 2, true}}) {
    TStringList l;
    l.SetSorted(true);
    l.SetDuplicates(c.dup);
    l.Add("b");
    l.Add("a");
    if (c.raises) {
      EXPECT_EQ(MessageOf<EStringListError>([&] { l.Add("B"); }),
                "String list does not allow duplicates");
    } else {
      EXPECT_EQ(l.Add("B"), 1);
    }
    EXPECT_EQ(l.Count(), c.count);
  }
  // Accepted duplicates go before the equal ones, and searches find the first of them.
  TStringList l;
  l.SetSorted(true);
  l.SetDuplicates(dupAccept);
  for (const char* s : {"c", "b", "a", "b", "b"}) l.Add(s);
  EXPECT_EQ(l.Add("B"), 1);
  EXPECT_EQ(l.IndexOf("b"), 1);
}

TEST(StringList, CyrillicCaseAndOrder) {
  TStringList l;
  l.Add(Ansi(u8"ёлка"));
  EXPECT_EQ(l.IndexOf(Ansi(u8"ЁЛКА")), 0);
  l.SetCaseSensitive(true);
  EXPECT_EQ(l.IndexOf(Ansi(u8"Ёлка")), -1);
  l.SetCaseSensitive(false);
  for (auto s : {u8"Жук", u8"Ель", u8"Е", u8"ёж"}) l.Add(Ansi(s));
  l.SetSorted(true);
  EXPECT_EQ(l.Text(), Ansi(u8"Е\r\nЕль\r\nёж\r\nёлка\r\nЖук\r\n"));
  Integer at = -1;
  EXPECT_FALSE(l.Find(Ansi(u8"ЁЖИК"), at));
  EXPECT_EQ(at, 3);
  EXPECT_EQ(MessageOf<EStringListError>([&] { l.Insert(0, "x"); }),
            "Operation not allowed on sorted list");
  EXPECT_EQ(MessageOf<EListError>([&] { l.Delete(5); }), IndexError(5));
}

TEST(StringList, NamesAndValues) {
  TStringList l;
  l.SetText("Key=1\r\nname=a=b\nplain\r=lead\r\n");
  ASSERT_EQ(l.Count(), 4);
  EXPECT_EQ(l.Values("KEY") + "|" + l.Values("Name") + "|" + l.Values("plain"), "1|a=b|");
  EXPECT_EQ(l.IndexOfName("plain"), -1);
  EXPECT_EQ(l.Names(1) + "|" + l.Names(2), "name|");
  // "lain" is the classic quirk for a line without '='.
  EXPECT_EQ(l.ValueFromIndex(1) + "|" + l.ValueFromIndex(2) + "|" + l.ValueFromIndex(3),
            "a=b|lain|lead");
  l.SetValues("key", "2");
  l.SetValues("new", "3");
  l.SetValues("name", "");
  EXPECT_EQ(l.Text(), "key=2\r\nplain\r\n=lead\r\nnew=3\r\n");
  l.SetSorted(true);
  l.SetValues("NEW", "0");
  EXPECT_EQ(l.Text(), "=lead\r\nkey=2\r\nNEW=0\r\nplain\r\n");
}

TEST(StringList, DelimitedTextQuotesAndSplits) {
  // clang-format off
  const std::pair<const char*, const char*> cases[] = {
      {"a,b", "a|b|"}, {" a b ,c", "a|b|c|"},  // unquoted blanks separate too
      {"\"x, y\",\"say \"\"hi\"\"\"", "x, y|say \"hi\"|"}, {"a,,b", "a||b|"}, {"a,", "a||"},
      {"\"open", "open|"}, {"\"\"", "|"}, {"", ""}};
  // clang-format on
  for (const auto& [text, lines] : cases) {
    TStringList l;
    l.SetCommaText(text);
    EXPECT_EQ(StringReplaceAll(l.Text(), "\r\n", "|", false), lines) << text;
  }
  TStringList l;
  for (const char* s : {"plain", "with space", "q\"uote", ""}) l.Add(s);
  EXPECT_EQ(l.CommaText(), "plain,\"with space\",\"q\"\"uote\",");
  l.SetDelimiter(';');
  l.SetQuoteChar('\'');
  EXPECT_EQ(l.DelimitedText(), "plain;'with space';q\"uote;");
  TStringList one;
  one.Add("");
  EXPECT_EQ(one.CommaText(), "\"\"");
}

struct TCounted : TObject {
  explicit TCounted(int& n) : fN(n) {}
  ~TCounted() override { ++fN; }
  int& fN;
};

TEST(StringList, OwnedObjectsAreFreedAndPlainPointersKept) {
  int freed = 0, data = 0;
  {
    TStringList l(true);
    l.AddObject("a", new TCounted(freed));
    l.AddObject("b", new TCounted(freed));
    l.AddObject("p", &data);  // a plain pointer is never freed
    EXPECT_THROW(l.Objects(2), EInvalidCast);
    EXPECT_EQ(l.ObjectPtr(2), &data);
    l.Delete(0);
    EXPECT_EQ(freed, 1);
    l.SetObjects(0, new TCounted(freed));
    EXPECT_EQ(freed, 2);
  }
  EXPECT_EQ(freed, 3);
}

TEST_F(FileTest, StringListFilesEndLinesWithCrLf) {
  TStringList l;
  l.SetText(Ansi(u8"один\nдва"));
  l.SaveToFile(Name(u8"l.txt"));
  TMemoryStream m;
  m.LoadFromFile(Name(u8"l.txt"));
  EXPECT_EQ(Bytes(m), Ansi(u8"один\r\nдва\r\n"));
  TStringList back;
  back.LoadFromFile(Name(u8"l.txt"));
  EXPECT_EQ(back.Text(), l.Text());
}

TEST(InterfaceList, HoldsReferencesAndLocksAcrossThreads) {
  IPtr<TInterfaceList> list(new TInterfaceList);
  auto* counted = new TInterfacedObject;
  IPtr<IInterface> item(counted);
  list->Add(item);
  list->Add(item);
  EXPECT_EQ(counted->RefCount(), 3);
  EXPECT_EQ(list->Remove(item), 0);
  EXPECT_EQ(list->IndexOf(item), 0);
  list->Clear();
  EXPECT_EQ(counted->RefCount(), 1);
  EXPECT_EQ(MessageOf<EListError>([&] { list->Get(0); }), IndexError(0));
  EXPECT_THROW(list->Unlock(), EInvalidOperation);

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 500; ++i) list->Add(item);
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(list->Count(), 2000);
  EXPECT_EQ(counted->RefCount(), 2001);
}

// ---- components -----------------------------------------------------------------------

struct TLogged : TComponent {
  TLogged(TComponent* owner, std::vector<AnsiString>& log, const char* name)
      : TComponent(owner), fLog(log) {
    SetName(name);
  }
  ~TLogged() override {
    fLog.push_back((ComponentState().Contains(csDestroying) ? "free " : "live ") + Name());
  }
  void Notification(TComponent* c, TOperation op) override {
    fLog.push_back(Name() + (op == opInsert ? " +" : " -") + c->Name());
    TComponent::Notification(c, op);
  }
  std::vector<AnsiString>& fLog;
};

TEST(Component, OwnerFreesWhatItOwnsLastFirst) {
  std::vector<AnsiString> log;
  auto root = std::make_unique<TLogged>(nullptr, log, "Root");
  auto* a = NewComponent<TLogged>(*root, log, "A");
  NewComponent<TLogged>(*a, log, "A1");
  auto* b = NewComponent<TLogged>(*root, log, "B");
  TObject::Free(NewComponent<TLogged>(*root, log, "C"));  // leaves its owner
  EXPECT_EQ(root->ComponentCount(), 2);
  EXPECT_EQ(b->ComponentIndex(), 1);
  log.clear();
  TObject::Free(root.release());
  // The owner's own destructor body runs before the components it owns are freed.
  EXPECT_EQ(log, (std::vector<AnsiString>{"free Root", "free B", "free A", "free A1"}));
}

TEST(Component, FreeNotificationTellsTheWatcherAndLapsesWithEither) {
  std::vector<AnsiString> log;
  auto watcher = std::make_unique<TLogged>(nullptr, log, "Watcher");
  auto a = std::make_unique<TLogged>(nullptr, log, "A");
  auto b = std::make_unique<TLogged>(nullptr, log, "B");
  auto c = std::make_unique<TLogged>(nullptr, log, "C");
  a->FreeNotification(watcher.get());
  a->FreeNotification(watcher.get());  // asked twice, told once
  b->FreeNotification(watcher.get());
  c->FreeNotification(watcher.get());
  c->RemoveFreeNotification(watcher.get());
  a.reset();
  c.reset();
  EXPECT_EQ(log, (std::vector<AnsiString>{"live A", "Watcher -A", "live C"}));
  log.clear();
  watcher.reset();  // B no longer has anybody to tell
  b.reset();
  EXPECT_EQ(log, (std::vector<AnsiString>{"live Watcher", "B -Watcher", "live B"}));
}

TEST(Component, NamesAreUniqueIdentifiersFoundWithoutCase) {
  TComponent owner(nullptr);
  auto* c = NewComponent<TComponent>(owner);
  c->SetName("Button1");
  EXPECT_EQ(owner.FindComponent("BUTTON1"), c);
  EXPECT_EQ(owner.FindComponent(""), nullptr);
  c->SetName("BUTTON1");  // a change of case is no clash with itself
  auto* d = NewComponent<TComponent>(owner);
  EXPECT_EQ(MessageOf<EComponentError>([&] { d->SetName("button1"); }),
            "A component named button1 already exists");
  for (std::string_view bad : {"1a", "a b", "a.b"})
    EXPECT_EQ(MessageOf<EComponentError>([&] { d->SetName(bad); }),
              "''" + AnsiString(bad) + "'' is not a valid component name");
  EXPECT_THROW(d->SetName(Ansi(u8"Кнопка")), EComponentError);
  EXPECT_EQ(d->Name(), "");
}

TEST(Component, InsertMovesBetweenOwnersAndRefusesCycles) {
  std::vector<AnsiString> log;
  TLogged first(nullptr, log, "First"), second(nullptr, log, "Second");
  auto* x = NewComponent<TLogged>(first, log, "X");
  NewComponent<TLogged>(second, log, "Y");
  log.clear();
  second.InsertComponent(x);
  EXPECT_EQ(x->Owner(), &second);
  EXPECT_EQ(first.ComponentCount(), 0);
  EXPECT_EQ(log, (std::vector<AnsiString>{"First -X", "X -X", "Second +X", "X +X", "Y +X"}));
  EXPECT_THROW(x->InsertComponent(&second), EComponentError);
  auto* dup = NewComponent<TLogged>(first, log, "x");
  EXPECT_THROW(second.InsertComponent(dup), EComponentError);
  second.SetDesigning(true);
  EXPECT_TRUE(x->ComponentState().Contains(csDesigning));
  x->SetLoading(true);
  x->Loaded();
  EXPECT_FALSE(x->ComponentState().Contains(csLoading));
}

// ---- collections ----------------------------------------------------------------------

class TNamed : public TCollectionItem {
  OSTREL_CLASS(TNamed, TCollectionItem)
 public:
  using TCollectionItem::TCollectionItem;
  AnsiString Text;
  void Assign(const TPersistent* source) override {
    if (const auto* n = dynamic_cast<const TNamed*>(source))
      Text = n->Text;
    else
      TCollectionItem::Assign(source);
  }
};
OSTREL_DEFINE_CLASS(TNamed)

TCollectionItem* MakeNamed(TCollection* c) { return new TNamed(c); }

std::string Texts(const TCollection& c) {
  std::string s;
  for (Integer i = 0; i < c.Count(); ++i)
    s += (i ? " " : "") + static_cast<TNamed*>(c.Items(i))->Text + "#" +
         std::to_string(c.Items(i)->ID());
  return s;
}

TEST(Collection, ItemsKeepOrderIdsAndPositions) {
  TCollection c(MakeNamed);
  for (const char* t : {"a", "b", "c"}) static_cast<TNamed*>(c.Add())->Text = t;
  static_cast<TNamed*>(c.Insert(1))->Text = "x";
  EXPECT_EQ(Texts(c), "a#0 x#3 b#1 c#2");
  c.Items(0)->SetIndex(3);
  EXPECT_EQ(Texts(c), "x#3 b#1 c#2 a#0");
  c.Delete(1);
  delete c.Items(0);  // an item freed by itself leaves its collection
  EXPECT_EQ(Texts(c), "c#2 a#0");
  static_cast<TNamed*>(c.Add())->Text = "d";  // identities are never reused
  EXPECT_EQ(Texts(c), "c#2 a#0 d#4");
  EXPECT_EQ(testutil::Join(c.Items(2)->Index(), c.Items(0)->DisplayName()), "2 TNamed");
  for (Integer bad : {-1, 3})
    EXPECT_EQ(MessageOf<EListError>([&] { c.Items(0)->SetIndex(bad); }),
              "List index (" + std::to_string(bad) + ") out of bounds");
  EXPECT_EQ(MessageOf<EListError>([&] { c.Insert(4); }), "List index (4) out of bounds");
  TNamed loose(nullptr);
  EXPECT_EQ(testutil::Join(loose.Index(), loose.Collection() == nullptr), "-1 1");
}

TEST(Collection, AssignCopiesItemsAndRefusesStrangers) {
  TCollection a(MakeNamed), b(MakeNamed);
  static_cast<TNamed*>(a.Add())->Text = "one";
  static_cast<TNamed*>(a.Add())->Text = "two";
  static_cast<TNamed*>(b.Add())->Text = "old";
  b.Assign(&a);
  EXPECT_EQ(Texts(b), "one#1 two#2");
  EXPECT_NE(b.Items(0), a.Items(0));
  b.SetItems(0, a.Items(1));
  EXPECT_EQ(Texts(b), "two#1 two#2");
  EXPECT_EQ(MessageOf<EConvertError>([&] { b.Assign(a.Items(0)); }),
            "Cannot assign a TNamed to a TCollection");
  EXPECT_EQ(MessageOf<EConvertError>([&] { b.Items(0)->Assign(&a); }),
            "Cannot assign a TCollection to a TNamed");
  EXPECT_EQ(Texts(b), "two#1 two#2");
}

}  // namespace
}  // namespace ostrel
