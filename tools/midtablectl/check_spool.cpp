// The folders of mem files and of the run log: whether there is room, and which of the files that
// wait will fail or are never taken.

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "log/zux_center_log.h"
#include "midtablectl/check.h"
#include "midtablectl/text.h"
#include "spool/mem_file.h"
#include "support/paths.h"
#include "tables/loader_templates.h"

namespace ctl {

namespace {

// Less room than this may be gone within the hour: a load takes space for the file, for its copy,
// and for what the server writes.
constexpr std::uint64_t kScarceBytes = 100ULL << 20;

void CheckRoom(const std::string& folder, Findings& findings) {
  // A folder that is not there gets a finding of its own.
  struct statvfs room {};
  if (statvfs(folder.c_str(), &room) != 0) return;
  const std::uint64_t free = static_cast<std::uint64_t>(room.f_bavail) * room.f_frsize;
  const char* const fix =
      "delete old run logs and .mid files, each only together with its .err or .orig; or give the "
      "file system more room";
  if (free == 0 || (room.f_files > 0 && room.f_favail == 0)) {
    findings.Error(folder, 0, free == 0 ? "its file system is full" : "no inode is left", fix);
  } else if (free < kScarceBytes) {
    findings.Warning(folder, 0, Format("only %llu MiB are free", 0ULL + (free >> 20)), fix);
  }
}

// The check of one database's folder.
class FolderChecker {
 public:
  FolderChecker(const DatabaseFolder& folder, const std::set<std::string>& kinds,
                const Dialect& dialect, Findings& findings)
      : m_folder(folder), m_kinds(kinds), m_dialect(dialect), m_findings(findings) {}

  void Run() {
    if (m_folder.error != 0) {
      m_findings.Error(m_folder.Path(), 0,
                       std::string("cannot be listed: ") + std::strerror(m_folder.error),
                       "a folder that the service's user may read, write and pass through");
      return;
    }
    // A rename changes the folder, so that its mode decides and not that of the file.
    if (access(m_folder.Path().c_str(), W_OK | X_OK) != 0) {
      m_findings.Warning(m_folder.Path(), 0, "this user cannot rename files in it",
                         "run check as the service's user; if it is that user, chown the folder");
    }
    for (const SpoolEntry& file : m_folder.files) {
      if (file.state == FileState::kOther) CheckStranger(file);
      if (file.state == FileState::kWaiting) CheckWaiting(file);
    }
  }

 private:
  // A file that nobody takes.
  void CheckStranger(const SpoolEntry& file) {
    const char* const fault = WhyNeverTaken(file);
    if (fault == nullptr) return;
    m_findings.Warning(m_folder.Path() + file.name, 0, std::string("is never taken: ") + fault,
                       "rename it: id-table-YYYYMMDD-HHMMSS.dat, see mem-file.md");
  }

  // A file that waits: whether the service will refuse it, in the order of the service's own tests.
  void CheckWaiting(const SpoolEntry& entry) {
    const MemFile file = MemFile::Parse(m_folder.Path() + entry.name);
    const auto fails = [&](const std::string& what, const std::string& fix) {
      m_findings.Error(file.path, 0, what + "; it will become .err", fix);
    };
    if (!entry.IsRegular()) return fails("is no regular file", "find out who made it; remove it");
    const NameRefusal refusal = file.Refusal();
    if (refusal == NameRefusal::kNoTable) {
      return fails("has no usable table in its name", "rename it");
    }
    if (refusal != NameRefusal::kNone) {
      return fails("has a character in its name that could change a statement",
                   "find out who made it; rename it if its content is sound");
    }
    CheckNames(file);
    if (access(file.path.c_str(), R_OK) != 0 && (entry.status.st_mode & S_IROTH) == 0) {
      m_findings.Warning(file.path, 0, "another user's file that not everybody may read",
                         "let the producer make files of mode 0644");
    }
  }

  // Whether somebody wants what the name says: the database, the kind and the date.
  void CheckNames(const MemFile& file) {
    if (file.database != m_folder.Database()) {
      m_findings.Warning(file.path, 0, "goes to database " + file.database + " by its name",
                         "a file's name begins with the name of its folder");
    }
    const std::string kind = file.Kind();
    // Definitions that could not be read have no kinds, and a finding of their own.
    if (!m_kinds.empty() && m_kinds.count(kind) == 0) {
      m_findings.Error(file.path, 0,
                       "is of kind " + kind + ", which is not defined; it will become .err",
                       "add the kind to the table definitions, or tell the producer");
    }
    if (!file.table.starts_with("MEM_") || !ULIT::isValidDate(file.Date().c_str())) {
      m_findings.Warning(file.path, 0, "its table " + file.table + " has no date behind MEM_",
                         "name the table MEM_YYYYMMDD_HHMMk: mid tables get their date from it");
    } else if (m_dialect.LoadsOverExternalTables() && LoaderSelector(file.table).empty()) {
      m_findings.Error(file.path, 0, "its table has less than 18 characters; it will become .err",
                       "name the table MEM_YYYYMMDD_HHMMk");
    }
  }

  const DatabaseFolder& m_folder;
  const std::set<std::string>& m_kinds;
  const Dialect& m_dialect;
  Findings& m_findings;
};

}  // namespace

// What is found here is true at this moment only: the service may take a file between two looks.
void CheckSpool(const Spool& spool, const DefinitionSet& definitions, const Dialect& dialect,
                Findings& findings) {
  if (spool.error != 0) {
    findings.Error(paths::kSpool, 0, std::string("cannot be listed: ") + std::strerror(spool.error),
                   "make it, for the producers to write in and the service's user to read");
    return;
  }
  CheckRoom(paths::kSpool, findings);
  for (const std::string& other : spool.others) {
    findings.Warning(paths::kSpool + other, 0, "is never looked at",
                     "folders of mem files have 8 hexadecimal digits for a name");
  }
  const std::set<std::string> kinds = definitions.MemKinds();
  for (const DatabaseFolder& folder : spool.folders) {
    FolderChecker(folder, kinds, dialect, findings).Run();
  }
  if (access(paths::kNoRewriteFlag, F_OK) == 0) {
    findings.Warning(paths::kNoRewriteFlag, 0,
                     "a service started now loads files of kind F without local flags",
                     "remove it and restart the service, unless you mean it");
  }
}

void CheckRunLogFolder(Findings& findings) {
  struct stat status {};
  if (stat(paths::kRunLogDir, &status) != 0) {
    findings.Warning(paths::kRunLogDir, 0, std::strerror(errno),
                     "make it for the service's user; without it the unit does not start");
    return;
  }
  if (!S_ISDIR(status.st_mode) || access(paths::kRunLogDir, W_OK | X_OK) != 0) {
    findings.Warning(paths::kRunLogDir, 0, "this user cannot write in it",
                     "let the service's user write there; without it there is no run log");
  }
  CheckRoom(paths::kRunLogDir, findings);
}

}  // namespace ctl
