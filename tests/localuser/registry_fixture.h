// The registry on a recording back end, and a mem file for it to rewrite.
#pragma once

#include <filesystem>
#include <string>

#include "gmock/gmock.h"
#include "localuser/tourlocaluser.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

class RegistryTest : public testing::Test {
 protected:
  RegistryTest() {
    std::filesystem::remove_all("/tmp/spool");
    WriteFile(paths::kSettingsFile, "dbname0=vq\ndbtype=mysql\nset_password=pw");
  }
  void LoadBlocks(const std::string& csv) {
    WriteFile("/tmp/blocks.csv", csv);
    ASSERT_EQ(m_registry.LoadConfig("/tmp/blocks.csv"), 1);
  }
  // Rewrites `in` to kOut; what was logged meanwhile.
  std::string Rewrite(const std::string& in) {
    CapturedStdout log;
    EXPECT_EQ(m_registry.ParseMemfile(in, kOut), 1);
    return log.text();
  }
  // A record of 11 fields with that user code; 800138000 is the number 13800138000.
  static std::string Record(const std::string& code) {
    return "a\t" + code + "\tc\td\te\tf\tg\th\ti\tj\tk";
  }

  const std::string kIn = "/tmp/spool/in.dat";
  const std::string kOut = "/tmp/spool/in.mid";
  SqlScript m_script;
  TourLocalUser m_registry{RecordingFactory(m_script)};
};
