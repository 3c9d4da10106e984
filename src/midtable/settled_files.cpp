#include "midtable/settled_files.h"

#include "log/zux_center_log.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"

void SettledFiles::Add(const std::string& path, const std::string& target) {
  if (const auto identity = IdentityOf(path))
    m_entries.insert_or_assign(path, Entry{*identity, target});
}

bool SettledFiles::Contains(const std::string& path) const {
  const auto found = m_entries.find(path);
  return found != m_entries.end() && IdentityOf(path) == found->second.identity;
}

void SettledFiles::RetryRenames() {
  std::erase_if(m_entries, [](const auto& item) {
    const auto& [path, entry] = item;
    if (IdentityOf(path) != entry.identity) return true;
    if (!MoveMemFile(path, entry.target)) return false;
    g_loger(kUnit, __LINE__, kInfo, "file (%s) renamed to (%s) at last", Printable(path).c_str(),
            Printable(entry.target).c_str());
    return true;
  });
}
