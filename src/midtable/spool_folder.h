// The mem files that wait in one folder, without reading the folder more often than needed.
//
// A listing stands until the folder changes. That shows in the folder's time stamps only where they
// can be relied on, so a listing is trusted when
//   - the folder had not changed for two seconds when the reading began: file systems round their
//     stamps, by up to that much, and a change in the same step would look like none;
//   - the clock was not set since then;
//   - the file system is a known local one: what a remote writer does may show late or never.
// In every other case the folder is read again, but for one: while files are being loaded, their
// renames change the folder all the time. A listing that still has files to offer is then used for
// up to one second. What has left the folder meanwhile is not offered; what has come waits for the
// next reading.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory_resource>
#include <string>
#include <unordered_map>
#include <vector>

// Not 0 for a folder entry that may be a mem file that waits: its name holds "dat" somewhere. Most
// entries of an old folder are ".mid" files, and this is all that they cost.
int my_select(const dirent* entry);

// What tells one state of a folder from another.
struct FolderStamp {
  dev_t device = 0;
  ino_t inode = 0;
  std::chrono::nanoseconds changed{};  // since the epoch

  bool operator==(const FolderStamp&) const = default;
};

// The clocks and the file system by which a listing is judged; tests have others.
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

// Not copied: names point into it. One thread.
class SpoolFolder {
 public:
  // What becomes of a file that was offered.
  enum class Answer {
    kTaken,      // offer no more of its table
    kPassTable,  // offer no more of its table
    kPass,       // offer the others
    kEnough,     // offer nothing more
  };
  // Takes the file's full path.
  using Offer = std::function<Answer(const std::string& path)>;

  // `system` must outlive the folder.
  SpoolFolder(std::string path, const SpoolSystem& system);

  // Offers mem files from the greatest name down, by bytes, until there are no more or enough of
  // them. Each existed when it was offered. Whatever the answers, files stay listed for the next
  // call until they are gone. The result is 0, or the errno for which the folder could not be read;
  // nothing is offered then.
  int OfferFiles(const Offer& offer);

 private:
  using Names = std::vector<const char*>;  // a heap, the greatest in front

  bool MayStand();
  int Read();
  void Add(const char* name);
  bool OfferListed(const Offer& offer);
  std::chrono::nanoseconds ClockOffset() const;

  const std::string m_path;
  const SpoolSystem& m_system;
  bool m_listed = false;
  bool m_trusted = false;  // as long as stamp and clock stay as they are
  bool m_current = false;  // nothing can have come since the reading
  FolderStamp m_stamp;
  std::chrono::nanoseconds m_read_at{};  // steady clock
  std::chrono::nanoseconds m_clock_offset{};
  std::pmr::monotonic_buffer_resource m_memory;
  // By database and table. One table's backlog may be huge; to choose among the tables costs no
  // more for that.
  std::unordered_map<std::string, Names> m_waiting;
};
