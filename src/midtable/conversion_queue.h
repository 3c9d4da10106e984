// The mem tables that wait for their conversion: those that files were loaded into, those that an
// earlier run of the service left filled, and those whose conversion failed and is tried again.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "spool/mem_file.h"
#include "support/file_identity.h"
#include "tables/store.h"

struct PendingConversion {
  MemFile file;  // under its ".dat" name; of rows that no known file brought, "database.table"
  bool is_retry = false;
  int broken_off = 0;  // how often the connection was lost during it
};

// Each mem table is in the line once, whatever device's folder its file came from. One thread.
class ConversionQueue {
 public:
  bool empty() const { return m_line.empty(); }
  std::size_t size() const { return m_line.size(); }
  // The next one; the reference ends with Done, Hold or PutOff.
  const PendingConversion& front() const { return m_line.front(); }
  std::list<MemFile> files() const;

  // Puts the mem table of a loaded file to the end of the line, unless it stands there already,
  // which is logged, or holds rows of an earlier run that still wait for other files.
  void Add(const MemFile& file);
  // Looks for mem tables of `database` that hold rows, the first time that it is called for that
  // database, and puts them to the end of the line. Where files of such a table wait, they are
  // loaded first: the earlier run may have loaded one of them and been killed before the rename,
  // and only as long as its rows are there does the table's key refuse them a second time. The
  // table gets into the line with the first call after the last of these files is gone.
  // `waiting` gives the paths of the files that wait for a mem table. False when the connection
  // was lost: the next call asks again.
  using Waiting = std::function<std::vector<std::string>(const MemFile& table)>;
  bool AddLeftRows(Store& store, const std::string& database, const Waiting& waiting);
  // Adds the held conversions that are due. `definitions`: the path of the table definitions; `now`
  // is that of a steady clock.
  void AddDue(const char* definitions, std::chrono::nanoseconds now);

  // The three ends of the conversion in front: its rows are in the mid tables.
  void Done();
  // It failed: held until the definitions change and, where the reason was the server's, a minute.
  void Hold(bool by_server, const char* definitions, std::chrono::nanoseconds now);
  // The connection was lost during it: it stays in front. False when that has happened so often
  // that the conversion itself may be what ends the connection.
  bool PutOff();

  // One line in the run log for each mem table that is left filled.
  void LogLeft() const;

 private:
  struct Held {
    MemFile file;
    bool by_server;
    std::optional<FileIdentity> definitions;
    std::chrono::nanoseconds since;
  };
  // The rows of an earlier run, and the files that are loaded before they are converted.
  struct Left {
    MemFile table;
    std::vector<std::string> files;
  };
  bool Holds(const MemFile& file) const;
  bool IsLeft(const MemFile& file) const;

  std::list<PendingConversion> m_line;
  std::list<Left> m_left;
  std::map<std::string, Held> m_held;  // by qualified name of the mem table
  std::set<std::string> m_searched;    // databases
};
