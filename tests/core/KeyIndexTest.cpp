#include <ostrel/core/KeyIndex.h>
#include <ostrel/rtl/Format.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace ostrel {
namespace {

using testutil::MessageOf;

struct PolicyCase {
  TDuplicates dup;
  bool ignoreCase, sorted;
  std::vector<Variant> adds;
  std::vector<Integer> positions;  // returned by AddKey; -1: the duplicate error
  std::string keys;                // afterwards, in index order
};

const std::string kYozh = Ansi(u8"ёж"), kYOZH = Ansi(u8"ЁЖ"), kEzh = Ansi(u8"еж");

TEST(KeyIndexPolicy, AddKeyPositionsAndResultingOrder) {
  // Duplicates policy, without regard to case, sorted: the keys added and where they went.
  const PolicyCase cases[] = {
      {dupAccept, false, true, {5, 3, 5}, {0, 0, 1}, "3 5 5 "},
      {dupIgnore, false, true, {2, 1, 2}, {0, 0, 1}, "1 2 "},
      {dupError, false, true, {2, 1, 2}, {0, 0, -1}, "1 2 "},
      {dupAccept, false, false, {5, 3, 5}, {0, 1, 2}, "5 3 5 "},
      {dupIgnore, false, false, {5, 3, 5}, {0, 1, 0}, "5 3 "},
      {dupError, true, false, {"a", "A"}, {0, -1}, "a "},
      {dupError, false, false, {"a", "A"}, {0, 1}, "a A "},
      // A key equal to others without regard to case goes in front of them.
      {dupAccept, true, true, {"b", "A", "a", "B"}, {0, 0, 0, 2}, "a A B b "},
      {dupIgnore, true, true, {kEzh, kYozh, kYOZH}, {0, 1, 1}, kEzh + " " + kYozh + " "},
      {dupIgnore, true, false, {"x", kYOZH, "X", kYozh}, {0, 1, 0, 1}, "x " + kYOZH + " "}};
  for (const PolicyCase& c : cases) {
    SCOPED_TRACE("case #" + std::to_string(&c - cases));
    TkxKeyIndex index(c.dup, c.ignoreCase, c.sorted);
    for (std::size_t i = 0; i < c.adds.size(); ++i) {
      void* tag = reinterpret_cast<void*>(i + 1);  // tells which add a record came from
      if (c.positions[i] < 0) {
        EXPECT_EQ(MessageOf([&] { index.AddKey(c.adds[i], tag); }),
                  Format(_SErrKeyValueDuplicate, VarToStr(c.adds[i])));
        continue;
      }
      const Integer pos = index.AddKey(c.adds[i], tag);
      EXPECT_EQ(pos, c.positions[i]) << "add " << i;
      if (c.dup == dupAccept) {
        EXPECT_EQ(index.get_KeyData(pos), tag) << "add " << i;
      }
    }
    std::string keys;
    for (Integer i = 0; i < index.get_Count(); ++i) keys += VarToStr(index.get_KeyValue(i)) + " ";
    EXPECT_EQ(keys, c.keys);
  }
}

// Sorted, accepting duplicates, checked against a vector where each new key goes in front of
// the keys equal to it; enough keys to split and merge many blocks. Integer keys are searched
// through the values kept beside the records, other keys through the records: both, and a
// mix of the two, must agree with the model.
enum KeyKind { kIntegers, kDoubles, kMixed };

class KeyIndexModel : public ::testing::TestWithParam<KeyKind> {};

TEST_P(KeyIndexModel, SortedPositionsAgreeThroughInsertsAndDeletes) {
  auto keyOf = [](int k) {
    const bool asDouble = GetParam() == kDoubles || (GetParam() == kMixed && k % 2 != 0);
    return asDouble ? Variant(static_cast<double>(k)) : Variant(k);
  };
  std::mt19937 rng(7);
  TkxKeyIndex index(dupAccept, false, true);
  std::vector<std::pair<int, std::size_t>> model;  // key, tag
  auto lowerBound = [&](int key) {
    return std::lower_bound(model.begin(), model.end(), key,
                            [](const auto& item, int k) { return item.first < k; });
  };
  auto check = [&] {
    ASSERT_EQ(index.get_Count(), static_cast<Integer>(model.size()));
    for (std::size_t i = 0; i < model.size(); ++i) {
      const auto at = static_cast<Integer>(i);
      ASSERT_EQ(VarToInt(index.get_Rec(at)->Key), model[i].first) << i;
      ASSERT_EQ(index.get_KeyData(at), reinterpret_cast<void*>(model[i].second)) << i;
    }
  };
  std::size_t nextTag = 1;
  for (int round = 0; round < 3; ++round) {
    for (int n = 0; n < 6000; ++n) {
      const int key = static_cast<int>(rng() % 2000);
      const auto at = lowerBound(key);
      const auto expected = static_cast<Integer>(at - model.begin());
      model.insert(at, {key, nextTag});
      ASSERT_EQ(index.AddKey(keyOf(key), reinterpret_cast<void*>(nextTag++)), expected);
    }
    check();
    while (model.size() > 300) {  // delete most keys from random places
      const auto i = static_cast<Integer>(rng() % model.size());
      index.DeleteKey(i);
      model.erase(model.begin() + i);
    }
    check();
    for (int key = -1; key <= 2001; key += 7) {
      const auto at = lowerBound(key);
      Integer pos = -1;
      ASSERT_EQ(index.FindKey(keyOf(key), pos), at != model.end() && at->first == key);
      ASSERT_EQ(pos, at - model.begin());
    }
  }
  index.Clear();
  EXPECT_EQ(index.AddKey(1, nullptr), 0);
}

INSTANTIATE_TEST_SUITE_P(Keys, KeyIndexModel, ::testing::Values(kIntegers, kDoubles, kMixed));

TEST(KeyIndex, UnsortedFindRemoveAndIndexErrors) {
  TkxKeyIndex index(dupAccept, true, false);
  for (const char* k : {"b", "A", "a", "c", "a"}) index.AddKey(k, nullptr);
  Integer i = -7;
  EXPECT_FALSE(index.FindKey("d", i));
  EXPECT_EQ(i, 5);                    // the count
  EXPECT_TRUE(index.RemoveKey("a"));  // all three
  EXPECT_FALSE(index.RemoveKey("a"));
  EXPECT_EQ(index.get_Count(), 2);
  EXPECT_THROW(index.get_Rec(-1), EListError);
  EXPECT_THROW(index.DeleteKey(2), EListError);
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
  kd->set_Data(1, VarArrayOf({1, "x"}));  // the cell owns what it holds (leak-checked)
  EXPECT_TRUE(VarIsArray(kd->get_KeyData("Beta")));
  kd->Remove("beta");
  kd->Delete(0);
  EXPECT_EQ(kd->get_Count(), 0);
  EXPECT_THROW(kd->get_Data(0), EListError);
}

}  // namespace
}  // namespace ostrel
