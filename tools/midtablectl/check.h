// The steps of `check`. Each adds what it finds and goes on as far as it can.
#pragma once

#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "config/dbinfo.h"
#include "midtable/mid_table.h"
#include "midtablectl/findings.h"
#include "midtablectl/server.h"
#include "midtablectl/spool_scan.h"

namespace ctl {

struct CheckOptions {
  std::string settings;     // empty: the service's own file
  std::string definitions;  // the same, of the store that the settings name
  bool offline = false;
  bool errors_only = false;
};

Status Check(const CheckOptions& options, Console& console);

// --- settings (check_settings.cpp)

// The settings as the service reads them; nothing when it would refuse the file.
std::optional<MYSQLAUTH> CheckSettings(const std::string& path, Findings& findings);
// Whether a port is needed and there is none: a local socket has no use for one.
bool LacksPort(const MYSQLAUTH& auth);

// --- definitions and loader templates (check_definitions.cpp, check_templates.cpp)

struct MemDefinition {
  std::string kind;
  std::string create;  // filled for SampleMemTable(kind); empty when it cannot be
  long line;
};

struct MidDefinition {
  std::string kind;
  std::string name;  // without its date
  Period period;
  bool has_table;       // false: its Convert works on the mem table alone
  std::string create;   // filled, for a sample date; empty when there is none or it is faulty
  std::string convert;  // the same
  long line;

  std::string NameAt(const std::string& date) const { return MidTableName(name, date); }
};

struct DefinitionSet {
  std::string path;
  bool readable = false;
  std::vector<MemDefinition> mem;
  std::vector<MidDefinition> mid;

  std::set<std::string> MemKinds() const;
};

inline constexpr char kSampleDate[] = "20001231";
std::string SampleMemTable(const std::string& kind);
// Engine named by a create statement, in small letters; empty when it names none.
std::string EngineOf(const std::string& create);
// Whether it speaks of a key, by words: a column user_key is none.
bool NamesKey(const std::string& create);
// Whether a conversion adds to rows that are there already, which needs a key.
bool AddsUp(const std::string& convert);
inline constexpr char kMemWithoutKey[] = " has no key: a row that is delivered twice counts twice";
inline constexpr char kMidWithoutKey[] =
    " has no key, although its Convert says \"on duplicate key\": nothing is added up";
inline constexpr char kGiveKey[] = "give it a primary key";

// Reads the file and adds what is wrong with it: errors when `in_use`, else warnings. What could be
// read is in the result, so that later steps go on with it.
DefinitionSet CheckDefinitions(const std::string& path, bool oracle, bool in_use,
                               Findings& findings);
// Differences between the kinds of the two files.
void CompareKinds(const DefinitionSet& used, const DefinitionSet& other, Findings& findings);
// What CXmlStream says of a file, "line 7: text", in two; line 0 when it names none.
std::pair<long, std::string> SplitLine(const std::string& error);
// `kinds`: those whose files are loaded through the templates; looked for on an Oracle store only.
void CheckTemplates(const std::string& path, bool oracle, const std::set<std::string>& kinds,
                    Findings& findings);

// --- localtour.csv, devstate.ini (check_registry.cpp)

void CheckNumberBlocks(const std::string& path, Findings& findings);
void CheckDeviceStates(const std::string& path, const Spool& spool, bool oracle,
                       Findings& findings);

// --- spool and run log folders (check_spool.cpp)

void CheckSpool(const Spool& spool, const DefinitionSet& definitions, bool oracle,
                Findings& findings);
void CheckRunLogFolder(Findings& findings);

// --- the server (check_server.cpp, rehearsal.cpp, check_load.cpp)

std::string Today();  // YYYYMMDD

// False when another run is at it, whose database this one would drop.
bool CheckServer(const MYSQLAUTH& auth, const Spool& spool, const DefinitionSet& definitions,
                 Findings& findings);

// A database for tries, made and dropped again, with an empty table "probe" to which was done what
// a conversion does to a mem table.
class ScratchDatabase {
 public:
  static constexpr char kName[] = "WLAN_midtablectl";
  explicit ScratchDatabase(Server& server);
  ~ScratchDatabase();
  ScratchDatabase(const ScratchDatabase&) = delete;
  ScratchDatabase& operator=(const ScratchDatabase&) = delete;
  const std::string& error() const { return m_error; }  // empty: it is there, and in use

 private:
  Server& m_server;
  std::string m_error;
};

// Runs the definitions on empty tables in the scratch database.
void RehearseDefinitions(Server& server, const DefinitionSet& definitions, Findings& findings);
// Loads a one-line file from every folder of the spool.
void ProbeLoads(Server& server, const Spool& spool, Findings& findings);

}  // namespace ctl
