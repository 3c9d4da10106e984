// The parts of the page, in their order.
#pragma once

#include "midtablectl/page/html.h"
#include "midtablectl/page/page.h"

namespace ctl {

// What waits, the speed, what failed and is held back, the service: each in one figure.
void WriteFigures(Html& html, const Page& page);
// The last day: rows a second, and how long the oldest file waited.
void WriteCurves(Html& html, const Page& page);
// Failed files by reason, and what is held back. Nothing when there is neither.
void WriteTrouble(Html& html, const Page& page);
// A row for each database, those with trouble first.
void WriteDevices(Html& html, const Page& page);
// The day tables of the last 31 days.
void WriteTotals(Html& html, const Page& page);

}  // namespace ctl
