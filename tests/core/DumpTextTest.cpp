#include <ostrel/core/Sysclasses.h>
#include <ostrel/rtl/DateTime.h>
#include <ostrel/services/Sysserv.h>

#include <core/DumpUtil.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace ostrel {
namespace {

using testutil::DumpOf;
using testutil::MessageOf;

TEST(DumpTypedForm, WritesNameTypeAndTextLeavingInterfacesOut) {
  TDateTime when = EncodeDateTime(2024, 2, 3, 14, 5, 6, 7);
  IPtr<IDump> d = DumpOf({{"a", 5}, {"d", Variant::FromDate(when)}});
  EXPECT_EQ(Dump_ToStr(d), "a:3=5\td:7=03-02-2024 14:05:06.007");
  d->set_ByName("n", Variant::Null());
  d->set_ByName("e", Variant());
  d->set_ByName("i", IPtr<IDump>(GetDumpIntf()));
  EXPECT_EQ(Dump_ToStr(d, {"e", "missing", "A", "i", "N"}), "e:0=\tA:3=5\tN:1=");
  IPtr<IDump> intfs = DumpOf({{"a", IPtr<IDump>(GetDumpIntf())},
                              {"b", Variant::FromDispatch(IPtr<IInterface>(GetDumpIntf()))}});
  EXPECT_EQ(Dump_ToStr(intfs) + Dump_AsString(intfs, ";"), "");
}

TEST(DumpTypedForm, EveryScalarTypeReadsBackWithItsTypeAndValue) {
  const Variant values[] = {Variant(),
                            Variant::Null(),
                            Variant(SmallInt{-1234}),
                            Variant(Integer{-2000000000}),
                            Variant(1.5f),
                            Variant(-1234.0625),
                            Variant(1.5e-7),
                            Variant(Currency::FromRaw(-12345678)),
                            Variant::FromDate(EncodeDateTime(2024, 2, 3, 14, 5, 6, 7)),
                            Variant::FromDate(EncodeDateTime(1999, 12, 31, 23, 59, 59, 999)),
                            Variant::FromDate(EncodeDate(1900, 3, 1)),
                            Variant(WideString(u"Привет, мир")),
                            Variant(true),
                            Variant(false),
                            Variant(ShortInt{-100}),
                            Variant(Byte{200}),
                            Variant(Word{65000}),
                            Variant(LongWord{4000000000u}),
                            Variant(Int64{-9000000000000000000}),
                            Variant(UInt64{18000000000000000000u}),
                            Variant(Ansi(u8"Сумма: 1 234,50 р.")),
                            Variant::FromUString(u"Ёлка")};
  for (const Variant& value : values) {
    const AnsiString text = Dump_ToStr(DumpOf({{"before", 1}, {"Value", value}, {"after", 2}}));
    IPtr<IDump> back = GetDumpIntf();
    Dump_FromStr(back, text);
    ASSERT_EQ(back->get_Count(), 3) << text;
    Variant got = back->get_ByName("value");
    EXPECT_EQ(VarType(got), VarType(value)) << text;
    EXPECT_TRUE(VarSameValue(got, value)) << text;
    if (VarType(value) == varDate) {
      EXPECT_EQ(VarToDateTime(got), VarToDateTime(value)) << text;
    }
  }
}

TEST(DumpTypedForm, DatesOutsideTheFourDigitYearsAreRefusedWhenWritten) {
  // The first and last moments of the years 1 to 9999 still read back.
  for (double v : {MinDateTime, -693593.99999999, MaxDateTime}) {
    IPtr<IDump> back = GetDumpIntf();
    Dump_FromStr(back, Dump_ToStr(DumpOf({{"d", Variant::FromDate(v)}})));
    EXPECT_NEAR(VarToDateTime(back->get_ByName("d")), v, 1e-8) << v;
  }
  // The strict decoding decides which moments are outside (see the date tests); here one on
  // either side, the later one rounding up into the year 10000.
  for (double v : {-693594.0, 2958465.999999995}) {
    IPtr<IDump> d = DumpOf({{"a", 1}, {"d", Variant::FromDate(v)}});
    EXPECT_EQ(MessageOf<EConvertError>([&] { Dump_ToStr(d); }),
              "'" + FloatToStr(v) + "' is not a valid date and time")
        << v;
  }
}

TEST(DumpTypedForm, FloatsThatAreNoNumbersReadBack) {
  const double inf = std::numeric_limits<double>::infinity();
  IPtr<IDump> d = DumpOf({{"p", inf},
                          {"m", -inf},
                          {"n", std::numeric_limits<double>::quiet_NaN()},
                          {"s", Variant(static_cast<float>(-inf))}});
  const AnsiString text = Dump_ToStr(d);
  EXPECT_EQ(text, "p:5=INF\tm:5=-INF\tn:5=NAN\ts:4=-INF");
  IPtr<IDump> back = GetDumpIntf();
  Dump_FromStr(back, text);
  EXPECT_EQ(Dump_ToStr(back), text);
  EXPECT_EQ(VarToExtended(back->get_ByName("p")), inf);
  EXPECT_TRUE(std::isnan(VarToExtended(back->get_ByName("n"))));
  EXPECT_EQ(VarType(back->get_ByName("s")), varSingle);
  // Other types do not take those texts.
  EXPECT_THROW(Dump_FromStr(back, "c:6=INF"), EVariantError);
}

TEST(DumpTypedForm, DatesReadBackWhateverTheDateSettings) {
  TDateTime when = EncodeDateTime(2031, 11, 30, 8, 9, 10, 11);
  AnsiString text = Dump_ToStr(DumpOf({{"d", Variant::FromDate(when)}}));
  TFormatSettingsGuard guard(TFormatSettings::Invariant());
  IPtr<IDump> back = GetDumpIntf();
  Dump_FromStr(back, text);
  EXPECT_EQ(VarToDateTime(back->get_ByName("d")), when);
  // The reader's own settings are gone again.
  EXPECT_EQ(DateTimeToStr(when) + " " + FloatToStr(1.5), "11/30/2031 08:09:10 1.5");
}

TEST(DumpTypedForm, MalformedItemsAreSkippedReadAsEmptyOrStopTheRead) {
  IPtr<IDump> d = DumpOf({{"kept", 1}, {"y", 0}});
  Dump_FromStr(d,
               "x:abc=1\tnocolon\t\t y : 3 =  7 \tz:7=\tw:7=31-02-2024 10:00:00.000"
               "\ts:256=\tt:-1=5\tu:8=");
  EXPECT_EQ(Dump_Names(d, ";"), "kept;y;z;w;s;u");
  EXPECT_EQ(VarToInt(d->get_ByName("y")), 7);
  for (const char* name : {"z", "w", "s", "u"})
    EXPECT_EQ(VarType(d->get_ByName(name)), varEmpty) << name;
  // A value its type cannot hold raises, keeping the items read before it.
  d = GetDumpIntf();
  EXPECT_THROW(Dump_FromStr(d, "a:3=1\tb:3=xyz\tc:3=2"), EVariantError);
  EXPECT_EQ(Dump_Names(d, ";"), "a");
  EXPECT_THROW(Dump_FromStr(d, "big:2=70000"), EVariantError);
}

TEST(DumpPlainForm, ScalarsAndArrays) {
  Variant from1 = VarArrayCreate(1, 2);
  VarArrayPut(from1, "p", 1);
  VarArrayPut(from1, "q", 2);
  IPtr<IDump> d = DumpOf({{"n", Variant::Null()},
                          {"v", VarArrayOf({1, Ansi(u8"два"), IPtr<IDump>(GetDumpIntf())})},
                          {"w", from1},
                          {"x", 1.5}});
  EXPECT_EQ(Dump_AsString(d, "; "),
            Ansi(u8"n=; v array [3]; v[0]=1; v[1]=два; w array [3]; w[1]=p; w[2]=q; x=1,5"));
}

TEST(DumpPlainForm, ReadsNameValueItemsAsStrings) {
  IPtr<IDump> d = DumpOf({{"SUM", 0}});
  Dump_FromString(d, Ansi(u8" name = Иванов ;sum=1234,5;;flag ;a=b=c;v array [2]|x"), ';');
  EXPECT_EQ(Dump_Names(d, "|"), Ansi(u8"SUM|name|flag|a|v array [2]|x"));
  EXPECT_EQ(VarType(d->get_ByName("sum")), varString);
  EXPECT_EQ(Dump_AsString(d, ";"), Ansi(u8"SUM=1234,5;name=Иванов;flag=;a=b=c;v array [2]|x="));
}

TEST(DumpLocalize, CopiesByPairs) {
  IPtr<IDump> d = DumpOf({{"a", 1}, {"b", 2}});
  Dump_Localize(d, Ansi(u8"a = Сумма; missing=x; b;A=b"));
  EXPECT_EQ(Dump_AsString(d, ";"), Ansi(u8"a=1;b=1;Сумма=1"));
}

TEST(DumpValues, AllValuesInOneVariantAndBack) {
  IPtr<IDump> d = GetDumpIntf();
  EXPECT_TRUE(TkxDumpPr::GetValues(d).IsEmpty());
  TkxDumpPr::SetValues(d, "x;y", 5);  // a scalar goes to every name
  EXPECT_EQ(Dump_AsString(d, ";"), "x=5;y=5");
  Dump_Remove(d, "y");
  EXPECT_EQ(VarType(TkxDumpPr::GetValues(d)), varInteger);
  EXPECT_THROW(TkxDumpPr::SetValues(d, "p;q;r", VarArrayOf({1, "two"})), EVariantBadIndexError);
  EXPECT_EQ(Dump_AsString(d, ";"), "x=5;p=1;q=two");
  Variant all = TkxDumpPr::GetValues(d);
  ASSERT_TRUE(VarIsArray(all));
  EXPECT_EQ(testutil::Join(VarArrayLowBound(all), VarArrayHighBound(all)), "0 2");
  EXPECT_EQ(VarToStr(VarArrayGet(all, 2)), "two");
}

}  // namespace
}  // namespace ostrel
