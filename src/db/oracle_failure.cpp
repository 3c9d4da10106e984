#include "db/oracle_failure.h"

#include <charconv>
#include <optional>

#include "db/sql_state.h"

namespace {

// The server numbers its errors by subject, so that neighbours mostly mean the same.
struct Range {
  int first;
  int last;
  SqlFailure meaning;
};

constexpr Range kCodes[] = {
    // The session is over, or the instance lets nobody in.
    {18, 28, SqlFailure::kConnection},        // no session or process left, session killed
    {1012, 1012, SqlFailure::kConnection},    // not logged on
    {1033, 1035, SqlFailure::kConnection},    // starting, not available, restricted
    {1089, 1092, SqlFailure::kConnection},    // shutting down, terminated
    {2396, 2399, SqlFailure::kConnection},    // idle or connected for too long
    {3113, 3114, SqlFailure::kConnection},    // end of file, not connected
    {3135, 3136, SqlFailure::kConnection},    // lost contact, inbound time-out
    {12150, 12699, SqlFailure::kConnection},  // the network layer, 12541 "no listener" among them

    // Locks, and transactions that cannot go on.
    {51, 60, SqlFailure::kServer},        // waited too long, busy, no locks left, deadlock
    {1013, 1013, SqlFailure::kServer},    // cancelled
    {1555, 1555, SqlFailure::kServer},    // snapshot too old
    {4020, 4021, SqlFailure::kServer},    // deadlock or time-out on an object
    {8177, 8177, SqlFailure::kServer},    // cannot serialise
    {30006, 30006, SqlFailure::kServer},  // busy for all the time it waited

    // No room, no memory, files out of reach, a database that only reads.
    {257, 257, SqlFailure::kServer},      // the archiver is stuck
    {376, 376, SqlFailure::kServer},      // a data file cannot be read
    {1110, 1116, SqlFailure::kServer},    // a data file is damaged or cannot be opened
    {1456, 1456, SqlFailure::kServer},    // read-only transaction
    {1536, 1536, SqlFailure::kServer},    // quota used up
    {1628, 1632, SqlFailure::kServer},    // most extents reached
    {1650, 1659, SqlFailure::kServer},    // a segment cannot be extended
    {1683, 1693, SqlFailure::kServer},    // the same for parts of tables and for large objects
    {4030, 4031, SqlFailure::kServer},    // out of memory
    {16000, 16000, SqlFailure::kServer},  // open for reading only
    {30036, 30036, SqlFailure::kServer},  // no room for undo

    // Rights. A refused login is one: who changes the database goes on in the old session.
    {1017, 1017, SqlFailure::kPrivilege},    // user or password
    {1031, 1031, SqlFailure::kPrivilege},    // insufficient privileges
    {1045, 1045, SqlFailure::kPrivilege},    // may not log in
    {1950, 1950, SqlFailure::kPrivilege},    // no privilege on the tablespace
    {28000, 28002, SqlFailure::kPrivilege},  // account locked, password expired
    {29289, 29289, SqlFailure::kPrivilege},  // directory access denied

    // Rows.
    {1, 1, SqlFailure::kData},          // duplicate key
    {1400, 1401, SqlFailure::kData},    // null, too long
    {1407, 1407, SqlFailure::kData},    // null
    {1426, 1426, SqlFailure::kData},    // overflow
    {1438, 1438, SqlFailure::kData},    // more digits than the column takes
    {1476, 1476, SqlFailure::kData},    // division by zero
    {1722, 1722, SqlFailure::kData},    // no number
    {1830, 1862, SqlFailure::kData},    // no date
    {2290, 2293, SqlFailure::kData},    // constraints
    {12899, 12899, SqlFailure::kData},  // too long
    {14400, 14402, SqlFailure::kData},  // no partition takes it
    {20000, 20999, SqlFailure::kData},  // raised by a trigger or a procedure
    {30653, 30653, SqlFailure::kData},  // an external table's reject limit
};

// What one code means; nothing when it does not tell.
std::optional<SqlFailure> MeaningOfCode(int code) {
  for (const Range& range : kCodes) {
    if (code >= range.first && code <= range.last) return range.meaning;
  }
  return std::nullopt;
}

}  // namespace

SqlFailure MeaningOfOracleError(std::string_view state, std::string_view text) {
  constexpr std::string_view kPrefix = "ORA-";
  // A text may have several codes: an error within a trigger or a recursive statement comes with
  // general ones around it. The first code that tells anything counts.
  for (auto at = text.find(kPrefix); at != std::string_view::npos; at = text.find(kPrefix, at)) {
    at += kPrefix.size();
    int code = 0;
    std::from_chars(text.data() + at, text.data() + text.size(), code);
    if (const auto meaning = MeaningOfCode(code)) return *meaning;
  }
  return MeaningOfSqlState(state);
}
