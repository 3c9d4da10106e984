#include "midtablectl/spool_scan.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/file.h"
#include "support/names.h"
#include "support/paths.h"

namespace ctl {

namespace {

// The names in a folder, sorted. `error` becomes 0, or errno when the folder could not be opened.
std::vector<std::string> ListFolder(const std::string& folder, int& error) {
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

// `names` are all names of the folder, sorted.
FileState StateOf(const std::string& name, const std::vector<std::string>& names) {
  if (IsMemFileName(name)) return FileState::kWaiting;
  const std::string waiting = WaitingName(name);
  if (waiting.empty() || !IsMemFileName(waiting)) return FileState::kOther;
  const auto has = [&names](const std::string& wanted) {
    return std::binary_search(names.begin(), names.end(), wanted);
  };
  // The copy of a file that is being rewritten has the name of a loaded file for a while.
  if (name.ends_with(".mid")) return has(waiting) ? FileState::kOther : FileState::kLoaded;
  if (name.ends_with(".orig")) return FileState::kKept;
  if (!name.ends_with(".err")) return FileState::kSetAside;
  const std::string stem = name.substr(0, name.size() - 4);
  return has(stem + ".mid") || has(waiting) ? FileState::kKept : FileState::kFailed;
}

}  // namespace

DatabaseFolder ScanFolder(const std::string& id) {
  DatabaseFolder folder{id, 0, {}};
  const std::vector<std::string> names = ListFolder(folder.Path(), folder.error);
  for (const std::string& name : names) {
    SpoolEntry file{name, StateOf(name, names), {}};
    // The service may have renamed the file meanwhile; the next look finds it under its new name.
    if (lstat((folder.Path() + name).c_str(), &file.status) == 0) folder.files.push_back(file);
  }
  return folder;
}

std::vector<std::string> ListIds(int& error) {
  std::vector<std::string> ids = ListFolder(paths::kSpool, error);
  std::erase_if(ids, [](const std::string& name) { return !IsDatabaseId(name); });
  return ids;
}

std::optional<std::uint64_t> CountFailed(const std::string& id) {
  int error = 0;
  const std::vector<std::string> names = ListFolder(DatabaseFolder{id, 0, {}}.Path(), error);
  if (error != 0) return std::nullopt;
  return static_cast<std::uint64_t>(
      std::count_if(names.begin(), names.end(), [&names](const std::string& name) {
        return name.ends_with(".err") && StateOf(name, names) == FileState::kFailed;
      }));
}

const char* WhyNeverTaken(const SpoolEntry& file) {
  if (file.state != FileState::kOther || !Lower(file.name).ends_with(".dat")) return nullptr;
  return MemFileNameFault(file.name);
}

std::vector<std::string> FullFolders() {
  std::vector<std::string> full;
  for (const std::string& folder : {std::string(paths::kSpool), std::string(paths::kRunLogDir)}) {
    struct statvfs room {};
    if (statvfs(folder.c_str(), &room) == 0 && room.f_blocks > 0 && room.f_bavail == 0) {
      full.push_back(folder);
    }
  }
  return full;
}

std::string DatabaseFolder::Path() const { return paths::kSpool + id + "/"; }

// An operator may name a file as it stands in the run log, by a path through a link or by its bare
// name. All three lead to the path that the service uses, by which the run log is searched.
std::string SpoolPath(const std::string& file) {
  std::string path = MemFile::Parse(file).path;
  const std::string name(FileNameOf(path));
  // Folders are compared by what they are: the path may go through links, or start from the working
  // folder.
  struct stat folder {};
  struct stat candidate {};
  if (stat(path.substr(0, path.size() - name.size()).c_str(), &folder) != 0) return path;
  int error = 0;
  for (const std::string& id : ListIds(error)) {
    const std::string known = DatabaseFolder{id, 0, {}}.Path();
    if (stat(known.c_str(), &candidate) == 0 && candidate.st_dev == folder.st_dev &&
        candidate.st_ino == folder.st_ino) {
      return known + name;
    }
  }
  return path;
}

std::string WaitingName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  // A loaded file is never set aside, so ".mid.1" is nothing that the service made.
  const bool numbered = dot != std::string_view::npos && IsNumber(name.substr(dot + 1));
  if (numbered) name = name.substr(0, dot);
  for (const std::string_view ending : {".err", ".orig", ".mid"}) {
    if (!name.ends_with(ending) || (numbered && ending == ".mid")) continue;
    name.remove_suffix(ending.size());
    return std::string(name) + ".dat";
  }
  return {};
}

std::uint64_t CountRows(const std::string& path) {
  struct stat status {};
  const FileDescriptor file = OpenRegular(path, status);
  std::uint64_t rows = 0;
  std::vector<char> chunk(1 << 18);
  for (ssize_t size = 0; file && (size = read(file.get(), chunk.data(), chunk.size())) > 0;) {
    rows += static_cast<std::uint64_t>(std::count(chunk.begin(), chunk.begin() + size, '\n'));
  }
  return rows;
}

Spool ScanSpool() {
  Spool spool;
  for (const std::string& name : ListFolder(paths::kSpool, spool.error)) {
    if (IsDatabaseId(name)) {
      spool.folders.push_back(ScanFolder(name));
    } else {
      spool.others.push_back(name);
    }
  }
  return spool;
}

}  // namespace ctl
