// From one mem table to its mid tables: all of them in one transaction, then the mem table is
// emptied.
//
// Creating a table ends the transaction on every kind of server. That would leave part of a mem
// table's rows converted when a later statement fails, and convert them again the next time. So all
// missing mid tables are created first, and the transaction is begun anew before the first row.
#pragma once

#include <string>
#include <vector>

#include "midtable/city_values.h"
#include "midtable/mid_table_failures.h"
#include "midtable/not_emptied.h"
#include "spool/mem_file.h"
#include "tables/definitions.h"
#include "tables/mid_table_name.h"
#include "tables/store.h"
#include "tables/transaction.h"

// Not 0: mid tables whose definition says Always 0 are skipped. Nothing sets it.
extern int g_NoMidTable;

enum class ConversionResult {
  kDone,            // the rows are in the mid tables and the mem table is empty, or there is none
  kByDefinition,    // the definitions are at fault, or the rows
  kByServer,        // the server could not, or the login may not
  kConnectionLost,  // what the server did last is not known
  kNotEmptied,      // the rows are in the mid tables, and in the mem table still
};

// An object converts the mem table of one file, once; what it is given must outlive it.
class MemTableConversion {
 public:
  // With `counts`, a statement that fails by its own fault counts as a failure of its mid table.
  MemTableConversion(Store& store, CityValues& cities, MidTableFailures& failures,
                     NotEmptied& not_emptied, const MemFile& file, bool counts);

  // Every failure is logged. But for kDone and kNotEmptied no row was converted.
  ConversionResult Run();
  // Why it failed, in the server's words where it was the server.
  const std::string& reason() const { return m_reason; }

 private:
  // A mid table that the mem table feeds.
  struct Target {
    std::string node;  // path of its definition
    std::string name;  // full name
    Period period = Period::kDay;
  };
  static constexpr char kByDefinitions[] = "the definitions are at fault, the run log tells more";
  // What to do with one mid table of the definitions.
  enum class Step { kConvert, kSkip, kAbort };

  bool SwitchToDatabase();
  bool ReadCount(int& count);
  bool FillMidTables(int count, Transaction& transaction);
  Step Prepare(Target& target, bool& created);
  bool Create(const Target& target);
  bool CreateSequence(const Target& target);
  bool Convert(const Target& target);
  FilledTemplate FillConvert(const Target& target, const std::string& text);
  bool TransactionIsGone();
  bool RunFallback(const Target& target);
  ConversionResult EmptyMemTable();
  // Remember why the conversion fails; each is false, for its caller to return.
  bool Failed(SqlFailure failure, const std::string& reason);
  bool Failed(const Outcome& outcome, const Target& target);
  bool FailedByServer() { return Failed(m_store.LastFailure(), m_store.LastError()); }
  bool FailedByDefinitions() { return Failed(SqlFailure::kStatement, kByDefinitions); }
  ConversionResult Result() const;
  ConversionInput InputOf(const Target& target);
  std::string KeyOf(const Target& target) const { return m_database + target.name; }

  Store& m_store;
  CityValues& m_cities;
  MidTableFailures& m_failures;
  NotEmptied& m_not_emptied;
  const std::string m_database;
  const std::string m_mem_table;
  const std::string m_kind;
  const std::string m_date;  // YYYYMMDD, empty for a name that is too short
  const bool m_counts;
  SqlFailure m_failure = SqlFailure::kStatement;  // of the conversion, once it has failed
  std::string m_reason = kByDefinitions;
  TableDefinitions m_definitions;
};
