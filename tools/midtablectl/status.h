// What waits, what is done and what failed, for each database.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/dbinfo.h"
#include "db/SqlBase.h"
#include "midtablectl/console.h"
#include "midtablectl/spool_scan.h"

namespace ctl {

struct DatabaseStatus {
  std::string database;
  int error = 0;  // errno when its folder could not be listed: all but mem_rows is unknown
  std::uint64_t waiting = 0;
  std::uint64_t waiting_bytes = 0;
  std::int64_t oldest_seconds = 0;  // age of the oldest file that waits
  std::uint64_t loaded = 0;
  std::uint64_t failed = 0;  // .err, those kept beside a loaded file left out
  std::uint64_t kept = 0;    // the latter, .orig, and those set aside
  // Of the last minute, from the times at which files got their .mid name.
  double files_per_second = 0;
  double rows_per_second = 0;
  std::optional<std::uint64_t> mem_rows;   // unknown without a server
  std::optional<double> seconds_to_empty;  // 0 when nothing waits; unknown while nothing moves
};

struct SystemStatus {
  std::time_t time = 0;
  bool running = false;  // somebody holds the service's lock
  long pid = 0;          // who, where that can be seen; else 0
  int spool_error = 0;   // errno when the spool could not be listed
  std::string server_error;
  std::vector<DatabaseStatus> databases;
};

// Takes looks; keeps between them what need not be read again.
class Observer {
 public:
  // Without settings mem tables are not looked at.
  explicit Observer(std::optional<MYSQLAUTH> auth) : m_auth(std::move(auth)) {}
  SystemStatus Look();

 private:
  struct Counted {
    std::time_t loaded;
    std::uint64_t rows;
  };

  DatabaseStatus LookAt(const DatabaseFolder& folder, std::time_t now);
  std::uint64_t RowsOf(const std::string& path, std::time_t loaded);
  void LookAtMemTables(SystemStatus& status);

  std::optional<MYSQLAUTH> m_auth;
  std::unique_ptr<CSqlBase> m_sql;
  std::map<std::string, Counted> m_rows;  // of files loaded lately, by path
};

// --- reports (status_report.cpp)

// `first`: the first look of this watch, against which the bars grow; null for a single look.
void PrintTable(const SystemStatus& status, const SystemStatus* first, Console& console);
// One object with the main fields of SystemStatus; unknown ones are null.
std::string ToJson(const SystemStatus& status);
// The text exposition format, all gauges; unknown values have no sample.
std::string ToPrometheus(const SystemStatus& status);

struct StatusOptions {
  std::optional<int> watch_seconds;
  bool json = false;
  std::string prometheus;  // file to write
  std::string settings;    // empty: the service's own
};

// Looks once, or again and again with `watch_seconds`, and prints or writes what it saw. Of a
// single look: kFindings when files failed, kCouldNotLook when the spool, a folder of it, the
// server or the `prometheus` file could not be reached; what is known is shown all the same.
Status ShowStatus(const StatusOptions& options, Console& console);

}  // namespace ctl
