// The order of the steps of `check`: what later ones need comes first.
#include "midtablectl/check.h"

#include <unistd.h>

#include <cerrno>

#include "midtablectl/text.h"
#include "midtablectl/unit.h"
#include "support/paths.h"

namespace ctl {

namespace {

// The definitions of the other kind of store may lie there too. The service does not read them, but
// whoever keeps both files wants them alike.
void CheckOtherDefinitions(const DefinitionSet& used, const Dialect& other, Findings& findings) {
  const char* const path = other.DefinitionsFile();
  if (used.path == path || access(path, F_OK) != 0) return;
  CompareKinds(used, CheckDefinitions(path, other, false, findings), findings);
}

// Whether this user may read all that was looked at. What may not be read was reported as missing,
// but the service, as another user, may well be able to read it; so a line says that.
bool MayReadAll(const std::vector<std::string>& files, Console& console) {
  bool all = true;
  for (const std::string& path : files) {
    if (access(path.c_str(), R_OK) == 0 || errno != EACCES) continue;
    console.err << "this user may not read " << OneLine(path)
                << ": run check as root or as the service's user\n";
    all = false;
  }
  return all;
}

}  // namespace

Status Check(const CheckOptions& options, Console& console) {
  Findings findings;
  const std::string settings = options.settings.empty() ? paths::kSettingsFile : options.settings;
  const auto checked = CheckSettings(settings, findings);
  const MYSQLAUTH store = checked ? checked->auth : MYSQLAUTH();
  const Dialect& dialect = Dialect::Of(store);
  const DefinitionSet definitions = CheckDefinitions(
      options.definitions.empty() ? dialect.DefinitionsFile() : options.definitions, dialect, true,
      findings);
  CheckOtherDefinitions(definitions, dialect.Other(), findings);
  CheckTemplates(paths::kLoaderTemplates, dialect, definitions.MemKinds(), findings);
  const Spool spool = ScanSpool();
  CheckNumberBlocks(paths::kLocalNumberBlocks, findings);
  CheckDeviceStates(paths::kDeviceStates, spool, dialect, findings);
  CheckSpool(spool, definitions, dialect, findings);
  CheckRunLogFolder(findings);
  // Settings that are only to be tried are nobody's yet.
  if (checked && options.settings.empty()) CheckUnit(checked->once, findings);
  if (!options.offline && checked && !CheckServer(*checked, spool, definitions, findings)) {
    console.err << "another check is at work on this server: run this one when it is done\n";
    return Status::kCouldNotLook;
  }
  const Status status = findings.Print(console, options.errors_only);
  const bool read_all =
      MayReadAll({settings, store.client_options, definitions.path, paths::kLoaderTemplates,
                  paths::kLocalNumberBlocks, paths::kDeviceStates, paths::kSpool},
                 console);
  return read_all ? status : Status::kCouldNotLook;
}

}  // namespace ctl
