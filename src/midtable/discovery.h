// Which mem files of the spool a pass loads.
#pragma once

#include <chrono>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "spool/mem_file.h"
#include "spool/settled_files.h"
#include "spool/spool_folder.h"
#include "spool/spool_system.h"
#include "state/board.h"

// Mem files in load order.
using MemFileQueue = std::list<MemFile>;

// Whether a file of that mem table is in the queue.
bool HoldsTable(const MemFileQueue& queue, const MemFile& file);

// Remembers what was read of the database folders. One thread.
class Discovery {
 public:
  // `system` must outlive the object.
  explicit Discovery(const SpoolSystem& system) : m_system(system) {}

  // Replaces `names` by those of the database folders, in the order in which the spool lists them,
  // those that were put last at the end in the order in which they were. False, after a line in the
  // run log, when the spool cannot be listed; `names` stays then.
  bool ListDatabases(std::list<std::string>& names);
  // Fills `queue` to two files of distinct tables, none of which is settled, from the folder of
  // that name. The greatest names are chosen; the least of them is first in the queue. A folder
  // that cannot be read is logged.
  void QueueFiles(const std::string& database, MemFileQueue& queue);
  // What is known of the files in the folder of that name, which was read for one of the others.
  void ShowFiles(const std::string& database, StateBoard& board);
  // The paths of all files in the folder of that name that wait for the mem table of `table`. A
  // folder that cannot be read is logged, and has none.
  std::vector<std::string> FilesOf(const std::string& database, const MemFile& table);

  // The database whose folder holds this file, which failed, comes last from now on: a backlog that
  // fails must not keep the others waiting.
  void PutLast(const MemFile& file);
  // The database of that name has loaded and converted its files: it takes its turn again.
  void Served(const std::string& database) { m_last.remove(database); }

  std::chrono::nanoseconds SteadyClock() const { return m_system.SteadyClock(); }
  // Files that are done with although they have the name of one that waits.
  SettledFiles& settled() { return m_settled; }

 private:
  void Offer(const std::string& database, const WaitingFiles::Offer& offer);

  const SpoolSystem& m_system;
  std::map<std::string, SpoolFolder> m_folders;  // by name
  std::list<std::string> m_last;
  SettledFiles m_settled;
};
