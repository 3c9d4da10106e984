// Guards against programming errors. Unlike assert, they hold in release builds too.
#pragma once

// Ends the process with abort() after "<unit>:<line>: requirement <condition> failed" on standard
// error, unless `holds`.
void Require(bool holds, const char* unit, int line, const char* condition);
