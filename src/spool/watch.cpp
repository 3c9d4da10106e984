#include "spool/watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>

#include "spool/mem_file.h"
#include "spool/spool_system.h"
#include "support/paths.h"

namespace {

// A producer renames a whole file into place, or writes it under its name and closes it. Creation
// alone is no sign that a file is whole.
constexpr std::uint32_t kFolderEvents =
    IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kSpoolEvents =
    IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// The kernel reports only what this machine does to a folder: on a remote file system the changes
// of other machines would be missed.
bool IsLocal(const std::string& path) {
  const FileDescriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && SpoolSystem::Real().IsLocal(folder.get());
}

}  // namespace

// Without a bell, for want of descriptors, a wait lasts until its time is over.
SpoolWatch::SpoolWatch() : m_bell(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

void SpoolWatch::Wake() { [[maybe_unused]] const int ignored = eventfd_write(m_bell.get(), 1); }

// False makes the caller poll. What is watched already stays so, since its events still come sooner
// than the next poll.
bool SpoolWatch::Watch(const std::vector<std::string>& folders) {
  if (!m_inotify) m_inotify.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!m_inotify || !WatchSpool()) return false;
  return std::all_of(folders.begin(), folders.end(),
                     [this](const std::string& folder) { return WatchFolder(folder); });
}

bool SpoolWatch::WatchSpool() {
  if (m_spool >= 0) return true;
  if (!IsLocal(paths::kSpool)) return false;
  m_spool = inotify_add_watch(m_inotify.get(), paths::kSpool, kSpoolEvents);
  return m_spool >= 0;
}

bool SpoolWatch::WatchFolder(const std::string& folder) {
  if (m_watches.count(folder) != 0) return true;
  const std::string path = paths::kSpool + folder;
  if (!IsLocal(path)) return false;
  const int watch = inotify_add_watch(m_inotify.get(), path.c_str(), kFolderEvents);
  if (watch < 0) return false;
  m_folders[watch] = folder;
  m_watches[folder] = watch;
  return true;
}

// The kernel may give the number of a watch that has ended to a later one.
void SpoolWatch::Forget(int watch) {
  if (watch == m_spool) m_spool = -1;
  const auto found = m_folders.find(watch);
  if (found == m_folders.end()) return;
  m_watches.erase(found->second);
  m_folders.erase(found);
}

// An event without names asks for a look around: the queue has run over, or a watched folder is
// gone or has another name, and nobody can tell what was missed meanwhile.
std::vector<SpoolWatch::Event> SpoolWatch::Wait(std::chrono::milliseconds longest) {
  // The system passes over a descriptor that is none.
  pollfd waiting[] = {{m_bell.get(), POLLIN, 0}, {m_inotify.get(), POLLIN, 0}};
  std::vector<Event> seen;
  if (poll(waiting, std::size(waiting), static_cast<int>(longest.count())) <= 0) return seen;
  eventfd_t rings = 0;
  if (waiting[0].revents != 0) eventfd_read(m_bell.get(), &rings);
  alignas(inotify_event) char buffer[16 * 1024];
  for (;;) {
    const ssize_t size = read(m_inotify.get(), buffer, sizeof buffer);
    if (size <= 0) return seen;
    for (const char* at = buffer; at < buffer + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      at += sizeof(inotify_event) + event->len;
      const std::string name = event->len > 0 ? event->name : "";
      if ((event->mask & IN_Q_OVERFLOW) != 0) {
        seen.push_back({});
      } else if ((event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0) {
        // A folder that was moved away is still watched, under a name that is no longer its own.
        if ((event->mask & IN_MOVE_SELF) != 0) inotify_rm_watch(m_inotify.get(), event->wd);
        Forget(event->wd);
        seen.push_back({});
      } else if (event->wd == m_spool) {
        if (IsDatabaseId(name)) seen.push_back({name, ""});
      } else if (const auto folder = m_folders.find(event->wd); folder != m_folders.end()) {
        if (IsMemFileName(name)) seen.push_back({folder->second, name});
      }
    }
  }
}
