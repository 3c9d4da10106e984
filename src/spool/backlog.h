// The mem files that wait in the spool, by mem table: found by reading the folders, and told of
// between two readings.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "spool/mem_file.h"

// Names alone are kept, so that a backlog of hundreds of thousands of files stays small. One
// thread.
class Backlog {
 public:
  struct TableKey {
    std::string database;
    std::string table;
    auto operator<=>(const TableKey&) const = default;
  };

  // Looks which database folders there are, and forgets the files of those that are gone. False
  // when the spool cannot be listed: all stays as it was. A line in the run log says so the first
  // time, and again after it could be listed.
  bool FindFolders();
  // Reads all known folders anew. One that cannot be read keeps what was known of it; logged as
  // above.
  void Rescan();
  // Reads one folder; nothing for a name that is no database folder's.
  void RescanFolder(const std::string& folder);
  // Takes a name in a folder that somebody saw come; nothing for what is no waiting mem file's.
  void Note(const std::string& folder, const std::string& name);

  std::vector<std::string> Folders() const;
  std::vector<TableKey> Tables() const;
  bool empty() const { return m_tables.empty(); }
  std::size_t CountFiles(const TableKey& key) const;

  // The first files of a mem table, in the order of their names: at most `most`, and no more than
  // `bytes` together unless the first alone is larger. Those that are gone leave the backlog.
  // Paths that `passes` are left out.
  std::vector<MemFile> First(const TableKey& key, std::size_t most, std::uint64_t bytes,
                             const std::function<bool(const std::string& path)>& passes);
  // The file is done with, or gone.
  void Remove(const MemFile& file);

 private:
  bool ListDatabases(std::set<std::string>& folders);
  void Add(const std::string& folder, const char* name);
  void RemoveFolder(const std::string& folder);
  void Complain(const std::string& folder, int error);

  std::map<TableKey, std::set<std::string>> m_tables;  // full paths
  std::set<std::string> m_folders;
  std::set<std::string> m_unreadable;
};
