// Numbers and times as people read them.
#include "midtablectl/figures.h"

#include <cstdlib>

#include "gtest/gtest.h"
#include "midtablectl/page/charts.h"

namespace ctl {
namespace {

TEST(FiguresTest, LargeNumbersAreGrouped) {
  EXPECT_EQ(Grouped(0), "0");
  EXPECT_EQ(Grouped(999), "999");
  EXPECT_EQ(Grouped(1000), "1,000");
  EXPECT_EQ(Grouped(18'446'744'073'709'551'615U), "18,446,744,073,709,551,615");
}

TEST(FiguresTest, SmallRatesHaveADecimal) {
  EXPECT_EQ(Rate(0), "0");
  EXPECT_EQ(Rate(0.04), "0.0");
  EXPECT_EQ(Rate(9.94), "9.9");
  EXPECT_EQ(Rate(9.95), "10");
  EXPECT_EQ(Rate(1234.5), "1,235");
}

TEST(FiguresTest, TimesTellTheirZone) {
  setenv("TZ", "CST-8", 1);
  tzset();
  EXPECT_EQ(Stamp(1'356'998'400), "Tue 1 Jan 2013, 08:00:00 UTC+08:00");
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(Stamp(1'356'998'400), "Tue 1 Jan 2013, 00:00:00 UTC");
}

TEST(FiguresTest, TheDayIsToldWhereItIsNotToday) {
  EXPECT_EQ(ShortStamp(1'356'998'400, 1'356'998'460), "00:00");
  EXPECT_EQ(ShortStamp(1'356'998'340, 1'356'998'460), "31 Dec 23:59");
}

TEST(FiguresTest, AnAxisEndsWithARoundNumber) {
  EXPECT_EQ(AxisTop(0), 1);
  EXPECT_EQ(AxisTop(1), 1);
  EXPECT_EQ(AxisTop(1.5), 2);
  EXPECT_EQ(AxisTop(21), 50);
  EXPECT_EQ(AxisTop(501), 1000);
}

TEST(FiguresTest, ACurveHasAGapWhereNobodyLooked) {
  Html html;
  DrawCurve(html, {1, std::nullopt, 2, 1}, 2, "rows");
  EXPECT_NE(html.document().find("class=\"line\" d=\"M0 50.0H1M2 0.0H3V50.0H4\""),
            std::string::npos)
      << html.document();
}

}  // namespace
}  // namespace ctl
