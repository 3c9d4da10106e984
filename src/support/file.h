// Owning handles for what the C library and the kernel hand out.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
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
inline FileDescriptor OpenRegular(const std::string& path, struct stat& status) {
  FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (file && fstat(file.get(), &status) != 0) file.reset(-1);
  if (file && !S_ISREG(status.st_mode)) {
    file.reset(-1);
    errno = EINVAL;
  }
  return file;
}
