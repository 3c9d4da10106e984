// `midtablectl setup` on a machine and a server that know nothing of the service yet.
#pragma once

#include "gmock/gmock.h"
#include "midtablectl/midtablectl_fixture.h"

inline const std::string kYearTables = paths::kYearTables;
inline const std::string kNothing = "\nNothing was changed.\n";

class SetupTest : public MidtablectlTest {
 protected:
  SetupTest() {
    Shell("find /vqlog /virus /etc/morvan /etc/systemd -mindepth 1 -delete; rm -f /tmp/admin.cnf");
    server.Run("set global local_infile = 1, innodb_flush_log_at_trx_commit = 1");
    for (const std::string& name : server.Run("show databases")) {
      if (name == "vqcfg" || name.starts_with("WLAN_")) server.Run("drop database `" + name + "`");
    }
    server.Run("drop user if exists reporter@'127.0.0.1', reporter@'%', poor@'%', boss@'%'");
  }

  // A run for a new login, by the server's root, who needs no password here.
  Outcome RunSetup(const Words& more = {"--yes", "--devices", "1a2b3c4d", "5e6f7a8b"}) const {
    Words arguments = {"setup", "--port", port, "--user", "reporter"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Midtablectl(arguments);
  }
  // Of the package's unit what `setup` looks at.
  static void InstallUnit() {
    fs::create_directories("/etc/systemd/system");
    WriteFile("/etc/systemd/system/midtable.service", "[Service]\nType=forking\n");
  }
  // Expects a run that ends with the line for the next step.
  static void ExpectReady(const Outcome& run) {
    EXPECT_TRUE(run.status == 0 && run.errors.empty()) << run;
    EXPECT_THAT(run.output, testing::EndsWith("\nmidtablectl check:\nNothing found.\n"
                                              "Next: systemctl enable --now midtable\n"));
  }
  // Expects that a run stopped before it changed anything, with these words first.
  void ExpectRefusal(const Outcome& run, const std::string& words, const Words& before) const {
    EXPECT_EQ(run.status, 2) << run;
    EXPECT_THAT(run.errors, testing::StartsWith(words));
    EXPECT_THAT(run.errors, testing::EndsWith(kNothing));
    EXPECT_EQ(State(), before);
  }

  // A login that may do this alone, with an option file that holds it.
  void MakeAdministrator(const std::string& privileges) const {
    server.Run("create or replace user poor@'%' identified by 'secret'; grant " + privileges +
               " to poor@'%'");
    WriteFile("/tmp/admin.cnf", "[client]\nuser=poor\npassword='secret'\n");
    fs::permissions("/tmp/admin.cnf", fs::perms(0600));
  }

  // All that a setup may make, with what would show a change.
  Words State() const {
    Words state = server.Run(
        "select concat_ws(' ', table_schema, table_name, create_time) from "
        "information_schema.tables where table_schema like 'WLAN%' or table_schema = 'vqcfg';"
        "select schema_name from information_schema.schemata;"
        "select concat(user, '@', host, authentication_string) from mysql.user;"
        "select concat(grantee, privilege_type) from information_schema.user_privileges;"
        "select concat(grantee, table_schema, privilege_type) from "
        "information_schema.schema_privileges");
    const Outcome files = Shell(
        "find /vqlog /virus /etc/morvan /etc/systemd -mindepth 1 -printf "
        "'%p %m %u %T@ %s\\n' | sort");
    state.push_back(files.output);
    return state;
  }
  static std::string Setting(const std::string& key) {
    CDBInfo settings(paths::kSettingsFile);
    EXPECT_TRUE(settings.readConfig());
    return settings.getValue(key);
  }
  // What the server says when the service's new login puts a statement; empty when it obeys.
  static std::string Refused(const std::string& statement) {
    CDBInfo settings(paths::kSettingsFile);
    EXPECT_TRUE(settings.readConfig());
    const auto sql = CreateSqlBase(ReadCredentials(settings));
    EXPECT_EQ(sql->connectDB(), 0) << sql->getLastError();
    if (sql->executeSQL(statement.c_str(), 0) == 0) return {};
    return sql->getLastError();
  }

  MariadbServer& server = MariadbServer::Get();
  const std::string port = std::to_string(server.Auth().port);
};
