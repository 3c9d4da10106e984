#include "spool/listing_trust.h"

#include <functional>

#include "testing/files.h"
#include "testing/scripted_system.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Verdict = ListingTrust::Verdict;

constexpr char kFolder[] = "/tmp/folder";

class ListingTrustTest : public testing::Test {
 protected:
  ListingTrustTest() { fs::create_directory(kFolder); }
  void Read(const std::function<void()>& meanwhile = [] {}) {
    trust.Begin();
    EXPECT_EQ(trust.Judge(), Verdict::kUseless) << "until the reading has ended";
    meanwhile();
    trust.Finish(-1);
  }

  ScriptedSystem system;
  const ScriptedSystem at_rest = system;
  ListingTrust trust{kFolder, system};
};

TEST_F(ListingTrustTest, IsCurrentForAsLongAsTheFolderRests) {
  Read();
  system.now += 24h;
  system.set += 250ms;  // clocks drift
  EXPECT_EQ(trust.Judge(), Verdict::kCurrent);
}

TEST_F(ListingTrustTest, IsOldForASecondWhereAChangeMayHaveBeenMissed) {
  const std::function<void()> nothing = [] {};
  const std::function<void()> change = [this] { system.changed = system.now; };
  const struct {
    const char* trouble;
    std::function<void()> before, during, after;
  } cases[] = {{"changed since", nothing, nothing, change},
               {"changed during the reading", nothing, change, nothing},
               {"coarse stamp", [this] { system.changed += 1ms; }, nothing, nothing},
               {"clock set back", nothing, nothing, [this] { system.set -= 251ms; }},
               {"clock set forward", nothing, nothing, [this] { system.set += 251ms; }},
               {"remote file system", [this] { system.local = false; }, nothing, nothing}};
  for (const auto& [trouble, before, during, after] : cases) {
    SCOPED_TRACE(trouble);
    system = at_rest;
    before();
    Read(during);
    after();
    system.now += 999ms;
    EXPECT_EQ(trust.Judge(), Verdict::kOld);
    system.now += 1ms;
    EXPECT_EQ(trust.Judge(), Verdict::kUseless);
  }
}

}  // namespace
