// What lies in the spool, by folder and by state of the files.
//
// The spool is read by names alone and no file is opened, so that a look at it disturbs neither the
// producers nor the service. Both go on meanwhile: a result tells how it was at about one moment.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/database_name.h"

namespace ctl {

// What has become of a file, by its name and by the names beside it.
enum class FileState {
  kWaiting,   // .dat, under a name that the service takes
  kLoaded,    // .mid
  kFailed,    // .err: its rows are nowhere else
  kKept,      // .orig, or .err beside a .mid or .dat: the first form of a delivery that lost lines
  kSetAside,  // .err.1, .orig.1 and so on: an earlier file of the same name
  kOther      // anything else, which the service passes over
};

struct SpoolEntry {
  std::string name;
  FileState state;
  struct stat status;  // of the name itself: a link is not followed

  bool IsRegular() const { return S_ISREG(status.st_mode); }
};

// The folder of one database.
struct DatabaseFolder {
  std::string id;                 // its name, which is a part of the database's name
  int error = 0;                  // errno when it could not be listed; there are no files then
  std::vector<SpoolEntry> files;  // sorted by name

  std::string Path() const;  // with a slash at the end
  std::string Database() const { return DatabaseName(id); }
};

struct Spool {
  int error = 0;                        // errno when the spool itself could not be listed
  std::vector<DatabaseFolder> folders;  // those that the service looks into, sorted by name
  std::vector<std::string> others;      // names in the spool that the service passes over
};

// Why the service passes the file over, which looks like a mem file with a wrong name; null for any
// other.
const char* WhyNeverTaken(const SpoolEntry& file);

// Of the spool and the folder of the run log, those whose file system has no room left.
std::vector<std::string> FullFolders();

// The ids of the folders that the service looks into, sorted. `error` becomes 0, or errno when the
// spool cannot be listed.
std::vector<std::string> ListIds(int& error);

// Reads one folder.
DatabaseFolder ScanFolder(const std::string& id);

// The files of a folder that failed, told by names alone; nothing where it cannot be listed.
std::optional<std::uint64_t> CountFailed(const std::string& id);

// Reads all folders of the spool. What vanishes while they are read is left out.
Spool ScanSpool();

// The lines of a file; 0 of one that is gone or no regular file.
std::uint64_t CountRows(const std::string& path);

// The full path of a file that is given by any path, or by its bare name. When its folder is one of
// the spool, by whatever way, the path is spelled as the service spells it in the run log.
std::string SpoolPath(const std::string& file);

// The name that a file had while it waited, "....dat": of a name or path that ends in .mid, .err,
// .err.N, .orig or .orig.N. Empty for any other.
std::string WaitingName(std::string_view name);

}  // namespace ctl
