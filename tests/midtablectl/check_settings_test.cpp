// What `midtablectl check` finds in the settings file.

#include "midtablectl/check_fixture.h"

namespace {

Step Line(const std::string& part, const std::string& by) { return Edit(kSettings, part, by); }

class CheckSettings : public CheckTest {};

TEST_P(CheckSettings, Finds) {
  GetParam().SetUp();
  Finds(Of(kSettings, GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(
    That, CheckSettings,
    testing::Values(
        Case("EverybodyMayChange", {SetMode(kSettings, 0666)},
             ": warning: everybody on this machine may change it"),
        Case("EverybodyMayRead", {SetMode(kSettings, 0644)},
             ": warning: everybody on this machine may read the password"),
        Case("NameAnOptionFileWithAMistake",
             {Write("/tmp/own.cnf", "[midtable]\nssl-mod=REQUIRED\n"),
              Line("user=", "client_options=/tmp/own.cnf\nuser=")},
             ":3: error: /tmp/own.cnf line 2: option ssl-mod is not known here: see CLIENT OPTIONS "
             "in dbinfo.conf(5); nobody is asked for a login"),
        Case("LeaveTheLoginToTheOptionFile",
             {Write("/tmp/own.cnf", "[midtable]\nuser=u\npassword=p\nhost=h\nport=1\n"),
              SetMode("/tmp/own.cnf", 0600), Line("host=127.0.0.1\nport=3306\nuser=midtable\n", ""),
              Line("password=secret", "client_options=/tmp/own.cnf")}),
        Case("HoldZeroBytes", {Line("vqcfg\n", std::string("vqcfg\0\n", 7))},
             ": error: holds zero bytes, after which text is lost"),
        Case("HaveALineWithoutEqualsSign", {Line("user=", "# who logs in\nuser=")},
             ":3: error: no \"=\" in this line, which refuses the whole file"),
        Case("HaveAKeyInCapitals", {Line("user=", "User=")},
             ":3: error: key \"User\" is not read: letter case counts", ": error: no user"),
        Case("MisspellAKey", {Line("password=", "pasword=")},
             ":4: warning: key \"pasword\" is not read, and there is no password",
             ": warning: no password"),
        Case("BeginWithAByteOrderMark", {Line("host=", "\xEF\xBB\xBFhost=")},
             ":1: error: a byte order mark stands before \"host\"",
             ": warning: no host: the client library takes its local socket"),
        Case("NameOracleInCapitals", {Line("=mysql", "=Oracle")},
             ":5: error: dbtype \"Oracle\" selects MySQL, not Oracle"),
        Case("HaveAPortThatIsNone", {Line("=3306", "=65536")},
             ":2: error: no port, or none from 1 to 65535"),
        Case("HaveAnUnknownDelivery", {Line("dbname0=", "delivery=twice\ndbname0=")},
             ":6: error: delivery \"twice\" is not known: the service does not start"),
        Case("HaveTooManyWorkers", {Line("dbname0=", "delivery=once\nworkers=17\ndbname0=")},
             ":7: error: workers \"17\" is no number from 1 to 16: the service does not start"),
        Case("HaveWorkersWithoutUse", {Line("dbname0=", "workers=2\ndbname0=")},
             ":6: warning: workers has no effect without delivery=once"),
        Case("NeedNoHostOnOracle", {UseOracle, Line("host=127.0.0.1\nport=3306\n", "")}),
        Case("HaveARefusedPasswordOfDatabases",
             {UseOracle, Line("set_password=secret", "set_password=;'x")},
             ":6: error: set_password is refused: the users of the databases cannot be made")),
    kNameOfCase);

TEST_F(CheckTest, SecretsOfTheClientOptionsThatOthersMayRead) {
  WriteFile("/tmp/own.cnf", "[midtable]\npassword=p\nssl-key=/tmp/own.key\n");
  WriteFile("/tmp/own.key", "");
  for (const char* file : {"/tmp/own.cnf", "/tmp/own.key"}) SetMode(file, 0644)();
  Line("password=secret", "client_options=/tmp/own.cnf")();
  Finds({"/tmp/own.cnf: warning: everybody on this machine may read the password",
         "/tmp/own.key: warning: everybody on this machine may read the private key"});
}

TEST_F(MidtablectlTest, ThatThisUserMayNotRead) {
  fs::permissions(kSettings, fs::perms::none);
  const std::string found =
      ": error: cannot be read: Permission denied; the service ends at once with status 1 -> mend "
      "its mode or that of the folders above";
  const std::string blind = ": run check as root or as the service's user\n";
  EXPECT_EQ(Midtablectl({"check", "--offline"}),
            (Outcome{2, kSettings + found + "\n1 error, 0 warnings\n",
                     "this user may not read " + kSettings + blind}));
}

}  // namespace
