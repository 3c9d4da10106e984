// The option files of MySQL's and MariaDB's client programs, my.cnf and what it includes, read for
// the group of this service.
//
// The client library could read them, and is not let: it takes the groups of its own as well, so
// that a line for other programs would change how the service connects; a name that it does not
// know, misspelled maybe, has no effect and nobody is told; and an option without a value, as
// people write "ssl-verify-server-cert", is off. Encryption that is asked for must not stay away
// silently.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One line of the group.
struct ClientOption {
  std::string name;                  // words are joined by "-", also where the file has "_"
  std::optional<std::string> value;  // nothing where the line has no "="
  std::string where;                 // "/etc/my.cnf line 7"
};

// Collects one group, that of the service unless another is named, of one file after the other.
//
// The syntax is that of the client programs: "#" and ";" begin a comment, "#" within a line too,
// but not in quotes; a value may stand in single or double quotes, and the sequences \b \t \n \r \s
// and a backslash before a quote or backslash have their usual meaning; !include takes a file and
// !includedir the files of a folder that end in ".cnf", by name. Other groups are passed over,
// whatever they hold.
class OptionFiles {
 public:
  static constexpr std::string_view kGroup = "midtable";

  // `group` is kept, not copied.
  explicit OptionFiles(std::string_view group = kGroup) : m_group(group) {}

  // False, with errno set, when the file itself cannot be read. One that it includes is then listed
  // in unreadable().
  bool Read(const std::string& file) { return ReadFile(file, 0); }
  // For a file that may be missing; one that cannot be read is listed.
  void ReadIfThere(const std::string& file) { IncludeFile(file, 0); }

  // Whether any file had the group, be it empty.
  bool found() const { return m_found; }
  // In their order: of two lines for one thing the later counts.
  const std::vector<ClientOption>& options() const { return m_options; }
  // Files and folders that are there and cannot be read, each with the reason.
  const std::vector<std::string>& unreadable() const { return m_unreadable; }

 private:
  bool ReadFile(const std::string& file, int depth);
  void Include(std::string_view directive, int depth);
  void IncludeFile(const std::string& file, int depth);
  void AddOption(std::string_view line, std::string where);

  std::string_view m_group;
  bool m_found = false;
  std::vector<ClientOption> m_options;
  std::vector<std::string> m_unreadable;
};
