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

// The temporary file stands in the same folder, so that it can take the name in one step. One of
// its name was left by an earlier process of this number. No other user could make it a link that
// is followed.
bool ReplaceFile(const std::string& path, std::string_view content, mode_t mode, gid_t group) {
  const std::string temporary = path + ".tmp" + std::to_string(getpid());
  unlink(temporary.c_str());
  FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | kGuarded, mode));
  if (!file) return false;
  [[maybe_unused]] const int ignored = fchown(file.get(), static_cast<uid_t>(-1), group);
  const ssize_t size = write(file.get(), content.data(), content.size());
  if (size >= 0 && size < static_cast<ssize_t>(content.size())) errno = ENOSPC;
  const bool written = size == static_cast<ssize_t>(content.size()) &&
                       fchmod(file.get(), mode) == 0 && close(file.release()) == 0 &&
                       std::rename(temporary.c_str(), path.c_str()) == 0;
  const int error = errno;
  if (!written) unlink(temporary.c_str());
  errno = error;
  return written;
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
