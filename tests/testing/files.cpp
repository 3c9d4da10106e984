#include "testing/files.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "gtest/gtest.h"

namespace fs = std::filesystem;

std::string ReadFile(const std::string& path) {
  const std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << "cannot read " << path;
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, std::string_view content) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  EXPECT_TRUE(out) << "cannot write " << path;
}

std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(path, missing)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void AwaitSingleThread() {
  for (int i = 0; i < 1000 && ListFolder("/proc/self/task").size() > 1; ++i) usleep(1000);
}

CapturedStdout::CapturedStdout() { testing::internal::CaptureStdout(); }

CapturedStdout::~CapturedStdout() {
  if (m_open) testing::internal::GetCapturedStdout();
}

std::string CapturedStdout::text() {
  m_open = false;
  return testing::internal::GetCapturedStdout();
}
