// Which mem files a pass loads.

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"
#include "support/paths.h"

namespace {

// Files queued for one database and pass: a throttle that lets every database have its turn.
constexpr std::size_t kQueuedPerPass = 2;

// A folder's entries that may be mem files, sorted by name.
class Listing {
 public:
  explicit Listing(const char* folder)
      : m_count(scandir(folder, &m_entries, my_select, alphasort)) {}
  ~Listing() {
    for (int i = 0; i < m_count; ++i) std::free(m_entries[i]);
    std::free(m_entries);
  }
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  int count() const { return m_count; }  // -1 when the folder could not be read
  const char* name(int index) const { return m_entries[index]->d_name; }

 private:
  static int my_select(const dirent* entry) {
    return std::strstr(entry->d_name, "dat") != nullptr ? 1 : 0;
  }

  dirent** m_entries = nullptr;
  int m_count;
};

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
  const std::string folder = paths::kSpool + dbname;
  const Listing listing(folder.c_str());
  if (listing.count() < 0) {
    g_loger(kUnit, __LINE__, kError, "scan dir %s errno %d", folder.c_str(), errno);
    return !m_lstMemFile.empty();
  }
  // From the newest name down; queued at the front, so that the queue is in ascending order.
  for (int i = listing.count() - 1; i >= 0 && m_lstMemFile.size() < kQueuedPerPass; --i) {
    if (!IsLoadFile(listing.name(i))) continue;
    const std::string path = folder + "/" + listing.name(i);
    if (IsTableNameConflict(m_lstMemFile, path) || m_settled.Contains(path)) continue;
    m_lstMemFile.push_front(path);
    g_loger(kUnit, __LINE__, kConsole, "file %s is push to list", path.c_str());
  }
  return !m_lstMemFile.empty();
}
