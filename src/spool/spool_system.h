// The clocks and the file system by which a listing of a folder is judged; tests have others.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

// What tells one state of a folder from another.
struct FolderStamp {
  dev_t device = 0;
  ino_t inode = 0;
  std::chrono::nanoseconds changed{};  // since the epoch

  bool operator==(const FolderStamp&) const = default;
  bool IsSameFolder(const FolderStamp& other) const {
    return device == other.device && inode == other.inode;
  }
};

class SpoolSystem {
 public:
  // That of the machine.
  static const SpoolSystem& Real();

  virtual ~SpoolSystem() = default;
  virtual std::chrono::nanoseconds WallClock() const;
  virtual std::chrono::nanoseconds SteadyClock() const;
  // False when the folder cannot be looked at.
  virtual bool Stamp(const std::string& folder, FolderStamp& stamp) const;
  // Whether the open folder is on a file system whose stamps show every change at once.
  virtual bool IsLocal(int folder) const;
};
