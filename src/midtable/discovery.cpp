#include "midtable/discovery.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/database_name.h"
#include "support/file.h"
#include "support/names.h"
#include "support/paths.h"

namespace {

// Files queued for one database and pass: a throttle that lets every database have its turn.
constexpr std::size_t kQueuedPerPass = 2;

}  // namespace

bool HoldsTable(const MemFileQueue& queue, const MemFile& file) {
  return std::any_of(queue.begin(), queue.end(),
                     [&file](const MemFile& entry) { return entry.SharesTableWith(file); });
}

// A folder that is gone takes what was read of it along, so that years of devices cost no memory.
bool Discovery::ListDatabases(std::list<std::string>& names) {
  const Directory dir(opendir(paths::kSpool));
  if (dir == nullptr) {
    g_loger(kUnit, __LINE__, kError, "open dir (%s) failed errno (%d)", paths::kSpool, errno);
    return false;
  }
  names.clear();
  while (const dirent* entry = readdir(dir.get())) {
    if (IsDatabaseId(entry->d_name)) names.emplace_back(entry->d_name);
  }
  // Databases whose files failed go to the end in the order of their failures, so that those that
  // failed longest ago are tried first. Names without a folder are forgotten.
  m_last.remove_if([&names](const std::string& name) {
    return std::find(names.begin(), names.end(), name) == names.end();
  });
  for (const std::string& name : m_last) {
    names.remove(name);
    names.push_back(name);
  }
  if (m_folders.size() > names.size()) {
    std::erase_if(m_folders, [&names](const auto& folder) {
      return std::find(names.begin(), names.end(), folder.first) == names.end();
    });
  }
  return true;
}

// The database is told by the folder: the file in it may carry the name of another database, which
// is not the one that holds the others up.
void Discovery::PutLast(const MemFile& file) {
  const std::string_view folder = std::string_view(file.path).substr(0, file.path.rfind('/'));
  const std::string name(FileNameOf(folder));
  m_last.remove(name);
  m_last.push_back(name);
}

void Discovery::QueueFiles(const std::string& database, MemFileQueue& queue) {
  // The greatest name comes first and goes to the front, so that the queue is in ascending order.
  Offer(database, [&](const MemFile& file) {
    using Answer = WaitingFiles::Answer;
    if (queue.size() >= kQueuedPerPass) return Answer::kEnough;
    if (HoldsTable(queue, file)) return Answer::kTableServed;
    if (m_settled.Contains(file.path)) return Answer::kPass;
    queue.push_front(file);
    g_loger(kUnit, __LINE__, kConsole, "file %s is push to list", file.path.c_str());
    return Answer::kTaken;
  });
}

std::vector<std::string> Discovery::FilesOf(const std::string& database, const MemFile& table) {
  std::vector<std::string> paths;
  Offer(database, [&](const MemFile& file) {
    using Answer = WaitingFiles::Answer;
    if (!file.SharesTableWith(table)) return Answer::kTableServed;
    if (!m_settled.Contains(file.path)) paths.push_back(file.path);
    return Answer::kPass;
  });
  return paths;
}

void Discovery::ShowFiles(const std::string& database, StateBoard& board) {
  const auto found = m_folders.find(database);
  if (found == m_folders.end()) return;
  SpoolFolder& folder = found->second;
  const std::string path = folder.waiting().OldestPath();
  struct stat oldest {};
  const bool is_known = !path.empty() && lstat(path.c_str(), &oldest) == 0;
  const std::string name = DatabaseName(database);
  board.SetWaiting(name, folder.waiting().Count(),
                   is_known ? std::optional(oldest.st_mtime) : std::nullopt);
  std::optional<InSpool> finished;
  if (folder.TakeFinished(finished)) board.SetInSpool(name, finished);
}

void Discovery::Offer(const std::string& database, const WaitingFiles::Offer& offer) {
  const std::string path = paths::kSpool + database;
  SpoolFolder& folder = m_folders.try_emplace(database, path, m_system).first->second;
  const int error = folder.OfferFiles(offer);
  if (error != 0) {
    g_loger(kUnit, __LINE__, kError, "scan dir %s errno %d", path.c_str(), error);
  }
}
