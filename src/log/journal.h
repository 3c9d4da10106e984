// Errors and alarms of the run log in the journal of systemd, so that "journalctl -u midtable -p
// err" answers. A build without libsystemd has no journal.
#pragma once

#include <string>

// Whether this process belongs to a unit: systemd gives each of them a number.
bool HasJournal();

// Writes an alarm as a warning, and any other level as an error. `unit` is the unit of the run log.
// Nothing happens where no journal listens.
void ToJournal(const char* unit, int level, const std::string& message);
