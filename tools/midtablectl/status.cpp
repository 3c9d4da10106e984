// Looking. The figures of files come from their names, sizes and times; only the rows of files that
// were loaded lately are counted, so that a look stays cheap however much lies in the spool.
#include "midtablectl/status.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "db/SqlFactory.h"
#include "log/zux_center_log.h"
#include "midtablectl/page/page.h"
#include "midtablectl/text.h"
#include "support/file.h"
#include "support/paths.h"

namespace ctl {

namespace {

// What the service itself calls its ledger in each database (delivery=once).
constexpr char kLedgerTable[] = "midtable_ledger";

// The speed of a minute covers several passes and still shows a service that has come to a stand.
constexpr std::time_t kRateSeconds = 60;

// With the settings, or with none when they cannot be used.
Observer MakeObserver(const std::string& path) {
  CDBInfo settings(path.c_str());
  if (!settings.readConfig()) return Observer(std::nullopt);
  return Observer(ReadCredentials(settings), settings.getValue("delivery") == kDeliveryOnce);
}

// The files that are wanted. False, after a line, when one could not be written.
bool WriteFiles(const StatusOptions& options, const SystemStatus& look, const Observer& observer,
                Console& console) {
  const auto told = [&console](const std::string& path, bool written) {
    if (!written) console.err << OneLine(path) << ": " << std::strerror(errno) << '\n';
    return written;
  };
  return (options.prometheus.empty() ||
          told(options.prometheus, ReplaceFile(options.prometheus, ToPrometheus(look), 0644))) &&
         (options.html.empty() ||
          told(options.html, WritePage(options.html, look, observer.auth(), console)));
}

// The exit status of a look, and a line for each thing that could not be looked at.
Status StatusOf(const SystemStatus& look, Console& console) {
  if (look.spool_error != 0) {
    console.err << paths::kSpool << ": " << std::strerror(look.spool_error) << '\n';
    return Status::kCouldNotLook;
  }
  Status status = Status::kFine;
  for (const DatabaseStatus& one : look.databases) {
    if (one.failed > 0) status = std::max(status, Status::kFindings);
    if (one.error == 0) continue;
    console.err << "folder of " << one.database << ": " << std::strerror(one.error) << '\n';
    status = Status::kCouldNotLook;
  }
  if (!look.held.empty()) status = std::max(status, Status::kFindings);
  if (!look.log_error.empty()) {
    console.err << "run log not looked at: " << OneLine(look.log_error) << '\n';
    status = Status::kCouldNotLook;
  }
  if (!look.server_error.empty()) {
    console.err << "mem tables not looked at: " << OneLine(look.server_error) << '\n';
    status = Status::kCouldNotLook;
  }
  return status;
}

// The kept files are told apart from the failed ones: their rows are loaded or wait under another
// name, so nobody has to do anything about them.
void CountFiles(const DatabaseFolder& folder, std::time_t now, DatabaseStatus& status) {
  std::time_t oldest = now;
  for (const SpoolEntry& file : folder.files) {
    switch (file.state) {
      case FileState::kWaiting:
        ++status.waiting;
        *status.waiting_bytes += static_cast<std::uint64_t>(file.status.st_size);
        oldest = std::min(oldest, file.status.st_mtime);
        break;
      case FileState::kLoaded:
        ++status.loaded;
        // Its rename to .mid was the last change of it.
        status.last_loaded = std::max(status.last_loaded.value_or(0), file.status.st_ctime);
        break;
      case FileState::kFailed:
        ++status.failed;
        break;
      case FileState::kKept:
      case FileState::kSetAside:
        ++*status.kept;
        break;
      case FileState::kOther:
        break;
    }
  }
  status.oldest_seconds = now - oldest;
}

}  // namespace

void Observer::MeasureSpeed(const DatabaseFolder& folder, std::time_t now, DatabaseStatus& status) {
  std::time_t first = now;
  std::uint64_t files = 0;
  std::uint64_t rows = 0;
  for (const SpoolEntry& file : folder.files) {
    const std::time_t loaded = file.status.st_ctime;
    if (file.state != FileState::kLoaded || loaded + kRateSeconds < now || !file.IsRegular()) {
      continue;
    }
    ++files;
    rows += RowsOf(folder.Path() + file.name, loaded);
    first = std::min(first, loaded);
  }
  // From the first of these files on: a service that has just been started is not taken for slow.
  const auto span = static_cast<double>(std::max<std::time_t>(now - first, 1));
  status.files_per_second = static_cast<double>(files) / span;
  status.rows_per_second = static_cast<double>(rows) / span;
  if (status.waiting == 0) {
    status.seconds_to_empty = 0;
  } else if (files > 0) {
    status.seconds_to_empty = static_cast<double>(status.waiting) / status.files_per_second;
  }
}

SystemStatus Observer::Look() {
  SystemStatus status;
  status.time = std::time(nullptr);
  const ServiceLock lock = LookAtServiceLock();
  status.running = lock.held;
  status.pid = lock.pid;
  const auto state = status.running ? ReadRunningState(status.pid) : std::nullopt;
  if (state) {
    TakeState(*state, status);
  } else {
    LookAtSpool(status);
  }
  LookAtTables(status);
  return status;
}

void Observer::LookAtSpool(SystemStatus& status) {
  const Spool spool = ScanSpool();
  status.spool_error = spool.error;
  for (const DatabaseFolder& folder : spool.folders) {
    status.databases.push_back(LookAt(folder, status.time));
  }
  // A watch may run for weeks: files that no longer count for the speed are forgotten.
  std::erase_if(m_rows, [&status](const auto& entry) {
    return entry.second.loaded + kRateSeconds < status.time;
  });
  status.once = m_once;
  if (m_once) status.held = HeldBack(status.time, status.log_error);
}

// A folder that cannot be listed has no figures at all. Zeros would look like an empty folder.
DatabaseStatus Observer::LookAt(const DatabaseFolder& folder, std::time_t now) {
  DatabaseStatus status;
  status.database = folder.Database();
  status.error = folder.error;
  if (status.error != 0) return status;
  CountFiles(folder, now, status);
  MeasureSpeed(folder, now, status);
  return status;
}

// The lines of a loaded file. Its content never changes again, so it is read once.
std::uint64_t Observer::RowsOf(const std::string& path, std::time_t loaded) {
  const auto known = m_rows.find(path);
  if (known != m_rows.end() && known->second.loaded == loaded) return known->second.rows;
  const std::uint64_t rows = CountRows(path);
  m_rows.insert_or_assign(path, CountedFile{loaded, rows});
  return rows;
}

// The mem tables and the ledgers.
void Observer::LookAtTables(SystemStatus& status) {
  if (!m_auth && status.by_service) return;
  if (!m_auth) {
    status.server_error = "the settings cannot be used: midtablectl check tells why";
    return;
  }
  const Dialect& dialect = Dialect::Of(*m_auth);
  // No login sees the tables of all users.
  if (dialect.DatabasesAreUsers()) return;
  // A watch keeps the connection from one look to the next.
  if (m_sql == nullptr) m_sql = CreateSqlBase(*m_auth);
  if ((m_sql->isDBAlive() ? 0 : m_sql->reconnectDB()) != 0) {
    status.server_error = ServerWords(m_sql->getLastError());
    return;
  }
  Server server(*m_sql, dialect);
  std::map<std::string, std::uint64_t> mem_rows;
  std::map<std::string, std::uint64_t> ledger_rows;
  for (SqlRecord& table :
       server.Rows("select table_schema as d, table_name as t from information_schema.tables where "
                   "table_schema like '" +
                   DatabasePattern() +
                   "' and (table_name like 'MEM\\_%' and table_name not like '%\\_external' or "
                   "table_name = '" +
                   kLedgerTable + "')")) {
    const std::string count =
        server.Value("select count(*) from `" + table["d"] + "`.`" + table["t"] + "`");
    auto& rows = table["t"] == kLedgerTable ? ledger_rows : mem_rows;
    rows[table["d"]] += std::strtoull(count.c_str(), nullptr, 10);
  }
  for (DatabaseStatus& database : status.databases) {
    database.mem_rows = mem_rows[database.database];
    // One that another way of working left behind neither grows nor matters.
    if (status.once) database.ledger_rows = ledger_rows[database.database];
  }
  if (status.once) LookAtWork(server, status);
}

// Everybody may see the sessions of their own login.
void Observer::LookAtWork(Server& server, SystemStatus& status) {
  for (SqlRecord& row : server.Rows(
           "select db as d, time as s, info as i from information_schema.processlist where command "
           "= 'Query' and id <> connection_id() and db like '" +
           DatabasePattern() + "' order by db, id")) {
    status.at_work.push_back({row["d"], row["s"], row["i"]});
  }
}

// A single look without an option prints the table, and so does each look of a watch. The file for
// a collector is written in silence, since it is made by a timer as a rule.
Status ShowStatus(const StatusOptions& options, Console& console) {
  const std::string path = options.settings.empty() ? paths::kSettingsFile : options.settings;
  Observer observer = MakeObserver(path);
  std::optional<SystemStatus> first;
  for (;;) {
    const SystemStatus look = observer.Look();
    if (!first) first = look;
    if (!WriteFiles(options, look, observer, console)) return Status::kCouldNotLook;
    if (options.json) {
      console.out << ToJson(look) << '\n';
    } else if ((options.prometheus.empty() && options.html.empty()) || options.watch_seconds) {
      if (options.watch_seconds && console.terminal) console.out << "\x1b[H\x1b[J";
      PrintTable(look, options.watch_seconds ? &*first : nullptr, console);
    }
    console.out.flush();
    const Status status = StatusOf(look, console);
    if (!options.watch_seconds || !console.out) return status;
    std::this_thread::sleep_for(std::chrono::seconds(*options.watch_seconds));
  }
}

}  // namespace ctl
