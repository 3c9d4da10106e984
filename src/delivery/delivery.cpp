#include "delivery/delivery.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "state/state_file.h"
#include "support/database_name.h"
#include "support/housekeeping.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

using std::chrono::milliseconds;

constexpr int kMostSecondsForRegistry = 10;
constexpr milliseconds kTick{500};
constexpr std::chrono::seconds kPollEach{1};
constexpr std::chrono::seconds kShowEach{1};
constexpr std::chrono::minutes kLookEach{1};
constexpr std::chrono::seconds kPingEach{30};
constexpr std::size_t kMostFeeds = 1'000;
// After so many visits a database is cared for although others are due.
constexpr int kMostVisits = 20;
// Names of a folder that are read before the next look at what else has come: some milliseconds.
constexpr std::size_t kNamesAtOnce = 10'000;

// Each worker holds all files of a batch open, which together may be more than the usual 1024.
void AllowManyOpenFiles() {
  constexpr rlim_t kEnough = 8192;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kEnough) return;
  limit.rlim_cur = std::min(limit.rlim_max, kEnough);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

Delivery::Delivery(const MYSQLAUTH& auth, int workers, milliseconds silence,
                   milliseconds stuck_after)
    : m_auth(auth),
      m_stuck_after(stuck_after),
      m_localUser(nullptr, [this](int seconds) { PauseWatcher(seconds); }) {
  m_localUser.init();
  if (access(paths::kNoRewriteFlag, F_OK) != 0) m_common.registry = &m_localUser;
  for (int number = 1; number <= workers; ++number) {
    m_workers.push_back(
        std::make_unique<Worker>(number, auth, silence, m_common, [this] { m_watch.Wake(); }));
  }
}

Delivery::~Delivery() {
  m_workers.clear();
  m_watcher_may_go.release();
  m_localUser.WaitExit();
}

// A stop must not wait for the end of a second's sleep.
void Delivery::PauseWatcher(int seconds) {
  for (; seconds > 0 && g_nMainRun != 0; --seconds) {
    if (m_watcher_may_go.try_acquire_for(std::chrono::seconds(1))) m_watcher_may_go.release();
  }
}

// Fewer threads than were asked for do the same work, more slowly.
bool Delivery::StartWorkers() {
  AllowManyOpenFiles();
  std::erase_if(m_workers, [](const auto& worker) { return !worker->Start(); });
  return !m_workers.empty();
}

void Delivery::Run() {
  g_loger(kUnit, __LINE__, kInfo, "current db is %s", m_auth.dbtype.c_str());
  g_loger(kUnit, __LINE__, kInfo, "delivery is once");
  // Files that wait already would be flagged as if there were no local user.
  m_localUser.AwaitFirstRound(kMostSecondsForRegistry);
  if (!StartWorkers()) return;
  const StateFile file(m_common.board, {std::string(kDeliveryOnce),
                                        static_cast<int>(m_workers.size()), std::time(nullptr)});
  LookAround(false);
  // Rows that an earlier run left, once.
  for (const std::string& folder : m_common.backlog.Folders()) {
    WorkOf(DatabaseName(folder)).SearchForRows();
  }
  m_supervisor.Ready();
  while (g_nMainRun != 0) {
    const bool more_to_read = m_common.backlog.ReadOn(kNamesAtOnce);
    m_figures.ShowFinished();
    TakeBack();
    RefreshDefinitions();
    HandOut();
    KeepHouseInTime();
    TakeEvents(more_to_read ? milliseconds(0) : kTick);
  }
  m_supervisor.Stopping();
  // The server takes back what was begun; nothing waits for that.
}

void Delivery::KeepHouseInTime() {
  const auto now = Clock::now();
  if (now - m_kept_house_at >= kTick) {
    m_kept_house_at = now;
    KeepHouse();
  }
  if (now - m_shown_at >= kShowEach) {
    m_shown_at = now;
    m_figures.Show();
    TellSupervisor(now);
  }
}

// A manager that watches the service hears of its life as long as this thread comes by here and no
// worker is stuck. A statement may take hours: the wait for the server is a loop that beats.
void Delivery::TellSupervisor(Clock::time_point now) {
  const bool is_stuck = HasStuckWorker(now);
  m_supervisor.Say(StatusLine());
  if (!is_stuck) m_supervisor.Alive();
}

bool Delivery::HasStuckWorker(Clock::time_point now) {
  const auto stuck =
      std::find_if(m_workers.begin(), m_workers.end(), [this, now](const auto& worker) {
        return worker->isBusy() && now - worker->livedAt() >= m_stuck_after;
      });
  const int number = stuck == m_workers.end() ? 0 : (*stuck)->number();
  if (number != 0 && number != m_stuck) {
    g_loger(kUnit, __LINE__, kError, "worker %d has been stuck for %lld s", number,
            static_cast<long long>(m_stuck_after.count() / 1000));
  }
  m_stuck = number;
  return number != 0;
}

std::string Delivery::StatusLine() const {
  std::string line = Format("%zu files wait, %zu databases are worked on",
                            m_common.backlog.CountFiles(), m_out.size());
  if (m_stuck != 0) line += Format("; worker %d is stuck", m_stuck);
  const std::vector<HeldBack> held = m_common.board.AllHeldBack();
  if (held.empty()) return line;
  line += Format("; held back: %s: ", held.front().what.c_str()) + held.front().reason;
  return held.size() == 1 ? line : line + Format(" (and %zu more)", held.size() - 1);
}

// --- workers

void Delivery::TakeBack() {
  for (const auto& worker : m_workers) {
    const auto ended = worker->TakeEnded();
    if (!ended) continue;
    if (ended->work == nullptr) {
      Connected(*ended);
      continue;
    }
    m_out.erase(ended->work);
    if (m_cared_for == ended->work) m_cared_for = nullptr;
    if (ended->visited == DatabaseWork::Visited::kWantsSession) {
      for (const auto& other : m_workers) other->RenewSession();
    }
    DropIdleFeeds();
  }
}

// The trouble is told once for all workers, however many have met it.
void Delivery::Connected(const Worker::Ended& ended) {
  if (ended.connected) {
    m_connecting.Ended();
  } else if (!ended.reason.empty() && g_nMainRun != 0) {
    m_connecting.Failed(ended.reason, m_common.backlog.CountFiles(), Clock::now());
  }
}

void Delivery::DropIdleFeeds() {
  std::size_t feeds = 0;
  for (auto& [name, work] : m_databases) feeds += IsOut(work) ? 0 : work.CountFeeds();
  if (feeds <= kMostFeeds) return;
  for (auto& [name, work] : m_databases) {
    if (!IsOut(work)) work.DropIdleFeeds();
  }
}

void Delivery::RefreshDefinitions() {
  if (m_definitions != nullptr && m_definitions->IsCurrent()) return;
  m_definitions = std::make_shared<const Definitions>(Dialect::Of(m_auth));
}

DatabaseWork& Delivery::WorkOf(const std::string& database) {
  return m_databases.try_emplace(database, m_common, database).first->second;
}

// Those that a visit is due for, the one that has waited longest first.
std::vector<DatabaseWork*> Delivery::DueDatabases(Clock::time_point now) {
  for (const std::string& database : m_common.backlog.Databases()) WorkOf(database);
  std::vector<DatabaseWork*> due;
  for (auto& [name, work] : m_databases) {
    if (IsOut(work)) continue;
    work.RetryRenames();
    work.Use(m_definitions);
    if (work.IsDue(now)) due.push_back(&work);
  }
  std::stable_sort(due.begin(), due.end(), [now](DatabaseWork* a, DatabaseWork* b) {
    return a->WaitsSince(now) < b->WaitsSince(now);
  });
  return due;
}

// One database at a time: a file that arrives meanwhile finds another worker free, or waits for a
// step and not for all.
void Delivery::CareForOne(Clock::time_point now) {
  if (m_cared_for != nullptr) return;
  for (auto& [name, work] : m_databases) {
    if (IsOut(work) || !work.WantsCare(now)) continue;
    if (!Give(work)) return;
    m_cared_for = &work;
    m_visits = 0;
    return;
  }
}

// What is done when there is nothing else to do is done now and then where there always is.
void Delivery::HandOut() {
  const auto now = Clock::now();
  if (m_visits >= kMostVisits) CareForOne(now);
  const std::vector<DatabaseWork*> due = DueDatabases(now);
  const bool all_given =
      std::all_of(due.begin(), due.end(), [this](DatabaseWork* work) { return Give(*work); });
  if (all_given) CareForOne(now);
  KeepConnections(now, !all_given);
}

// To the free worker that is in the database already, if there is one. False when none is free.
bool Delivery::Give(DatabaseWork& work) {
  Worker* chosen = nullptr;
  for (const auto& worker : m_workers) {
    if (worker->isBusy() || worker->wantsConnection()) continue;
    if (chosen == nullptr || worker->database() == work.database()) chosen = worker.get();
  }
  if (chosen == nullptr) return false;
  m_out.insert(&work);
  ++m_visits;
  chosen->Visit(work);
  return true;
}

// A worker connects when there is work for it, one after the other; the first one always. So a
// server that is away is asked by one of them.
void Delivery::KeepConnections(Clock::time_point now, bool more_wanted) {
  const bool connecting = std::any_of(m_workers.begin(), m_workers.end(), [](const auto& worker) {
    return worker->isBusy() && worker->isConnecting();
  });
  bool may_connect = !connecting && m_connecting.IsDue(now);
  for (const auto& worker : m_workers) {
    if (worker->isBusy()) continue;
    if (!worker->wantsConnection()) {
      if (now - worker->usedAt() >= kPingEach) worker->Ping();
    } else if (may_connect && (more_wanted || worker == m_workers.front())) {
      worker->Connect();
      may_connect = false;
    }
  }
}

// --- what comes

// Watched before they are read, the folders can receive no file that neither sees.
void Delivery::LookAround(bool changed_only) {
  m_looked_at = Clock::now();
  m_watching = m_common.backlog.FindFolders() && m_watch.Watch(m_common.backlog.Folders());
  m_common.backlog.Rescan(changed_only && m_watching);
}

void Delivery::TakeEvents(milliseconds longest) {
  bool is_due =
      Clock::now() - m_looked_at >= (m_watching ? std::chrono::seconds(kLookEach) : kPollEach);
  bool has_missed = false;
  for (const SpoolWatch::Event& event : m_watch.Wait(longest)) {
    if (event.folder.empty()) {
      has_missed = true;
    } else if (event.name.empty()) {
      // Watched before it is read: what comes in between is seen by one of the two.
      m_watching = m_watch.Watch({event.folder}) && m_watching;
      m_common.backlog.RescanFolder(event.folder);
    } else {
      m_common.backlog.Note(event.folder, event.name);
    }
  }
  // A reading that takes longer than the time between two of them comes to its end first.
  is_due = is_due && longest > milliseconds(0);
  if (is_due || has_missed) LookAround(!has_missed);
}
