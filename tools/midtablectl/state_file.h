// What the running service tells of itself in paths::kStateFile, as values. The format is described
// in docs/state.md.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "support/paths.h"

namespace ctl {

// What holds files back.
struct HeldState {
  std::string what;  // "server" or another of those that docs/state.md lists
  std::uint64_t files = 0;
  std::string reason;
  std::time_t since = 0;
};

// A load that is under way.
struct LoadingState {
  std::string file;  // the path, or that of the first of several
  std::string table;
  std::time_t since = 0;
  std::uint64_t files = 0;  // that are loaded together
  std::uint64_t bytes_total = 0;
  std::optional<std::uint64_t> bytes_done;  // unknown where the server reads the file by itself
};

struct ErrorState {
  std::time_t at = 0;
  std::string text;
};

// Files that lie in the folder of a database.
struct InSpoolState {
  std::uint64_t loaded = 0;
  std::uint64_t failed = 0;
};

// What is known of one database. Counters begin with the service.
struct DatabaseState {
  std::string database;
  std::uint64_t waiting = 0;
  std::optional<std::time_t> oldest_waiting_at;
  std::optional<LoadingState> loading;
  std::uint64_t loaded_files = 0;
  std::uint64_t loaded_rows = 0;
  std::uint64_t counted_rows = 0;
  std::uint64_t failed_files = 0;
  std::optional<std::uint64_t> failed_rows;
  std::uint64_t left_out_rows = 0;  // of files that were loaded; an older service does not tell
  std::uint64_t last_minute_files = 0;
  std::uint64_t last_minute_rows = 0;
  std::optional<InSpoolState> in_spool;
  std::vector<HeldState> held_back;
  std::optional<std::time_t> last_success_at;
  std::optional<ErrorState> last_error;
};

struct ServiceState {
  std::string service_version;
  long pid = 0;
  std::time_t started_at = 0;
  std::time_t written_at = 0;
  std::string delivery;  // "once", or empty
  int workers = 1;
  std::vector<HeldState> held_back;      // that concerns every database
  std::vector<DatabaseState> databases;  // sorted by name
};

// Whether the service runs: it holds a lock on a file as long as it lives.
struct ServiceLock {
  bool held = false;
  long pid = 0;  // who holds it, where that can be seen; else 0
};
ServiceLock LookAtServiceLock();

// The state in a text; nothing for one that is no state, or that a newer service wrote.
std::optional<ServiceState> ParseState(const std::string& text);

// The state that stands in the file; nothing where there is none that can be read. Whoever wrote
// the file may be gone: see ReadRunningState.
std::optional<ServiceState> ReadState(const std::string& path = paths::kStateFile);

// The state of the service that holds its lock at this moment. `pid`: the holder's, 0 where it
// cannot be seen. Nothing where the file is another process's, which was killed.
std::optional<ServiceState> ReadRunningState(long pid, const std::string& path = paths::kStateFile);

}  // namespace ctl
