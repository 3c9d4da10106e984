#include "midtable/Midtable.h"

#include <unistd.h>

#include <cerrno>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "midtable/loading.h"
#include "midtable/mem_table_creation.h"
#include "midtable/oracle_loading.h"
#include "midtable/rewriting.h"
#include "spool/renames.h"
#include "support/file_identity.h"
#include "support/names.h"
#include "support/paths.h"
#include "support/run_state.h"

namespace {

std::uint64_t SizeOf(const std::string& path) {
  const auto identity = IdentityOf(path);
  return identity ? static_cast<std::uint64_t>(identity->size) : 0;
}

}  // namespace

// The registry reads its files while the engine is still being set up. The flag file is looked at
// only here, so that a service keeps one way of loading for its whole life.
CMidTable::CMidTable(const BackEndFactory& factory, const SpoolSystem& system)
    : m_factory(factory), m_discovery(system), m_localUser(factory) {
  m_localUser.init();
  m_bFConvert = access(paths::kNoRewriteFlag, F_OK) == 0;
}

// The connection goes first, so that the server is free of this process while the watcher, which
// may be in a pause of a second, comes to its end.
CMidTable::~CMidTable() {
  m_store.reset();
  m_ppBuffer.clear();
  m_localUser.WaitExit();
}

// The credentials are copied: whoever changes the policy later does not change a running engine.
bool CMidTable::GetAuth() {
  m_auth = *ProcessPolicy().getDBPolicy();
  return true;
}

std::string CMidTable::GetLogFilePath() const { return paths::kLogData; }

// --- discovery and naming

// A key that does not exist is a mistake of the caller and not of the file, so the line in the log
// is no error.
std::string CMidTable::GetItemFromName(const std::string& path, const char* key) {
  if (path.empty() || key == nullptr) {
    g_loger(kUnit, __LINE__, kError, "file path is null");
    return {};
  }
  const std::string_view item = key;
  const MemFile file = MemFile::Parse(path);
  if (item == "filepath") {
    return file.Refusal() == NameRefusal::kNoPath ? std::string() : file.path;
  }
  if (item == "dbname") return file.database;
  if (item == "tablename") return file.table;
  g_loger(kUnit, __LINE__, kDebug, "key (%s) not valide on file (%s)", key, path.c_str());
  return {};
}

bool CMidTable::IsTableNameConflict(const std::list<std::string>& list, const std::string& path) {
  MemFileQueue queue;
  for (const std::string& entry : list) queue.push_back(MemFile::Parse(entry));
  return HoldsTable(queue, MemFile::Parse(path));
}

bool CMidTable::GetMemFiles(const std::string& dbname) {
  m_discovery.QueueFiles(dbname, m_lstMemFile);
  m_discovery.ShowFiles(dbname, m_board);
  return !m_lstMemFile.empty();
}

// --- mem tables

bool CMidTable::TableExist(const std::string& tablename, const std::string& dbname) {
  return m_store->FindTable(tablename, dbname) == Presence::kPresent;
}

bool CMidTable::CreateOneMemTable(const std::string& tablename, const std::string& dbname) {
  return ::CreateMemTable(*m_store, tablename, dbname);
}

bool CMidTable::CreateMemTable() {
  for (const MemFile& entry : m_lstConvert.files()) {
    if (!CreateOneMemTable(entry.path, "")) return false;
  }
  return true;
}

std::string CMidTable::GetXMLFields(const std::string& file, const std::string& path,
                                    const std::pair<std::string, std::string>& prop) {
  return ReadTemplate(file, path, prop.first, prop.second);
}

// --- loading

// A file leaves the queue before it is loaded: one that fails must not be first in line again. The
// rest of the queue is left to the next pass, since what failed may well be the server.
bool CMidTable::LoadMemFiles() {
  if (m_lstMemFile.empty()) return false;
  while (!m_lstMemFile.empty()) {
    const MemFile file = m_lstMemFile.front();
    m_lstMemFile.pop_front();
    if (!LoadQueuedFile(file)) return false;
  }
  return true;
}

// The queue for conversion comes before the rename: rows without a conversion are worse than a file
// that keeps its name, which is remembered. For the same reason a load that got no answer counts as
// one that may have brought its rows.
bool CMidTable::LoadQueuedFile(const MemFile& file) {
  MemFileLoading loading(*m_store, m_localUser, m_notEmptied, !isFConvert(), file);
  const LoadOnBoard shown(m_board, file.database, {file.path, file.table, 1, SizeOf(file.path)});
  const bool is_loaded = loading.Run();
  ShowLoad(file, is_loaded);
  if (!is_loaded) {
    if (loading.gotNoAnswer()) AddToConvert(file);
    Rename(file, ".err", loading.handedOver());
    m_discovery.PutLast(file);
    return false;
  }
  AddToConvert(file);
  if (!loading.WasReplaced()) Rename(file, ".mid", loading.handedOver());
  return true;
}

// Behind the load itself nothing was asked of the server yet. A file that was refused before the
// server saw it has its reason in the run log alone.
void CMidTable::ShowLoad(const MemFile& file, bool is_loaded) {
  if (is_loaded) {
    const std::uint64_t rows = m_store->AffectedRows();
    m_loadedRows[file.QualifiedTable()] += rows;
    m_board.Loaded(file.database, 1, rows);
    return;
  }
  const bool by_server = m_store->LastFailure() != SqlFailure::kNone;
  m_board.Failed(file.database, std::nullopt,
                 "file (" + Printable(file.path) +
                     ") failed: " + (by_server ? m_store->LastError() : "the run log tells why"));
}

bool CMidTable::LoadOneMemFile(const std::string& path) {
  return MemFileLoading(*m_store, m_localUser, m_notEmptied, !isFConvert(), MemFile::Parse(path))
      .Run();
}

bool CMidTable::AddToConvert(const MemFile& file) {
  m_lstConvert.Add(file);
  return true;
}

void CMidTable::RemoveOneMemFile(const std::string& path, const std::string& suffix) {
  Rename(MemFile::Parse(path), suffix, std::nullopt);
}

// Loading a file again would count its rows twice, and a failed one would end every pass. So a file
// that keeps its name is settled until the rename succeeds.
void CMidTable::Rename(const MemFile& file, const std::string& suffix,
                       const std::optional<FileIdentity>& handed_over) {
  if (file.Refusal() == NameRefusal::kNoPath) return;
  const std::string renamed = file.path.substr(0, file.path.rfind('.')) + suffix;
  if (MoveMemFile(file.path, renamed)) return;
  g_loger(kUnit, __LINE__, kError, "file (%s) rename to (%s) failed errno (%d)",
          Printable(file.path).c_str(), Printable(renamed).c_str(), errno);
  m_discovery.settled().Add(file.path, renamed, handed_over);
}

// This statement has no quotes around the path and no "ignore". No pass sends it; the loading of a
// pass is that of MemFileLoading.
bool CMidTable::MysqlLoadOneTable(const std::string& tablename, const std::string& dbname,
                                  const std::string& path) {
  const std::string statement = Format("load data infile  %s into table %s.%s", path.c_str(),
                                       dbname.c_str(), tablename.c_str());
  OpenToServer(path);
  if (m_store->Execute(statement)) {
    g_loger(kUnit, __LINE__, kDebug, "load %s success", path.c_str());
    return true;
  }
  g_loger(kUnit, __LINE__, kDebug, "load %s failed", path.c_str());
  g_loger(kUnit, __LINE__, kError, "load table sql %s", statement.c_str());
  g_loger(kUnit, __LINE__, kError, "load table last error %s", m_store->LastError().c_str());
  return false;
}

bool CMidTable::ConvertMemF(const std::string& path) { return RewriteMemFile(path, m_localUser); }

// --- the Oracle roads

int CMidTable::CreateOneExternalMemTable(const std::string& table, const std::string& database,
                                         const std::string& path) {
  return CreateExternalTable(*m_store, {path, database, table}) ? 1 : 0;
}

int CMidTable::ExternalLoadOneMemFile(const std::string& table, const std::string& database,
                                      const std::string& path) {
  return LoadOverExternalTable(*m_store, {path, database, table}) ? 1 : 0;
}

// The tool logs in as the user that it loads for, who has another password than the first user.
int CMidTable::OracleLoadOneTable(const std::string& table, const std::string& user,
                                  const std::string& dataFile) {
  const std::string& password = user == m_auth.user ? m_auth.password : m_auth.new_user_password;
  return StartLoaderTool(*m_store, table, user, password, dataFile) ? 1 : 0;
}

// --- conversion

// The conversion stays in front of the queue while it runs, so that a stop or a lost connection in
// the middle leaves it there for the next pass.
int CMidTable::Convert() {
  while (!m_lstConvert.empty()) {
    if (g_nMainRun == 0) return 0;
    const PendingConversion pending = m_lstConvert.front();
    if (!Settle(Convert(pending.file, !pending.is_retry))) return 0;
  }
  return 1;
}

// What failed by the server's fault is tried again a minute later, what failed by the definitions'
// once they change. A conversion in which the connection is lost time after time may be what ends
// the connection, and must not keep all others from their turn.
bool CMidTable::Settle(ConversionResult result) {
  const std::string entry = m_lstConvert.front().file.path;
  ShowConversion(m_lstConvert.front().file, result);
  if (result == ConversionResult::kConnectionLost && m_lstConvert.PutOff()) {
    g_loger(kUnit, __LINE__, kAlarm, "convert %s put off, the connection is lost", entry.c_str());
    return false;
  }
  if (result == ConversionResult::kDone) {
    m_lstConvert.Done();
    return true;
  }
  g_loger(kUnit, __LINE__, kError, "convert %s error, ignore it", entry.c_str());
  if (result == ConversionResult::kNotEmptied) {
    m_lstConvert.Done();
  } else {
    m_lstConvert.Hold(result != ConversionResult::kByDefinition,
                      m_store->dialect().DefinitionsFile(), m_discovery.SteadyClock());
  }
  return result != ConversionResult::kConnectionLost;
}

void CMidTable::ShowConversion(const MemFile& table, ConversionResult result) {
  const std::string name = table.QualifiedTable();
  const std::string what = "table " + name;
  if (result == ConversionResult::kDone || result == ConversionResult::kNotEmptied) {
    if (const auto rows = m_loadedRows.extract(name))
      m_board.Counted(table.database, rows.mapped());
    m_board.Release(table.database, what);
  } else {
    m_board.Hold(table.database, what, 0, m_reason);
  }
}

int CMidTable::ConvertOneMemTable(const std::string& name) {
  return Convert(MemFile::Parse(name), true) == ConversionResult::kDone ? 1 : 0;
}

ConversionResult CMidTable::Convert(const MemFile& file, bool counts) {
  m_strDatabase = file.database;
  MemTableConversion conversion(*m_store, m_mapCityCrc, m_mapMidTable, m_notEmptied, file, counts);
  const ConversionResult result = conversion.Run();
  m_reason = conversion.reason();
  return result;
}
