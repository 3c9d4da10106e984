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
  for (const std::string& folder : gone) RemoveFolder(folder);
  m_folders = std::move(folders);
  return true;
}

void Backlog::Rescan() {
  for (const std::string& folder : Folders()) RescanFolder(folder);
}

// What was known of the folder is replaced only once the folder is open, so that a folder that is
// closed for a moment, for want of descriptors say, loses no file.
void Backlog::RescanFolder(const std::string& folder) {
  if (!IsDatabaseId(folder)) return;
  const Directory dir(opendir(PathOf(folder).c_str()));
  if (dir == nullptr) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) {
      m_folders.erase(folder);
      RemoveFolder(folder);
    } else {
      Complain(folder, error);
    }
    return;
  }
  // Files that were renamed or removed by others leave the backlog here.
  m_unreadable.erase(folder);
  m_folders.insert(folder);
  RemoveFolder(folder);
  while (const dirent* entry = readdir(dir.get())) {
    if (my_select(entry) != 0) Add(folder, entry->d_name);
  }
}

void Backlog::Note(const std::string& folder, const std::string& name) {
  if (IsDatabaseId(folder)) Add(folder, name.c_str());
}

// A name that is noted twice, by the watch and by a reading, is in the set once.
void Backlog::Add(const std::string& folder, const char* name) {
  if (!IsMemFileName(name)) return;
  MemFile file = MemFile::Parse(PathOf(folder) + "/" + name);
  m_tables[{file.database, file.table}].insert(std::move(file.path));
}

// By path and not by database: a folder may hold files that carry another device's name.
void Backlog::RemoveFolder(const std::string& folder) {
  const std::string begin = PathOf(folder) + "/";
  for (auto& [key, paths] : m_tables) {
    auto first = paths.lower_bound(begin);
    auto last = first;
    while (last != paths.end() && last->starts_with(begin)) ++last;
    paths.erase(first, last);
  }
  std::erase_if(m_tables, [](const auto& table) { return table.second.empty(); });
}

std::vector<std::string> Backlog::Folders() const { return {m_folders.begin(), m_folders.end()}; }

std::vector<Backlog::TableKey> Backlog::Tables() const {
  std::vector<TableKey> keys;
  for (const auto& [key, paths] : m_tables) keys.push_back(key);
  return keys;
}

std::size_t Backlog::CountFiles(const TableKey& key) const {
  const auto found = m_tables.find(key);
  return found == m_tables.end() ? 0 : found->second.size();
}

// The order of names is that of the times in them, so the oldest files come first. Each file is
// looked at as late as here: a backlog may be hours old when its turn comes.
std::vector<MemFile> Backlog::First(const TableKey& key, std::size_t most, std::uint64_t bytes,
                                    const std::function<bool(const std::string&)>& passes) {
  std::vector<MemFile> files;
  const auto found = m_tables.find(key);
  if (found == m_tables.end()) return files;
  std::uint64_t size = 0;
  for (auto path = found->second.begin(); path != found->second.end() && files.size() < most;) {
    struct stat status {};
    if (lstat(path->c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
      path = found->second.erase(path);
      continue;
    }
    if (!passes(*path)) {
      size += static_cast<std::uint64_t>(status.st_size);
      if (size > bytes && !files.empty()) break;
      files.push_back({*path, key.database, key.table});
    }
    ++path;
  }
  if (found->second.empty()) m_tables.erase(found);
  return files;
}

void Backlog::Remove(const MemFile& file) {
  const auto found = m_tables.find({file.database, file.table});
  if (found == m_tables.end()) return;
  found->second.erase(file.path);
  if (found->second.empty()) m_tables.erase(found);
}
