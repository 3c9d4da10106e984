#include "support/file_identity.h"

// Size and time of the last write are enough to see that a file was written to: whoever appends
// changes the one, and whoever rewrites it in place the other.
FileIdentity IdentityOf(const struct stat& status) {
  return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
          status.st_mtim.tv_nsec};
}

std::optional<FileIdentity> IdentityOf(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return std::nullopt;
  return IdentityOf(status);
}

std::optional<FileIdentity> SettledIdentityOf(const struct stat& status) {
  constexpr std::time_t kSettledSeconds = 2;
  if (std::time(nullptr) - status.st_mtim.tv_sec < kSettledSeconds) return std::nullopt;
  return IdentityOf(status);
}

std::optional<FileIdentity> IdentityBehindLinks(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return IdentityOf(status);
}
