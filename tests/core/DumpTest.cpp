#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/StrServ.h>
#include <ostrel/services/Sysserv.h>

#include <core/DumpUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace ostrel {
namespace {

using namespace testutil;

TEST(Dump, NamesIgnoreCaseKeepFirstSpellingAndOrder) {
  IPtr<IDump> d = DumpOf({{"Alpha", 1},
                          {Ansi(u8"Сумма"), 10},
                          {Ansi(u8"ёлка"), 20},
                          {"ALPHA", 2},
                          {Ansi(u8"СУММА"), 11},
                          {Ansi(u8"ЁЛКА"), 21},
                          {Ansi(u8"елка"), 30},  // Е and Ё are different letters
                          {"", 40},              // the empty name is a name too
                          {" Alpha", 50}});      // names are not trimmed
  ASSERT_EQ(d->get_Count(), 6);
  EXPECT_EQ(Dump_Names(d, "|"), Ansi(u8"Alpha|Сумма|ёлка|елка| Alpha"));
  EXPECT_EQ(d->get_Name(4), "");
  EXPECT_EQ(Dump_AsString(d, "|"), Ansi(u8"Alpha=2|Сумма=11|ёлка=21|елка=30|=40| Alpha=50"));
  EXPECT_EQ(Join(VarToInt(d->get_ByName(Ansi(u8"сУмМа"))), d->IndexOf(Ansi(u8"ЁЛКА")),
                 d->IndexOf(Ansi(u8"ЕЛКА")), d->IndexOf("Alph")),
            "11 2 3 -1");
}

// Every operation is checked against a plain model (a vector searched linearly), at sizes
// below and far above the point where the dump starts indexing its names.
class DumpAgainstModel : public ::testing::TestWithParam<int> {};

TEST_P(DumpAgainstModel, RandomOperationsAgree) {
  const int size = GetParam();
  std::mt19937 rng(static_cast<unsigned>(size));
  IPtr<IDump> d(new TkxDump);
  std::vector<std::pair<AnsiString, Integer>> model;
  auto modelIndex = [&](const AnsiString& name) {
    for (std::size_t i = 0; i < model.size(); ++i)
      if (AnsiSameText(model[i].first, name)) return static_cast<Integer>(i);
    return -1;
  };
  for (int step = 0; step < size * 6; ++step) {
    AnsiString name = Ansi(u8"Поле_") + IntToStr(rng() % static_cast<unsigned>(size * 2));
    name = rng() % 2 ? AnsiUpperCase(name) : AnsiLowerCase(name);
    const Integer i = modelIndex(name);
    switch (rng() % 6) {
      case 0:
      case 1:
        d->set_ByName(name, step);
        if (i < 0)
          model.emplace_back(name, step);
        else
          model[static_cast<std::size_t>(i)].second = step;
        break;
      case 2:
        if (!model.empty()) {
          const auto at = static_cast<Integer>(rng() % model.size());
          d->Delete(at);
          model.erase(model.begin() + at);
        }
        break;
      case 3:
        if (step % 7 == 0) {
          // Several names at once, some twice or absent, in the other case.
          AnsiString names;
          for (int k = 0; k < 5; ++k) {
            const AnsiString one = IntToStr(rng() % static_cast<unsigned>(size * 2));
            names += AnsiUpperCase(Ansi(u8"поле_")) + one + ";";
            const Integer at = modelIndex(Ansi(u8"Поле_") + one);
            if (at >= 0) model.erase(model.begin() + at);
          }
          Dump_Remove(d, names);
        }
        break;
      default:
        ASSERT_EQ(d->IndexOf(name), i) << "step " << step;
        if (i >= 0) {
          ASSERT_EQ(VarToInt(d->get_ByName(name)), model[static_cast<std::size_t>(i)].second);
        }
    }
  }
  ASSERT_EQ(d->get_Count(), static_cast<Integer>(model.size()));
  for (std::size_t i = 0; i < model.size(); ++i) {
    EXPECT_EQ(d->get_Name(static_cast<Integer>(i)), model[i].first);
    EXPECT_EQ(d->IndexOf(AnsiUpperCase(model[i].first)), static_cast<Integer>(i));
  }
  Dump_Clear(d);
  EXPECT_TRUE(d->IsEmpty());
  d->set_ByName("again", 1);
  EXPECT_EQ(d->IndexOf("AGAIN"), 0);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DumpAgainstModel, ::testing::Values(4, 20, 300, 1200));

// An object that runs `gone` when its last reference goes.
class TReleaseProbe : public TInterfacedObject {
 public:
  explicit TReleaseProbe(std::function<void()> gone) : fGone(std::move(gone)) {}
  ~TReleaseProbe() override { fGone(); }

 private:
  std::function<void()> fGone;
};

// Excluding or removing many names takes time in proportion to the dump, not its square (a
// name at a time, 20,000 of them took seconds), and values held by the removed entries go once
// the dump is whole: here each one, as it goes, finds the dump already without any of them.
TEST(DumpNames, ManyAtOnceStayLinearAndRemovedValuesGoAfterwards) {
  constexpr int kCount = 200000;
  IPtr<IDump> d = GetDumpIntf();
  AnsiString names, kept;
  std::vector<AnsiString> odd;
  for (int i = 0; i < kCount; ++i) {
    d->set_ByName("n" + IntToStr(i), i);
    if (i % 2) {
      names += "N" + IntToStr(i) + ";";
      odd.push_back("N" + IntToStr(i));
    } else {
      StrJoin(kept, "n" + IntToStr(i), ";");
    }
  }
  std::vector<Integer> seen;
  for (int i = 0; i < 3; ++i)
    d->set_ByName(
        "held" + IntToStr(i),
        Variant(IPtr<IInterface>(new TReleaseProbe([&] { seen.push_back(d->get_Count()); }))));
  const auto start = std::chrono::steady_clock::now();
  odd.insert(odd.end(), {"HELD0", "held1", "Held2"});
  EXPECT_EQ(Dump_Names_Exclude(d, odd, ";"), kept);
  Dump_Remove(d, names + "held2;held0;held1;absent");
  EXPECT_LT(std::chrono::steady_clock::now() - start, testutil::LinearTimeBudget());
  EXPECT_EQ(Join(seen[0], seen.size()), Join(kCount / 2, 3));
  ASSERT_EQ(d->get_Count(), kCount / 2);
  for (int i = 0; i < kCount; i += 997)
    ASSERT_EQ(d->IndexOf("N" + IntToStr(i)), i % 2 ? -1 : i / 2) << i;
}

TEST(Dump, NameListsMissingNamesAndBadIndexes) {
  IPtr<IDump> d = DumpOf({{"a", 1}, {"b", "two"}});
  Variant both = d->get_ByName("a;B");
  ASSERT_TRUE(VarIsArray(both));
  EXPECT_EQ(Join(VarArrayLowBound(both), VarArrayHighBound(both)), "0 1");
  EXPECT_EQ(VarToStr(VarArrayGet(both, 1)), "two");
  EXPECT_EQ(MessageOf([&] { d->get_ByName("a;c"); }), NotFound("c"));
  EXPECT_EQ(MessageOf([&] { d->get_ByName(Ansi(u8"Имя")); }),
            Ansi(u8"Элемент/параметр с именем \"Имя\" не найден"));
  EXPECT_EQ(MessageOf([&] { d->get_Value(2); }), "List index (2) out of bounds");
  EXPECT_EQ(MessageOf([&] { d->get_Name(-1); }), "List index (-1) out of bounds");
  EXPECT_THROW(d->set_Value(5, 0), EListError);
  EXPECT_THROW(d->Delete(2), EListError);
  EXPECT_EQ(d->get_Count(), 2);

  IPtr<IDumpList> list(new TkxDumpList);
  EXPECT_EQ(list->Add(d), 0);
  EXPECT_EQ(list->Add(GetDumpIntf()), 1);
  EXPECT_EQ(list->get_Item(0).Get(), d.Get());
  EXPECT_EQ(MessageOf([&] { list->get_Item(2); }), "List index (2) out of bounds");
}

TEST(DumpGetValue, OutArgumentsClearOrKeepAsTheirTypeSays) {
  IPtr<IDump> d = DumpOf({{"n", 42},
                          {"null", Variant::Null()},
                          {"text", Ansi(u8"1234,5")},
                          {"word", "abc"},
                          {"date", Variant::FromDate(EncodeDate(2024, 2, 3))},
                          {"flag", true}});
  // Missing: variant and string are cleared, the others keep the caller's default.
  Variant v = 7;
  AnsiString s = "preset";
  Integer i = 5;
  Extended x = 2.5L;
  bool b = true;
  TDateTime t = 123.0;
  EXPECT_FALSE(Dump_GetValue(d, "missing", v) || Dump_GetValue(d, "missing", s) ||
               Dump_GetValue(d, "missing", i) || Dump_GetValue(d, "missing", x) ||
               Dump_GetValue(d, "missing", b) || Dump_GetValue(d, "missing", t));
  EXPECT_TRUE(v.IsEmpty() && s.empty() && i == 5 && x == 2.5L && b && t == 123.0);

  // Null reads as the type's zero, except for the date form, which has no null rule.
  s = "preset";
  EXPECT_TRUE(Dump_GetValue(d, "null", i) && Dump_GetValue(d, "null", x) &&
              Dump_GetValue(d, "null", b) && Dump_GetValue(d, "NULL", s));
  EXPECT_TRUE(i == 0 && x == 0.0L && !b && s.empty());
  EXPECT_THROW(Dump_GetValue(d, "null", t), EVariantError);

  EXPECT_TRUE(Dump_GetValue(d, "text", x) && Dump_GetValue(d, "n", s) &&
              Dump_GetValue(d, "date", t) && Dump_GetValue(d, "flag", i));
  EXPECT_EQ(x, 1234.5L);
  EXPECT_EQ(s, "42");
  EXPECT_EQ(t, EncodeDate(2024, 2, 3));
  EXPECT_EQ(i, -1);
  EXPECT_THROW(Dump_GetValue(d, "word", i), EVariantError);
  EXPECT_TRUE(Dump_GetVS(d, "n", s));
  EXPECT_FALSE(Dump_GetVS(d, "null", s) || Dump_GetVS(d, "missing", s));
}

TEST(DumpGetValue, DefValueAndFlags) {
  IPtr<IDump> d = DumpOf({{"null", Variant::Null()}, {"empty", Variant()}, {"zero", 0}});
  EXPECT_EQ(
      Join(VarToInt(Dump_DefValue(d, "null", 5, true)),
           VarToInt(Dump_DefValue(d, "empty", 5, true)),
           VarToInt(Dump_DefValue(d, "zero", 5, true)), VarToInt(Dump_DefValue(d, "missing", 5))),
      "5 5 0 5");
  EXPECT_TRUE(Dump_DefValue(d, "null", 5, false).IsNull());
  Dump_Define(d, "Flag");
  EXPECT_EQ(VarType(d->get_ByName("FLAG")), varByte);
  EXPECT_EQ(VarToInt(d->get_ByName("flag")), 1);
  EXPECT_TRUE(Dump_Undef(d, "flag"));
  EXPECT_FALSE(Dump_Undef(d, "flag") || Dump_IfDef(d, "flag"));
}

TEST(DumpIntf, ByNameAndByIdentity) {
  IPtr<IDump> nested = GetDumpIntf();
  IPtr<IDumpList> list(new TkxDumpList);
  IPtr<IDump> d = DumpOf({{"number", 1},
                          {"list", list},
                          {"dispatch", Variant::FromDispatch(IPtr<IInterface>(nested))},
                          {"nested", nested}});
  IPtr<IInterface> out = IPtr<IInterface>(list);
  EXPECT_TRUE(Dump_GetIntf(d, "NESTED", IDump::IID, out, false));
  EXPECT_EQ(out.Get(), static_cast<IInterface*>(nested.Get()));
  EXPECT_TRUE(Dump_GetIntf(d, "dispatch", IDump::IID, out, false));
  EXPECT_FALSE(Dump_GetIntf(d, "number", IDump::IID, out, false));
  EXPECT_FALSE(out);
  EXPECT_FALSE(Dump_GetIntf(d, "missing", IDump::IID, out, false));
  EXPECT_EQ(Dump_GetIntf<IDump>(d, "nested").Get(), nested.Get());
  EXPECT_EQ(MessageOf([&] { Dump_GetIntf(d, "missing", IDump::IID); }), NotFound("missing"));
  EXPECT_EQ(MessageOf([&] { Dump_GetIntf(d, "list", IDump::IID); }),
            "Dump_GetIntf: parameter \"list\" is not supported interface "
            "\"{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}\"");

  // By identity: the first varUnknown value in entry order that supports it; a dispatch
  // value does not count.
  EXPECT_EQ(Dump_GetIntf(d, IDump::IID).Get(), static_cast<IInterface*>(nested.Get()));
  d->set_ByName("nested", 0);
  EXPECT_FALSE(Dump_GetIntf(d, IDump::IID, out, false));
  EXPECT_EQ(MessageOf([&] { Dump_GetIntf(d, IDump::IID); }),
            "Dump_GetIntf: interface \"{F346B0A8-C5A8-473A-A9C6-C9784A57FF2C}\" not found");
}

TEST(DumpNames, ListsExcludesContainsRemoves) {
  IPtr<IDump> d = DumpOf({{"One", 1}, {"Two", 2}, {"Three", 3}});
  EXPECT_EQ(Dump_Names(d, ", "), "One, Two, Three");
  EXPECT_EQ(Dump_Names_Exclude(d, {"two", "ONE"}, ";"), "Three");
  EXPECT_EQ(Dump_Names_Exclude(d, std::vector<AnsiString>{}, ";"), "One;Two;Three");
  EXPECT_TRUE(Dump_ContainsNames(d, "x;three"));
  EXPECT_FALSE(Dump_ContainsNames(d, "x;y") || Dump_ContainsNames(d, ""));
  Dump_Remove(d, "x;ONE;three");
  EXPECT_EQ(Dump_Names(d, ";"), "Two");
}

TEST(DumpAssign, MergesAllOrTheListedNames) {
  IPtr<IDump> src = DumpOf({{"a", 1}, {"b", 2}, {"c", 3}});
  auto fresh = [] { return DumpOf({{"B", 20}, {"z", 26}}); };
  IPtr<IDump> dest = fresh();
  EXPECT_FALSE(Dump_Assign(dest, nullptr, "") || Dump_Assign(dest, GetDumpIntf(), ""));
  EXPECT_EQ(Dump_AsString(dest, ";"), "B=20;z=26");
  EXPECT_TRUE(Dump_Assign(dest, src, ""));
  EXPECT_EQ(Dump_AsString(dest, ";"), "B=2;z=26;a=1;c=3");
  dest = fresh();
  EXPECT_TRUE(Dump_Assign(dest, src, "c;missing;A"));
  EXPECT_EQ(Dump_AsString(dest, ";"), "B=20;z=26;c=3;A=1");
  EXPECT_FALSE(Dump_Assign(dest, src, "missing"));
  dest = fresh();
  EXPECT_TRUE(Dump_Assign(dest, src, {"b"}));
  EXPECT_EQ(Dump_AsString(dest, ";"), "B=2;z=26");
  EXPECT_TRUE(Dump_Assign(dest, src, std::vector<AnsiString>{}));
  EXPECT_EQ(Dump_AsString(dest, ";"), "B=2;z=26;a=1;c=3");
}

TEST(DumpAssign, SameValuesIsOneSided) {
  IPtr<IDump> a = GetDumpIntf(), b = DumpOf({{"X", 1.0}, {"y", 2}});
  EXPECT_TRUE(Dump_SameValues(a, b));
  a->set_ByName("x", 1);
  EXPECT_TRUE(Dump_SameValues(a, b));
  EXPECT_FALSE(Dump_SameValues(b, a));
  a->set_ByName("n", Variant::Null());
  b->set_ByName("n", Variant());
  EXPECT_FALSE(Dump_SameValues(a, b));
}

TEST(DumpAssign, CloneSharesNestedDumpsAndByValuesStopsPastTheArray) {
  IPtr<IDump> nested = GetDumpIntf();
  IPtr<IDump> src = DumpOf({{"n", nested}, {"s", "text"}}), copy;
  Dump_Clone(src, copy);
  ASSERT_TRUE(copy);
  EXPECT_EQ(Dump_GetIntf<IDump>(copy, "n").Get(), nested.Get());
  copy->set_ByName("s", "changed");
  EXPECT_EQ(VarToStr(src->get_ByName("s")), "text");
  Dump_Clone(src, src);  // the out argument may be the source itself
  EXPECT_EQ(src->get_Count(), 2);

  IPtr<IDump> d;
  Dump_ByValues("a;b", 5, d);  // a scalar: the whole text is one name
  EXPECT_EQ(Dump_Names(d, "|"), "a;b");
  EXPECT_THROW(Dump_ByValues("a;b;c", VarArrayOf({1, "two"}), d), EVariantBadIndexError);
  ASSERT_TRUE(d);
  EXPECT_EQ(Dump_AsString(d, ";"), "a=1;b=two");
}

TEST(DumpCommands, NameDispatchedAccess) {
  IPtr<IDump> d = DumpOf({{"a", 1}, {"b", "two"}});
  IPtr<IObjectRTTI> rtti = d.As<IObjectRTTI>();
  auto call = [&](std::string_view name, std::initializer_list<Variant> params) {
    Variant p = VarArrayOf(params);
    return rtti->CallMethod(nullptr, TkxDump::StaticClass(), name, p);
  };
  EXPECT_EQ(VarToInt(rtti->GetProp(nullptr, nullptr, "COUNT")), 2);
  EXPECT_TRUE(rtti->GetProp(nullptr, nullptr, "Count").IsEmpty());
  rtti->SetProp(nullptr, nullptr, "COUNT", 10);
  EXPECT_EQ(VarToInt(call("INDEXOF", {"B"})), 1);
  EXPECT_EQ(VarToStr(call("NAME.GET", {1})), "b");
  EXPECT_EQ(VarToStr(call("VALUE.GET", {1})), "two");
  call("VALUE.SET", {0, 11});
  call("BYNAME.SET", {"c", 3});
  EXPECT_TRUE(VarIsArray(call("BYNAME.GET", {"a;c"})));
  EXPECT_EQ(MessageOf([&] { call("BYNAME.GET", {"zz"}); }), NotFound("zz"));
  EXPECT_TRUE(call("indexof", {"a"}).IsEmpty());  // commands are upper case only
  call("DELETE", {1});
  call("REMOVE", {"c;zz"});
  EXPECT_EQ(Dump_AsString(d, ";"), "a=11");

  IPtr<IDump> other = VarToIntf(call("CREATE", {})).As<IDump>();
  ASSERT_TRUE(other);
  other->set_ByName("A", 100);
  other->set_ByName("z", 26);
  call("ASSIGN", {other});
  call("ASSIGN", {"not a dump"});
  EXPECT_EQ(Dump_AsString(d, ";"), "a=100;z=26");
  // The commands act on the instance they are given when it is a dump.
  Variant p = VarArrayOf({"x", 1});
  rtti->CallMethod(ObjRef(other), nullptr, "BYNAME.SET", p);
  EXPECT_TRUE(Dump_IfDef(other, "x"));
  EXPECT_FALSE(Dump_IfDef(d, "x"));
}

// A name of the given length with the key number in front, in mixed case. Short names are
// kept inside the entry and long ones apart from it; both must survive growth, deletion,
// merging and clearing unchanged.
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
