#include "localuser/registry_fixture.h"

using testing::ElementsAre;
using testing::Pair;

class CityChecksums : public RegistryTest {
 protected:
  CityChecksums() {
    WriteFile(CITYCRCFILE, "[A]\ncity=X\n[B]\nother=1\n");
    EXPECT_EQ(m_registry.updateCityCRC(), 0);
  }
  std::map<std::string, std::string> Get(int refresh) {
    std::map<std::string, std::string> cities = {{"old", "entry"}};
    EXPECT_EQ(m_registry.GetCityCRC(cities, refresh), 0);
    return cities;
  }
};

// The CRC-32 of "/X/" and, for the device without a city, of "//".
TEST_F(CityChecksums, StandUnderTheDatabasesOfTheDevices) {
  EXPECT_THAT(Get(0), ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "4162066379")));
}

TEST_F(CityChecksums, AreReadAgainOnRequestOnly) {
  WriteFile(CITYCRCFILE, "[D]\ncity=X\n");
  EXPECT_THAT(Get(0), ElementsAre(Pair("WLAN_A", "367211210"), Pair("WLAN_B", "4162066379")));
  EXPECT_THAT(Get(1), ElementsAre(Pair("WLAN_D", "367211210")));
}

TEST_F(CityChecksums, StayWhenTheyCannotBeReadAgain) {
  const auto before = Get(0);
  std::filesystem::remove(CITYCRCFILE);
  EXPECT_EQ(Get(1), before);
}
