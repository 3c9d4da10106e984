// Small helpers for tests that live on files.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The whole file; an unreadable one is a test failure and reads as "".
std::string ReadFile(const std::string& path);
// Writes the file, making its folders; a failure to write is a test failure.
void WriteFile(const std::string& path, std::string_view content);
// The names in a folder, sorted; empty for a missing one.
std::vector<std::string> ListFolder(const std::string& path);

// Waits until this process has one thread, for a second at most.
void AwaitSingleThread();

// Collects what is printed to standard output, by printf and by write(2), until text() or the end
// of its life. One at a time.
class CapturedStdout {
 public:
  CapturedStdout();
  ~CapturedStdout();
  // Ends the capture and returns what was printed.
  std::string text();

 private:
  bool m_open = true;
};
