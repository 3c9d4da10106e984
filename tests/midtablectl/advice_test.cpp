// Which row of docs/messages.md a line of the run log is, and what a server's words mean.
#include "midtablectl/advice.h"

#include <regex>

#include "gtest/gtest.h"

namespace {

TEST(Advice, EachMessageIsFoundByATextOfItsOwn) {
  ASSERT_GT(ctl::Messages().size(), 50U);
  for (const ctl::Message& message : ctl::Messages()) {
    const std::string text =
        std::regex_replace(message.format, std::regex("%(zu|lld|[sdu])"), "17");
    const auto* found = ctl::FindMessage({message.unit, message.level, 0, text});
    EXPECT_TRUE(found != nullptr && found->format == message.format) << message.format;
  }
}

TEST(Advice, WordsOfTheServer) {
  const struct {
    std::string text, advice;
  } table[] = {
      {"execute load data infile \"x\" failed, error:Access denied for user",
       "the service's user lacks the privilege FILE, whatever the server says of a password: grant "
       "file on *.* to it"},
      {"execute create table t failed, error:Access denied for user",
       "a privilege is missing: midtablectl check names it with its grant statement"},
      {"execute select 'is full' failed, error:what is that", ""},
      {"xml file /etc/morvan/vqlog.xml: line 3, mismatched tag",
       "mend the definition file; midtablectl check shows all that is wrong with it, and it is "
       "read "
       "again as soon as it has changed"},
      {"table WLAN_1a2b3c4d.t has engine MyISAM, which cannot be rolled back",
       "alter table that table to engine = InnoDB"}};
  for (const auto& [text, advice] : table) EXPECT_EQ(ctl::ServerAdvice(text), advice) << text;
}

}  // namespace
