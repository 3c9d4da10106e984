// Owning handles for what the C library and the kernel hand out, and files opened so that no link
// or pipe in their place does harm.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// A stdio stream closed at the end of its scope. Where the result of the close matters, release()
// it and call fclose.
using File = std::unique_ptr<std::FILE, FileCloser>;

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

// A directory stream closed at the end of its scope.
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

// A file descriptor closed at the end of its scope. Where the result of the close matters,
// release() it and call close.
class FileDescriptor {
 public:
  // Takes what open(2) answered, -1 included.
  explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
  ~FileDescriptor() { reset(-1); }
  FileDescriptor(FileDescriptor&& other) noexcept : m_fd(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    reset(other.release());
    return *this;
  }

  explicit operator bool() const { return m_fd >= 0; }
  int get() const { return m_fd; }
  int release() { return std::exchange(m_fd, -1); }
  void reset(int fd) {
    if (m_fd >= 0) close(m_fd);
    m_fd = fd;
  }

 private:
  int m_fd;
};

// Opens a regular file for reading and looks at it. Null with errno set when that fails: a link is
// not followed (ELOOP), and a pipe, which could hold the caller, is EINVAL like whatever is no
// file.
FileDescriptor OpenRegular(const std::string& path, struct stat& status);

// The same for writing, in a folder where others may have put something under the name. `flags` is
// O_WRONLY with O_APPEND or O_TRUNC. A file that is not there is made and has exactly `mode`,
// whatever the umask; one that is there keeps its mode. A pipe that nobody reads is ENXIO.
FileDescriptor CreateRegular(const std::string& path, int flags, mode_t mode);

// Puts the content into a file that others may read at any time: it is there as a whole, or the
// file is as it was. False, with errno, in the second case. The file has exactly `mode`, and
// belongs to `group` where this user may give it away.
bool ReplaceFile(const std::string& path, std::string_view content, mode_t mode,
                 gid_t group = getegid());

// Makes the folders of an absolute path that are missing, each with exactly `mode`. A folder that
// cannot be made shows when it is used.
void MakeFolders(const std::string& path, mode_t mode);

// Whether `path` still leads to the open file: nobody removed, moved or replaced the file. True as
// well where the path cannot be looked at, which says nothing about the file.
bool StillNames(const std::string& path, int fd);

// What stands under `path` that keeps this process from using the path as its file, as the end of
// a sentence: "is not a regular file", "belongs to user 1000". Empty where neither is so.
std::string ObstacleAt(const std::string& path);

// Whether the descriptor is the null device, so that nobody reads what is written there.
bool IsNullDevice(int fd);
