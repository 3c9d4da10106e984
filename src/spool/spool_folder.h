// The mem files that wait in one folder of the spool, without reading the folder more often than
// needed.
#pragma once

#include <dirent.h>

#include <optional>
#include <string>
#include <utility>

#include "spool/finished_files.h"
#include "spool/listing_trust.h"
#include "spool/spool_system.h"
#include "spool/waiting_files.h"

// Not 0 for a folder entry that may be a mem file that waits: its name holds "dat" somewhere. Most
// entries of an old folder are ".mid" files, and this is all that they cost.
int my_select(const dirent* entry);

// One thread.
class SpoolFolder {
 public:
  // `system` must outlive the folder.
  SpoolFolder(const std::string& path, const SpoolSystem& system);

  // Offers mem files as WaitingFiles::OfferFiles does. What has left the folder since it was read
  // is not offered; what has come may wait for the next reading, for a second at most. The result
  // is 0, or the errno for which the folder could not be read; nothing is offered then.
  int OfferFiles(const WaitingFiles::Offer& offer);

  const WaitingFiles& waiting() const { return m_waiting; }
  // Whether the folder was read since the last call, or could not be; what is done with by then.
  bool TakeFinished(std::optional<InSpool>& finished) {
    finished = m_finished;
    return std::exchange(m_was_read, false);
  }

 private:
  int Read();

  const std::string m_path;
  ListingTrust m_trust;
  WaitingFiles m_waiting;
  std::optional<InSpool> m_finished;  // none: it cannot be read
  bool m_was_read = false;
};
