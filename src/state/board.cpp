#include "state/board.h"

#include <algorithm>

namespace {

constexpr std::time_t kSlotSeconds = 10;
// A server's text may quote a whole statement.
constexpr std::size_t kLongestText = 1000;

std::size_t Less(std::size_t number, std::size_t part) { return number - std::min(number, part); }

std::vector<HeldBack>::iterator Find(std::vector<HeldBack>& all, const std::string& what) {
  return std::find_if(all.begin(), all.end(),
                      [&what](const HeldBack& held) { return held.what == what; });
}

}  // namespace

// --- the last minute

void LastMinute::Add(std::time_t now, std::uint64_t files, std::uint64_t rows) {
  const std::time_t number = now / kSlotSeconds;
  Slot& slot = m_slots[static_cast<std::size_t>(number) % m_slots.size()];
  if (slot.number != number) slot = {number, 0, 0};
  slot.files += files;
  slot.rows += rows;
}

std::uint64_t LastMinute::Sum(std::time_t now, std::uint64_t Slot::*figure) const {
  const std::time_t oldest = now / kSlotSeconds - static_cast<std::time_t>(m_slots.size()) + 1;
  std::uint64_t sum = 0;
  for (const Slot& slot : m_slots) {
    if (slot.number >= oldest) sum += slot.*figure;
  }
  return sum;
}

// --- what is told

void StateBoard::SetWaiting(const std::string& database, std::size_t files,
                            std::optional<std::time_t> oldest) {
  const MutexLock lock(m_lock);
  const auto [entry, is_new] = m_databases.try_emplace(database);
  DatabaseFigures& figures = entry->second;
  if (!is_new && figures.waiting == files && figures.oldest_waiting_at == oldest) return;
  figures.waiting = files;
  figures.oldest_waiting_at = oldest;
  ++m_changes;
}

void StateBoard::SetInSpool(const std::string& database, const std::optional<InSpool>& counts) {
  const MutexLock lock(m_lock);
  DatabaseFigures& figures = m_databases[database];
  if (figures.in_spool == counts) return;
  figures.in_spool = counts;
  ++m_changes;
}

void StateBoard::Keep(const std::set<std::string>& databases) {
  const MutexLock lock(m_lock);
  m_changes += std::erase_if(m_databases, [&databases](const auto& entry) {
    const DatabaseFigures& figures = entry.second;
    return databases.count(entry.first) == 0 && figures.waiting == 0 && !figures.load &&
           figures.held_back.empty();
  });
}

void StateBoard::BeginLoad(const std::string& database, const RunningLoad& load,
                           const std::atomic<std::uint64_t>* bytes_done) {
  const MutexLock lock(m_lock);
  DatabaseFigures& figures = m_databases[database];
  figures.load = load;
  figures.load->since = std::time(nullptr);
  if (bytes_done != nullptr) m_loads[database] = bytes_done;
  ++m_changes;
}

void StateBoard::EndLoad(const std::string& database) {
  const MutexLock lock(m_lock);
  m_databases[database].load.reset();
  m_loads.erase(database);
  ++m_changes;
}

// The files have the ending .mid by now, or will have it as soon as that can be.
void StateBoard::Loaded(const std::string& database, std::size_t files, std::uint64_t rows) {
  if (files == 0) return;
  const MutexLock lock(m_lock);
  DatabaseFigures& figures = m_databases[database];
  figures.waiting = Less(figures.waiting, files);
  if (figures.waiting == 0) figures.oldest_waiting_at.reset();
  figures.loaded_files += files;
  figures.loaded_rows += rows;
  if (figures.in_spool) figures.in_spool->loaded += files;
  m_loaded_at = figures.last_success_at = std::time(nullptr);
  figures.last_minute.Add(m_loaded_at, files, rows);
  ++m_changes;
}

void StateBoard::Counted(const std::string& database, std::uint64_t rows) {
  if (rows == 0) return;
  const MutexLock lock(m_lock);
  m_databases[database].counted_rows += rows;
  ++m_changes;
}

void StateBoard::Failed(const std::string& database, std::optional<std::uint64_t> rows,
                        const std::string& error) {
  const MutexLock lock(m_lock);
  DatabaseFigures& figures = m_databases[database];
  figures.waiting = Less(figures.waiting, 1);
  if (figures.waiting == 0) figures.oldest_waiting_at.reset();
  ++figures.failed_files;
  if (rows) figures.failed_rows = figures.failed_rows.value_or(0) + *rows;
  if (figures.in_spool) ++figures.in_spool->failed;
  NoteError(figures, error);
}

void StateBoard::NoteError(DatabaseFigures& figures, const std::string& text) {
  figures.last_error_at = std::time(nullptr);
  figures.last_error = text.substr(0, kLongestText);
  ++m_changes;
}

std::vector<HeldBack>& StateBoard::HeldOf(const std::string& database) {
  return database.empty() ? m_held_back : m_databases[database].held_back;
}

void StateBoard::Hold(const std::string& database, const std::string& what, std::size_t files,
                      const std::string& reason) {
  const std::string text = reason.substr(0, kLongestText);
  const MutexLock lock(m_lock);
  std::vector<HeldBack>& all = HeldOf(database);
  auto held = Find(all, what);
  const bool is_known = held != all.end();
  if (is_known && held->files == files && held->reason == text) return;
  if (!is_known) held = all.insert(all.end(), {what, 0, {}, std::time(nullptr)});
  const bool is_new_reason = held->reason != text;
  held->files = files;
  held->reason = text;
  if (is_new_reason && !database.empty()) NoteError(m_databases[database], what + ": " + text);
  ++m_changes;
}

void StateBoard::Release(const std::string& database, const std::string& what) {
  const MutexLock lock(m_lock);
  std::vector<HeldBack>& all = HeldOf(database);
  const auto held = Find(all, what);
  if (held == all.end()) return;
  all.erase(held);
  ++m_changes;
}

// --- what is shown

StateBoard::Stamp StateBoard::StampAt(std::time_t now) const {
  const MutexLock lock(m_lock);
  Stamp stamp{m_changes, 0, 0};
  for (const auto& [database, bytes] : m_loads) stamp.bytes += *bytes;
  // Seven tenths of a minute later nothing of it is left to go.
  if (now - m_loaded_at <= 7 * kSlotSeconds) stamp.minute = now / kSlotSeconds;
  return stamp;
}

std::vector<HeldBack> StateBoard::HeldBackOfAll() const {
  const MutexLock lock(m_lock);
  return m_held_back;
}

std::vector<HeldBack> StateBoard::AllHeldBack() const {
  const MutexLock lock(m_lock);
  std::vector<HeldBack> all = m_held_back;
  for (const auto& [database, figures] : m_databases) {
    all.insert(all.end(), figures.held_back.begin(), figures.held_back.end());
  }
  return all;
}

bool StateBoard::Next(std::string& database, DatabaseFigures& figures) const {
  const MutexLock lock(m_lock);
  const auto next = m_databases.upper_bound(database);
  if (next == m_databases.end()) return false;
  database = next->first;
  figures = next->second;
  const auto load = m_loads.find(database);
  if (figures.load && load != m_loads.end()) figures.load->bytes_done = *load->second;
  return true;
}

std::size_t StateBoard::CountWaiting() const {
  const MutexLock lock(m_lock);
  std::size_t files = 0;
  for (const auto& [database, figures] : m_databases) files += figures.waiting;
  return files;
}
