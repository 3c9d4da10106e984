// First a plan for every file, then the question, then the moves: each is looked at again before.
#include "midtablectl/retry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "midtable/mem_file_name.h"
#include "midtable/spool_file.h"
#include "midtablectl/findings.h"
#include "midtablectl/spool_scan.h"
#include "support/file.h"
#include "support/paths.h"
#include "support/trim.h"

namespace ctl {

namespace {

// A .err file and what is to become of it.
struct Plan {
  std::string path;
  std::string target;
  std::string refusal;  // not empty: it stays
  std::string warning;  // goes, but somebody should look at it first
};

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

// The fields of a file's first line as the rewriting counts them: empty ones are none.
int FieldsOfFirstLine(const std::string& path) {
  const FileDescriptor fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  char text[65536];
  const ssize_t size = fd ? read(fd.get(), text, sizeof text) : 0;
  std::string_view line(text, size > 0 ? static_cast<std::size_t>(size) : 0);
  line = line.substr(0, line.find('\n'));
  int fields = 0;
  while (!line.empty()) {
    const std::size_t end = line.find('\t');
    if (end != 0) ++fields;
    line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
  }
  return fields;
}

// The folder of the spool that the path lies in directly; empty for any other place.
std::string FolderInSpool(const std::string& path) {
  const std::string spool = paths::kSpool;
  if (!path.starts_with(spool)) return {};
  const std::string rest = path.substr(spool.size());
  const std::string id = rest.substr(0, rest.find('/'));
  const bool is_folder = id.size() == 8 && ULIT::isXdigit(id.c_str());
  return is_folder && rest.find('/') == rest.rfind('/') ? id : std::string();
}

std::string Refusal(const Plan& plan) {
  struct stat status {};
  const std::string stem = plan.path.substr(0, plan.path.rfind(".err"));
  if (plan.target.empty() || plan.path.ends_with(".mid")) return "is no .err file";
  if (FolderInSpool(plan.path).empty()) {
    return std::string("is not in a folder of ") + paths::kSpool + ": nothing takes it there";
  }
  if (lstat(plan.path.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "is no regular file: find out who made it, remove it";
  if (!IsMemFileName(std::string(FileNameOf(plan.target)))) {
    return "would never be taken under the name " + std::string(FileNameOf(plan.target));
  }
  if (!plan.path.ends_with(".err")) {
    return "is an earlier failure of its name, set aside: settle the newest first, then rename "
           "this "
           "one to .err if its rows are not loaded yet";
  }
  if (Exists(stem + ".mid")) {
    return "stands beside its .mid: the good lines of it are loaded and would count twice. Bring "
           "back the dropped lines alone, mended, under a name with another time; then remove it. "
           "If the .mid is another delivery of the same name, give this one another time";
  }
  if (Exists(plan.target)) return "has a .dat beside it, which waits; try again when that is gone";
  return {};
}

std::string Warning(const Plan& plan) {
  struct stat status {};
  if (!MemFileTable(plan.target).ends_with('F')) return {};
  if (lstat(plan.path.c_str(), &status) != 0 || (status.st_mode & kRewrittenMark) != 0) return {};
  if (FieldsOfFirstLine(plan.path) != 12) return {};
  return "kind F with 12 fields and without the mark of a rewritten file: every line would be "
         "dropped. Take the last field away first (cut -f 1-11), or set the mark (chmod +t)";
}

Plan MakePlan(const std::string& path) {
  Plan plan{path, WaitingName(path), {}, {}};
  plan.refusal = Refusal(plan);
  if (plan.refusal.empty()) plan.warning = Warning(plan);
  return plan;
}

std::vector<Plan> MakePlans(const RetryOptions& options, bool& found_folder) {
  std::vector<Plan> plans;
  for (const std::string& file : options.files) plans.push_back(MakePlan(MemFilePath(file)));
  found_folder = options.database.empty();
  if (options.database.empty() && !options.all) return plans;
  for (const DatabaseFolder& folder : ScanSpool().folders) {
    if (!options.all && folder.id != options.database) continue;
    found_folder = true;
    for (const SpoolEntry& file : folder.files) {
      const bool is_err = file.state == FileState::kFailed || file.state == FileState::kKept ||
                          file.state == FileState::kSetAside;
      if (!is_err) continue;
      plans.push_back(MakePlan(folder.Path() + file.name));
      // What deserves a look is moved by its own name alone.
      if (plans.back().refusal.empty()) plans.back().refusal.swap(plans.back().warning);
    }
  }
  return plans;
}

// Renames without ever replacing a file; 0 or an errno.
int MoveToFreeName(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system that cannot do that in one step.
  if (linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0) != 0) return errno;
  return unlink(from.c_str()) == 0 ? 0 : errno;
}

bool Confirmed(std::size_t number, const RetryOptions& options, Console& console) {
  if (options.yes) return true;
  if (!console.interactive) {
    console.out << "Nothing done. With --yes they are moved.\n";
    return false;
  }
  console.out << "Move " << Count(number, "file") << "? [y/N] " << std::flush;
  std::string answer;
  std::getline(console.in, answer);
  if (Lower(Trim(answer)).starts_with('y')) return true;
  console.out << "Nothing done.\n";
  return false;
}

}  // namespace

Status Retry(const RetryOptions& options, Console& console) {
  bool found_folder = true;
  const std::vector<Plan> plans = MakePlans(options, found_folder);
  if (!found_folder) {
    console.err << "no folder " << OneLine(options.database) << " in " << paths::kSpool << '\n';
    return Status::kCouldNotLook;
  }
  if (plans.empty()) {
    console.out << "No .err files.\n";
    return Status::kFine;
  }
  std::size_t movable = 0;
  for (const Plan& plan : plans) {
    if (plan.refusal.empty()) {
      ++movable;
      console.out << "move  " << OneLine(plan.path) << " -> " << OneLine(FileNameOf(plan.target))
                  << '\n';
      if (!plan.warning.empty()) console.out << "      WARNING: " << plan.warning << '\n';
    } else {
      console.out << "keep  " << OneLine(plan.path) << ": " << OneLine(plan.refusal) << '\n';
    }
  }
  if (movable == 0) return Status::kFindings;
  if (!Confirmed(movable, options, console)) return Status::kFindings;
  std::size_t moved = 0;
  for (const Plan& plan : plans) {
    // Looked at once more: the question may have stood for long.
    if (!plan.refusal.empty() || !Refusal(plan).empty()) continue;
    const int error = MoveToFreeName(plan.path, plan.target);
    if (error == 0) {
      ++moved;
    } else {
      console.out << "keep  " << OneLine(plan.path) << ": " << std::strerror(error) << '\n';
    }
  }
  console.out << Count(moved, "file") << " moved, " << plans.size() - moved << " kept\n";
  return moved == plans.size() ? Status::kFine : Status::kFindings;
}

}  // namespace ctl
