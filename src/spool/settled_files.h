// Mem files that are done with but could not be renamed, in a folder that is read-only or full say.
// They still look as if they waited; loading one again would count its rows twice, and one that
// cannot be loaded would end every pass before its time.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

#include "support/file_identity.h"

class SettledFiles {
 public:
  // Remembers the file that has the name `path` and should be named `target`: the one that has it
  // now or, where that cannot be seen, `last_seen`.
  void Add(const std::string& path, const std::string& target,
           const std::optional<FileIdentity>& last_seen);

  // Whether the file of this name is one of them. A new or changed file of the same name is not.
  bool Contains(const std::string& path) const;

  // Those whose renames failed again.
  struct Refused {
    std::size_t files = 0;
    int error = 0;  // errno of one of them
    // What the run log and the state file say of them.
    std::string Reason() const;
  };
  // Tries each rename again and logs those that succeed; forgets them, files that were changed, and
  // files that are gone from their folder. A folder that is out of reach, not mounted say, may come
  // back with its files. Returns what is left.
  Refused RetryRenames();

 private:
  struct Entry {
    FileIdentity identity;
    std::optional<ino_t> folder;
    std::string target;
  };
  static bool IsOver(const std::string& path, const Entry& entry);

  std::map<std::string, Entry> m_entries;  // by path
};
