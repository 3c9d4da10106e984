#include "config/dbinfo.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log/zux_center_log.h"
#include "support/file.h"
#include "support/paths.h"
#include "support/require.h"
#include "support/trim.h"

namespace {

constexpr char kUnit[] = "dbinfo";
// Fixed: parts of the messages that operators know.
constexpr int kNullPathLine = 60;
constexpr int kUnsetPathLine = 72;
constexpr int kUnreadableLine = 158;

}  // namespace

CDBInfo::CDBInfo(const char* path) : m_path(path) {
  Require(path != nullptr, kUnit, kNullPathLine, "path");
}

bool CDBInfo::readConfig() {
  Require(m_path != nullptr, kUnit, kUnsetPathLine, "path");
  m_entries.clear();
  const File file(std::fopen(m_path, "r"));
  if (file == nullptr) {
    m_error = "open db info config error!";
    return false;
  }
  std::string content;
  char chunk[4096 + 1];
  while (const std::size_t size = std::fread(chunk, 1, sizeof chunk - 1, file.get())) {
    chunk[size] = '\0';
    content += chunk;  // a NUL byte cuts the rest of its chunk
  }
  if (std::ferror(file.get()) != 0) {
    m_error = "read config file error!";
    return false;
  }
  if (!setMapInfo(content)) {
    m_error = "set config information error!";
    return false;
  }
  return true;
}

bool CDBInfo::setMapInfo(std::string_view content) {
  m_entries.clear();
  content = Trim(content);
  for (;;) {
    const std::size_t end = content.find('\n');
    const std::string_view line = Trim(content.substr(0, end));
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    m_entries.emplace(Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
    if (end == std::string_view::npos) return true;
    content.remove_prefix(end + 1);
  }
}

std::string CDBInfo::getValue(const std::string& key) const {
  const auto entry = m_entries.find(key);
  return entry == m_entries.end() ? std::string() : entry->second;
}

bool CDBInfo::ToInteger(const std::string& text, unsigned int* out) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  if (text.empty() || !std::all_of(text.begin(), text.end(), is_digit)) return false;
  *out = static_cast<unsigned int>(std::atoi(text.c_str()));
  return true;
}

int CDBInfo::getPort() const {
  unsigned int port = 0;
  return ToInteger(getValue("port"), &port) ? static_cast<int>(port) : -1;
}

unsigned int CDBInfo::getDBCount() const {
  unsigned int count = 0;
  return ToInteger(getValue("dbcount"), &count) ? count : 0;
}

std::vector<_dbinfo> CDBInfo::getDBInfoList() const {
  const unsigned int count = getDBCount();
  if (count == 0) std::exit(0);
  std::vector<_dbinfo> list;
  for (unsigned int i = 0; i < count; ++i) {
    const std::string index = std::to_string(i);
    list.push_back({getValue("dbname" + index), getValue("dbdepict" + index)});
  }
  return list;
}

bool IsOracle(const MYSQLAUTH& auth) { return auth.dbtype == "oci8" || auth.dbtype == "oracle"; }

MYSQLAUTH ReadCredentials(const CDBInfo& settings) {
  MYSQLAUTH auth;
  auth.host = settings.getHost();
  auth.port = settings.getPort();
  auth.user = settings.getUser();
  auth.password = settings.getPsw();
  auth.dbname = settings.getDBName();
  auth.dbtype = settings.getDBType();
  auth.new_user_password = settings.getNewUserPassword();
  auth.client_options = settings.getValue("client_options");
  return auth;
}

int NumberOfWorkers(const std::string& value) {
  if (value.empty()) return 1;
  int number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  const bool is_number = error == std::errc() && end == value.data() + value.size();
  return is_number && number >= 1 && number <= kMostWorkers ? number : 0;
}

CDBPolicy::CDBPolicy() {
  CDBInfo settings(paths::kSettingsFile);
  if (!settings.readConfig()) {
    g_loger(kUnit, kUnreadableLine, kError, "dbinfo.readConfig(%s) error. exit",
            paths::kSettingsFile);
    std::exit(1);
  }
  m_auth = ReadCredentials(settings);
  if (m_auth.dbtype == "oci8") m_auth.dbtype = "oracle";
  m_delivery = settings.getValue("delivery");
  m_workers = settings.getValue("workers");
}

CDBPolicy& ProcessPolicy() {
  static CDBPolicy policy;
  return policy;
}
