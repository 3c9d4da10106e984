// What `midtablectl setup` makes, and that it leaves alone what is there.
#include "midtablectl/setup_fixture.h"

namespace {

using testing::HasSubstr;
using testing::Not;

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

// Waits for a command to succeed, for 30 seconds at most.
void Eventually(const std::string& command) {
  EXPECT_EQ(Shell("timeout 30 sh -c 'until " + command + "; do sleep 0.05; done'").status, 0)
      << command;
}

// --- from an empty machine to rows

TEST_F(SetupTest, TheServiceCountsAFileRightAfterIt) {
  ExpectReady(RunSetup());
  WriteFile(kFile + ".tmp",
            "1000000\t800138000\t2012-12-30 02:01:07\t1059\t10.41.143.78\t68:ed:3d:00:d1:34\t"
            "ap-103\tstaff\tweb\t5\t6\n");
  server.Run("use WLAN_1a2b3c4d; create table T_FLOW1Y_2012 like T_FLOW1Y_" + Year(0));
  Shell("(timeout -s KILL 60 " MIDTABLE_PROGRAM " -apple debug=1) >/tmp/out &");
  fs::rename(kFile + ".tmp", kFile + ".dat");
  Eventually("test -e " + kFile + ".mid");
  EXPECT_EQ(server.Run("select sum(sessions) from WLAN_1a2b3c4d.T_FLOW1Y_2012"), Words{"1"});
  Shell("kill -INT $(pidof midtable)");
  Eventually("! pidof midtable");
}

TEST_F(SetupTest, TheOtherWayOfCountingIsSetUpTheSameWay) {
  ExpectReady(RunSetup({"--yes", "--delivery", "none", "--devices", "1a2b3c4d"}));
  EXPECT_EQ(Setting("delivery"), "");
}

TEST_F(SetupTest, ThePasswordIsInTheSettingsAlone) {
  const Outcome run = RunSetup();
  const std::string password = Setting("password");
  EXPECT_GE(password.size(), 24U);
  EXPECT_EQ(ModeOf(kSettings), 0600U);
  EXPECT_THAT(run.output, HasSubstr("password=********\n"));
  EXPECT_THAT(run.output, HasSubstr("identified by ********;\n"));
  EXPECT_THAT(run.output, Not(HasSubstr(password)));
}

TEST_F(SetupTest, FoldersHaveTheirModes) {
  RunSetup();
  EXPECT_EQ(ModeOf(kSpool), 0755U);
  EXPECT_EQ(ModeOf(kOtherFolder), 0755U);
  EXPECT_EQ(ModeOf(kRunLog), 0750U);
  EXPECT_EQ(ModeOf(kDefinitions), 0644U);
}

TEST_F(SetupTest, AnswersTakeThePlaceOfOptions) {
  // One for each of the five questions, and the yes.
  const std::string answers = "printf \"\\n" + port +
                              "\\nnone\\n1a2b3c4d\\n\"; until grep -q y/N /tmp/shown; do sleep "
                              "0.02; done; echo y";
  Outcome run = Shell("rm -f /tmp/shown; (" + answers +
                      ") | script -qfec '" MIDTABLECTL " setup --user reporter' /tmp/shown");
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(Setting("port") + Setting("delivery"), port);
  EXPECT_EQ(ListFolder(kSpool), Words{"1a2b3c4d"});
}

TEST_F(SetupTest, ATypedPasswordIsNotShown) {
  server.Run(
      "create user boss@'%' identified by 'top secret'; grant all on *.* to boss@'%' with "
      "grant option");
  const std::string answers =
      "until grep -q Password /tmp/shown; do sleep 0.02; done; sleep 0.2; echo top secret; "
      "until grep -q y/N /tmp/shown; do sleep 0.02; done; echo y";
  const Outcome run =
      Shell("rm -f /tmp/shown; (" + answers +
            ") | script -qfec '" MIDTABLECTL
            " setup --host 127.0.0.1 --user reporter --admin-user boss --delivery once --port " +
            port + " --devices 1a2b3c4d' /tmp/shown");
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_THAT(run.output, Not(HasSubstr("top secret")));
}

// --- what is there stays

TEST_F(SetupTest, ASecondRunChangesNothing) {
  ExpectReady(RunSetup());
  const Words before = State();
  const Outcome again = RunSetup({"--yes"});
  ExpectReady(again);
  EXPECT_THAT(again.output, testing::StartsWith("All is there; nothing to do.\n"));
  EXPECT_EQ(State(), before);
}

TEST_F(SetupTest, ADryRunLeavesNothing) {
  const Words before = State();
  const Outcome run = RunSetup({"--dry-run", "--devices", "1a2b3c4d"});
  EXPECT_TRUE(run.status == 0 && run.errors.empty()) << run;
  EXPECT_THAT(run.output, HasSubstr("create table if not exists `WLAN_1a2b3c4d`.`T_FLOW1Y_" +
                                    Year(1) + "` (\n"));
  EXPECT_EQ(State(), before);
}

TEST_F(SetupTest, NothingIsDoneWithoutAnAnswer) {
  const Words before = State();
  const Outcome run = RunSetup({"--devices", "1a2b3c4d"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, testing::EndsWith("\nNothing done. With --yes it is done.\n"));
  EXPECT_EQ(State(), before);
}

TEST_F(SetupTest, FilesOfTheOperatorAreLeftAlone) {
  WriteFile(kBlocks, "1380013,mine\n");
  const Outcome run = RunSetup();
  ExpectReady(run);
  EXPECT_EQ(ReadFile(kBlocks), "1380013,mine\n");
  EXPECT_THAT(run.output, Not(HasSubstr(kBlocks)));
}

TEST_F(SetupTest, AnotherDeviceIsAddedToAnInstallation) {
  ExpectReady(RunSetup({"--yes", "--devices", "1a2b3c4d"}));
  const std::string password = Setting("password");
  ExpectReady(RunSetup({"--yes", "--devices", "5e6f7a8b"}));
  EXPECT_EQ(ListFolder(kSpool), (Words{"1a2b3c4d", "5e6f7a8b"}));
  EXPECT_EQ(server.Run("show tables in WLAN_5e6f7a8b").size(), 4U);
  EXPECT_EQ(Setting("password"), password);
}

// --- failures half way

TEST_F(SetupTest, AFailureHalfWayIsFinishedByTheSameCommand) {
  MakeAdministrator("select, create on *.*");
  const Outcome half =
      RunSetup({"--yes", "--devices", "1a2b3c4d", "--admin-defaults-file", "/tmp/admin.cnf"});
  EXPECT_EQ(half.status, 3) << half;
  EXPECT_THAT(half.errors, HasSubstr("\"create user 'reporter'@'127.0.0.1' identified by ********\""
                                     " fails: Access denied"));
  EXPECT_THAT(half.errors, HasSubstr(" steps are done and stay. When it is mended, the same "
                                     "command does the rest.\n"));
  const std::string password = Setting("password");
  ExpectReady(RunSetup({"--yes"}));
  EXPECT_EQ(Setting("password"), password);
}

TEST_F(SetupTest, PrivilegesThatWereTakenAwayComeBack) {
  RunSetup();
  server.Run("revoke delete on `WLAN\\_%`.* from reporter@'127.0.0.1'");
  const Outcome run = RunSetup({"--yes"});
  ExpectReady(run);
  EXPECT_THAT(run.output, HasSubstr("  grant delete on `WLAN\\_%`.* to 'reporter'@'127.0.0.1';\n"));
}

// --- least privileges

// What a login that counts this way must be refused, and what it needs.
struct Rights {
  std::string delivery;
  Words refused;
  Words needed;
};

const Words kNeverAllowed = {"insert into vqcfg.EnterpriseUser values (1, 'x')",
                             "create table vqcfg.mine (n int)",
                             "drop database vqcfg",
                             "create database mine",
                             "do (select count(*) from mysql.user)",
                             "create user mine@'%'",
                             "set global local_infile = 0",
                             "alter table WLAN_1a2b3c4d.T_FLOW1Y_" + Year(0) + " add x int",
                             "create view WLAN_1a2b3c4d.mine as select 1",
                             "grant select on WLAN_1a2b3c4d.* to poor@'%'"};

class SetupRights : public SetupTest, public testing::WithParamInterface<Rights> {};

TEST_P(SetupRights, AreTheLeast) {
  const Rights& rights = GetParam();
  server.Run("create user poor@'%'");
  ExpectReady(RunSetup({"--yes", "--delivery", rights.delivery, "--devices", "1a2b3c4d"}));
  for (const Words& list : {kNeverAllowed, rights.refused}) {
    for (const std::string& statement : list) {
      EXPECT_THAT(Refused(statement), HasSubstr("denied")) << statement;
    }
  }
  for (const std::string& statement : rights.needed) EXPECT_EQ(Refused(statement), "");
}

const std::string kDelete = "delete from WLAN_1a2b3c4d.T_FLOW1Y_" + Year(0);
INSTANTIATE_TEST_SUITE_P(
    Counting, SetupRights,
    testing::Values(Rights{"once",
                           {"load data infile '/x' into table WLAN_1a2b3c4d.T_FLOW1Y_" + Year(0)},
                           {kDelete}},
                    Rights{
                        "none", {kDelete}, {"truncate table WLAN_1a2b3c4d.T_FLOW1Y_" + Year(0)}}),
    [](const auto& test) { return test.param.delivery; });

}  // namespace
