#include "midtablectl/setup/year_tables.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "db/SqlFactory.h"
#include "db/login_remedy.h"
#include "midtablectl/check.h"
#include "midtablectl/local_time.h"
#include "midtablectl/setup/make_plan.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/database_name.h"
#include "support/paths.h"

namespace ctl {

namespace {

// Those with a folder in the spool, and those with a database.
std::string FindDevices(Server& server, std::vector<std::string>& devices) {
  std::string error;
  const std::vector<std::string> of_spool = DevicesOfSpool(error);
  std::set<std::string> all(of_spool.begin(), of_spool.end());
  for (const SqlRecord& row :
       server.Rows("select schema_name as name from information_schema.schemata")) {
    const std::string& name = row.begin()->second;
    if (!name.starts_with(kDatabasePrefix)) continue;
    const std::string id = name.substr(kDatabasePrefix.size());
    if (IsDatabaseId(id)) all.insert(id);
  }
  devices.assign(all.begin(), all.end());
  if (error.empty() && devices.empty()) return "no device -> midtablectl setup makes the first";
  return error;
}

// Tells of year tables that the definitions fill, and that the script does not make.
Status CompareWithDefinitions(int year, Console& console) {
  std::string error;
  std::set<std::string> made;
  for (const Creation& table : YearTables(YearTableScript(error), "", year, error)) {
    made.insert(table.table);
  }
  Findings ignored;  // what else is wrong with the definitions is for check to tell
  const DefinitionSet definitions =
      CheckDefinitions(paths::kMysqlDefinitions, Dialect::Of(MYSQLAUTH()), true, ignored);
  std::set<std::string> told;
  for (const MidDefinition& mid : definitions.mid) {
    const std::string name = mid.NameAt(std::to_string(year));
    const bool filled = mid.period == Period::kYear && mid.has_table;
    if (!filled || made.count(name) != 0 || !told.insert(name).second) continue;
    console.err << paths::kYearTables << ": warning: makes no " << OneLine(name)
                << ", which the table definitions fill -> add its create table if not exists\n";
  }
  return told.empty() ? Status::kFine : Status::kFindings;
}

// Makes what is missing for each device; the number of those that failed is the result.
std::size_t Make(const std::vector<std::string>& devices, int year, bool dry_run, Server& server,
                 Console& console) {
  std::size_t failed = 0;
  std::size_t made = 0;
  for (const std::string& id : devices) {
    Plan plan;
    std::string error = PlanYearTables({id}, {year}, server, plan);
    if (error.empty()) Show(plan, "database " + DatabaseName(id), console);
    if (error.empty() && !dry_run) {
      const Applied applied = Apply(plan, server);
      made += applied.done;
      error = applied.failure;
    }
    if (error.empty()) continue;
    ++failed;
    console.err << DatabaseName(id) << ": " << error << '\n';
  }
  if (dry_run) {
    console.out << "Nothing done: this is what --dry-run shows.\n";
  } else {
    console.out << Count(devices.size(), "device") << ": " << Count(made, "statement")
                << " done, all else is there for " << year << '\n';
  }
  return failed;
}

}  // namespace

Status MakeYearTables(const YearTablesOptions& options, Console& console) {
  const auto refuse = [&console](const std::string& error) {
    console.err << error << '\n';
    return Status::kCouldNotLook;
  };
  CDBInfo settings(paths::kSettingsFile);
  if (!settings.readConfig()) {
    return refuse(std::string(paths::kSettingsFile) + ": " + settings.getError() +
                  " -> midtablectl setup makes it, midtablectl check tells what is wrong with it");
  }
  const MYSQLAUTH login = ReadCredentials(settings);
  if (IsOracle(login)) return refuse("the store is on Oracle -> see oracle.md");
  const std::unique_ptr<CSqlBase> sql = CreateSqlBase(login);
  if (sql->connectDB() != 0) {
    return refuse("no login as " + OneLine(login.user) + ": " +
                  OneLine(SplitRemedy(ServerWords(sql->getLastError())).first) +
                  " -> midtablectl check says what to do");
  }
  Server server(*sql, Dialect::Of(login));
  std::vector<std::string> devices;
  const std::string error = FindDevices(server, devices);
  if (!error.empty()) return refuse(error);
  const int this_year = std::atoi(Today().substr(0, 4).c_str());
  const int year = options.next ? this_year + 1 : options.year;
  const std::size_t failed = Make(devices, year, options.dry_run, server, console);
  if (failed == devices.size()) return Status::kCouldNotLook;
  return failed > 0 ? Status::kHalfDone : CompareWithDefinitions(year, console);
}

}  // namespace ctl
