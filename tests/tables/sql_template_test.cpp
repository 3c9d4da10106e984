#include "tables/sql_template.h"

#include <ctime>

#include "gmock/gmock.h"

namespace {

using testing::HasSubstr;

// What becomes of a template with a text, a number and one more text.
FilledTemplate Fill(const std::string& text) {
  const TemplateValue values[] = {std::string("a%nb"), 7, std::string("xyz")};
  return FillTemplate(text, values);
}

TEST(SqlTemplate, FormatsAsPrintfDoes) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"like '100%%'", "like '100%'"},
      {"<%6s|%-3d|%.2s>", "<  a%nb|7  |xy>"},
      {"%s %03d %+s", "a%nb 007 xyz"},
      {"%s%%%x", "a%nb%7"},
      {"%.s|%.0d", "|7"},
  };
  for (const auto& [text, expected] : cases) {
    const FilledTemplate filled = Fill(text);
    EXPECT_EQ(filled.text, expected) << text;
    EXPECT_EQ(filled.error, "") << text;
  }
}

TEST(SqlTemplate, NamesTheFault) {
  const std::pair<const char*, const char*> cases[] = {
      {"%s %d %s %s", "template has more conversions than the 3 values it gets"},
      {"%d", "template has \"%d\" where value 1 is a text"},
      {"%s %s", "template has \"%s\" where value 2 is a number"},
      {"50%", "template ends inside \"%\""},
      {"%-5.", "template ends inside \"%-5.\""},
      {"%n", "template has the conversion \"%n\", which is not allowed"},
      {"% ", "template ends inside \"% \""},
  };
  for (const auto& [text, expected] : cases) {
    const FilledTemplate filled = Fill(text);
    EXPECT_EQ(filled.error, expected);
    EXPECT_EQ(filled.text, "") << text;
  }
}

TEST(SqlTemplate, RefusesConversionsThatPrintfWouldTakeOtherValuesFor) {
  for (const char* text : {"%s %*d", "%1$s", "%ls", "%s %ld", "%s %c", "%s %.*d", "%y", "%f"}) {
    EXPECT_THAT(Fill(text).error, HasSubstr("which is not allowed")) << text;
  }
}

TEST(SqlTemplate, TakesAWidthAndAPrecisionOf9999) {
  EXPECT_EQ(Fill("%9999s").text, std::string(9'995, ' ') + "a%nb");
  EXPECT_EQ(Fill("%.9999s %.9999d").text, "a%nb " + std::string(9'998, '0') + "7");
  EXPECT_EQ(Fill("%-+ #0'9999.9999s").text.size(), 9'999U);
}

TEST(SqlTemplate, RefusesAWidthOrPrecisionAbove9999AtOnce) {
  const std::clock_t start = std::clock();
  for (const std::string conversion :
       {"%10000s", "%.10000s", "%-1.10000s", "%999999999s", "%2147483647s", "%4294967297s",
        "%9999999999s", "%.9999999999s", "%99999999999999999999s", "%.00000000010000s"}) {
    EXPECT_EQ(Fill(conversion).error,
              "template has \"" + conversion + "\", a width or precision above 9999");
  }
  EXPECT_FALSE(Fill("%s %999999999d"));
  EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 10);
}

TEST(SqlTemplate, RefusesAStatementThatFormatWouldCut) {
  EXPECT_TRUE(Fill(std::string(kLongestStatement - 5, 'x') + "%s"));
  EXPECT_EQ(Fill(std::string(kLongestStatement - 4, 'x') + "%s").error,
            "statement of 10238 bytes or more");
}

}  // namespace
