// Owning handles for what the C library and the kernel hand out.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// A stdio stream closed at the end of its scope. Where the result of the close matters, release()
// it and call fclose.
using File = std::unique_ptr<std::FILE, FileCloser>;

// A file descriptor closed at the end of its scope. Where the result of the close matters,
// release() it and call close.
class FileDescriptor {
 public:
  // Takes what open(2) answered, -1 included.
  explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
  ~FileDescriptor() { reset(-1); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

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
