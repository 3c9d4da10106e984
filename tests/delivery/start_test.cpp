// Which values of the settings "delivery" and "workers" the service starts with.
#include <cstdlib>

#include "gtest/gtest.h"
#include "support/paths.h"
#include "testing/files.h"

namespace {

struct Refused {
  const char* settings;
  const char* line;  // that the service ends with
};
class Start : public testing::TestWithParam<Refused> {};

TEST_P(Start, EndsWithStatus1AndALineThatSaysWhatToWrite) {
  WriteFile(paths::kSettingsFile, GetParam().settings);
  const int status = std::system(MIDTABLE " -app >/tmp/output");
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(ReadFile("/tmp/output"), std::string(paths::kSettingsFile) + ": " + GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(
    With, Start,
    testing::Values(Refused{"dbtype=mysql\ndelivery=twice",
                            "delivery=twice is not known, write delivery=once or remove the key\n"},
                    Refused{"dbtype=mysql\ndelivery=once\nworkers=0",
                            "workers=0 is no number from 1 to 16, correct it or remove the key\n"},
                    Refused{"dbtype=mysql\ndelivery=once\nworkers=17",
                            "workers=17 is no number from 1 to 16, correct it or remove the key\n"},
                    Refused{"dbtype=mysql\nworkers=2 or 3",
                            "workers=2 or 3 is no number from 1 to 16, correct it or remove the "
                            "key\n"},
                    Refused{"dbtype=oracle\ndelivery=once",
                            "delivery=once is not for Oracle, remove the key\n"}));

}  // namespace
