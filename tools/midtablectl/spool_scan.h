// What lies in the spool, by folder and state.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/database_name.h"

namespace ctl {

enum class FileState {
  kWaiting,   // a name that the service takes
  kLoaded,    // .mid
  kFailed,    // .err
  kKept,      // .orig, or .err beside a .mid or .dat: as it came, its good lines being in the other
  kSetAside,  // .err.1, .orig.1 and so on: earlier ones of that name
  kOther
};

struct SpoolEntry {
  std::string name;
  FileState state;
  struct stat status;  // of the name itself, links not followed

  bool IsRegular() const { return S_ISREG(status.st_mode); }
};

struct DatabaseFolder {
  std::string id;
  int error = 0;  // errno when it could not be listed
  std::vector<SpoolEntry> files;

  std::string Path() const;
  std::string Database() const { return DatabaseName(id); }
};

struct Spool {
  int error = 0;                        // errno when the spool itself could not be listed
  std::vector<DatabaseFolder> folders;  // as the service finds them, sorted by name
  std::vector<std::string> others;      // names that the service passes over
};

// Reads all folders of the spool. What vanishes meanwhile is left out; what could not be listed has
// its errno.
Spool ScanSpool();

// The full path of a file that is given by any path or by its bare name: where its folder is one of
// the spool, as the service writes it.
std::string SpoolPath(const std::string& file);

// "....dat" of a name or path that ends in .mid, .err, .err.N, .orig or .orig.N; empty for any
// other.
std::string WaitingName(std::string_view name);

}  // namespace ctl
