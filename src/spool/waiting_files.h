// The names of the mem files that wait in one folder, and the choice among them.
#pragma once

#include <cstddef>
#include <functional>
#include <memory_resource>
#include <string>
#include <unordered_map>
#include <vector>

#include "spool/mem_file.h"

// Not copied: names point into it. One thread.
class WaitingFiles {
 public:
  // What becomes of a file that was offered.
  enum class Answer {
    kTaken,        // it is chosen; no other of its table is wanted
    kTableServed,  // not chosen, since one of its table is already; offer no more of that table
    kPass,         // not chosen for a reason of its own; offer the next one of its table
    kEnough,       // offer nothing more
  };
  using Offer = std::function<Answer(const MemFile& file)>;

  // `folder`: its path, without a "/" at the end.
  explicit WaitingFiles(std::string folder) : m_folder(std::move(folder)) {}

  void Clear();
  // Notes a name of the folder; one that is not a mem file's is passed over.
  void Add(const char* name);
  // Offers the files from the greatest name down, by bytes, until there are no more or enough of
  // them. Each existed when it was offered. Whatever the answers, files stay listed for the next
  // call until they are gone. True when a file was taken, or there were enough before: the listing
  // is still of use.
  bool OfferFiles(const Offer& offer);

  // Files that are listed; those that somebody else took away count until they are noticed.
  std::size_t Count() const { return m_count; }
  // The path of the one with the earliest time in its name, which may be gone; or empty.
  std::string OldestPath() const;

 private:
  // The files of one mem table. Both the backlog of one table and the number of tables may be huge;
  // an offer costs the logarithm of each.
  struct Backlog {
    std::string database;
    std::string table;
    std::vector<const char*> names;  // a heap, the greatest in front

    void Push(const char* name);
    void Pop();
  };

  const std::string m_folder;
  std::pmr::monotonic_buffer_resource m_memory;
  std::unordered_map<std::string, Backlog> m_backlogs;  // by database and table
  std::size_t m_count = 0;
  const char* m_oldest = nullptr;  // of all names, with those that are gone since
};
