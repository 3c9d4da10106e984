// The service cycle: start-up, passes, reconnection.

#include <ctime>
#include <new>
#include <set>
#include <string>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "state/state_file.h"
#include "state/supervisor.h"
#include "support/database_name.h"
#include "support/housekeeping.h"
#include "support/run_state.h"

namespace {

constexpr int kPausedReconnects = 10;
constexpr int kMostSecondsForRegistry = 10;
// What holds files back, as the state file names it.
constexpr char kServer[] = "server";
constexpr char kRenames[] = "renames";

}  // namespace

bool CMidTable::Initialize() {
  if (!GetAuth()) return false;
  g_loger(kUnit, __LINE__, kInfo, "current db is %s", m_auth.dbtype.c_str());
  std::unique_ptr<CSqlBase> back_end = m_factory(m_auth);
  if (back_end == nullptr) return false;
  m_store = std::make_unique<Store>(std::move(back_end), m_auth);

  g_loger(kUnit, __LINE__, kConsole, "befor connect db u(%s) p(%s)\n", m_auth.user.c_str(),
          m_auth.password.c_str());
  if (!m_store->Connect()) {
    g_loger(kUnit, __LINE__, kError, "connect db err reason %s", m_store->LastError().c_str());
    return false;
  }
  if (!ReserveBuffers()) return false;
  m_mapCityCrc.Fill();
  return true;
}

// Memory that the engine is known to hold: an appliance that is short of it shall say so at the
// start and not after days.
bool CMidTable::ReserveBuffers() {
  try {
    m_ppBuffer.resize(kBufferCount);
  } catch (const std::bad_alloc&) {
    g_loger(kUnit, __LINE__, kError, "alloc memory failed");
    return false;
  }
  try {
    for (auto& buffer : m_ppBuffer) buffer = std::make_unique_for_overwrite<Buffer>();
  } catch (const std::bad_alloc&) {
    m_ppBuffer.clear();
    g_loger(kUnit, __LINE__, kError, "alloc buffer failed");
    return false;
  }
  return true;
}

int CMidTable::Run() {
  if (!Initialize()) {
    g_loger(kUnit, __LINE__, kError, "midtable Initialize failed");
    g_nMainRun = 0;
    return 0;
  }
  // Files that wait already would be flagged as if there were no local user. A registry that cannot
  // read its sources is no reason to wait any longer.
  m_localUser.AwaitFirstRound(kMostSecondsForRegistry);
  Supervisor supervisor;
  supervisor.Ready();
  // The thread that works waits for the server as long as a statement takes: that the process lives
  // is all that can be told.
  const StateFile file(m_board, {{}, 1, std::time(nullptr)}, [&supervisor] { supervisor.Alive(); });
  while (g_nMainRun != 0) {
    if (!MakeMidTable() && !Reconnect() && g_nMainRun != 0) {
      g_nMainRun = 0;
      g_loger(kUnit, __LINE__, kConsole, "database not avaliable thread exit");
      LogLeftRows();
      return 0;
    }
    KeepHouse();
    if (m_bNoFileLoaded) sleep_i(1);
  }
  LogLeftRows();
  return 1;
}

void CMidTable::LogLeftRows() const {
  m_lstConvert.LogLeft();
  m_notEmptied.LogLeft();
}

// False also once the service is to stop, which is no failure and is not logged.
bool CMidTable::Reconnect() {
  for (int tried = 1; g_nMainRun != 0; ++tried) {
    if (m_store->Reconnect()) {
      m_board.Release({}, kServer);
      return true;
    }
    if (g_nMainRun == 0) break;
    m_board.Hold({}, kServer, m_board.CountWaiting(), m_store->LastError());
    const bool last = tried > kPausedReconnects;
    if (tried == 1 || last) {  // one line a second would say no more
      g_loger(kUnit, __LINE__, kError, "reconnect db attempt %d failed reason %s", tried,
              m_store->LastError().c_str());
    }
    if (last || !UpdateAuth()) break;
    sleep_i(1);
    if (g_nMainRun == 0) break;
    g_loger(kUnit, __LINE__, kConsole, "database not avaliable thread tried %d",
            kPausedReconnects - tried);
  }
  return false;
}

// What waits already comes before anything is loaded: a file of the same mem table would otherwise
// bring its rows to a conversion that nobody waits for.
bool CMidTable::MakeMidTable() {
  RetryRenames();
  if (!ConvertWhatWaits()) return false;
  m_bNoFileLoaded = true;  // also where the spool cannot be listed: there is nothing to do but wait
  if (!GetDblist()) return false;
  ShowDatabases();
  for (const std::string& name : m_lstDbName) {
    if (!MakeDatabase(name)) return false;
  }
  if (m_bNoFileLoaded) g_loger(kUnit, __LINE__, kDebug, "no file to load reconnect db");
  return !m_bNoFileLoaded;
}

void CMidTable::RetryRenames() {
  const SettledFiles::Refused refused = m_discovery.settled().RetryRenames();
  if (refused.files == 0) {
    m_board.Release({}, kRenames);
  } else {
    m_board.Hold({}, kRenames, refused.files, refused.Reason());
  }
}

// A device that was taken away leaves the board, one without files stands on it.
void CMidTable::ShowDatabases() {
  std::set<std::string> databases;
  for (const std::string& name : m_lstDbName) databases.insert(DatabaseName(name));
  m_board.Keep(databases);
}

bool CMidTable::ConvertWhatWaits() {
  const auto now = m_discovery.SteadyClock();
  m_lstConvert.AddDue(m_store->dialect().DefinitionsFile(), now);
  const bool has_tables_to_empty = m_notEmptied.IsDue(now);
  if (m_lstConvert.empty() && !has_tables_to_empty) return true;
  if (!PingServer()) return false;
  if (has_tables_to_empty) m_notEmptied.EmptyAll(*m_store, now);
  return Convert() == 1;
}

bool CMidTable::PingServer() {
  if (m_store->IsAlive()) return true;
  const std::string error = m_store->LastError();
  g_loger(kUnit, __LINE__, kConsole, "mysql ping err last err %s", error.c_str());
  g_loger(kUnit, __LINE__, kAlarm, "connection to db lost reason %s", error.c_str());
  return false;
}

// A failed load ends the pass, since the server may be at fault. The rows that were loaded before
// it stay in line for the next pass.
bool CMidTable::MakeDatabase(const std::string& name) {
  if (!PingServer()) return false;
  const auto waiting = [&](const MemFile& table) { return m_discovery.FilesOf(name, table); };
  if (!m_lstConvert.AddLeftRows(*m_store, DatabaseName(name), waiting)) return false;
  if (Convert() == 0) return false;
  if (!GetMemFiles(name)) {
    g_loger(kUnit, __LINE__, kConsole, "db %s has no mem table to load ", name.c_str());
    return true;
  }
  if (!LoadMemFiles() || Convert() == 0) return false;
  m_discovery.Served(name);
  m_bNoFileLoaded = false;
  return true;
}
