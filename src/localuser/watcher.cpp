// The thread that reloads the registry's sources when they change.
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <system_error>

#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "support/run_state.h"

namespace {

constexpr int kPauseSeconds = 10;

// Modification time in whole seconds; nothing, and a line in the log, for a file that is not there.
std::optional<std::time_t> ModificationTime(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    g_loger(TourLocalUser::kUnit, __LINE__, kError, "%s stat faild:", path.c_str());
    return std::nullopt;
  }
  return status.st_mtime;
}

// Whether `now` differs from what was seen before; remembers it.
template <typename T>
bool Changed(std::atomic<T>& seen, T now) {
  return seen.exchange(now) != now;
}

}  // namespace

int TourLocalUser::init() {
  if (m_thread.joinable()) return 1;
  try {
    m_thread = std::thread(check_thread, this);
  } catch (const std::system_error&) {
    g_loger(kUnit, __LINE__, kError, "creat thread failed");
  }
  return 1;
}

void TourLocalUser::AwaitFirstRound(int seconds) const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (m_thread.joinable() && !m_seenAll && g_nMainRun != 0 &&
         std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void TourLocalUser::WaitExit() {
  if (m_thread.joinable()) m_thread.join();
}

void TourLocalUser::CheckSources() {
  // Shared by all instances: what one has seen, no other loads again.
  static std::atomic<unsigned int> checksum{0};
  static std::atomic<std::time_t> last_mtime{0};
  static std::atomic<std::time_t> last_mtime_city_crc{0};

  const unsigned int current = GetTableCheckSum("EnterpriseUser");
  if (current != 0 && Changed(checksum, current)) GetEnterpriseUser();

  const auto blocks = ModificationTime(LOGFILE);
  if (blocks && Changed(last_mtime, *blocks) && Update() == 0) {
    g_loger(kUnit, __LINE__, kInfo, "not updated");
  }
  const auto devices = ModificationTime(CITYCRCFILE);
  // DELIBERATE: 0 is success here, so this says "not updated" after an update.
  if (devices && Changed(last_mtime_city_crc, *devices) && updateCityCRC() == 0) {
    g_loger(kUnit, __LINE__, kInfo, "not updated");
  }
}

void* TourLocalUser::check_thread(void* self) {
  g_loger(kUnit, __LINE__, kConsole, "in check 0x%08x\n",
          static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(self)));
  auto& registry = *static_cast<TourLocalUser*>(self);
  while (g_nMainRun != 0) {
    g_loger(kUnit, __LINE__, kConsole, "in while\n");
    registry.CheckSources();
    registry.m_seenAll = true;
    sleep_i(kPauseSeconds);
  }
  return nullptr;
}
