#include "spool/spool_system.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <iterator>

namespace {

using std::chrono::nanoseconds;

// These numbers do not stand in every version of the kernel's header.
constexpr long kZfsMagic = 0x2FC12FC1;
constexpr long kJfsMagic = 0x3153464A;
constexpr long kBcachefsMagic = 0xCA451A4E;
constexpr long kLocalFileSystems[] = {
    EXT4_SUPER_MAGIC,  // ext2 and ext3, too
    XFS_SUPER_MAGIC,       BTRFS_SUPER_MAGIC,    F2FS_SUPER_MAGIC,  TMPFS_MAGIC, RAMFS_MAGIC,
    OVERLAYFS_SUPER_MAGIC, REISERFS_SUPER_MAGIC, NILFS_SUPER_MAGIC, kZfsMagic,   kJfsMagic,
    kBcachefsMagic};

nanoseconds Duration(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

}  // namespace

// The object has no state, so all folders share one.
const SpoolSystem& SpoolSystem::Real() {
  static const SpoolSystem system;
  return system;
}

nanoseconds SpoolSystem::WallClock() const {
  return std::chrono::system_clock::now().time_since_epoch();
}

nanoseconds SpoolSystem::SteadyClock() const {
  return std::chrono::steady_clock::now().time_since_epoch();
}

bool SpoolSystem::Stamp(const std::string& folder, FolderStamp& stamp) const {
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) return false;
  // Whoever unpacks files may set the modification time back; nobody can set the change time.
  stamp = {status.st_dev, status.st_ino,
           std::max(Duration(status.st_mtim), Duration(status.st_ctim))};
  return true;
}

// The list names the file systems that are known to be local, so that an unknown one is read too
// often rather than trusted wrongly.
bool SpoolSystem::IsLocal(int folder) const {
  struct statfs status {};
  if (fstatfs(folder, &status) != 0) return false;
  return std::find(std::begin(kLocalFileSystems), std::end(kLocalFileSystems),
                   static_cast<long>(status.f_type)) != std::end(kLocalFileSystems);
}
