// The figures of files as the running service tells them, without a look into their folders.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "midtablectl/status.h"
#include "support/paths.h"

namespace ctl {

namespace {

constexpr std::time_t kRateSeconds = 60;
// The service writes its state anew as the last minute goes by: what is older has no last minute.
constexpr std::time_t kStaleSeconds = 75;

void AddHeld(const std::vector<HeldState>& all, std::vector<Held>& held) {
  for (const HeldState& one : all) {
    held.push_back({one.what, std::to_string(one.files), one.reason, {}});
  }
}

// A link that leads nowhere stands for a folder that somebody wants to be there.
bool IsLink(const std::string& id) {
  struct stat status {};
  return lstat((paths::kSpool + id).c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// From the service's start on, where that was later.
void TakeSpeed(const DatabaseState& one, const ServiceState& state, std::time_t now,
               DatabaseStatus& status) {
  const auto span =
      static_cast<double>(std::clamp<std::time_t>(now - state.started_at, 1, kRateSeconds));
  if (now - state.written_at <= kStaleSeconds) {
    status.files_per_second = static_cast<double>(one.last_minute_files) / span;
    status.rows_per_second = static_cast<double>(one.last_minute_rows) / span;
  }
  if (one.waiting == 0) {
    status.seconds_to_empty = 0;
  } else if (status.files_per_second > 0) {
    status.seconds_to_empty = static_cast<double>(one.waiting) / status.files_per_second;
  }
}

}  // namespace

// The spool itself is listed all the same: that is a name for each device, and tells whether the
// service sees the spool at all.
void Observer::TakeState(const ServiceState& state, SystemStatus& status) {
  status.by_service = true;
  status.once = state.delivery == kDeliveryOnce;
  ListIds(status.spool_error);
  AddHeld(state.held_back, status.held);
  for (const DatabaseState& one : state.databases) {
    status.databases.push_back(StatusOf(one, state, status.time));
    AddHeld(one.held_back, status.held);
    if (one.loading) status.loading.push_back(*one.loading);
  }
}

// A folder that the service has not read, or could not, is looked at after all: it may be one that
// nobody can list, which is to be told. Files that failed are counted anew where there are any: who
// has just removed them wants to see that, and the service reads a folder once a minute.
DatabaseStatus Observer::StatusOf(const DatabaseState& one, const ServiceState& state,
                                  std::time_t now) {
  const std::string id = one.database.substr(std::min(kDatabasePrefix.size(), one.database.size()));
  if (!one.in_spool) {
    const DatabaseFolder folder = ScanFolder(id);
    if (folder.error != ENOENT || IsLink(id)) return LookAt(folder, now);
  }
  DatabaseStatus status;
  status.database = one.database;
  status.waiting = one.waiting;
  status.waiting_bytes.reset();
  status.kept.reset();
  if (one.waiting > 0) status.oldest_seconds.reset();
  if (one.oldest_waiting_at) status.oldest_seconds = now - *one.oldest_waiting_at;
  if (one.in_spool) {
    status.loaded = one.in_spool->loaded;
    status.failed = one.in_spool->failed;
    if (status.failed > 0) status.failed = CountFailed(id).value_or(status.failed);
  }
  status.left_out = one.left_out_rows;
  status.last_loaded = one.last_success_at;
  TakeSpeed(one, state, now, status);
  return status;
}

}  // namespace ctl
