// The page's pictures, as SVG within the page. Their colours are those of its style sheet.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "midtablectl/page/html.h"

namespace ctl {

// Values at equal distances; nothing where nobody looked, which leaves a gap.
using Series = std::vector<std::optional<double>>;

// The greatest value; 0 of a series without any.
double Greatest(const Series& series);

// The round number at or above the value with which an axis can end: 1, 2 or 5 and zeros. At
// least 1.
double AxisTop(double value);

// A stepped curve with the area below it, from 0 to `top`, as wide and high as its place. `title`
// says what it shows, for those who do not see it. `hints` are shown beside the pointer, one for
// each value; there may be none.
void DrawCurve(Html& html, const Series& series, double top, const std::string& title,
               const std::vector<std::string>& hints = {});

// A bar for each value. The last one, of a day that is not over, looks lighter.
void DrawBars(Html& html, const Series& series, const std::string& title,
              const std::vector<std::string>& hints);

}  // namespace ctl
