#include "delivery/delivery.h"

#include <unistd.h>

#include <algorithm>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/database_name.h"
#include "support/housekeeping.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

using std::chrono::milliseconds;
using Clock = Trouble::Clock;

constexpr int kMostSecondsForRegistry = 10;
constexpr milliseconds kTick{1000};
constexpr std::chrono::minutes kLookEach{1};
constexpr std::chrono::seconds kPingEach{30};
constexpr std::chrono::minutes kTidyEach{1};
constexpr std::size_t kMostFeeds = 1'000;
// A ledger grows to the larger number of files before the oldest of them leave it.
constexpr std::uint64_t kMostFilesInLedger = 20'000;
constexpr std::size_t kRemovedAtOnce = 1'000;

bool IsSeenAsLoaded(const std::string& folder, const LedgerFile& file) {
  const std::string path = folder + file.name.substr(0, file.name.rfind('.')) + ".mid";
  const auto identity = IdentityOf(path);
  if (!identity) return false;
  LedgerFile seen = LedgerFile::Of(path, *identity);
  seen.name = file.name;
  return seen.IsSameFile(file);
}

}  // namespace

Delivery::Delivery(const MYSQLAUTH& auth)
    : m_auth(auth),
      m_sql(new Connection(&m_auth)),
      m_store(std::unique_ptr<CSqlBase>(m_sql), m_auth),
      m_definitions(m_store.dialect()),
      m_bench{*m_sql, m_store, m_definitions, m_backlog, m_settled, nullptr, {}, {}, {}} {
  m_localUser.init();
  if (access(paths::kNoRewriteFlag, F_OK) != 0) m_bench.registry = &m_localUser;
}

Delivery::~Delivery() { m_localUser.WaitExit(); }

void Delivery::Run() {
  g_loger(kUnit, __LINE__, kInfo, "current db is %s", m_auth.dbtype.c_str());
  g_loger(kUnit, __LINE__, kInfo, "delivery is once");
  // Files that wait already would be flagged as if there were no local user.
  m_localUser.AwaitFirstRound(kMostSecondsForRegistry);
  LookAround();
  while (g_nMainRun != 0) {
    if (IsConnected() && !Turn()) m_connected = false;
    KeepHouse();
    if (g_nMainRun != 0) TakeEvents(kTick);
  }
  // The server takes back what was begun; nothing waits for that.
}

bool Delivery::IsConnected() {
  const auto now = Clock::now();
  if (m_connected) return true;
  if (!m_connecting.IsDue(now)) return false;
  if (!m_store.Reconnect()) {
    std::size_t files = 0;
    for (const Backlog::TableKey& key : m_backlog.Tables()) files += m_backlog.CountFiles(key);
    if (g_nMainRun != 0) m_connecting.Failed(m_sql->Reason(), files, now);
    return false;
  }
  m_connecting.Ended();
  m_connected = true;
  m_pinged_at = now;
  m_bench.database.clear();
  m_bench.databases.clear();
  for (auto& [key, feed] : m_feeds) feed.Forget();
  NameRisks();
  return true;
}

// What a power loss could take although it was counted.
void Delivery::NameRisks() {
  std::vector<SqlRecord> rows;
  if (!m_sql->Query("select @@innodb_flush_log_at_trx_commit as f, @@log_bin as b, @@sync_binlog "
                    "as s",
                    rows) ||
      rows.empty()) {
    return;
  }
  SqlRecord& row = rows.front();
  if (row["f"] != "1") {
    g_loger(
        kUnit, __LINE__, kAlarm,
        "innodb_flush_log_at_trx_commit is %s: a power loss of the server may lose counted rows",
        row["f"].c_str());
  }
  if (row["b"] == "1" && row["s"] != "1") {
    g_loger(kUnit, __LINE__, kAlarm,
            "sync_binlog is %s: a power loss of the server may lose counted rows on replicas",
            row["s"].c_str());
  }
}

bool Delivery::Turn() {
  const auto now = Clock::now();
  m_settled.RetryRenames();
  if (m_definitions.Refresh()) {
    for (auto& [key, feed] : m_feeds) feed.Replan();
  }
  const bool had_files = !m_backlog.empty();
  if (!DeliverAll()) return false;
  if (had_files) {
    m_idle = false;
    m_pinged_at = now;
  } else if (!m_idle) {
    m_idle = true;
    if (!KeepLedgersSmall()) return false;
  }
  if (now - m_pinged_at < kPingEach) return true;
  m_pinged_at = now;
  return m_store.IsAlive();
}

bool Delivery::DeliverAll() {
  for (bool worked = true; worked;) {
    worked = false;
    for (const Backlog::TableKey& key : m_backlog.Tables()) {
      const auto now = Clock::now();
      Feed& feed = FeedOf(key);
      const std::size_t before = m_backlog.CountFiles(key);
      if (!feed.IsDue(now)) continue;
      if (!feed.Deliver(now)) return false;
      worked = worked || m_backlog.CountFiles(key) < before;
    }
    TakeEvents(milliseconds(0));
  }
  return true;
}

Feed& Delivery::FeedOf(const Backlog::TableKey& key) {
  return m_feeds.try_emplace(key, m_bench, key).first->second;
}

bool Delivery::KeepLedgersSmall() {
  for (auto& [key, feed] : m_feeds) {
    if (!feed.Settle()) return false;
  }
  // What is known of a table saves a few questions; years of tables are not worth their memory.
  if (m_feeds.size() > kMostFeeds) m_feeds.clear();
  const std::set<std::string> databases = m_bench.databases;
  return std::all_of(databases.begin(), databases.end(),
                     [this](const std::string& database) { return KeepLedgerSmall(database); });
}

// The oldest files leave the ledger once they were seen under their final name. A file that is
// merely missing may come back with its folder, and would be counted again without its entry.
bool Delivery::KeepLedgerSmall(const std::string& database) {
  Ledger ledger(*m_sql);
  const auto now = Clock::now();
  if (const auto tidied = m_tidied.find(database);
      tidied != m_tidied.end() && now - tidied->second < kTidyEach) {
    return true;
  }
  m_tidied[database] = now;
  if (m_bench.database != database) {
    if (!m_store.Use(database)) return m_sql->lastFailure() != SqlFailure::kConnection;
    m_bench.database = database;
  }
  ledger.RemoveEmptiedMarks();
  std::uint64_t count = 0;
  while (ledger.CountFiles(count) && count > kMostFilesInLedger && g_nMainRun != 0) {
    std::vector<LedgerFile> files;
    if (!ledger.OldestFiles(kRemovedAtOnce, files)) break;
    const std::string folder = paths::kSpool + database.substr(kDatabasePrefix.size()) + "/";
    std::erase_if(files,
                  [&folder](const LedgerFile& file) { return !IsSeenAsLoaded(folder, file); });
    if (files.empty() || !ledger.RemoveFiles(files)) break;
  }
  return m_sql->lastFailure() != SqlFailure::kConnection;
}

// --- what comes

void Delivery::LookAround() {
  m_looked_at = Clock::now();
  m_backlog.Rescan();
  m_watching = m_watch.Watch(m_backlog.Folders());
}

void Delivery::TakeEvents(milliseconds longest) {
  bool look_around = Clock::now() - m_looked_at >= (m_watching ? milliseconds(kLookEach) : kTick);
  for (const SpoolWatch::Event& event : m_watch.Wait(longest)) {
    if (event.folder.empty()) {
      look_around = true;
    } else if (event.name.empty()) {
      // Watched before it is read: what comes in between is seen by one of the two.
      m_watching = m_watch.Watch({event.folder}) && m_watching;
      m_backlog.RescanFolder(event.folder);
    } else {
      m_backlog.Note(event.folder, event.name);
    }
  }
  if (look_around) LookAround();
}
