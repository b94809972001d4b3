// Key indexes: positions under each duplicates policy in sorted and unsorted modes, case-blind
// string keys, the block structure against a plain model, record ownership, key data.
#include <ostrel/core/KeyIndex.h>
#include <ostrel/rtl/Format.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace ostrel {
namespace {

std::vector<std::string> KeysOf(const TkxKeyIndex& index) {
  std::vector<std::string> keys;
  for (Integer i = 0; i < index.get_Count(); ++i) keys.push_back(VarToStr(index.get_KeyValue(i)));
  return keys;
}

struct PolicyCase {
  const char* name;
  TDuplicates dup;
  bool ignoreCase;
  bool sorted;
  std::vector<Variant> adds;
  std::vector<Integer> positions;  // returned by AddKey; -1: raises the duplicate error
  std::vector<std::string> keys;   // afterwards, in index order
};

class KeyIndexPolicy : public ::testing::TestWithParam<PolicyCase> {};

TEST_P(KeyIndexPolicy, AddKeyPositionsAndResultingOrder) {
  const PolicyCase& c = GetParam();
  TkxKeyIndex index(c.dup, c.ignoreCase, c.sorted);
  for (std::size_t i = 0; i < c.adds.size(); ++i) {
    // The data pointer tells which add a record came from.
    void* tag = reinterpret_cast<void*>(i + 1);
    if (c.positions[i] < 0) {
      try {
        index.AddKey(c.adds[i], tag);
        ADD_FAILURE() << "no duplicate error for add " << i;
      } catch (const Exception& e) {
        EXPECT_EQ(e.Message(), Format(_SErrKeyValueDuplicate, VarToStr(c.adds[i])));
      }
      continue;
    }
    Integer pos = index.AddKey(c.adds[i], tag);
    EXPECT_EQ(pos, c.positions[i]) << "add " << i;
    if (c.dup == dupAccept) {
      EXPECT_EQ(index.get_KeyData(pos), tag) << "add " << i;
    }
  }
  EXPECT_EQ(KeysOf(index), c.keys);
}

const std::string kYozh = Ansi(u8"ёж"), kYOZH = Ansi(u8"ЁЖ"), kEzh = Ansi(u8"еж");

INSTANTIATE_TEST_SUITE_P(
    Policies, KeyIndexPolicy,
    ::testing::Values(
        PolicyCase{"SortedAccept", dupAccept, false, true, {5, 3, 5}, {0, 0, 1}, {"3", "5", "5"}},
        PolicyCase{"SortedIgnore", dupIgnore, false, true, {2, 1, 2}, {0, 0, 1}, {"1", "2"}},
        PolicyCase{"SortedError", dupError, false, true, {2, 1, 2}, {0, 0, -1}, {"1", "2"}},
        PolicyCase{"UnsortedAccept", dupAccept, false, false, {5, 3, 5}, {0, 1, 2}, {"5", "3", "5"}},
        PolicyCase{"UnsortedIgnore", dupIgnore, false, false, {5, 3, 5}, {0, 1, 0}, {"5", "3"}},
        PolicyCase{"UnsortedErrorIgnoreCase", dupError, true, false, {"a", "A"}, {0, -1}, {"a"}},
        PolicyCase{"UnsortedErrorCaseSensitive", dupError, false, false, {"a", "A"}, {0, 1},
                   {"a", "A"}},
        // A key equal to others without regard to case goes in front of them.
        PolicyCase{"SortedAcceptIgnoreCase", dupAccept, true, true, {"b", "A", "a", "B"},
                   {0, 0, 0, 2}, {"a", "A", "B", "b"}},
        PolicyCase{"SortedIgnoreCyrillic", dupIgnore, true, true, {kEzh, kYozh, kYOZH},
                   {0, 1, 1}, {kEzh, kYozh}},
        PolicyCase{"UnsortedIgnoreCaseMixed", dupIgnore, true, false, {"x", kYOZH, "X", kYozh},
                   {0, 1, 0, 1}, {"x", kYOZH}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(KeyIndex, FindKeyGivesInsertPositionOrCount) {
  TkxKeyIndex sorted(dupAccept, false, true), unsorted(dupAccept, false, false);
  for (int k : {10, 20, 20, 20, 30}) {
    sorted.AddKey(k, nullptr);
    unsorted.AddKey(k, nullptr);
  }
  Integer i = -7;
  EXPECT_TRUE(sorted.FindKey(20, i));
  EXPECT_EQ(i, 1);  // the first of the equal keys
  EXPECT_FALSE(sorted.FindKey(25, i));
  EXPECT_EQ(i, 4);
  EXPECT_FALSE(sorted.FindKey(99, i));
  EXPECT_EQ(i, 5);
  EXPECT_TRUE(unsorted.FindKey(30, i));
  EXPECT_EQ(i, 4);
  EXPECT_FALSE(unsorted.FindKey(25, i));
  EXPECT_EQ(i, 5);
  EXPECT_TRUE(sorted.KeyExist(Variant(Int64(30))));  // other integer types compare by value
}

TEST(KeyIndex, RemoveKeyRemovesEveryEqualKey) {
  for (bool sortedMode : {true, false}) {
    TkxKeyIndex index(dupAccept, true, sortedMode);
    for (const char* k : {"b", "A", "a", "c", "a"}) index.AddKey(k, nullptr);
    EXPECT_TRUE(index.RemoveKey("a"));
    EXPECT_EQ(index.get_Count(), 2);
    EXPECT_FALSE(index.RemoveKey("a"));
    EXPECT_FALSE(index.RemoveKey("zz"));
  }
}

TEST(KeyIndex, IndexArgumentsOutOfRangeRaiseListError) {
  TkxKeyVarIndex index(dupAccept, false, true);
  index.AddKey(1, Variant("one"));
  EXPECT_THROW(index.get_Rec(-1), EListError);
  EXPECT_THROW(index.get_KeyValue(1), EListError);
  EXPECT_THROW(index.get_KeyData(1), EListError);
  EXPECT_THROW(index.set_KeyData(5, Variant(1)), EListError);
  EXPECT_THROW(index.DeleteKey(1), EListError);
  try {
    index.DeleteKey(3);
    ADD_FAILURE() << "no index error";
  } catch (const EListError& e) {
    EXPECT_EQ(e.Message(), "List index (3) out of bounds");
  }
  EXPECT_EQ(index.get_Count(), 1);
}

// Sorted, accepting duplicates, checked after every step against a vector where each new
// key goes in front of the keys equal to it. Enough keys to split and merge many blocks.
// Integer keys are searched through the values kept beside the records, other keys through
// the records: both, and a mix of the two, must agree with the model.
enum KeyKind { kIntegers, kDoubles, kMixed };

class KeyIndexModel : public ::testing::TestWithParam<KeyKind> {};

TEST_P(KeyIndexModel, SortedPositionsAgreeThroughInsertsAndDeletes) {
  std::mt19937 rng(7);
  auto keyOf = [](int k) {
    const bool asDouble = GetParam() == kDoubles || (GetParam() == kMixed && k % 2 != 0);
    return asDouble ? Variant(static_cast<double>(k)) : Variant(k);
  };
  TkxKeyIndex index(dupAccept, false, true);
  struct Item {
    int key;
    std::size_t tag;
  };
  std::vector<Item> model;
  auto check = [&] {
    ASSERT_EQ(index.get_Count(), static_cast<Integer>(model.size()));
    for (std::size_t i = 0; i < model.size(); ++i) {
      ASSERT_EQ(VarToInt(index.get_Rec(static_cast<Integer>(i))->Key), model[i].key) << i;
      ASSERT_EQ(index.get_KeyData(static_cast<Integer>(i)), reinterpret_cast<void*>(model[i].tag));
    }
  };
  std::size_t nextTag = 1;
  for (int round = 0; round < 3; ++round) {
    for (int n = 0; n < 6000; ++n) {
      const int key = static_cast<int>(rng() % 2000);
      auto at = std::lower_bound(model.begin(), model.end(), key,
                                 [](const Item& it, int k) { return it.key < k; });
      const auto expected = static_cast<Integer>(at - model.begin());
      model.insert(at, Item{key, nextTag});
      ASSERT_EQ(index.AddKey(keyOf(key), reinterpret_cast<void*>(nextTag++)), expected);
    }
    check();
    // Deleting most of the keys from random places, then looking the rest up.
    while (model.size() > 300) {
      const auto i = static_cast<Integer>(rng() % model.size());
      index.DeleteKey(i);
      model.erase(model.begin() + i);
    }
    check();
    for (int key = -1; key <= 2001; key += 7) {
      auto at = std::lower_bound(model.begin(), model.end(), key,
                                 [](const Item& it, int k) { return it.key < k; });
      Integer pos = -1;
      ASSERT_EQ(index.FindKey(keyOf(key), pos), at != model.end() && at->key == key);
      ASSERT_EQ(pos, at - model.begin());
    }
  }
  index.Clear();
  EXPECT_EQ(index.get_Count(), 0);
  EXPECT_EQ(index.AddKey(1, nullptr), 0);
}

INSTANTIATE_TEST_SUITE_P(Keys, KeyIndexModel, ::testing::Values(kIntegers, kDoubles, kMixed));

// The virtual record operations: every record made is freed once, by DeleteKey, Clear or
// the destructor; an ignored duplicate makes none.
class CountingIndex : public TkxKeyIndex {
 public:
  CountingIndex(int& live) : TkxKeyIndex(dupIgnore, false, true), fLive(live) {}
  ~CountingIndex() override { Clear(); }

 protected:
  TkxKeyRec* NewKeyRec(const Variant& key) override {
    ++fLive;
    return TkxKeyIndex::NewKeyRec(key);
  }
  void FreeKeyRec(TkxKeyRec* rec) noexcept override {
    --fLive;
    TkxKeyIndex::FreeKeyRec(rec);
  }

 private:
  int& fLive;
};

TEST(KeyIndex, RecordsAreMadeAndFreedThroughTheVirtualOperations) {
  int live = 0;
  {
    CountingIndex index(live);
    for (int k : {4, 2, 4, 9, 2}) index.AddKey(k, nullptr);
    EXPECT_EQ(live, 3);
    index.DeleteKey(0);
    EXPECT_EQ(live, 2);
  }
  EXPECT_EQ(live, 0);
}

TEST(KeyData, DataByKeyAndByIndex) {
  IPtr<IkxKeyData> kd = GetKeyDataIntf(dupError, true, true);
  EXPECT_TRUE(kd->get_KeyData("none").IsEmpty());
  kd->set_KeyData("Beta", 2);
  kd->set_KeyData("alpha", Ansi(u8"первый"));
  kd->set_KeyData("BETA", 20);  // an existing key: its data changes, nothing is added
  ASSERT_EQ(kd->get_Count(), 2);
  EXPECT_EQ(VarToStr(kd->get_Key(0)), "alpha");
  EXPECT_EQ(VarToStr(kd->get_Data(0)), Ansi(u8"первый"));
  EXPECT_EQ(VarToInt(kd->get_KeyData("beta")), 20);
  EXPECT_THROW(kd->Add("ALPHA", 1), Exception);
  kd->set_Data(1, VarArrayOf({1, "x"}));
  EXPECT_TRUE(VarIsArray(kd->get_KeyData("Beta")));
  Integer i = -1;
  EXPECT_TRUE(kd->FindKey("BeTa", i));
  EXPECT_EQ(i, 1);
  kd->Remove("beta");
  kd->Delete(0);
  EXPECT_EQ(kd->get_Count(), 0);
  EXPECT_THROW(kd->get_Data(0), EListError);
  IPtr<IkxKeyData> same = kd.As<IkxKeyData>();
  EXPECT_EQ(same.Get(), kd.Get());
}

}  // namespace
}  // namespace ostrel
