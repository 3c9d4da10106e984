#include "spool/listing_trust.h"

#include <utility>

namespace {

using std::chrono::nanoseconds;

// The coarsest step of a time stamp.
constexpr std::chrono::seconds kCoarsestStep{2};
// How long a listing is used while the folder changes.
constexpr std::chrono::seconds kLongestUse{1};
// Two readings of two clocks in a row differ by less unless one of the clocks was set.
constexpr std::chrono::milliseconds kClockTolerance{250};

}  // namespace

ListingTrust::ListingTrust(std::string path, const SpoolSystem& system)
    : m_path(std::move(path)), m_system(system) {}

nanoseconds ListingTrust::ClockOffset() const {
  return m_system.WallClock() - m_system.SteadyClock();
}

// The stamp is taken before the reading: a file that comes during the reading then makes the
// listing look old, whether the reading has seen it or not.
void ListingTrust::Begin() {
  m_listed = false;
  m_began_at = m_system.WallClock();
  m_read_at = m_system.SteadyClock();
  m_clock_offset = ClockOffset();
  m_stamped = m_system.Stamp(m_path, m_stamp);
}

// A folder that has changed within one step of its stamps may change again without another stamp. A
// remote file system shows the changes of other machines late.
void ListingTrust::Finish(int folder) {
  m_listed = m_stamped;
  m_trusted = m_stamped && m_stamp.changed + kCoarsestStep < m_began_at && m_system.IsLocal(folder);
}

// The folder's inode is compared as well as its stamp: another folder that was moved to this path
// may have any stamp.
ListingTrust::Verdict ListingTrust::Judge() const {
  FolderStamp now;
  if (!m_listed || !m_system.Stamp(m_path, now) || !now.IsSameFolder(m_stamp)) {
    return Verdict::kUseless;
  }
  const bool clock_set =
      std::chrono::abs(ClockOffset() - m_clock_offset) > nanoseconds(kClockTolerance);
  if (m_trusted && now == m_stamp && !clock_set) return Verdict::kCurrent;
  return m_system.SteadyClock() - m_read_at < kLongestUse ? Verdict::kOld : Verdict::kUseless;
}
