// The engine: turns mem files into rows of mem tables, and those into rows of mid tables.
//
// One pass (MakeMidTable) goes over the database folders of the spool; for each it queues mem files
// (discovery.cpp), loads them (mem_table.cpp, rewriting.cpp, loading.cpp, oracle_loading.cpp) and
// converts the mem tables that they filled (conversion.cpp). Run repeats passes (cycle.cpp).
//
// Threads: everything runs on the thread that calls Run; the registry member has a watcher thread
// of its own. Failures are logged where they happen and reported as false or 0.
#pragma once

#include <array>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "config/dbinfo.h"
#include "db/SqlBase.h"
#include "db/SqlFactory.h"
#include "localuser/tourlocaluser.h"
#include "midtable/mid_table.h"
#include "midtable/settled_files.h"
#include "midtable/spool_file.h"
#include "midtable/spool_folder.h"
#include "midtable/sql_template.h"

class TableDefinitions;
class Transaction;

// Not 0: mid tables whose definition says Always 0 are skipped. Nothing sets it.
extern int g_NoMidTable;

class CMidTable {
 public:
  using BackEndFactory = std::function<std::unique_ptr<CSqlBase>(const MYSQLAUTH&)>;

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
  // when the server stayed away for 11 attempts a second apart (both clear it).
  int Run();
  bool Initialize();
  // One pass. False when nothing was loaded, or something failed and ended the pass.
  bool MakeMidTable();
  bool GetDblist();
  bool GetAuth();
  bool UpdateAuth();
  std::string GetLogFilePath() const;
  // True for an Oracle store.
  bool GetDBType() const { return IsOracle(m_auth); }
  bool isFConvert() const { return m_bFConvert; }
  bool ConvertExistMemTables() { return true; }

  // --- discovery and naming (discovery.cpp)

  static bool IsLoadFile(const std::string& name);
  // Item "filepath", "dbname" or "tablename" of a mem file; empty when there is none.
  static std::string GetItemFromName(const std::string& path, const char* key);
  static bool IsTableNameConflict(const std::list<std::string>& list, const std::string& path);
  // Queues up to two files of distinct tables, none of which is settled; true when the queue is not
  // empty afterwards.
  bool GetMemFiles(const std::string& dbname);

  // --- mem tables (mem_table.cpp)

  bool TableExist(const std::string& tablename, const std::string& dbname);
  bool CreateOneMemTable(const std::string& tablename, const std::string& dbname);
  bool CreateMemTable();
  // The text of the first element at `path` of `file`, or of the first of it and its siblings whose
  // attribute prop.first is prop.second when both are given; empty on any failure.
  static std::string GetXMLFields(const std::string& file, const std::string& path,
                                  const std::pair<std::string, std::string>& prop);

  // --- loading (loading.cpp)

  bool LoadMemFiles();
  bool LoadOneMemFile(const std::string& path);
  bool AddToConvert(const std::string& path);
  void RemoveOneMemFile(const std::string& path, const std::string& suffix);
  bool MysqlLoadOneTable(const std::string& tablename, const std::string& dbname,
                         const std::string& path);

  // Puts a copy with local flags in the place of a mem file (rewriting.cpp); false: the file is as
  // it was.
  bool ConvertMemF(const std::string& path);

  // --- the Oracle roads (oracle_loading.cpp); 1 done, 0 failed

  int CreateOneExternalMemTable(const std::string& table, const std::string& database,
                                const std::string& path);
  int ExternalLoadOneMemFile(const std::string& table, const std::string& database,
                             const std::string& path);
  // Starts the loader tool on a data file without waiting for it.
  int OracleLoadOneTable(const std::string& table, const std::string& user,
                         const std::string& dataFile);

  // --- conversion (conversion.cpp)

  // Converts every mem table waiting: 1, or 0 when g_nMainRun was cleared between two of them.
  int Convert();
  int ConvertOneMemTable(const std::string& name);
  // Counts one failure of a mid table of the current database; after 100 it is skipped for good.
  void CheckMidTable(const std::string& midTable);
  bool IsBadMidTable(const std::string& midTable);
  void LoadCityCrc() {}

  // The queues, for tests and for a look from outside.
  const std::list<std::string>& filesToLoad() const { return m_lstMemFile; }
  const std::list<std::string>& filesToConvert() const { return m_lstConvert; }

 private:
  // A mem file and what its name says.
  struct MemFile {
    std::string path;
    std::string database;
    std::string table;
  };
  // A mid table fed from the mem table being converted.
  struct MidTable {
    std::string node;  // path of its definition
    std::string name;  // full name
    Period period;
  };
  // What became of a statement made from a template.
  struct Outcome {
    bool ok;
    std::string statement;  // as sent; the template when it could not be filled
    std::string error;
  };
  // What to do with one mid table of a definition.
  enum class Step { kConvert, kSkip, kAbort };

  bool Reconnect();
  bool ReserveBuffers();
  const char* NewUserPassword() const;
  // Fills and runs the template that stands at `node` of the table definitions.
  Outcome RunTemplate(const std::string& node, const std::string& text,
                      std::span<const TemplateValue> values);
  Outcome RunFilled(const std::string& node, const std::string& text, const FilledTemplate& filled,
                    int log_on_error);
  bool Execute(const std::string& statement);

  bool IdentifyMemFile(const std::string& path, MemFile& file) const;
  bool PrepareDatabase(const std::string& database);
  bool CreateOracleUser(const std::string& user);
  bool PrepareExternalTable(const MemFile& file);
  void RewriteOnce(const MemFile& file);
  bool LoadRows(const MemFile& file);
  // Whether another file has the name of the one loaded last; logged, as is a change of that one.
  bool WasReplaced(const std::string& path) const;

  bool WriteControlFile(const std::string& table, const std::string& dataFile);

  bool FillMidTables(const TableDefinitions& definitions, int count, Transaction& transaction);
  Step PrepareMidTable(const TableDefinitions& definitions, MidTable& table, bool& created);
  bool CreateMidTable(const TableDefinitions& definitions, const MidTable& table);
  bool CreateSequence(const TableDefinitions& definitions, const MidTable& table);
  bool ConvertMidTable(const TableDefinitions& definitions, const MidTable& table);
  bool TransactionIsGone();
  bool RunFallback(const TableDefinitions& definitions, const MidTable& table);
  std::string CityValue();
  bool EmptyMemTable();
  bool RemoveConvertedRows(const std::string& table);

  static constexpr std::size_t kBufferCount = 8096;
  using Buffer = std::array<char, 256>;

  BackEndFactory m_factory;
  std::string m_strDbInfoPath;
  std::string m_strLogDataPath;
  std::list<std::string> m_lstDbName;
  std::list<std::string> m_lstConvert;  // loaded, under their ".dat" names
  std::unique_ptr<CSqlBase> m_pSqlBase;
  MYSQLAUTH m_auth;
  std::map<std::string, std::string> m_mapCityCrc;
  // The mem table being converted.
  std::string m_strMemTable;
  std::string m_strKind;
  std::string m_strDate;  // YYYYMMDD, empty for a name that is too short
  std::string m_strDatabase;
  // Held for the life of the engine; nothing reads or writes it.
  std::vector<std::unique_ptr<Buffer>> m_ppBuffer;
  bool m_bNoFileLoaded = false;
  const SpoolSystem& m_system;
  std::map<std::string, SpoolFolder> m_folders;  // by database folder
  std::map<std::string, int> m_mapMidTable;      // failures by database and full mid table name
  std::set<std::string> m_setConverted;          // mem tables, with database, not emptied since
  std::list<std::string> m_lstMemFile;           // queued full paths
  std::optional<FileIdentity> m_loaded;          // the last file given to the server
  SettledFiles m_settled;                        // done with, but still named ".dat"
  TourLocalUser m_localUser;
  bool m_bFConvert = false;
};
