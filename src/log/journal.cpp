#include "log/journal.h"

#ifdef MIDTABLE_SYSTEMD
// The place in the sources would be that of this file each time.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <syslog.h>
#include <systemd/sd-journal.h>

#include <cstdlib>

#include "log/zux_center_log.h"

// Not by what standard output leads to: in a daemon that is the null device.
bool HasJournal() { return std::getenv("INVOCATION_ID") != nullptr; }

void ToJournal(const char* unit, int level, const std::string& message) {
  [[maybe_unused]] const int ignored = sd_journal_send(
      "MESSAGE=%s", message.c_str(), "PRIORITY=%i", level == kAlarm ? LOG_WARNING : LOG_ERR,
      "SYSLOG_IDENTIFIER=midtable", "MIDTABLE_UNIT=%s", unit, nullptr);
}
#else
bool HasJournal() { return false; }

void ToJournal(const char* /*unit*/, int /*level*/, const std::string& /*message*/) {}
#endif
