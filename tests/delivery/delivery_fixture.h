// A real server, definitions that count rows by the file that brought them, and the delivery
// between it and the spool, on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

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
    std::filesystem::remove_all(paths::kRunLogDir);
    const MYSQLAUTH auth = server.Auth();
    WriteFile(paths::kSettingsFile, "host=" + auth.host + "\nport=" + std::to_string(auth.port) +
                                        "\nuser=" + auth.user + "\npassword=" + auth.password +
                                        "\ndbname0=mysql");
    WriteFile(paths::kLocalNumberBlocks, "1380013\n");
    WriteFile(paths::kDeviceStates, "");
    for (const std::string& name : server.Run("show databases like 'WLAN%'")) {
      server.Run("drop database " + name);
    }
    server.Run("create database WLAN_TUNE; create database " + std::string(kDb));
    server.Run(std::string("create table ") + kDb +
               ".T_KIND1Y_A2012 (id int primary key, n int) engine=InnoDB");
    Define(kCreateMem, kConvert);
    g_loger.Init();
  }
  ~DeliveryTest() override { Stop(); }

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

  void Start() {
    g_nMainRun = 1;
    delivery = std::make_unique<Delivery>(server.Auth("mysql"));
    thread = std::thread([this] { delivery->Run(); });
  }
  void Stop() {
    g_nMainRun = 0;
    if (thread.joinable()) thread.join();
    delivery.reset();
  }
  // Runs the delivery until `done`, for ten seconds at most.
  void RunUntil(const std::function<bool()>& done) {
    Start();
    EXPECT_TRUE(Eventually(done)) << ReadLog();
    Stop();
  }
  static bool Eventually(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }
  static bool Exists(const std::string& path) { return std::filesystem::exists(path); }
  static std::string ReadLog() {
    g_loger.reopenfile();
    std::string text;
    for (const std::string& name : ListFolder(paths::kRunLogDir)) {
      text += ReadFile(paths::kRunLogDir + name);
    }
    return text;
  }

  // "id:n" of each row of the day table, which is that of the year table as well.
  std::vector<std::string> Counted() const {
    const std::string columns = "select concat(id, ':', n) from " + std::string(kDb);
    const auto day = server.Run(columns + ".T_KIND1D_A20121231 order by id");
    EXPECT_EQ(server.Run(columns + ".T_KIND1Y_A2012 order by id"), day);
    return day;
  }
  std::string RowsWaiting() const {
    return server.Run(std::string("select count(*) from ") + kDb + ".MEM_20121231_0000A").at(0);
  }

  static inline const std::string kFolder = std::string(paths::kSpool) + "1a2b3c4d/";
  static inline const std::string kCreateMem =
      "create table %s (id int not null, v int not null) engine=InnoDB";
  static inline const std::string kConvert =
      " select id, count(*) from %s group by 1 on duplicate key update n = n + values(n)";
  static inline const std::string kCreateFlagged =
      "create table %s (a text, u int unsigned, c text, d text, e text, f text, g text, h text, i "
      "text, j text, k text, flag int) engine=InnoDB";

  MariadbServer& server = MariadbServer::Get();
  std::unique_ptr<Delivery> delivery;
  std::thread thread;
};
