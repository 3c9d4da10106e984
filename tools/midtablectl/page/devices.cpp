// The table of the devices. On a telephone each row becomes a block, so the cells carry the names
// of their columns and every part its role, which that change of form would take from it.
#include <algorithm>
#include <cstring>

#include "midtablectl/figures.h"
#include "midtablectl/page/charts.h"
#include "midtablectl/page/sections.h"
#include "midtablectl/page/slots.h"
#include "midtablectl/text.h"
#include "support/database_name.h"

namespace ctl {

namespace {

// More would be no page to look at. Those with trouble come first.
constexpr std::size_t kMostDevices = 200;
// Half an hour for each value of a small curve.
constexpr std::size_t kSlotsTogether = 3;

// The path or the table that files wait for has the id in which the database's name ends.
bool IsHeld(const Page& page, const std::string& database) {
  const std::string id = database.substr(std::min(kDatabasePrefix.size(), database.size()));
  return std::any_of(page.status.held.begin(), page.status.held.end(),
                     [&](const Held& held) { return held.what.find(id) != std::string::npos; });
}

// What there is to say of it besides figures; empty when nothing.
std::string TroubleOf(const Page& page, const DatabaseStatus& one) {
  if (one.error != 0) return std::strerror(one.error);
  if (one.failed > 0) return Count(one.failed, "file") + " failed";
  return IsHeld(page, one.database) ? "held back" : "";
}

// Lines that are missing from loaded files. Nothing waits for them, so they are no trouble.
std::string LossOf(const DatabaseStatus& one) {
  if (one.left_out.value_or(0) == 0) return "";
  return Count(*one.left_out, "line") + " left out: midtablectl why";
}

// What it loads at the moment, where the service tells it.
std::string WorkOf(const Page& page, const std::string& database) {
  if (!page.service) return "";
  for (const DatabaseState& one : page.service->databases) {
    if (one.database != database || !one.loading) continue;
    const LoadingState& load = *one.loading;
    if (!load.bytes_done || load.bytes_total == 0) return "loads " + Bytes(load.bytes_total);
    return "loads " + Bytes(load.bytes_total) + ", " +
           std::to_string(100 * *load.bytes_done / load.bytes_total) + " % done";
  }
  return "";
}

// Trouble first, then who waits longest.
std::vector<const DatabaseStatus*> InOrder(const Page& page) {
  std::vector<const DatabaseStatus*> devices;
  for (const DatabaseStatus& one : page.status.databases) devices.push_back(&one);
  std::stable_sort(devices.begin(), devices.end(),
                   [&](const DatabaseStatus* one, const DatabaseStatus* other) {
                     const bool bad = !TroubleOf(page, *one).empty();
                     const bool other_bad = !TroubleOf(page, *other).empty();
                     if (bad != other_bad) return bad;
                     return one->oldest_seconds.value_or(0) > other->oldest_seconds.value_or(0);
                   });
  return devices;
}

void WriteCell(Html& html, Literal label, const std::string& text) {
  html.Element("td", text,
               {{"role", "cell"}, {"class", "n"}, {"data-label", std::string(label.text())}});
}

void WriteName(Html& html, const Page& page, const DatabaseStatus& one) {
  const auto name = html.Begin("th", {{"role", "rowheader"}, {"scope", "row"}});
  html.Text(one.database);
  const std::string trouble = TroubleOf(page, one);
  const std::string work = WorkOf(page, one.database);
  if (!trouble.empty()) html.Element("small", trouble, {{"class", "bad"}});
  if (const std::string loss = LossOf(one); !loss.empty()) html.Element("small", loss);
  if (!work.empty()) html.Element("small", work, {{"class", "soft"}});
}

void WriteDevice(Html& html, const Page& page, const DatabaseStatus& one) {
  const std::string unknown = "?";
  const bool known = one.error == 0;
  const auto row = html.Begin("tr", {{"role", "row"}});
  WriteName(html, page, one);
  WriteCell(html, "Waiting", known ? Grouped(one.waiting) : unknown);
  WriteCell(html, "Oldest", known ? Oldest(one) : unknown);
  WriteCell(html, "Mem rows", one.mem_rows ? Grouped(*one.mem_rows) : unknown);
  WriteCell(html, "Last load",
            one.last_loaded ? ShortStamp(*one.last_loaded, page.status.time) : "–");
  WriteCell(html, "Rows/s", known ? Rate(one.rows_per_second) : unknown);
  WriteCell(html, "Rows in a day", Grouped(RowsOfDay(page, &one.database)));
  const auto curve = html.Begin("td", {{"role", "cell"}, {"class", "curve"}});
  const Series rates = RatesOf(page, &one.database, kSlotsTogether);
  DrawCurve(
      html, rates, std::max(Greatest(rates), 1e-9),
      "Rows a second of " + one.database + ", the last 24 hours: at most " + Rate(Greatest(rates)));
}

void WriteTable(Html& html, const Page& page) {
  const auto card = html.Begin("div", {{"class", "card devices"}});
  const auto table = html.Begin("table", {{"role", "table"}});
  html.Element("caption",
               "Those with trouble first, then those whose files wait longest. Each curve has a "
               "height of its own.");
  html.Markup(R"(
<thead role="rowgroup"><tr role="row">
<th role="columnheader" scope="col">Database
<th role="columnheader" scope="col" class="n">Waiting
<th role="columnheader" scope="col" class="n">Oldest
<th role="columnheader" scope="col" class="n">Mem rows
<th role="columnheader" scope="col" class="n">Last load
<th role="columnheader" scope="col" class="n">Rows/s
<th role="columnheader" scope="col" class="n">Rows in a day
<th role="columnheader" scope="col">Rows a second, 24 h
</thead>)");
  const auto rows = html.Begin("tbody", {{"role", "rowgroup"}});
  std::size_t written = 0;
  for (const DatabaseStatus* one : InOrder(page)) {
    if (++written <= kMostDevices) WriteDevice(html, page, *one);
  }
}

}  // namespace

void WriteDevices(Html& html, const Page& page) {
  const auto section = html.Begin("section", {{"id", "devices"}});
  html.Element("h2", "Devices");
  const std::size_t devices = page.status.databases.size();
  if (devices == 0) {
    html.Element("p", "No database has a folder in the spool.", {{"class", "soft"}});
    return;
  }
  WriteTable(html, page);
  if (devices <= kMostDevices) return;
  html.Element("p",
               "And " + Count(devices - kMostDevices, "more database") +
                   ": midtablectl status has them all.",
               {{"class", "aside soft"}});
}

}  // namespace ctl
