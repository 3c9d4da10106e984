// The steps of `check`, in their order: what later ones need comes first.
#include "midtablectl/check.h"

#include <unistd.h>

#include <cerrno>

#include "support/paths.h"

namespace ctl {

namespace {

// The file of the store that is not in use is looked at where there is one.
void CheckOtherDefinitions(const DefinitionSet& used, bool oracle, Findings& findings) {
  const char* const other = oracle ? paths::kMysqlDefinitions : paths::kOracleDefinitions;
  if (used.path == other || access(other, F_OK) != 0) return;
  CompareKinds(used, CheckDefinitions(other, !oracle, false, findings), findings);
}

// What this user may not read is not known to be wrong.
Status Blinded(Status status, const std::vector<std::string>& read, Console& console) {
  for (const std::string& path : read) {
    if (access(path.c_str(), R_OK) == 0 || errno != EACCES) continue;
    console.err << "this user may not read " << OneLine(path)
                << ": run check as root or as the service's user\n";
    status = Status::kCouldNotLook;
  }
  return status;
}

}  // namespace

Status Check(const CheckOptions& options, Console& console) {
  Findings findings;
  const std::string settings = options.settings.empty() ? paths::kSettingsFile : options.settings;
  const auto auth = CheckSettings(settings, findings);
  const bool oracle = auth && IsOracle(*auth);
  const std::string own = oracle ? paths::kOracleDefinitions : paths::kMysqlDefinitions;
  const DefinitionSet definitions = CheckDefinitions(
      options.definitions.empty() ? own : options.definitions, oracle, true, findings);
  CheckOtherDefinitions(definitions, oracle, findings);
  CheckTemplates(paths::kLoaderTemplates, oracle, definitions.MemKinds(), findings);
  const Spool spool = ScanSpool();
  CheckNumberBlocks(paths::kLocalNumberBlocks, findings);
  CheckDeviceStates(paths::kDeviceStates, spool, oracle, findings);
  CheckSpool(spool, definitions, oracle, findings);
  CheckRunLogFolder(findings);
  if (!options.offline && auth && !CheckServer(*auth, spool, definitions, findings)) {
    console.err << "another check is at work on this server: run this one when it is done\n";
    return Status::kCouldNotLook;
  }
  return Blinded(findings.Print(console, options.errors_only),
                 {settings, definitions.path, paths::kLoaderTemplates, paths::kLocalNumberBlocks,
                  paths::kDeviceStates, paths::kSpool},
                 console);
}

}  // namespace ctl
