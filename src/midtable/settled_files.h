// Mem files that are done with but could not be renamed, in a folder that is read-only or full say.
// They still look as if they waited; loading one again would count its rows twice, and one that
// cannot be loaded would end every pass before its time.
#pragma once

#include <map>
#include <string>

#include "midtable/spool_file.h"

class SettledFiles {
 public:
  // Remembers the file that has the name `path` now and should be named `target`. A file that is
  // gone is not remembered.
  void Add(const std::string& path, const std::string& target);

  // Whether the file of this name is one of them. A new or changed file of the same name is not.
  bool Contains(const std::string& path) const;

  // Tries each rename again and logs those that succeed; forgets them, and files that are gone or
  // were changed. So there are never more entries than files in the spool.
  void RetryRenames();

 private:
  struct Entry {
    FileIdentity identity;
    std::string target;
  };
  std::map<std::string, Entry> m_entries;  // by path
};
