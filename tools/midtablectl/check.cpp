// The steps of `check`, in their order: what later ones need comes first.
#include "midtablectl/check.h"

#include <unistd.h>

#include "support/paths.h"

namespace ctl {

namespace {

// The file of the store that is not in use is looked at where there is one.
void CheckOtherDefinitions(const DefinitionSet& used, bool oracle, Findings& findings) {
  const char* const other = oracle ? paths::kMysqlDefinitions : paths::kOracleDefinitions;
  if (used.path == other || access(other, F_OK) != 0) return;
  CompareKinds(used, CheckDefinitions(other, !oracle, false, findings), findings);
}

}  // namespace

Status Check(const CheckOptions& options, Console& console) {
  Findings findings;
  const auto auth =
      CheckSettings(options.settings.empty() ? paths::kSettingsFile : options.settings, findings);
  const bool oracle = auth && IsOracle(*auth);
  const char* const own = oracle ? paths::kOracleDefinitions : paths::kMysqlDefinitions;
  const DefinitionSet definitions = CheckDefinitions(
      options.definitions.empty() ? own : options.definitions, oracle, true, findings);
  CheckOtherDefinitions(definitions, oracle, findings);
  CheckTemplates(paths::kLoaderTemplates, oracle, definitions.MemKinds(), findings);
  const Spool spool = ScanSpool();
  CheckNumberBlocks(paths::kLocalNumberBlocks, findings);
  CheckDeviceStates(paths::kDeviceStates, spool, oracle, findings);
  CheckSpool(spool, definitions, oracle, findings);
  CheckRunLogFolder(findings);
  if (!options.offline && auth) CheckServer(*auth, spool, definitions, findings);
  return findings.Print(console, options.errors_only);
}

}  // namespace ctl
