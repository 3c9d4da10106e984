// The built midtablectl in a sandbox. Each case begins with an installation that is in order, puts
// something out of order, runs the program and compares all that it prints.
#pragma once

#include <sys/stat.h>
#include <sys/wait.h>

#include <ctime>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "db/SqlFactory.h"
#include "support/paths.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

// --- runs of the program

// How a run ended and what it printed.
struct Outcome {
  int status;
  std::string output;
  std::string errors = {};

  bool operator==(const Outcome&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Outcome& run) {
    return out << "status " << run.status << "\n" << run.output << "errors:\n" << run.errors;
  }
};

// Runs a command of the shell, where nobody can answer a question.
inline Outcome Shell(const std::string& command) {
  const int status = system(("(" + command + ") </dev/null >/tmp/output 2>/tmp/errors").c_str());
  return {WEXITSTATUS(status), ReadFile("/tmp/output"), ReadFile("/tmp/errors")};
}

inline Outcome Midtablectl(const Words& arguments) {
  std::string command = MIDTABLECTL;
  for (const std::string& word : arguments) command += " '" + word + "'";
  return Shell(command);
}

// The samples of a look, as the file for a collector has them.
inline std::string Samples() {
  const std::string path = "/tmp/metrics/midtable.prom";
  fs::create_directories("/tmp/metrics");
  fs::remove(path);
  Midtablectl({"status", "--prometheus", path});
  return std::regex_replace(ReadFile(path), std::regex("#.*\n"), "");
}

// Runs the program at a terminal, which shows output and errors, until it puts a question. Then the
// commands are run, and the answer is yes.
inline Outcome AnswerYes(const std::string& arguments, const std::string& commands = "true") {
  const std::string await = "timeout 30 sh -c 'until grep -q y/N /tmp/shown; do sleep 0.02; done'";
  const std::string answer = "(" + await + " 2>/dev/null; " + commands + "; echo y)";
  Outcome run = Shell("rm -f /tmp/shown; " + answer + " | script -qfec '" MIDTABLECTL " " +
                      arguments + "' /tmp/shown");
  std::erase(run.output, '\r');
  return run;
}

// --- the installation

inline const std::string kSettings = paths::kSettingsFile;
inline const std::string kDefinitions = paths::kMysqlDefinitions;
inline const std::string kOracleDefinitions = paths::kOracleDefinitions;
inline const std::string kTemplates = paths::kLoaderTemplates;
inline const std::string kBlocks = paths::kLocalNumberBlocks;
inline const std::string kDevices = paths::kDeviceStates;
inline const std::string kRunLog = paths::kRunLogDir;
// The spool, the folder of a database, two mem files in it without their endings, another folder.
inline const std::string kSpool = paths::kSpool;
inline const std::string kFolder = kSpool + "1a2b3c4d/";
inline const std::string kFile = kFolder + "1a2b3c4d-MEM_20121230_0800F-20121230-080000";
inline const std::string kSecondFile = kFolder + "1a2b3c4d-MEM_20121230_0900F-20121230-090000";
inline const std::string kOtherFolder = kSpool + "5e6f7a8b/";

inline constexpr char kSettingsInOrder[] = R"(host=127.0.0.1
port=3306
user=midtable
password=secret
dbtype=mysql
dbname0=vqcfg
)";

// One kind, with a day, a month and a year table.
inline constexpr char kDefinitionsInOrder[] = R"(<root>
<Mem><MidCnt>1</MidCnt>
<MidTab1><Name>F</Name>
<Create>create table %s (a int primary key, b int, c int, d int, e int, f int, g int, h int,
  i int, j int, k int, l int) engine = InnoDB</Create></MidTab1>
</Mem>
<Conv>
<F><MidCnt>3</MidCnt>
<MidTab1><Always>1</Always><Name>T_FLOW1D_</Name>
<Create>create table %s (hour int primary key, n int) engine = InnoDB</Create>
<Convert>insert into T_FLOW1D_%s select c, 1 from %s on duplicate key update n = n + 1</Convert>
<Convert1>insert into T_FLOW1D_%s (hour) select c from %s</Convert1></MidTab1>
<MidTab2><Always>1</Always><Name>T_FLOW1M_</Name>
<Create>create table if not exists %s (day int primary key, n int) engine = InnoDB</Create>
<Convert>insert into T_FLOW1M_%.6s select d, 1 from %s on duplicate key update n = n + 1</Convert>
<Convert1>insert into T_FLOW1M_%.6s (day) select d from %s</Convert1></MidTab2>
<MidTab3><Always>1</Always><Name>T_FLOW1Y_</Name>
<Convert>insert into T_FLOW1Y_%.4s select e, 1 from %s on duplicate key update n = n + 1</Convert>
</MidTab3>
</F>
</Conv>
</root>
)";

// Puts `by` in the place of the first `part` of a file.
inline void Replace(const std::string& path, const std::string& part, const std::string& by) {
  std::string content = ReadFile(path);
  const std::size_t at = content.find(part);
  ASSERT_NE(at, std::string::npos) << part << " is not in " << path;
  WriteFile(path, content.replace(at, part.size(), by));
}

inline std::string FormatTime(std::time_t time, const char* form) {
  std::ostringstream text;
  text << std::put_time(std::localtime(&time), form);
  return text.str();
}

inline std::string Today() { return FormatTime(std::time(nullptr), "%Y%m%d"); }
// This year, or one before or after it.
inline std::string Year(int ahead) {
  return std::to_string(std::stoi(Today().substr(0, 4)) + ahead);
}

// Adds to the run log what the service writes, now or some days ago; the line as why shows it.
inline std::string Log(const std::string& unit, const std::string& level, const std::string& text,
                       int days_ago = 0, const std::string& suffix = "") {
  const std::time_t now = std::time(nullptr);
  const std::string day = FormatTime(now - days_ago * 86'400, "%Y%m%d");
  const std::string rest = FormatTime(now, "][%H:%M:%S][") + level + "]:" + text + "\n";
  std::ofstream(kRunLog + day + ".log" + suffix, std::ios::app) << "[" << unit << ":17" << rest;
  return "[" + unit + rest;
}
// --- tables of cases: what puts something out of order, and what is printed then

using Step = std::function<void()>;

inline Step Edit(const std::string& path, const std::string& part, const std::string& by) {
  return [=] { Replace(path, part, by); };
}
inline Step Write(const std::string& path, const std::string& content = "") {
  return [=] { WriteFile(path, content); };
}
inline Step MakeFolder(const std::string& path) {
  return [=] { fs::create_directory(path); };
}
inline Step SetMode(const std::string& path, unsigned mode) {
  return [=] { fs::permissions(path, fs::perms(mode)); };
}
inline Step Sql(const std::string& statement) {
  return [=] { MariadbServer::Get().Run(statement); };
}

// A name for the test, the steps, and all lines that are printed then.
struct Case {
  template <typename... Lines>
  Case(const char* case_name, std::vector<Step> all_steps, Lines... all_lines)
      : name(case_name), steps(std::move(all_steps)), lines{all_lines...} {}
  friend void PrintTo(const Case& one, std::ostream* out) { *out << one.name; }
  void SetUp() const {
    for (const Step& step : steps) step();
  }

  std::string name;
  std::vector<Step> steps;
  Words lines;
};
inline constexpr auto kNameOfCase = [](const auto& test) { return test.param.name; };

// An installation on MySQL; no server is asked.
class MidtablectlTest : public testing::Test {
 protected:
  MidtablectlTest() {
    umask(077);  // what the program makes for others has its mode from the program alone
    Shell(
        "folders='/vqlog /virus /etc/morvan'; chmod -R u+rwX $folders;"
        "find $folders -mindepth 1 -delete; rm -rf /tmp/metrics /tmp/mem_table_f.flag");
    fs::create_directories(kFolder);
    fs::create_directories(kRunLog);
    WriteFile(kSettings, kSettingsInOrder);
    WriteFile(kDefinitions, kDefinitionsInOrder);
    WriteFile(kTemplates, "<root/>\n");
    WriteFile(kBlocks, "1380013,Hangzhou\n");
    WriteFile(kDevices, "[1a2b3c4d]\ncity = Hangzhou\n");
  }
};

// An installation on a server where all is as it should be.
class MidtablectlServerTest : public MidtablectlTest {
 protected:
  MidtablectlServerTest() {
    Replace(kSettings, "port=3306", "port=" + port);
    server.MakeDatabases({"vqcfg", "WLAN_TUNE", "WLAN_1a2b3c4d"});
    server.Run(
        "set global read_only = 0; set global sql_mode = default;"
        "set global default_storage_engine = default;"
        "create table vqcfg.EnterpriseUser (crc int unsigned primary key, name varchar(64));"
        "create table vqcfg.probe (n int);" +
        YearTable(0) + YearTable(1));
  }

  static std::string YearTable(int ahead) {
    return "create table WLAN_1a2b3c4d.T_FLOW1Y_" + Year(ahead) +
           " (month int primary key, n int) engine = InnoDB;";
  }

  // What the server itself says when it refuses the login of the settings, or this to their user.
  static std::string WordsOn(const std::string& statement = "") {
    CDBInfo values(paths::kSettingsFile);
    EXPECT_TRUE(values.readConfig());
    const auto sql = CreateSqlBase(ReadCredentials(values));
    EXPECT_TRUE(sql->connectDB() != 0 || sql->executeSQL(statement.c_str(), 0) != 0) << statement;
    const std::string error = sql->getLastError();
    const std::string before = " failed, error:";
    return error.substr(error.rfind(before) + before.size());
  }
  // "PORT" in a line stands for the server's, and a statement in braces for its words on that.
  Words WithWords(Words lines) const {
    for (std::string& line : lines) {
      line = std::regex_replace(line, std::regex("PORT"), port);
      const std::size_t open = line.find('{');
      const std::size_t close = line.find('}');
      if (close == std::string::npos) continue;
      line.replace(open, close + 1 - open, WordsOn(line.substr(open + 1, close - open - 1)));
    }
    return lines;
  }

  MariadbServer& server = MariadbServer::Get();
  const std::string port = std::to_string(server.Auth().port);
};
