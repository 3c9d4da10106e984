#include "midtable/mid_table_failures.h"

#include "log/engine_unit.h"
#include "log/zux_center_log.h"

namespace {

// So many failures by a mid table's own fault are taken for a fault that lasts. From then on the
// other mid tables of its kind are filled without this one.
constexpr int kMostFailures = 100;

}  // namespace

bool MidTableFailures::IsBad(const std::string& key) {
  const auto entry = m_failures.find(key);
  if (entry == m_failures.end()) return false;
  // Counting once more marks the line as written, so that it is not repeated with every file.
  if (entry->second == kMostFailures) {
    ++entry->second;
    g_loger(kUnit, __LINE__, kError, "midtable %s is bad, skipped!", entry->first.c_str());
  }
  return entry->second > kMostFailures;
}
