// Mem files as files: which one a name stands for, the mark of a rewritten one, and renames that
// lose none. No operation follows a link in the last part of a path.
#pragma once

#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <string>

// Mode bit of a rewritten mem file. Its rows carry the local flag already and would be dropped if
// they were rewritten again, after a crash or when an operator has it loaded once more. A mode bit
// is set and renamed together with the file, and every kind of file system has it.
inline constexpr mode_t kRewrittenMark = S_ISVTX;

// Which file a name stands for: differs once another file has the name or this one was written to.
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
};

// Nothing, and errno, when the path cannot be looked at.
std::optional<FileIdentity> IdentityOf(const std::string& path);

// Renames `from` to `to` unless something has that name, which is EEXIST. False, and errno: `from`
// has its name, and maybe both.
bool RenameToFreeName(const std::string& from, const std::string& to);

// Renames `from` to `to` and returns whether `from` is gone; else errno. Of two names of one file
// `to` is left. Another file that has the name `to` is replaced, but a ".err", which holds rows
// that are nowhere else, is set aside before: it becomes `to`.1, or the first such name that is
// free.
bool MoveMemFile(const std::string& from, const std::string& to);

// Makes `kept` a second name of the file, so that the first can be given away without a moment in
// which the file has none; where the file system has no hard links it is renamed. A `kept` of
// another file is set aside as above. False, and errno: the file has its old name only.
bool KeepMemFile(const std::string& path, const std::string& kept);
