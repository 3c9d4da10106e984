#include "config/option_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "support/file.h"
#include "support/trim.h"

namespace {

// Files that include each other end here.
constexpr int kDeepestInclude = 10;

// False with errno set.
bool ReadAll(const std::string& path, std::string& content) {
  File file(std::fopen(path.c_str(), "re"));
  if (file == nullptr) return false;
  char chunk[4096];
  while (const std::size_t size = std::fread(chunk, 1, sizeof chunk, file.get())) {
    content.append(chunk, size);
  }
  const bool complete = std::ferror(file.get()) == 0;
  const int error = errno;
  file.reset();
  errno = error;
  return complete;
}

// The line up to a "#" that is not in quotes.
std::string_view WithoutComment(std::string_view line) {
  char quote = '\0';
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quote == '\0' && c == '#') return line.substr(0, i);
    if (quote != '\0' && c == '\\') {
      ++i;  // a quote behind a backslash ends nothing
    } else if (c == quote) {
      quote = '\0';
    } else if (quote == '\0' && (c == '"' || c == '\'')) {
      quote = c;
    }
  }
  return line;
}

// What the character behind a backslash stands for; 0 where the backslash is to stay.
char Escaped(char c) {
  constexpr std::string_view kNames = "btnrs\"'\\";
  constexpr std::string_view kMeanings = "\b\t\n\r \"'\\";
  const std::size_t at = kNames.find(c);
  return at == std::string_view::npos ? '\0' : kMeanings[at];
}

std::string Value(std::string_view text) {
  if (text.size() >= 2 && text.front() == text.back() &&
      (text.front() == '"' || text.front() == '\'')) {
    text = text.substr(1, text.size() - 2);
  }
  std::string value;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char meaning = text[i] == '\\' && i + 1 < text.size() ? Escaped(text[i + 1]) : '\0';
    value += meaning == '\0' ? text[i] : meaning;
    if (meaning != '\0') ++i;
  }
  return value;
}

// The name of the group that the line begins.
std::string_view GroupOf(std::string_view line) {
  line.remove_prefix(1);
  return Trim(line.substr(0, line.find(']')));
}

}  // namespace

bool OptionFiles::ReadFile(const std::string& file, int depth) {
  std::string content;
  if (!ReadAll(file, content)) return false;
  bool in_group = false;
  int number = 0;
  for (std::string_view rest = content; !rest.empty();) {
    ++number;
    const std::size_t end = rest.find('\n');
    const std::string_view line = Trim(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '!') {
      Include(line, depth);
    } else if (line.front() == '[') {
      in_group = GroupOf(line) == m_group;
      m_found = m_found || in_group;
    } else if (in_group) {
      AddOption(line, file + " line " + std::to_string(number));
    }
  }
  return true;
}

void OptionFiles::AddOption(std::string_view line, std::string where) {
  line = WithoutComment(line);
  const std::size_t equals = line.find('=');
  std::string name(Trim(line.substr(0, equals)));
  std::replace(name.begin(), name.end(), '_', '-');
  std::optional<std::string> value;
  if (equals != std::string_view::npos) value = Value(Trim(line.substr(equals + 1)));
  m_options.push_back({std::move(name), std::move(value), std::move(where)});
}

void OptionFiles::Include(std::string_view directive, int depth) {
  constexpr std::string_view kFolder = "!includedir";
  constexpr std::string_view kFile = "!include";
  if (depth >= kDeepestInclude) return;
  if (!directive.starts_with(kFolder)) {
    if (directive.starts_with(kFile)) {
      IncludeFile(std::string(Trim(directive.substr(kFile.size()))), depth + 1);
    }
    return;
  }
  const std::string folder(Trim(directive.substr(kFolder.size())));
  std::error_code error;
  std::vector<std::string> files;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().extension() == ".cnf") files.push_back(entry->path());
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    m_unreadable.push_back(folder + ": " + error.message());
  }
  std::sort(files.begin(), files.end());
  for (const std::string& file : files) IncludeFile(file, depth + 1);
}

void OptionFiles::IncludeFile(const std::string& file, int depth) {
  if (ReadFile(file, depth) || errno == ENOENT) return;
  m_unreadable.push_back(file + ": " + std::strerror(errno));
}
