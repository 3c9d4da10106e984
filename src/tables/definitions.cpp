#include "tables/definitions.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/file_identity.h"
#include "support/mutex.h"
#include "support/trim.h"

namespace {

// A file that is well-formed, as it was when its identity was taken.
struct Parsed {
  std::string file;
  std::optional<FileIdentity> identity;
  std::shared_ptr<const CXmlStream> xml;
};

}  // namespace

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

// The file is looked at for every conversion and creation, so that a change counts at once and
// without a restart; it is parsed where it has changed, or might have without showing it.
bool TableDefinitions::Parse(const char* file) {
  static Mutex lock;
  static Parsed last GUARDED_BY(lock);
  m_file = file;
  struct stat status {};
  const auto identity = stat(file, &status) == 0 ? SettledIdentityOf(status) : std::nullopt;
  const MutexLock held(lock);
  if (identity && last.identity == identity && last.file == file) {
    m_xml = last.xml;
    return true;
  }
  const auto xml = std::make_shared<CXmlStream>();
  if (xml->parseFile(m_file)) {
    m_xml = xml;
    last = {file, identity, m_xml};
    return true;
  }
  g_loger(kUnit, __LINE__, kError, "xml file %s: %s", m_file, xml->getError().c_str());
  return false;
}

bool TableDefinitions::Read(const std::string& path, std::string& text) const {
  const CXmlNode node = m_xml->getNode(path);
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
