#include "log/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

constexpr mode_t kFileMode = 0640;

std::size_t LinesIn(std::string_view text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

// A line whose first half went to the file before is no whole line in a new one, so its rest is
// dropped and counted as missing.
bool LogFile::Open(const std::string& path) {
  Close();
  m_path = path;
  m_file = CreateRegular(path, O_WRONLY | O_APPEND, kFileMode);
  if (!m_file) {
    if (m_trouble.error == 0) m_trouble.error = errno;
    return false;
  }
  m_unseen = 0;
  if (std::exchange(m_torn, false)) {
    m_buffer.erase(0, m_buffer.find('\n') + 1);
    ++m_trouble.lines;
  }
  return true;
}

// Lines in a file that somebody has removed are lost, also those that were written since the last
// look at the path.
void LogFile::Close() {
  if (!m_file) return;
  if (IsInPlace()) {
    WriteOut();
  } else {
    if (m_trouble.error == 0) m_trouble.error = ENOENT;
    m_trouble.lines += m_unseen;
  }
  m_file.reset(-1);
}

// Everything that was written up to now is in a file that people can find, so none of these lines
// can count as missing later.
bool LogFile::IsInPlace() {
  if (!m_file || !StillNames(m_path, m_file.get())) return false;
  m_unseen = 0;
  return true;
}

// Lines in the buffer count, or the file would outgrow its limit by them.
off_t LogFile::Size() const {
  struct stat status {};
  if (!m_file || fstat(m_file.get(), &status) != 0) return 0;
  return status.st_size + static_cast<off_t>(m_buffer.size());
}

// While nothing can be written, the first lines are kept rather than the last, because they tell
// how the trouble began.
bool LogFile::Append(std::string_view line, bool at_once) {
  const bool full = m_trouble.error != 0 && m_buffer.size() + line.size() > kMostKept;
  if (!m_file || full) {
    m_trouble.lines += LinesIn(line);
    return false;
  }
  m_buffer += line;
  if (m_trouble.error == 0 && (at_once || m_buffer.size() >= kWriteAt)) WriteOut();
  return true;
}

// A full disk may take half a line. What it has taken leaves the buffer, and the rest follows when
// there is room again.
bool LogFile::WriteOut() {
  while (m_file && !m_buffer.empty()) {
    const ssize_t written = write(m_file.get(), m_buffer.data(), m_buffer.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      if (m_trouble.error == 0) m_trouble.error = errno;
      return false;
    }
    const std::string_view out(m_buffer.data(), static_cast<std::size_t>(written));
    m_unseen += LinesIn(out);
    m_torn = !out.ends_with('\n');
    m_buffer.erase(0, out.size());
  }
  return static_cast<bool>(m_file);
}

LogFile::Trouble LogFile::TakeTrouble() { return std::exchange(m_trouble, {}); }
