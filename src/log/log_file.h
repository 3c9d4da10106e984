// One file of the run log, and the lines on their way into it.
//
// Lines wait in a buffer and are written whole. What a full disk does not take stays in the buffer,
// and new lines join it until kMostKept bytes are reached; the lines after that are dropped. A
// file that somebody removed, moved or replaced is left for a new one under its name. Both are
// trouble, which is kept until it is taken, with the number of lines that are missing.
//
// Not for two threads at a time.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "support/file.h"

class LogFile {
 public:
  // Bytes in the buffer that cause a write.
  static constexpr std::size_t kWriteAt = 4096;
  // Bytes that are kept for a file that takes none, about 500 lines.
  static constexpr std::size_t kMostKept = 65'536;

  struct Trouble {
    int error = 0;          // errno of the first failure, ENOENT for a file that is gone; 0: none
    std::size_t lines = 0;  // that are in no file
  };

  LogFile() = default;
  ~LogFile() { Close(); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Closes the file that is open and opens this one for appending; a new one has mode 0640. On
  // failure no file is open, and errno tells why. Lines that could not be written before are kept.
  bool Open(const std::string& path);
  // Writes the buffer out and closes the file, if one is open.
  void Close();

  // Whether a file is open and its path still leads to it.
  bool IsInPlace();
  // Bytes of the open file, with those of the buffer; 0 when none is open.
  off_t Size() const;

  // Takes a line with its line feed, which is in the file on return if `at_once`. False when the
  // line is dropped: no file is open, or the file takes nothing and the buffer is full.
  bool Append(std::string_view line, bool at_once);
  // Puts a line before those of the buffer.
  void PutFirst(std::string_view line) { m_buffer.insert(0, line); }
  // Writes the buffer out. False when that fails, or when no file is open. After a failure nothing
  // else writes until the trouble was taken, so that a line about it can stand where lines miss.
  bool WriteOut();

  Trouble TakeTrouble();

 private:
  FileDescriptor m_file;
  std::string m_path;
  std::string m_buffer;
  std::size_t m_unseen = 0;  // lines written since the file was last seen in its place
  bool m_torn = false;       // the file ends within the first line of the buffer
  Trouble m_trouble;
};
