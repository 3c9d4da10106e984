#include "midtable/definitions.h"

#include <cstdlib>

#include "log/zux_center_log.h"
#include "midtable/unit.h"
#include "support/paths.h"

bool TableDefinitions::Parse(bool oracle) {
  const char* path = oracle ? paths::kOracleDefinitions : paths::kMysqlDefinitions;
  if (m_xml.parseFile(path)) return true;
  g_loger(kUnit, __LINE__, kError, "xml file %s: %s", path, m_xml.getError().c_str());
  return false;
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
  number = std::atoi(text.c_str());
  return true;
}
