// The thread that reloads the registry's sources when they change.
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "support/file_identity.h"
#include "support/housekeeping.h"
#include "support/mutex.h"
#include "support/run_state.h"

namespace {

constexpr int kPauseSeconds = 10;

// The file that the path leads to, over links too; nothing, and a line in the log, when there is
// none.
std::optional<FileIdentity> Look(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    g_loger(TourLocalUser::kUnit, __LINE__, kError, "%s stat faild:", path.c_str());
    return std::nullopt;
  }
  return IdentityOf(status);
}

// What was read last of a source that is a file.
class LastRead {
 public:
  // Whether the file is to be read now: for the first time, or since it has changed. It is then
  // remembered as it is before the reading, so what is written meanwhile shows as a change.
  //
  // A changed file must have stood still for a second. Half of one that is still being written
  // would give wrong answers; it is left to the next round.
  bool IsOutdated(const std::string& path, const TourLocalUser::Pause& pause) EXCLUDES(m_lock) {
    const auto now = Look(path);
    if (!now) return false;
    const auto before = Get();
    if (before == now) return false;
    if (before) {
      pause(1);
      if (Look(path) != now) return false;
    }
    MutexLock lock(m_lock);
    m_identity = now;
    return true;
  }

 private:
  std::optional<FileIdentity> Get() EXCLUDES(m_lock) {
    MutexLock lock(m_lock);
    return m_identity;
  }

  Mutex m_lock;
  std::optional<FileIdentity> m_identity GUARDED_BY(m_lock);
};

}  // namespace

// Without a thread the service goes on with what it has: no blocks and no cities, which is better
// than no service.
int TourLocalUser::init() {
  if (m_thread.joinable()) return 1;
  try {
    m_thread = std::thread(check_thread, this);
  } catch (const std::system_error&) {
    g_loger(kUnit, __LINE__, kError, "creat thread failed");
  }
  return 1;
}

// Waiting in short steps needs no condition variable and notices a stop.
void TourLocalUser::AwaitFirstRound(int seconds) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (m_thread.joinable() && !m_sawFiles && g_nMainRun != 0 &&
         std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void TourLocalUser::WaitExit() {
  if (m_thread.joinable()) m_thread.join();
}

// What was read last is kept for the whole process, here and below: a second registry, as a test or
// a tool may make one, does not read the sources again.
void TourLocalUser::CheckFiles() {
  static LastRead blocks;
  static LastRead devices;
  if (blocks.IsOutdated(LOGFILE, m_pause) && Update() == 0) {
    g_loger(kUnit, __LINE__, kInfo, "not updated");
  }
  // DELIBERATE: 0 is success here, so this says "not updated" after an update.
  if (devices.IsOutdated(CITYCRCFILE, m_pause) && updateCityCRC() == 0) {
    g_loger(kUnit, __LINE__, kInfo, "not updated");
  }
}

// A checksum of 0 is a failed question and no change of the table.
void TourLocalUser::CheckEnterpriseUsers() {
  if (m_makeBackEnd == nullptr) return;
  static std::atomic<unsigned int> checksum{0};
  const unsigned int current = GetTableCheckSum("EnterpriseUser");
  if (current != 0 && checksum.exchange(current) != current) GetEnterpriseUser();
}

void* TourLocalUser::check_thread(void* self) {
  g_loger(kUnit, __LINE__, kConsole, "in check 0x%08x\n",
          static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(self)));
  auto& registry = *static_cast<TourLocalUser*>(self);
  while (g_nMainRun != 0) {
    g_loger(kUnit, __LINE__, kConsole, "in while\n");
    registry.CheckFiles();
    registry.m_sawFiles = true;
    registry.CheckEnterpriseUsers();
    KeepHouse();  // the engine's thread may be busy with one load for an hour
    registry.m_pause(kPauseSeconds);
  }
  return nullptr;
}
