// Dump entry names of every length: short names are kept inside the entry and long ones
// apart from it, and both must survive growth, deletion, merging and clearing unchanged.
#include <ostrel/core/Sysclasses.h>
#include <ostrel/services/Sysserv.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ostrel {
namespace {

// A name of the given length with the key number in front, in mixed case.
AnsiString NameOf(int key, std::size_t length) {
  AnsiString name = IntToStr(key) + Ansi(u8"_ПолеField");
  while (name.size() < length) name += name;
  name.resize(length);
  return name;
}

TEST(DumpNames, EveryLengthKeepsItsSpellingThroughGrowthDeletesAndMerges) {
  // Lengths 0..40 each twice, so that the dump passes the size where it starts indexing.
  std::vector<AnsiString> names;
  for (int key = 0; key < 82; ++key) {
    const auto length = static_cast<std::size_t>(key % 41);
    names.push_back(length == 0 ? AnsiString() : NameOf(key, std::max<std::size_t>(length, 3)));
  }
  TkxDump d(false);  // lives here, not by its count
  for (std::size_t k = 0; k < names.size(); ++k)
    d.set_ByName(names[k], Variant(static_cast<Integer>(k)));
  // The empty name comes twice; every other name once.
  ASSERT_EQ(d.get_Count(), 81);

  // Lookups in another case find the first spelling; a second set keeps it.
  for (std::size_t k = 1; k < names.size(); ++k) {
    if (names[k].empty()) continue;
    const Integer at = d.IndexOf(AnsiUpperCase(names[k]));
    ASSERT_GE(at, 0) << k;
    EXPECT_EQ(d.get_Name(at), names[k]);
    d.set_ByName(AnsiLowerCase(names[k]), Variant(static_cast<Integer>(k) * 10));
    EXPECT_EQ(d.get_Name(at), names[k]);
  }

  // Every third entry goes; the rest keep their order and names.
  for (Integer i = d.get_Count() - 1; i >= 0; i -= 3) d.Delete(i);
  std::vector<AnsiString> kept;
  for (Integer i = 0; i < d.get_Count(); ++i) kept.push_back(d.get_Name(i));
  for (std::size_t i = 0; i < kept.size(); ++i)
    EXPECT_EQ(d.IndexOf(kept[i]), static_cast<Integer>(i)) << kept[i];

  TkxDump copy(false);
  copy.Assign(&d);
  ASSERT_EQ(copy.get_Count(), static_cast<Integer>(kept.size()));
  for (std::size_t i = 0; i < kept.size(); ++i) {
    const auto at = static_cast<Integer>(i);
    EXPECT_EQ(copy.get_Name(at), kept[i]);
    EXPECT_EQ(VarToInt(copy.get_Value(at)), VarToInt(d.get_Value(at)));
  }
  d.Clear();
  EXPECT_TRUE(d.IsEmpty());
  EXPECT_EQ(d.IndexOf(kept.back()), -1);
  EXPECT_EQ(copy.IndexOf(kept.back()), static_cast<Integer>(kept.size()) - 1);
}

}  // namespace
}  // namespace ostrel
