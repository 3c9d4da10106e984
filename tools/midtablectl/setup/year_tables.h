// Makes the year tables of all devices for a year: the service makes none itself.
#pragma once

#include <string>

#include "midtablectl/console.h"

namespace ctl {

struct YearTablesOptions {
  int year = 0;          // where it is not the next one
  bool next = false;     // the year after this one
  bool dry_run = false;  // show what would be made
};

// Makes what is missing, with the service's own login, by the statements of the operator's file or
// of the sample. Devices are those with a folder in the spool or with a database. One database that
// fails does not keep the others from theirs. kFine when all is there; kFindings when the table
// definitions fill a year table that the statements do not make; kCouldNotLook when none could be
// made; kHalfDone when some could not.
Status MakeYearTables(const YearTablesOptions& options, Console& console);

}  // namespace ctl
