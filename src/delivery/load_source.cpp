#include "delivery/load_source.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "spool/rewritten_mark.h"
#include "support/pulse.h"
#include "support/run_state.h"

LoadSource::LoadSource(const MemFile& file, TourLocalUser* registry,
                       std::atomic<std::uint64_t>* progress)
    : m_path(file.path),
      m_registry(file.HasLocalFlags() ? registry : nullptr),
      m_progress(progress) {}

// The error numbers are those by which an open without following links refuses a link, a folder, a
// socket and a pipe without a reader. Any other one, such as a missing permission, may go away.
LoadSource::Opened LoadSource::Open() {
  struct stat status {};
  m_file = OpenRegular(m_path, status);
  if (!m_file) {
    if (errno == ENOENT || errno == ENOTDIR) return Opened::kGone;
    if (errno == ELOOP || errno == EINVAL || errno == ENXIO) return Opened::kNotRegular;
    Fail("open");
    return Opened::kUnreadable;
  }
  m_identity = IdentityOf(status);
  // A file that the other way of working has rewritten carries its flags.
  if (m_registry != nullptr && (status.st_mode & kRewrittenMark) == 0) {
    m_records = std::make_unique<FlaggedRecords>(m_file.get(), m_path, m_registry->Flags());
  }
  return Opened::kReady;
}

// Both the open file and its name are looked at: the file may have grown while it was read, and
// another file may have taken its name, which is then not to be renamed as if it were counted.
bool LoadSource::HasChanged() const {
  struct stat status {};
  if (fstat(m_file.get(), &status) != 0 || IdentityOf(status) != m_identity) return true;
  return IdentityOf(m_path) != m_identity;
}

std::uint64_t LoadSource::LogCounts() const {
  if (m_records == nullptr) return 0;
  m_records->counts().Log(m_path);
  return m_records->counts().lost;
}

int LoadSource::Fail(const char* what) {
  m_error =
      std::string("cannot ") + what + " " + m_path + ": " + std::generic_category().message(errno);
  return -1;
}

int LoadSource::Read(char* buffer, unsigned int size) {
  Pulse::Beat();
  const int got = ReadSome(buffer, size);
  if (got <= 0) return got;
  m_line_ends += static_cast<std::uint64_t>(std::count(buffer, buffer + got, '\n'));
  m_in_line = buffer[got - 1] != '\n';
  ShowProgress();
  return got;
}

// What is read ahead of the server is a piece of a file at most.
void LoadSource::ShowProgress() {
  const std::uint64_t done = m_records != nullptr ? m_records->bytesRead() : m_bytes_read;
  if (m_progress == nullptr || done == m_shown) return;
  *m_progress += done - m_shown;
  m_shown = done;
}

// A stop ends the load with an error, so that the server takes the transaction back.
int LoadSource::ReadSome(char* buffer, unsigned int size) {
  if (g_nMainRun == 0) {
    m_error = "stopped";
    return -1;
  }
  if (m_records != nullptr) return ReadFlagged(buffer, size);
  if (m_rest.empty() && !Fill()) return Fail("read");
  const std::size_t part = std::min<std::size_t>(m_rest.size(), size);
  std::memcpy(buffer, m_rest.data(), part);
  m_rest.remove_prefix(part);
  return static_cast<int>(part);
}

// The client library asks for small pieces; the system is asked for large ones. The memory goes
// back at the end of the file, since hundreds of files are held open for one batch.
bool LoadSource::Fill() {
  constexpr std::size_t kPiece = 128UL * 1024;
  if (m_piece == nullptr) m_piece = std::make_unique_for_overwrite<char[]>(kPiece);
  ssize_t got = 0;
  do {
    got = read(m_file.get(), m_piece.get(), kPiece);
  } while (got < 0 && errno == EINTR);
  if (got >= 0) m_rest = {m_piece.get(), static_cast<std::size_t>(got)};
  if (got > 0) m_bytes_read += static_cast<std::uint64_t>(got);
  if (got == 0) m_piece.reset();
  return got >= 0;
}

// The buffer is filled as far as it goes, in the middle of a record too: the client library sends
// one packet for each call, and small packets would cost more than the flags.
int LoadSource::ReadFlagged(char* buffer, unsigned int size) {
  unsigned int filled = 0;
  while (filled < size) {
    if (m_rest.empty()) {
      const auto result = m_records->Next(m_rest);
      if (result == FlaggedRecords::Result::kFailed) return Fail("read");
      if (result == FlaggedRecords::Result::kEnd) break;
    }
    const std::size_t part = std::min<std::size_t>(m_rest.size(), size - filled);
    std::memcpy(buffer + filled, m_rest.data(), part);
    m_rest.remove_prefix(part);
    filled += static_cast<unsigned int>(part);
  }
  return static_cast<int>(filled);
}
