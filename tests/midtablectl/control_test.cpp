// The command line of midtablectl.

#include "gmock/gmock.h"
#include "midtablectl/midtablectl_fixture.h"

namespace {

class Control : public MidtablectlTest {};

// Its words are those of the library that reads the command line.
TEST_F(Control, Mistakes) {
  const Words table[] = {{},
                         {"mend"},
                         {"check", "--online"},
                         {"why", ""},
                         {"setup", "--port", "0"},
                         {"setup", "--delivery", "twice"},
                         {"setup", "--yes", "--dry-run"},
                         {"setup", "--admin-password", "x"},
                         {"year-tables"},
                         {"year-tables", "--next", "--year", "2030"},
                         {"year-tables", "--year", "20"},
                         {"retry", "--yes"},
                         {"retry", "--all", "x.err"},
                         {"retry", "--all", "--database", "1a2b3c4d"},
                         {"status", "--watch", "0"},
                         {"status", "--json", "--prometheus", "/tmp/metrics"}};
  for (const Words& arguments : table) {
    const Outcome run = Midtablectl(arguments);
    EXPECT_TRUE(run.status == 2 && run.output.empty() && !run.errors.empty()) << run;
  }
}

TEST_F(Control, AWatchLooksAgain) {
  const Outcome run = Shell("timeout 3.5 " MIDTABLECTL " status --watch 1");
  EXPECT_EQ(run.status, 124) << "it went on";
  EXPECT_THAT(run.output, testing::ContainsRegex("not running.*WLAN_.*not running.*WLAN_")) << run;
}

TEST_F(Control, OutputThatIsLost) {
  EXPECT_EQ(Shell(MIDTABLECTL " check --offline >/dev/full"), (Outcome{2, ""}));
}

}  // namespace
