#include "midtable/oracle_loading.h"

#include <fcntl.h>
#include <paths.h>
#include <spawn.h>
#include <unistd.h>

#include <iterator>

#include "config/XmlStream.h"
#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/file.h"
#include "support/names.h"
#include "support/paths.h"
#include "tables/loader_templates.h"
#include "tables/template_values.h"

namespace {

// The attribute's value that picks the templates of a mem table; logged where there is none.
std::string SelectorOf(const std::string& table) {
  std::string selector = LoaderSelector(table);
  if (selector.empty()) g_loger(kUnit, __LINE__, kError, "table name is error %s", table.c_str());
  return selector;
}

// The file is read anew for each statement: an operator may mend a template while the service runs.
std::string ReadLoaderTemplate(const char* node, const std::string& selector) {
  return ReadTemplate(paths::kLoaderTemplates, node, kTableAttribute, selector);
}

// The statement as printf would show it: doubled percent signs read as one. There are no values to
// give, so a statement that asks for some is shown as it stands.
void LogAsFormat(const std::string& statement) {
  const FilledTemplate shown = FillTemplate(statement, {});
  g_loger(kUnit, __LINE__, kConsole, "%s", (shown ? shown.text : statement).c_str());
}

// What is wrong with a loader template, and where it stands.
std::string Located(const std::string& error, const char* node) {
  return error + ", see " + node + " of " + paths::kLoaderTemplates;
}

// A template that does not fit is reported with its place in the file, a statement that fails with
// the words of the server.
bool RunLoaderTemplate(Store& store, const char* node, const std::string& text,
                       const TemplateValues& values) {
  const FilledTemplate filled = FillTemplate(text, values);
  if (filled) LogAsFormat(filled.text);
  if (filled && store.Execute(filled.text)) return true;
  g_loger(kUnit, __LINE__, kError, "sql error %s",
          (filled ? store.LastError() : Located(filled.error, node)).c_str());
  return false;
}

bool RunShown(Store& store, const std::string& statement) {
  g_loger(kUnit, __LINE__, kConsole, "sql is %s", statement.c_str());
  if (store.Execute(statement)) return true;
  g_loger(kUnit, __LINE__, kError, "sql error %s", store.LastError().c_str());
  return false;
}

std::string JoinColumns(const std::vector<std::string>& columns) {
  std::string list = "(";
  for (const std::string& column : columns) {
    if (list.size() > 1) list += ", ";
    list += column;
  }
  return list + ")";
}

// Starts a shell command without waiting for it. The output of the command goes nowhere: a closed
// pipe would be an error in the middle of its work.
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

// Reads the control file's template; false when the file of templates cannot be used.
bool ReadControlTemplate(std::string& text) {
  CXmlStream xml;
  if (!xml.parseFile(paths::kLoaderTemplates)) {
    g_loger(kUnit, __LINE__, kError, "xml file %s: %s", paths::kLoaderTemplates,
            xml.getError().c_str());
    g_loger(kUnit, __LINE__, kError, "parse xml file %s failed", paths::kLoaderTemplates);
    return false;
  }
  const CXmlNode node = xml.getNode(kControlFileNode);
  if (!node) {
    g_loger(kUnit, __LINE__, kConsole, "getNode:%s failed", kControlFileNode);
    return false;
  }
  text = FindByAttribute(node, kTableAttribute, kAllTables).getContent();
  return true;
}

// A control file that cannot be opened is reported and does not keep the tool from being started.
// The other steps are taken all the same, since each of them writes lines to the log.
bool WriteControlFile(Store& store, const std::string& table, const std::string& data_file) {
  FileDescriptor control = CreateRegular(paths::kLoaderControlFile, O_WRONLY | O_TRUNC, 0640);
  if (!control) {
    g_loger(kUnit, __LINE__, kError, "%s file open failed", paths::kLoaderControlFile);
  }
  std::string text;
  if (!ReadControlTemplate(text)) return false;
  std::vector<std::string> columns;
  if (!store.ColumnsOf(table, columns)) {
    g_loger(kUnit, __LINE__, kError, "getlast error %s", store.LastError().c_str());
    return false;
  }
  const std::string list = JoinColumns(columns);
  g_loger(kUnit, __LINE__, kConsole, "load ctl  %s", text.c_str());
  g_loger(kUnit, __LINE__, kConsole, "colums ctl  %s", list.c_str());
  if (!control) return true;

  const FilledTemplate filled = FillTemplate(text, ControlFileValues(data_file, table, list));
  if (!filled) {
    g_loger(kUnit, __LINE__, kError, "load ctl error %s",
            Located(filled.error, kControlFileNode).c_str());
    return false;
  }
  const ssize_t written = write(control.get(), filled.text.data(), filled.text.size());
  if (written == std::ssize(filled.text) && close(control.release()) == 0) return true;
  g_loger(kUnit, __LINE__, kError, "%s file write failed", paths::kLoaderControlFile);
  return false;
}

}  // namespace

// The folder is declared for every file, also where it is known: a template may do more than that.
bool CreateExternalTable(Store& store, const MemFile& file) {
  const std::string selector = SelectorOf(file.table);
  if (selector.empty()) return false;
  const std::string directory = ReadLoaderTemplate(kDirectoryNode, selector);
  const TemplateValues directory_values = DirectoryValues(file.database);
  if (directory.empty() || directory_values.empty()) return false;
  if (!RunLoaderTemplate(store, kDirectoryNode, directory, directory_values)) return false;

  const std::string create = ReadLoaderTemplate(kExternalTableNode, selector);
  if (create.empty()) return false;
  if (file.path.find('/') == std::string::npos) {
    g_loger(kUnit, __LINE__, kError, "path error %s", file.path.c_str());
    return false;
  }
  return RunLoaderTemplate(
      store, kExternalTableNode, create,
      ExternalTableValues(file.database, file.table, std::string(FileNameOf(file.path))));
}

// The external table goes only after its rows were copied. One that could not be dropped counts as
// a failed load, although the rows are in: loading its file again would find it pointing at the
// file.
bool LoadOverExternalTable(Store& store, const MemFile& file) {
  const Presence there = store.FindTable(file.table, file.database);
  if (there == Presence::kUnknown) return false;
  if (there == Presence::kAbsent) {
    g_loger(kUnit, __LINE__, kError, "table %s not exist", file.table.c_str());
    return false;
  }
  const std::string selector = SelectorOf(file.table);
  if (selector.empty()) return false;
  const std::string merge = ReadLoaderTemplate(kMergeNode, selector);
  if (merge.empty()) {
    g_loger(kUnit, __LINE__, kError, "get xml error");
    return false;
  }
  // Nothing of the merge may be missing or cut: the external table is dropped afterwards, and with
  // it the only way to the rows of the file.
  const FilledTemplate filled = FillTemplate(merge, MergeValues(file.database, file.table));
  if (!filled) {
    g_loger(kUnit, __LINE__, kError, "sql error %s", Located(filled.error, kMergeNode).c_str());
    return false;
  }
  if (!RunShown(store, filled.text)) return false;
  const std::string external = file.database + "." + ExternalTable(file.table);
  if (RunShown(store, "drop table " + external)) return true;
  g_loger(kUnit, __LINE__, kError, "table %s not dropped, the rows of file (%s) are loaded",
          external.c_str(), file.path.c_str());
  return false;
}

// The tool is given no time limit and nobody waits for its end: it loads on its own, and its exit
// status is not known here.
bool StartLoaderTool(Store& store, const std::string& table, const std::string& user,
                     const std::string& password, const std::string& data_file) {
  if (!WriteControlFile(store, table, data_file)) return false;
  const std::string command =
      Format("$ORACLE_HOME/bin/sqlldr %s/%s control=%s errors=-1 bad=/dev/null", user.c_str(),
             password.c_str(), paths::kLoaderControlFile);
  if (StartCommand(command)) return true;
  g_loger(kUnit, __LINE__, kError, "load error %s", command.c_str());
  return false;
}

// A file that cannot be parsed is an error, a path that it lacks is none: which elements exist is
// up to the installation.
std::string ReadTemplate(const std::string& file, const std::string& path,
                         const std::string& attribute, const std::string& value) {
  CXmlStream xml;
  if (!xml.parseFile(file)) {
    g_loger(kUnit, __LINE__, kError, "xml file %s: %s", file.c_str(), xml.getError().c_str());
    g_loger(kUnit, __LINE__, kError, "parse xml file %s failed", file.c_str());
    return {};
  }
  const CXmlNode node = xml.getNode(path);
  if (!node) {
    g_loger(kUnit, __LINE__, kConsole, "getNode:%s failed", path.c_str());
    return {};
  }
  if (attribute.empty() || value.empty()) return node.getContent();
  const auto log = [&value](const std::string& found) {
    g_loger(kUnit, __LINE__, kConsole, "curprop is <%s> wanted prop is <%s>", found.c_str(),
            value.c_str());
  };
  return FindByAttribute(node, attribute, value, log).getContent();
}
