// access(2) answers for the user who asks. Here the question is about another one, so the modes are
// read as the kernel would.
#include "midtablectl/path_access.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <sstream>

#include "log/zux_center_log.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

std::string UserName(uid_t uid) {
  const passwd* entry = getpwuid(uid);
  return entry != nullptr ? entry->pw_name : "user number " + std::to_string(uid);
}

// Whether the mode allows it: `bit` is 4 to read a file and 1 to pass through a folder. Only the
// first set of bits that applies counts, so an owner may have less than everybody else.
bool Allows(const struct stat& status, const Identity& who, mode_t bit) {
  if (who.uid == 0) return true;
  if (status.st_uid == who.uid) return (status.st_mode & (bit << 6)) != 0;
  const bool in_group =
      std::find(who.groups.begin(), who.groups.end(), status.st_gid) != who.groups.end();
  return (status.st_mode & (in_group ? bit << 3 : bit)) != 0;
}

}  // namespace

bool Identity::OfProcess(long pid, Identity& identity) {
  std::string status;
  if (!ReadWhole("/proc/" + std::to_string(pid) + "/status", status)) return false;
  identity.groups.clear();
  // A line has the real and the effective number, among others: the effective one opens files.
  for (const std::string_view line : Lines(status)) {
    std::istringstream values{std::string(line)};
    std::string key;
    unsigned int real = 0;
    unsigned int effective = 0;
    values >> key;
    if (key == "Uid:" && values >> real >> effective) identity.uid = effective;
    if (key == "Gid:" && values >> real >> effective) identity.groups.push_back(effective);
    while (key == "Groups:" && values >> real) identity.groups.push_back(real);
  }
  identity.name = UserName(identity.uid);
  return true;
}

Identity Identity::OfUser(uid_t uid) {
  Identity identity{UserName(uid), uid, {}};
  if (const passwd* entry = getpwuid(uid)) {
    int count = 64;  // more groups than this give none, as if the user were in no group
    identity.groups.resize(64);
    if (getgrouplist(entry->pw_name, entry->pw_gid, identity.groups.data(), &count) < 0) count = 0;
    identity.groups.resize(static_cast<std::size_t>(count));
  }
  return identity;
}

Identity Identity::Nobody() { return {"another user", std::numeric_limits<uid_t>::max() - 1, {}}; }

// The path is walked from the root, and the first folder that is closed is named: what lies below
// it cannot be reached, whatever its mode.
std::string Obstacle(const std::string& path, const Identity& who) {
  for (std::size_t slash = path.find('/'); slash != std::string::npos;) {
    const std::size_t next = path.find('/', slash + 1);
    // A doubled slash, and one at the end, name nothing more.
    if (next == slash + 1 || slash + 1 == path.size()) {
      slash = next;
      continue;
    }
    const std::string part = path.substr(0, next);
    struct stat status {};
    if (stat(part.c_str(), &status) != 0) {
      return part +
             (errno == ENOENT ? " does not exist" : std::string(": ") + std::strerror(errno));
    }
    const bool folder = S_ISDIR(status.st_mode);
    if (!Allows(status, who, folder ? 1 : 4)) {
      return Format("%s %s has mode %04o and belongs to %s: %s cannot %s it",
                    folder ? "folder" : "file", part.c_str(), status.st_mode & 07777,
                    UserName(status.st_uid).c_str(), who.name.c_str(),
                    folder ? "pass through" : "read");
    }
    slash = next;
  }
  return {};
}

}  // namespace ctl
