// The two files that the registry watches: localtour.csv with the local number blocks, devstate.ini
// with the city of each device. The service takes what it can use of them and is silent about the
// rest, so here every row and line is looked at.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "config/CSVParser.h"
#include "config/TextEncoding.h"
#include "localuser/tourlocaluser.h"
#include "midtablectl/check.h"
#include "midtablectl/text.h"
#include "support/RwIni.h"
#include "support/byte_order_mark.h"
#include "support/trim.h"

namespace ctl {

namespace {

// Reads a regular file. False after a finding, which names the `effect` that this has.
bool ReadSource(const std::string& path, const std::string& effect, const std::string& fix,
                std::string& content, Findings& findings) {
  struct stat status {};
  std::string reason;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    reason = "no regular file";
  } else if (!ReadWhole(path, content)) {
    reason = std::strerror(errno);
  }
  if (reason.empty()) return true;
  findings.Error(path, 0, "cannot be read: " + reason + "; " + effect, fix);
  return false;
}

// Whether the line can be read in one of the two encodings that the service knows.
bool IsText(std::string_view line) {
  if (IsAscii(line)) return true;
  const std::string text(line);
  if (IsUTF8(text.c_str(), static_cast<unsigned int>(text.size())) == 1) return true;
  // A character of the local encoding becomes four bytes at most.
  std::string out(text.size() * 4 + 1, '\0');
  auto room = static_cast<unsigned int>(out.size() - 1);
  return EncodeConvert(text.c_str(), static_cast<unsigned int>(text.size()), out.data(), &room,
                       local_encoding, "utf-8") == 0;
}

// One row of localtour.csv, by its first column. The first row may be a heading.
void CheckBlock(const std::string& path, long number, const std::string& block,
                Findings& findings) {
  if (TourLocalUser::CanHoldUsers(block)) return;
  if (BlockSet::IsBlock(block)) {
    findings.Warning(path, number, "no user code stands for a number of block " + block,
                     "blocks begin with 13, 14, 15 or 18: correct or remove the row");
  } else if (std::string_view(block).starts_with(kByteOrderMark)) {
    findings.Warning(path, number, "a byte order mark stands before the block, which is lost",
                     "save the file without byte order mark");
  } else if (number > 1 || block.find_first_of("0123456789") != std::string::npos) {
    findings.Warning(path, number, "first column \"" + block + "\" is not seven digits",
                     "the first column is a number block of seven digits: correct the row");
  }
}

// A quoted column may hold line ends. Where its closing quote was forgotten, it holds the rows
// behind it: then some of its lines begin like rows, with a number block.
void CheckQuote(const std::string& path, long number, const std::string& column,
                Findings& findings) {
  const std::vector<std::string_view> lines = Lines(column);
  if (lines.size() < 2) return;
  const auto rows = std::count_if(lines.begin() + 1, lines.end(), [](std::string_view line) {
    const std::string_view row = Trim(line);
    const bool goes_on = IsNumber(row.substr(0, BlockSet::kDigits + 1));
    return TourLocalUser::CanHoldUsers(row.substr(0, BlockSet::kDigits)) && !goes_on;
  });
  if (rows == 0) return;
  findings.Error(path, number,
                 "a quote that opens here takes in " +
                     Count(static_cast<std::size_t>(rows), "row") + ", whose blocks are lost",
                 "close the quote behind its column");
}

// Looks at the rows as the service reads them. `lines` are those of the file: a row may take
// several, and the parser passes over blank ones. The number of blocks that can be used is the
// result.
std::size_t CheckRows(const std::string& path, const std::vector<std::string_view>& lines,
                      Findings& findings) {
  CSVParser rows;
  rows.init(path);
  std::size_t blocks = 0;
  std::size_t passed = 0;  // lines before the row
  while (rows.has_more_rows() && rows.get_next_row() >= 1) {
    while (passed < lines.size() && lines[passed].find_first_not_of(" \t") == std::string::npos) {
      ++passed;
    }
    const std::string block = rows.get_column_by_id(0);
    if (TourLocalUser::CanHoldUsers(block)) ++blocks;
    CheckBlock(path, static_cast<long>(passed + 1), block, findings);
    for (int i = 0; i < rows.get_column_size(); ++i) {
      const std::string column = rows.get_column_by_id(static_cast<unsigned int>(i));
      CheckQuote(path, static_cast<long>(passed + 1), column, findings);
      passed += static_cast<std::size_t>(std::count(column.begin(), column.end(), '\n'));
    }
    ++passed;
  }
  if (rows.is_cut()) {
    findings.Error(path, 0, "is read up to a line of more than 256 KiB only",
                   "mend that line: the blocks behind it are missing");
  }
  return blocks;
}

// Loads the device states, with a finding for each line that does not count. The result has the
// line on which each section begins.
std::map<std::string, long> LoadDevices(const std::string& path, CRwIni& ini, Findings& findings) {
  std::map<std::string, long> lines;
  ini.Load(path.c_str(), [&](long number, IniLine kind, const std::string& section) {
    if (kind == IniLine::kSection) lines.emplace(section, number);
    if (kind == IniLine::kKnownSection) {
      findings.Warning(path, number, "section " + section + " again", "join them");
    } else if (kind == IniLine::kPassedOver) {
      findings.Warning(path, number, "this line is passed over",
                       "write [section], key = value below it, or ; and a comment");
    }
  });
  return lines;
}

bool HasFolder(const Spool& spool, const std::string& id) {
  return std::any_of(spool.folders.begin(), spool.folders.end(),
                     [&id](const DatabaseFolder& folder) { return folder.id == id; });
}

}  // namespace

void CheckNumberBlocks(const std::string& path, Findings& findings) {
  std::string content;
  if (!ReadSource(path, "every user counts as a visitor",
                  "put it there, one local number block of seven digits a row", content,
                  findings)) {
    return;
  }
  // Encodings of two bytes for each letter are full of zero bytes, and a spreadsheet may save a
  // file in one of them.
  if (content.find('\0') != std::string::npos) {
    findings.Error(path, 0, "holds zero bytes: an encoding that is not read",
                   "save it as UTF-8 or GBK");
    return;
  }
  const std::vector<std::string_view> lines = Lines(content);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (IsText(lines[i])) continue;
    findings.Warning(path, static_cast<long>(i + 1), "is neither UTF-8 nor GBK",
                     "save the file as UTF-8 or GBK");
  }
  if (CheckRows(path, lines, findings) == 0) {
    findings.Error(path, 0, "has no usable number block: every user counts as a visitor",
                   "put one local number block of seven digits into each row");
  }
}

void CheckDeviceStates(const std::string& path, const Spool& spool, const Dialect& dialect,
                       Findings& findings) {
  std::string content;
  if (!ReadSource(path, "an error line in the run log every 10 seconds",
                  "put it there, one section a device, with its city", content, findings)) {
    return;
  }
  // The conversions into year tables are those that may be given a city.
  const bool needs_cities = dialect.TakesCity(Period::kYear);
  CRwIni ini(nullptr);
  const std::map<std::string, long> lines = LoadDevices(path, ini, findings);
  for (const auto& section : ini.GetSections()) {
    const long line = lines.at(section);
    if (ini.GetString(section.c_str(), "city", nullptr, 0, nullptr).empty()) {
      findings.Add(needs_cities, path, line, "section " + section + " has no city",
                   "add city = NAME, as the report side has it");
    }
    if (!HasFolder(spool, section)) {
      findings.Warning(path, line, "section " + section + " has no folder in the spool",
                       "name sections like the spool's folders, 8 hexadecimal digits; remove those "
                       "of devices that are gone");
    }
  }
  for (const DatabaseFolder& folder : spool.folders) {
    if (!needs_cities || lines.count(folder.id) != 0) continue;
    findings.Error(path, 0, "has no section " + folder.id + ": its rows get the city value 0",
                   "add the section, with its city");
  }
  if (ini.GetSections().empty()) {
    findings.Add(needs_cities, path, 0, "has no section",
                 "write one section a device, with its city");
  }
}

}  // namespace ctl
