// The file handling around the rewriting of a mem file of kind F.

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/unit.h"

namespace {

// The file's size, logged as "<what> (<path>)(<size>)"; nothing when it cannot be told.
std::optional<std::int64_t> LoggedSize(const char* when, const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    g_loger(kUnit, __LINE__, kDebug, "file (%s) stat error(%d)", path.c_str(), errno);
    return std::nullopt;
  }
  g_loger(kUnit, __LINE__, kDebug, "%s file size (%s)(%u)", when, path.c_str(),
          static_cast<unsigned int>(status.st_size));
  return status.st_size;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

bool Rename(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return true;
  g_loger(kUnit, __LINE__, kError, "file (%s) rename to (%s) failed errno (%d)", from.c_str(),
          to.c_str(), errno);
  return false;
}

}  // namespace

bool CMidTable::ConvertMemF(const std::string& path) {
  if (path.empty()) {
    g_loger(kUnit, __LINE__, kConsole, "file name is null convert failed");
    return false;
  }
  if (!Exists(path)) {
    g_loger(kUnit, __LINE__, kConsole, "file %s not exist convert failed", path.c_str());
    return false;
  }
  const auto size_before = LoggedSize("before convert", path);
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) {
    g_loger(kUnit, __LINE__, kConsole, "file %s name not right", path.c_str());
    return false;
  }
  const std::string stem = path.substr(0, dot);
  const std::string copy = stem + ".mid";
  m_localUser.ParseMemfile(path, copy);
  if (!Exists(copy)) {
    g_loger(kUnit, __LINE__, kConsole, "new file %s not exist convert failed", path.c_str());
    return false;
  }
  const auto size_after = LoggedSize("after convert", copy);
  // A smaller copy has lost lines: the unrewritten file is kept for inspection.
  const bool keep = size_before && size_after && *size_after < *size_before;
  const std::string kept = stem + ".err";
  if ((keep && !Rename(path, kept)) || !Rename(copy, path)) {
    if (keep && !Exists(path)) Rename(kept, path);
    std::remove(copy.c_str());  // or it would look like a loaded file
    return false;
  }
  LoggedSize("after rename", path);
  return true;
}
