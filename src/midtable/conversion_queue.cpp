#include "midtable/conversion_queue.h"

#include <algorithm>
#include <vector>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"

namespace {

constexpr std::chrono::minutes kPause{1};
constexpr int kMostBrokenOff = 3;

}  // namespace

std::list<MemFile> ConversionQueue::files() const {
  std::list<MemFile> files;
  for (const PendingConversion& pending : m_line) files.push_back(pending.file);
  return files;
}

bool ConversionQueue::Holds(const MemFile& file) const {
  return std::any_of(m_line.begin(), m_line.end(), [&file](const PendingConversion& pending) {
    return pending.file.SharesTableWith(file);
  });
}

bool ConversionQueue::IsLeft(const MemFile& file) const {
  return std::any_of(m_left.begin(), m_left.end(),
                     [&file](const Left& left) { return left.table.SharesTableWith(file); });
}

void ConversionQueue::Add(const MemFile& file) {
  if (IsLeft(file)) return;
  const auto same = std::find_if(
      m_line.begin(), m_line.end(),
      [&file](const PendingConversion& pending) { return pending.file.SharesTableWith(file); });
  if (same == m_line.end()) {
    m_line.push_back({file});
    return;
  }
  // The rows of both are in the mem table: what fails now is not only a retry's failure.
  same->is_retry = false;
  g_loger(kUnit, __LINE__, kDebug, "file (%s) conflict with (%s)", file.path.c_str(),
          same->file.path.c_str());
}

bool ConversionQueue::AddLeftRows(Store& store, const std::string& database,
                                  const Waiting& waiting) {
  if (m_searched.count(database) == 0) {
    std::vector<std::string> tables;
    if (!store.FilledMemTables(database, tables)) return false;
    m_searched.insert(database);
    for (const std::string& table : tables) {
      MemFile file{{}, database, table};
      file.path = file.QualifiedTable();
      if (Holds(file)) continue;
      g_loger(kUnit, __LINE__, kInfo, "memtable %s holds rows of an earlier run",
              file.path.c_str());
      m_left.push_back({file, waiting(file)});
    }
  }
  // Files that came later are none of these: a producer that never rests keeps no rows back.
  m_left.remove_if([&](Left& left) {
    if (left.table.database != database) return false;
    if (!left.files.empty()) {
      const std::vector<std::string> there = waiting(left.table);
      std::erase_if(left.files, [&there](const std::string& path) {
        return std::find(there.begin(), there.end(), path) == there.end();
      });
    }
    if (!left.files.empty()) return false;
    m_line.push_back({left.table});
    return true;
  });
  return true;
}

// The definitions are compared by what the file is, not by its time alone: a file that was put back
// from a backup is older than the one before.
void ConversionQueue::AddDue(const char* definitions, std::chrono::nanoseconds now) {
  if (m_held.empty()) return;
  const auto current = IdentityOf(definitions);
  for (auto& [table, held] : m_held) {
    const bool waited = held.by_server && now - held.since >= kPause;
    if ((!waited && current == held.definitions) || Holds(held.file)) continue;
    m_line.push_back({held.file, true});
  }
}

// Also a success that was no retry ends what was held: all rows of the mem table are converted.
void ConversionQueue::Done() {
  m_held.erase(m_line.front().file.QualifiedTable());
  m_line.pop_front();
}

void ConversionQueue::Hold(bool by_server, const char* definitions, std::chrono::nanoseconds now) {
  const MemFile& file = m_line.front().file;
  m_held.insert_or_assign(file.QualifiedTable(),
                          Held{file, by_server, IdentityOf(definitions), now});
  m_line.pop_front();
}

bool ConversionQueue::PutOff() { return ++m_line.front().broken_off < kMostBrokenOff; }

void ConversionQueue::LogLeft() const {
  std::set<std::string> tables;
  for (const PendingConversion& pending : m_line) tables.insert(pending.file.QualifiedTable());
  for (const Left& left : m_left) tables.insert(left.table.path);
  for (const auto& [table, held] : m_held) tables.insert(table);
  for (const std::string& table : tables) {
    g_loger(kUnit, __LINE__, kAlarm, "memtable %s is left filled, converted after the next start",
            table.c_str());
  }
}
