#include "spool/mem_file.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "support/database_name.h"
#include "support/names.h"
#include "support/paths.h"

namespace {

constexpr std::size_t kIdLength = 8;
constexpr std::size_t kDateLength = 8;
constexpr std::size_t kTimeLength = 6;
constexpr std::size_t kLongestTableField = 63;
// The hour and the tens of its minutes are blanked in a table field, so that the files of a day
// share a few tables.
constexpr std::size_t kBlankedPosition = 13;
constexpr std::string_view kBlank = "000";
constexpr std::size_t kTableDatePosition = 4;  // behind "MEM_"

// Names may have bytes above 127, which isspace must not get as negative numbers.
bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// The first word, cut to the length of a database id.
std::string_view LeadingWord(std::string_view text) {
  const auto begin = std::find_if_not(text.begin(), text.end(), IsSpace);
  const auto end = std::find_if(begin, text.end(), IsSpace);
  return std::string_view(begin, end).substr(0, kIdLength);
}

// The field between the first two dashes. DELIBERATE: a field that ends inside the blanked
// positions grows to their end: "abcdefghijklmF" goes to "abcdefghijklm000", whose kind is "0".
std::string TableOf(std::string_view name) {
  const std::size_t dash = name.find('-');
  if (dash == 0 || dash == std::string_view::npos) return {};
  std::string field(name.substr(dash + 1, name.find('-', dash + 1) - dash - 1));
  if (field.size() > kLongestTableField) return {};
  if (field.size() >= kBlankedPosition) field.replace(kBlankedPosition, kBlank.size(), kBlank);
  return field;
}

}  // namespace

namespace ULIT {

bool isXdigit(const char* text) {
  for (std::size_t i = 0; i < kIdLength && text[i] != '\0'; ++i) {
    if (std::isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
  }
  return true;
}

// Only ASCII digits count, whatever the locale: the text becomes part of a table's name.
bool isDigit(const char* text, int n) {
  if (text == nullptr) return false;
  const std::string_view view = text;
  return view.size() == static_cast<std::size_t>(n) &&
         std::all_of(view.begin(), view.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isValidDate(const char* text) { return isDigit(text, kDateLength); }
bool isValidTime(const char* text) { return isDigit(text, kTimeLength); }

}  // namespace ULIT

// The database is told from the name, not from the folder: a file that was put into the folder of
// another device goes to the database of its own.
MemFile MemFile::Parse(std::string path) {
  const std::string_view name = FileNameOf(path);
  const std::string_view id = LeadingWord(name);
  MemFile file;
  if (!id.empty()) file.database = DatabaseName(id);
  file.table = TableOf(name);
  if (!id.empty() && path.find('/') == std::string::npos) {
    path = std::string(paths::kSpool).append(id).append("/").append(path);
  }
  file.path = std::move(path);
  return file;
}

// The last letter is the kind in a name of any length.
std::string MemFile::Kind() const {
  return table.empty() ? std::string() : std::string(1, table.back());
}

std::string MemFile::Date() const { return TextAt(table, kTableDatePosition, kDateLength); }

// The order is that in which the service reports the reasons. Safety comes last: only then are all
// three parts there.
NameRefusal MemFile::Refusal() const {
  if (path.find('/') == std::string::npos) return NameRefusal::kNoPath;
  if (database.empty()) return NameRefusal::kNoDatabase;
  if (table.empty()) return NameRefusal::kNoTable;
  const bool safe = IsSafePath(path) && IsSafeIdentifier(database) && IsSafeIdentifier(table);
  return safe ? NameRefusal::kNone : NameRefusal::kUnsafe;
}

bool IsDatabaseId(std::string_view name) {
  return name.size() == kIdLength && ULIT::isXdigit(std::string(name).c_str());
}

// The parts are looked at from left to right, so that the reason names the first one that is wrong.
// A name that does not begin with eight characters may still pass when it has hexadecimal digits
// only.
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
