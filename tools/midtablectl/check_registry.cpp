// localtour.csv and devstate.ini.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "config/CSVParser.h"
#include "config/TextEncoding.h"
#include "midtable/mem_file_name.h"
#include "midtablectl/check.h"
#include "support/RwIni.h"
#include "support/trim.h"

namespace ctl {

namespace {

constexpr std::size_t kBlockDigits = 7;

// The content of a regular file; otherwise a finding that says what follows from it.
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

bool IsText(std::string_view line) {
  if (IsAscii(line)) return true;
  const std::string text(line);
  if (IsUTF8(text.c_str(), static_cast<unsigned int>(text.size())) == 1) return true;
  std::string out(text.size() * 4 + 1, '\0');
  auto room = static_cast<unsigned int>(out.size() - 1);
  return EncodeConvert(text.c_str(), static_cast<unsigned int>(text.size()), out.data(), &room,
                       local_encoding, "utf-8") == 0;
}

// Whether a user code can stand for numbers of this block.
bool IsUsable(std::string_view block) {
  static const std::set<std::string_view> kBeginnings = {"13", "14", "15", "18"};
  return IsNumber(block) && block.size() == kBlockDigits &&
         kBeginnings.count(block.substr(0, 2)) != 0;
}

// One row of localtour.csv, by its first column.
void CheckBlock(const std::string& path, long number, const std::string& block,
                Findings& findings) {
  if (IsUsable(block)) return;
  if (IsNumber(block) && block.size() == kBlockDigits) {
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

// A column may hold line ends; one whose quote was forgotten holds the rows behind it.
void CheckQuote(const std::string& path, long number, const std::string& column,
                Findings& findings) {
  const std::vector<std::string_view> lines = Lines(column);
  if (lines.size() < 2) return;
  const auto rows = std::count_if(lines.begin() + 1, lines.end(), [](std::string_view line) {
    const std::string_view row = Trim(line);
    return IsUsable(row.substr(0, kBlockDigits)) && !IsNumber(row.substr(0, kBlockDigits + 1));
  });
  if (rows == 0) return;
  findings.Error(path, number,
                 "a quote that opens here takes in " +
                     Count(static_cast<std::size_t>(rows), "row") + ", whose blocks are lost",
                 "close the quote behind its column");
}

// The rows as the service reads them; how many blocks they have that can be used.
std::size_t CheckRows(const std::string& path, const std::vector<std::string_view>& lines,
                      Findings& findings) {
  CSVParser rows;
  rows.init(path);
  std::size_t blocks = 0;
  std::size_t passed = 0;  // lines
  while (rows.has_more_rows() && rows.get_next_row() >= 1) {
    while (passed < lines.size() && lines[passed].find_first_not_of(" \t") == std::string::npos) {
      ++passed;
    }
    const std::string block = rows.get_column_by_id(0);
    if (IsUsable(block)) ++blocks;
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

}  // namespace

void CheckNumberBlocks(const std::string& path, Findings& findings) {
  std::string content;
  if (!ReadSource(path, "every user counts as a visitor",
                  "put it there, one local number block of seven digits a row", content,
                  findings)) {
    return;
  }
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

void CheckDeviceStates(const std::string& path, const Spool& spool, bool oracle,
                       Findings& findings) {
  std::string content;
  if (!ReadSource(path, "an error line in the run log every 10 seconds",
                  "put it there, one section a device, with its city", content, findings)) {
    return;
  }
  std::map<std::string, long> lines;
  long number = 0;
  for (const std::string_view line : Lines(content)) {
    ++number;
    std::string_view text = Trim(line);
    if (number == 1 && text.starts_with(kByteOrderMark)) text.remove_prefix(3);
    if (text.empty() || text[0] == ';' || text[0] == '#') continue;
    const std::size_t end = text.find(']');
    if (text[0] == '[' && end != std::string_view::npos) {
      const auto [first, is_new] = lines.emplace(Trim(text.substr(1, end - 1)), number);
      if (!is_new)
        findings.Warning(path, number, "section " + first->first + " again", "join them");
    } else if (text[0] == '[' || text.find('=') == std::string_view::npos || lines.empty()) {
      findings.Warning(path, number, "this line is passed over",
                       "write [section], key = value below it, or ; and a comment");
    }
  }
  CRwIni ini(path.c_str());
  for (const std::string& section : ini.GetSections()) {
    const long line = lines[section];
    if (ini.GetString(section.c_str(), "city", nullptr, 0, nullptr).empty()) {
      findings.Add(oracle, path, line, "section " + section + " has no city",
                   "add city = NAME, as the report side has it");
    }
    const auto is_it = [&section](const DatabaseFolder& folder) { return folder.id == section; };
    if (std::none_of(spool.folders.begin(), spool.folders.end(), is_it)) {
      findings.Warning(path, line, "section " + section + " has no folder in the spool",
                       "name sections like the spool's folders, 8 hexadecimal digits; remove those "
                       "of devices that are gone");
    }
  }
  for (const DatabaseFolder& folder : spool.folders) {
    if (!oracle || lines.count(folder.id) != 0) continue;
    findings.Error(path, 0, "has no section " + folder.id + ": its rows get the city value 0",
                   "add the section, with its city");
  }
  if (ini.GetSections().empty()) {
    findings.Add(oracle, path, 0, "has no section", "write one section a device, with its city");
  }
}

}  // namespace ctl
