#include "midtablectl/statement_words.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <regex>
#include <set>

#include "midtablectl/text.h"

namespace ctl {

namespace {

// Engines whose tables stand for rows that are kept elsewhere: in a file, or on another server.
const std::set<std::string> kReachingEngines = {"connect", "federated", "s3", "sphinx", "spider"};

// Bytes above 127 belong to letters of other alphabets, of which names may consist.
bool ContinuesName(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 || std::isalnum(byte) != 0 || c == '_' || c == '$';
}

// Whether `name` may stand for a database in `text`, both in small letters: where a dot follows,
// blanks and quotes left out. A comment may have a dot behind it, so it counts as a dot.
bool NamesDatabase(const std::string& text, const std::string& name) {
  for (std::size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
    if (at > 0 && ContinuesName(text[at - 1])) continue;
    const std::size_t next = text.find_first_not_of(" \t\n\v\f\r`\"", at + name.size());
    if (next != std::string::npos && std::strchr(".*/-#", text[next]) != nullptr) return true;
  }
  return false;
}

}  // namespace

bool ContainsWords(const std::string& text, const std::string& part) {
  return Lower(text).find(Lower(part)) != std::string::npos;
}

// A name counts only where no further letter follows: T_FLOW1D_2000 is not in a statement on
// T_FLOW1D_20001231.
bool NamesTable(const std::string& text, const std::string& name) {
  const std::string where = Lower(text);
  const std::string what = Lower(name);
  for (std::size_t at = where.find(what); at != std::string::npos; at = where.find(what, at + 1)) {
    const std::size_t end = at + what.size();
    if (end == where.size()) return true;
    if (std::isalnum(static_cast<unsigned char>(where[end])) == 0 && where[end] != '_') return true;
  }
  return false;
}

std::string EngineOf(const std::string& create) {
  const std::string text = Lower(create);
  // The options of a table stand last: a column may be called engine, too.
  std::size_t at = text.rfind("engine");
  if (at == std::string::npos) return {};
  at = text.find_first_not_of(" \t\r\n=", at + 6);
  if (at == std::string::npos) return {};
  const std::size_t end = text.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789", at);
  return text.substr(at, end == std::string::npos ? end : end - at);
}

// This is a guess from the words, made without a server. A column that is called "key" is taken for
// a key, so that a warning may be missing.
bool NamesKey(const std::string& create) {
  static const std::regex kKey(R"(\b(key|unique)\b)", std::regex::icase);
  return std::regex_search(create, kKey);
}

bool AddsUp(const std::string& convert) {
  static const std::regex kAddsUp(R"(\bon\s+duplicate\s+key\b)", std::regex::icase);
  return std::regex_search(convert, kAddsUp);
}

std::string ReachOf(const std::string& statement, const std::vector<std::string>& databases) {
  // Anything else, like "drop database" or "call", may do what no look at its words can tell.
  static const std::regex kTried(
      R"(\s*(create(\s+or\s+replace)?(\s+temporary)?\s+table|insert|replace|update|delete)\b)",
      std::regex::icase);
  if (!std::regex_search(statement, kTried, std::regex_constants::match_continuous)) {
    return "is no create table, insert, replace, update or delete";
  }
  const std::string text = Lower(statement);
  if (text.find("/*!") != std::string::npos || text.find("/*m!") != std::string::npos) {
    return "has a comment that the server executes";
  }
  if (kReachingEngines.count(EngineOf(text)) != 0) return "keeps its rows elsewhere";
  const auto named =
      std::find_if(databases.begin(), databases.end(),
                   [&text](const std::string& name) { return NamesDatabase(text, name); });
  return named == databases.end() ? std::string() : "names database " + *named;
}

}  // namespace ctl
