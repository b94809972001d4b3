#include <ostrel/core/Dump.h>
#include <ostrel/core/Sysclasses.h>
#include <ostrel/core/VarList.h>
#include <ostrel/rtl/Format.h>

#include <core/DumpUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace ostrel {
namespace {

using namespace testutil;

IPtr<IkxIDList> ListOf(std::initializer_list<Integer> ids) {
  IPtr<IkxIDList> l = GetIDListIntf();
  for (Integer id : ids) l->Add(id);
  return l;
}

TEST(VarList, ItemsAreSharedBetweenLists) {
  IPtr<IkxVarList> a = GetVarListIntf(), b = GetVarListIntf();
  const AnsiString sum = Ansi(u8"Сумма");
  a->set_ByName(sum, 1);
  a->set_ByName("Note", "x");
  IPtr<IkxVarItem> item = VarList_Get(a, Ansi(u8"СУММА"), true);
  EXPECT_EQ(b->Add(item), 0);
  b->set_ByName(Ansi(u8"сумма"), 5);  // the same item, found without regard to case
  EXPECT_EQ(VarToInt(a->get_ByName(sum)), 5);
  EXPECT_EQ(b->get_Count(), 1);
  EXPECT_EQ(a->Remove(item), 0);
  EXPECT_EQ(a->Remove(item), -1);
  item->set_Value("still shared");
  EXPECT_EQ(VarToStr(b->get_Value(0)), "still shared");
  EXPECT_EQ(a->IndexOf(sum), -1);
}

TEST(VarList, WorksWhereADumpIsExpected) {
  IPtr<IkxVarList> vars = GetVarListIntf();
  IPtr<IDump> asDump = vars.As<IDump>();
  ASSERT_EQ(static_cast<IDump*>(vars.Get()), asDump.Get());
  IPtr<IDump> src = DumpOf({{"a", 1}, {"b", "two"}});
  EXPECT_TRUE(Dump_Assign(asDump, src, ""));
  EXPECT_TRUE(Dump_SameValues(src, asDump));
  asDump->Delete(0);
  EXPECT_EQ(Dump_Names(asDump, ";"), "b");
}

TEST(VarList, DeleteHasItsOwnSlotAfterRemove) {
  IPtr<IkxVarList> vars = GetVarListIntf();
  for (const char* name : {"a", "b", "c"}) vars->set_ByName(name, 1);
  // A module built against the interface's table finds Delete (index) in the slot after
  // IInterface's 3, the dump's 9, get_Item, Add and Remove.
  using DeleteSlot = void(OSTREL_STDCALL*)(IkxVarList*, Integer);
  void** table = *reinterpret_cast<void***>(vars.Get());
  reinterpret_cast<DeleteSlot>(table[15])(vars.Get(), 1);
  EXPECT_EQ(Dump_Names(vars.As<IDump>(), ";"), "a;c");
  static_cast<const IkxVarList&>(*vars).Delete(0);
  vars->Delete(0);  // the dump's own
  EXPECT_TRUE(vars->IsEmpty());
  EXPECT_THROW(static_cast<const IkxVarList&>(*vars).Delete(0), EListError);
}

TEST(VarList, MissingNamesAndBadIndexesRaise) {
  IPtr<IkxVarList> vars = GetVarListIntf();
  vars->set_ByName("x", 1);
  EXPECT_EQ(MessageOf([&] { vars->get_ByName("y"); }), NotFound("y"));
  EXPECT_EQ(MessageOf([&] { VarList_Get(vars, "y", true); }), NotFound("y"));
  EXPECT_EQ(MessageOf([&] { vars->get_ByName("x;x"); }), NotFound("x;x"));  // one name only
  IPtr<IkxVarItem> item = VarList_Get(vars, "x", true);
  EXPECT_FALSE(VarList_Find(vars, "y", item));
  EXPECT_FALSE(item);  // cleared
  EXPECT_THROW(vars->get_Item(1), EListError);
  EXPECT_THROW(vars->set_Value(-1, 0), EListError);
  EXPECT_THROW(vars->Delete(1), EListError);
  EXPECT_THROW(vars->Add(nullptr), Exception);
}

TEST(IDList, KeepsIdsDistinctSortsAndComparesAsSetsOrSequences) {
  IPtr<IkxIDList> l = ListOf({3, -1, 3, INT32_MIN, 2});
  EXPECT_EQ(l->Add(-1), 1);  // already there
  EXPECT_EQ(l->GetAsString(','), "3,-1,-2147483648,2");
  Integer at = 9;
  EXPECT_FALSE(l->Find(4, at));
  EXPECT_EQ(at, -1);
  IPtr<IkxIDList> sorted = ListOf({INT32_MIN, -1, 2, 3});
  EXPECT_TRUE(l->IsEqual(sorted, false));
  EXPECT_FALSE(l->IsEqual(sorted, true) || l->IsSorted());
  l->Sort();  // the comparison must not overflow on the extremes
  EXPECT_EQ(l->GetAsString(','), "-2147483648,-1,2,3");
  EXPECT_TRUE(l->IsEqual(sorted, true) && l->IsSorted());
  EXPECT_FALSE(l->IsEqual(ListOf({INT32_MIN, -1, 2, 4}), false) || l->IsEqual(nullptr, false));
  EXPECT_TRUE(ListOf({})->IsEqual(ListOf({}), true));
  EXPECT_THROW(l->get_ID(4), EListError);
}

TEST(IDList, SetAsStringMergesPiecesUpToTheFirstBadOne) {
  const struct {
    std::vector<Integer> before;
    const char* text;
    char separator;
    std::string after;  // GetAsString(',') afterwards
    bool raises;        // EConvertError at a piece that is no integer
  } cases[] = {{{}, "7; 8 ;7", ';', "7,8", false},
               {{1, 2}, "3;2;;4", ';', "1,2,3,4", false},
               {{}, "-2147483648|12|", '|', "-2147483648,12", false},
               {{}, "5;x;6", ';', "5", true},
               {{9}, "5; ;6", ';', "9,5", true},
               {{}, "1;2147483648", ';', "1", true}};
  for (const auto& c : cases) {
    IPtr<IkxIDList> l = GetIDListIntf();
    for (Integer id : c.before) l->Add(id);
    if (c.raises)
      EXPECT_THROW(l->SetAsString(c.text, c.separator), EConvertError) << c.text;
    else
      l->SetAsString(c.text, c.separator);
    EXPECT_EQ(l->GetAsString(','), c.after) << c.text;
  }
}

// Long lists are built and compared in time proportional to their length: each new ID used
// to be looked for in the whole list, and each ID of one list in the whole other one.
TEST(IDList, LongListsBuildAndCompareInLinearTime) {
  constexpr Integer kCount = 200000;
  AnsiString text;
  for (Integer i = 0; i < kCount; ++i) text += IntToStr(i * 7) + ";";
  const auto start = std::chrono::steady_clock::now();
  IPtr<IkxIDList> a = GetIDListIntf(), b = GetIDListIntf();
  a->SetAsString(text + text, ';');
  for (Integer i = kCount - 1; i >= 0; --i) b->Add(i * 7);
  EXPECT_EQ(b->Add(7), kCount - 2);  // present: its index
  EXPECT_TRUE(a->IsEqual(b, false));
  EXPECT_FALSE(a->IsEqual(b, true));
  b->Delete(0);
  b->Add(1);
  EXPECT_FALSE(a->IsEqual(b, false));
  EXPECT_EQ(Join(a->get_Count(), b->IndexOf(1), b->IndexOf((kCount - 1) * 7), a->IndexOf(3)),
            Join(kCount, kCount - 1, -1, -1));
  EXPECT_LT(std::chrono::steady_clock::now() - start, testutil::LinearTimeBudget());
}

TEST(IDList, ScriptingCommands) {
  IPtr<IkxIDList> l = ListOf({10, 20, 30});
  IPtr<IObjectRTTI> rtti = l.As<IObjectRTTI>();
  auto call = [&](std::string_view name, Variant params = Variant()) {
    return rtti->CallMethod(nullptr, nullptr, name, params);
  };
  // FIND writes the index back into element 1; a one-element array has no room for it.
  Variant params = VarArrayOf({30, Variant()});
  EXPECT_TRUE(VarToBool(rtti->CallMethod(nullptr, nullptr, "FIND", params)));
  EXPECT_EQ(VarToInt(VarArrayGet(params, 1)), 2);
  params = VarArrayOf({99});
  EXPECT_THROW(rtti->CallMethod(nullptr, nullptr, "FIND", params), EVariantError);

  call("ASSIGN", VarArrayOf({Variant(ListOf({40, 20}))}));  // a merge
  call("ASSIGN", VarArrayOf({"not a list"}));
  call("SETASSTRING", VarArrayOf({";50;20"}));  // the text's first character separates
  EXPECT_EQ(VarToStr(call("GETASSTRING", VarArrayOf({"|x"}))), "10|20|30|40|50");
  EXPECT_TRUE(call("count").IsEmpty());  // names are exact
  EXPECT_TRUE(rtti->GetProp(nullptr, nullptr, "COUNT").IsEmpty());

  // Commands act on the instance given, when it is an ID list.
  IPtr<IkxIDList> fresh = VarToIntf(call("CREATE")).As<IkxIDList>();
  params = VarArrayOf({7});
  rtti->CallMethod(fresh.As<IObjectReference>()->GetInstance(), nullptr, "ADD", params);
  EXPECT_EQ(fresh->GetAsString(','), "7");
  EXPECT_EQ(VarToInt(call("COUNT")), 5);
  const auto classes = GetRegisteredRTTIClasses();
  EXPECT_NE(std::find(classes.begin(), classes.end(), TkxIDList::StaticClass()), classes.end());
}

TEST(IDList, DumpCarriesItsListUnderIDsOrASingleId) {
  IPtr<IDump> d = GetDumpIntf();
  EXPECT_EQ(MessageOf([&] { Dump_GetIDList(d); }), NotFound("id"));
  d->set_ByName("id", "17");
  EXPECT_EQ(Dump_GetIDList(d)->GetAsString(','), "17");
  d->set_ByName("IDs", Variant(GetDumpIntf()));  // an interface, but no ID list
  EXPECT_EQ(Dump_GetIDList(d)->GetAsString(','), "17");
  IPtr<IkxIDList> held = ListOf({4, 5});
  d->set_ByName("ids", Variant(held));
  EXPECT_EQ(Dump_GetIDList(d).Get(), held.Get());
}

}  // namespace
}  // namespace ostrel
