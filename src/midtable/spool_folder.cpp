#include "midtable/spool_folder.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "midtable/mem_file_name.h"
#include "support/file.h"

namespace {

using std::chrono::nanoseconds;

// The coarsest step of a time stamp.
constexpr std::chrono::seconds kCoarsestStep{2};
// How long a listing is used while the folder changes.
constexpr std::chrono::seconds kLongestUse{1};
// Two readings of two clocks in a row differ by less unless one was set.
constexpr std::chrono::milliseconds kClockTolerance{250};

// Not in every version of the kernel's header.
constexpr long kZfsMagic = 0x2FC12FC1;
constexpr long kJfsMagic = 0x3153464A;
constexpr long kBcachefsMagic = 0xCA451A4E;
constexpr long kLocalFileSystems[] = {
    EXT4_SUPER_MAGIC,  // and its elders
    XFS_SUPER_MAGIC,       BTRFS_SUPER_MAGIC,    F2FS_SUPER_MAGIC,  TMPFS_MAGIC, RAMFS_MAGIC,
    OVERLAYFS_SUPER_MAGIC, REISERFS_SUPER_MAGIC, NILFS_SUPER_MAGIC, kZfsMagic,   kJfsMagic,
    kBcachefsMagic};

nanoseconds Duration(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

bool Before(const char* a, const char* b) { return std::strcmp(a, b) < 0; }

bool IsGone(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

int my_select(const dirent* entry) { return std::strstr(entry->d_name, "dat") != nullptr ? 1 : 0; }

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
  // Whoever unpacks files may set the modification time back, the change time nobody can.
  stamp = {status.st_dev, status.st_ino,
           std::max(Duration(status.st_mtim), Duration(status.st_ctim))};
  return true;
}

bool SpoolSystem::IsLocal(int folder) const {
  struct statfs status {};
  if (fstatfs(folder, &status) != 0) return false;
  return std::find(std::begin(kLocalFileSystems), std::end(kLocalFileSystems),
                   static_cast<long>(status.f_type)) != std::end(kLocalFileSystems);
}

SpoolFolder::SpoolFolder(std::string path, const SpoolSystem& system)
    : m_path(std::move(path)), m_system(system) {}

int SpoolFolder::OfferFiles(const Offer& offer) {
  if (!MayStand()) {
    if (const int error = Read()) return error;
  }
  if (OfferListed(offer) || m_current) return 0;
  // The rest of an old listing was of no use: the next one is due now.
  if (const int error = Read()) return error;
  OfferListed(offer);
  return 0;
}

nanoseconds SpoolFolder::ClockOffset() const {
  return m_system.WallClock() - m_system.SteadyClock();
}

bool SpoolFolder::MayStand() {
  m_current = false;
  FolderStamp now;
  if (!m_listed || !m_system.Stamp(m_path, now)) return false;
  if (now.device != m_stamp.device || now.inode != m_stamp.inode) return false;
  const bool clock_set =
      std::chrono::abs(ClockOffset() - m_clock_offset) > nanoseconds(kClockTolerance);
  m_current = m_trusted && now == m_stamp && !clock_set;
  return m_current || m_system.SteadyClock() - m_read_at < kLongestUse;
}

int SpoolFolder::Read() {
  m_listed = m_current = false;
  m_waiting.clear();
  m_memory.release();
  // Clocks first, then the stamp, then the names: what changes in between shows as a change.
  const nanoseconds begin = m_system.WallClock();
  m_read_at = m_system.SteadyClock();
  m_clock_offset = ClockOffset();
  const bool stamped = m_system.Stamp(m_path, m_stamp);
  const Directory dir(opendir(m_path.c_str()));
  if (dir == nullptr) return errno;
  m_trusted =
      stamped && m_stamp.changed + kCoarsestStep < begin && m_system.IsLocal(dirfd(dir.get()));
  errno = 0;
  while (const dirent* entry = readdir(dir.get())) {
    if (my_select(entry) != 0) Add(entry->d_name);
    errno = 0;
  }
  if (const int error = errno) return error;
  for (auto& [table, names] : m_waiting) std::make_heap(names.begin(), names.end(), Before);
  m_listed = stamped;
  m_current = true;
  return 0;
}

void SpoolFolder::Add(const char* name) {
  if (!IsMemFileName(name)) return;
  const std::size_t size = std::strlen(name) + 1;
  char* const copy = static_cast<char*>(m_memory.allocate(size, 1));
  std::memcpy(copy, name, size);
  m_waiting[MemFileDatabase(name) + "/" + MemFileTable(name)].push_back(copy);
}

bool SpoolFolder::OfferListed(const Offer& offer) {
  std::vector<Names*> tables;
  for (auto& [table, names] : m_waiting) tables.push_back(&names);
  std::vector<std::pair<Names*, const char*>> passed;
  const auto pop = [](Names& names) {
    std::pop_heap(names.begin(), names.end(), Before);
    names.pop_back();
  };
  bool useful = false;
  for (Answer answer = Answer::kPass; answer != Answer::kEnough;) {
    std::erase_if(tables, [](const Names* names) { return names->empty(); });
    if (tables.empty()) break;
    const auto greatest = std::max_element(
        tables.begin(), tables.end(),
        [](const Names* a, const Names* b) { return Before(a->front(), b->front()); });
    Names& names = **greatest;
    const std::string path = m_path + "/" + names.front();
    if (IsGone(path)) {
      pop(names);
      continue;
    }
    answer = offer(path);
    useful = useful || answer == Answer::kTaken || answer == Answer::kEnough;
    if (answer == Answer::kPass) {
      passed.emplace_back(&names, names.front());
      pop(names);
    } else {
      tables.erase(greatest);
    }
  }
  for (const auto& [names, name] : passed) {
    names->push_back(name);
    std::push_heap(names->begin(), names->end(), Before);
  }
  std::erase_if(m_waiting, [](const auto& table) { return table.second.empty(); });
  return useful;
}
