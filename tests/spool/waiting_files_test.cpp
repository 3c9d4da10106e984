#include "spool/waiting_files.h"

#include <ctime>

#include "gmock/gmock.h"
#include "support/names.h"
#include "testing/files.h"

namespace {

using Answer = WaitingFiles::Answer;
using testing::ElementsAre;

class WaitingFilesTest : public testing::Test {
 protected:
  std::string Put(const std::string& table, const std::string& time, bool vanished = false) {
    const std::string name = "1a2b3c4d-" + table + "-20121231-" + time + ".dat";
    if (!vanished) WriteFile("/tmp/waiting/" + name, "");
    waiting.Add(name.c_str());
    return name;
  }
  // The names that are offered, in their order, when each gets this answer.
  std::vector<std::string> Offered(Answer answer) {
    std::vector<std::string> names;
    useful = waiting.OfferFiles([&](const MemFile& file) {
      names.emplace_back(FileNameOf(file.path));
      return answer;
    });
    return names;
  }

  WaitingFiles waiting{"/tmp/waiting"};
  bool useful = false;
};

TEST_F(WaitingFilesTest, AreOfferedFromTheGreatestNameDownAsTheAnswersWantThem) {
  const std::string greater_of_a = Put("A", "120000");
  const std::string greatest = Put("B", "000000");
  const std::string less_of_a = Put("A", "080000");
  EXPECT_THAT(Offered(Answer::kPass), ElementsAre(greatest, greater_of_a, less_of_a));
  EXPECT_FALSE(useful);
  EXPECT_THAT(Offered(Answer::kTableServed), ElementsAre(greatest, greater_of_a));
  EXPECT_FALSE(useful);
  EXPECT_THAT(Offered(Answer::kTaken), ElementsAre(greatest, greater_of_a));
  EXPECT_TRUE(useful);
  EXPECT_THAT(Offered(Answer::kEnough), ElementsAre(greatest));
  EXPECT_TRUE(useful);
}

// To look through all tables again for each file would take minutes here.
TEST_F(WaitingFilesTest, ManyTablesWhoseFilesVanishedHoldNothingUp) {
  for (int table = 0; table < 50'000; ++table) Put("T" + std::to_string(table), "080000", true);
  const std::string left = Put("A", "080000");
  const std::clock_t begin = std::clock();
  EXPECT_THAT(Offered(Answer::kTaken), ElementsAre(left));
  EXPECT_LT((std::clock() - begin) / CLOCKS_PER_SEC, 2);
}

}  // namespace
