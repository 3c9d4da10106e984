// Encrypted connections: to whom the login is sent and to whom not, what is said of each that is
// refused, and waiting over such a connection.
#include <algorithm>
#include <chrono>
#include <regex>
#include <thread>

#include "db/back_end_fixture.h"
#include "delivery/deaf_proxy.h"
#include "log/zux_center_log.h"
#include "support/run_state.h"
#include "testing/certificates.h"
#include "testing/frozen_server.h"

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

namespace {

using certificates::File;
using certificates::KeyFile;

const std::string kOptions = "/tmp/client.cnf";

// On a server that offers TLS, with the certificate "good" unless a case says otherwise.
class Tls : public BackEndTest {
 protected:
  Tls() : BackEndTest(kMysql) {
    m_auth.client_options = kOptions;
    Present("good");
    m_server.Run("truncate table mysql.general_log");  // long statements would take their time
  }
  static void SetUpTestSuite() {
    certificates::Make();
    certificates::PutInUse("good");
    MariadbServer::Get().Kill();
    MariadbServer::Get().Start(certificates::ServerOptions());
  }
  static void TearDownTestSuite() {
    MariadbServer::Get().Kill();
    MariadbServer::Get().Start();
  }

  // The server shows this certificate from now on.
  void Present(const std::string& name) const {
    certificates::PutInUse(name);
    MariadbServer::Get().ReloadCertificates();
  }
  // Connects with these lines in the group, and tells with what.
  int ConnectWith(const std::string& lines) {
    WriteFile(kOptions, "[midtable]\n" + lines + "\n");
    m_sql = CreateSqlBase(m_auth);
    return m_sql->connectDB();
  }
  // The cipher of a connection with these lines; empty where it is in the clear.
  std::string Cipher(const std::string& lines) {
    EXPECT_EQ(0, ConnectWith(lines)) << m_sql->getLastError();
    return Value("show session status like 'Ssl_cipher'");
  }
  // Logins that the server was sent, whatever became of them.
  std::string Logins() const {
    MariadbServer::Get().Mark();  // the log is to be a table
    return m_server
        .Run(
            "select count(*) from mysql.general_log where command_type = 'Connect' and argument "
            "like 'midtable%'")
        .at(0);
  }

  const std::string kAuthority = "ssl-ca=" + File("authority");
};

// --- whom the login is sent to

struct Server {
  const char* name;
  const char* certificate;
  const char* lines;  // %s is the certificates' folder
  const char* remedy;
  friend void PrintTo(const Server& server, std::ostream* out) { *out << server.name; }
};
class RefusedServer : public Tls, public testing::WithParamInterface<Server> {};

TEST_P(RefusedServer, IsSentNoLoginAndTheErrorHasCauseAndRemedy) {
  if (std::string_view(GetParam().certificate) == "expired" && MariadbServer::Get().IsMysql()) {
    GTEST_SKIP() << "it does not put such a certificate in use";
  }
  // Newer client libraries compare no names for 127.0.0.1; this is another way to write it.
  m_auth.host = "127.1";
  Present(GetParam().certificate);
  const std::string logins = Logins();
  EXPECT_EQ(
      -1, ConnectWith(std::regex_replace(GetParam().lines, std::regex("%s"), "/tmp/certificates")));
  EXPECT_EQ(SqlFailure::kConnection, m_sql->lastFailure());
  EXPECT_THAT(m_sql->getLastError(),
              testing::AllOf(testing::StartsWith("connect failed, error:TLS/SSL error: "),
                             testing::EndsWith(std::string("; ") + GetParam().remedy)));
  EXPECT_EQ(logins, Logins());
}

constexpr char kUntrusted[] =
    "its certificate is from an authority that is not trusted here: name the authority's file with "
    "ssl-ca, or give the certificate's fingerprint as ssl-fp";

INSTANTIATE_TEST_SUITE_P(
    With, RefusedServer,
    testing::Values(
        Server{"AnotherName", "other-name", "ssl-ca=%s/authority.pem",
               "its certificate is for another name: write host as the certificate has it, have "
               "one made for this host, or give its fingerprint as ssl-fp"},
        Server{
            "ACertificateThatHasExpired", "expired", "ssl-ca=%s/authority.pem",
            "renew the server's certificate and restart the server, or set this machine's clock"},
        Server{"NoAuthority", "stranger", "ssl-ca=%s/authority.pem", kUntrusted},
        Server{"AnotherAuthority", "good", "ssl-ca=%s/stranger.pem", kUntrusted},
        Server{"AnAuthorityThatThisMachineDoesNotTrust", "good", "ssl", kUntrusted},
        Server{"AnotherFingerprint", "good", "ssl-fp=00112233445566778899aabbccddeeff00112233",
               "it has another certificate than the one of ssl-fp: see whether it was renewed, or "
               "whether somebody is in between"}),
    [](const auto& test) { return test.param.name; });

TEST_F(Tls, AServerThatProvesWhoItIsIsSpokenToInCipher) {
  const std::string logins = Logins();
  for (const std::string& lines :
       {kAuthority, kAuthority + "\nssl-mode=REQUIRED", kAuthority + "\nssl-verify-server-cert",
        kAuthority + "\ncompress\ntls-version=TLSv1.2",
        "ssl-fp=" + certificates::Fingerprint("good")}) {
    EXPECT_NE("", Cipher(lines)) << lines;
  }
  EXPECT_NE(logins, Logins()) << "the server's log has them";
  Present("stranger");
  EXPECT_NE("", Cipher("ssl-fp=" + certificates::Fingerprint("stranger"))) << "it is enough";
}

TEST_F(Tls, AServerWithoutTlsHearsNothing) {
  DeafProxy proxy(m_auth.port);
  proxy.HideTls();
  m_auth.port = proxy.port();
  for (const std::string& lines :
       {std::string("ssl"), kAuthority, std::string("ssl-verify-server-cert"),
        std::string("ssl-mode=REQUIRED"), std::string("ssl-cipher=AES128-SHA"),
        std::string("tls-version=TLSv1.3"), "ssl-fp=" + certificates::Fingerprint("good")}) {
    EXPECT_EQ(-1, ConnectWith(lines)) << lines;
    EXPECT_THAT(m_sql->getLastError(),
                HasSubstr("SSL is required, but the server does not support it; it was sent no "
                          "login: give the server a certificate"));
  }
  EXPECT_EQ("", proxy.Heard());
  EXPECT_EQ(0, ConnectWith("skip-ssl"));
  EXPECT_THAT(proxy.Heard(), HasSubstr("midtable")) << "the proxy has ears";
}

TEST_F(Tls, WhoListensLearnsNeitherUserNorStatement) {
  DeafProxy proxy(m_auth.port);
  m_auth.port = proxy.port();
  EXPECT_NE("", Cipher(kAuthority));
  EXPECT_EQ("passphrase", Value("select 'passphrase'"));
  EXPECT_THAT(proxy.Heard(), Not(testing::AnyOf(HasSubstr("midtable"), HasSubstr("passphrase"))));
  EXPECT_EQ("", Cipher("skip-ssl"));
  EXPECT_EQ("passphrase", Value("select 'passphrase'"));
  EXPECT_THAT(proxy.Heard(), testing::AllOf(HasSubstr("midtable"), HasSubstr("passphrase")));
}

// --- what a server demands

TEST_F(Tls, AServerMayDemandTls) {
  MariadbServer::Get().MakeUser("plain", "'p' require ssl");
  m_auth.user = "plain";
  m_auth.password = "p";
  EXPECT_EQ(-1, ConnectWith("skip-ssl"));
  EXPECT_THAT(m_sql->getLastError(),
              testing::AllOf(HasSubstr("Access denied for user 'plain'"),
                             HasSubstr("; user or password is wrong, or the server takes this "
                                       "login over TLS only: see CLIENT OPTIONS")));
  m_server.Run("grant all on alpha.* to plain");
  EXPECT_EQ(0, ConnectWith(kAuthority)) << m_sql->getLastError();
}

TEST_F(Tls, AServerMayDemandACertificate) {
  MariadbServer::Get().MakeUser("plain", "'p' require x509", "grant all on alpha.* to plain");
  m_auth.user = "plain";
  m_auth.password = "p";
  EXPECT_EQ(-1, ConnectWith(kAuthority));
  const std::string certificate = kAuthority + "\nssl-cert=" + File("client") + "\nssl-key=";
  EXPECT_EQ(0, ConnectWith(certificate + KeyFile("client"))) << m_sql->getLastError();
}

// --- waiting

// More than the system takes for a server that does not read.
const std::string kLong = "select length('" + std::string(12'000'000, 'x') + "') as v";

TEST_F(Tls, WhatAServerHadNoTimeForIsSentWhenItHas) {
  EXPECT_EQ(0, ConnectWith(kAuthority)) << m_sql->getLastError();
  const CapturedStdout long_traces;
  auto frozen = std::make_unique<FrozenServer>(MariadbServer::Get());
  std::thread thaw([&frozen] {
    std::this_thread::sleep_for(milliseconds(2000));
    frozen.reset();
  });
  EXPECT_EQ("12000000", Value(kLong));
  thaw.join();
}

TEST_F(Tls, AStopEndsTheSending) {
  EXPECT_EQ(0, ConnectWith(kAuthority)) << m_sql->getLastError();
  const CapturedStdout long_traces;
  const FrozenServer frozen(MariadbServer::Get());
  std::thread stop([] {
    std::this_thread::sleep_for(milliseconds(1000));
    g_nMainRun = 0;
  });
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(-1, m_sql->fetchRecordSet(kLong.c_str(), m_rows));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, milliseconds(3500));
  EXPECT_THAT(m_sql->getLastError(), HasSubstr("stopped while waiting for the server"));
  stop.join();
  g_nMainRun = 1;
}

TEST_F(Tls, AConnectIsGivenUpAfterItsTimeOut) {
  const FrozenServer frozen(MariadbServer::Get());
  EXPECT_EQ(-1, ConnectWith(kAuthority + "\nconnect-timeout=1"));
  EXPECT_THAT(m_sql->getLastError(), HasSubstr("no answer from the server within 1 s"));
}

}  // namespace
