// The page from top to bottom: a verdict, the figures of all databases, the curves of a day, what
// needs a hand, the devices, the mid tables. What is well is quiet; only trouble has a colour.
#include <algorithm>
#include <cstring>

#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/figures.h"
#include "midtablectl/page/page.h"
#include "midtablectl/page/sections.h"
#include "midtablectl/page/style.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

// A file that waits for longer is told of in the verdict, and by the alerts.
constexpr std::int64_t kLongWaitSeconds = 900;

// Something that needs a hand, and where on the page it is told.
struct Problem {
  std::string text;
  std::string section;  // its id
};

// The troubles of the service and the server, and those of folders and files.
std::vector<Problem> ProblemsOf(const Page& page) {
  const SystemStatus& status = page.status;
  const DatabaseStatus total = Total(status);
  std::vector<Problem> problems;
  const auto add = [&problems](bool is_so, const std::string& text, const char* section) {
    if (is_so) problems.push_back({text, section});
  };
  const auto closed = std::count_if(status.databases.begin(), status.databases.end(),
                                    [](const DatabaseStatus& one) { return one.error != 0; });
  add(!status.running,
      "The service is not running. To do: systemctl start midtable; journalctl -u midtable says "
      "why it ended.",
      "figures");
  add(status.spool_error != 0,
      std::string("The spool cannot be read: ") + std::strerror(status.spool_error) + ".",
      "devices");
  const std::string remedy = ServerAdvice(status.server_error);
  add(!status.server_error.empty(),
      "The server cannot be asked: " + status.server_error +
          (remedy.empty() ? "" : ". To do: " + remedy),
      "totals");
  add(!status.log_error.empty(), "The run log cannot be read: " + status.log_error, "trouble");
  add(closed > 0,
      Count(static_cast<std::size_t>(closed), "folder") + " of the spool cannot be read.",
      "devices");
  add(total.failed > 0, Count(total.failed, "file") + " failed.", "trouble");
  add(!status.held.empty(), "Files are held back, for " + Count(status.held.size(), "reason") + ".",
      "trouble");
  add(total.oldest_seconds.value_or(0) > kLongWaitSeconds,
      "The oldest file has waited for " + Oldest(total) + ".", "devices");
  for (const std::string& folder : FullFolders()) {
    add(true,
        "The disk of " + folder +
            " is full. To do: delete old .mid files and run logs, or give it room.",
        "figures");
  }
  for (const LogEntry& entry : page.registry_errors) {
    const Message* const message = FindMessage(entry);
    add(true,
        "Local users: " + OneLine(entry.text) +
            (message == nullptr ? "" : " " + message->meaning + " To do: " + message->action),
        "figures");
  }
  return problems;
}

// The tab of the browser shows a dot of the verdict's colour.
void WriteHead(Html& html, const std::string& verdict, bool trouble) {
  const auto head = html.Begin("head");
  html.Markup(R"(
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="refresh" content="60">
<meta http-equiv="Content-Security-Policy"
  content="default-src 'none'; style-src 'unsafe-inline'; img-src data:">
<link rel="icon" href="data:image/svg+xml,%3Csvg xmlns='http://www.w3.org/2000/svg' )"
              R"(viewBox='0 0 8 8'%3E%3Ccircle cx='4' cy='4' r='3.5' fill='%23)");
  html.Markup(trouble ? Literal("d1382d") : Literal("2a6a9e"));
  html.Markup("'/%3E%3C/svg%3E\">\n");
  html.Element("title", "midtable: " + verdict);
  html.Markup("\n<style>");
  html.Markup(kStyle);
  html.Markup("</style>");
}

// The page cannot tell its own age without a script; its reader can.
void WriteBrand(Html& html, const Page& page) {
  const auto brand = html.Begin("p", {{"class", "brand"}});
  {
    const auto name = html.Begin("span");
    html.Element("strong", "midtable");
    if (!page.host.empty()) html.Text(" on " + page.host);
  }
  const auto age = html.Begin("span");
  html.Text("As of ");
  html.Element("time", Stamp(page.status.time));
  html.Text(". If that is minutes ago, nobody renews this page.");
}

void WriteVerdict(Html& html, const std::string& verdict, const std::vector<Problem>& problems,
                  const Page& page) {
  const auto box = html.Begin("div", {{"class", problems.empty() ? "verdict" : "verdict trouble"}});
  html.Element("h1", verdict);
  if (problems.empty()) {
    html.Element("p", Total(page.status).waiting == 0
                          ? "The service runs, nothing waits and nothing failed."
                          : "The service runs, and what waits is waiting for its turn.");
    return;
  }
  const auto list = html.Begin("ul");
  for (const Problem& problem : problems) {
    const auto item = html.Begin("li");
    html.Element("a", problem.text, {{"href", "#" + problem.section}});
  }
}

void WriteFooter(Html& html, const Page& page) {
  const auto footer = html.Begin("footer");
  if (!page.history_note.empty()) html.Element("p", page.history_note, {{"class", "bad"}});
  const auto line = html.Begin("p");
  html.Text("midtablectl " MIDTABLE_VERSION
            ". Speeds are of rows that were loaded, of the time in which somebody looked. On the "
            "machine itself ");
  html.Element("code", "midtablectl status");
  html.Text(" tells the same of this moment, and ");
  html.Element("code", "midtablectl why FILE");
  html.Text(" more of one file.");
}

}  // namespace

std::string ToHtml(const Page& page) {
  const std::vector<Problem> problems = ProblemsOf(page);
  const std::string verdict = problems.empty() ? "All is well"
                              : problems.size() == 1
                                  ? "One thing needs a hand"
                                  : std::to_string(problems.size()) + " things need a hand";
  Html html;
  html.Markup("<!DOCTYPE html>\n<html lang=\"en\">");
  WriteHead(html, verdict, !problems.empty());
  {
    const auto body = html.Begin("body");
    WriteBrand(html, page);
    const auto main = html.Begin("main");
    WriteVerdict(html, verdict, problems, page);
    WriteFigures(html, page);
    WriteCurves(html, page);
    WriteTrouble(html, page);
    WriteDevices(html, page);
    WriteTotals(html, page);
    WriteFooter(html, page);
  }
  html.Markup("\n</html>\n");
  return html.document();
}

}  // namespace ctl
