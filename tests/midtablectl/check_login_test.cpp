// What `midtablectl check` says of a login that is refused, by the server or by the service.

#include "db/login_remedy.h"
#include "gmock/gmock.h"
#include "midtablectl/check_fixture.h"
#include "testing/certificates.h"

namespace {

const std::string kNoLogin = "server: error: no login as ";
const std::string kAt = " at 127.0.0.1 port PORT: ";

// A server that offers TLS.
class CheckLogin : public CheckOnServerTest {
 protected:
  CheckLogin() { Present("good"); }
  static void SetUpTestSuite() {
    certificates::Make();
    certificates::PutInUse("good");
    MariadbServer::Get().Kill();
    MariadbServer::Get().Start(certificates::ServerOptions());
  }
  void Present(const std::string& certificate) const {
    certificates::PutInUse(certificate);
    server.ReloadCertificates();
  }
  // The user of the settings may come over TLS only.
  void DemandTls() const {
    LogInAsOneWhoMay("select, insert, update, create, drop, file on *.*")();
    server.Run("alter user poor@'%' require ssl");
  }
  // The settings name an option file with this line.
  static void UseOption(const std::string& option) {
    WriteFile("/tmp/client.cnf", "[midtable]\n" + option + "\n");
    if (ReadFile(kSettings).find("client_options") != std::string::npos) return;
    Replace(kSettings, "dbtype=", "client_options=/tmp/client.cnf\ndbtype=");
  }
  const std::string kAuthority = "ssl-ca=" + certificates::File("authority");
};

TEST_F(CheckLogin, TlsThatTheServerDemandsIsMissingUntilItIsSetUp) {
  DemandTls();
  UseOption("skip-ssl");
  Finds({kNoLogin + "poor" + kAt +
         "Access denied for user 'poor'@'127.0.0.1' (using password: YES)" +
         " -> the server takes this login over TLS only: see CLIENT OPTIONS in dbinfo.conf(5)"});
  UseOption(kAuthority);
  Finds({});
}

TEST_F(CheckLogin, AWrongPasswordIsNoLackOfTls) {
  DemandTls();
  Replace(kSettings, "password=secret", "password=wrong");
  Finds({kNoLogin + "poor" + kAt +
         "Access denied for user 'poor'@'127.0.0.1' (using password: YES)" +
         " -> mend user and password of the settings, or make that user on the server"});
}

// The library's words are its own; what to do about them follows.
TEST_F(CheckLogin, WordsAndRemedyOfACertificateThatIsRefusedStandApart) {
  if (server.IsMysql()) GTEST_SKIP() << "it does not put an expired certificate in use";
  UseOption(kAuthority);
  Present("expired");
  const std::string words = SplitRemedy(WordsOn()).first;
  EXPECT_TRUE(words.starts_with("TLS/SSL error: ")) << words;
  Finds({kNoLogin + "midtable" + kAt + words +
         " -> renew the server's certificate and restart the server, or set this machine's clock"});
}

// MySQL logs everybody in by a plug-in that the client library keeps in a file of its own.
TEST_F(CheckLogin, AUserIsToGetAnotherPlugInWhereThisMachineLacksTheirs) {
  LogInAsOneWhoMay("select on *.*")();
  if (!server.IsMysql()) {
    const std::string known = "select 1 from information_schema.all_plugins where plugin_name = ";
    if (server.Run(known + "'ed25519'").empty()) GTEST_SKIP() << "the server has no such plug-in";
    server.Run(
        "install plugin if not exists ed25519 soname 'auth_ed25519';"
        "alter user poor@'%' identified via ed25519 using password('secret')");
  }
  setenv("MARIADB_PLUGIN_DIR", "/none", 1);
  const Outcome run = Midtablectl({"check"});
  unsetenv("MARIADB_PLUGIN_DIR");
  EXPECT_THAT(run.output, testing::HasSubstr("could not be loaded"));
  EXPECT_THAT(run.output, testing::HasSubstr(" -> this user logs in by a plug-in that one side "
                                             "lacks: give the user another one"));
}

TEST_F(CheckLogin, NobodyIsAskedWithAMistakeInTheOptionFile) {
  UseOption("ssl-mod=REQUIRED");
  Finds({kSettings + ":5: error: /tmp/client.cnf line 2: option ssl-mod is not known here: see " +
         "CLIENT OPTIONS in dbinfo.conf(5); nobody is asked for a login"});
}

}  // namespace
