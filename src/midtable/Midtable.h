// The engine: turns mem files into rows of mem tables, and those into rows of mid tables.
//
// One pass (MakeMidTable) goes over the database folders of the spool; for each it queues mem files
// (discovery), loads them (loading, rewriting, mem_table_creation, oracle_loading) and converts the
// mem tables that they filled (conversion). Run repeats passes. The engine holds the queues and
// what outlives a pass; each step is a function or an object of its own, on MemFile and Store, and
// each operation here is a call of a step.
//
// Threads: everything runs on the thread that calls Run; the registry member has a watcher thread
// of its own. Failures are logged where they happen and reported as false or 0.
#pragma once

#include <array>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/dbinfo.h"
#include "db/SqlFactory.h"
#include "localuser/tourlocaluser.h"
#include "midtable/city_values.h"
#include "midtable/conversion.h"
#include "midtable/conversion_queue.h"
#include "midtable/discovery.h"
#include "midtable/mid_table_failures.h"
#include "midtable/not_emptied.h"
#include "state/board.h"
#include "tables/store.h"

class CMidTable {
 public:
  using BackEndFactory = Store::BackEndFactory;

  // Starts the registry's watcher. The factory is asked for the engine's and the registry's back
  // end when they first need one. `system` must outlive the engine.
  explicit CMidTable(const BackEndFactory& factory = CreateSqlBase,
                     const SpoolSystem& system = SpoolSystem::Real());
  // Clears up and waits for the watcher, which ends once g_nMainRun is 0.
  virtual ~CMidTable();
  CMidTable(const CMidTable&) = delete;
  CMidTable& operator=(const CMidTable&) = delete;

  // --- the service cycle (cycle.cpp)

  // Passes until g_nMainRun is 0: 1 when it was cleared from outside, 0 after a start-up failure or
  // when the server stayed away for 11 attempts a second apart (both clear it). In the end a line
  // for each mem table that is left with rows.
  int Run();
  // Everything below needs the store that this call makes.
  bool Initialize();
  // One pass: first the conversions that are left or due again, then the databases. False when
  // nothing was loaded, or something failed and ended the pass.
  bool MakeMidTable();
  bool GetDblist() { return m_discovery.ListDatabases(m_lstDbName); }
  bool GetAuth();
  bool UpdateAuth() { return GetAuth(); }
  std::string GetLogFilePath() const;
  // True for an Oracle store.
  bool GetDBType() const { return IsOracle(m_auth); }
  bool isFConvert() const { return m_bFConvert; }
  bool ConvertExistMemTables() { return true; }

  // --- discovery and naming

  static bool IsLoadFile(const std::string& name) { return IsMemFileName(name); }
  // Item "filepath", "dbname" or "tablename" of a mem file; empty when there is none.
  static std::string GetItemFromName(const std::string& path, const char* key);
  static bool IsTableNameConflict(const std::list<std::string>& list, const std::string& path);
  // Queues up to two files of distinct tables, none of which is settled; true when the queue is not
  // empty afterwards.
  bool GetMemFiles(const std::string& dbname);

  // --- mem tables

  // False also when the server could not be asked, which is logged.
  bool TableExist(const std::string& tablename, const std::string& dbname);
  bool CreateOneMemTable(const std::string& tablename, const std::string& dbname);
  bool CreateMemTable();
  // The text of the first element at `path` of `file`, or of the first of it and its siblings whose
  // attribute prop.first is prop.second when both are given; empty on any failure.
  static std::string GetXMLFields(const std::string& file, const std::string& path,
                                  const std::pair<std::string, std::string>& prop);

  // --- loading

  bool LoadMemFiles();
  bool LoadOneMemFile(const std::string& path);
  bool AddToConvert(const std::string& path) { return AddToConvert(MemFile::Parse(path)); }
  void RemoveOneMemFile(const std::string& path, const std::string& suffix);
  bool MysqlLoadOneTable(const std::string& tablename, const std::string& dbname,
                         const std::string& path);
  // Puts a copy with local flags in the place of a mem file; false: the file is as it was.
  bool ConvertMemF(const std::string& path);

  // --- the Oracle roads; 1 done, 0 failed

  int CreateOneExternalMemTable(const std::string& table, const std::string& database,
                                const std::string& path);
  int ExternalLoadOneMemFile(const std::string& table, const std::string& database,
                             const std::string& path);
  // Starts the loader tool on a data file without waiting for its end.
  int OracleLoadOneTable(const std::string& table, const std::string& user,
                         const std::string& dataFile);

  // --- conversion

  // Converts every mem table waiting: 1, or 0 when g_nMainRun was cleared between two of them, or
  // the connection was lost in one. That one and those behind it still wait then.
  int Convert();
  int ConvertOneMemTable(const std::string& name);
  // Counts one failure of a mid table of the database that was converted last; after 100 it is
  // skipped for good.
  void CheckMidTable(const std::string& midTable) { m_mapMidTable.Count(m_strDatabase + midTable); }
  bool IsBadMidTable(const std::string& midTable) {
    return m_mapMidTable.IsBad(m_strDatabase + midTable);
  }
  void LoadCityCrc() {}

  // The queues, for tests and for a look from outside.
  const MemFileQueue& filesToLoad() const { return m_lstMemFile; }
  MemFileQueue filesToConvert() const { return m_lstConvert.files(); }

 private:
  bool Reconnect();
  bool ReserveBuffers();
  void LogLeftRows() const;
  // Whether the server answers; logged when not.
  bool PingServer();
  void ShowDatabases();
  // The rows that wait already: left by an earlier pass, or due again. False ends the pass.
  bool ConvertWhatWaits();
  // One database of a pass. False ends the pass.
  bool MakeDatabase(const std::string& name);
  bool LoadQueuedFile(const MemFile& file);
  bool AddToConvert(const MemFile& file);
  ConversionResult Convert(const MemFile& file, bool counts);
  // Tells the board what became of a file, and of a conversion.
  void ShowLoad(const MemFile& file, bool is_loaded);
  void ShowConversion(const MemFile& table, ConversionResult result);
  // Takes the conversion in front out of the queue by what became of it; false when it stays.
  bool Settle(ConversionResult result);
  // Renames a file that is done with; one that cannot be renamed is settled, as `handed_over` where
  // nobody can look at it.
  void Rename(const MemFile& file, const std::string& suffix,
              const std::optional<FileIdentity>& handed_over);

  static constexpr std::size_t kBufferCount = 8096;
  using Buffer = std::array<char, 256>;

  BackEndFactory m_factory;
  MYSQLAUTH m_auth;
  std::unique_ptr<Store> m_store;  // none before Initialize
  std::list<std::string> m_lstDbName;
  StateBoard m_board;
  // Rows that wait in mem tables for their conversion, of files that this run has loaded.
  std::map<std::string, std::uint64_t> m_loadedRows;
  Discovery m_discovery;
  MemFileQueue m_lstMemFile;
  ConversionQueue m_lstConvert;
  NotEmptied m_notEmptied;
  MidTableFailures m_mapMidTable;
  std::string m_strDatabase;  // of the mem table that was converted last
  std::string m_reason;       // why that conversion failed
  // Held for the life of the engine; nothing reads or writes it.
  std::vector<std::unique_ptr<Buffer>> m_ppBuffer;
  bool m_bNoFileLoaded = false;
  TourLocalUser m_localUser;
  CityValues m_mapCityCrc{m_localUser};
  bool m_bFConvert = false;
};
