// Dates as XML text: what is written reads back as the same moment, and a moment that the
// text cannot carry is refused instead of being written as another date.
#include <ostrel/rtl/DateTime.h>
#include <ostrel/xml/Xmlutils.h>

#include <gtest/gtest.h>

#include <cmath>

#include "TestUtil.h"

namespace ostrel {
namespace {

TEST(XmlDates, WhatIsWrittenReadsBackAndTheRestIsRefused) {
  const double lastMs = 2958465.0 + 86399999.0 / 86400000.0;
  const std::pair<TDateTime, const char*> written[] = {
      {MinDateTime, "0001-01-01"},
      {MinDateTime - 0.5, "0001-01-01T12:00:00.000"},
      {-1.25, "1899-12-29T06:00:00.000"},
      {EncodeDateTime(2024, 2, 29, 23, 59, 59, 999), "2024-02-29T23:59:59.999"},
      {EncodeDate(9999, 12, 31), "9999-12-31"},
      {lastMs, "9999-12-31T23:59:59.999"}};
  for (const auto& [value, text] : written) {
    EXPECT_EQ(DT2XML(value), text);
    EXPECT_NEAR(XML2DT(Variant(DT2XML(value))), value, OneMillisecond / 2) << text;
  }
  for (double value : {MinDateTime - 1, 2958466.0, 1e10, -1e10, double(INFINITY), double(-INFINITY),
                       double(NAN)}) {
    EXPECT_EQ(testutil::MessageOf<EConvertError>([&] { DT2XML(value); }),
              Format(SysConst::SInvalidDateTime, FloatToStr(value)))
        << value;
  }
  // The same refusal reaches an attribute set from a date: the attribute text stays as it
  // was.
  TXItem item;
  item.set_Attr("d", Variant::FromDate(EncodeDate(2024, 3, 1)));
  EXPECT_THROW(item.set_Attr("d", Variant::FromDate(1e10)), EConvertError);
  EXPECT_EQ(item.get_AttrText(), " d=\"2024-03-01\"");
}

}  // namespace
}  // namespace ostrel
