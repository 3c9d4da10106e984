// The mem files that wait in the spool, by database and mem table: found by reading the folders,
// and told of between two readings.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "spool/finished_files.h"
#include "spool/mem_file.h"
#include "spool/path_set.h"
#include "support/file.h"
#include "support/file_identity.h"
#include "support/mutex.h"

// Names alone are kept, and packed, so that a backlog of hundreds of thousands of files stays
// small.
//
// Threads: one thread finds and reads folders; what waits may be asked and told by any. No system
// call is made under the lock.
class Backlog {
 public:
  struct TableKey {
    std::string database;
    std::string table;
    auto operator<=>(const TableKey&) const = default;
  };

  // --- what comes: one thread

  // Looks which database folders there are, and forgets the files of those that are gone. False
  // when the spool cannot be listed: all stays as it was. A line in the run log says so the first
  // time, and again after it could be listed.
  bool FindFolders();
  // Has all known folders read by ReadOn; with `changed_only`, no folder that is as it was when it
  // was last read. One that cannot be read is logged as above.
  void Rescan(bool changed_only);
  // The same for one folder, before all others; nothing for a name that is no database folder's.
  void RescanFolder(const std::string& folder);
  // Reads on for about so many names, since an old folder may hold hundreds of thousands. False
  // when there is nothing more to read.
  bool ReadOn(std::size_t names);
  // Takes a name in a folder that somebody saw come; nothing for what is no waiting mem file's.
  void Note(const std::string& folder, const std::string& name) EXCLUDES(m_lock);
  std::vector<std::string> Folders() const { return {m_folders.begin(), m_folders.end()}; }
  // Files that are done with, of each folder whose reading has come to its end since the last call;
  // nothing is known of one that cannot be read.
  std::map<std::string, std::optional<InSpool>> TakeFinished() {
    return std::exchange(m_finished, {});
  }

  // --- what waits: any thread

  // Databases for which files wait, and the mem tables of one of them.
  std::vector<std::string> Databases() const EXCLUDES(m_lock);
  std::vector<std::string> Tables(const std::string& database) const EXCLUDES(m_lock);
  std::size_t CountFiles(const TableKey& key) const EXCLUDES(m_lock);
  std::size_t CountFiles() const EXCLUDES(m_lock);
  // The path that comes first of each of the database's mem tables.
  std::vector<std::string> FirstPaths(const std::string& database) const EXCLUDES(m_lock);
  // Grows with each file that comes for the database.
  std::uint64_t CountArrivals(const std::string& database) const EXCLUDES(m_lock);
  // Both figures of each database for which a file has come at any time.
  struct Count {
    std::string database;
    std::size_t files = 0;
    std::uint64_t arrivals = 0;
  };
  std::vector<Count> Counts() const EXCLUDES(m_lock);

  // The first files of a mem table, in the order of their names: at most `most`, and no more than
  // `bytes` together unless the first alone is larger. Those that are gone leave the backlog.
  // Paths that `passes` are left out.
  std::vector<MemFile> First(const TableKey& key, std::size_t most, std::uint64_t bytes,
                             const std::function<bool(const std::string& path)>& passes)
      EXCLUDES(m_lock);
  // The file is done with. Before it loses its name, or a new one of that name might be forgotten.
  void Remove(const MemFile& file) EXCLUDES(m_lock);
  // The file was not there.
  void RemoveIfGone(const MemFile& file) EXCLUDES(m_lock);

 private:
  struct Waiting {
    std::map<std::string, PathSet> tables;  // no table without a path
    std::uint64_t arrivals = 0;
  };
  // The folder that is being read.
  struct Reading {
    std::string folder;
    Directory directory;
    std::optional<FileIdentity> stamp;
    FinishedFiles finished = {};
  };

  bool ListDatabases(std::set<std::string>& folders);
  bool OpenNext();
  void Add(const std::string& folder, const char* name) EXCLUDES(m_lock);
  void Insert(const MemFile& file) EXCLUDES(m_lock);
  bool NextPath(const TableKey& key, std::string& path) const EXCLUDES(m_lock);
  const PathSet* PathsOf(const TableKey& key) const REQUIRES(m_lock);
  void ForgetFolder(const std::string& folder) EXCLUDES(m_lock);
  void Complain(const std::string& folder, int error);

  std::set<std::string> m_folders;
  std::set<std::string> m_unreadable;
  std::deque<std::string> m_unread;  // folders
  std::optional<Reading> m_reading;
  std::map<std::string, std::optional<InSpool>> m_finished;  // by folder
  // What each folder was when its last reading began, where a later change is certain to show.
  std::map<std::string, FileIdentity> m_stamps;
  mutable Mutex m_lock;
  std::map<std::string, Waiting> m_waiting GUARDED_BY(m_lock);  // by database
};
