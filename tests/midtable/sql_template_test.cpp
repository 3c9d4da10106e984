#include "midtable/sql_template.h"

#include "gtest/gtest.h"

namespace {

TEST(SqlTemplate, FormatsWhatPrintfWould) {
  const TemplateValue values[] = {std::string("a%nb"), 7, std::string("xyz")};
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"like '100%%'", "like '100%'"},
      {"%s", "a%nb"},  // fewer conversions than values; a value is never a format
      {"<%6s|%-3d|%.2s>", "<  a%nb|7  |xy>"},
      {"%s %03d %+s", "a%nb 007 xyz"},
      {"%s%%%x", "a%nb%7"},
  };
  for (const auto& [text, expected] : cases) {
    const FilledTemplate filled = FillTemplate(text, values);
    EXPECT_EQ(filled.text, expected) << text;
    EXPECT_EQ(filled.error, "") << text;
  }
}

TEST(SqlTemplate, RefusesWhatPrintfWouldChokeOn) {
  const TemplateValue values[] = {std::string("t"), 7};
  const std::string wide = "%s " + std::string(kLongestStatement, 'x');
  for (const std::string& text :
       {std::string("%s %d %s"), std::string("%n"), std::string("%d"), std::string("%s %s"),
        std::string("50%"), std::string("%-5."), std::string("%s %*d"), std::string("%1$s"),
        std::string("%ls"), std::string("%s %ld"), std::string("%s %c"), std::string("%y"),
        std::string("% "), std::string("%99999999999s"), std::string("%99999s"), wide}) {
    const FilledTemplate filled = FillTemplate(text, values);
    EXPECT_FALSE(filled) << text;
    EXPECT_EQ(filled.text, "") << text;
  }
  EXPECT_EQ(FillTemplate("%s %s", std::span(values, 1)).error,
            "template has more conversions than the 1 values it gets");
}

}  // namespace
