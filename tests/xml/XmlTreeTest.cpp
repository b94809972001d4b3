// The item tree: wrappers and documents through their whole life (the sanitizer build checks
// that nothing leaks or is used after it is freed), attribute editing in place, CDATA and
// names, moving items, the keyed list of BuildIdx, and the merge by "fix" in every mode.
#include "XmlUtil.h"

#include <TestUtil.h>

#include <ostrel/core/Dump.h>
#include <ostrel/rtl/Format.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace ostrel {
namespace {

using testutil::MessageOf;
using xmltest::Doc;
using xmltest::Parse;
using xmltest::Shape;

const std::string kDeleted = Cp1251(u8"Обращение к удаленному элементу").Str();
const std::string kBug =
    Cp1251(u8"Невозможная ошибка (BUG). Пожалуйста, обратитесь к разработчикам.").Str();

TEST(XmlTree, ChildKeepsDocumentAlive) {
  IPtr<IXItem> child;
  {
    IPtr<IXDoc> doc = Doc("<r><a n=\"1\"/><b/></r>");
    child = doc->get_Root()->get_Items(1);
    EXPECT_EQ(child.Get(), doc->get_Root()->get_Items(1).Get());  // one wrapper per item
  }
  // The document is gone from the caller's hands but lives on through the child.
  IPtr<IXDoc> again = child->get_Doc();
  ASSERT_TRUE(again);
  EXPECT_EQ(again->get_Root()->get_Name(), "r");
  EXPECT_EQ(testutil::Join(child->get_Name(), child->get_Index(), child->get_Parent()->get_Count()),
            "b 1 2");
  // Interfaces of the document are asked through any item.
  EXPECT_TRUE(child.As<IXDoc>());
  EXPECT_FALSE(child.As<IDump>());
}

TEST(XmlTree, DeletedItemDetachesItsInterface) {
  IPtr<IXDoc> doc = Doc("<r><a/><b><c/></b></r>");
  IPtr<IXItem> root = doc->get_Root();
  IPtr<IXItem> b = root->get_Items(1);
  IPtr<IXItem> c = b->get_Items(0);
  IPtr<IXItem> a = root->get_Items(0);
  root->Delete(1);  // b and its child c go
  EXPECT_EQ(MessageOf([&] { b->get_Name(); }), kDeleted);
  EXPECT_EQ(MessageOf([&] { c->set_Value(Variant(1)); }), kDeleted);
  EXPECT_EQ(MessageOf([&] { c->get_Doc(); }), kDeleted);
  root->Clear();
  EXPECT_EQ(MessageOf([&] { a->Add("x"); }), kDeleted);
  EXPECT_EQ(root->get_Count(), 0);
  // Released after the document: the detached wrappers still free cleanly.
  doc = nullptr;
  root = nullptr;
  b = nullptr;
  EXPECT_EQ(MessageOf([&] { c->get_Count(); }), kDeleted);
}

TEST(XmlTree, InterfaceOperations) {
  IPtr<IXDoc> doc = Doc("<r/>");
  IPtr<IXItem> root = doc->get_Root();
  EXPECT_FALSE(root->get_Parent());
  EXPECT_EQ(root->get_Index(), -1);
  root->Add("b")->set_Value(Variant(2));
  root->Insert(0, "a")->set_Attr("k", Variant(Cp1251(u8"ключ")));
  IPtr<IXItem> found;
  EXPECT_TRUE(root->FindItem("B", found));
  EXPECT_EQ(found->get_Index(), 1);
  EXPECT_FALSE(root->FindItem("z", found));
  EXPECT_FALSE(found);
  EXPECT_EQ(root->get_XML(),
            "<r>\r\n  <a k=\"" + Cp1251(u8"ключ").Str() + "\"/>\r\n  <b>2</b>\r\n</r>\r\n");
  EXPECT_EQ(doc->get_XML().rfind(std::string(XML_HEADER_WIN1251) + "\r\n<r>\r\n", 0), 0u);
  IPtr<IDump> attrs;
  EXPECT_TRUE(root->get_Items(0)->GetAttrList(attrs));
  EXPECT_EQ(VarToStr(attrs->get_ByName("K")), Cp1251(u8"ключ").Str());
  EXPECT_FALSE(root->GetAttrList(attrs));
  root->get_Items(1)->set_XML("<n x=\"1\">t</n>");
  EXPECT_EQ(Shape(XRootOf(doc.Get())),
            "r(a{ k=\"" + Cp1251(u8"ключ").Str() + "\"} n='t'{x=\"1\"})");
  EXPECT_THROW(root->get_Items(2), EListError);
  EXPECT_THROW(root->Delete(-1), EListError);
  EXPECT_THROW(root->Insert(3, "x"), EListError);
  EXPECT_EQ(root->get_Count(), 2);
}

TEST(XmlTree, TreeWithoutDocumentHasNoInterfaces) {
  TXItem plain;
  TXItem* child = plain.Add();
  EXPECT_EQ(MessageOf([&] { child->get_Intf(); }), kBug + "\r\rTXItem.Intf: Controller = nil");
  TXItem stranger;
  EXPECT_EQ(MessageOf([&] { plain.RemoveItem(&stranger); }),
            kBug + "\r\rTXItem.RemoveItem: invalid item");
  EXPECT_THROW(child->AddItem(&plain), Exception);  // no item goes below itself
}

TEST(XmlTree, MovingItemsBetweenTrees) {
  IPtr<IXDoc> first = Doc("<r k=\"0\"><a k=\"1\"><b k=\"2\"/></a><c k=\"3\"/></r>");
  IPtr<IXDoc> second = Doc("<s/>");
  TXItem* a = XRootOf(first.Get())->get_Items(0);
  IPtr<IXItem> held = a->get_Items(0)->get_Intf();
  XRootOf(second.Get())->AddItem(a);
  // An interface taken in the old tree lets go of it; new ones belong to the new document.
  EXPECT_EQ(MessageOf([&] { held->get_Name(); }), kDeleted);
  // Items that leave a tree keep their attribute text when the tree goes: moved to another
  // tree, taken out on their own, or copied.
  std::unique_ptr<TXItem> alone(XRootOf(first.Get())->get_Items(0));
  XRootOf(first.Get())->RemoveItem(alone.get());
  TXItem copy;
  copy.Assign(XRootOf(first.Get()));
  first = nullptr;
  IPtr<IXItem> moved = a->get_Items(0)->get_Intf();
  EXPECT_EQ(moved->get_Doc().Get(), second.Get());
  EXPECT_EQ(second->get_Root()->get_XML(),
            "<s>\r\n  <a k=\"1\">\r\n    <b k=\"2\"/>\r\n  </a>\r\n</s>\r\n");
  EXPECT_EQ(alone->TagXML() + copy.TagXML(), "<c k=\"3\"><r k=\"0\">");
  // A text set from a piece of itself.
  alone->set_AttrText(alone->get_AttrText().substr(1));
  EXPECT_EQ(alone->get_AttrText(), "=\"3\"");
}

TEST(XmlTree, TreesOnSeveralThreads) {
  // Items of all trees share one pool: trees built, moved and freed on several threads at
  // once must not disturb each other.
  std::string text = "<r>";
  for (int i = 0; i < 2000; ++i) text += "<i n=\"" + std::to_string(i) + "\"><j/></i>";
  text += "</r>";
  auto work = [&](std::string* result) {
    for (int round = 0; round < 20; ++round) {
      auto a = Parse(text);
      TXItem b;
      while (a->get_Count() > 1000) b.AddItem(a->get_Items(a->get_Count() - 1));
      *result = std::to_string(a->get_Count() + b.get_Count()) +
                VarToStr(a->get_Items(999)->get_Attr("n"));
    }
  };
  std::string r1, r2;
  std::thread t1(work, &r1), t2(work, &r2);
  t1.join();
  t2.join();
  EXPECT_EQ(r1 + " " + r2, "2000999 2000999");
  // Items read together share text blocks; one taken out of its tree is a tree of its own,
  // which another thread may free while this one frees the rest (from the items next to it,
  // so that both threads would be at one block at once if it were still shared).
  for (int round = 0; round < 10; ++round) {
    auto a = Parse(text);
    std::vector<std::unique_ptr<TXItem>> taken;
    while (a->get_Count() > 1000) {
      taken.emplace_back(a->get_Items(a->get_Count() - 1));
      a->RemoveItem(taken.back().get());
    }
    std::atomic<bool> go{false};
    std::thread t3([&] {
      while (!go) std::this_thread::yield();
      taken.clear();
    });
    go = true;
    while (a->get_Count() > 0) delete a->get_Items(a->get_Count() - 1);
    t3.join();
  }
}

TEST(XmlTree, NamesValuesAndCDATA) {
  auto root = Parse("<r><item/><ЁЖ/><#TEXT/></r>");
  EXPECT_EQ(root->IndexOf("ITEM"), 0);
  EXPECT_EQ(root->IndexOf(Cp1251(u8"ёж")), -1);  // source literal above is UTF-8 bytes
  root->get_Items(1)->set_Name(Cp1251(u8"ЁЖ").View());
  EXPECT_EQ(root->IndexOf(Cp1251(u8"ёж")), 1);
  EXPECT_FALSE(root->get_Items(2)->get_IsText());
  TXItem* x = root->get_Items(0);
  x->set_Value(Variant("<![cdata[ a ]]>"));
  EXPECT_EQ(testutil::Join(VarToStr(x->get_Value()), x->get_IsCDATA()), " a  1");
  x->set_Value(Variant(5));
  EXPECT_FALSE(x->get_IsCDATA());
  EXPECT_EQ(MessageOf([&] { x->get_CDATA(); }),
            Cp1251(u8"Значение узла не является симвлольными данными").Str());
  x->set_CDATA("<![CDATA[q]]>");
  EXPECT_EQ(testutil::Join(x->get_CDATA(), x->get_IsCDATA()), "q 1");
  x->set_CDATA("plain");
  EXPECT_EQ(x->get_CDATA(), "plain");
  x->set_AttrText("  a=\"1\"  ");
  EXPECT_EQ(x->TagXML(), "<item a=\"1\">");
  x->set_AttrText("");
  EXPECT_EQ(x->TagXML(), "<item>");
}

TEST(XmlTree, AttributesKeepTheirPlaces) {
  TXItem item;
  item.set_Name("i");
  item.set_AttrText("a=\"1\" b=\"2\" c=\"3\"");
  item.set_Attr("B", Variant(5));
  EXPECT_EQ(item.get_AttrText(), "a=\"1\" B=\"5\" c=\"3\"");
  item.set_Attr("a", Variant::Null());
  EXPECT_EQ(item.get_AttrText(), " B=\"5\" c=\"3\"");
  item.set_Attr("zz", Variant::Null());
  item.set_Attr("d", Variant("x\"<\r\n\t&y"));
  EXPECT_EQ(item.get_AttrText(), " B=\"5\" c=\"3\" d=\"x&quot;&lt;&#13;&#10;&#9;&amp;y\"");
  EXPECT_EQ(VarToStr(item.get_Attr("D")), "x\"<\r\n\t&y");
  EXPECT_TRUE(VarIsNull(item.get_Attr("a")));
  item.set_Attr("e", Variant::FromDate(45352.5));
  EXPECT_EQ(VarToStr(item.get_Attr("e")), "2024-03-01T12:00:00.000");
  Integer pos = 1, start = 0, len = 0;
  AnsiString name, value;
  std::string seen;
  while (item.ExtractAttr(pos, name, start, len, value))
    seen += name + "@" + std::to_string(start) + "+" + std::to_string(len) + " ";
  EXPECT_EQ(seen, "B@2+5 c@8+5 d@14+35 e@50+27 ");
  const std::string format = Cp1251(u8"Ошибка в формате строки атрибутов \"%s\"").Str();
  for (std::string_view bad : {"a='1'", "a", "a=1", "=\"1\"", "a=\"1", "a=\"1\" b"}) {
    item.set_AttrText(bad);
    EXPECT_EQ(MessageOf([&] { item.get_Attr("z"); }), Format(format, AnsiString(bad))) << bad;
  }
  item.set_AttrText("x = \"1\"\t@y=\"2\"");
  EXPECT_EQ(VarToStr(item.get_Attr("@Y")), "2");
  if constexpr (sizeof(std::size_t) > 4) {
    // A text longer than an item can hold is refused before it is read, not cut short.
    static const char one[1] = {};
    EXPECT_THROW(item.set_AttrText(std::string_view(one, std::size_t{1} << 32)), EInvalidArgument);
    EXPECT_EQ(item.get_AttrText(), "x = \"1\"\t@y=\"2\"");
  }
  pos = 1;
  EXPECT_THROW(TXItem::ScanAttr("@a=\"1\" b=\"2\"", pos, "@", name, start, len, value) &&
                   TXItem::ScanAttr("@a=\"1\" b=\"2\"", pos, "@", name, start, len, value),
               Exception);
  EXPECT_EQ(name, "a");
}

TEST(XmlTree, BuildIdxAndAssign) {
  auto root = Parse("<r t=\"9\"><a k=\"2\"><b k=\"3\"/></a><a/><a k=\"1\"><c k=\"4\"/></a></r>");
  TStringList flat, deep;
  root->BuildIdx("k", false, flat);
  root->BuildIdx("K", true, deep);
  EXPECT_EQ(testutil::Join(flat.Count(), flat[0], flat[1], deep.Count()), "2 2 1 4");
  EXPECT_EQ(deep[0] + deep[1] + deep[2] + deep[3], "2314");
  EXPECT_EQ(deep.Objects(1), root->get_Items(0)->get_Items(0));
  TXItem copy;
  copy.set_Tag(0);
  root->set_Tag(7);
  root->get_Items(1)->set_CDATA("x");
  copy.Assign(root.get());
  EXPECT_EQ(Shape(&copy), Shape(root.get()));
  EXPECT_EQ(testutil::Join(copy.get_Tag(), copy.get_Items(1)->get_IsCDATA()), "7 1");
  copy.Assign(nullptr);
  EXPECT_EQ(Shape(&copy), "r{t=\"9\"}");  // name and attributes stay
}

TEST(XmlFix, EveryMode) {
  struct Case {
    std::string_view fixes, result;
  };
  const std::string target =
      "<t><row id=\"1\">a</row><row id=\"2\" v=\"x\"><cell n=\"1\">old</cell></row><row/></t>";
  const Case cases[] = {
      {"<f><t><row id=\"2\" fix=\"d\"/></t></f>", "t(row='a'{id=\"1\"} row)"},
      {"<f><t><row id=\"7\" fix=\"d\"/></t></f>", ""},
      {"<f><t><row id=\"9\">n</row></t></f>",
       "t(row='a'{id=\"1\"} row{id=\"2\" v=\"x\"}(cell='old'{n=\"1\"}) row row='n'{id=\"9\"})"},
      {"<f><t><row id=\"1\" fix=\"A\">n</row></t></f>",
       "t(row='a'{id=\"1\"} row{id=\"2\" v=\"x\"}(cell='old'{n=\"1\"}) row row='n'{id=\"1\" "
       "fix=\"A\"})"},
      {"<f><t><row ID=\"1\">n</row></t></f>",
       "t(row='n'{ID=\"1\"} row{id=\"2\" v=\"x\"}(cell='old'{n=\"1\"}) row)"},
      {"<f><t><row id=\"1\" w=\"y\" fix=\"u\">n</row></t></f>", ""},
      {"<f><t><row id=\"2\"><cell n=\"1\">new</cell><cell n=\"2\">add</cell></row></t></f>",
       "t(row='a'{id=\"1\"} row{id=\"2\" v=\"x\"}(cell='new'{n=\"1\"} cell='add'{n=\"2\"}) row)"},
      {"<f><t><row id=\"2\" fix=\"u\"><cell/></row></t></f>",
       "t(row='a'{id=\"1\"} row{id=\"2\" fix=\"u\"}(cell) row)"},
      {"<f><t><row id=\"5\" fix=\"u\"/><row id=\"5\" fix=\"x\"><c/></row></t></f>", ""},
      {"<f><other/><t><row fix=\"d\"/></t><t><row fix=\"d\"/><row fix=\"d\"/></t></f>",
       "t(row{id=\"2\" v=\"x\"}(cell='old'{n=\"1\"}) row)"},
      {"<f><T><row id=\"2\" fix=\"x\">ignored</row></T></f>",
       "t(row='a'{id=\"1\"} row{id=\"2\" v=\"x\"}(cell='old'{n=\"1\"}) row)"},
      {"<f><t x=\"1\"><row fix=\"d\"/></t></f>", ""},
  };
  const std::string unchanged = Shape(Parse(target).get());
  for (const auto& c : cases) {
    auto t = Parse(target);
    auto f = Parse(c.fixes);
    XFix(t.get(), f.get());
    EXPECT_EQ(Shape(t.get()), c.result.empty() ? unchanged : std::string(c.result)) << c.fixes;
  }
  // An unknown mode stops the merge with the changes before it kept.
  auto t = Parse(target);
  auto f = Parse("<f><t><row id=\"1\" fix=\"d\"/><row fix=\"q\"/><row fix=\"d\"/></t></f>");
  EXPECT_EQ(MessageOf([&] { XFix(t.get(), f.get()); }), kBug);
  EXPECT_EQ(t->get_Count(), 2);
  EXPECT_EQ(testutil::Join(GetXFixMode(f->get_Items(0)->get_Items(1), 'z'),
                           GetXFixMode(f->get_Items(0), 'z')),
            "q z");
}

}  // namespace
}  // namespace ostrel
