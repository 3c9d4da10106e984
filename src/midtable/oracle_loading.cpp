// The two roads of a mem file into an Oracle mem table: over an external table, which the service
// takes, and through the loader tool.

#include <fcntl.h>
#include <paths.h>
#include <spawn.h>
#include <unistd.h>

#include <cstdio>

#include "config/XmlStream.h"
#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtable/mem_file_name.h"
#include "midtable/unit.h"
#include "support/database_name.h"
#include "support/file.h"
#include "support/paths.h"

namespace {

constexpr std::size_t kKindPosition = 17;

// The attribute that picks a mem table's loader templates; its value is empty for a name that is
// too short to have a kind there.
std::pair<std::string, std::string> TemplateSelector(const std::string& table) {
  const std::string kind = TextAt(table, kKindPosition, 1);
  if (kind.empty()) {
    g_loger(kUnit, __LINE__, kError, "table name is error %s", table.c_str());
    return {};
  }
  return {"table", "MEM_" + kind};
}

// The statement as printf would show it: doubled percent signs read as one. It has no values to
// give, so a statement that asks for some is shown as it stands.
void LogAsFormat(const std::string& statement) {
  const FilledTemplate shown = FillTemplate(statement, {});
  g_loger(kUnit, __LINE__, kConsole, "%s", (shown ? shown.text : statement).c_str());
}

// What is wrong with a loader template, and where it stands.
std::string Located(const std::string& error, const char* node) {
  return error + ", see " + node + " of " + paths::kLoaderTemplates;
}

std::string JoinColumns(const std::vector<std::string>& columns) {
  std::string list = "(";
  for (const std::string& column : columns) {
    if (list.size() > 1) list += ", ";
    list += column;
  }
  return list + ")";
}

// The text of the first loader control template for all tables; empty when there is none.
std::string ControlTemplate(CXmlNode node) {
  for (; node; node = node.next()) {
    std::string table;
    node.getProp("table", table);
    if (table == "all") return node.getContent();
  }
  return {};
}

// Starts a shell command without waiting for it. Its output goes nowhere: a closed pipe would be an
// error in the middle of its work.
bool StartCommand(const std::string& command) {
  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return false;
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, _PATH_DEVNULL, O_WRONLY, 0);
  std::string shell = "sh";
  std::string option = "-c";
  std::string line = command;
  char* const arguments[] = {shell.data(), option.data(), line.data(), nullptr};
  pid_t child = 0;
  const int error = posix_spawn(&child, _PATH_BSHELL, &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0;
}

}  // namespace

int CMidTable::CreateOneExternalMemTable(const std::string& table, const std::string& database,
                                         const std::string& path) {
  const auto selector = TemplateSelector(table);
  if (selector.second.empty()) return 0;
  const auto run = [this](const char* node, const std::string& text,
                          std::span<const TemplateValue> values) {
    const FilledTemplate filled = FillTemplate(text, values);
    if (filled) LogAsFormat(filled.text);
    if (filled && Execute(filled.text)) return true;
    g_loger(kUnit, __LINE__, kError, "sql error %s",
            (filled ? m_pSqlBase->getLastError() : Located(filled.error, node)).c_str());
    return false;
  };

  constexpr char kDirectory[] = "/root/external_load/create_memdir";
  const std::string directory = GetXMLFields(paths::kLoaderTemplates, kDirectory, selector);
  if (directory.empty() || database.size() <= kDatabasePrefix.size()) return 0;
  const TemplateValue directory_values[] = {database, database.substr(kDatabasePrefix.size())};
  if (!run(kDirectory, directory, directory_values)) return 0;

  constexpr char kTable[] = "/root/external_load/create_table";
  const std::string create = GetXMLFields(paths::kLoaderTemplates, kTable, selector);
  if (create.empty()) return 0;
  if (path.find('/') == std::string::npos) {
    g_loger(kUnit, __LINE__, kError, "path error %s", path.c_str());
    return 0;
  }
  const TemplateValue table_values[] = {database + "." + table + "_external", database,
                                        std::string(FileNameOf(path))};
  return run(kTable, create, table_values) ? 1 : 0;
}

int CMidTable::ExternalLoadOneMemFile(const std::string& table, const std::string& database,
                                      const std::string& path) {
  if (!TableExist(table, database)) {
    g_loger(kUnit, __LINE__, kError, "table %s not exist", table.c_str());
    return 0;
  }
  const auto selector = TemplateSelector(table);
  if (selector.second.empty()) return 0;
  constexpr char kMerge[] = "/root/external_merge";
  const std::string merge = GetXMLFields(paths::kLoaderTemplates, kMerge, selector);
  if (merge.empty()) {
    g_loger(kUnit, __LINE__, kError, "get xml error");
    return 0;
  }
  const auto run = [this](const std::string& statement) {
    g_loger(kUnit, __LINE__, kConsole, "sql is %s", statement.c_str());
    if (Execute(statement)) return true;
    g_loger(kUnit, __LINE__, kError, "sql error %s", m_pSqlBase->getLastError().c_str());
    return false;
  };
  const std::string mem_table = database + "." + table;
  const std::string external = mem_table + "_external";
  const TemplateValue values[] = {mem_table, external};
  const FilledTemplate filled = FillTemplate(merge, values);
  if (!filled) {
    g_loger(kUnit, __LINE__, kError, "sql error %s", Located(filled.error, kMerge).c_str());
    return 0;
  }
  if (!run(filled.text)) return 0;
  if (run("drop table " + external)) return 1;
  g_loger(kUnit, __LINE__, kError, "table %s not dropped, the rows of file (%s) are loaded",
          external.c_str(), path.c_str());
  return 0;
}

int CMidTable::OracleLoadOneTable(const std::string& table, const std::string& user,
                                  const std::string& dataFile) {
  if (!WriteControlFile(table, dataFile)) return 0;
  const std::string command =
      Format("$ORACLE_HOME/bin/sqlldr %s/%s control=%s errors=-1 bad=/dev/null", user.c_str(),
             ProcessPolicy().getDBPolicy()->password.c_str(), paths::kLoaderControlFile);
  if (StartCommand(command)) return 1;
  g_loger(kUnit, __LINE__, kError, "load error %s", command.c_str());
  return 0;
}

bool CMidTable::WriteControlFile(const std::string& table, const std::string& dataFile) {
  File control(std::fopen(paths::kLoaderControlFile, "w+"));
  if (control == nullptr) {
    g_loger(kUnit, __LINE__, kError, "%s file open failed", paths::kLoaderControlFile);
  }
  CXmlStream xml;
  if (!xml.parseFile(paths::kLoaderTemplates)) {
    g_loger(kUnit, __LINE__, kError, "xml file %s: %s", paths::kLoaderTemplates,
            xml.getError().c_str());
    g_loger(kUnit, __LINE__, kError, "parse xml file %s failed", paths::kLoaderTemplates);
    return false;
  }
  constexpr char kNode[] = "/root/sqlldr_ctl";
  const CXmlNode node = xml.getNode(kNode);
  if (!node) {
    g_loger(kUnit, __LINE__, kConsole, "getNode:%s failed", kNode);
    return false;
  }
  const std::string text = ControlTemplate(node);
  std::vector<std::string> columns;
  if (m_pSqlBase->GetColums(table.c_str(), columns) != 1) {
    g_loger(kUnit, __LINE__, kError, "getlast error %s", m_pSqlBase->getLastError().c_str());
    return false;
  }
  const std::string list = JoinColumns(columns);
  g_loger(kUnit, __LINE__, kConsole, "load ctl  %s", text.c_str());
  g_loger(kUnit, __LINE__, kConsole, "colums ctl  %s", list.c_str());
  if (control == nullptr) return true;

  const TemplateValue values[] = {dataFile, table, list};
  const FilledTemplate filled = FillTemplate(text, values);
  if (!filled) {
    g_loger(kUnit, __LINE__, kError, "load ctl error %s", Located(filled.error, kNode).c_str());
    return false;
  }
  const bool written = std::fputs(filled.text.c_str(), control.get()) >= 0;
  if (std::fclose(control.release()) == 0 && written) return true;
  g_loger(kUnit, __LINE__, kError, "%s file write failed", paths::kLoaderControlFile);
  return false;
}
