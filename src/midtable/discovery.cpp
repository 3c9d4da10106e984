// Which mem files a pass loads.

#include <string_view>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"
#include "support/paths.h"

namespace {

// Files queued for one database and pass: a throttle that lets every database have its turn.
constexpr std::size_t kQueuedPerPass = 2;

}  // namespace

bool CMidTable::IsLoadFile(const std::string& name) { return IsMemFileName(name); }

std::string CMidTable::GetItemFromName(const std::string& path, const char* key) {
  if (path.empty() || key == nullptr) {
    g_loger(kUnit, __LINE__, kError, "file path is null");
    return {};
  }
  const std::string_view item = key;
  if (item == "filepath") return MemFilePath(path);
  if (item == "dbname") return MemFileDatabase(path);
  if (item == "tablename") return MemFileTable(path);
  g_loger(kUnit, __LINE__, kDebug, "key (%s) not valide on file (%s)", key, path.c_str());
  return {};
}

bool CMidTable::IsTableNameConflict(const std::list<std::string>& list, const std::string& path) {
  if (list.empty()) return false;
  const std::string table = GetItemFromName(path, "tablename");
  const std::string database = GetItemFromName(path, "dbname");
  for (const std::string& entry : list) {
    if (GetItemFromName(entry, "tablename") == table &&
        GetItemFromName(entry, "dbname") == database) {
      return true;
    }
  }
  return false;
}

bool CMidTable::GetMemFiles(const std::string& dbname) {
  const std::string path = paths::kSpool + dbname;
  SpoolFolder& folder = m_folders.try_emplace(dbname, path, m_system).first->second;
  // From the newest name down; queued at the front, so that the queue is in ascending order.
  const int error = folder.OfferFiles([this](const std::string& file) {
    using Answer = SpoolFolder::Answer;
    if (m_lstMemFile.size() >= kQueuedPerPass) return Answer::kEnough;
    if (IsTableNameConflict(m_lstMemFile, file)) return Answer::kPassTable;
    if (m_settled.Contains(file)) return Answer::kPass;
    m_lstMemFile.push_front(file);
    g_loger(kUnit, __LINE__, kConsole, "file %s is push to list", file.c_str());
    return Answer::kTaken;
  });
  if (error != 0) {
    g_loger(kUnit, __LINE__, kError, "scan dir %s errno %d", path.c_str(), error);
  }
  return !m_lstMemFile.empty();
}
