#include "spool/spool_folder.h"

#include <cerrno>
#include <cstring>

#include "support/file.h"

// This cheap test spares the parsing of most names, since an old folder is full of loaded files.
// What passes the test is parsed properly afterwards.
int my_select(const dirent* entry) { return std::strstr(entry->d_name, "dat") != nullptr ? 1 : 0; }

SpoolFolder::SpoolFolder(const std::string& path, const SpoolSystem& system)
    : m_path(path), m_trust(path, system), m_waiting(path) {}

// An old listing may lack new files but offers none that are not there, since each file is looked
// at before it is offered. So it is used first, and read again only where nothing of it was wanted.
int SpoolFolder::OfferFiles(const WaitingFiles::Offer& offer) {
  auto verdict = m_trust.Judge();
  if (verdict == ListingTrust::Verdict::kUseless) {
    if (const int error = Read()) return error;
    verdict = ListingTrust::Verdict::kCurrent;
  }
  if (m_waiting.OfferFiles(offer) || verdict == ListingTrust::Verdict::kCurrent) return 0;
  // The rest of an old listing was of no use: the next reading is due now.
  if (const int error = Read()) return error;
  m_waiting.OfferFiles(offer);
  return 0;
}

// Every name of the folder is looked at once. Their number is what a reading costs: old folders
// hold hundreds of thousands of loaded files.
int SpoolFolder::Read() {
  m_trust.Begin();
  m_waiting.Clear();
  m_finished.reset();
  m_was_read = true;
  const Directory dir(opendir(m_path.c_str()));
  if (dir == nullptr) return errno;
  FinishedFiles finished;
  errno = 0;
  while (const dirent* entry = readdir(dir.get())) {
    if (my_select(entry) != 0) {
      m_waiting.Add(entry->d_name);
    } else {
      finished.See(entry->d_name);
    }
    errno = 0;
  }
  if (const int error = errno) return error;
  m_finished = finished.CountIn(m_path);
  m_trust.Finish(dirfd(dir.get()));
  return 0;
}
