#include "support/housekeeping.h"

#include <utility>

#include "support/mutex.h"

namespace {

Mutex g_lock;
std::function<void()> g_work GUARDED_BY(g_lock);

}  // namespace

Housekeeping::Housekeeping(std::function<void()> work) {
  const MutexLock lock(g_lock);
  g_work = std::move(work);
}

Housekeeping::~Housekeeping() {
  const MutexLock lock(g_lock);
  g_work = nullptr;
}

void KeepHouse() {
  const MutexLock lock(g_lock);
  if (g_work) g_work();
}
