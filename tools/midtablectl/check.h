// The steps of `check`.
//
// Each step looks at one thing that the service needs, adds what it finds to the findings, and goes
// on as far as it can: an operator wants to see all mistakes at once. What a step has read is its
// result, so that later steps need not read it again.
#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "config/dbinfo.h"
#include "midtablectl/findings.h"
#include "midtablectl/server.h"
#include "midtablectl/spool_scan.h"
#include "tables/dialect.h"

namespace ctl {

struct CheckOptions {
  std::string settings;      // the settings file; empty for the service's own
  std::string definitions;   // the table definitions; empty for those of the store in the settings
  bool offline = false;      // the server is not asked
  bool errors_only = false;  // warnings and notes are not printed
};

// Runs all steps and prints what they found.
Status Check(const CheckOptions& options, Console& console);

// --- The settings (check_settings.cpp)

struct CheckedSettings {
  MYSQLAUTH auth;          // with what the client options add
  bool once;               // every row is counted exactly once: delivery=once
  bool options_are_sound;  // the client options; otherwise the service asks no server
};

// The settings as the service reads them; nothing when it would refuse the file.
std::optional<CheckedSettings> CheckSettings(const std::string& path, Findings& findings);
// Whether the settings lack the port that their host needs. A local socket has none.
bool LacksPort(const MYSQLAUTH& auth);

// --- Table definitions (check_definitions.cpp, check_conversions.cpp)

// One entry below Mem: the table that the files of a kind are loaded into.
struct MemDefinition {
  std::string kind;
  std::string create;  // the statement for SampleMemTable(kind); empty when it is faulty
  long line;           // of the statement in the file
};

// One entry below a kind in Conv: a table that is filled from the mem table.
struct MidDefinition {
  std::string kind;
  std::string name;  // as the file has it, without the date
  Period period;
  bool has_table;       // false when the conversion works on the mem table alone
  std::string create;   // the statement for kSampleDate; empty when there is none or it is faulty
  std::string convert;  // the same for the conversion
  long line;            // of the entry in the file

  std::string NameAt(const std::string& date) const { return MidTableName(name, date); }
};

// What a definition file says, as far as it could be read.
struct DefinitionSet {
  std::string path;
  bool readable = false;
  std::vector<MemDefinition> mem;
  std::vector<MidDefinition> mid;

  std::set<std::string> MemKinds() const;
};

// The date for which statements are filled in. It lies before any real mem file, so that a table of
// this date is nobody's.
inline constexpr char kSampleDate[] = "20001231";
// The name of the mem table of that date.
std::string SampleMemTable(const std::string& kind);

// Findings that two steps can come to: the words of a statement show what is wrong, or the table
// does that the server made of it.
inline constexpr char kMemWithoutKey[] = " has no key: a row that is delivered twice counts twice";
inline constexpr char kMidWithoutKey[] =
    " has no key, although its Convert says \"on duplicate key\": nothing is added up";
inline constexpr char kGiveKey[] = "give it a primary key";

// Reads a definition file and looks at every entry. What is wrong is an error when the service uses
// the file (`in_use`), else a warning.
DefinitionSet CheckDefinitions(const std::string& path, const Dialect& dialect, bool in_use,
                               Findings& findings);
// Compares the kinds of the file that is used with those of the other store's file.
void CompareKinds(const DefinitionSet& used, const DefinitionSet& other, Findings& findings);

// --- Loader templates (check_templates.cpp)

// Looks for the templates by which files of each of the `kinds` are loaded. Where rows do not go in
// over external tables, nothing uses them, and the file must be well-formed, no more.
void CheckTemplates(const std::string& path, const Dialect& dialect,
                    const std::set<std::string>& kinds, Findings& findings);
// Takes an error of CXmlStream apart, "line 7: text"; the line is 0 when the text names none.
std::pair<long, std::string> SplitLine(const std::string& error);

// --- The registry's sources (check_registry.cpp)

void CheckNumberBlocks(const std::string& path, Findings& findings);
// What is missing is an error where conversions are given the cities, and else a warning.
void CheckDeviceStates(const std::string& path, const Spool& spool, const Dialect& dialect,
                       Findings& findings);

// --- The folders of mem files and of the run log (check_spool.cpp)

void CheckSpool(const Spool& spool, const DefinitionSet& definitions, const Dialect& dialect,
                Findings& findings);
void CheckRunLogFolder(Findings& findings);

// --- The server (check_server.cpp, check_login.cpp, rehearsal.cpp, check_load.cpp,
// check_delivery.cpp)

// Logs in and looks at privileges, databases, tables and settings; tries the statements of the
// definitions and a load from every folder. False, with nothing done, when another run is at work
// on this server: the two would drop each other's scratch database.
bool CheckServer(const CheckedSettings& settings, const Spool& spool,
                 const DefinitionSet& definitions, Findings& findings);

// Logs in. False after a finding.
bool CheckLogin(CSqlBase& sql, const MYSQLAUTH& auth, Findings& findings);

// A database in which statements are tried. It is made and becomes the current one, with an empty
// table "probe", to which was done what a conversion does to a mem table; it is dropped at the end
// of the scope.
class ScratchDatabase {
 public:
  static constexpr char kName[] = "WLAN_midtablectl";

  explicit ScratchDatabase(Server& server);
  ~ScratchDatabase();
  ScratchDatabase(const ScratchDatabase&) = delete;
  ScratchDatabase& operator=(const ScratchDatabase&) = delete;

  // The statement that failed and the server's words; empty when the database is there.
  const std::string& error() const { return m_error; }

 private:
  Server& m_server;
  std::string m_error;
};

// Runs the statements of the definitions on empty tables in the scratch database. With `once` a
// table that cannot be rolled back is an error.
void RehearseDefinitions(Server& server, const DefinitionSet& definitions, bool once,
                         Findings& findings);
// Loads a one-line file from every folder of the spool into the table "probe".
void ProbeLoads(Server& server, const Spool& spool, Findings& findings);
// With delivery=once: settings of the server that it needs; and a row of the client's loaded into
// the table "probe".
void CheckDelivery(Server& server, Findings& findings);
void ProbeLocalLoad(const MYSQLAUTH& auth, Server& server, Findings& findings);

}  // namespace ctl
