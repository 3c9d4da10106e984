#include "tables/definitions.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/trim.h"

std::string CountPath(const std::string& parent) { return parent + "/" + kCountElement; }

std::string ConversionsOf(const std::string& kind) {
  return std::string(kConversionDefinitions) + "/" + kind;
}

// A second statement in the definitions of other kinds is not used.
bool HasFallback(std::string_view kind) { return kind == "F" || kind == "A"; }

// The paths are made one at a time: a count may be any number that fits an int.
bool ForEachEntry(const std::string& parent, int count,
                  const std::function<bool(const std::string&)>& use) {
  for (int number = 1; number <= count; ++number) {
    if (!use(parent + "/" + kEntryElement + std::to_string(number))) return false;
  }
  return true;
}

// strtol stops at the first character that is no digit, as the atoi of old did: "3x" is 3.
int NumberOf(const std::string& text) {
  using Limits = std::numeric_limits<int>;
  const long value = std::strtol(text.c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long>(value, Limits::min(), Limits::max()));
}

bool IsPlainNumber(std::string_view text) {
  text = Trim(text);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// The file is parsed anew for every conversion and creation, so that a change counts at once and
// without a restart.
bool TableDefinitions::Parse(const char* file) {
  m_file = file;
  if (m_xml.parseFile(m_file)) return true;
  g_loger(kUnit, __LINE__, kError, "xml file %s: %s", m_file, m_xml.getError().c_str());
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

// The number counts even where the text is none, as always. The line tells the operator, who may
// have meant another number.
bool TableDefinitions::Read(const std::string& path, int& number) const {
  std::string text;
  if (!Read(path, text)) return false;
  number = NumberOf(text);
  if (!IsPlainNumber(text)) {
    g_loger(kUnit, __LINE__, kAlarm, "xml file %s: %s is no number, taken as %d", m_file,
            path.c_str(), number);
  }
  return true;
}
