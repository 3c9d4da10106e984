#include "midtablectl/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "support/file.h"

namespace ctl {

namespace {

using Json = nlohmann::json;

constexpr int kVersion = 1;
// A thousand databases take about a megabyte. What is far larger was not written by the service.
constexpr off_t kMostBytes = 256L << 20;

// What is null or missing is not known.
template <typename T>
std::optional<T> Known(const Json& object, const char* name) {
  const auto member = object.find(name);
  if (member == object.end() || member->is_null()) return std::nullopt;
  return member->get<T>();
}

template <typename T>
T ValueOf(const Json& object, const char* name) {
  return object.at(name).get<T>();
}

std::vector<HeldState> HeldOf(const Json& object) {
  std::vector<HeldState> all;
  for (const Json& held : object.at("held_back")) {
    all.push_back({ValueOf<std::string>(held, "what"), ValueOf<std::uint64_t>(held, "files"),
                   ValueOf<std::string>(held, "reason"), ValueOf<std::time_t>(held, "since")});
  }
  return all;
}

LoadingState LoadingOf(const Json& load) {
  return {ValueOf<std::string>(load, "file"),          ValueOf<std::string>(load, "table"),
          ValueOf<std::time_t>(load, "since"),         ValueOf<std::uint64_t>(load, "files"),
          ValueOf<std::uint64_t>(load, "bytes_total"), Known<std::uint64_t>(load, "bytes_done")};
}

DatabaseState DatabaseOf(const Json& json) {
  DatabaseState one;
  one.database = ValueOf<std::string>(json, "database");
  one.waiting = ValueOf<std::uint64_t>(json, "waiting");
  one.oldest_waiting_at = Known<std::time_t>(json, "oldest_waiting_at");
  if (const auto load = Known<Json>(json, "loading")) one.loading = LoadingOf(*load);
  one.loaded_files = ValueOf<std::uint64_t>(json, "loaded_files");
  one.loaded_rows = ValueOf<std::uint64_t>(json, "loaded_rows");
  one.counted_rows = ValueOf<std::uint64_t>(json, "counted_rows");
  one.failed_files = ValueOf<std::uint64_t>(json, "failed_files");
  one.failed_rows = Known<std::uint64_t>(json, "failed_rows");
  one.last_minute_files = ValueOf<std::uint64_t>(json.at("last_minute"), "files");
  one.last_minute_rows = ValueOf<std::uint64_t>(json.at("last_minute"), "rows");
  if (const auto spool = Known<Json>(json, "in_spool")) {
    one.in_spool = {ValueOf<std::uint64_t>(*spool, "loaded"),
                    ValueOf<std::uint64_t>(*spool, "failed")};
  }
  one.held_back = HeldOf(json);
  one.last_success_at = Known<std::time_t>(json, "last_success_at");
  if (const auto error = Known<Json>(json, "last_error")) {
    one.last_error = {ValueOf<std::time_t>(*error, "at"), ValueOf<std::string>(*error, "text")};
  }
  return one;
}

ServiceState StateOf(const Json& json) {
  ServiceState state;
  state.service_version = ValueOf<std::string>(json, "service_version");
  state.pid = ValueOf<long>(json, "pid");
  state.started_at = ValueOf<std::time_t>(json, "started_at");
  state.written_at = ValueOf<std::time_t>(json, "written_at");
  state.delivery = ValueOf<std::string>(json, "delivery");
  state.workers = ValueOf<int>(json, "workers");
  state.held_back = HeldOf(json);
  for (const Json& one : json.at("databases")) state.databases.push_back(DatabaseOf(one));
  return state;
}

}  // namespace

// The library tells by an exception that a member is missing, or of another type. Either means that
// this is no file of the service.
std::optional<ServiceState> ParseState(const std::string& text) {
  try {
    const Json json = Json::parse(text);
    if (ValueOf<int>(json, "version") != kVersion) return std::nullopt;
    return StateOf(json);
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::optional<ServiceState> ReadState(const std::string& path) {
  struct stat status {};
  const FileDescriptor file = OpenRegular(path, status);
  if (!file || status.st_size > kMostBytes) return std::nullopt;
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  if (read(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    return std::nullopt;
  }
  return ParseState(text);
}

// Asked without taking the lock, which would keep a service from starting at this moment. It is
// told also where nobody may see the service's process.
ServiceLock LookAtServiceLock() {
  const FileDescriptor file(open(paths::kLockFile, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (!file || fcntl(file.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return {};
  return {true, lock.l_pid > 0 ? lock.l_pid : 0};
}

std::optional<ServiceState> ReadRunningState(long pid, const std::string& path) {
  std::optional<ServiceState> state = ReadState(path);
  if (state && pid > 0 && state->pid != pid) state.reset();
  return state;
}

}  // namespace ctl
