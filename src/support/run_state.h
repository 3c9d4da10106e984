// The two process-wide flags and the sleep that honours them. main sets them, everyone reads.
#pragma once

#include <atomic>
#include <cstdint>

// 1 while the service is to run; cleared by the stop signal or a fatal end, never set again.
// Lock-free, so that a signal handler may store to it.
extern std::atomic<std::int32_t> g_nMainRun;
static_assert(std::atomic<std::int32_t>::is_always_lock_free);

// Debug level of the "debug=" option; not 0 sends every log line to standard output.
extern std::int32_t g_debug;

// Sleeps `seconds` in steps of one second and returns early once g_nMainRun is 0: at once when it
// was 0 before, else within about a second. Zero or a negative count returns at once.
void sleep_i(int seconds);
