#include "delivery/spool_figures.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <set>

#include "support/database_name.h"

namespace {

// The order of names is that of the times in them, so the oldest file of each mem table comes
// first.
std::optional<std::time_t> OldestOf(const std::vector<std::string>& paths) {
  std::optional<std::time_t> oldest;
  for (const std::string& path : paths) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) continue;
    oldest = std::min(oldest.value_or(status.st_mtime), status.st_mtime);
  }
  return oldest;
}

}  // namespace

void SpoolFigures::ShowFinished() {
  for (const auto& [folder, counts] : m_backlog.TakeFinished()) {
    m_board.SetInSpool(DatabaseName(folder), counts);
  }
}

void SpoolFigures::Show() {
  std::set<std::string> databases;
  for (const std::string& folder : m_backlog.Folders()) databases.insert(DatabaseName(folder));
  m_board.Keep(databases);
  for (const Backlog::Count& count : m_backlog.Counts()) {
    databases.erase(count.database);
    const Shown now{count.files, count.arrivals};
    const auto [shown, is_new] = m_shown.try_emplace(count.database, now);
    if (!is_new && shown->second == now) continue;
    shown->second = now;
    m_board.SetWaiting(count.database, count.files, OldestOf(m_backlog.FirstPaths(count.database)));
  }
  // A folder without files is a database all the same.
  for (const std::string& database : databases) m_board.SetWaiting(database, 0, std::nullopt);
}
