#include "spool/renames.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/file_identity.h"
#include "support/names.h"

namespace {

// Two names that cannot both be looked at are taken for two files, which leads to a rename and
// never to a removal.
bool IsSameFile(const std::string& a, const std::string& b) {
  const auto first = IdentityOf(a);
  const auto second = IdentityOf(b);
  return first && second && first->IsSameFile(*second);
}

// Gives a file that stands in the way the first free name of `path`.1, `path`.2 and so on.
bool SetAside(const std::string& path) {
  std::string aside;
  int number = 0;
  do {
    aside = path + '.' + std::to_string(++number);
    if (RenameToFreeName(path, aside)) {
      g_loger(kUnit, __LINE__, kInfo, "file (%s) is kept as (%s)", Printable(path).c_str(),
              Printable(aside).c_str());
      return true;
    }
  } while (errno == EEXIST);
  return false;
}

}  // namespace

bool RenameToFreeName(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // Not every file system can look for the new name and rename in one step. A hard link does the
  // same in two: link(2) refuses a name that exists.
  if (link(from.c_str(), to.c_str()) == 0) return unlink(from.c_str()) == 0;
  if (errno != EPERM && errno != EOPNOTSUPP && errno != ENOSYS) return false;
  // Some file systems have no hard links either. What remains is a look before the rename, although
  // the name may be taken in the moment between the two.
  if (IdentityOf(to)) {
    errno = EEXIST;
    return false;
  }
  return std::rename(from.c_str(), to.c_str()) == 0;
}

bool MoveMemFile(const std::string& from, const std::string& to) {
  // rename(2) does nothing where both are names of one file.
  if (IsSameFile(from, to)) return unlink(from.c_str()) == 0;
  // A file that was loaded may replace an older one of its name, whose rows are counted. One that
  // failed is evidence, and nothing may be put in its place.
  if (!to.ends_with(".err")) return std::rename(from.c_str(), to.c_str()) == 0;
  if (RenameToFreeName(from, to)) return true;
  return errno == EEXIST && SetAside(to) && RenameToFreeName(from, to);
}

// A hard link comes first, so that the file has a name at every moment at which the service may be
// killed.
bool KeepMemFile(const std::string& path, const std::string& kept) {
  if (link(path.c_str(), kept.c_str()) == 0 || IsSameFile(path, kept)) return true;
  if (IdentityOf(kept) && !SetAside(kept)) return false;
  return link(path.c_str(), kept.c_str()) == 0 || RenameToFreeName(path, kept);
}
