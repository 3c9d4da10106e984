// The mem files that wait in one folder of the spool, without reading the folder more often than
// needed.
#pragma once

#include <dirent.h>

#include <string>

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

 private:
  int Read();

  const std::string m_path;
  ListingTrust m_trust;
  WaitingFiles m_waiting;
};
