// Number blocks, user codes and the registry's connection.
#include "localuser/registry_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

using Registry = RegistryTest;

TEST_F(Registry, AUserIsLocalByTheFirstSevenCharactersOfTheName) {
  LoadBlocks("1380013,\xb1\xb1\n 0012345 ,x\n\"\",e\n138001x\n13800\n+123456\n\xb1\xb1\n");
  for (const char* user :
       {"13800138000", "00123450000", "138001x0000", "+1234560000", "1380013", "13800", "", "北"}) {
    EXPECT_EQ(m_registry.isLocalUser(user), 1) << user;
  }
  for (const char* user : {"13800148000", "12345000000", "138001X0000", "01234560000"}) {
    EXPECT_EQ(m_registry.isLocalUser(user), 0) << user;
  }
}

TEST_F(Registry, SaysThatAFileOfBlocksWasNotReadToItsEnd) {
  WriteFile("/tmp/overlong.csv", "1380013\n" + std::string(300'000, 'x') + "\n1390013\n");
  for (const std::string path : {"/tmp/overlong.csv", "/tmp"}) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.LoadConfig(path), 1);
    EXPECT_THAT(log.text(), HasSubstr("CSV file " + path + " not read to its end"));
  }
}

TEST_F(Registry, AMissingFileLeavesNoBlocks) {
  LoadBlocks("1380013\n");
  EXPECT_EQ(m_registry.LoadConfig("/tmp/none.csv"), 0);
  EXPECT_EQ(m_registry.isLocalUser("13800138000"), 0);
}

TEST_F(Registry, KnowsWhichBlocksCanHoldUsers) {
  for (const char* block : {"1300000", "1499999", "1512345", "1800000"}) {
    EXPECT_TRUE(TourLocalUser::CanHoldUsers(block)) << block;
  }
  for (const char* block :
       {"", "13", "130000", "13000000", "1600000", "0130000", "13x0000", "+130000"}) {
    EXPECT_FALSE(TourLocalUser::CanHoldUsers(block)) << block;
  }
}

// The CRC-32 of "/X/", of a city whose bytes are above 0x7F and, for the device without one, of
// "//".
TEST_F(Registry, HasChecksumsOfCitiesWhichStayWhenTheyCannotBeReadAgain) {
  WriteFile(CITYCRCFILE, "[A]\ncity=X\n[B]\nother=1\n[C]\ncity=\xB9\xE3\n");
  std::map<std::string, std::string> cities = {{"old", "entry"}};
  for (const int refresh : {1, 0, 1}) {
    EXPECT_EQ(m_registry.GetCityCRC(cities, refresh), 0);
    EXPECT_THAT(cities, ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "4162066379"),
                                    Pair("WLAN_C", "3440916637")));
    std::filesystem::remove(CITYCRCFILE);
  }
}

class RegistryConnection : public RegistryTest {
 protected:
  const std::string kAlive = "isDBAlive()";
  const std::string kUse = "changeDB(vqcfg,pw)";
};

TEST_F(RegistryConnection, IsKeptWhileItIsAliveAndTheFirstChecksumIsDeliberatelyACount) {
  CapturedStdout log;
  EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U);
  EXPECT_THAT(m_script.Take(), ElementsAre(kAlive, kUse, "select count(*) as COUNT from vqcfg.T"));
  EXPECT_EQ(m_registry.GetTableCheckSum("T"), 0U);
  EXPECT_THAT(m_script.Take(), ElementsAre(kAlive, kUse, "checksum table T"));
  EXPECT_THAT(log.text(), HasSubstr("changed database: vqcfg"));
}

TEST_F(RegistryConnection, IsMadeAnewWhenTheServerDroppedIt) {
  m_script.fail[kAlive] = "gone";
  CapturedStdout log;
  EXPECT_EQ(m_registry.GetEnterpriseUser(), 1);
  EXPECT_THAT(m_script.Take({"select"}), ElementsAre(kAlive, "closeDB()", "connectDB()", kUse));
  EXPECT_THAT(log.text(), HasSubstr("changed database not open: vqcfg"));
}
