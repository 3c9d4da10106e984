#include "spool/settled_files.h"

#include <cerrno>
#include <system_error>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "spool/renames.h"
#include "support/names.h"

namespace {

// The folder that `path` is in; nothing when it cannot be looked at.
std::optional<ino_t> FolderOf(const std::string& path) {
  const auto folder = IdentityOf(path.substr(0, path.rfind('/')));
  return folder ? std::optional(folder->inode) : std::nullopt;
}

}  // namespace

// What has the name now is what was loaded, as far as anybody can tell. Where the folder cannot be
// looked at, the identity that was noted before the load has to do.
void SettledFiles::Add(const std::string& path, const std::string& target,
                       const std::optional<FileIdentity>& last_seen) {
  const auto now = IdentityOf(path);
  if (!now && !last_seen) return;
  m_entries.insert_or_assign(path, Entry{now ? *now : *last_seen, FolderOf(path), target});
}

// A file of the same name that is not the same file has not been loaded: its producer used the name
// again.
bool SettledFiles::Contains(const std::string& path) const {
  const auto found = m_entries.find(path);
  if (found == m_entries.end()) return false;
  const auto now = IdentityOf(path);
  return now && now->IsUnchangedSince(found->second.identity);
}

std::string SettledFiles::Refused::Reason() const {
  return "they are done with, but cannot be renamed: " + std::generic_category().message(error);
}

// A retry that fails writes no line: the first failure is in the log, and this is done with every
// pass.
SettledFiles::Refused SettledFiles::RetryRenames() {
  Refused refused;
  std::erase_if(m_entries, [&refused](const auto& item) {
    const auto& [path, entry] = item;
    if (IsOver(path, entry)) return true;
    if (!MoveMemFile(path, entry.target)) {
      refused.error = errno;
      return false;
    }
    g_loger(kUnit, __LINE__, kInfo, "file (%s) renamed to (%s) at last", Printable(path).c_str(),
            Printable(entry.target).c_str());
    return true;
  });
  refused.files = m_entries.size();
  return refused;
}

// A file that is missing is over only while its folder is the same one: a folder that was moved
// away, or is not mounted, may come back with the file.
bool SettledFiles::IsOver(const std::string& path, const Entry& entry) {
  if (const auto now = IdentityOf(path)) return !now->IsUnchangedSince(entry.identity);
  return errno == ENOENT && entry.folder && FolderOf(path) == entry.folder;
}
