// The samples of the folder demo/, as they were when the program was built. A package may be
// installed without its documents, and a setup must not depend on them.
#pragma once

namespace ctl {

extern const char kSampleSettings[];         // dbinfo.conf
extern const char kSampleDefinitions[];      // vqlog.xml
extern const char kSampleLoaderTemplates[];  // sqlldr_ctl.xml
extern const char kSampleNumberBlocks[];     // localtour.csv
extern const char kSampleYearTables[];       // year_tables.sql
extern const char kSampleDatabases[];        // setup.sql

}  // namespace ctl
