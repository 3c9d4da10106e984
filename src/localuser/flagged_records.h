// The records of a mem file with the local flag behind each: what the mem table of a kind whose
// users are flagged is loaded with. Made record by record, so that a file of any size takes the
// same memory.
//
// A record is a line of 11 fields between tabs, where tabs in a row count as one and tabs at the
// ends for nothing; field 1 is the user code, and a carriage return belongs to the last field. It
// comes out as the 11 fields, each with a tab behind it, then 1 (local), 0 (visitor) or 2 (no user)
// and a line feed. Any other line, and one of more than a MiB, is logged with its number and left
// out.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

enum class LocalFlag { kVisitor = 0, kLocal = 1, kNoUser = 2 };

// What became of the lines of one file.
struct FlagCounts {
  std::array<unsigned int, 3> records{};  // by LocalFlag
  unsigned int dropped = 0;               // lines left out
  unsigned int lost = 0;                  // of these, the lines that held something

  // One line in the run log.
  void Log(const std::string& path) const;
};

class FlaggedRecords {
 public:
  using FlagOf = std::function<LocalFlag(std::uint32_t code)>;
  enum class Result { kRecord, kEnd, kFailed };

  // Reads the open file from where it stands; `path` is its name for the run log. The descriptor
  // stays the caller's and must outlive the object.
  FlaggedRecords(int fd, std::string path, FlagOf flag_of);
  ~FlaggedRecords();
  FlaggedRecords(const FlaggedRecords&) = delete;
  FlaggedRecords& operator=(const FlaggedRecords&) = delete;

  // The next record as it is to be loaded, valid until the next call. kFailed leaves errno. Memory
  // for the longest line is taken by the first call and given back at the end, since hundreds of
  // files are held open at a time.
  Result Next(std::string_view& record);

  // Of the lines so far.
  const FlagCounts& counts() const { return m_counts; }
  // Bytes of the file that were read, some of them ahead. Asked at any time, after the end too.
  std::uint64_t bytesRead() const { return m_bytes_read; }

 private:
  class LineReader;
  struct Fields;

  void Compose(const Fields& fields);

  const std::string m_path;
  const FlagOf m_flag_of;
  const int m_fd;
  bool m_ended = false;
  std::unique_ptr<LineReader> m_reader;  // between the first record and the end
  std::string m_text;                    // the record at hand; keeps its memory
  std::uint64_t m_bytes_read = 0;
  int m_line = 0;
  FlagCounts m_counts;
};
