#include "support/RwIni.h"

#include <vector>

#include "gtest/gtest.h"
#include "testing/files.h"

constexpr char kFile[] = "/tmp/devices.ini";

CRwIni Load(const std::string& content) {
  WriteFile(kFile, content);
  CRwIni ini(kFile);
  EXPECT_EQ(ini.IsLoadOk(), 1);
  return ini;
}

TEST(RwIni, ListsEachSectionOnceInFileOrder) {
  const CRwIni ini = Load("[zz]\ncity=1\n[empty]\n#[no]\n[open\n[a]\n[zz]\n[ q ] more\r\n");
  EXPECT_EQ(ini.GetSections(), (std::vector<std::string>{"zz", "empty", "a", "q"}));
}

TEST(RwIni, ReadsTheCityOfSectionA) {
  const struct {
    const char* what;
    std::string content;
    std::string city;
  } cases[] = {
      {"blanks around all parts do not count", "[ a ]\n\tcity \t=  York \n", "York"},
      {"a line may end with CRLF", "[a]\r\ncity=York\r\n", "York"},
      {"a byte-order mark may come first", "\xEF\xBB\xBF[a]\ncity=York", "York"},
      {"a value may hold the signs of the format", "[a]\ncity=New = York ;x#", "New = York ;x#"},
      {"a value is no text of any encoding", "[a]\ncity=\"\xB9\xE3\"\n", "\"\xB9\xE3\""},
      {"a value may be empty", "[a]\ncity=", ""},
      {"the later value wins", "[a]\ncity=1\ncity=2\n", "2"},
      {"a section goes on where it comes again", "[a]\n[b]\ncity=1\n[a]\ncity=2\n", "2"},
      {"names differ by case", "[a]\nCITY=1\n[A]\ncity=2\n", "none"},
      {"a key before the first section is nobody's", "city=1\n[a]\n", "none"},
      {"comments are passed over", "[a]\n ;city=1\n#city=2\n", "none"},
      {"other lines are passed over", "[a]\ncity\n=x\n[open\ncity=1\n", "1"},
      {"there is no such section", "[b]\ncity=1\n", "none"},
  };
  for (const auto& [what, content, city] : cases) {
    EXPECT_EQ(Load(content).GetString("a", "city", nullptr, 0, "none"), city) << what;
  }
}

TEST(RwIni, AFailedLoadLeavesNothing) {
  for (const char* path : {"/tmp", "/tmp/missing", "/dev/zero"}) {
    CRwIni ini = Load("[a]");
    EXPECT_EQ(ini.Load(path), 0) << path;
    EXPECT_EQ(ini.IsLoadOk(), 0) << path;
    EXPECT_TRUE(ini.GetSections().empty()) << path;
  }
}
