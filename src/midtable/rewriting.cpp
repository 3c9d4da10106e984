#include "midtable/rewriting.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "spool/renames.h"
#include "spool/rewritten_mark.h"
#include "support/file.h"
#include "support/file_identity.h"

namespace {

// The file as it is now, its size logged as "<when> file size (<path>)(<size>)"; nothing when it
// cannot be looked at.
std::optional<FileIdentity> LoggedIdentity(const char* when, const std::string& path) {
  const auto identity = IdentityOf(path);
  if (identity) {
    g_loger(kUnit, __LINE__, kDebug, "%s file size (%s)(%u)", when, path.c_str(),
            static_cast<unsigned int>(identity->size));
  } else {
    g_loger(kUnit, __LINE__, kDebug, "file (%s) stat error(%d)", path.c_str(), errno);
  }
  return identity;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// Makes a whole copy fit to replace the only file that has the rows: on the disk, and marked. Where
// the mark cannot be set, the work goes on: a crash before the load would then drop the rows, and
// the original, kept beside the copy, would have to be brought back by hand.
bool FinishCopy(const std::string& copy) {
  struct stat status {};
  const FileDescriptor file = OpenRegular(copy, status);
  if (!file || fdatasync(file.get()) != 0) {
    g_loger(kUnit, __LINE__, kError, "copy (%s) not usable errno (%d)", copy.c_str(), errno);
    return false;
  }
  if (fchmod(file.get(), status.st_mode | kRewrittenMark) != 0) {
    g_loger(kUnit, __LINE__, kDebug, "copy (%s) not marked errno (%d)", copy.c_str(), errno);
  }
  return true;
}

// Gives the copy the name of the file, which keeps the name `kept` when there is one. False, after
// a line in the log: the file is where it was.
bool PutInPlace(const std::string& copy, const std::string& path, const std::string& kept) {
  const auto failed = [](const std::string& from, const std::string& to) {
    g_loger(kUnit, __LINE__, kError, "file (%s) rename to (%s) failed errno (%d)", from.c_str(),
            to.c_str(), errno);
    return false;
  };
  if (!kept.empty() && !KeepMemFile(path, kept)) return failed(path, kept);
  if (MoveMemFile(copy, path)) return true;
  failed(copy, path);
  if (!kept.empty() && !MoveMemFile(kept, path)) failed(kept, path);
  return false;
}

}  // namespace

// The copy is named like a loaded file while it is made, so that no pass takes it for one that
// waits. Whatever fails on the way removes it.
bool RewriteMemFile(const std::string& path, TourLocalUser& registry) {
  if (path.empty()) {
    g_loger(kUnit, __LINE__, kConsole, "file name is null convert failed");
    return false;
  }
  if (!Exists(path)) {
    g_loger(kUnit, __LINE__, kConsole, "file %s not exist convert failed", path.c_str());
    return false;
  }
  const auto before = LoggedIdentity("before convert", path);
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) {
    g_loger(kUnit, __LINE__, kConsole, "file %s name not right", path.c_str());
    return false;
  }
  const std::string stem = path.substr(0, dot);
  const std::string copy = stem + ".mid";
  registry.ParseMemfile(path, copy);
  if (!Exists(copy)) {
    g_loger(kUnit, __LINE__, kConsole, "new file %s not exist convert failed", path.c_str());
    return false;
  }
  const auto after = LoggedIdentity("after convert", copy);
  // A producer that still writes would lose what comes after the copy, so the file is left alone
  // for this time.
  const bool unchanged = before == IdentityOf(path);
  if (!unchanged) {
    g_loger(kUnit, __LINE__, kError, "file (%s) changed while it was rewritten", path.c_str());
  }
  // A smaller copy has lost lines, and so may a larger one, whose flags outweigh the lost lines: in
  // both cases the unrewritten file is kept for inspection.
  std::string kept;
  if (before && after && after->size < before->size) {
    kept = stem + ".err";
  } else if (registry.lostLines() > 0) {
    kept = stem + ".orig";
  }
  if (!unchanged || !FinishCopy(copy) || !PutInPlace(copy, path, kept)) {
    // A copy that stayed behind would look like a loaded file.
    unlink(copy.c_str());
    return false;
  }
  LoggedIdentity("after rename", path);
  return true;
}
