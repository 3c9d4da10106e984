// One reading of the spool. Nothing is opened, so it disturbs neither producers nor service.
#include "midtablectl/spool_scan.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <set>

#include "midtable/mem_file_name.h"
#include "midtablectl/findings.h"
#include "support/file.h"
#include "support/paths.h"

namespace ctl {

namespace {

// The names in a folder, sorted; `error` is errno when it could not be opened.
std::vector<std::string> Names(const std::string& folder, int& error) {
  std::vector<std::string> names;
  const Directory dir(opendir(folder.c_str()));
  error = dir == nullptr ? errno : 0;
  if (dir == nullptr) return names;
  while (const dirent* entry = readdir(dir.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

FileState StateOf(const std::string& name, const std::vector<std::string>& names) {
  if (IsMemFileName(name)) return FileState::kWaiting;
  const std::string waiting = WaitingName(name);
  if (waiting.empty() || !IsMemFileName(waiting)) return FileState::kOther;
  const auto has = [&names](const std::string& wanted) {
    return std::binary_search(names.begin(), names.end(), wanted);
  };
  // Beside the file it is a copy in the making.
  if (name.ends_with(".mid")) return has(waiting) ? FileState::kOther : FileState::kLoaded;
  if (!name.ends_with(".err")) return FileState::kSetAside;
  const std::string stem = name.substr(0, name.size() - 4);
  return has(stem + ".mid") || has(waiting) ? FileState::kKept : FileState::kFailed;
}

DatabaseFolder ScanFolder(const std::string& id) {
  DatabaseFolder folder{id, 0, {}};
  const std::vector<std::string> names = Names(folder.Path(), folder.error);
  for (const std::string& name : names) {
    SpoolEntry file{name, StateOf(name, names), {}};
    // One that is gone meanwhile was renamed by the service.
    if (lstat((folder.Path() + name).c_str(), &file.status) == 0) folder.files.push_back(file);
  }
  return folder;
}

}  // namespace

std::string DatabaseFolder::Path() const { return paths::kSpool + id + "/"; }

std::string WaitingName(std::string_view name) {
  std::string_view stem = name;
  const std::size_t number = name.rfind(".err.");
  if (number != std::string_view::npos && IsNumber(name.substr(number + 5))) {
    stem = name.substr(0, number);
  } else if (name.ends_with(".mid") || name.ends_with(".err")) {
    stem.remove_suffix(4);
  } else {
    return {};
  }
  return std::string(stem) + ".dat";
}

Spool ScanSpool() {
  Spool spool;
  for (const std::string& name : Names(paths::kSpool, spool.error)) {
    if (name.size() == 8 && ULIT::isXdigit(name.c_str())) {
      spool.folders.push_back(ScanFolder(name));
    } else {
      spool.others.push_back(name);
    }
  }
  return spool;
}

}  // namespace ctl
