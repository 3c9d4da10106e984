#include "midtable/loading.h"

#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "midtable/mem_table_creation.h"
#include "midtable/oracle_loading.h"
#include "midtable/rewriting.h"
#include "spool/rewritten_mark.h"
#include "support/file.h"
#include "support/names.h"

namespace {

// The server runs as another user and opens the file by itself, and producers make files with modes
// of all kinds.
constexpr mode_t kServerReadable = 0755;

// Anything but a regular file is never opened: a FIFO would block the service for good, and a link
// could make the server read, and everyone else see, any file of the machine.
bool IsRegularFile(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    g_loger(kUnit, __LINE__, kError, "file (%s) stat error(%d)", path.c_str(), errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    g_loger(kUnit, __LINE__, kError, "file (%s) is not a regular file, refused", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

void OpenToServer(const std::string& path) {
  struct stat status {};
  // The opened file is changed, not its path: what has taken the name meanwhile is neither followed
  // nor changed. Whether something has is for the caller to find out.
  const FileDescriptor file = OpenRegular(path, status);
  if (!file || fchmod(file.get(), kServerReadable | (status.st_mode & kRewrittenMark)) != 0) {
    g_loger(kUnit, __LINE__, kDebug, "file (%s) mode not set errno (%d)", path.c_str(), errno);
  }
}

MemFileLoading::MemFileLoading(Store& store, TourLocalUser& registry, NotEmptied& not_emptied,
                               bool rewrites, MemFile file)
    : m_store(store),
      m_registry(registry),
      m_not_emptied(not_emptied),
      m_rewrites(rewrites),
      m_file(std::move(file)) {}

// The order of the steps is that of the statements and of the run log's lines. What an earlier step
// has made stays when a later one fails: the next file needs all of that too.
bool MemFileLoading::Run() {
  if (!HasUsableName() || !IsRegularFile(m_file.path)) return false;
  if (!m_store.PrepareDatabase(m_file.database)) return false;
  const Presence there = m_store.FindTable(m_file.table, m_file.database);
  if (there == Presence::kUnknown) return false;
  const bool has_table =
      there == Presence::kPresent || CreateMemTable(m_store, m_file.table, m_file.database);
  if (!PrepareExternalTable()) return false;
  if (!has_table) {
    g_loger(kUnit, __LINE__, kError, "table (%s) create failed not load", m_file.table.c_str());
    return false;
  }
  if (!RemoveConvertedRows()) return false;
  OpenToServer(m_file.path);
  if (m_file.HasLocalFlags() && m_rewrites) RewriteOnce();
  // The server opens the path by itself, so what stands there is looked at once more, as late as
  // possible.
  if (!IsRegularFile(m_file.path)) return false;
  m_handed_over = IdentityOf(m_file.path);
  if (!LoadRows()) {
    m_got_no_answer = m_store.LastFailure() == SqlFailure::kConnection;
    g_loger(kUnit, __LINE__, kError, "ret (%d) (%s)", 0, m_store.LastError().c_str());
    return false;
  }
  g_loger(kUnit, __LINE__, kDebug, "load table (%s.%s) success", m_file.database.c_str(),
          m_file.table.c_str());
  return true;
}

// Each reason has a line of its own, which tells the producer what to mend. A name that is refused
// here never gets into a statement.
bool MemFileLoading::HasUsableName() const {
  if (m_file.path.empty()) {
    g_loger(kUnit, __LINE__, kError, "file name is null");
    return false;
  }
  const std::string path = Printable(m_file.path);
  const auto missing = [&path](const char* item) {
    g_loger(kUnit, __LINE__, kError, "file (%s) %s is null", path.c_str(), item);
    return false;
  };
  switch (m_file.Refusal()) {
    case NameRefusal::kNone:
      return true;
    case NameRefusal::kNoPath:
      return missing("path");
    case NameRefusal::kNoDatabase:
      return missing("dbname");
    case NameRefusal::kNoTable:
      return missing("tablename");
    case NameRefusal::kUnsafe:
      break;
  }
  g_loger(kUnit, __LINE__, kError, "file (%s) name is not safe in a statement, refused",
          path.c_str());
  return false;
}

// DELIBERATE: asked on every kind of server. On MySQL there is no such table and the loader
// templates are empty, so nothing comes of it but a look.
bool MemFileLoading::PrepareExternalTable() {
  const std::string external = ExternalTable(m_file.table);
  const Presence there = m_store.FindTable(external, m_file.database);
  if (there == Presence::kUnknown) return false;
  if (there == Presence::kAbsent) {
    // The result is not looked at: without the external table the loading fails by itself.
    CreateExternalTable(m_store, m_file);
    return true;
  }
  const std::string statement = "alter table " + m_file.database + "." + external + " location('" +
                                std::string(FileNameOf(m_file.path)) + "')";
  if (m_store.Execute(statement)) return true;
  g_loger(kUnit, __LINE__, kError, "sql (%s) ret (%d) (%s)", statement.c_str(), -1,
          m_store.LastError().c_str());
  return false;
}

// Rows that an earlier conversion has counted already may still be in the mem table when the server
// could not empty it. Loading more rows beside them would have the old ones counted twice.
bool MemFileLoading::RemoveConvertedRows() {
  const std::string table = m_file.QualifiedTable();
  if (m_not_emptied.Empty(m_store, table)) return true;
  g_loger(kUnit, __LINE__, kError, "table (%s) still holds converted rows not load", table.c_str());
  return false;
}

// The mark tells a file whose copy took its place before a crash: rewritten again, every record
// would have a field too many and be dropped.
void MemFileLoading::RewriteOnce() {
  struct stat status {};
  if (lstat(m_file.path.c_str(), &status) == 0 && (status.st_mode & kRewrittenMark) != 0) {
    g_loger(kUnit, __LINE__, kInfo, "file (%s) is rewritten already", m_file.path.c_str());
  } else if (!RewriteMemFile(m_file.path, m_registry)) {
    g_loger(kUnit, __LINE__, kError, "convert file (%s) failed", m_file.table.c_str());
  }
}

// On Oracle the server reads the file through an external table whose rows are then copied, since
// there is no statement that loads a file.
bool MemFileLoading::LoadRows() {
  if (m_store.dialect().LoadsOverExternalTables()) return LoadOverExternalTable(m_store, m_file);
  return m_store.Execute(m_store.dialect().LoadStatement(m_file.path, m_file.QualifiedTable()));
}

// The server reads the path by itself, at its own time. A new file of the name must not be renamed
// as if its rows were loaded; a changed one must not be loaded again, since most of its rows are.
bool MemFileLoading::WasReplaced() const {
  const auto now = IdentityOf(m_file.path);
  if (!now || !m_handed_over || *now == *m_handed_over) return false;
  const bool same = now->IsSameFile(*m_handed_over);
  g_loger(kUnit, __LINE__, kError, "file (%s) was %s", m_file.path.c_str(),
          same ? "written to while it was loaded, rows may be missing"
               : "replaced while it was loaded, the new one waits");
  return !same;
}
