// The service cycle: start-up, passes, reconnection.

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"
#include "support/file.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

constexpr int kPausedReconnects = 10;
constexpr int kMostSecondsForRegistry = 10;

}  // namespace

CMidTable::CMidTable(const BackEndFactory& factory, const SpoolSystem& system)
    : m_factory(factory), m_system(system), m_localUser(factory) {
  m_localUser.init();
  m_bFConvert = access(paths::kNoRewriteFlag, F_OK) == 0;
}

CMidTable::~CMidTable() {
  m_pSqlBase.reset();
  m_ppBuffer.clear();
  m_localUser.WaitExit();
}

bool CMidTable::GetAuth() {
  m_auth = *ProcessPolicy().getDBPolicy();
  return true;
}

bool CMidTable::UpdateAuth() { return GetAuth(); }

std::string CMidTable::GetLogFilePath() const { return paths::kLogData; }

const char* CMidTable::NewUserPassword() const {
  return ProcessPolicy().getDBPolicy()->new_user_password.c_str();
}

bool CMidTable::Initialize() {
  m_strDbInfoPath = paths::kSettingsFile;
  m_strLogDataPath = GetLogFilePath();
  if (!GetAuth()) return false;
  g_loger(kUnit, __LINE__, kInfo, "current db is %s", m_auth.dbtype.c_str());
  m_pSqlBase = m_factory(m_auth);
  if (m_pSqlBase == nullptr) return false;

  g_loger(kUnit, __LINE__, kConsole, "befor connect db u(%s) p(%s)\n", m_auth.user.c_str(),
          m_auth.password.c_str());
  if (m_pSqlBase->connectDB() != 0) {
    g_loger(kUnit, __LINE__, kError, "connect db err reason %s",
            m_pSqlBase->getLastError().c_str());
    return false;
  }
  if (!ReserveBuffers()) return false;
  m_localUser.GetCityCRC(m_mapCityCrc, 0);
  return true;
}

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
  while (g_nMainRun != 0) {
    if (!MakeMidTable() && !Reconnect()) {
      g_nMainRun = 0;
      g_loger(kUnit, __LINE__, kConsole, "database not avaliable thread exit");
      return 0;
    }
    if (m_bNoFileLoaded) sleep_i(1);
  }
  return 1;
}

bool CMidTable::Reconnect() {
  for (int tried = 0; m_pSqlBase->reconnectDB() != 0;) {
    const bool last = tried == kPausedReconnects;
    if (tried == 0 || last) {  // one line a second would say no more
      g_loger(kUnit, __LINE__, kError, "reconnect db attempt %d failed reason %s", tried + 1,
              m_pSqlBase->getLastError().c_str());
    }
    if (last || !UpdateAuth()) return false;
    ++tried;
    sleep_i(1);
    g_loger(kUnit, __LINE__, kConsole, "database not avaliable thread tried %d",
            kPausedReconnects - tried);
  }
  return true;
}

bool CMidTable::MakeMidTable() {
  m_settled.RetryRenames();
  if (!GetDblist()) return false;
  m_bNoFileLoaded = true;
  for (const std::string& name : m_lstDbName) {
    if (!m_pSqlBase->isDBAlive()) {
      g_loger(kUnit, __LINE__, kConsole, "mysql ping err last err %s",
              m_pSqlBase->getLastError().c_str());
      g_loger(kUnit, __LINE__, kAlarm, "connection to db lost reason %s",
              m_pSqlBase->getLastError().c_str());
      return false;
    }
    if (!GetMemFiles(name)) {
      g_loger(kUnit, __LINE__, kConsole, "db %s has no mem table to load ", name.c_str());
      continue;
    }
    if (!LoadMemFiles() || Convert() == 0) return false;
    m_bNoFileLoaded = false;
  }
  if (m_bNoFileLoaded) g_loger(kUnit, __LINE__, kDebug, "no file to load reconnect db");
  return !m_bNoFileLoaded;
}

bool CMidTable::GetDblist() {
  const Directory dir(opendir(paths::kSpool));
  if (dir == nullptr) {
    g_loger(kUnit, __LINE__, kError, "open dir (%s) failed errno (%d)", paths::kSpool, errno);
    return false;
  }
  m_lstDbName.clear();
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (IsDatabaseId(name)) m_lstDbName.push_back(name);
  }
  if (m_folders.size() > m_lstDbName.size()) {
    std::erase_if(m_folders, [this](const auto& folder) {
      return std::find(m_lstDbName.begin(), m_lstDbName.end(), folder.first) == m_lstDbName.end();
    });
  }
  return true;
}
