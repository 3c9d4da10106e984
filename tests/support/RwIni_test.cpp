#include "support/RwIni.h"

#include "gtest/gtest.h"
#include "testing/files.h"

namespace {

constexpr char kFile[] = "/tmp/devices.ini";

std::string City(const CRwIni& ini, const char* section) {
  return ini.GetString(section, "city", nullptr, 0, nullptr);
}

TEST(RwIni, ReadsSectionsInFileOrder) {
  WriteFile(kFile,
            "\xEF\xBB\xBF; comment\r\n[ zz ] more\r\n\tcity \t=  New = York ;x \r\n[empty]\n#[no]\n"
            "[a]\nCITY=other\ncity=\"\xB9\xE3\"\n ;city=no\nnot a "
            "line\n=x\n[open\n[zz]\nzip=1\n[q]\ncity=");
  const CRwIni ini(kFile);
  EXPECT_EQ(ini.IsLoadOk(), 1);
  EXPECT_EQ(ini.GetSections(), (std::vector<std::string>{"zz", "empty", "a", "q"}));
  EXPECT_EQ(City(ini, "zz"), "New = York ;x");
  EXPECT_EQ(City(ini, "a"), "\"\xB9\xE3\"");
  EXPECT_EQ(ini.GetString("zz", "zip", nullptr, 0, "none"), "1") << "a section goes on";
  EXPECT_EQ(ini.GetString("q", "city", nullptr, 0, "none"), "") << "empty is not missing";
  EXPECT_EQ(ini.GetString("empty", "city", nullptr, 0, "none"), "none");
  EXPECT_EQ(City(ini, "missing") + ini.GetString(nullptr, nullptr, nullptr, 0, nullptr), "");
}

TEST(RwIni, LaterValuesWinAndBuffersAreCut) {
  WriteFile(kFile, "city=early\n[a]\ncity=first\n[b]\n[a]\ncity=second\n");
  const CRwIni ini(kFile);
  char buffer[5] = "####";
  EXPECT_EQ(ini.GetString("a", "city", buffer, 4, nullptr), "second");
  EXPECT_STREQ(buffer, "sec");
  EXPECT_EQ(ini.GetString("b", "city", buffer, 0, "none"), "none");
  EXPECT_STREQ(buffer, "sec");
}

TEST(RwIni, AFailedLoadLeavesNothing) {
  CRwIni ini(nullptr);
  EXPECT_EQ(ini.IsLoadOk(), 0);
  WriteFile(kFile, "");
  EXPECT_EQ(ini.Load(kFile), 1) << "an empty file is fine";
  WriteFile(kFile, "[a]");
  for (const char* path :
       {static_cast<const char*>(nullptr), "/tmp", "/tmp/missing", "/dev/zero"}) {
    EXPECT_EQ(ini.Load(kFile), 1);
    EXPECT_EQ(ini.Load(path), 0);
    EXPECT_TRUE(ini.GetSections().empty());
    EXPECT_EQ(ini.IsLoadOk(), 0);
  }
}

}  // namespace
