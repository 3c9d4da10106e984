#include "support/RwIni.h"

#include "gtest/gtest.h"
#include "testing/files.h"

constexpr char kFile[] = "/tmp/devices.ini";

TEST(RwIni, ReadsSectionsInFileOrderAndTheLastValues) {
  WriteFile(kFile,
            "city=early\n[ zz ] more\r\ncity=1\n\tcity \t=  New = York ;x \r\n[empty]\n#[no]\n[a]\n"
            "CITY=2\ncity=\"\xB9\xE3\"\n ;city=3\nnot a line\n=x\n[open\n[zz]\nzip=1\n[q]\ncity=");
  const CRwIni ini(kFile);
  EXPECT_EQ(ini.GetSections(), (std::vector<std::string>{"zz", "empty", "a", "q"}));
  std::string cities;
  char buffer[4];
  for (const char* section : {"zz", "a", "q", "empty", "missing"}) {
    cities += ini.GetString(section, "city", buffer, 4, "none") + "|" + buffer + "|";
  }
  EXPECT_EQ(cities, "New = York ;x|New|\"\xB9\xE3\"|\"\xB9\xE3|||none|non|none|non|");
  EXPECT_EQ(ini.GetString("zz", "zip", buffer, 0, nullptr), "1") << "a section goes on";
  EXPECT_STREQ(buffer, "non");
}

TEST(RwIni, AFailedLoadLeavesNothing) {
  CRwIni ini(nullptr);
  for (const char* path : {"/tmp", "/tmp/missing", "/dev/zero"}) {
    WriteFile(kFile, "\xEF\xBB\xBF[a]");
    EXPECT_TRUE(ini.Load(kFile) == 1 && ini.GetSections().size() == 1);
    EXPECT_TRUE(ini.Load(path) == 0 && ini.IsLoadOk() == 0 && ini.GetSections().empty()) << path;
  }
}
