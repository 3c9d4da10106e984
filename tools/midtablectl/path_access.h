// Whether another user of this machine can reach a path, and what is in the way if not.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ctl {

// Whom the kernel takes a process for.
struct Identity {
  std::string name;  // for people
  uid_t uid;
  std::vector<gid_t> groups;

  // Of a running process; false when it is not there.
  static bool OfProcess(long pid, Identity& identity);
  // Of a user by number, with the groups of the user data base.
  static Identity OfUser(uid_t uid);
  // Somebody who owns nothing.
  static Identity Nobody();
};

// Follows `path` from the root, as `who` would to read it: the first thing in the way, as a
// sentence; empty when there is none. Modes alone are looked at.
std::string Obstacle(const std::string& path, const Identity& who);

}  // namespace ctl
