// A real server, definitions that count rows by the file that brought them, and the delivery
// between it and the spool, on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "delivery/deaf_proxy.h"
#include "delivery/delivery.h"
#include "delivery/ledger.h"
#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

class DeliveryTest : public testing::Test {
 protected:
  static constexpr char kDb[] = "WLAN_1a2b3c4d";

  DeliveryTest() {
    std::filesystem::remove_all(paths::kSpool);
    std::filesystem::create_directories(kFolder);
    const MYSQLAUTH auth = server.Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password +
                                        "\ndbname0=mysql");
    // Left alone once they are there: a changed file is read after a second's rest.
    if (!Exists(paths::kDeviceStates)) {
      WriteFile(paths::kLocalNumberBlocks, "1380013\n");
      WriteFile(paths::kDeviceStates, "");
    }
    std::string drops;
    for (const std::string& name : server.Run("show databases like 'WLAN%'")) {
      drops += "drop database " + name + ";";
    }
    server.Run(drops + "set global read_only = 0, sql_mode = default");
    server.Run("create database WLAN_TUNE; create database " + std::string(kDb));
    server.MakeUser("service", "'secret'", "grant " + kRights + " on *.* to service");
    MakeYearTable();
    Define(kCreateMem, kConvert);
    g_loger.Init();
    s_log_begin = 0;
    s_log_begin = ReadLog().size();
  }
  ~DeliveryTest() override { Stop(); }

  void MakeYearTable() const {
    server.Run(std::string("create table ") + kDb +
               ".T_KIND1Y_A2012 (id int primary key, n int) engine=InnoDB");
  }

  // Mem tables of kinds A and F; a day and a year table of kind A, which counts rows by their id.
  static void Define(const std::string& create_mem, const std::string& convert) {
    const auto mid = [&convert](int number, const std::string& name, int digits) {
      const std::string tag = "MidTab" + std::to_string(number) + ">";
      const std::string date = digits == 4 ? "%.4s" : "%s";
      return "<" + tag + "<Always>1</Always><Name>" + name +
             "</Name><Create>create table %s (id int primary key, n int) engine=InnoDB</Create>" +
             "<Convert>insert into " + name + date + convert + "</Convert></" + tag;
    };
    WriteFile(paths::kMysqlDefinitions,
              "<root><Mem><MidCnt>2</MidCnt><MidTab1><Name>A</Name><Create>" + create_mem +
                  "</Create></MidTab1><MidTab2><Name>F</Name><Create>" + kCreateFlagged +
                  "</Create></MidTab2></Mem><Conv><A><MidCnt>2</MidCnt>" + mid(1, "T_KIND1D_A", 8) +
                  mid(2, "T_KIND1Y_A", 4) +
                  "</A><F><MidCnt>1</MidCnt><MidTab1><Always>1</Always><Name>T_FLAG1D_</Name>"
                  "<Create>create table %s (flag int primary key, n int) engine=InnoDB</Create>"
                  "<Convert>insert into T_FLAG1D_%s select flag, count(*) from %s group by 1 on "
                  "duplicate key update n = n + values(n)</Convert></MidTab1></F></Conv></root>");
  }

  // Puts a file of kind A into the folder, as a producer does.
  static std::string Drop(const std::string& time, const std::string& rows,
                          const std::string& kind = "A") {
    const std::string stem = kFolder + "1a2b3c4d-MEM_20121231_1000" + kind + "-20121231-" + time;
    WriteFile(stem + ".tmp", rows);
    std::filesystem::rename(stem + ".tmp", stem + ".dat");
    return stem;
  }

  // That of a user with the rights that the service needs and no more. With FAR_SERVER in the
  // environment the server is as far away as one for which the service has a road of its own.
  MYSQLAUTH Auth() const {
    MYSQLAUTH auth = server.Auth("mysql");
    auth.user = "service";
    if (far_line != nullptr) auth.port = far_line->port();
    return auth;
  }
  void Start() { Start(Auth()); }
  void Start(const MYSQLAUTH& auth) {
    g_nMainRun = 1;
    delivery = std::make_unique<Delivery>(auth, workers, kSilence);
    thread = std::thread([this] { delivery->Run(); });
  }
  void Stop() {
    g_nMainRun = 0;
    if (thread.joinable()) thread.join();
    delivery.reset();
  }
  // How long the service takes to end.
  std::chrono::milliseconds MeasureStop() {
    const auto begin = std::chrono::steady_clock::now();
    Stop();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 begin);
  }
  // Runs the delivery until `done`.
  void RunUntil(const std::function<bool()>& done) {
    Start();
    EXPECT_TRUE(Eventually(done)) << ReadLog();
    Stop();
  }
  static bool Eventually(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }
  static bool LogHas(const std::string& text) { return ReadLog().find(text) != std::string::npos; }
  static bool Exists(const std::string& path) { return std::filesystem::exists(path); }
  // What this test has logged.
  static std::string ReadLog() {
    g_loger.reopenfile();
    std::string text;
    for (const std::string& name : ListFolder(paths::kRunLogDir)) {
      text += ReadFile(paths::kRunLogDir + name);
    }
    return text.substr(s_log_begin);
  }

  // "id:n" of each row of the day table, which is that of the year table as well.
  std::vector<std::string> Counted() const {
    const std::string columns = "select concat(id, ':', n) from " + std::string(kDb);
    const auto day = server.Run(columns + ".T_KIND1D_A20121231 order by id");
    EXPECT_EQ(server.Run(columns + ".T_KIND1Y_A2012 order by id"), day);
    return day;
  }
  // As a killed service leaves it: in the middle of a batch, with a lock that the next one needs.
  void ExpectToEnd(Connection& old) {
    ASSERT_EQ(old.connectDB(), 0);
    ASSERT_TRUE(old.Claim(kDb));
    ASSERT_TRUE(old.Run("start transaction"));
    ASSERT_TRUE(old.Run("insert into WLAN_1a2b3c4d.T_KIND1Y_A2012 values (1, 100)"));
    const std::string stem = Drop("101500", "1\t10\n");
    const auto begin = std::chrono::steady_clock::now();
    RunUntil([&] { return Exists(stem + ".mid"); });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience / 2);
    EXPECT_THAT(Counted(), testing::ElementsAre("1:1"));
  }
  // What the server got since that mark; texts of several statements are taken apart.
  std::vector<std::string> Statements(std::size_t mark) const {
    const std::string separator = "\\n;";  // as the log shows it
    std::vector<std::string> statements;
    for (std::string text : server.Statements(mark)) {
      for (std::size_t end; (end = text.find(separator)) != std::string::npos;) {
        statements.push_back(text.substr(0, end));
        text.erase(0, end + separator.size());
      }
      statements.push_back(text);
    }
    return statements;
  }
  // How many loads there were before each commit, of all statements since that mark.
  std::vector<int> LoadsOfCommits(std::size_t mark) const {
    std::vector<int> loads;
    int open = 0;
    for (const std::string& text : Statements(mark)) {
      if (text.starts_with("load data")) ++open;
      if (text == "commit") loads.push_back(std::exchange(open, 0));
    }
    return loads;
  }
  // From now on an insert into the table fails, as MariaDB fails for that reason, for rows for
  // which the condition holds.
  void RefuseInserts(const std::string& table, const std::string& condition,
                     const std::string& failure) const {
    server.Run("delimiter //\ncreate trigger " + std::string(kDb) + ".refusal before insert on " +
               kDb + "." + table + " for each row if " + condition + " then signal " + failure +
               "; end if//");
  }
  void AllowInserts() const { server.Run("drop trigger " + std::string(kDb) + ".refusal"); }
  std::string RowsWaiting() const {
    return server.Run(std::string("select count(*) from ") + kDb + ".MEM_20121231_0000A").at(0);
  }

  std::unique_ptr<DeafProxy> MakeFarLine() const {
    if (getenv("FAR_SERVER") == nullptr) return nullptr;
    auto line = std::make_unique<DeafProxy>(server.Auth().port);
    line->SetDistance(kDistance);
    return line;
  }

  static constexpr std::chrono::milliseconds kDistance{8};
  static inline std::size_t s_log_begin = 0;
  static constexpr std::chrono::seconds kPatience{30};
  static constexpr std::chrono::seconds kSilence{1};
  // A stop takes about 0.6 s; a busy machine gets more. What it may not wait for takes longer.
  static constexpr std::chrono::milliseconds kStopLimit{3500};
  static inline const std::string kRights =
      "select, insert, update, delete, create, drop, alter, index";
  static inline const std::string kFolder = std::string(paths::kSpool) + "1a2b3c4d/";
  static inline const std::string kCreateMem =
      "create table %s (id int not null, v int not null) engine=InnoDB";
  static inline const std::string kConvert =
      " select id, count(*) from %s group by 1 on duplicate key update n = n + values(n)";
  static inline const std::string kCreateFlagged =
      "create table %s (a text, u int unsigned, c text, d text, e text, f text, g text, h text, i "
      "text, j text, k text, flag int) engine=InnoDB";

  MariadbServer& server = MariadbServer::Get();
  std::unique_ptr<DeafProxy> far_line = MakeFarLine();
  int workers = 1;
  std::unique_ptr<Delivery> delivery;
  std::thread thread;
};
