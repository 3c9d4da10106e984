// A picture is stretched to its place. Its units are one for each value along, and 100 in height;
// the style sheet keeps lines from being stretched with them.
#include "midtablectl/page/charts.h"

#include <algorithm>
#include <cmath>

#include "log/zux_center_log.h"

namespace ctl {

namespace {

constexpr double kHeight = 100;

double HeightOf(double value, double top) { return kHeight * std::min(value / top, 1.0); }

std::string ViewBox(const Series& series) { return Format("0 0 %zu %.0f", series.size(), kHeight); }

// The steps of the values from `first` to before `last`, as a path that begins with its left edge.
std::string Steps(const Series& series, std::size_t first, std::size_t last, double top) {
  std::string path;
  for (std::size_t i = first; i < last; ++i) {
    const double y = kHeight - HeightOf(*series[i], top);
    path += path.empty() ? Format("M%zu %.1f", i, y) : Format("V%.1f", y);
    path += Format("H%zu", i + 1);
  }
  return path;
}

void DrawHints(Html& html, const std::vector<std::string>& hints) {
  for (std::size_t i = 0; i < hints.size(); ++i) {
    const auto place = html.Begin("rect", {{"class", "hint"},
                                           {"x", std::to_string(i)},
                                           {"y", "0"},
                                           {"width", "1"},
                                           {"height", Format("%.0f", kHeight)}});
    html.Element("title", hints[i]);
  }
}

}  // namespace

double Greatest(const Series& series) {
  double greatest = 0;
  for (const auto& value : series) greatest = std::max(greatest, value.value_or(0));
  return greatest;
}

double AxisTop(double value) {
  const double power = std::pow(10, std::floor(std::log10(std::max(value, 1.0))));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= value) return factor * power;
  }
  return 10 * power;
}

void DrawCurve(Html& html, const Series& series, double top, const std::string& title,
               const std::vector<std::string>& hints) {
  std::string line;
  std::string area;
  for (std::size_t first = 0; first < series.size(); ++first) {
    if (!series[first]) continue;
    std::size_t last = first;
    while (last < series.size() && series[last]) ++last;
    const std::string steps = Steps(series, first, last, top);
    line += steps;
    area += steps + Format("V%.0fH%zuZ", kHeight, first);
    first = last;
  }
  const auto svg = html.Begin(
      "svg", {{"viewBox", ViewBox(series)}, {"preserveAspectRatio", "none"}, {"role", "img"}});
  html.Element("title", title);
  html.Void("path", {{"class", "area"}, {"d", area}});
  html.Void("path", {{"class", "line"}, {"d", line}});
  DrawHints(html, hints);
}

void DrawBars(Html& html, const Series& series, const std::string& title,
              const std::vector<std::string>& hints) {
  const double top = std::max(Greatest(series), 1.0);
  const auto svg = html.Begin(
      "svg", {{"viewBox", ViewBox(series)}, {"preserveAspectRatio", "none"}, {"role", "img"}});
  html.Element("title", title);
  for (std::size_t i = 0; i < series.size(); ++i) {
    if (!series[i]) continue;
    // A day with next to nothing is still a day with something.
    const double height = std::max(HeightOf(*series[i], top), 1.0);
    html.Void("rect", {{"class", i + 1 == series.size() ? "bar today" : "bar"},
                       {"x", Format("%.2f", static_cast<double>(i) + 0.12)},
                       {"y", Format("%.1f", kHeight - height)},
                       {"width", "0.76"},
                       {"height", Format("%.1f", height)}});
  }
  DrawHints(html, hints);
}

}  // namespace ctl
