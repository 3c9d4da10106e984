// What all workers share. Each member may be used by any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "localuser/tourlocaluser.h"
#include "spool/backlog.h"
#include "state/board.h"
#include "support/mutex.h"

// The server's numbers of the sessions that workers have at present. A session that holds a claim
// of this machine and is none of them was left behind.
class OwnSessions {
 public:
  void Add(const std::string& session) EXCLUDES(m_lock) {
    const MutexLock lock(m_lock);
    m_sessions.insert(session);
  }
  void Remove(const std::string& session) EXCLUDES(m_lock) {
    const MutexLock lock(m_lock);
    m_sessions.erase(session);
  }
  bool Has(const std::string& session) const EXCLUDES(m_lock) {
    const MutexLock lock(m_lock);
    return m_sessions.count(session) != 0;
  }

 private:
  mutable Mutex m_lock;
  std::set<std::string> m_sessions GUARDED_BY(m_lock);
};

// Batches that were committed, by kind: whether the definitions of a kind work.
class Commits {
 public:
  void Add(const std::string& kind) EXCLUDES(m_lock) {
    const MutexLock lock(m_lock);
    ++m_commits[kind];
  }
  std::uint64_t Of(const std::string& kind) const EXCLUDES(m_lock) {
    const MutexLock lock(m_lock);
    const auto found = m_commits.find(kind);
    return found == m_commits.end() ? 0 : found->second;
  }

 private:
  mutable Mutex m_lock;
  std::map<std::string, std::uint64_t> m_commits GUARDED_BY(m_lock);
};

struct Common {
  StateBoard board;
  Backlog backlog;
  TourLocalUser* registry = nullptr;  // null: no flags are added
  Commits commits;
  OwnSessions sessions;
  // Sessions that were lost or given up. What was learned before the last of them is not sure any
  // more: the server may be another one, or was told other things meanwhile.
  std::atomic<std::uint64_t> lost_sessions{0};
};
