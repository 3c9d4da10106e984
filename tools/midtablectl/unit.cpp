#include "midtablectl/unit.h"

#include <unistd.h>

#include <filesystem>
#include <map>
#include <vector>

#include "midtablectl/text.h"
#include "support/paths.h"
#include "support/trim.h"

namespace ctl {

namespace {

namespace fs = std::filesystem;

// The unit and the files beside it, in the order in which systemd reads them: the unit of the first
// folder that has one, then the others by their names, wherever they are. None without a unit.
std::vector<std::string> UnitFiles() {
  std::vector<std::string> files;
  std::map<std::string, std::string> beside;
  for (const char* const folder : paths::kUnitFolders) {
    const std::string unit = std::string(folder) + paths::kUnit;
    if (files.empty() && access(unit.c_str(), F_OK) == 0) files.push_back(unit);
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(unit + ".d", error)) {
      const fs::path& path = entry.path();
      if (path.extension() == ".conf") beside.emplace(path.filename(), path);
    }
  }
  if (files.empty()) return files;
  for (const auto& [name, path] : beside) files.push_back(path);
  return files;
}

}  // namespace

bool HasUnit() { return !UnitFiles().empty(); }

std::string UnitType() {
  std::string type;
  for (const std::string& path : UnitFiles()) {
    std::string content;
    ReadWhole(path, content);
    for (const std::string_view line : Lines(content)) {
      const std::size_t equals = line.find('=');
      if (equals == std::string_view::npos || Trim(line.substr(0, equals)) != "Type") continue;
      type = Trim(line.substr(equals + 1));
    }
  }
  return type;
}

void CheckUnit(bool once, Findings& findings) {
  if (!HasUnit()) return;
  const bool listens = UnitType().starts_with("notify");
  if (once && !listens) {
    findings.Warning(paths::kUnit, 0,
                     "is not of Type=notify: with delivery=once it starts only while the server "
                     "answers, and has neither status nor watchdog",
                     "midtablectl setup, or see \"The unit\" in install.md");
  } else if (!once && listens) {
    findings.Warning(
        paths::kUnit, 0,
        "is of Type=notify without delivery=once: its watchdog knows no more than that "
        "the process is there",
        std::string("remove ") + paths::kUnitForOnce +
            "; then systemctl daemon-reload and systemctl restart midtable");
  }
}

}  // namespace ctl
