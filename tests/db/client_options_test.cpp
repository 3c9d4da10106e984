// Which client options are followed and which refused; no server is asked.
#include "db/client_options.h"

#include "gmock/gmock.h"
#include "testing/files.h"

using testing::HasSubstr;

namespace {

const std::string kFile = "/tmp/client.cnf";

// What reading the group with these lines comes to: its error, empty for none.
std::string ErrorOf(ClientOptions& options, const std::string& lines) {
  WriteFile(kFile, "[midtable]\n" + lines);
  const bool read = options.Read(kFile);
  EXPECT_EQ(read, options.error().empty());
  return options.error();
}

TEST(ClientOptions, AnyWordAboutTlsDemandsItAndNoOtherDoes) {
  for (const char* lines :
       {"ssl", "ssl=1", "ssl=ON", "ssl-mode=required", "ssl-mode=VERIFY_CA",
        "ssl-mode=VERIFY_IDENTITY", "ssl-verify-server-cert", "ssl_verify_server_cert=1",
        "ssl-ca=/etc/passwd", "ssl-capath=/etc", "ssl-cert=/etc/passwd", "ssl-key=/etc/passwd",
        "ssl-crl=/etc/passwd", "ssl-cipher=AES128-SHA",
        "ssl-fp=00112233445566778899aAbBcCdDeEfF00:11:22:33", "tls-version=TLSv1.3",
        "tls-version=TLSv1.2,TLSv1.3", "skip-ssl\nssl"}) {
    ClientOptions options;
    EXPECT_EQ(ErrorOf(options, lines), "");
    EXPECT_TRUE(options.DemandsTls()) << lines;
  }
  for (const char* lines : {"", "compress", "connect-timeout=3", "ssl=0", "skip-ssl",
                            "ssl-mode=DISABLED", "ssl-ca=/etc/passwd\nssl=off"}) {
    ClientOptions options;
    EXPECT_EQ(ErrorOf(options, lines), "");
    EXPECT_FALSE(options.DemandsTls()) << lines;
  }
}

TEST(ClientOptions, WhatCannotBeFollowedIsRefusedWithItsPlace) {
  const std::pair<const char*, const char*> cases[] = {
      {"ssl-mod=REQUIRED", "option ssl-mod is not known here"},
      {"ssl=maybe", "option ssl takes 1 or 0"},
      {"ssl-mode=PREFERRED", "option ssl-mode takes VERIFY_IDENTITY or DISABLED"},
      {"ssl-verify-server-cert=0", "option ssl-verify-server-cert=0 is refused, since any server"},
      {"skip-ssl-verify-server-cert", "option skip-ssl-verify-server-cert is refused, since any"},
      {"ssl-ca=", "option ssl-ca needs a value"},
      {"ssl-ca=/none", "option ssl-ca: /none: No such file"},
      {"tls-version=TLSv1.1", "option tls-version takes TLSv1.2, TLSv1.3, or both"},
      {"tls-version=TLSv1.2,", "option tls-version takes TLSv1.2, TLSv1.3, or both"},
      {"ssl-fp=00:11", "option ssl-fp takes the 40 hexadecimal digits"},
      {"protocol=pipe", "option protocol takes tcp or socket"},
      {"read-timeout=0", "option read-timeout takes a number from 1 to 86400"},
      {"connect-timeout=5s", "option connect-timeout takes a number from 1"},
      {"port=65536", "option port takes a number from 1 to 65535"}};
  for (const auto& [line, error] : cases) {
    ClientOptions options;
    EXPECT_THAT(ErrorOf(options, std::string("compress\n") + line),
                HasSubstr(kFile + " line 3: " + error));
  }
}

TEST(ClientOptions, AFileThatIsNamedMustHaveTheGroupAndBeReadable) {
  const std::pair<const char*, const char*> cases[] = {
      {"[client]\nssl\n", " has no group [midtable], and no other is read"},
      {"[midtable]\n!includedir /etc/passwd\n", " includes /etc/passwd: Not a directory"}};
  for (const auto& [content, error] : cases) {
    WriteFile(kFile, content);
    ClientOptions options;
    EXPECT_FALSE(options.Read(kFile));
    EXPECT_EQ(options.error(), "client_options " + kFile + error);
  }
  ClientOptions missing;
  EXPECT_FALSE(missing.Read("/tmp/none.cnf"));
  EXPECT_EQ(missing.error(), "client_options /tmp/none.cnf: No such file or directory");
}

TEST(ClientOptions, TheSettingsOwnKeysWin) {
  ClientOptions options;
  EXPECT_EQ(ErrorOf(options, "host=h\nport=7\nuser=u\npassword=p"), "");
  MYSQLAUTH whole;
  whole.host = whole.user = whole.password = "own";
  whole.port = 3306;
  MYSQLAUTH empty;
  empty.port = -1;
  for (MYSQLAUTH* const auth : {&whole, &empty}) options.Complete(*auth);
  EXPECT_EQ(whole.host + whole.user + whole.password, "ownownown");
  EXPECT_EQ(whole.port, 3306);
  EXPECT_EQ(empty.host + empty.user + empty.password, "hup");
  EXPECT_EQ(empty.port, 7);
}

}  // namespace
