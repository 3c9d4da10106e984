// A mutex that clang's thread safety analysis understands: a member marked GUARDED_BY(m) is an
// error to touch without holding m. Other compilers see a plain std::mutex.
#pragma once

#include <mutex>

#if defined(__clang__)
#define MIDTABLE_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define MIDTABLE_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) MIDTABLE_THREAD_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY MIDTABLE_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) MIDTABLE_THREAD_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) MIDTABLE_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) MIDTABLE_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) MIDTABLE_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) MIDTABLE_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { m_mutex.lock(); }
  void unlock() RELEASE() { m_mutex.unlock(); }

 private:
  std::mutex m_mutex;
};

// Holds a Mutex from construction to the end of the scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~MutexLock() RELEASE() { m_mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& m_mutex;
};
