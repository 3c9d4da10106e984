#include "midtablectl/page/row_counts.h"

#include <utility>

namespace ctl {

std::optional<RowCounts> RowsSince(const History& history, const Spool& spool, std::time_t now) {
  if (SecondsSince(history, now) == 0 || spool.error != 0) return std::nullopt;
  RowCounts rows;
  for (const DatabaseFolder& folder : spool.folders) {
    if (folder.error != 0) return std::nullopt;
    for (const SpoolEntry& file : folder.files) {
      const std::time_t loaded = file.status.st_ctime;
      if (file.state != FileState::kLoaded || !file.IsRegular()) continue;
      // Of two looks each sees the files of the seconds before its own, so that none counts twice.
      if (loaded < history.looked_at || loaded >= now) continue;
      rows[folder.Database()] += CountRows(folder.Path() + file.name);
    }
  }
  return rows;
}

std::optional<RowCounts> RowsSince(const RowCounters& counters, std::time_t now, History& history) {
  const std::optional<RowCounters> before = std::exchange(history.counters, counters);
  const bool is_new = counters.started_at >= history.looked_at;
  const bool is_same = before && before->started_at == counters.started_at;
  if (SecondsSince(history, now) == 0 || (!is_new && !is_same)) return std::nullopt;
  const RowCounts earlier = is_same ? before->rows : RowCounts();
  RowCounts rows;
  for (const auto& [database, count] : counters.rows) {
    const auto known = earlier.find(database);
    const std::uint64_t counted = known == earlier.end() ? 0 : known->second;
    if (count > counted) rows[database] = count - counted;
  }
  return rows;
}

}  // namespace ctl
