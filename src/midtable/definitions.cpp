#include "midtable/definitions.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "log/zux_center_log.h"
#include "midtable/unit.h"
#include "support/paths.h"
#include "support/trim.h"

namespace {

// Decimal digits with nothing but blanks around them.
bool IsPlainNumber(std::string_view text) {
  text = Trim(text);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

bool TableDefinitions::Parse(bool oracle) {
  m_file = File(oracle);
  if (m_xml.parseFile(m_file)) return true;
  g_loger(kUnit, __LINE__, kError, "xml file %s: %s", m_file, m_xml.getError().c_str());
  return false;
}

const char* TableDefinitions::File(bool oracle) {
  return oracle ? paths::kOracleDefinitions : paths::kMysqlDefinitions;
}

bool TableDefinitions::Read(const std::string& path, std::string& text) const {
  const CXmlNode node = m_xml.getNode(path);
  if (!node) {
    g_loger(kUnit, __LINE__, kError, "get node %s failed", path.c_str());
    return false;
  }
  node.getContent(text);
  return true;
}

bool TableDefinitions::Read(const std::string& path, int& number) const {
  std::string text;
  if (!Read(path, text)) return false;
  using Limits = std::numeric_limits<int>;
  const long value = std::strtol(text.c_str(), nullptr, 10);
  number = static_cast<int>(std::clamp<long>(value, Limits::min(), Limits::max()));
  if (!IsPlainNumber(text)) {
    g_loger(kUnit, __LINE__, kAlarm, "xml file %s: %s is no number, taken as %d", m_file,
            path.c_str(), number);
  }
  return true;
}
