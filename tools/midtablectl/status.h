// What waits, what is done and what failed, for each database: for people, for scripts and for a
// monitoring system.
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
#include "midtablectl/held.h"
#include "midtablectl/server.h"
#include "midtablectl/spool_scan.h"
#include "midtablectl/state_file.h"

namespace ctl {

// What is known of one database at one moment.
struct DatabaseStatus {
  std::string database;
  int error = 0;  // errno when its folder could not be listed: only rows of tables are known
  std::uint64_t waiting = 0;
  // The service does not know the size of what waits, nor always the age of the oldest file.
  std::optional<std::uint64_t> waiting_bytes = 0;
  std::optional<std::int64_t> oldest_seconds = 0;  // 0 when nothing waits
  std::uint64_t loaded = 0;
  std::uint64_t failed = 0;  // .err whose rows are nowhere else
  // .err beside a .mid or .dat, .orig, and files that were set aside; the service does not know it.
  std::optional<std::uint64_t> kept = 0;
  // Of the .mid files that are still there; as the service tells it, since its start.
  std::optional<std::time_t> last_loaded;
  // The speed of the last minute: as the service tells it, or by the times at which files got their
  // .mid name.
  double files_per_second = 0;
  double rows_per_second = 0;
  std::optional<std::uint64_t> mem_rows;     // unknown without a server
  std::optional<std::uint64_t> ledger_rows;  // the same; there is none without delivery=once
  std::optional<double> seconds_to_empty;    // 0 when nothing waits; unknown while nothing moves
};

// A statement of the service that the server works on at the moment.
struct AtWork {
  std::string database;
  std::string seconds;
  std::string statement;
};

// One look at everything.
struct SystemStatus {
  std::time_t time = 0;
  bool running = false;      // somebody holds the service's lock
  long pid = 0;              // who, where that can be seen; else 0
  int spool_error = 0;       // errno when the spool could not be listed
  bool by_service = false;   // the service told the figures of the files
  std::string server_error;  // why the mem tables could not be looked at; empty when they were
  std::vector<DatabaseStatus> databases;
  bool once = false;  // the settings say delivery=once, and the rest is known
  std::vector<Held> held;
  std::string log_error;  // why what is held back could not be looked up
  std::vector<AtWork> at_work;
  std::vector<LoadingState> loading;  // as the service tells it
};

// Takes one look after another. What the running service tells of itself is believed; where it does
// not, the spool is looked at. The connection, and the numbers of rows in files that do not change
// any more, are kept between them.
class Observer {
 public:
  // Without settings the mem tables are not looked at, which is an error unless the service tells
  // the rest. `once`: the settings say delivery=once.
  explicit Observer(std::optional<MYSQLAUTH> auth, bool once = false)
      : m_auth(std::move(auth)), m_once(once) {}
  SystemStatus Look();
  // The login; nothing where there are no settings.
  const std::optional<MYSQLAUTH>& auth() const { return m_auth; }

 private:
  struct CountedFile {
    std::time_t
        loaded;  // when the file got its .mid name: another file of that name has another time
    std::uint64_t rows;
  };

  void LookAtSpool(SystemStatus& status);
  void TakeState(const ServiceState& state, SystemStatus& status);
  DatabaseStatus StatusOf(const DatabaseState& one, const ServiceState& state, std::time_t now);
  DatabaseStatus LookAt(const DatabaseFolder& folder, std::time_t now);
  void MeasureSpeed(const DatabaseFolder& folder, std::time_t now, DatabaseStatus& status);
  std::uint64_t RowsOf(const std::string& path, std::time_t loaded);
  void LookAtTables(SystemStatus& status);
  void LookAtWork(Server& server, SystemStatus& status);

  std::optional<MYSQLAUTH> m_auth;
  const bool m_once;
  std::unique_ptr<CSqlBase> m_sql;
  std::map<std::string, CountedFile> m_rows;  // of files loaded lately, by path
};

// The sums of all databases. A figure that is unknown of one database is unknown of all.
DatabaseStatus Total(const SystemStatus& status);

// How long the oldest file waits, for people: "-" when none waits, "?" when that is not known.
std::string Oldest(const DatabaseStatus& one);

// --- reports (status_report.cpp)

// As a table, with a line for each database and one for all. `first` is the first look of a watch:
// the bars show what was done since; null for a single look, which has no bars.
void PrintTable(const SystemStatus& status, const SystemStatus* first, Console& console);
// As a JSON object with the main fields of SystemStatus. What is unknown is null.
std::string ToJson(const SystemStatus& status);
// In the text exposition format, all figures being gauges. What is unknown has no sample.
std::string ToPrometheus(const SystemStatus& status);

struct StatusOptions {
  std::optional<int> watch_seconds;  // between two looks; nothing for a single look
  bool json = false;
  std::string prometheus;  // file to write
  std::string html;        // the same
  std::string settings;    // empty: the service's own
};

// Looks once, or again and again with `watch_seconds`, and prints or writes what it saw. Of a
// single look: kFindings when files failed or are held back, kCouldNotLook when the spool, a folder
// of it, the server or a file to be written could not be reached; what is known is shown all the
// same.
Status ShowStatus(const StatusOptions& options, Console& console);

}  // namespace ctl
