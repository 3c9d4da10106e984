// Which file a name stands for.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <string>

// Differs once another file has the name or this one was written to.
struct FileIdentity {
  dev_t device;
  ino_t inode;
  off_t size;
  std::time_t seconds;
  long nanoseconds;  // with the seconds, the time of the last write

  bool operator==(const FileIdentity&) const = default;
  bool IsSameFile(const FileIdentity& other) const {
    return device == other.device && inode == other.inode;
  }
  // Equal but for the device: a file system may have another device number after it was mounted
  // anew.
  bool IsUnchangedSince(FileIdentity then) const {
    then.device = device;
    return *this == then;
  }
};

// What `status` says of its file.
FileIdentity IdentityOf(const struct stat& status);
// Nothing, and errno, when the path cannot be looked at. A link in the last part of the path is not
// followed.
std::optional<FileIdentity> IdentityOf(const std::string& path);
// The same, but nothing for a file that was written to so shortly ago that it may be again under
// the same time: clocks of file systems tick slower than files change.
std::optional<FileIdentity> SettledIdentityOf(const struct stat& status);
// The identity of what a link leads to.
std::optional<FileIdentity> IdentityBehindLinks(const std::string& path);
