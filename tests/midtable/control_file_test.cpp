// The control file that is written for the Oracle loader: its mode, and what is refused in its
// place.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "gmock/gmock.h"
#include "midtable/oracle_loading.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/recording_sql.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

const std::string kControl = paths::kLoaderControlFile;
constexpr char kTarget[] = "/etc/morvan/target";
constexpr char kWritten[] = "load 'file' into MEM_F (id)";

class ControlFile : public testing::Test {
 protected:
  ControlFile() {
    for (const auto& entry : fs::directory_iterator("/etc/morvan")) fs::remove_all(entry);
    WriteFile(paths::kLoaderTemplates,
              "<root><sqlldr_ctl table='all'>load '%s' into %s %s</sqlldr_ctl></root>");
    setenv("ORACLE_HOME", "/bin/false", 1);  // no tool: only its control file is of interest
    m_script.columns = {"id"};
  }

  // What is logged when the file is written.
  std::string Write() {
    CapturedStdout out;
    StartLoaderTool(m_store, "MEM_F", "u", "pw", "file");
    return out.text();
  }

  SqlScript m_script;
  Store m_store{std::make_unique<RecordingSql>(m_script), MYSQLAUTH()};
};

class ControlFileMode : public ControlFile, public testing::WithParamInterface<mode_t> {};
INSTANTIATE_TEST_SUITE_P(Umask, ControlFileMode, testing::Values(0, 022, 077));

TEST_P(ControlFileMode, Is0640WhateverTheUmask) {
  const mode_t before = umask(GetParam());
  Write();
  umask(before);
  struct stat status {};
  EXPECT_EQ(stat(kControl.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(ControlFile, IsNotWrittenThroughALink) {
  WriteFile(kTarget, "another's");
  fs::create_symlink(kTarget, kControl);
  EXPECT_THAT(Write(), HasSubstr("<2>:/etc/morvan/midtable_sqlldr.ctl file open failed\n"));
  EXPECT_EQ(ReadFile(kTarget), "another's");
}

}  // namespace
