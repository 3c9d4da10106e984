// The figures, the curves, the troubles and the mid tables; devices.cpp has the devices.
#include "midtablectl/page/sections.h"

#include <algorithm>
#include <ctime>

#include "log/zux_center_log.h"
#include "midtablectl/advice.h"
#include "midtablectl/figures.h"
#include "midtablectl/page/charts.h"
#include "midtablectl/page/day_totals.h"
#include "midtablectl/page/slots.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

void WriteTile(Html& html, const char* name, const std::string& figure, const std::string& note,
               bool trouble = false) {
  const auto tile = html.Begin("div", {{"class", trouble ? "trouble" : ""}});
  html.Element("dt", name);
  const auto value = html.Begin("dd");
  html.Element("b", figure);
  html.Text(note);
}

std::string WaitingNote(const DatabaseStatus& total) {
  if (total.waiting == 0) return "no file";
  std::string note = "the oldest for " + Oldest(total);
  if (total.waiting_bytes) note = Bytes(*total.waiting_bytes) + ", " + note;
  if (total.seconds_to_empty) note += "; empty in " + Duration(*total.seconds_to_empty);
  return note;
}

std::string ServiceNote(const Page& page) {
  if (!page.status.running) return "files wait; none is lost";
  std::string note =
      page.status.pid > 0 ? "process " + std::to_string(page.status.pid) : std::string();
  if (page.service) {
    note = "version " + page.service->service_version + ", since " +
           ShortStamp(page.service->started_at, page.status.time);
  }
  return note;
}

// The y axis is told by its top alone.
void WriteCurve(Html& html, const Page& page, const char* name, const std::string& note,
                const Series& series, double top, const std::string& top_text,
                const std::vector<std::string>& hints) {
  const std::time_t end = SlotsEnd(page);
  const auto figure = html.Begin("figure");
  {
    const auto caption = html.Begin("figcaption");
    html.Element("h3", name);
    html.Element("span", note);
  }
  {
    const auto plot = html.Begin("div", {{"class", "plot"}});
    html.Element("span", top_text, {{"class", "top"}});
    DrawCurve(html, series, top, std::string(name) + ", the last 24 hours: " + note, hints);
  }
  const auto axis = html.Begin("div", {{"class", "axis"}});
  constexpr std::time_t kHour = 3600;
  for (const int hours : {24, 18, 12, 6}) {
    html.Element("span", ShortStamp(end - hours * kHour, end - hours * kHour));
  }
  html.Element("span", "now");
}

// What is shown beside the pointer, for each slot.
template <typename Text>
std::vector<std::string> Hints(const Page& page, const Series& series, Text text) {
  std::vector<std::string> hints;
  for (std::size_t i = 0; i < series.size(); ++i) {
    const std::time_t begin =
        SlotsEnd(page) - static_cast<std::time_t>(series.size() - i) * kSlotSeconds;
    hints.push_back(ShortStamp(begin, page.status.time) + ": " +
                    (series[i] ? text(*series[i]) : std::string("nobody looked")));
  }
  return hints;
}

// A reason, and the files that it concerns.
struct ReasonRow {
  std::string reason;
  std::string remedy;   // may be empty
  std::string example;  // a file, or what is held back
  std::string files;
  std::string time;
};

void WriteReasons(Html& html, std::string_view caption, const std::string& time_name,
                  const std::vector<ReasonRow>& reasons) {
  const auto card = html.Begin("div", {{"class", "card"}});
  const auto table = html.Begin("table", {{"role", "table"}});
  html.Element("caption", caption);
  html.Markup(
      "<thead role=\"rowgroup\"><tr role=\"row\"><th role=\"columnheader\" scope=\"col\">Reason"
      "<th role=\"columnheader\" scope=\"col\" class=\"n brief\">Files");
  html.Element("th", time_name, {{"role", "columnheader"}, {"scope", "col"}, {"class", "n brief"}});
  html.Markup("</thead>");
  const auto rows = html.Begin("tbody", {{"role", "rowgroup"}});
  for (const ReasonRow& one : reasons) {
    const auto row = html.Begin("tr", {{"role", "row"}});
    {
      const auto cell = html.Begin("td", {{"role", "cell"}, {"class", "wide"}});
      html.Text(one.reason);
      const auto more = html.Begin("small");
      if (!one.remedy.empty()) html.Text("To do: " + one.remedy + " ");
      html.Element("code", one.example);
    }
    html.Element("td", one.files, {{"role", "cell"}, {"class", "n bad"}, {"data-label", "Files"}});
    html.Element("td", one.time, {{"role", "cell"}, {"class", "n"}, {"data-label", time_name}});
  }
}

void WriteFailures(Html& html, const Page& page) {
  std::vector<ReasonRow> reasons;
  reasons.reserve(page.failures.groups.size());
  for (const FailureGroup& group : page.failures.groups) {
    const bool known = !group.reason.empty();
    reasons.push_back({known ? group.reason : "The run log does not name these files.",
                       group.remedy, group.example, Grouped(group.files),
                       ShortStamp(group.newest, page.status.time)});
  }
  WriteReasons(html, "Failed files by reason, the newest first", "Newest", reasons);
}

// Since when, where the service tells it.
std::string HeldSince(const Page& page, const std::string& what) {
  if (!page.service) return "";
  const auto find = [&what](const std::vector<HeldState>& held) {
    return std::find_if(held.begin(), held.end(),
                        [&what](const HeldState& one) { return one.what == what; });
  };
  if (const auto one = find(page.service->held_back); one != page.service->held_back.end()) {
    return ShortStamp(one->since, page.status.time);
  }
  for (const DatabaseState& database : page.service->databases) {
    if (const auto one = find(database.held_back); one != database.held_back.end()) {
      return ShortStamp(one->since, page.status.time);
    }
  }
  return "";
}

void WriteHeld(Html& html, const Page& page) {
  std::vector<ReasonRow> reasons;
  reasons.reserve(page.status.held.size());
  for (const Held& held : page.status.held) {
    reasons.push_back({held.reason, ServerAdvice(held.reason), held.what, held.files,
                       HeldSince(page, held.what)});
  }
  WriteReasons(html, "Held back: these files go on by themselves once the reason is gone", "Since",
               reasons);
}

// A day as people name it.
std::string DayName(const std::string& day) {
  std::tm noon{};
  noon.tm_year = std::stoi(day.substr(0, 4)) - 1900;
  noon.tm_mon = std::stoi(day.substr(4, 2)) - 1;
  noon.tm_mday = std::stoi(day.substr(6, 2));
  noon.tm_hour = 12;
  noon.tm_isdst = -1;
  std::mktime(&noon);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%a %-d %b", &noon)};
}

// A total, which may be below zero or beyond every number of rows.
std::string Whole(double total) {
  return Grouped(static_cast<std::uint64_t>(std::clamp(total, 0.0, 1e18)));
}

void WriteDayTotals(Html& html, const DayTotals& totals, const std::vector<std::string>& days) {
  Series series;
  std::vector<std::string> hints;
  for (const std::string& day : days) {
    const auto found = totals.days.find(day);
    const bool known = found != totals.days.end();
    series.push_back(known ? std::optional(found->second) : std::nullopt);
    hints.push_back(DayName(day) + ": " + (known ? Whole(found->second) : "no table"));
  }
  const std::string measure = totals.measure.empty() ? "rows" : totals.measure;
  const std::string greatest = Whole(Greatest(series));
  const auto figure = html.Begin("figure");
  {
    const auto caption = html.Begin("figcaption");
    html.Element("h3", totals.table);
    html.Element("span", measure + ", at most " + greatest);
  }
  {
    const auto plot = html.Begin("div", {{"class", "plot"}});
    DrawBars(html, series,
             measure + " of " + totals.table + " on each of the last 31 days, at most " + greatest +
                 "; today " + hints.back(),
             hints);
  }
  const auto axis = html.Begin("div", {{"class", "axis"}});
  html.Element("span", DayName(days.front()));
  html.Element("span", DayName(days[days.size() / 2]));
  html.Element("span", "today");
}

}  // namespace

void WriteFigures(Html& html, const Page& page) {
  const SystemStatus& status = page.status;
  const DatabaseStatus total = Total(status);
  const auto list = html.Begin("dl", {{"class", "tiles"}, {"id", "figures"}});
  WriteTile(html, "Waiting", Grouped(total.waiting), WaitingNote(total));
  WriteTile(html, "Rows a second", Rate(total.rows_per_second),
            "the last minute; " + Grouped(RowsOfDay(page, nullptr)) + " in a day");
  WriteTile(html, "Failed", Grouped(total.failed),
            total.failed == 0 ? "no file" : Count(page.failures.groups.size(), "reason"),
            total.failed > 0);
  if (status.once) {
    WriteTile(html, "Held back", std::to_string(status.held.size()),
              status.held.empty() ? "nothing" : "go on by themselves", !status.held.empty());
  }
  WriteTile(html, "Service", status.running ? "Running" : "Not running", ServiceNote(page),
            !status.running);
}

void WriteCurves(Html& html, const Page& page) {
  const auto section = html.Begin("section", {{"class", "charts"}, {"aria-label", "The last day"}});
  const Series rates = RatesOf(page, nullptr);
  WriteCurve(html, page, "Rows a second", "at most " + Rate(Greatest(rates)), rates,
             AxisTop(Greatest(rates)), Rate(AxisTop(Greatest(rates))),
             Hints(page, rates, [](double rate) { return Rate(rate) + " rows a second"; }));
  const Series ages = AgesOf(page);
  // The axis of a time ends with its greatest value, which is rounded to be read already.
  WriteCurve(html, page, "The oldest file waits", "at most " + Duration(Greatest(ages)), ages,
             std::max(Greatest(ages), 1.0), Duration(Greatest(ages)),
             Hints(page, ages, [](double age) { return Duration(age); }));
}

void WriteTrouble(Html& html, const Page& page) {
  if (page.failures.groups.empty() && page.status.held.empty()) return;
  const auto section = html.Begin("section", {{"id", "trouble"}});
  html.Element("h2", "What needs a hand");
  if (!page.failures.groups.empty()) WriteFailures(html, page);
  if (!page.status.held.empty()) WriteHeld(html, page);
  if (!page.failures.log_error.empty()) {
    html.Element("p", "Reasons are missing, a run log cannot be read: " + page.failures.log_error,
                 {{"class", "aside bad"}});
  }
}

void WriteTotals(Html& html, const Page& page) {
  const auto section = html.Begin("section", {{"id", "totals"}});
  html.Element("h2", "Mid tables, the last 31 days");
  if (!page.totals_error.empty()) {
    std::string text = "The server could not be asked: " + page.totals_error + ".";
    if (!page.history.totals.empty()) text += " What is shown is what an earlier look saw.";
    html.Element("p", text, {{"class", "aside bad"}});
  } else if (page.history.totals.empty()) {
    html.Element("p", "No database has a day table of these days.", {{"class", "soft"}});
  }
  const std::vector<std::string> days = TotalDays(page.status.time);
  const auto figures = html.Begin("div", {{"class", "totals"}});
  for (const DayTotals& totals : page.history.totals) WriteDayTotals(html, totals, days);
}

}  // namespace ctl
