#include "spool/backlog.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "spool/spool_folder.h"
#include "support/file.h"
#include "support/paths.h"

namespace {

std::string PathOf(const std::string& folder) { return paths::kSpool + folder; }

// What cannot be looked at for another reason may still be there.
bool IsGone(const std::string& path, struct stat& status) {
  return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

// A folder stays out of reach for minutes or days, and is read again each minute or second: one
// line when it begins says all that there is to say.
void Backlog::Complain(const std::string& folder, int error) {
  if (!m_unreadable.insert(folder).second) return;
  if (folder.empty()) {
    g_loger(kUnit, __LINE__, kError, "open dir (%s) failed errno (%d)", paths::kSpool, error);
  } else {
    g_loger(kUnit, __LINE__, kError, "scan dir %s errno %d", PathOf(folder).c_str(), error);
  }
}

bool Backlog::ListDatabases(std::set<std::string>& folders) {
  const Directory dir(opendir(paths::kSpool));
  if (dir == nullptr) {
    Complain("", errno);
    return false;
  }
  m_unreadable.erase("");
  while (const dirent* entry = readdir(dir.get())) {
    if (IsDatabaseId(entry->d_name)) folders.insert(entry->d_name);
  }
  return true;
}

// A spool that cannot be listed keeps all that was known of it: its files are most likely still
// there, and a file that is gone is noticed before its batch.
bool Backlog::FindFolders() {
  std::set<std::string> folders;
  if (!ListDatabases(folders)) return false;
  std::vector<std::string> gone;
  std::set_difference(m_folders.begin(), m_folders.end(), folders.begin(), folders.end(),
                      std::back_inserter(gone));
  for (const std::string& folder : gone) ForgetFolder(folder);
  m_folders = std::move(folders);
  return true;
}

// --- reading

void Backlog::Rescan(bool changed_only) {
  m_unread.clear();
  for (const std::string& folder : m_folders) {
    const auto stamp = m_stamps.find(folder);
    if (changed_only && stamp != m_stamps.end() && IdentityOf(PathOf(folder)) == stamp->second) {
      continue;
    }
    m_unread.push_back(folder);
  }
}

// A reading that is under way may have passed the names that the caller wants to be seen.
void Backlog::RescanFolder(const std::string& folder) {
  if (IsDatabaseId(folder)) m_unread.push_front(folder);
}

// Names are added and none is taken away: the files that others have removed leave the backlog when
// their turn comes, so a folder that is closed for a moment, for want of descriptors say, loses
// none.
bool Backlog::ReadOn(std::size_t names) {
  while (names > 0) {
    if (!m_reading && !OpenNext()) {
      if (m_unread.empty()) return false;
      continue;
    }
    const dirent* const entry = readdir(m_reading->directory.get());
    --names;
    if (entry != nullptr) {
      if (my_select(entry) != 0) {
        Add(m_reading->folder, entry->d_name);
      } else {
        m_reading->finished.See(entry->d_name);
      }
      continue;
    }
    m_finished[m_reading->folder] = m_reading->finished.CountIn(PathOf(m_reading->folder));
    if (m_reading->stamp) m_stamps[m_reading->folder] = *m_reading->stamp;
    m_reading.reset();
  }
  return m_reading.has_value() || !m_unread.empty();
}

// False when the next folder cannot be read, or there is none.
bool Backlog::OpenNext() {
  if (m_unread.empty()) return false;
  const std::string folder = m_unread.front();
  m_unread.pop_front();
  m_stamps.erase(folder);
  Directory dir(opendir(PathOf(folder).c_str()));
  struct stat status {};
  if (dir == nullptr || fstat(dirfd(dir.get()), &status) != 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) {
      m_folders.erase(folder);
      ForgetFolder(folder);
    } else {
      m_finished[folder] = std::nullopt;
      Complain(folder, error);
    }
    return false;
  }
  m_unreadable.erase(folder);
  m_folders.insert(folder);
  m_reading = Reading{folder, std::move(dir), SettledIdentityOf(status), {}};
  return true;
}

void Backlog::Note(const std::string& folder, const std::string& name) {
  if (IsDatabaseId(folder)) Add(folder, name.c_str());
}

void Backlog::Add(const std::string& folder, const char* name) {
  if (IsMemFileName(name)) Insert(MemFile::Parse(PathOf(folder) + "/" + name));
}

// A name that is noted twice, by the watch and by a reading, is in the set once.
void Backlog::Insert(const MemFile& file) {
  const MutexLock lock(m_lock);
  Waiting& waiting = m_waiting[file.database];
  if (waiting.tables[file.table].Insert(file.path)) ++waiting.arrivals;
}

// By path and not by database: a folder may hold files that carry another device's name.
void Backlog::ForgetFolder(const std::string& folder) {
  m_stamps.erase(folder);
  const std::string begin = PathOf(folder) + "/";
  const MutexLock lock(m_lock);
  for (auto& [database, waiting] : m_waiting) {
    for (auto& [table, paths] : waiting.tables) {
      paths.EraseAllWithPrefix(begin);
    }
    std::erase_if(waiting.tables, [](const auto& table) { return table.second.empty(); });
  }
}

// --- what waits

std::vector<std::string> Backlog::Databases() const {
  const MutexLock lock(m_lock);
  std::vector<std::string> databases;
  for (const auto& [database, waiting] : m_waiting) {
    if (!waiting.tables.empty()) databases.push_back(database);
  }
  return databases;
}

std::vector<std::string> Backlog::Tables(const std::string& database) const {
  const MutexLock lock(m_lock);
  std::vector<std::string> tables;
  const auto found = m_waiting.find(database);
  if (found == m_waiting.end()) return tables;
  for (const auto& [table, paths] : found->second.tables) tables.push_back(table);
  return tables;
}

const PathSet* Backlog::PathsOf(const TableKey& key) const {
  const auto database = m_waiting.find(key.database);
  if (database == m_waiting.end()) return nullptr;
  const auto table = database->second.tables.find(key.table);
  return table == database->second.tables.end() ? nullptr : &table->second;
}

std::size_t Backlog::CountFiles(const TableKey& key) const {
  const MutexLock lock(m_lock);
  const PathSet* const paths = PathsOf(key);
  return paths == nullptr ? 0 : paths->size();
}

std::size_t Backlog::CountFiles() const {
  const MutexLock lock(m_lock);
  std::size_t files = 0;
  for (const auto& [database, waiting] : m_waiting) {
    for (const auto& [table, paths] : waiting.tables) files += paths.size();
  }
  return files;
}

std::vector<std::string> Backlog::FirstPaths(const std::string& database) const {
  const MutexLock lock(m_lock);
  std::vector<std::string> first;
  const auto found = m_waiting.find(database);
  if (found == m_waiting.end()) return first;
  for (const auto& [table, paths] : found->second.tables) first.push_back(paths.First());
  return first;
}

std::uint64_t Backlog::CountArrivals(const std::string& database) const {
  const MutexLock lock(m_lock);
  const auto found = m_waiting.find(database);
  return found == m_waiting.end() ? 0 : found->second.arrivals;
}

std::vector<Backlog::Count> Backlog::Counts() const {
  const MutexLock lock(m_lock);
  std::vector<Count> counts;
  for (const auto& [database, waiting] : m_waiting) {
    counts.push_back({database, 0, waiting.arrivals});
    for (const auto& [table, paths] : waiting.tables) counts.back().files += paths.size();
  }
  return counts;
}

// Behind `path`, which is then the next one.
bool Backlog::NextPath(const TableKey& key, std::string& path) const {
  const MutexLock lock(m_lock);
  const PathSet* const paths = PathsOf(key);
  return paths != nullptr && paths->Advance(path);
}

// The order of names is that of the times in them, so the oldest files come first. Each file is
// looked at as late as here: a backlog may be hours old when its turn comes.
std::vector<MemFile> Backlog::First(const TableKey& key, std::size_t most, std::uint64_t bytes,
                                    const std::function<bool(const std::string&)>& passes) {
  std::vector<MemFile> files;
  std::uint64_t size = 0;
  for (std::string path; files.size() < most && NextPath(key, path);) {
    struct stat status {};
    if (IsGone(path, status)) {
      RemoveIfGone({path, key.database, key.table});
      continue;
    }
    if (passes(path)) continue;
    size += static_cast<std::uint64_t>(status.st_size);
    if (size > bytes && !files.empty()) break;
    files.push_back({path, key.database, key.table});
  }
  return files;
}

void Backlog::Remove(const MemFile& file) {
  const MutexLock lock(m_lock);
  const auto database = m_waiting.find(file.database);
  if (database == m_waiting.end()) return;
  const auto table = database->second.tables.find(file.table);
  if (table == database->second.tables.end()) return;
  table->second.Erase(file.path);
  if (table->second.empty()) database->second.tables.erase(table);
}

// A file that comes at this moment was noted before the removal, and would be forgotten by it, or
// is seen behind it.
void Backlog::RemoveIfGone(const MemFile& file) {
  Remove(file);
  struct stat status {};
  if (!IsGone(file.path, status)) Insert(file);
}
