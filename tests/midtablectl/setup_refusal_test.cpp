// What `midtablectl setup` refuses, and that it has changed nothing then.
#include "midtablectl/setup_fixture.h"
#include "testing/certificates.h"

namespace {

// What is out of order, the options, and how the answer begins.
struct Refusal {
  const char* name;
  std::vector<Step> steps;
  Words options;
  std::string words;
};

const Words kUsual = {"--yes", "--devices", "1a2b3c4d"};

Words With(Words options) {
  options.insert(options.end(), kUsual.begin(), kUsual.end());
  return options;
}

const std::string kOther =
    "the login 'reporter'@'%' is there, and no settings have its password -> ";
const std::string kWrong = "the login 'reporter'@'%' is there, and does not take the password of " +
                           kSettings + " (Access denied for user 'reporter'@'";

class SetupRefusal : public SetupTest, public testing::WithParamInterface<Refusal> {};

TEST_P(SetupRefusal, ChangesNothing) {
  for (const Step& step : GetParam().steps) step();
  const Words before = State();
  ExpectRefusal(RunSetup(GetParam().options), GetParam().words, before);
}

INSTANTIATE_TEST_SUITE_P(
    Of, SetupRefusal,
    testing::Values(
        Refusal{"ADeviceWithQuotes",
                {},
                {"--yes", "--devices", "1a2b`\";--"},
                "\"1a2b`\";--\" is no device ID -> 8 hexadecimal digits"},
        Refusal{"ADeviceOfTwoLines",
                {},
                {"--yes", "--devices", "1a2b\n3c4"},
                "\"1a2b?3c4\" is no device ID -> 8 hexadecimal digits"},
        Refusal{"NoDevice", {}, {"--yes"}, "no device -> name at least one: --devices ID..."},
        Refusal{"AnOwnerWhoIsNot",
                {},
                With({"--owner", "nobody-here"}),
                "no user \"nobody-here\" -> adduser, or another"},
        Refusal{"AnotherUsersFolders",
                {},
                With({"--owner", "root"}),
                kFolder + " is to belong to user 0 -> run this as root"},
        Refusal{"AServerThatIsNotThere",
                {},
                With({"--host", "127.0.0.2"}),
                "no login as root at 127.0.0.2 port "},
        Refusal{"ALoginThatIsThere",
                {Sql("create user reporter@'%' identified by 'other'")},
                kUsual,
                kOther + "--reset-password gives it a new one; --user NAME makes another login"},
        Refusal{"SettingsWithAnotherPassword",
                {Sql("create user reporter@'%' identified by 'other'"),
                 [] {
                   WriteFile(kSettings, kSettingsInOrder);
                   Replace(kSettings, "port=3306",
                           "port=" + std::to_string(MariadbServer::Get().Auth().port));
                   Replace(kSettings, "user=midtable", "user=reporter");
                 }},
                kUsual,
                kWrong},
        Refusal{
            "SettingsThatSayOtherwise", {Write(kSettings, kSettingsInOrder)}, kUsual, "--port "},
        Refusal{"SettingsThatAreNoSettings",
                {Write(kSettings, "host\n")},
                kUsual,
                kSettings + ": set config information error! -> midtablectl check --offline"},
        Refusal{"AnOracleStore",
                {Write(kSettings, "dbtype=oracle\n")},
                kUsual,
                "the store is on Oracle -> see oracle.md"},
        Refusal{"AFolderForReadingOnly",
                {SetMode("/etc/morvan", 0555)},
                kUsual,
                "/etc/morvan: Permission denied -> run this as root"},
        Refusal{"AYearScriptThatDoesMore",
                {Write(kYearTables, "drop table T_FLOW1Y_YYYY;")},
                kUsual,
                kYearTables + ": \"drop table T_FLOW1Y_YYYY\" is neither \"create table if not"},
        Refusal{"AYearScriptThatCannotBeRead",
                {Write(kYearTables), SetMode(kYearTables, 0)},
                kUsual,
                kYearTables + ": Permission denied -> correct it"}),
    [](const auto& test) { return test.param.name; });

TEST_F(SetupTest, AnAdministratorsFileThatOthersMayReadIsRefused) {
  WriteFile("/tmp/admin.cnf", "[client]\npassword=x\n");
  fs::permissions("/tmp/admin.cnf", fs::perms(0644));
  const Words before = State();
  ExpectRefusal(
      RunSetup({"--yes", "--admin-defaults-file", "/tmp/admin.cnf", "--devices", "1a2b3c4d"}),
      "/tmp/admin.cnf: everybody on this machine may read the password -> chmod 600", before);
}

TEST_F(SetupTest, AUserOfTwoLinesIsRefused) {
  const Words before = State();
  ExpectRefusal(Midtablectl({"setup", "--port", port, "--user", "a\nhost=b", "--yes"}),
                "\"a?host=b\" cannot stand in the settings -> ", before);
}

TEST_F(SetupTest, AnAdministratorWithoutAnyRightIsToldSo) {
  MakeAdministrator("usage on *.*");
  const Outcome run =
      RunSetup({"--yes", "--admin-defaults-file", "/tmp/admin.cnf", "--devices", "1a2b3c4d"});
  EXPECT_EQ(run.status, 3) << "folders and files were made";
  EXPECT_THAT(run.errors, testing::HasSubstr("this login may not do that: take an administrator"));
}

TEST_F(SetupTest, AResetGivesALoginThatIsThereANewPassword) {
  server.Run("create user reporter@'%' identified by 'other'");
  const Outcome run = RunSetup({"--yes", "--reset-password", "--devices", "1a2b3c4d"});
  ExpectReady(run);
  EXPECT_THAT(run.output,
              testing::HasSubstr("  alter user 'reporter'@'%' identified by ********;\n"));
}

TEST_F(SetupTest, NamesWithQuotesReachTheServerWhole) {
  server.Run("delete from mysql.global_priv where user like 'o%x'; flush privileges");
  const std::string name = R"(o"b`r\x)";
  ExpectReady(
      Midtablectl({"setup", "--port", port, "--user=" + name, "--yes", "--devices", "1a2b3c4d"}));
  EXPECT_EQ(Setting("user"), name);
}

TEST_F(SetupTest, APasswordOfTheSettingsReachesTheServerWhole) {
  ExpectReady(RunSetup());
  server.Run("drop user reporter@'127.0.0.1'");
  Replace(kSettings, "password=" + Setting("password"), R"(password=it's "\n` & more)");
  ExpectReady(RunSetup({"--yes"}));
}

// A server that offers TLS.
class SetupOverTls : public SetupTest {
 protected:
  static void SetUpTestSuite() {
    certificates::Make();
    certificates::PutInUse("good");
    MariadbServer::Get().Kill();
    MariadbServer::Get().Start(certificates::ServerOptions());
  }
};

TEST_F(SetupOverTls, AnAdministratorWhoMayComeOverTlsOnlyIsToldSo) {
  MakeAdministrator("all on *.*");
  server.Run("alter user poor@'%' require ssl");
  const Outcome run =
      RunSetup({"--yes", "--admin-defaults-file", "/tmp/admin.cnf", "--devices", "1a2b3c4d"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.errors, testing::HasSubstr(" -> user or password is wrong, or the server takes "
                                             "this login over TLS only: see CLIENT OPTIONS"));
}

}  // namespace
