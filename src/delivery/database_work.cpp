#include "delivery/database_work.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <span>

#include "delivery/preparation.h"
#include "support/database_name.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

// After a visit that could do nothing, files that still wait are looked at again so much later.
// What is done once after work comes that long after it.
constexpr std::chrono::milliseconds kRest{500};
constexpr std::chrono::minutes kTidyEach{1};
// A ledger grows to that many files before the oldest of them leave it.
constexpr std::uint64_t kMostFilesInLedger = 20'000;
constexpr std::size_t kFilesAtOnce = 1'000;
// So many renamed files are told to the ledger at a time at most: enough that its care costs little
// for each, and 2 MiB of names.
constexpr std::size_t kMostRenamed = 10'000;
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

DatabaseWork::DatabaseWork(Common& common, const std::string& database)
    : m_common(common),
      m_renames(common.board, database, "renames of " + database),
      m_lost_sessions(common.lost_sessions) {
  m_notes.database = database;
}

void DatabaseWork::RetryRenames(Clock::time_point now) {
  const SettledFiles::Refused refused = m_notes.settled.RetryRenames();
  if (refused.files == 0) {
    m_renames.Ended();
  } else {
    m_renames.Failed(refused.Reason(), refused.files, now);
  }
}

void DatabaseWork::Use(const std::shared_ptr<const Definitions>& definitions) {
  if (m_notes.definitions == definitions) return;
  m_notes.definitions = definitions;
  for (auto& [table, feed] : m_feeds) feed.Replan();
}

// --- whose turn it is

// Files that nothing can be done with, since they were not renamed say, do not make the database
// due all the time; a file that has come since does at once.
bool DatabaseWork::IsDue(Clock::time_point now) const {
  if (!m_worked && now - m_visited_at < kRest &&
      m_common.backlog.CountArrivals(m_notes.database) == m_arrivals) {
    return false;
  }
  for (const std::string& table : m_common.backlog.Tables(m_notes.database)) {
    const auto feed = m_feeds.find(table);
    if (feed == m_feeds.end() || feed->second.IsDue(now)) return true;
  }
  return std::any_of(m_feeds.begin(), m_feeds.end(), [now](const auto& item) {
    return item.second.HasWork() && item.second.IsDue(now);
  });
}

// One that was visited waits from then on, so that a long backlog keeps nobody from his turn. One
// that never was waits since its oldest file came.
DatabaseWork::Clock::time_point DatabaseWork::WaitsSince(Clock::time_point now) {
  if (!m_waits_since) {
    m_waits_since = m_visited_at == Clock::time_point() ? OldestFile(now) : now;
  }
  return *m_waits_since;
}

// The time of the last change of what the system knows of the file is that of the rename by which
// it came.
DatabaseWork::Clock::time_point DatabaseWork::OldestFile(Clock::time_point now) const {
  timespec clock{};
  clock_gettime(CLOCK_REALTIME, &clock);
  std::time_t oldest = clock.tv_sec;
  for (const std::string& path : m_common.backlog.FirstPaths(m_notes.database)) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0) oldest = std::min(oldest, status.st_ctim.tv_sec);
  }
  return now - std::chrono::seconds(clock.tv_sec - oldest);
}

bool DatabaseWork::WantsCare(Clock::time_point now) const {
  return m_search || LedgerIsDue(now) || (!m_rests && now - m_visited_at >= kRest);
}

// --- a visit

DatabaseWork::Visited DatabaseWork::Visit(Workbench& bench) {
  if (const std::uint64_t lost = m_common.lost_sessions; lost != m_lost_sessions) {
    m_lost_sessions = lost;
    m_notes.ready = false;
    for (auto& [table, feed] : m_feeds) feed.Forget();
  }
  m_arrivals = m_common.backlog.CountArrivals(m_notes.database);
  const std::uint64_t done = m_notes.done;
  const Visited delivered = DeliverAll(bench);
  m_worked = m_notes.done != done || delivered != Visited::kYes;
  m_waits_since.reset();
  m_visited_at = Clock::now();
  if (delivered != Visited::kYes) return delivered;
  if (m_worked) {
    m_rests = false;
  } else if (!m_rests && !HaveARest(bench)) {
    return Visited::kBroken;
  }
  if (!FindRows(bench) || (LedgerIsDue(Clock::now()) && !KeepLedgerSmall(bench))) {
    return Visited::kBroken;
  }
  return Visited::kYes;
}

// From the mem table on at which the last visit ended early: one that costs the connection each
// time does not keep those behind it from their turn. A visit to a long backlog ends early too, so
// that what the ledger is to be told stays short.
DatabaseWork::Visited DatabaseWork::DeliverAll(Workbench& bench) {
  std::vector<std::string> tables = m_common.backlog.Tables(m_notes.database);
  for (auto& [table, feed] : m_feeds) {
    if (feed.HasWork()) tables.push_back(table);
  }
  std::sort(tables.begin(), tables.end());
  tables.erase(std::unique(tables.begin(), tables.end()), tables.end());
  std::rotate(tables.begin(), std::lower_bound(tables.begin(), tables.end(), m_first),
              tables.end());
  for (const std::string& table : tables) {
    m_feeds.try_emplace(table, m_common, m_notes, table);
  }
  if (bench.sql.IsFar()) PrepareTogether(bench);
  for (std::size_t i = 0; i < tables.size(); ++i) {
    m_first = tables[i];
    if (m_notes.renamed.size() >= kMostRenamed) return Visited::kYes;
    const auto now = Clock::now();
    Feed& feed = m_feeds.at(tables[i]);
    if (!feed.IsDue(now)) continue;
    if (feed.TakesWishForSession()) return Visited::kWantsSession;
    if (!feed.Deliver(bench, now)) {
      m_first = tables[(i + 1) % tables.size()];
      return Visited::kBroken;
    }
  }
  m_first.clear();
  return Visited::kYes;
}

void DatabaseWork::PrepareTogether(Workbench& bench) {
  Preparation preparation(bench.sql, m_notes.database);
  for (auto& [table, feed] : m_feeds) {
    const auto now = Clock::now();
    if (!feed.IsDue(now)) continue;
    if (const Plan* plan = feed.PlanToPrepare(bench, now)) preparation.Add(table, feed, *plan);
  }
  preparation.Run();
}

bool DatabaseWork::HaveARest(Workbench& bench) {
  m_rests = true;
  return std::all_of(m_feeds.begin(), m_feeds.end(),
                     [&bench](auto& item) { return item.second.Settle(bench); });
}

void DatabaseWork::DropIdleFeeds() {
  if (m_rests) std::erase_if(m_feeds, [](const auto& item) { return !item.second.HasWork(); });
}

bool DatabaseWork::FindRows(Workbench& bench) {
  if (!m_search) return true;
  std::vector<std::string> tables;
  if (!bench.store.FilledMemTables(m_notes.database, tables)) return false;
  m_search = false;
  for (const std::string& table : tables) {
    m_feeds.try_emplace(table, m_common, m_notes, table).first->second.LookForRows();
  }
  m_worked = m_worked || !tables.empty();
  return true;
}

// --- the ledger

bool DatabaseWork::LedgerIsDue(Clock::time_point now) const {
  return m_notes.renamed.size() >= kMostRenamed ||
         (!m_notes.renamed.empty() && now - m_tidied_at >= kTidyEach);
}

// A server that refuses it loses nothing: the next look at the ledger finds what was renamed.
bool DatabaseWork::KeepLedgerSmall(Workbench& bench) {
  m_tidied_at = Clock::now();
  const bool goes_on = TidyLedger(bench) || bench.sql.lastFailure() != SqlFailure::kConnection;
  if (goes_on && g_nMainRun != 0) m_notes.renamed.clear();
  return goes_on;
}

bool DatabaseWork::TidyLedger(Workbench& bench) {
  Ledger ledger(bench.sql);
  if (!Enter(bench)) return false;
  std::span<const LedgerFile> renamed = m_notes.renamed;
  while (!renamed.empty()) {
    const std::size_t part = std::min(kFilesAtOnce, renamed.size());
    if (!ledger.MarkSeen(renamed.first(part))) return false;
    renamed = renamed.subspan(part);
  }
  std::uint64_t count = 0;
  if (!NoteSeenFiles(ledger) || !ledger.RemoveEmptiedMarks() || !ledger.CountSeen(count)) {
    return false;
  }
  while (count > kMostFilesInLedger && g_nMainRun != 0) {
    const auto removed = std::min<std::uint64_t>(kFilesAtOnce, count - kMostFilesInLedger);
    if (!ledger.RemoveOldestSeen(removed)) return false;
    count -= removed;
  }
  return true;
}

// Only a file that was seen under its final name may leave the ledger. One that is merely missing
// may come back with its folder, and would be counted again without its entry. Here are those that
// an earlier run renamed, or that were renamed late. False as that of a statement.
bool DatabaseWork::NoteSeenFiles(Ledger& ledger) {
  const std::string folder = paths::kSpool + m_notes.database.substr(kDatabasePrefix.size()) + "/";
  for (int i = 0; i < kMostLooks && g_nMainRun != 0; ++i) {
    std::vector<LedgerFile> files;
    if (!ledger.FilesNotSeen(m_seen_up_to, kFilesAtOnce, files)) return false;
    const bool is_end = files.size() < kFilesAtOnce;
    m_seen_up_to = is_end ? std::string() : files.back().name;
    std::erase_if(files,
                  [&folder](const LedgerFile& file) { return !IsSeenAsLoaded(folder, file); });
    if (!ledger.MarkSeen(files)) return false;
    if (is_end) break;
  }
  return true;
}

bool DatabaseWork::Enter(Workbench& bench) {
  if (bench.database == m_notes.database) return true;
  bench.database.clear();
  if (!bench.store.Use(m_notes.database)) return false;
  bench.database = m_notes.database;
  return true;
}
