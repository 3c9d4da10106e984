#include "midtablectl/page/page.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "midtablectl/page/day_totals.h"
#include "midtablectl/page/row_counts.h"
#include "midtablectl/text.h"
#include "support/database_name.h"
#include "support/file.h"

namespace ctl {

namespace {

constexpr mode_t kForAll = 0644;

std::string HostName() {
  char name[256] = {};
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::string IdOf(const std::string& database) {
  return database.substr(std::min(kDatabasePrefix.size(), database.size()));
}

// What the page has to know of files one by one. Where the service tells the rest, these are the
// files that failed: other folders may be huge, and are not listed.
Spool SpoolOf(const Page& page) {
  if (!page.service) return ScanSpool();
  Spool spool;
  for (const DatabaseStatus& one : page.status.databases) {
    if (one.failed == 0) continue;
    spool.folders.push_back(ScanFolder(IdOf(one.database)));
  }
  return spool;
}

RowCounters CountersOf(const ServiceState& service) {
  RowCounters counters{service.started_at, {}};
  for (const DatabaseState& one : service.databases) {
    counters.rows[one.database] = one.loaded_rows;
  }
  return counters;
}

// The service's own counters know of files too that somebody deleted meanwhile. A service that
// tells nothing of itself leaves the files.
std::optional<RowCounts> NewRows(Page& page, const Spool& spool) {
  const std::time_t now = page.status.time;
  if (page.service) return RowsSince(CountersOf(*page.service), now, page.history);
  page.history.counters.reset();
  return RowsSince(page.history, spool, now);
}

// A server that did not answer a moment ago is not waited for once more.
std::string UpdateTotals(const std::optional<MYSQLAUTH>& auth, Page& page) {
  if (!page.status.server_error.empty()) return page.status.server_error;
  if (!auth) return "the settings cannot be used";
  return UpdateTotals(*auth, page.status.time, page.history);
}

}  // namespace

bool WritePage(const std::string& path, const SystemStatus& status,
               const std::optional<MYSQLAUTH>& auth, Console& console) {
  Page page;
  page.status = status;
  // Only where the look believed the service too: it may have ended since.
  if (status.by_service) page.service = ReadRunningState(status.pid);
  const Spool spool = SpoolOf(page);
  page.host = HostName();
  page.failures = GroupFailures(spool);
  page.registry_errors = RegistryErrors(status.time, page.failures.log_error);
  page.history = ReadHistory(path, page.history_note);
  if (!page.history_note.empty()) console.err << page.history_note << '\n';
  const std::optional<RowCounts> rows = NewRows(page, spool);
  AddLook(status, rows, page.history);
  page.totals_error = UpdateTotals(auth, page);
  const std::string history = HistoryPath(path);
  if (!ReplaceFile(history, ToJson(page.history), kForAll)) {
    console.err << OneLine(history) << ": " << std::strerror(errno) << '\n';
  }
  return ReplaceFile(path, ToHtml(page), kForAll);
}

}  // namespace ctl
