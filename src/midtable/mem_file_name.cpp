#include "midtable/mem_file_name.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "support/database_name.h"
#include "support/paths.h"

namespace {

constexpr std::size_t kIdLength = 8;
constexpr std::size_t kDateLength = 8;
constexpr std::size_t kTimeLength = 6;
constexpr std::size_t kLongestTableField = 63;
// Hour digits' tail and minutes of a table field: blanked so that all files of a day share a table.
constexpr std::size_t kBlankedPosition = 13;
constexpr std::string_view kBlank = "000";

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool IsControl(char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }

bool IsNameCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 || std::isalnum(byte) != 0 || c == '_' || c == '$' || c == '-';
}

// The first word, cut to the length of a database id.
std::string_view LeadingWord(std::string_view text) {
  const auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  const auto end = std::find_if(begin, text.end(), IsSpace);
  return std::string_view(begin, end).substr(0, kIdLength);
}

}  // namespace

namespace ULIT {

bool isXdigit(const char* text) {
  for (std::size_t i = 0; i < kIdLength && text[i] != '\0'; ++i) {
    if (std::isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
  }
  return true;
}

bool isDigit(const char* text, int n) {
  if (text == nullptr) return false;
  const std::string_view view = text;
  return view.size() == static_cast<std::size_t>(n) &&
         std::all_of(view.begin(), view.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isValidDate(const char* text) { return isDigit(text, kDateLength); }
bool isValidTime(const char* text) { return isDigit(text, kTimeLength); }

}  // namespace ULIT

std::string TextAt(std::string_view text, std::size_t position, std::size_t length) {
  if (text.size() < position + length) return {};
  return std::string(text.substr(position, length));
}

std::string_view FileNameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool IsDatabaseId(std::string_view name) {
  return name.size() == kIdLength && ULIT::isXdigit(std::string(name).c_str());
}

const char* MemFileNameFault(const std::string& name) {
  const std::size_t after_id = name.find('-');
  if (after_id == std::string::npos) return "it has no \"-\"";
  const std::string id = name.substr(0, after_id);
  if (id.size() != kIdLength && !ULIT::isXdigit(id.c_str())) {
    return "it does not begin with a database's 8 hexadecimal digits";
  }
  const std::size_t after_table = name.find('-', after_id + 1);
  if (after_table == std::string::npos ||
      !ULIT::isValidDate(name.substr(after_table + 1, kDateLength).c_str())) {
    return "no date of 8 digits follows the table";
  }
  const std::size_t after_date = name.find('-', after_table + 1);
  if (after_date == std::string::npos ||
      !ULIT::isValidTime(name.substr(after_date + 1, kTimeLength).c_str())) {
    return "no time of 6 digits follows the date";
  }
  const std::size_t dot = name.find('.', after_date + 1);
  const bool ends = dot != std::string::npos && std::string_view(name).substr(dot) == ".dat";
  return ends ? nullptr
              : "behind its time stands another dot, or an ending other than .dat in small letters";
}

std::string MemFilePath(const std::string& path) {
  if (path.find('/') != std::string::npos) return path;
  const std::string_view id = LeadingWord(path);
  if (id.empty()) return {};
  return std::string(paths::kSpool).append(id).append("/").append(path);
}

std::string MemFileDatabase(std::string_view path) {
  const std::string_view id = LeadingWord(FileNameOf(path));
  return id.empty() ? std::string() : DatabaseName(id);
}

std::string MemFileTable(std::string_view path) {
  const std::string_view name = FileNameOf(path);
  const std::size_t dash = name.find('-');
  if (dash == 0 || dash == std::string_view::npos) return {};
  std::string field(name.substr(dash + 1, name.find('-', dash + 1) - dash - 1));
  if (field.size() > kLongestTableField) return {};
  // A field that ends inside the blanked positions grows to their end.
  if (field.size() >= kBlankedPosition) field.replace(kBlankedPosition, kBlank.size(), kBlank);
  return field;
}

bool IsSafeIdentifier(std::string_view name) {
  return name.find("--") == std::string_view::npos &&
         std::all_of(name.begin(), name.end(), IsNameCharacter);
}

bool IsSafePassword(std::string_view password) {
  if (password.size() >= 2 && password.front() == '"' && password.back() == '"') {
    password = password.substr(1, password.size() - 2);
    return password.find('"') == std::string_view::npos &&
           std::none_of(password.begin(), password.end(), IsControl);
  }
  return std::all_of(password.begin(), password.end(),
                     [](char c) { return IsNameCharacter(c) || c == '#'; }) &&
         password.find("--") == std::string_view::npos;
}

bool IsSafePath(std::string_view path) {
  return path.find_first_of("'\"`\\") == std::string_view::npos &&
         std::none_of(path.begin(), path.end(), IsControl);
}

std::string Printable(std::string name) {
  std::replace_if(name.begin(), name.end(), IsControl, '?');
  return name;
}
