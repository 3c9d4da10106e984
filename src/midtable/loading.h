// Loading one mem file into its mem table.
#pragma once

#include <optional>
#include <string>

#include "localuser/tourlocaluser.h"
#include "midtable/not_emptied.h"
#include "spool/mem_file.h"
#include "support/file_identity.h"
#include "tables/store.h"

// Makes what is missing (database, mem table, external table), rewrites a file of kind F, and has
// the server load the file. The file keeps its name: renaming it is for the caller.
//
// An object loads one file, once; what it is given must outlive it.
class MemFileLoading {
 public:
  // `rewrites`: whether files of kind F get their local flags.
  MemFileLoading(Store& store, TourLocalUser& registry, NotEmptied& not_emptied, bool rewrites,
                 MemFile file);

  // Whether the rows are in the mem table; every failure is logged. The server may have taken rows
  // of a file that it refused in the end.
  bool Run();
  // The file that the server was told to load; nothing when it did not come to that.
  const std::optional<FileIdentity>& handedOver() const { return m_handed_over; }
  // Whether the connection was lost before the server said what became of the rows: it may have
  // taken them.
  bool gotNoAnswer() const { return m_got_no_answer; }
  // Whether another file has the name of the one that was loaded; logged, as is a change of that
  // one.
  bool WasReplaced() const;

 private:
  bool HasUsableName() const;
  bool PrepareExternalTable();
  bool RemoveConvertedRows();
  void RewriteOnce();
  bool LoadRows();

  Store& m_store;
  TourLocalUser& m_registry;
  NotEmptied& m_not_emptied;
  const bool m_rewrites;
  const MemFile m_file;
  std::optional<FileIdentity> m_handed_over;
  bool m_got_no_answer = false;
};

// Lets the database server read the file, keeping the mark of a rewritten one. Where the mode
// cannot be set, a line says so and the server decides.
void OpenToServer(const std::string& path);
