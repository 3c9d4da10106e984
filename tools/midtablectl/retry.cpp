// First a plan for every file, then the question, then the moves: each is looked at again before.
#include "midtablectl/retry.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

const std::string kBringBack =
    "Bring back the dropped lines alone, mended, under a name with another time; then remove it";

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

// The fields of a file's first line as the rewriting counts them: empty ones are none.
int FieldsOfFirstLine(const std::string& path) {
  struct stat status {};
  const FileDescriptor file = OpenRegular(path, status);
  char text[65536];
  const ssize_t size = file ? read(file.get(), text, sizeof text) : 0;
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
  return IsDatabaseId(id) && rest.find('/') == rest.rfind('/') ? id : std::string();
}

std::string Refusal(const RetryPlan& plan) {
  struct stat status {};
  if (plan.target.empty() || plan.path.ends_with(".mid")) return "is no .err file";
  const std::string stem = plan.target.substr(0, plan.target.size() - 4);
  if (FolderInSpool(plan.path).empty()) {
    return std::string("is not in a folder of ") + paths::kSpool + ": nothing takes it there";
  }
  if (lstat(plan.path.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "is no regular file: find out who made it, remove it";
  if (!IsMemFileName(std::string(FileNameOf(plan.target)))) {
    return "would never be taken under the name " + std::string(FileNameOf(plan.target));
  }
  const std::string table = MemFileTable(plan.target);
  const std::string database = MemFileDatabase(plan.target);
  if (table.empty() || database.empty() || !IsSafePath(plan.target) || !IsSafeIdentifier(table) ||
      !IsSafeIdentifier(database)) {
    return "would be refused for its name again: rename it if its content is sound";
  }
  if (plan.path.compare(stem.size(), 5, ".orig") == 0) {
    return "is the file as it came, which lines were dropped from: the others went on and would "
           "count twice. " +
           kBringBack;
  }
  if (!plan.path.ends_with(".err")) {
    return "is an earlier failure of its name, set aside: settle the newest first, then rename "
           "this one to .err if its rows are not loaded yet";
  }
  if (Exists(stem + ".mid")) {
    return "stands beside its .mid: the good lines of it are loaded and would count twice. " +
           kBringBack +
           ". If the .mid is another delivery of the same name, give this one another time";
  }
  if (Exists(plan.target)) return "has a .dat beside it, which waits; try again when that is gone";
  return {};
}

std::vector<std::string> Warnings(const RetryPlan& plan, LoadDoubts& doubts) {
  std::vector<std::string> warnings;
  struct stat status {};
  if (lstat(plan.path.c_str(), &status) != 0) return warnings;
  const bool rewritten = (status.st_mode & kRewrittenMark) != 0;
  const std::string doubt = doubts.Of(plan.path, status.st_ctime, rewritten);
  if (!doubt.empty()) warnings.push_back(doubt);
  if (MemFileTable(plan.target).ends_with('F') && !rewritten &&
      FieldsOfFirstLine(plan.path) == 12) {
    warnings.push_back(
        "kind F with 12 fields and without the mark of a rewritten file: every line would be "
        "dropped. Take the last field away first (cut -f 1-11), or set the mark (chmod +t)");
  }
  return warnings;
}

// Of a whole folder; what deserves a look is moved by its own name alone.
void PlanFolder(const DatabaseFolder& folder, LoadDoubts& doubts, std::vector<RetryPlan>& plans) {
  for (const SpoolEntry& file : folder.files) {
    const bool is_err = file.state == FileState::kFailed || file.state == FileState::kKept ||
                        file.state == FileState::kSetAside;
    if (!is_err) continue;
    plans.push_back(PlanRetry(folder.Path() + file.name, doubts));
    RetryPlan& plan = plans.back();
    if (plan.refusal.empty() && !plan.warnings.empty()) plan.refusal = plan.warnings.front();
  }
}

// `looked` becomes kCouldNotLook, after a line, where something could not be listed.
std::vector<RetryPlan> MakePlans(const RetryOptions& options, Console& console, Status& looked) {
  const auto failed = [&](const std::string& path, int error) {
    console.err << path << ": " << std::strerror(error) << '\n';
    looked = Status::kCouldNotLook;
  };
  std::vector<RetryPlan> plans;
  LoadDoubts doubts;
  for (const std::string& file : options.files) plans.push_back(PlanRetry(SpoolPath(file), doubts));
  if (options.database.empty() && !options.all) return plans;
  const Spool spool = ScanSpool();
  if (spool.error != 0) failed(paths::kSpool, spool.error);
  bool found_folder = options.all || spool.error != 0;
  for (const DatabaseFolder& folder : spool.folders) {
    if (!options.all && folder.id != options.database) continue;
    found_folder = true;
    if (folder.error != 0) failed(folder.Path(), folder.error);
    PlanFolder(folder, doubts, plans);
  }
  if (!found_folder) failed(paths::kSpool + OneLine(options.database), ENOENT);
  return plans;
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

RetryPlan PlanRetry(const std::string& path, LoadDoubts& doubts) {
  RetryPlan plan{path, WaitingName(path), {}, {}};
  plan.refusal = Refusal(plan);
  if (plan.refusal.empty()) plan.warnings = Warnings(plan, doubts);
  return plan;
}

Status Retry(const RetryOptions& options, Console& console) {
  Status looked = Status::kFine;
  const std::vector<RetryPlan> plans = MakePlans(options, console, looked);
  if (plans.empty()) {
    if (looked == Status::kFine) console.out << "No .err files.\n";
    return looked;
  }
  const Status some_kept = std::max(looked, Status::kFindings);
  std::size_t movable = 0;
  for (const RetryPlan& plan : plans) {
    if (plan.refusal.empty()) {
      ++movable;
      console.out << "move  " << OneLine(plan.path) << " -> " << OneLine(FileNameOf(plan.target))
                  << '\n';
      for (const std::string& warning : plan.warnings) {
        console.out << "      WARNING: " << OneLine(warning) << '\n';
      }
    } else {
      console.out << "keep  " << OneLine(plan.path) << ": " << OneLine(plan.refusal) << '\n';
    }
  }
  if (movable == 0 || !Confirmed(movable, options, console)) return some_kept;
  std::size_t moved = 0;
  for (const RetryPlan& plan : plans) {
    // Looked at once more: the question may have stood for long.
    if (!plan.refusal.empty() || !Refusal(plan).empty()) continue;
    if (RenameToFreeName(plan.path, plan.target)) {
      ++moved;
    } else {
      console.out << "keep  " << OneLine(plan.path) << ": " << std::strerror(errno) << '\n';
    }
  }
  console.out << Count(moved, "file") << " moved, " << plans.size() - moved << " kept\n";
  return moved == plans.size() ? looked : some_kept;
}

}  // namespace ctl
