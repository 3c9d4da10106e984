// Whether what was read of a folder may still be used, so that the folder need not be read again.
//
// A listing is current as long as the folder does not change. That shows in the folder's time
// stamps only where they can be relied on, so a listing is trusted when
//   - the folder had not changed for two seconds when the reading began: file systems round their
//     stamps, by up to that much, and a change in the same step would look like none;
//   - the clock was not set since then;
//   - the file system is a known local one: what a remote writer does may show late or never.
// Every other listing is old, and may be used for up to one second: while files are being loaded,
// their renames change the folder all the time.
#pragma once

#include <chrono>
#include <string>

#include "spool/spool_system.h"

// One thread. Begin and Finish enclose a reading of the folder.
class ListingTrust {
 public:
  enum class Verdict {
    kCurrent,  // nothing can have come since the reading
    kOld,      // what it holds may be used, what has come is not in it
    kUseless,  // there is none, it is of another folder, or it was used long enough
  };

  // `system` must outlive the object.
  ListingTrust(std::string path, const SpoolSystem& system);

  // Notes clocks and stamp before the first name is read: what changes in between shows as a
  // change. The verdict is kUseless until Finish.
  void Begin();
  // After the last name was read from the open folder.
  void Finish(int folder);

  Verdict Judge() const;

 private:
  std::chrono::nanoseconds ClockOffset() const;

  const std::string m_path;
  const SpoolSystem& m_system;
  bool m_listed = false;
  bool m_trusted = false;  // as long as stamp and clock stay as they are
  bool m_stamped = false;
  FolderStamp m_stamp;
  std::chrono::nanoseconds m_read_at{};   // steady clock
  std::chrono::nanoseconds m_began_at{};  // wall clock
  std::chrono::nanoseconds m_clock_offset{};
};
