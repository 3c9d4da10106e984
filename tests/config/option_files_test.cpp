// What is read of the option files, and what is not.
#include "config/option_files.h"

#include <sys/stat.h>

#include "gmock/gmock.h"
#include "testing/files.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kFile = "/tmp/options/my.cnf";

// The options of the group as "name", or as "name=value".
std::vector<std::string> Listed(const OptionFiles& files) {
  std::vector<std::string> list;
  for (const ClientOption& option : files.options()) {
    list.push_back(option.name + (option.value ? "=" + *option.value : ""));
  }
  return list;
}

OptionFiles ReadOf(const std::string& content) {
  WriteFile(kFile, content);
  OptionFiles files;
  EXPECT_TRUE(files.Read(kFile));
  return files;
}

TEST(OptionFiles, ALineIsWrittenInManyWays) {
  const std::pair<const char*, const char*> cases[] = {
      {"ssl", "ssl"},
      {"  ssl_ca  =  /a b  \r", "ssl-ca=/a b"},
      {"ssl-ca=", "ssl-ca="},
      {"password='#1=\"x\"' # of March", "password=#1=\"x\""},
      {"password=a#b", "password=a"},
      {R"(password="a\"#b")", "password=a\"#b"},
      {R"(password=\s\tx\\\q\)", "password= \tx\\\\q\\"},
      {"password='", "password='"},
  };
  for (const auto& [line, option] : cases) {
    EXPECT_THAT(Listed(ReadOf("[midtable]\n" + std::string(line) + "\n")), ElementsAre(option));
  }
}

TEST(OptionFiles, OnlyTheGroupOfTheServiceIsRead) {
  const OptionFiles files = ReadOf(
      "a\n[client]\nb\n[client-server]\nc\n[ midtable ] ; see below\n# d\n;e\n\nf=1\n"
      "[midtable2]\ng\n[client-mariadb]\nh\n[midtable]\nf=2");
  EXPECT_THAT(Listed(files), ElementsAre("f=1", "f=2"));
  EXPECT_EQ(files.options().back().where, kFile + " line 16");
  EXPECT_TRUE(files.found());
  EXPECT_FALSE(ReadOf("[client]\nssl\n").found());
  EXPECT_TRUE(ReadOf("[midtable]").found());
}

TEST(OptionFiles, IncludedFilesComeInTheirPlaceAndByName) {
  WriteFile("/tmp/options/d/2.cnf", "[midtable]\nlast");
  WriteFile("/tmp/options/d/1.cnf", "[midtable]\nfirst\n[client]\nx\n");
  WriteFile("/tmp/options/d/3.conf", "[midtable]\nwrong ending");
  WriteFile("/tmp/options/one", "[midtable]\nincluded");
  const OptionFiles files = ReadOf(
      "[midtable]\na\n!include /tmp/options/one\nb\n!includedir /tmp/options/d\n"
      "!include " +
      kFile + "-missing\n!includedir /tmp/options/none\n!nonsense\nc\n");
  EXPECT_THAT(Listed(files), ElementsAre("a", "included", "b", "first", "last", "c"));
  EXPECT_THAT(files.unreadable(), IsEmpty()) << "what is missing is no fault";
}

TEST(OptionFiles, WhatCannotBeReadIsListed) {
  WriteFile("/tmp/options/closed", "[midtable]\nssl\n");
  chmod("/tmp/options/closed", 0);
  const OptionFiles files = ReadOf("!include /tmp/options/closed\n!includedir /tmp/options/one\n");
  EXPECT_THAT(files.unreadable(),
              ElementsAre("/tmp/options/closed: Permission denied",
                          testing::StartsWith("/tmp/options/one: Not a directory")));
}

}  // namespace
