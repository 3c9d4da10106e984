// Small helpers for tests that live on files.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include "gtest/gtest.h"

// The whole file; an unreadable one is a test failure and reads as "".
inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(in), {}};
}

// Writes the file, making its folders; a failure to write is a test failure.
inline void WriteFile(const std::string& path, std::string_view content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary);
  EXPECT_TRUE(out << content << std::flush) << "cannot write " << path;
}

// The names in a folder, sorted; empty for a missing one.
inline std::vector<std::string> ListFolder(const std::string& path) {
  std::set<std::string> names;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(path, missing)) {
    names.insert(entry.path().filename());
  }
  return {names.begin(), names.end()};
}

// Waits until this process has one thread, for a second at most.
inline void AwaitSingleThread() {
  for (int i = 0; i < 1000 && ListFolder("/proc/self/task").size() > 1; ++i) usleep(1000);
}

// Collects what is printed to standard output, by printf and by write(2), until text() is called or
// the object's life ends. There can be one at a time.
class CapturedStdout {
 public:
  CapturedStdout() { testing::internal::CaptureStdout(); }
  ~CapturedStdout() {
    if (m_open) text();
  }
  // Ends the capture and returns what was printed.
  std::string text() {
    m_open = false;
    return testing::internal::GetCapturedStdout();
  }

 private:
  bool m_open = true;
};
