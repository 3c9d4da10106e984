// First a plan for every file is made and shown, then the question is put, then the files are
// moved. Loading a file a second time counts its rows twice, so whatever is in doubt stays where it
// is.
#include "midtablectl/retry.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "config/dbinfo.h"
#include "midtablectl/spool_scan.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "spool/renames.h"
#include "spool/rewritten_mark.h"
#include "support/file.h"
#include "support/file_identity.h"
#include "support/names.h"
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

// How many fields the first line of a file has, as the rewriting counts them: empty fields do not
// count. 0 when the file cannot be read.
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

// Whether the path lies in a folder of the spool, and not in a folder below that.
bool IsInSpool(const std::string& path) {
  const std::string spool = paths::kSpool;
  if (!path.starts_with(spool)) return false;
  const std::string rest = path.substr(spool.size());
  const std::size_t slash = rest.find('/');
  return IsDatabaseId(rest.substr(0, slash)) && slash == rest.rfind('/');
}

// Why the service would not load the file under its old name again; empty when it would.
std::string RefusalOfName(const std::string& target) {
  const std::string name(FileNameOf(target));
  if (!IsMemFileName(name)) return "would never be taken under the name " + name;
  if (MemFile::Parse(target).Refusal() == NameRefusal::kNone) return {};
  return "would be refused for its name again: rename it if its content is sound";
}

// Why the rows of the file may be loaded, or will be, under another name; empty when nothing beside
// the file says so. `stem` is its path without the ending.
std::string NeighbourRefusal(const RetryPlan& plan, const std::string& stem) {
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

// Why the file must stay; empty when it may be moved.
std::string Refusal(const RetryPlan& plan) {
  if (plan.target.empty() || plan.path.ends_with(".mid")) return "is no .err file";
  if (!IsInSpool(plan.path)) {
    return std::string("is not in a folder of ") + paths::kSpool + ": nothing takes it there";
  }
  struct stat status {};
  if (lstat(plan.path.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "is no regular file: find out who made it, remove it";
  std::string refusal = RefusalOfName(plan.target);
  if (!refusal.empty()) return refusal;
  return NeighbourRefusal(plan, plan.target.substr(0, plan.target.size() - 4));
}

// What somebody should look at before the file is moved.
std::vector<std::string> Warnings(const RetryPlan& plan, const struct stat& status,
                                  LoadDoubts& doubts) {
  std::vector<std::string> warnings;
  const bool rewritten = (status.st_mode & kRewrittenMark) != 0;
  const std::string doubt = doubts.Of(plan.path, status.st_ctime, rewritten);
  if (!doubt.empty()) warnings.push_back(doubt);
  if (MemFile::Parse(plan.target).HasLocalFlags() && !rewritten &&
      FieldsOfFirstLine(plan.path) == 12) {
    warnings.push_back(
        "kind F with 12 fields and without the mark of a rewritten file: every line would be "
        "dropped. Take the last field away first (cut -f 1-11), or set the mark (chmod +t)");
  }
  return warnings;
}

// Plans for all .err files of a folder. Here a warning keeps a file where it is: nobody looks at
// each of a thousand warnings. The file can still be moved by its own name.
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

// The plans for what was asked. `looked` becomes kCouldNotLook, after a line, where a folder could
// not be listed or does not exist.
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

void Show(const RetryPlan& plan, Console& console) {
  if (!plan.refusal.empty()) {
    console.out << "keep  " << OneLine(plan.path) << ": " << OneLine(plan.refusal) << '\n';
    return;
  }
  console.out << "move  " << OneLine(plan.path) << " -> " << OneLine(FileNameOf(plan.target))
              << '\n';
  for (const std::string& warning : plan.warnings) {
    console.out << "      WARNING: " << OneLine(warning) << '\n';
  }
}

// Moves what may go, and returns how many files that were. Each file is looked at once more before,
// since the question may have stood for long and the service goes on meanwhile.
std::size_t Move(const std::vector<RetryPlan>& plans, Console& console) {
  std::size_t moved = 0;
  for (const RetryPlan& plan : plans) {
    if (!plan.refusal.empty() || !Refusal(plan).empty()) continue;
    if (RenameToFreeName(plan.path, plan.target)) {
      ++moved;
    } else {
      console.out << "keep  " << OneLine(plan.path) << ": " << std::strerror(errno) << '\n';
    }
  }
  return moved;
}

// Whether the files may be moved: by the option, or by the answer of somebody who is there.
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
  struct stat status {};
  if (!plan.refusal.empty() || lstat(path.c_str(), &status) != 0) return plan;
  plan.refusal = doubts.Silence(path, status.st_ctime);
  if (plan.refusal.empty()) plan.warnings = Warnings(plan, status, doubts);
  return plan;
}

Status Retry(const RetryOptions& options, Console& console) {
  CDBInfo settings(paths::kSettingsFile);
  if (settings.readConfig() && settings.getValue("delivery") == kDeliveryOnce) {
    console.out
        << "With delivery=once there is nothing to sort out: what waits is tried again by the "
           "service, and no row\nof a file that it set aside is counted. Mend the file, "
           "then rename it to .dat.\n";
  }
  Status looked = Status::kFine;
  const std::vector<RetryPlan> plans = MakePlans(options, console, looked);
  if (plans.empty()) {
    if (looked == Status::kFine) console.out << "No .err files.\n";
    return looked;
  }
  const Status some_kept = std::max(looked, Status::kFindings);
  for (const RetryPlan& plan : plans) Show(plan, console);
  const auto movable = std::count_if(plans.begin(), plans.end(),
                                     [](const RetryPlan& plan) { return plan.refusal.empty(); });
  if (movable == 0 || !Confirmed(static_cast<std::size_t>(movable), options, console)) {
    return some_kept;
  }
  const std::size_t moved = Move(plans, console);
  console.out << Count(moved, "file") << " moved, " << plans.size() - moved << " kept\n";
  return moved == plans.size() ? looked : some_kept;
}

}  // namespace ctl
