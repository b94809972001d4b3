// Item queries: paths with filters and their errors, key searches, values and attributes,
// key matching, copying by keys and the keyed index.
#include <ostrel/core/Dump.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Strings.h>
#include <ostrel/xml/Xdata.h>

#include <gtest/gtest.h>

#include "TestUtil.h"
#include "XmlUtil.h"

namespace ostrel {
namespace {

using testutil::MessageOf;

// A document read from text written in UTF-8 (the reader sees it as CP1251).
IPtr<IXItem> Load(std::string_view utf8) { return xmltest::Doc(Utf8ToAnsi(utf8))->get_Root(); }

// Where an item stands: the names from the root down, each with its index after "#".
std::string Where(IPtr<IXItem> item) {
  if (!item) return "-";
  std::string where;
  for (; item->get_Parent(); item = item->get_Parent())
    where = item->get_Name() + "#" + std::to_string(item->get_Index()) +
            (where.empty() ? "" : "/") + where;
  return where.empty() ? "root" : where;
}

// The item's XML on one line: line breaks and indentation taken out.
std::string Text(const IPtr<IXItem>& item) {
  std::string out;
  bool lineStart = true;
  for (char c : item->get_XML()) {
    if (c == '\r' || c == '\n') {
      lineStart = true;
    } else if (c != ' ' || !lineStart) {
      out += c;
      lineStart = false;
    }
  }
  return AnsiToUtf8(out);
}

std::string Utf8Message(const std::function<void()>& fn) { return AnsiToUtf8(MessageOf(fn)); }

constexpr std::string_view kForms = R"(<root>
  <forms>
    <form name="list"><fields n="1"/></form>
    <form name="main" ID="5"><fields n="2"/></form>
  </forms>
  <a><c/></a>
  <a><b/></a>
  <row id="&#53;" kind="Счёт"/>
</root>)";

TEST(XPath, FindsThroughNamesAndFilters) {
  const IPtr<IXItem> root = Load(kForms);
  struct Case {
    std::string_view path;
    std::string where;
  } cases[] = {
      // clang-format off
      {R"(forms/form[@name="main"]/fields)", "forms#0/form#1/fields#0"},
      {"/forms/form", "forms#0/form#0"}, {" // forms", "forms#0"},
      {R"(FORMS/Form[@NAME="MAIN"])", "forms#0/form#1"},
      {R"(forms/form[@id="5"])", "forms#0/form#1"},
      {R"(forms/form[@name="main"  @id="&#53;"])", "forms#0/form#1"},
      {R"(forms/form[@name="main" @id="6"])", "-"},
      {R"(forms/form [ @name="main" ] ] )", "forms#0/form#1"}, {"forms/form[]", "forms#0/form#0"},
      {R"(row[@id="5"])", "row#3"}, {R"(row[@kind="СЧЁТ"])", "row#3"}, {"a/c", "a#1/c#0"},
      {"a/b", "-"},  // the first a is taken; the b under the second is not looked for
      {"forms/ form", "-"}, {"forms/", "forms#0"}, {"", "-"}, {" /// ", "-"},
      // clang-format on
  };
  for (const Case& c : cases) {
    IPtr<IXItem> found;
    const bool ok = FindXPath(root, Utf8ToAnsi(c.path), false, found);
    EXPECT_EQ(Where(found), c.where) << c.path;
    EXPECT_EQ(ok, c.where != "-") << c.path;
    EXPECT_EQ(Where(FindXItem(root, Utf8ToAnsi(c.path), false)), c.where) << c.path;
  }
}

TEST(XPath, ReportsThePathAndTheMissingTag) {
  const IPtr<IXItem> root = Load(kForms);
  struct Case {
    std::string_view path, message;
  } cases[] = {
      {"a/b", "FindXPath fail \"a/b\"\r\rTag <b> not found"},
      {"nothing", "Tag <nothing> not found"},
      {"/nothing", "FindXPath fail \"/nothing\"\r\rTag <nothing> not found"},
      {R"(forms/form[@name="x"])",
       "FindXPath fail \"forms/form[@name=\"x\"]\"\r\rTag <form> not found"},
      {" /// ", "FindXPath fail \" /// \"\r\r"},
      {R"(forms/form[name="x"])", "Ошибка в формате строки атрибутов \"name=\"x\"\""},
      {"forms/form[@name='x']", "Ошибка в формате строки атрибутов \"@name='x'\""},
      {R"(forms/form[@name="x)", "Ошибка в формате строки атрибутов \"@name=\"x\""},
      {R"(forms/form[@name="&nbsp;"])", "XEncode: error encode character (&n)"},
  };
  for (const Case& c : cases) {
    const std::string path = Utf8ToAnsi(c.path);
    EXPECT_EQ(Utf8Message([&] {
                IPtr<IXItem> found;
                FindXPath(root, path, true, found);
              }),
              c.message)
        << c.path;
  }
  // Every raising form says the same, and FindXVal with raise goes through the path.
  EXPECT_EQ(MessageOf([&] { FindXItem(root, "a/b", true); }),
            MessageOf([&] { FindXVal(root, "a/b", true); }));
  IPtr<IXItem> found;
  EXPECT_EQ(MessageOf([&] { FindXPatt(root, "a/b", true, found); }),
            "FindXPath fail \"a/b\"\r\rTag <b> not found");
}

constexpr std::string_view kKeyed = R"(<root>
  <group name="g1"><item code="A"/><sub><item code="b"/></sub></group>
  <item code="B"/>
  <item code="c"/>
</root>)";

TEST(XKeySearch, FindsByNameAndKeyDepthFirst) {
  const IPtr<IXItem> root = Load(kKeyed);
  // clang-format off
  struct Case { std::string_view name, attr, value; std::string flat, deep; } cases[] = {
      {"item", "code", "b", "item#1", "group#0/sub#1/item#0"},
      {"ITEM", "", "", "item#1", "group#0/item#0"}, {"item", "CODE", "c", "item#2", "item#2"},
      {"group", "code", "", "group#0", "group#0"},  // an absent attribute reads as empty
      {"item", "code", "z", "-", "-"}, {"sub", "", "", "-", "group#0/sub#1"}};
  // clang-format on
  for (const Case& c : cases) {
    IPtr<IXItem> found;
    EXPECT_EQ(FindXItem(root, c.name, c.attr, c.value, found), c.flat != "-") << c.name;
    EXPECT_EQ(Where(found), c.flat) << c.name;
    EXPECT_EQ(FindXItem(root, c.name, c.attr, c.value, true, found), c.deep != "-");
    EXPECT_EQ(Where(found), c.deep) << c.name << " " << c.value;
    EXPECT_EQ(Where(FindXItem(root, c.name, c.attr, c.value, false)), c.flat);
    EXPECT_EQ(Where(FindXRecurse(root, c.name, c.attr, c.value, false)), c.deep);
  }
  EXPECT_EQ(MessageOf([&] { FindXItem(root, "item", "code", "z", true); }),
            "Tag <item code=\"z\"> not found");
  EXPECT_EQ(MessageOf([&] { FindXRecurse(root, "sub", "id", "1", true); }),
            "Tag <sub id=\"1\"> not found");
}

TEST(XKeySearch, SearchesADeepTreeWithoutDeepCalls) {
  IPtr<IXDoc> doc;
  GetXDocIntf("", doc);
  TXItem* item = XRootOf(doc.Get());
  for (int i = 0; i < 200000; ++i) {
    item = item->Add();
    item->set_Name(std::string_view("level"));
  }
  item->set_Attr("id", AnsiString("last"));
  IPtr<IXItem> found = FindXRecurse(doc->get_Root(), "level", "id", "last", true);
  EXPECT_EQ(found->get_Count(), 0);
}

TEST(XGetItem, FindsOrAppends) {
  const IPtr<IXItem> root = Load("<r><a/></r>");
  EXPECT_EQ(GetXItem(root, "A").Get(), root->get_Items(0).Get());
  const IPtr<IXItem> b = GetXItem(root, "b");
  EXPECT_EQ(GetXItem(root, "b").Get(), b.Get());
  const IPtr<IXItem> k = GetXItem(root, "row", "id", "7");
  EXPECT_EQ(GetXItem(root, "ROW", "ID", "7").Get(), k.Get());
  EXPECT_NE(GetXItem(root, "row", "id", "8").Get(), k.Get());
  EXPECT_EQ(Text(root), R"(<r><a/><b/><row id="7"/><row id="8"/></r>)");
  // Operations that need an item say so instead of failing on none.
  EXPECT_EQ(MessageOf([] { GetXItem(nullptr, "a"); }), "GetXItem: no item");
  EXPECT_EQ(MessageOf([] { XCopyItems(nullptr, nullptr); }), "XCopyItems: no item");
  EXPECT_EQ(MessageOf([&] { XAssign(root, nullptr); }), "XAssign: no item");
}

TEST(XValues, ReadChildrenWithDefaults) {
  const IPtr<IXItem> root =
      Load(R"(<r><a>1</a><b/><c>x</c><c>y</c><d k="2">v2</d><d k="3">v3</d><e k="4"/></r>)");
  Variant v = "stale";
  EXPECT_TRUE(GetXValue(root, "A", v));
  EXPECT_EQ(VarToStr(v), "1");
  for (std::string_view name : {"b", "zz", "r/a"}) {
    v = "stale";
    EXPECT_FALSE(GetXValue(root, name, v)) << name;
    EXPECT_TRUE(VarIsNull(v)) << name;
  }
  EXPECT_FALSE(GetXValue(nullptr, "a", v));
  EXPECT_EQ(VarToStr(XValue(root, "b", "def")), "def");
  EXPECT_EQ(VarToStr(XValue(root, "c", "def")), "x");
  EXPECT_TRUE(VarIsNull(XValue(root, "b")));
  EXPECT_EQ(VarToStr(XValue(root, "d", "k", "3", "none")), "v3");
  EXPECT_EQ(VarToStr(XValue(root, "d", "k", "5", "none")), "none");
  // The default stands for a missing child; a child found without a value gives Null.
  EXPECT_TRUE(VarIsNull(XValue(root, "e", "k", "4", "none")));
  // Without raise only a direct child's name is understood.
  EXPECT_EQ(VarToStr(FindXVal(root, "d", false)), "v2");
  EXPECT_TRUE(VarIsNull(FindXVal(root, "/d", false)));
  EXPECT_EQ(VarToStr(FindXVal(root, "/d", true)), "v2");
  EXPECT_TRUE(VarIsNull(FindXVal(root, "b", true)));
}

TEST(XAttrs, ReadTypedOrRaise) {
  const IPtr<IXItem> item =
      Load(R"(<r id="7" date="2024-03-01T12:30:00.000" sum="12.5" ok="TRUE" t="a&amp;b"/>)");
  Variant v = "stale";
  EXPECT_TRUE(GetXAttr(item, "ID", v));
  EXPECT_EQ(v.VarType(), varString);
  EXPECT_EQ(VarToStr(v), "7");
  EXPECT_FALSE(GetXAttr(item, "none", v));
  EXPECT_TRUE(VarIsNull(v));
  EXPECT_FALSE(GetXAttr(nullptr, "id", v));
  // clang-format off
  struct Case { TVarType type; std::string text; const char* attr; } cases[] = {
      {varInteger, "7", "id"}, {varDouble, "12,5", "sum"}, {varBoolean, "True", "ok"},
      {varDate, "01.03.2024 12:30:00", "date"}, {varString, "a&b", "t"}};
  // clang-format on
  for (const Case& c : cases) {
    EXPECT_TRUE(GetXAttr(item, c.attr, c.type, v));
    EXPECT_EQ(v.VarType(), c.type) << c.attr;
    EXPECT_EQ(VarToStr(v), c.text) << c.attr;
  }
  EXPECT_FALSE(GetXAttr(item, "none", varInteger, v));
  EXPECT_EQ(VarToStr(XAttr(item, "none", "def")), "def");
  EXPECT_EQ(VarToStr(XAttr(item, "t")), "a&b");
  EXPECT_EQ(Utf8Message([&] { XAttr(item, "none"); }), "Tag <r>: аttribute \"none\" not found");
}

TEST(XSame, MatchesNameAndKeys) {
  const IPtr<IXItem> root =
      Load(R"(<r><row id="1" name="Иванов"/><row id="2" name="Петров" x="1"/><строка/></r>)");
  const IPtr<IXItem> row = root->get_Items(1);
  IPtr<IDump> keys = GetDumpIntf();
  keys->set_ByName("ID", 2);
  keys->set_ByName("name", Utf8ToAnsi("ПЕТРОВ"));
  EXPECT_TRUE(SameXItem(row, "ROW", keys, true));
  EXPECT_FALSE(SameXItem(row, "line", keys, false));
  keys->set_ByName("id", 3);
  EXPECT_FALSE(SameXItem(row, "row", keys, true));
  EXPECT_TRUE(SameXItem(row, "row", keys, false));
  // Only Latin letters fold in the name; an absent attribute is never unequal.
  EXPECT_FALSE(SameXItem(root->get_Items(2), Utf8ToAnsi("СТРОКА"), nullptr, false));
  EXPECT_TRUE(SameXItem(root->get_Items(2), Utf8ToAnsi("строка"), nullptr, false));
  keys = GetDumpIntf();
  keys->set_ByName("missing", "x");
  EXPECT_TRUE(SameXItem(row, "row", keys, true));

  // The list form: values from a dump by name, from an array by position, or one value.
  keys = GetDumpIntf();
  keys->set_ByName("name", Utf8ToAnsi("петров"));
  keys->set_ByName("id", "2");
  struct Case {
    std::string_view names;
    Variant values;
    std::string where;
  } cases[] = {
      {"id;name", VarArrayOf({2, Utf8ToAnsi("петров")}), "row#1"},
      {"name; id", Variant(keys), "row#1"},
      {"x;id", 1, "row#0"},
      {"x;id", 2, "-"},
      {"id", VarArrayOf({1}), "row#0"},
      {"", Variant::Null(), "row#0"},
  };
  for (const Case& c : cases) {
    IPtr<IXItem> found;
    EXPECT_EQ(LocateXItem(root, "row", c.names, c.values, true, found), c.where != "-");
    EXPECT_EQ(Where(found), c.where) << c.names;
  }
  IPtr<IXItem> found;
  keys = GetDumpIntf();
  keys->set_ByName("x", 1);
  EXPECT_TRUE(LocateXItem(root, "row", keys, true, found));
  EXPECT_EQ(Where(found), "row#0");  // row 0 has no x: never unequal
  EXPECT_FALSE(LocateXItem(root, "col", keys, false, found));
  EXPECT_EQ(Where(found), "-");
}

TEST(XCopy, MergesMatchedChildrenAndAppendsTheRest) {
  const IPtr<IXItem> dest = Load(R"(<d><row id="1"><x v="1"/></row><row id="2"/></d>)");
  const IPtr<IXItem> source = Load(
      R"(<s><row id="2"><y/></row><row id="3"  t="&#122;">text</row><row id="3" t="z"/><other/></s>)");
  XCopyItems(dest, source);
  EXPECT_EQ(Text(dest), R"(<d><row id="1"><x v="1"/></row><row id="2"><y/></row>)"
                        R"(<row id="3"  t="&#122;">text</row><other/></d>)");
  XCopyItems(dest, source);  // a second copy changes nothing
  EXPECT_EQ(Text(dest), R"(<d><row id="1"><x v="1"/></row><row id="2"><y/></row>)"
                        R"(<row id="3"  t="&#122;">text</row><other/></d>)");
}

TEST(XCopy, MergeAndAssign) {
  const IPtr<IXItem> root = Load(
      R"(<r><a x="1" y="2">old</a><b y="5" z="&quot;"><![CDATA[<raw>]]></b><c k="1"><d/></c><e/></r>)");
  const IPtr<IXItem> a = root->get_Items(0), e = root->get_Items(3);
  XMerge(a, root->get_Items(1));
  EXPECT_EQ(Text(a), R"(<a x="1" y="5" z="&quot;"><![CDATA[<raw>]]></a>)");
  EXPECT_TRUE(a->get_IsCDATA());
  // On an item without attributes the attribute text is copied as it stands; children are
  // appended, not matched.
  XMerge(e, root->get_Items(2));
  XMerge(e, root->get_Items(2));
  EXPECT_EQ(Text(e), R"(<e k="1"><d/><d/></e>)");
  XAssign(e, a);
  EXPECT_EQ(Text(e), R"(<a x="1" y="5" z="&quot;"><![CDATA[<raw>]]></a>)");
  EXPECT_EQ(e.Get(), root->get_Items(3).Get());  // the same interface, in its place
}

TEST(XCopy, CopiesBetweenAnItemAndItsOwnSubtree) {
  IPtr<IXItem> root = Load(R"(<r><a k="1"><b/></a></r>)");
  XCopyItems(root->get_Items(0), root);
  EXPECT_EQ(Text(root), R"(<r><a k="1"><b/><a k="1"><b/></a></a></r>)");
  root = Load(R"(<r><a><b/></a></r>)");
  XMerge(root->get_Items(0), root);
  EXPECT_EQ(Text(root), R"(<r><a><b/><a><b/></a></a></r>)");
  const std::string before = Text(root);
  const IPtr<IXItem> b = root->get_Items(0)->get_Items(0);
  XAssign(b, root);
  EXPECT_EQ(Text(b), before);
  XAssign(root, root->get_Items(0)->get_Items(1));
  EXPECT_EQ(Text(root), R"(<a><b/></a>)");
  // b went with the old children; its interface lives on, detached.
  EXPECT_EQ(MessageOf([&] { b->get_Name(); }), _SErrXItemDeleted.Str());
  EXPECT_EQ(MessageOf([&] { XItemOf(b.Get()); }), _SErrXItemDeleted.Str());
}

TEST(XIndex, SortsByKeyAndFindsTheFirstOfEqualKeys) {
  const IPtr<IXItem> root = Load(
      R"(<r><i id="3" n="a"/><i id="1" n="b"/><i id="2" n="c"/><x/><i id="2" n="d"/><i n="e"/><i id="Б" n="f"/><i id="а" n="g"/></r>)");
  IPtr<IXItemList> list;
  GetXItemListIntf(root, "I", list);
  IPtr<IXItemIndex> index;
  GetXItemIndexIntf(list, "ID", index);
  std::string order;
  for (Integer i = 0; i < list->get_Count(); ++i)
    order += VarToStr(list->get_Items(i)->get_Attr("n"));
  EXPECT_EQ(order, "ebcdagf");
  EXPECT_EQ(index->get_List().Get(), list.Get());
  EXPECT_EQ(index->get_KeyAttr(), "ID");
  struct Case {
    Variant key;
    std::string n;
  } cases[] = {{"2", "c"},
               // clang-format off
               {2, "c"}, {"1", "b"}, {"3", "a"}, {"", "e"}, {Utf8ToAnsi("б"), "f"},
               {Utf8ToAnsi("А"), "g"}, {"0", "-"},
               // clang-format on
               {"4", "-"}};
  for (const Case& c : cases) {
    IPtr<IXItem> found;
    EXPECT_EQ(index->FindItem(c.key, found), c.n != "-");
    EXPECT_EQ(found ? AnsiToUtf8(VarToStr(found->get_Attr("n"))) : "-", c.n);
  }
  EXPECT_EQ(VarToStr(index->GetItem("3")->get_Attr("n")), "a");
  EXPECT_EQ(Utf8Message([&] { index->GetItem(9); }), "Элемент по ключу \"ID=9\" не найден");

  IPtr<IXItemList> empty;
  GetXItemListIntf(empty);
  GetXItemIndexIntf(empty, "id", index);
  IPtr<IXItem> found;
  EXPECT_FALSE(index->FindItem("1", found));
}

// A key of another kind than text equals a key text that converts to it, as the variant
// comparison has it, although the list stays in the order of the texts.
TEST(XIndex, NumberKeysMeetTheTextsThatConvertToThem) {
  const IPtr<IXItem> root = Load(
      R"(<r><i id="10" n="a"/><i id="02" n="b"/><i id="9" n="c"/><i id="abc" n="d"/><i n="e"/><i id="2" n="f"/><i id="1,5" n="g"/></r>)");
  IPtr<IXItemList> list;
  GetXItemListIntf(root, "i", list);
  IPtr<IXItemIndex> index;
  GetXItemIndexIntf(list, "id", index);
  auto find = [&](const Variant& key) {
    IPtr<IXItem> found;
    const bool ok = index->FindItem(key, found);
    EXPECT_EQ(ok, static_cast<bool>(found));
    return found ? VarToStr(found->get_Attr("n")) : "-";
  };
  // "02" sorts before "2": of equal values the first in the list's order is found.
  EXPECT_EQ(testutil::Join(find(2), find(9), find(10), find(10.0), find(1.5), find(3)),
            "b c a a g -");
  EXPECT_EQ(testutil::Join(find("2"), find("02"), find("9"), find("abc")), "f b c d");
  EXPECT_EQ(find(Variant(Currency::FromInt(9))), "c");
  EXPECT_EQ(VarToStr(index->GetItem(10)->get_Attr("n")), "a");
  // An item added to the list afterwards is seen.
  IPtr<IXItem> added = root->Add("i");
  added->set_Attr("id", "7");
  added->set_Attr("n", "h");
  list->Add(added);
  EXPECT_EQ(find(7), "h");
}

// An IXItem of the test's own: a name, a value, attributes in a list and children, with no
// tie to the library's tree.
class TTestItem final : public testutil::TIntfObject<IXItem> {
 public:
  IPtr<IXDoc> OSTREL_STDCALL get_Doc() override { return nullptr; }
  IPtr<IXItem> OSTREL_STDCALL get_Parent() override { return IPtr<IXItem>(fParent); }
  Integer OSTREL_STDCALL get_Index() override {
    if (!fParent) return -1;
    for (std::size_t i = 0; i < fParent->fItems.size(); ++i)
      if (fParent->fItems[i].Get() == this) return static_cast<Integer>(i);
    return -1;
  }
  Integer OSTREL_STDCALL get_Count() override { return static_cast<Integer>(fItems.size()); }
  IPtr<IXItem> OSTREL_STDCALL get_Items(Integer index) override {
    return IPtr<IXItem>(fItems.at(static_cast<std::size_t>(index)).Get());
  }
  AnsiString OSTREL_STDCALL get_Name() override { return fName; }
  void OSTREL_STDCALL set_Name(std::string_view name) override { fName = name; }
  Variant OSTREL_STDCALL get_Value() override { return fValue; }
  void OSTREL_STDCALL set_Value(const Variant& value) override {
    fValue = value;
    fIsCDATA = false;
  }
  bool OSTREL_STDCALL get_IsCDATA() override { return fIsCDATA; }
  AnsiString OSTREL_STDCALL get_CDATA() override { return VarToStr(fValue); }
  void OSTREL_STDCALL set_CDATA(std::string_view text) override {
    fValue = AnsiString(text);
    fIsCDATA = true;
  }
  Variant OSTREL_STDCALL get_Attr(std::string_view name) override {
    for (const auto& [n, v] : fAttrs)
      if (AnsiSameText(n, name)) return v;
    return Variant::Null();
  }
  void OSTREL_STDCALL set_Attr(std::string_view name, const Variant& value) override {
    for (auto it = fAttrs.begin(); it != fAttrs.end(); ++it)
      if (AnsiSameText(it->first, name)) {
        if (VarIsNull(value))
          fAttrs.erase(it);
        else
          it->second = VarToStr(value);
        return;
      }
    if (!VarIsNull(value)) fAttrs.emplace_back(AnsiString(name), VarToStr(value));
  }
  AnsiString OSTREL_STDCALL get_XML() override { throw Exception("TTestItem: no XML"); }
  void OSTREL_STDCALL set_XML(std::string_view) override { throw Exception("TTestItem: no XML"); }
  void OSTREL_STDCALL Clear() override { fItems.clear(); }
  void OSTREL_STDCALL Delete(Integer index) override { fItems.erase(fItems.begin() + index); }
  IPtr<IXItem> OSTREL_STDCALL Insert(Integer index, std::string_view name) override {
    IPtr<TTestItem> child(new TTestItem);
    child->fName = name;
    child->fParent = this;
    fItems.insert(fItems.begin() + index, child);
    return IPtr<IXItem>(child.Get());
  }
  IPtr<IXItem> OSTREL_STDCALL Add(std::string_view name) override {
    return Insert(get_Count(), name);
  }
  bool OSTREL_STDCALL FindItem(std::string_view name, IPtr<IXItem>& item) override {
    item = nullptr;
    for (const auto& child : fItems)
      if (AnsiSameText(child->fName, name)) {
        item = IPtr<IXItem>(child.Get());
        return true;
      }
    return false;
  }
  bool OSTREL_STDCALL GetAttrList(IPtr<IDump>& list) override {
    list = GetDumpIntf();
    for (const auto& [n, v] : fAttrs) list->set_ByName(n, Variant(v));
    return !fAttrs.empty();
  }
  void OSTREL_STDCALL LoadFromStream(TStream&) override { throw Exception("TTestItem: no XML"); }
  void OSTREL_STDCALL SaveToStream(TStream&) override { throw Exception("TTestItem: no XML"); }

 private:
  AnsiString fName;
  Variant fValue = Variant::Null();
  bool fIsCDATA = false;
  std::vector<std::pair<AnsiString, AnsiString>> fAttrs;
  std::vector<IPtr<TTestItem>> fItems;
  TTestItem* fParent = nullptr;
};

// The same tree built of test items, through the interface of both.
IPtr<IXItem> AsTestItems(const IPtr<IXItem>& from) {
  IPtr<IXItem> root(new TTestItem);
  std::vector<std::pair<IPtr<IXItem>, IPtr<IXItem>>> work{{from, root}};
  while (!work.empty()) {
    auto [f, t] = work.back();
    work.pop_back();
    t->set_Name(f->get_Name());
    IPtr<IDump> attrs;
    f->GetAttrList(attrs);
    for (Integer i = 0; i < attrs->get_Count(); ++i)
      t->set_Attr(attrs->get_Name(i), attrs->get_Value(i));
    if (f->get_IsCDATA())
      t->set_CDATA(f->get_CDATA());
    else
      t->set_Value(f->get_Value());
    for (Integer i = 0; i < f->get_Count(); ++i) work.emplace_back(f->get_Items(i), t->Add(""));
  }
  return root;
}

// Any item as one line: name{a=v ...}='value'(children ...), read through the interface.
std::string Shape(const IPtr<IXItem>& item) {
  if (!item) return "-";
  std::string s = item->get_Name();
  IPtr<IDump> attrs;
  if (item->GetAttrList(attrs)) {
    s += "{";
    for (Integer i = 0; i < attrs->get_Count(); ++i)
      s += (i ? " " : "") + attrs->get_Name(i) + "=" + VarToStr(attrs->get_Value(i));
    s += "}";
  }
  if (!VarIsNull(item->get_Value()))
    s += "='" + VarToStr(item->get_Value()) + (item->get_IsCDATA() ? "'!" : "'");
  if (item->get_Count() > 0) {
    s += "(";
    for (Integer i = 0; i < item->get_Count(); ++i) s += (i ? " " : "") + Shape(item->get_Items(i));
    s += ")";
  }
  return s;
}

// Every query answers for an IXItem of another implementation as for the library's own
// tree holding the same document, and the copying functions copy between the two kinds.
TEST(XForeignItems, QueriesAnswerAsForTheLibrarysOwnTree) {
  constexpr std::string_view kDoc = R"(<r>
    <forms><form name="list"><f n="1"/></form><form name="main" id="5"><f n="2"/></form></forms>
    <row id="1" kind="a">one</row><row id="2" kind="b"/><row id="2" kind="c">two</row>
    <deep><x><row id="7" kind="z">seven</row></x></deep><c><![CDATA[<raw>]]></c></r>)";
  const IPtr<IXItem> own = Load(kDoc);
  const IPtr<IXItem> foreign = AsTestItems(own);
  ASSERT_EQ(Shape(foreign), Shape(own));
  // The tree behind an interface: only the library's own items have one.
  EXPECT_EQ(XItemOf(foreign.Get()), nullptr);
  EXPECT_EQ(XItemOf(nullptr), nullptr);
  EXPECT_EQ(XItemOf(own.Get())->get_Name(), "r");
  IPtr<IDump> keys = GetDumpIntf();
  keys->set_ByName("ID", 2);
  keys->set_ByName("kind", "C");
  const std::function<std::string(const IPtr<IXItem>&)> queries[] = {
      [](auto r) { return Shape(FindXItem(r, R"(forms/form[@name="main" @ID="5"]/f)", false)); },
      [](auto r) { return Shape(FindXItem(r, "FORMS/form", false)); },
      [](auto r) {
        IPtr<IXItem> found;
        return MessageOf([&] { FindXPath(r, "forms/nope", true, found); });
      },
      [](auto r) { return Shape(FindXItem(r, "row", "id", "2", false)); },
      [](auto r) { return Shape(FindXRecurse(r, "ROW", "ID", "7", false)); },
      [](auto r) { return MessageOf([&] { FindXRecurse(r, "row", "id", "8", true); }); },
      [](auto r) { return Shape(GetXItem(r, "deep")) + Shape(GetXItem(r, "row", "id", "9")); },
      [](auto r) {
        return VarToStr(XValue(r, "row", "def")) + VarToStr(XValue(r, "none", "def")) +
               VarToStr(XValue(r, "row", "id", "2", "def")) + "|" +
               VarToStr(XValue(r, "row", "kind", "C", "def")) + VarToStr(FindXVal(r, "c", false));
      },
      [&](auto r) {
        IPtr<IXItem> found;
        return testutil::Join(
                   SameXItem(r->get_Items(3), "row", keys, true),
                   SameXItem(r->get_Items(3), "row", "kind;id", VarArrayOf({"c", "2"}), true),
                   LocateXItem(r, "row", keys, true, found)) +
               Shape(found);
      },
      [](auto r) {
        IPtr<IXItem> found;
        return testutil::Join(LocateXItem(r, "row", "kind", "b", true, found)) + Shape(found);
      },
  };
  for (const auto& query : queries) EXPECT_EQ(query(foreign), query(own));

  // Copying: each kind into each, compared with the library's tree copied into itself.
  const auto source = [] {
    return Load(
        R"(<s><row id="2" kind="b"><new/></row><row id="3">three</row><c><![CDATA[x]]></c></s>)");
  };
  IPtr<IXItem> expected = Load(kDoc);
  XCopyItems(expected, source());
  for (int kinds = 1; kinds < 4; ++kinds) {
    IPtr<IXItem> dest = Load(kDoc), from = source();
    if (kinds & 1) dest = AsTestItems(dest);
    if (kinds & 2) from = AsTestItems(from);
    XCopyItems(dest, from);
    EXPECT_EQ(Shape(dest), Shape(expected)) << kinds;
  }
  // XMerge and XAssign from and into the test's items.
  const IPtr<IXItem> target = AsTestItems(Load(R"(<t a="1" b="2">old<k/></t>)"));
  XMerge(target, Load(R"(<m b="3" c="4">new<n/></m>)"));
  EXPECT_EQ(Shape(target), "t{a=1 b=3 c=4}(#text='old' k #text='new' n)");
  XAssign(target, AsTestItems(Load(R"(<z y="1"><![CDATA[q]]><w/></z>)")));
  EXPECT_EQ(Shape(target), "z{y=1}(#text='q'! w)");
  const IPtr<IXItem> ownTarget = Load("<o/>");
  XAssign(ownTarget, target);
  EXPECT_EQ(Shape(ownTarget), "z{y=1}(#text='q'! w)");
}

// Matching on many attributes (XFix, LocateXItem and XCopyItems look them up in a table)
// agrees with get_Attr: names ignore case, of two attributes with one name the first counts,
// and one differing value among thousands breaks the match.
TEST(XWideKeys, ManyAttributesMatchAsGetAttrReadsThem) {
  constexpr int kCount = 3000;
  AnsiString attrs, upper;
  for (int i = 0; i < kCount; ++i) {
    attrs += " a" + IntToStr(i) + "=\"v" + IntToStr(i) + "\"";
    upper = " A" + IntToStr(i) + "=\"V" + IntToStr(i) + "\"" + upper;  // reversed, other case
  }
  const IPtr<IXItem> root = Load("<r><row" + attrs + R"( a5="second"/></r>)");
  IPtr<IDump> keys;
  Load("<k" + upper + "/>")->GetAttrList(keys);
  IPtr<IXItem> found;
  EXPECT_TRUE(LocateXItem(root, "row", keys, true, found));
  EXPECT_EQ(Where(found), "row#0");
  keys->set_ByName("a5", "second");
  EXPECT_FALSE(SameXItem(root->get_Items(0), "row", keys, true));

  // XCopyItems merges into the matching row rather than appending another.
  XCopyItems(root, Load("<s><row" + upper + "><sub/></row></s>"));
  EXPECT_EQ(testutil::Join(root->get_Count(), root->get_Items(0)->get_Count()), "1 1");
  XCopyItems(root, Load("<s><row" + upper + R"( a2999="other"/></s>)"));
  EXPECT_EQ(root->get_Count(), 2);

  // XFix keyed on all of them: the fix applies; with one value changed, it does not.
  for (const bool same : {true, false}) {
    TXItem target, fixes;
    xmltest::LoadText(&target, "<row" + attrs + "><v/></row>");
    const AnsiString key = same ? upper : upper + R"( a0="changed")";
    xmltest::LoadText(&fixes, "<f><row" + key + R"(><v fix="d"/></row></f>)");
    XFix(&target, &fixes);
    EXPECT_EQ(target.get_Count(), same ? 0 : 1) << same;
  }
}

// Interfaces taken from the top down and from the bottom up all count on the document, and
// after a subtree moves to another document its new interfaces count on that one.
TEST(XWrappers, EveryInterfaceCountsOnItsDocument) {
  IPtr<IXDoc> doc;
  GetXDocIntf(std::string_view(), doc);
  TXItem* item = XRootOf(doc.Get());
  for (int i = 0; i < 50; ++i) item = item->Add();
  item->set_Name("bottom");
  const IPtr<IXItem> bottom = item->get_Intf();  // first from the bottom: every level between
  IPtr<IXItem> walk = doc->get_Root();
  for (int i = 0; i < 50; ++i) {
    walk = walk->get_Items(0);
    ASSERT_EQ(walk->get_Doc().Get(), doc.Get()) << i;
  }
  EXPECT_EQ(walk.Get(), bottom.Get());
  const IXDoc* first = doc.Get();
  doc = nullptr;
  walk = nullptr;
  EXPECT_EQ(bottom->get_Doc().Get(), first);  // the item alone keeps the document alive
  EXPECT_EQ(bottom->get_Parent()->get_Index(), 0);

  IPtr<IXDoc> other;
  GetXDocIntf(std::string_view(), other);
  IPtr<IXItem> middle = bottom;
  for (int i = 0; i < 25; ++i) middle = middle->get_Parent();
  TXItem* moved = XItemOf(middle.Get());
  XRootOf(other.Get())->AddItem(moved);
  // The interfaces held from before now fail; new ones count on the other document.
  EXPECT_EQ(MessageOf([&] { bottom->get_Name(); }), _SErrXItemDeleted.Str());
  TXItem* below = moved;
  while (below->get_Count() > 0) below = below->get_Items(0);
  EXPECT_EQ(below->get_Intf()->get_Doc().Get(), other.Get());
  EXPECT_EQ(other->get_Root()->get_Items(0)->get_Items(0)->get_Doc().Get(), other.Get());
}

}  // namespace
}  // namespace ostrel
