// The page that `midtablectl status --html` writes: one look at everything, for people who look at
// a screen and not at a terminal.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "midtablectl/page/failures.h"
#include "midtablectl/page/history.h"
#include "midtablectl/state_file.h"
#include "midtablectl/status.h"

namespace ctl {

// All that the page shows.
struct Page {
  SystemStatus status;
  History history;
  Failures failures;
  std::optional<ServiceState> service;  // what a service that runs tells of itself
  // What is wrong with the list of local users, which no file waits for.
  std::vector<LogEntry> registry_errors;
  std::string host;
  std::string history_note;  // what became of a history that could not be used
  std::string totals_error;  // why the totals of the mid tables are not those of this moment
};

// The page as a document (page_report.cpp).
std::string ToHtml(const Page& page);

// Makes the page of a look that was taken a moment ago, and replaces the file `path` in one
// step; the file beside it too, in which the history is kept. What is lost of the history is told
// in a line. False, with errno, when the page could not be written.
bool WritePage(const std::string& path, const SystemStatus& status,
               const std::optional<MYSQLAUTH>& auth, Console& console);

}  // namespace ctl
