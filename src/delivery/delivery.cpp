#include "delivery/delivery.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

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
constexpr milliseconds kTick{500};
constexpr std::chrono::seconds kPollEach{1};
constexpr std::chrono::minutes kLookEach{1};
constexpr std::chrono::seconds kPingEach{30};
constexpr std::chrono::minutes kTidyEach{1};
constexpr std::size_t kMostFeeds = 1'000;
// A ledger grows to that many files before the oldest of them leave it.
constexpr std::uint64_t kMostFilesInLedger = 20'000;
constexpr std::size_t kFilesAtOnce = 1'000;
constexpr int kMostLooks = 10;  // of kFilesAtOnce files

// Size and time belong to the file's identity and survive a rename, so another file of the name is
// told apart.
bool IsSeenAsLoaded(const std::string& folder, const LedgerFile& file) {
  const std::string path = folder + file.name.substr(0, file.name.rfind('.')) + ".mid";
  const auto identity = IdentityOf(path);
  if (!identity) return false;
  LedgerFile seen = LedgerFile::Of(path, *identity);
  seen.name = file.name;
  return seen.IsSameFile(file);
}

}  // namespace

Delivery::Delivery(const MYSQLAUTH& auth, milliseconds silence)
    : m_auth(auth),
      m_localUser(nullptr, [this](int seconds) { PauseWatcher(seconds); }),
      m_sql(new Connection(&m_auth, silence)),
      m_store(std::unique_ptr<CSqlBase>(m_sql), m_auth),
      m_definitions(m_store.dialect()),
      m_bench{*m_sql, m_store, m_definitions, m_backlog, m_settled, nullptr, {}, {}, {}, {}} {
  m_localUser.init();
  if (access(paths::kNoRewriteFlag, F_OK) != 0) m_bench.registry = &m_localUser;
}

Delivery::~Delivery() {
  m_watcher_may_go.release();
  m_localUser.WaitExit();
}

// A stop must not wait for the end of a second's sleep.
void Delivery::PauseWatcher(int seconds) {
  for (; seconds > 0 && g_nMainRun != 0; --seconds) {
    if (m_watcher_may_go.try_acquire_for(std::chrono::seconds(1))) m_watcher_may_go.release();
  }
}

void Delivery::Run() {
  g_loger(kUnit, __LINE__, kInfo, "current db is %s", m_auth.dbtype.c_str());
  g_loger(kUnit, __LINE__, kInfo, "delivery is once");
  // Files that wait already would be flagged as if there were no local user.
  m_localUser.AwaitFirstRound(kMostSecondsForRegistry);
  LookAround();
  while (g_nMainRun != 0) {
    m_worked = false;
    if (IsConnected() && !Turn()) m_connected = false;
    KeepHouse();
    if (g_nMainRun != 0) TakeEvents(m_worked ? milliseconds(0) : kTick);
  }
  // The server takes back what was begun; nothing waits for that.
}

bool Delivery::IsConnected() {
  const auto now = Clock::now();
  if (m_connected) return true;
  if (!m_connecting.IsDue(now)) return false;
  if (!m_store.Reconnect()) {
    if (g_nMainRun != 0) m_connecting.Failed(m_sql->Reason(), CountFiles(), now);
    return false;
  }
  m_connecting.Ended();
  m_connected = true;
  m_pinged_at = now;
  m_bench.database.clear();
  m_bench.databases.clear();
  // Nothing that was learned over the old connection is sure any more.
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

std::size_t Delivery::CountFiles() const {
  std::size_t files = 0;
  for (const Backlog::TableKey& key : m_backlog.Tables()) files += m_backlog.CountFiles(key);
  return files;
}

// What is done once when the work has ended comes before the search for old rows and the care of
// the ledgers, which may take a while: a file that arrives meanwhile waits for a step and not for
// all.
bool Delivery::Turn() {
  const auto now = Clock::now();
  m_settled.RetryRenames();
  if (m_definitions.Refresh()) {
    for (auto& [key, feed] : m_feeds) feed.Replan();
  }
  if (!DeliverAll()) return false;
  if (m_worked) {
    m_rests = false;
    m_pinged_at = now;
  } else if (!m_rests && !HaveARest()) {
    return false;
  }
  if (!SearchForRows() || !KeepLedgersSmall()) return false;
  if (now - m_pinged_at < kPingEach) return true;
  m_pinged_at = now;
  return m_store.IsAlive();
}

// From the mem table on at which the last turn ended early: one that costs the connection each time
// does not keep those behind it from their turn.
bool Delivery::DeliverAll() {
  std::vector<Backlog::TableKey> keys = m_backlog.Tables();
  for (auto& [key, feed] : m_feeds) {
    if (feed.HasWork() && m_backlog.CountFiles(key) == 0) keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end());
  std::rotate(keys.begin(), std::lower_bound(keys.begin(), keys.end(), m_first), keys.end());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    m_first = keys[i];
    const auto now = Clock::now();
    Feed& feed = m_feeds.try_emplace(keys[i], m_bench, keys[i]).first->second;
    if (!feed.IsDue(now)) continue;
    if (feed.TakesWishForSession()) return false;
    const std::size_t before = m_backlog.CountFiles(keys[i]);
    if (!feed.Deliver(now)) {
      m_first = keys[(i + 1) % keys.size()];
      return false;
    }
    m_worked = m_worked || m_backlog.CountFiles(keys[i]) < before;
  }
  m_first = {};
  return true;
}

bool Delivery::HaveARest() {
  m_rests = true;
  for (auto& [key, feed] : m_feeds) {
    if (!feed.Settle()) return false;
  }
  // What is known of a table saves a few questions; years of tables are not worth their memory.
  if (m_feeds.size() > kMostFeeds) {
    std::erase_if(m_feeds, [](const auto& item) { return !item.second.HasWork(); });
  }
  return true;
}

// Rows that an earlier run left, in a mem table for which no file may ever come again: once, one
// database at a time.
bool Delivery::SearchForRows() {
  if (std::exchange(m_search_is_due, false)) {
    for (const std::string& folder : m_backlog.Folders()) {
      m_unsearched.push_back(DatabaseName(folder));
    }
  }
  if (m_unsearched.empty()) return true;
  const std::string database = m_unsearched.back();
  std::vector<std::string> tables;
  if (!m_store.FilledMemTables(database, tables)) return false;
  m_unsearched.pop_back();
  for (const std::string& table : tables) {
    const Backlog::TableKey key{database, table};
    m_feeds.try_emplace(key, m_bench, key).first->second.LookForRows();
  }
  m_worked = m_worked || !m_unsearched.empty();
  return true;
}

// --- ledgers

bool Delivery::KeepLedgersSmall() {
  const auto now = Clock::now();
  const bool is_due = now - m_tidied_at >= kTidyEach;
  if (is_due && !m_bench.renamed.empty()) m_tidied_at = now;
  for (auto next = m_bench.renamed.begin(); next != m_bench.renamed.end() && g_nMainRun != 0;) {
    if (!is_due && next->second.size() < kFilesAtOnce) {
      ++next;
      continue;
    }
    if (!KeepLedgerSmall(next->first, next->second)) return false;
    next = m_bench.renamed.erase(next);
  }
  return true;
}

bool Delivery::KeepLedgerSmall(const std::string& database, std::span<const LedgerFile> renamed) {
  Ledger ledger(*m_sql);
  bool done = Enter(database);
  for (; done && !renamed.empty();
       renamed = renamed.subspan(std::min(kFilesAtOnce, renamed.size()))) {
    done = ledger.MarkSeen(renamed.first(std::min(kFilesAtOnce, renamed.size())));
  }
  std::uint64_t count = 0;
  done = done && NoteSeenFiles(ledger, database) && ledger.RemoveEmptiedMarks() &&
         ledger.CountSeen(count);
  if (!done) return m_sql->lastFailure() != SqlFailure::kConnection;
  while (count > kMostFilesInLedger && g_nMainRun != 0) {
    const auto removed = std::min<std::uint64_t>(kFilesAtOnce, count - kMostFilesInLedger);
    if (!ledger.RemoveOldestSeen(removed)) return m_sql->lastFailure() != SqlFailure::kConnection;
    count -= removed;
  }
  return true;
}

// Only a file that was seen under its final name may leave the ledger. One that is merely missing
// may come back with its folder, and would be counted again without its entry. Here are those that
// an earlier run renamed, or that were renamed late. False as that of a statement.
bool Delivery::NoteSeenFiles(Ledger& ledger, const std::string& database) {
  const std::string folder = paths::kSpool + database.substr(kDatabasePrefix.size()) + "/";
  std::string& up_to = m_seen_up_to[database];
  for (int i = 0; i < kMostLooks && g_nMainRun != 0; ++i) {
    std::vector<LedgerFile> files;
    if (!ledger.FilesNotSeen(up_to, kFilesAtOnce, files)) return false;
    const bool is_end = files.size() < kFilesAtOnce;
    up_to = is_end ? std::string() : files.back().name;
    std::erase_if(files,
                  [&folder](const LedgerFile& file) { return !IsSeenAsLoaded(folder, file); });
    if (!ledger.MarkSeen(files)) return false;
    if (is_end) break;
  }
  return true;
}

bool Delivery::Enter(const std::string& database) {
  if (m_bench.database == database) return true;
  m_bench.database.clear();
  if (!m_store.Use(database)) return false;
  m_bench.database = database;
  return true;
}

// --- what comes

// Watched before they are read, the folders can receive no file that neither sees.
void Delivery::LookAround() {
  m_looked_at = Clock::now();
  m_watching = m_backlog.FindFolders() && m_watch.Watch(m_backlog.Folders());
  m_backlog.Rescan();
}

void Delivery::TakeEvents(milliseconds longest) {
  bool look_around =
      Clock::now() - m_looked_at >= (m_watching ? std::chrono::seconds(kLookEach) : kPollEach);
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
