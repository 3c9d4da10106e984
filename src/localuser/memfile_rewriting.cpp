// Copies a mem file, appending to every record whether its user is local.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "support/file.h"

namespace {

constexpr auto kUnit = TourLocalUser::kUnit;

constexpr std::size_t kFields = 11;
constexpr std::size_t kUserField = 1;
// Longest line taken, its line feed included; what is longer is no record.
constexpr std::size_t kLongestLine = 1 << 20;

enum class Flag { kVisitor = 0, kLocal = 1, kNoUser = 2 };

// Reads a file line by line in memory that does not grow.
class LineReader {
 public:
  enum class Result { kLine, kTooLong, kEnd, kFailed };

  explicit LineReader(int fd) : m_fd(fd) {}

  // The next line without its line feed, valid until the next call; a last line need not have one.
  // kTooLong has passed over the line; kFailed leaves errno.
  Result Next(std::string_view& line) {
    bool too_long = false;
    for (std::size_t searched = 0;;) {
      const char* const begin = m_buffer.get() + m_begin;
      const std::size_t size = m_end - m_begin;
      const void* const found = std::memchr(begin + searched, '\n', size - searched);
      if (found != nullptr) {
        line = {begin, static_cast<std::size_t>(static_cast<const char*>(found) - begin)};
        m_begin += line.size() + 1;
        return too_long ? Result::kTooLong : Result::kLine;
      }
      searched = size;
      if (size == kLongestLine) {
        too_long = true;
        m_begin = m_end = searched = 0;
      }
      const ssize_t added = Fill();
      if (added < 0) return Result::kFailed;
      if (added == 0) {
        line = {m_buffer.get() + m_begin, m_end - m_begin};
        m_begin = m_end;
        if (too_long) return Result::kTooLong;
        return line.empty() ? Result::kEnd : Result::kLine;
      }
    }
  }

 private:
  // Moves what is left to the front and reads behind it; the result is that of read(2).
  ssize_t Fill() {
    std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    ssize_t added = 0;
    do {
      added = read(m_fd, m_buffer.get() + m_end, kLongestLine - m_end);
    } while (added < 0 && errno == EINTR);
    if (added > 0) m_end += static_cast<std::size_t>(added);
    return added;
  }

  const int m_fd;
  // Not cleared: most files are small, and memory that is never touched costs nothing.
  std::unique_ptr<char[]> m_buffer = std::make_unique_for_overwrite<char[]>(kLongestLine);
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
};

// The fields of a line: runs of tabs separate, tabs at the ends count for nothing.
struct Record {
  explicit Record(std::string_view line) {
    for (std::size_t begin = line.find_first_not_of('\t'); begin != std::string_view::npos;) {
      const std::size_t end = std::min(line.find('\t', begin), line.size());
      if (count < kFields) fields[count] = line.substr(begin, end - begin);
      ++count;
      begin = line.find_first_not_of('\t', end);
      if (begin != std::string_view::npos && begin != end + 1) single_tabs = false;
    }
  }

  std::array<std::string_view, kFields> fields;  // the first ones, where there are more
  std::size_t count = 0;
  bool single_tabs = true;  // nothing but one tab between fields
};

// What strtoul makes of the field, cut to 32 bits. (strtoul itself would read on behind the field.)
std::uint32_t UserCode(std::string_view field) {
  const auto is_space = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!field.empty() && is_space(field.front())) field.remove_prefix(1);
  const bool negative = !field.empty() && field.front() == '-';
  if (negative || (!field.empty() && field.front() == '+')) field.remove_prefix(1);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(field.begin(), field.end(), number);
  if (error == std::errc::result_out_of_range) return UINT32_MAX;
  return static_cast<std::uint32_t>(negative ? 0 - number : number);
}

// One rewriting: the two files, and what became of the records.
class Rewriting {
 public:
  Rewriting(const std::string& in_path, const std::string& out_path,
            std::function<Flag(std::uint32_t)> flag_of)
      : m_in_path(in_path), m_out_path(out_path), m_flag_of(std::move(flag_of)) {}

  // Makes the copy. False after logging what failed; the copy is then not to be used.
  bool Run() {
    // Where there is no file there is no row to lose: the copy is empty.
    if (!OpenInput()) return m_missing && CreateOutput() && CloseOutput();
    return CreateOutput() && CopyRecords() && CloseOutput();
  }

  // Removes what Run() left.
  void Discard() {
    if (unlink(m_out_path.c_str()) != 0 && errno != ENOENT) Fail("remove", m_out_path);
  }

  void LogCounts() const {
    const auto of = [this](Flag flag) { return m_counts[static_cast<std::size_t>(flag)]; };
    g_loger(kUnit, __LINE__, kInfo, "file %s local %u visitors %u without user %u dropped %u",
            m_in_path.c_str(), of(Flag::kLocal), of(Flag::kVisitor), of(Flag::kNoUser), m_dropped);
  }

  // Lines left out that held something.
  unsigned int lost() const { return m_lost; }

 private:
  bool Fail(const char* what, const std::string& path) const {
    const int error = errno;
    g_loger(kUnit, __LINE__, kError, "cannot %s %s, errno %d (%s)", what, path.c_str(), error,
            std::generic_category().message(error).c_str());
    return false;
  }

  bool OpenInput();
  bool CreateOutput();
  bool CopyRecords();
  bool WriteRecord(const Record& record);
  bool CloseOutput();

  const std::string& m_in_path;
  const std::string& m_out_path;
  const std::function<Flag(std::uint32_t)> m_flag_of;
  FileDescriptor m_in;
  FileDescriptor m_out;
  struct stat m_status {};
  bool m_missing = false;
  std::string m_text;  // the record being written; keeps its memory
  std::array<unsigned int, 3> m_counts{};
  unsigned int m_dropped = 0;
  unsigned int m_lost = 0;
};

bool Rewriting::OpenInput() {
  m_in = OpenRegular(m_in_path, m_status);
  m_missing = !m_in && errno == ENOENT;
  return m_in || Fail("read", m_in_path);
}

bool Rewriting::CreateOutput() {
  // Removed rather than truncated: whatever has that name (a link, a FIFO) is not written through.
  if (unlink(m_out_path.c_str()) != 0 && errno != ENOENT) return Fail("replace", m_out_path);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  m_out.reset(open(m_out_path.c_str(), kFlags, S_IRUSR | S_IWUSR));
  if (!m_out) return Fail("create", m_out_path);
  if (m_missing) return true;
  // The database server must be able to read the copy if it can read the original. Only root may
  // give the owner; without it the mode has to do.
  [[maybe_unused]] const int ignored = fchown(m_out.get(), m_status.st_uid, m_status.st_gid);
  constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;
  if (fchmod(m_out.get(), m_status.st_mode & kPermissions) != 0) {
    return Fail("set the mode of", m_out_path);
  }
  return true;
}

bool Rewriting::CopyRecords() {
  LineReader reader(m_in.get());
  std::string_view line;
  for (int number = 1;; ++number) {
    const auto result = reader.Next(line);
    if (result == LineReader::Result::kEnd) return true;
    if (result == LineReader::Result::kFailed) return Fail("read", m_in_path);
    const Record record(result == LineReader::Result::kLine ? line : std::string_view());
    if (record.count != kFields) {
      g_loger(kUnit, __LINE__, kDebug, "file %s line %d not correct, ignore it", m_in_path.c_str(),
              number);
      ++m_dropped;
      if (result == LineReader::Result::kTooLong || record.count != 0) ++m_lost;
    } else if (!WriteRecord(record)) {
      return false;
    }
  }
}

bool Rewriting::WriteRecord(const Record& record) {
  const std::uint32_t code = UserCode(record.fields[kUserField]);
  const Flag flag = m_flag_of(code);
  m_text.clear();
  if (record.single_tabs) {
    m_text.append(record.fields.front().begin(), record.fields.back().end()) += '\t';
  } else {
    for (const std::string_view field : record.fields) m_text.append(field) += '\t';
  }
  m_text += static_cast<char>('0' + static_cast<int>(flag));
  m_text += '\n';
  ++m_counts[static_cast<std::size_t>(flag)];
  // One write a record; the loop only goes round when the kernel took a part of it.
  for (std::string_view rest = m_text; !rest.empty();) {
    const ssize_t written = write(m_out.get(), rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return Fail("write", m_out_path);
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool Rewriting::CloseOutput() {
  // A late write error shows here and nowhere else.
  return close(m_out.release()) == 0 || Fail("write", m_out_path);
}

}  // namespace

bool TourLocalUser::IsLocalCode(std::uint32_t code) {
  // The name is two digits of prefix and the rest in nine digits, or in ten where it needs them:
  // the first five of the rest complete the block.
  const std::uint32_t rest = code & 0x3FFFFFFF;
  const std::uint32_t leading = rest <= 999'999'999 ? rest / 10'000 : rest / 100'000;
  const auto prefix = static_cast<std::uint32_t>(m_mapPrefixCode.at(code >> 30));
  MutexLock lock(m_localLock);
  return m_setLocalPrefix.containsBlock(prefix * 100'000 + leading);
}

int TourLocalUser::ParseMemfile(const std::string& in_path, const std::string& out_path) {
  g_loger(kUnit, __LINE__, kConsole, "+++++++++++\n");
  Rewriting rewriting(in_path, out_path, [this](std::uint32_t code) {
    {
      // The enterprise users do not change the flag; they are looked up all the same.
      MutexLock lock(m_enterpriseLock);
      [[maybe_unused]] const auto ignored = m_mapEnterpriseUser.find(code);
    }
    if (code == 0) return Flag::kNoUser;
    return IsLocalCode(code) ? Flag::kLocal : Flag::kVisitor;
  });
  if (rewriting.Run()) {
    rewriting.LogCounts();
  } else {
    rewriting.Discard();
  }
  m_lostLines = rewriting.lost();
  g_loger(kUnit, __LINE__, kInfo, "ParseMemfile finished");
  return 1;
}
