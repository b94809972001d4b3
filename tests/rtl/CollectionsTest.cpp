#include <ostrel/rtl/Collections.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

namespace ostrel {
namespace {

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
    EXPECT_EQ(testutil::MessageOf<EListError>([&] { c.Items(0)->SetIndex(bad); }),
              "List index (" + std::to_string(bad) + ") out of bounds");
  EXPECT_EQ(testutil::MessageOf<EListError>([&] { c.Insert(4); }), "List index (4) out of bounds");
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
  EXPECT_EQ(testutil::MessageOf<EConvertError>([&] { b.Assign(a.Items(0)); }),
            "Cannot assign a TNamed to a TCollection");
  EXPECT_EQ(testutil::MessageOf<EConvertError>([&] { b.Items(0)->Assign(&a); }),
            "Cannot assign a TCollection to a TNamed");
  EXPECT_EQ(Texts(b), "two#1 two#2");
}

}  // namespace
}  // namespace ostrel
