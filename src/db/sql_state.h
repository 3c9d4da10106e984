// What the five-character SQL states mean that servers and drivers add to their error numbers.
#pragma once

#include <string_view>

#include "db/SqlBase.h"

// kStatement for a state that tells nothing about whose fault it was.
inline SqlFailure MeaningOfSqlState(std::string_view state) {
  struct Row {
    std::string_view beginning;  // a class is two characters; of two that fit, the first counts
    SqlFailure meaning;
  };
  static constexpr Row kRows[] = {
      {"08", SqlFailure::kConnection},     // connection exceptions
      {"22", SqlFailure::kData},           // data exceptions: out of range, too long, no number
      {"23", SqlFailure::kData},           // constraints: duplicate keys, null, references
      {"28", SqlFailure::kPrivilege},      // authorisation
      {"40", SqlFailure::kServer},         // the transaction was rolled back, as by a deadlock
      {"42501", SqlFailure::kPrivilege},   // insufficient privilege, in PostgreSQL
      {"44", SqlFailure::kData},           // a view's check option
      {"45", SqlFailure::kData},           // a trigger's or routine's own signal
      {"53", SqlFailure::kServer},         // no disk space, memory or session left
      {"55006", SqlFailure::kServer},      // the object is in use
      {"55P03", SqlFailure::kServer},      // a lock was not to be had
      {"57P", SqlFailure::kConnection},    // the server ended the session, or is not up
      {"57", SqlFailure::kServer},         // an operator's intervention, a cancelled statement
      {"58", SqlFailure::kServer},         // errors of the system below the server
      {"HYT01", SqlFailure::kConnection},  // ODBC: the connection timed out
      {"HYT", SqlFailure::kServer},        // ODBC: the statement did
      {"HY001", SqlFailure::kServer}       // out of memory
  };
  for (const Row& row : kRows) {
    if (state.starts_with(row.beginning)) return row.meaning;
  }
  return SqlFailure::kStatement;
}
