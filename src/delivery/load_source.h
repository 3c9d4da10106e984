// The bytes of one mem file on their way to the server, with local flags behind the records of
// kind F. The file itself is left as it came.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "db/LocalLoad.h"
#include "localuser/tourlocaluser.h"
#include "spool/mem_file.h"
#include "support/file.h"
#include "support/file_identity.h"

// One thread. The registry must outlive it.
class LoadSource : public LoadBytes {
 public:
  enum class Opened {
    kReady,
    kGone,        // no file has the name
    kNotRegular,  // a link, a folder, a pipe: never read
    kUnreadable,  // the reason is in error()
  };

  // `registry`: flags are added where it is given. `progress`, where it is given, grows by the
  // bytes of the file that were read, and must outlive the object.
  LoadSource(const MemFile& file, TourLocalUser* registry,
             std::atomic<std::uint64_t>* progress = nullptr);

  // Opens the file, which is read from its begin on. No link is followed. One that was rewritten
  // with its flags, and has the mark for that, is read as it is.
  Opened Open();
  // Which file it is, as it was when it was opened.
  const FileIdentity& identity() const { return m_identity; }
  // Whether it was written to since, or its name stands for another file now.
  bool HasChanged() const;
  // Logs how the lines of a file with flags fared. Returns how many of them held something and were
  // left out.
  std::uint64_t LogCounts() const;

  int Read(char* buffer, unsigned int size) override;
  std::string error() const override { return m_error; }

  // Of the bytes that were read so far: their lines, and whether the last of them has no end.
  std::uint64_t lines() const { return m_line_ends + (m_in_line ? 1 : 0); }
  bool endsWithinALine() const { return m_in_line; }

 private:
  int ReadSome(char* buffer, unsigned int size);
  bool Fill();
  void ShowProgress();
  int ReadFlagged(char* buffer, unsigned int size);
  int Fail(const char* what);

  const std::string m_path;
  TourLocalUser* const m_registry;
  std::atomic<std::uint64_t>* const m_progress;
  std::uint64_t m_bytes_read = 0;  // of a file without flags
  std::uint64_t m_shown = 0;       // in m_progress
  FileDescriptor m_file;
  FileIdentity m_identity{};
  std::unique_ptr<FlaggedRecords> m_records;
  std::unique_ptr<char[]> m_piece;  // of a file without flags
  std::string_view m_rest;          // of the piece, or of a record that did not fit
  std::uint64_t m_line_ends = 0;
  bool m_in_line = false;
  std::string m_error;
};
