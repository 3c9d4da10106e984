#include "midtablectl/text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "support/file.h"
#include "support/names.h"

namespace ctl {

// Only letters of ASCII have to match here: keys, words of SQL and the texts of servers.
std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

bool IsNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::vector<std::string_view> Lines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    lines.push_back(line);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

// The run log shows names in the same way, so both look alike.
std::string OneLine(std::string_view text) { return Printable(std::string(text)); }

std::string Count(std::size_t number, std::string_view noun) {
  return std::to_string(number) + " " + std::string(noun) + (number == 1 ? "" : "s");
}

// The file is read to its end and not by its size: files below /proc, which are read here too, say
// that they are empty.
bool ReadWhole(const std::string& path, std::string& content) {
  content.clear();
  const File file(std::fopen(path.c_str(), "r"));
  if (file == nullptr) return false;
  char chunk[65536];
  while (const std::size_t size = std::fread(chunk, 1, sizeof chunk, file.get())) {
    content.append(chunk, size);
  }
  // A folder can be opened; only the reading fails.
  return std::ferror(file.get()) == 0;
}

}  // namespace ctl
