#include <ostrel/rtl/DateTime.h>
#include <ostrel/rtl/Format.h>
#include <ostrel/rtl/Variants.h>

#include <TestUtil.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace ostrel;
using testutil::MessageOf;

namespace {

// Every test runs in the Russian business locale, whatever an earlier test left behind.
class VariantTest : public ::testing::Test {
 protected:
  TFormatSettingsGuard fGuard{TFormatSettings::Russian()};
};

// A counted object that reports its own destruction.
class Probe : public TInterfacedObject {
 public:
  explicit Probe(bool* destroyed = nullptr) : fDestroyed(destroyed) {}
  ~Probe() override {
    if (fDestroyed) *fDestroyed = true;
  }

 private:
  bool* fDestroyed;
};

Currency Curr(Int64 raw) { return Currency::FromRaw(raw); }

// ---- Type codes -------------------------------------------------------------------------

TEST_F(VariantTest, EveryConstructorGivesItsTypeCode) {
  IPtr<IInterface> intf(new Probe);
  const struct {
    Variant value;
    TVarType code;
    const char* text;
  } cases[] = {{Variant(), 0, "Empty"},
               {Variant::Null(), 1, "Null"},
               {Variant(SmallInt(-2)), 2, "Smallint"},
               {Variant(7), 3, "Integer"},
               {Variant(1.5f), 4, "Single"},
               {Variant(1.5), 5, "Double"},
               {Variant(1.5L), 5, "Double"},
               {Variant(Curr(15000)), 6, "Currency"},
               {Variant::FromDate(45000.5), 7, "Date"},
               {Variant(u"wide"), 8, "OleStr"},
               {Variant::FromDispatch(intf), 9, "Dispatch"},
               {Variant::FromError(0), 10, "Error"},
               {Variant(true), 11, "Boolean"},
               {Variant(intf), 13, "Unknown"},
               {Variant(IPtr<IInterface>()), 13, "Unknown"},
               {Variant(ShortInt(-1)), 16, "ShortInt"},
               {Variant(Byte(1)), 17, "Byte"},
               {Variant(Word(1)), 18, "Word"},
               {Variant(LongWord(1)), 19, "LongWord"},
               {Variant(Int64(1)), 20, "Int64"},
               {Variant(1LL), 20, "Int64"},
               {Variant(UInt64(1)), 21, "UInt64"},
               {Variant(1ULL), 21, "UInt64"},
               {Variant("text"), 0x100, "String"},
               {Variant(Cp1251(u8"Текст")), 0x100, "String"},
               {Variant('c'), 0x100, "String"},
               {Variant::FromUString(u"u"), 0x102, "UnicodeString"},
               {VarArrayCreate(0, 1), 0x200C, "Array Variant"},
               {VarArrayCreate(0, 1, varInteger), 0x2003, "Array Integer"}};
  for (const auto& c : cases) {
    EXPECT_EQ(VarType(c.value), c.code) << c.text;
    EXPECT_EQ(VarTypeAsText(VarType(c.value)), c.text);
  }
  EXPECT_EQ(VarTypeAsText(0x0F), "$000F");
}

TEST_F(VariantTest, KindQueries) {
  EXPECT_TRUE(VarIsStr(Variant("a")) && VarIsStr(Variant(u"a")) &&
              VarIsStr(Variant::FromUString(u"a")));
  EXPECT_TRUE(VarIsOrdinal(Variant(true)) && VarIsOrdinal(Variant(UInt64(1))));
  EXPECT_FALSE(VarIsOrdinal(Variant(1.0)));
  EXPECT_TRUE(VarIsFloat(Variant(Curr(1))) && VarIsFloat(Variant::FromDate(1)));
  EXPECT_TRUE(VarIsNumeric(Variant(Byte(1))) && !VarIsNumeric(Variant("1")));
  EXPECT_TRUE(VarIsClear(Variant::FromError(0)) && VarIsClear(Unassigned));
  EXPECT_TRUE(VarIsType(Variant(1.0), {varSingle, varDouble}));
  // Typed access refuses other types rather than converting.
  EXPECT_EQ(Variant("abc").StrRef(), "abc");
  EXPECT_THROW(Variant(1).StrRef(), EVariantTypeCastError);
  EXPECT_THROW(Variant("abc").WideRef(), EVariantTypeCastError);
}

// ---- Conversions ------------------------------------------------------------------------

enum Outcome { Ok, Cast, Overflow };

TEST_F(VariantTest, VarAsTypeAcrossTypesInTheRussianLocale) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    Variant source;
    TVarType target;
    AnsiString expected;  // VarToStr of the result
    Outcome outcome = Ok;
  } cases[] = {// Strings to numbers use the current decimal separator; to integers half to even.
               {Variant("1,5"), varDouble, "1,5"},
               {Variant("1.5"), varDouble, "", Cast},
               {Variant("2,5"), varInteger, "2"},
               {Variant("3,5"), varInteger, "4"},
               {Variant(" 12 "), varInteger, "12"},
               {Variant("$FF"), varSmallint, "255"},
               {Variant(u"-7"), varShortInt, "-7"},
               {Variant("abc"), varInteger, "", Cast},
               {Variant(""), varDouble, "", Cast},
               {Variant("1,23456"), varCurrency, "1,2346"},
               {Variant("18446744073709551615"), varUInt64, "18446744073709551615"},
               {Variant("05.03.2024"), varDate, "05.03.2024"},
               {Variant("32.13.2024"), varDate, "", Cast},
               // Booleans.
               {Variant(true), varInteger, "-1"},
               {Variant(true), varByte, "255"},
               {Variant(true), varString, "True"},
               {Variant(false), varOleStr, "False"},
               {Variant("TRUE"), varBoolean, "True"},
               {Variant(u"false"), varBoolean, "False"},
               {Variant(0.25), varBoolean, "True"},
               {Variant("yes"), varBoolean, "", Cast},
               // Floats and currency to integers round half to even.
               {Variant(2.5), varInteger, "2"},
               {Variant(-2.5), varInteger, "-2"},
               {Variant(2.5000001), varInteger, "3"},
               {Variant(0.5f), varByte, "0"},
               {Variant(Curr(25000)), varInteger, "2"},
               {Variant(Curr(-35000)), varSmallint, "-4"},
               // Ranges.
               {Variant(300), varByte, "", Overflow},
               {Variant(-1), varWord, "", Overflow},
               {Variant(70000), varSmallint, "", Overflow},
               {Variant(Int64(1) << 40), varInteger, "", Overflow},
               {Variant(~UInt64(0)), varInt64, "", Overflow},
               {Variant(1e20), varInt64, "", Overflow},
               {Variant(1e300), varSingle, "", Overflow},
               {Variant(nan), varInteger, "", Overflow},
               {Variant(1e20), varCurrency, "", Overflow},
               // Numbers to text; the binary tail of 0.1 + 0.2 and of a single does not show.
               {Variant(1.5), varString, "1,5"},
               {Variant(0.1 + 0.2), varString, "0,3"},
               {Variant(1.1f), varString, "1,1"},
               {Variant(Curr(15000)), varString, "1,5"},
               {Variant(~UInt64(0)), varString, "18446744073709551615"},
               {Variant(5), varDate, "04.01.1900"},
               {Variant::FromDate(0.5), varString, "12:00:00"},
               {Variant(u"\u041F\u0440\u0438"), varString, Cp1251(u8"При").Str()},
               {Variant(Cp1251(u8"Ёж")), varUString, Cp1251(u8"Ёж").Str()},
               // Null and empty.
               {Variant::Null(), varInteger, "", Cast},
               {Variant::Null(), varString, "", Cast},
               {Variant::Null(), varBoolean, "", Cast},
               {Variant::Null(), varNull, ""},
               {Variant(5), varEmpty, ""},
               {Variant(), varInteger, "0"},
               {Variant(), varBoolean, "False"},
               {Variant(), varOleStr, ""},
               // Things that convert to nothing.
               {Variant(IPtr<IInterface>()), varInteger, "", Cast},
               {Variant("x"), varUnknown, "", Cast},
               {VarArrayOf({1}), varInteger, "", Cast},
               {Variant::FromError(5), varInteger, "", Cast},
               {Variant(1), varArray | varInteger, "", Cast},
               {Variant(1), varVariant, "", Cast}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    SCOPED_TRACE("case #" + std::to_string(i) + ": " + VarTypeAsText(VarType(c.source)) + " to " +
                 VarTypeAsText(c.target));
    if (c.outcome == Ok) {
      Variant r = VarAsType(c.source, c.target);
      EXPECT_EQ(VarType(r), c.target);
      EXPECT_EQ(VarToStr(r), c.expected);
    } else if (c.outcome == Cast) {
      EXPECT_THROW(VarAsType(c.source, c.target), EVariantTypeCastError);
    } else {
      EXPECT_THROW(VarAsType(c.source, c.target), EVariantOverflowError);
    }
  }
}

TEST_F(VariantTest, CastErrorNamesBothTypes) {
  EXPECT_EQ(MessageOf<EVariantTypeCastError>([] { VarToInt(Variant::Null()); }),
            "Could not convert variant of type (Null) into type (Integer)");
  EXPECT_EQ(MessageOf<EVariantTypeCastError>([] { VarToDouble(Variant(u"x")); }),
            "Could not convert variant of type (OleStr) into type (Double)");
}

TEST_F(VariantTest, TypedCastsAndTexts) {
  EXPECT_EQ(VarToInt64(Variant("9000000000")), 9000000000LL);
  EXPECT_EQ(VarToExtended(Variant(Curr(12345))), 1.2345L);
  EXPECT_EQ(VarToCurr(Variant(2)), Curr(20000));
  EXPECT_DOUBLE_EQ(VarToDateTime(Variant("05.03.2024")), EncodeDate(2024, 3, 5));
  EXPECT_EQ(VarToStr(Variant::Null()) + VarToStr(Unassigned), "");
  EXPECT_EQ(VarToStrDef(Variant::Null(), "-") + VarToStrDef(Unassigned, "+") +
                VarToStrDef(Variant(""), "*"),
            "-+");
  EXPECT_EQ(VarToWideStr(Variant(Cp1251(u8"Да"))), u"\u0414\u0430");
  EXPECT_EQ(VarToWideStr(Variant::Null()), u"");

  // The decimal separator is read when converting, not when storing.
  Variant half(0.5);
  {
    TFormatSettingsGuard english(TFormatSettings::Invariant());
    EXPECT_EQ(VarToStr(half), "0.5");
    EXPECT_DOUBLE_EQ(VarToDouble(Variant("2.25")), 2.25);
  }
  EXPECT_EQ(VarToStr(half), "0,5");
}

// ---- Interfaces -------------------------------------------------------------------------

TEST_F(VariantTest, InterfacePayloadIsCounted) {
  bool destroyed = false;
  Probe* probe = new Probe(&destroyed);
  IPtr<IInterface> ref(probe);
  ASSERT_EQ(probe->RefCount(), 1);
  {
    Variant v(ref);
    EXPECT_EQ(probe->RefCount(), 2);
    Variant copy = v;
    EXPECT_EQ(probe->RefCount(), 3);
    Variant moved = std::move(copy);
    EXPECT_EQ(probe->RefCount(), 3);
    Variant arr = VarArrayOf({v, moved});
    EXPECT_EQ(probe->RefCount(), 5);
    EXPECT_EQ(VarToIntf(arr.GetElement(1)).Get(), static_cast<IInterface*>(probe));
    moved = Variant(1);
    EXPECT_EQ(probe->RefCount(), 4);
    VarArrayPut(arr, Variant(), 0);
    EXPECT_EQ(probe->RefCount(), 3);
    Variant fromRaw(probe);  // a raw interface pointer is counted too
    EXPECT_EQ(probe->RefCount(), 4);
  }
  EXPECT_EQ(probe->RefCount(), 1);
  {
    Variant owner(ref);
    ref = nullptr;
    EXPECT_FALSE(destroyed);
  }
  EXPECT_TRUE(destroyed);
}

TEST_F(VariantTest, InterfaceConversions) {
  IPtr<IInterface> ref(new Probe);
  EXPECT_EQ(VarToIntf(Variant::FromDispatch(ref)), ref);
  EXPECT_EQ(VarToIntf(Unassigned), nullptr);
  EXPECT_EQ(VarType(VarAsType(Variant::FromDispatch(ref), varUnknown)), varUnknown);
  EXPECT_THROW(VarToIntf(Variant(5)), EVariantTypeCastError);
  EXPECT_THROW(VarAsType(Variant(ref), varDispatch), EVariantTypeCastError);
}

// ---- Arrays -----------------------------------------------------------------------------

// "low..high: item|item|..." of a one-dimensional array.
std::string Shape(const Variant& a) {
  const Integer lo = VarArrayLowBound(a), hi = VarArrayHighBound(a);
  std::string s = std::to_string(lo) + ".." + std::to_string(hi) + ":";
  for (Integer i = lo; i <= hi; ++i) s += (i > lo ? "|" : " ") + VarToStr(a.GetElement(i));
  return s;
}

TEST_F(VariantTest, ArrayBoundsAndElements) {
  Variant a = VarArrayCreate(-2, 2);
  EXPECT_TRUE(VarIsArray(a));
  EXPECT_EQ(VarArrayDimCount(a), 1);
  for (Integer i = -2; i <= 2; ++i) EXPECT_TRUE(VarIsEmpty(a.GetElement(i)));
  a.SetElement(-2, Variant("first"));
  VarArrayPut(a, Variant(2.5), 2);
  EXPECT_EQ(VarToStr(VarArrayGet(a, -2)), "first");
  EXPECT_EQ(Shape(a), "-2..2: first||||2,5");
  for (Integer bad : {-3, 3, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(MessageOf<EVariantBadIndexError>([&] { a.GetElement(bad); }),
              "Variant or safe array index out of bounds");
    EXPECT_THROW(a.SetElement(bad, Variant(1)), EVariantBadIndexError) << bad;
  }
  EXPECT_THROW(VarArrayLowBound(a, 2), EVariantBadIndexError);

  Variant scalar(1);
  EXPECT_EQ(VarArrayDimCount(scalar), 0);
  EXPECT_THROW(scalar.GetElement(0), EVariantError);
  EXPECT_THROW(VarArrayHighBound(scalar), EVariantError);
  EXPECT_THROW(VarArrayPut(scalar, Variant(1), 0), EVariantError);
}

TEST_F(VariantTest, ArrayShapes) {
  Variant none = VarArrayCreate(1, 0);
  EXPECT_EQ(Shape(none), "1..0:");
  EXPECT_THROW(none.GetElement(1), EVariantBadIndexError);
  EXPECT_THROW(VarArrayCreate(1, -1), EVariantError);
  EXPECT_THROW(VarArrayCreate(INT32_MIN, 0), EVariantError);
  EXPECT_THROW(VarArrayCreate(0, 1, varString), EVariantError);
  EXPECT_THROW(VarArrayCreate(0, 1, varNull), EVariantError);

  Variant of = VarArrayOf(std::vector<Variant>{Variant(1), Variant("two"), Variant::Null()});
  EXPECT_EQ(Shape(of), "0..2: 1|two|");
  EXPECT_TRUE(VarIsNull(of.GetElement(2)));
  VarArrayRedim(of, 4);
  EXPECT_EQ(Shape(of), "0..4: 1|two|||");
  EXPECT_TRUE(VarIsEmpty(of.GetElement(4)));
  VarArrayRedim(of, 0);
  EXPECT_EQ(Shape(of), "0..0: 1");
}

TEST_F(VariantTest, TypedArrayConvertsWhatItStores) {
  Variant a = VarArrayCreate(1, 2, varInteger);
  a.SetElement(2, Variant("2,5"));
  EXPECT_EQ(testutil::Join(VarType(a.GetElement(1)), VarType(a.GetElement(2))), "3 3");
  EXPECT_EQ(Shape(a), "1..2: 0|2");
  EXPECT_THROW(a.SetElement(1, Variant("x")), EVariantTypeCastError);
  EXPECT_THROW(a.SetElement(1, Variant(1e10)), EVariantOverflowError);
  EXPECT_EQ(Shape(a), "1..2: 0|2");  // a failed store leaves the element alone
  EXPECT_EQ(VarType(VarArrayCreate(0, 0, varOleStr).GetElement(0)), varOleStr);
}

TEST_F(VariantTest, CopiesOfArraysAreIndependent) {
  Variant a = VarArrayOf({Variant("x"), VarArrayOf({1, 2})});
  Variant b = a;
  b.SetElement(0, Variant("changed"));
  Variant inner = b.GetElement(1);
  inner.SetElement(0, Variant(99));
  b.SetElement(1, inner);
  EXPECT_EQ(VarToStr(a.GetElement(0)), "x");
  EXPECT_EQ(Shape(a.GetElement(1)) + " " + Shape(b.GetElement(1)), "0..1: 1|2 0..1: 99|2");
  // Storing an array into itself stores a snapshot.
  a.SetElement(0, a);
  EXPECT_EQ(VarToStr(a.GetElement(0).GetElement(0)), "x");
  const Variant& alias = a;
  a = alias;
  EXPECT_EQ(VarArrayHighBound(a), 1);
}

// ---- Comparison -------------------------------------------------------------------------

TEST_F(VariantTest, CompareValueAcrossTypes) {
  // clang-format off
  const struct { Variant a, b; TVariantRelationship expected; } cases[] = {
      // Numbers of any kind compare as numbers; true is -1.
      {Variant(1), Variant(1.0), vrEqual}, {Variant(1), Variant(Int64(2)), vrLessThan},
      {Variant(Byte(200)), Variant(ShortInt(-1)), vrGreaterThan},
      {Variant(~UInt64(0)), Variant(std::numeric_limits<Int64>::max()), vrGreaterThan},
      {Variant(true), Variant(-1), vrEqual}, {Variant(true), Variant(false), vrGreaterThan},
      {Variant(Curr(15000)), Variant(1.5), vrEqual},
      {Variant(Curr(15000)), Variant(1e30), vrLessThan},
      {Variant(Curr(-1)), Variant(Int64(1) << 62), vrLessThan},
      {Variant::FromDate(45000.25), Variant(45000.25), vrEqual},
      // Text against a number, boolean or date is read as one.
      {Variant("10"), Variant(9), vrGreaterThan}, {Variant("1,5"), Variant(1), vrGreaterThan},
      {Variant("true"), Variant(true), vrEqual},
      {Variant("05.03.2024"), Variant::FromDate(EncodeDate(2024, 3, 5)), vrEqual},
      // Text against text: case-sensitive, letters first, lower case before upper, Ё after Е.
      {Variant("abc"), Variant(u"abc"), vrEqual}, {Variant("abc"), Variant("ABC"), vrLessThan},
      {Variant("a"), Variant("A"), vrLessThan}, {Variant("a"), Variant("B"), vrLessThan},
      {Variant(Cp1251(u8"Ёж")), Variant(Cp1251(u8"Жук")), vrLessThan},
      {Variant(u"\u044F"), Variant(Cp1251(u8"Ю")), vrGreaterThan},
      // Null and empty equal only themselves.
      {Variant::Null(), Variant::Null(), vrEqual}, {Unassigned, Variant(), vrEqual},
      {Variant::Null(), Variant(0), vrNotEqual}, {Variant(0), Variant::Null(), vrNotEqual},
      {Unassigned, Variant(""), vrNotEqual}, {Unassigned, Variant::Null(), vrNotEqual}};
  // clang-format on
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    EXPECT_EQ(VarCompareValue(c.a, c.b), c.expected) << "case #" << i;
    if (c.expected == vrLessThan) {
      EXPECT_EQ(VarCompareValue(c.b, c.a), vrGreaterThan) << "case #" << i;
    }
  }
}

TEST_F(VariantTest, OperatorsFollowTheVariantRules) {
  EXPECT_TRUE(Variant(2) == Variant(2.0) && Variant(2) != Variant("3"));
  EXPECT_TRUE(Variant(2) < Variant(2.5) && Variant(3) > Variant(Curr(29999)));
  EXPECT_TRUE(Variant("b") >= Variant("a") && Variant("a") <= Variant("a"));
  EXPECT_TRUE(Variant::Null() == Variant::Null() && !(Variant::Null() == Variant(0)));
  // Null sorts first among values, and empty before null.
  EXPECT_TRUE(Variant::Null() < Variant(-5) && Unassigned < Variant::Null());
  EXPECT_FALSE(Unassigned == Variant(0) || Variant(std::nan("")) == Variant(std::nan("")));

  IPtr<IInterface> ref(new Probe);
  EXPECT_THROW((void)(VarArrayOf({1}) == VarArrayOf({1})), EVariantInvalidOpError);
  EXPECT_THROW((void)(Variant(ref) == Variant(ref)), EVariantInvalidOpError);
  EXPECT_THROW((void)(Variant(1) < VarArrayOf({1})), EVariantInvalidOpError);
  EXPECT_THROW((void)(Variant("abc") == Variant(1)), EVariantTypeCastError);
  EXPECT_THROW(VarCompareValue(Variant("abc"), Variant(1.0)), EVariantTypeCastError);
}

TEST_F(VariantTest, SameValue) {
  EXPECT_TRUE(VarSameValue(Variant::Null(), Variant::Null()));
  EXPECT_TRUE(VarSameValue(Unassigned, Unassigned));
  EXPECT_FALSE(VarSameValue(Unassigned, Variant::Null()) || VarSameValue(Variant(0), Unassigned));
  EXPECT_FALSE(VarSameValue(Variant::Null(), VarArrayOf({})));  // no raise for null
  EXPECT_TRUE(VarSameValue(Variant(1), Variant("1")) && !VarSameValue(Variant("x"), Variant("X")));
}

}  // namespace
