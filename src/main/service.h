// The frame around the engine: command line options, daemon mode, signals, the single-instance
// lock.
//
// main() takes these steps once each, on the process's first thread and before any other exists:
// standard streams, settings, version, daemon, signal mask, ignored signals, lock, debug level,
// handlers, run log, engine. SIGINT ends the service; SIGTERM stays blocked although it has a
// handler.
#pragma once

#include "support/file.h"

// Puts the null device where standard input, output or error is closed. Otherwise the next file
// opened, the lock or the run log, would be standard output and take console lines, the password
// among them.
void OpenStandardStreams();

// The first of argv[1] to argv[argc - 1] that begins with `option`, or null. DELIBERATE: a prefix
// match: "-version" is "-v", "-apple" is "-app".
char* had_param(int argc, char* argv[], const char* option);

// With "-v": prints version, author and `history` and returns 0. Otherwise prints nothing, -1.
int morvan_check_version(int argc, char* argv[], const char* name, const char* history);

// With "-app": 1, and the process stays in the foreground. Otherwise prints "start daemon OK" and
// returns 0 in the detached process; the calling process has ended.
int morvan_check_deamon(int argc, char* argv[]);

// Detaches the process: new session, standard streams on the null device, working folder "/", file
// mode mask 0. Ignores SIGCHLD, SIGPIPE, SIGINT, SIGHUP and SIGABRT. Returns in the grandchild
// only; the calling process ends with status 0, with 1 when a fork failed.
void _init_daemon();  // NOLINT(bugprone-reserved-identifier): the name is part of the interface

// Blocks SIGPIPE and SIGTERM for this thread and all that it starts; false and a log line when that
// fails.
bool BlockSignals();

// Ignores SIGCHLD and SIGPIPE. SIGSTOP is asked for as well, which the system refuses.
void IgnoreSignals();

// With "debug=N": sets g_debug to N as atoi reads it. Returns g_debug.
int morvan_check_debug(int argc, char* argv[]);

// Installs signal_handler for SIGTERM and SIGINT.
void InstallSignalHandler();

// Prints "Recv signal:%d ... " in the log's console form; SIGINT and SIGTERM also clear g_nMainRun.
// Does only what is safe in a handler.
void signal_handler(int sig);

// Whether the settings name a way of working that there is for their store: none, which is the one
// that existing installations rely on, or "once". A line on standard output and in the run log says
// what is wrong otherwise.
bool CheckDelivery();

// The same for the number of workers: none, or one from 1 to kMostWorkers.
bool CheckWorkers();

// Opens the run log and writes its first line, and one about workers that the way of working does
// not have.
void StartRunLog();

// True when the index marker file exists. A helper for users of that file; nothing here calls it.
bool IsNoMidTable();

// Holds paths::kLockFile, locked, while this process is the only instance.
//
// The file has mode 0644. It is opened only if it is a regular file of this user: a link, a pipe or
// another user's file in its place is refused. For one thread at a time.
class CCheckUnique {
 public:
  CCheckUnique() = default;
  // Removes the lock file, unless it is not this instance's any more, and unlocks it.
  ~CCheckUnique();
  CCheckUnique(const CCheckUnique&) = delete;
  CCheckUnique& operator=(const CCheckUnique&) = delete;

  // Takes the lock without waiting. False when another process holds it, or when the file cannot be
  // opened; the latter is printed, and in a daemon, whose prints nobody sees, logged. To be called
  // once.
  bool check_unique();

  // Puts the file back where somebody removed it, locked, which is logged. Where another instance
  // was faster, or something else stands in the way, that is logged once, and the lock on the old
  // file is kept: the file is put back by a later call, when the way is free. To be called every
  // now and then.
  void Renew();

 private:
  enum class Taken { kYes, kHeldByAnother, kRefused };
  static Taken Take(FileDescriptor& lock);

  FileDescriptor m_lock;  // closing it unlocks as well
  bool m_told = false;    // that the file cannot be put back
};
