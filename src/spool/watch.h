// Tells what comes into the spool without reading its folders, by inotify(7).
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/file.h"

// One thread, but for Wake.
class SpoolWatch {
 public:
  SpoolWatch();

  // What was seen. A file: it was moved into the folder or closed after writing. An empty name: the
  // folder has come, or names in it were missed; it is to be read. An empty folder: the spool is to
  // be read.
  struct Event {
    std::string folder;
    std::string name;
  };

  // Watches the spool and those of its folders; may be called again, for new folders and after
  // the spool has come back. False when something cannot be watched: no spool, no watches left, or
  // a file system on which others may write without this machine noticing.
  bool Watch(const std::vector<std::string>& folders);
  // Waits for events, for that long at most; returns early when a signal came. Where nothing can be
  // watched it sleeps.
  std::vector<Event> Wait(std::chrono::milliseconds longest);
  // Ends the wait that is under way, or the next one. Any thread.
  void Wake();

 private:
  bool WatchSpool();
  bool WatchFolder(const std::string& folder);
  void Forget(int watch);

  FileDescriptor m_inotify;
  const FileDescriptor m_bell;
  int m_spool = -1;                      // watch of the spool itself
  std::map<int, std::string> m_folders;  // by watch
  std::map<std::string, int> m_watches;  // by folder
};
