// Loading queued mem files into their mem tables.

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <iterator>

#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"
#include "support/file.h"

namespace {

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

// Lets the database server read the file, keeping the mark of a rewritten one. Works on the opened
// file, so that what has taken its place meanwhile is neither followed nor changed; that is for the
// caller to find out. Where the mode cannot be set, the server decides.
void OpenToServer(const std::string& path) {
  struct stat status {};
  const FileDescriptor file = OpenRegular(path, status);
  if (!file || fchmod(file.get(), kServerReadable | (status.st_mode & kRewrittenMark)) != 0) {
    g_loger(kUnit, __LINE__, kDebug, "file (%s) mode not set errno (%d)", path.c_str(), errno);
  }
}

}  // namespace

bool CMidTable::LoadMemFiles() {
  if (m_lstMemFile.empty()) return false;
  while (!m_lstMemFile.empty()) {
    const std::string path = m_lstMemFile.front();
    m_lstMemFile.pop_front();
    if (!LoadOneMemFile(path)) {
      RemoveOneMemFile(path, ".err");
      return false;
    }
    AddToConvert(path);
    if (!WasReplaced(path)) RemoveOneMemFile(path, ".mid");
  }
  return true;
}

bool CMidTable::LoadOneMemFile(const std::string& path) {
  MemFile file;
  m_loaded.reset();
  if (!IdentifyMemFile(path, file)) return false;
  if (!PrepareDatabase(file.database)) return false;
  const bool has_table =
      TableExist(file.table, file.database) || CreateOneMemTable(file.table, file.database);
  if (!PrepareExternalTable(file)) return false;
  if (!has_table) {
    g_loger(kUnit, __LINE__, kError, "table (%s) create failed not load", file.table.c_str());
    return false;
  }
  if (!RemoveConvertedRows(file.database + "." + file.table)) return false;
  OpenToServer(file.path);
  if (file.table.back() == 'F' && !isFConvert()) RewriteOnce(file);
  // The server opens the path by itself: looked at again as late as can be.
  if (!IsRegularFile(file.path)) return false;
  m_loaded = IdentityOf(file.path);
  if (!LoadRows(file)) {
    g_loger(kUnit, __LINE__, kError, "ret (%d) (%s)", 0, m_pSqlBase->getLastError().c_str());
    return false;
  }
  g_loger(kUnit, __LINE__, kDebug, "load table (%s.%s) success", file.database.c_str(),
          file.table.c_str());
  return true;
}

bool CMidTable::IdentifyMemFile(const std::string& path, MemFile& file) const {
  if (path.empty()) {
    g_loger(kUnit, __LINE__, kError, "file name is null");
    return false;
  }
  file = {GetItemFromName(path, "filepath"), GetItemFromName(path, "dbname"),
          GetItemFromName(path, "tablename")};
  const auto missing = [&path](const char* item) {
    g_loger(kUnit, __LINE__, kError, "file (%s) %s is null", Printable(path).c_str(), item);
    return false;
  };
  if (file.path.empty()) return missing("path");
  if (file.database.empty()) return missing("dbname");
  if (file.table.empty()) return missing("tablename");
  if (!IsSafePath(file.path) || !IsSafeIdentifier(file.database) || !IsSafeIdentifier(file.table)) {
    g_loger(kUnit, __LINE__, kError, "file (%s) name is not safe in a statement, refused",
            Printable(path).c_str());
    return false;
  }
  return IsRegularFile(file.path);
}

void CMidTable::RewriteOnce(const MemFile& file) {
  struct stat status {};
  if (lstat(file.path.c_str(), &status) == 0 && (status.st_mode & kRewrittenMark) != 0) {
    g_loger(kUnit, __LINE__, kInfo, "file (%s) is rewritten already", file.path.c_str());
  } else if (!ConvertMemF(file.path)) {
    g_loger(kUnit, __LINE__, kError, "convert file (%s) failed", file.table.c_str());
  }
}

bool CMidTable::WasReplaced(const std::string& path) const {
  const auto now = IdentityOf(path);
  if (!now || !m_loaded || *now == *m_loaded) return false;
  const bool same = now->IsSameFile(*m_loaded);
  g_loger(kUnit, __LINE__, kError, "file (%s) was %s", path.c_str(),
          same ? "written to while it was loaded, rows may be missing"
               : "replaced while it was loaded, the new one waits");
  return !same;
}

bool CMidTable::PrepareDatabase(const std::string& database) {
  if (m_pSqlBase->existDB(database.c_str())) return true;
  g_loger(kUnit, __LINE__, kConsole, "last err is %s", m_pSqlBase->getLastError().c_str());
  if (GetDBType()) return CreateOracleUser(database);
  if (Execute("create database " + database)) return true;
  g_loger(kUnit, __LINE__, kError, "create db %s error %s", database.c_str(),
          m_pSqlBase->getLastError().c_str());
  return false;
}

bool CMidTable::CreateOracleUser(const std::string& user) {
  const auto failed = [&](const char* action) {
    g_loger(kUnit, __LINE__, kError, "%s db %s error %s", action, user.c_str(),
            m_pSqlBase->getLastError().c_str());
    return false;
  };
  if (!IsSafePassword(NewUserPassword())) {
    g_loger(kUnit, __LINE__, kError, "user %s not made, set_password is not safe in a statement",
            user.c_str());
    return false;
  }
  const std::string identified = user + " identified by " + NewUserPassword();
  if (!Execute("create user " + identified)) {
    failed("create");
    // The user may exist with another password.
    if (!Execute("alter user " + identified)) return failed("alter");
  }
  return Execute("grant dba to " + user) || failed("grant");
}

bool CMidTable::PrepareExternalTable(const MemFile& file) {
  const std::string external = file.table + "_external";
  if (!TableExist(external, file.database)) {
    CreateOneExternalMemTable(file.table, file.database,
                              file.path);  // where it fails, loading does
    return true;
  }
  if (file.path.find('/') == std::string::npos) {
    g_loger(kUnit, __LINE__, kError, "path error %s", file.path.c_str());
    return false;
  }
  const std::string statement = "alter table " + file.database + "." + external + " location('" +
                                std::string(FileNameOf(file.path)) + "')";
  const int result = m_pSqlBase->executeSQL(statement.c_str(), 1);
  if (result == 0) return true;
  g_loger(kUnit, __LINE__, kError, "sql (%s) ret (%d) (%s)", statement.c_str(), result,
          m_pSqlBase->getLastError().c_str());
  return false;
}

bool CMidTable::LoadRows(const MemFile& file) {
  if (GetDBType()) return ExternalLoadOneMemFile(file.table, file.database, file.path) == 1;
  return Execute(Format("load data infile \"%s\" ignore into table %s.%s", file.path.c_str(),
                        file.database.c_str(), file.table.c_str()));
}

bool CMidTable::AddToConvert(const std::string& path) {
  const std::string table = GetItemFromName(path, "tablename");
  // DELIBERATE: only table names are compared, not databases.
  for (auto entry = m_lstConvert.rbegin(); entry != m_lstConvert.rend(); ++entry) {
    if (GetItemFromName(*entry, "tablename") == table) {
      g_loger(kUnit, __LINE__, kDebug, "file (%s) conflict with (%s)", path.c_str(),
              entry->c_str());
      return true;
    }
  }
  m_lstConvert.push_back(path);
  return true;
}

void CMidTable::RemoveOneMemFile(const std::string& path, const std::string& suffix) {
  const std::string file = GetItemFromName(path, "filepath");
  if (file.empty()) return;
  const std::string renamed = file.substr(0, file.rfind('.')) + suffix;
  if (MoveMemFile(file, renamed)) return;
  g_loger(kUnit, __LINE__, kError, "file (%s) rename to (%s) failed errno (%d)",
          Printable(file).c_str(), Printable(renamed).c_str(), errno);
  m_settled.Add(file, renamed, m_loaded);
}

bool CMidTable::MysqlLoadOneTable(const std::string& tablename, const std::string& dbname,
                                  const std::string& path) {
  const std::string statement = Format("load data infile  %s into table %s.%s", path.c_str(),
                                       dbname.c_str(), tablename.c_str());
  OpenToServer(path);
  if (Execute(statement)) {
    g_loger(kUnit, __LINE__, kDebug, "load %s success", path.c_str());
    return true;
  }
  g_loger(kUnit, __LINE__, kDebug, "load %s failed", path.c_str());
  g_loger(kUnit, __LINE__, kError, "load table sql %s", statement.c_str());
  g_loger(kUnit, __LINE__, kError, "load table last error %s", m_pSqlBase->getLastError().c_str());
  return false;
}
