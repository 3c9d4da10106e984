#include "localuser/flagged_records.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <utility>

#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"

namespace {

constexpr auto kUnit = TourLocalUser::kUnit;

constexpr std::size_t kFields = 11;
constexpr std::size_t kUserField = 1;
// Longest line taken, its line feed included; what is longer is no record.
constexpr std::size_t kLongestLine = 1 << 20;

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

}  // namespace

// Reads a file line by line in memory that does not grow.
class FlaggedRecords::LineReader {
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

  std::uint64_t bytesRead() const { return m_bytes_read; }

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
    if (added > 0) m_bytes_read += static_cast<std::uint64_t>(added);
    return added;
  }

  const int m_fd;
  // Not cleared: most files are small, and memory that is never touched costs nothing.
  std::unique_ptr<char[]> m_buffer = std::make_unique_for_overwrite<char[]>(kLongestLine);
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
  std::uint64_t m_bytes_read = 0;
};

// The fields of a line: runs of tabs separate, tabs at the ends count for nothing.
struct FlaggedRecords::Fields {
  explicit Fields(std::string_view line) {
    for (std::size_t begin = line.find_first_not_of('\t'); begin != std::string_view::npos;) {
      const std::size_t end = std::min(line.find('\t', begin), line.size());
      if (count < kFields) values[count] = line.substr(begin, end - begin);
      ++count;
      begin = line.find_first_not_of('\t', end);
      if (begin != std::string_view::npos && begin != end + 1) single_tabs = false;
    }
  }

  std::array<std::string_view, kFields> values;  // the first ones, where there are more
  std::size_t count = 0;
  bool single_tabs = true;  // nothing but one tab between fields
};

FlaggedRecords::FlaggedRecords(int fd, std::string path, FlagOf flag_of)
    : m_path(std::move(path)), m_flag_of(std::move(flag_of)), m_fd(fd) {}

FlaggedRecords::~FlaggedRecords() = default;

// A line without any field is left out without being counted as lost: an empty line has no record
// that an operator could miss.
FlaggedRecords::Result FlaggedRecords::Next(std::string_view& record) {
  if (m_ended) return Result::kEnd;
  if (m_reader == nullptr) m_reader = std::make_unique<LineReader>(m_fd);
  for (;;) {
    std::string_view line;
    const auto result = m_reader->Next(line);
    m_bytes_read = m_reader->bytesRead();
    if (result == LineReader::Result::kEnd) {
      m_ended = true;
      m_reader.reset();
      return Result::kEnd;
    }
    if (result == LineReader::Result::kFailed) return Result::kFailed;
    ++m_line;
    const Fields fields(result == LineReader::Result::kLine ? line : std::string_view());
    if (fields.count == kFields) {
      Compose(fields);
      record = m_text;
      return Result::kRecord;
    }
    g_loger(kUnit, __LINE__, kDebug, "file %s line %d not correct, ignore it", m_path.c_str(),
            m_line);
    ++m_counts.dropped;
    if (result == LineReader::Result::kTooLong || fields.count != 0) ++m_counts.lost;
  }
}

// Most lines have single tabs and are copied in one piece.
void FlaggedRecords::Compose(const Fields& fields) {
  const LocalFlag flag = m_flag_of(UserCode(fields.values[kUserField]));
  m_text.clear();
  if (fields.single_tabs) {
    m_text.append(fields.values.front().begin(), fields.values.back().end()) += '\t';
  } else {
    for (const std::string_view value : fields.values) m_text.append(value) += '\t';
  }
  m_text += static_cast<char>('0' + static_cast<int>(flag));
  m_text += '\n';
  ++m_counts.records[static_cast<std::size_t>(flag)];
}

void FlagCounts::Log(const std::string& path) const {
  const auto of = [this](LocalFlag flag) { return records[static_cast<std::size_t>(flag)]; };
  g_loger(kUnit, __LINE__, kInfo, "file %s local %u visitors %u without user %u dropped %u",
          path.c_str(), of(LocalFlag::kLocal), of(LocalFlag::kVisitor), of(LocalFlag::kNoUser),
          dropped);
}
