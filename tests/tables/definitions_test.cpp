#include "tables/definitions.h"

#include "gtest/gtest.h"
#include "testing/run_log.h"

namespace {

TEST(Definitions, ReadANumberAsAtoiDoesAndSayWhereItIsNone) {
  const struct {
    std::string text;
    int number;
    bool is_plain;
  } cases[] = {{"12", 12, true},  {" 7\n", 7, true}, {"0", 0, true},
               {"3x", 3, false},  {"", 0, false},    {"many", 0, false},
               {"-1", -1, false}, {"1 2", 1, false}, {"99999999999", 2147483647, true}};
  for (const auto& [text, number, is_plain] : cases) {
    SCOPED_TRACE(text);
    WriteFile("/tmp/definitions.xml", "<root>" + text + "</root>");
    TableDefinitions definitions;
    ASSERT_TRUE(definitions.Parse("/tmp/definitions.xml"));
    int read = 0;
    const Lines log = LogOf([&] { EXPECT_TRUE(definitions.Read("/root", read)); });
    EXPECT_EQ(read, number);
    const std::string told = "<1>:xml file /tmp/definitions.xml: /root is no number, taken as ";
    EXPECT_EQ(log, is_plain ? Lines{} : Lines{told + std::to_string(number)});
  }
}

}  // namespace
