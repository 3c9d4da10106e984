// Printing findings, and the text helpers of all commands.
#include "midtablectl/findings.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <map>

#include "midtable/mem_file_name.h"
#include "support/file.h"

namespace ctl {

namespace {

constexpr std::size_t kShownAlike = 8;

struct Paint {
  bool on;
  std::string operator()(const char* code, const std::string& text) const {
    return on ? std::string("\x1b[") + code + "m" + text + "\x1b[0m" : text;
  }
};

}  // namespace

Status Findings::Print(Console& console, bool errors_only) const {
  const Paint paint{console.terminal};
  std::map<std::string, std::size_t> alike;
  std::size_t errors = 0;
  std::size_t warnings = 0;
  for (const Finding& finding : m_all) {
    if (errors_only && !finding.is_error) continue;
    ++(finding.is_error ? errors : warnings);
    if (++alike[finding.fix] > kShownAlike) continue;
    const std::string where =
        OneLine(finding.where) + (finding.line > 0 ? ":" + std::to_string(finding.line) : "");
    console.out << paint("1", where) << ": "
                << (finding.is_error ? paint("31", "error") : paint("33", "warning")) << ": "
                << OneLine(finding.what) << " -> " << OneLine(finding.fix) << '\n';
  }
  for (const auto& [fix, count] : alike) {
    if (count > kShownAlike) {
      console.out << "and " << count - kShownAlike << " more like these -> " << OneLine(fix)
                  << '\n';
    }
  }
  for (const Finding& note : m_notes) {
    if (errors_only) break;
    console.out << OneLine(note.where) << ':' << note.line << ": note: " << OneLine(note.what)
                << '\n';
  }
  if (errors + warnings == 0) {
    console.out << (errors_only ? "No errors." : "Nothing found.") << '\n';
    return Status::kFine;
  }
  console.out << Count(errors, "error");
  if (!errors_only) console.out << ", " << Count(warnings, "warning");
  console.out << '\n';
  return Status::kFindings;
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

std::tm LocalTime(std::time_t time) {
  std::tm local{};
  localtime_r(&time, &local);
  return local;
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

std::string OneLine(std::string_view text) { return Printable(std::string(text)); }

std::string Count(std::size_t number, std::string_view noun) {
  return std::to_string(number) + " " + std::string(noun) + (number == 1 ? "" : "s");
}

bool ReadWhole(const std::string& path, std::string& content) {
  content.clear();
  const File file(std::fopen(path.c_str(), "r"));
  if (file == nullptr) return false;
  char chunk[65536];
  while (const std::size_t size = std::fread(chunk, 1, sizeof chunk, file.get())) {
    content.append(chunk, size);
  }
  return std::ferror(file.get()) == 0;
}

}  // namespace ctl
