#include "midtablectl/setup/creation_script.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "midtablectl/server.h"
#include "midtablectl/text.h"
#include "support/trim.h"

namespace ctl {

namespace {

constexpr std::string_view kYear = "_YYYY";

// How long the comment is that begins where `text` begins; 0 when none does.
std::size_t CommentLength(std::string_view text) {
  const bool dashes = text.starts_with("--") && (text.size() == 2 || std::isspace(text[2]) != 0);
  if (dashes || text.starts_with('#')) return std::min(text.find('\n'), text.size());
  if (!text.starts_with("/*")) return 0;
  const std::size_t end = text.find("*/", 2);
  return end == std::string_view::npos ? text.size() : end + 2;
}

// How long the quoted text or name is that begins where `text` begins; 0 when none does.
std::size_t QuoteLength(std::string_view text) {
  const char quote = text.front();
  if (quote != '\'' && quote != '"' && quote != '`') return 0;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '\\' && quote != '`') {
      ++i;
    } else if (text[i] == quote) {
      return i + 1;  // a doubled quote is taken for two texts side by side, which ends alike
    }
  }
  return text.size();
}

// The statements without comments, and without the semicolons between them.
std::vector<std::string> Split(std::string_view script) {
  std::vector<std::string> statements(1);
  while (!script.empty()) {
    std::size_t length = CommentLength(script);
    const bool is_comment = length > 0;
    if (!is_comment) length = std::max<std::size_t>(QuoteLength(script), 1);
    if (script.front() == ';') {
      statements.emplace_back();
    } else if (!is_comment) {
      statements.back().append(script.substr(0, length));
    }
    script.remove_prefix(length);
  }
  for (std::string& statement : statements) statement = Trim(statement);
  std::erase(statements, "");
  return statements;
}

// Takes the words off the front of the text, in any letter case; false when it begins otherwise.
bool TakeWords(std::string_view& text, std::string_view words) {
  std::string_view rest = text;
  while (!words.empty()) {
    const std::size_t end = std::min(words.find(' '), words.size());
    rest = Trim(rest);
    if (Lower(rest.substr(0, end)) != words.substr(0, end)) return false;
    rest.remove_prefix(end);
    if (!rest.empty() && std::isspace(static_cast<unsigned char>(rest.front())) == 0) return false;
    words.remove_prefix(std::min(end + 1, words.size()));
  }
  text = Trim(rest);
  return true;
}

// Takes a name off the front of the text: letters, digits, "_" and "$", or anything between
// backquotes.
std::optional<std::string> TakeName(std::string_view& text) {
  std::string name;
  if (text.starts_with('`')) {
    const std::size_t end = text.find('`', 1);
    if (end == std::string_view::npos || text.substr(end + 1).starts_with('`')) return std::nullopt;
    name = text.substr(1, end - 1);
    text.remove_prefix(end + 1);
  } else {
    while (!text.empty() && (std::isalnum(static_cast<unsigned char>(text.front())) != 0 ||
                             text.front() == '_' || text.front() == '$')) {
      name += text.front();
      text.remove_prefix(1);
    }
  }
  return name.empty() ? std::nullopt : std::optional(name);
}

std::optional<Creation> Parse(std::string_view text) {
  const bool is_table = TakeWords(text, "create table if not exists");
  if (!is_table && !TakeWords(text, "create database if not exists")) return std::nullopt;
  std::optional<std::string> name = TakeName(text);
  if (!name) return std::nullopt;
  if (!is_table) return Creation{*name, "", std::string(Trim(text))};
  std::string database;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    database = *name;
    name = TakeName(text);
    if (!name) return std::nullopt;
  }
  return Creation{database, *name, std::string(Trim(text))};
}

}  // namespace

std::string Creation::Statement() const {
  if (table.empty()) return "create database if not exists " + QuotedName(database) + rest;
  return "create table if not exists " + (database.empty() ? "" : QuotedName(database) + ".") +
         QuotedName(table) + rest;
}

std::string Creation::Name() const {
  return table.empty() || database.empty() ? database + table : database + "." + table;
}

std::vector<Creation> ParseCreations(std::string_view script, std::string& error) {
  std::vector<Creation> creations;
  for (const std::string& statement : Split(script)) {
    const std::optional<Creation> creation = Parse(statement);
    if (!creation) {
      error = "\"" + OneLine(statement.substr(0, 60)) +
              "\" is neither \"create table if not exists\" nor \"create database if not exists\"";
      return {};
    }
    creations.push_back(*creation);
    if (!creations.back().rest.empty()) creations.back().rest.insert(0, " ");
  }
  return creations;
}

std::vector<Creation> YearTables(std::string_view script, const std::string& database, int year,
                                 std::string& error) {
  std::vector<Creation> tables = ParseCreations(script, error);
  for (Creation& table : tables) {
    if (table.table.find(kYear) == std::string::npos || !table.database.empty()) {
      error = "\"" + OneLine(table.Name()) + "\" is no table with _YYYY in its name";
      return {};
    }
    for (std::string* const text : {&table.table, &table.rest}) {
      for (std::size_t at = text->find(kYear); at != std::string::npos; at = text->find(kYear)) {
        text->replace(at, kYear.size(), "_" + std::to_string(year));
      }
    }
    table.database = database;
  }
  if (tables.empty() && error.empty()) error = "makes no table";
  return tables;
}

}  // namespace ctl
