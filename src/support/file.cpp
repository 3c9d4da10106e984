#include "support/file.h"

#include <fcntl.h>
#include <paths.h>

#include <cerrno>
#include <filesystem>

namespace {

// The last part of a path is not followed where it is a link, and no pipe holds the caller.
constexpr int kGuarded = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

FileDescriptor OnlyRegular(FileDescriptor file, struct stat& status) {
  if (file && fstat(file.get(), &status) != 0) file.reset(-1);
  if (file && !S_ISREG(status.st_mode)) {
    file.reset(-1);
    errno = EINVAL;
  }
  return file;
}

bool IsSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

FileDescriptor OpenRegular(const std::string& path, struct stat& status) {
  return OnlyRegular(FileDescriptor(open(path.c_str(), O_RDONLY | kGuarded)), status);
}

FileDescriptor CreateRegular(const std::string& path, int flags, mode_t mode) {
  struct stat status {};
  for (;;) {
    // Made and opened are two calls: only what was made here gets the mode.
    FileDescriptor made(open(path.c_str(), flags | kGuarded | O_CREAT | O_EXCL, mode));
    if (made && fchmod(made.get(), mode) != 0) made.reset(-1);
    if (made || errno != EEXIST) return made;
    FileDescriptor there =
        OnlyRegular(FileDescriptor(open(path.c_str(), flags | kGuarded)), status);
    // A file that was removed between the two calls is made in the next round.
    if (there || errno != ENOENT) return there;
  }
}

void MakeFolders(const std::string& path, mode_t mode) {
  FileDescriptor folder(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::filesystem::path& name : std::filesystem::path(path).relative_path()) {
    if (!folder || name.empty()) return;
    const bool made = mkdirat(folder.get(), name.c_str(), mode) == 0;
    // A folder that was there may be closed to this user but for passing through, or be a link.
    const int flags = made ? O_RDONLY | O_NOFOLLOW : O_PATH;
    folder = FileDescriptor(openat(folder.get(), name.c_str(), flags | O_DIRECTORY | O_CLOEXEC));
    if (made && folder) [[maybe_unused]]
      const int ignored = fchmod(folder.get(), mode);
  }
}

bool StillNames(const std::string& path, int fd) {
  struct stat named {};
  if (lstat(path.c_str(), &named) != 0) return errno != ENOENT && errno != ENOTDIR;
  struct stat opened {};
  return fstat(fd, &opened) == 0 && IsSameFile(named, opened);
}

std::string ObstacleAt(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) return "is not a regular file";
  if (status.st_uid != geteuid()) return "belongs to user " + std::to_string(status.st_uid);
  return {};
}

bool IsNullDevice(int fd) {
  struct stat file {};
  struct stat null {};
  return fstat(fd, &file) == 0 && stat(_PATH_DEVNULL, &null) == 0 && S_ISCHR(file.st_mode) &&
         file.st_rdev == null.st_rdev;
}
