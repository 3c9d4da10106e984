// The frame of a fuzz target. The target's source defines Canonical, which runs the code under test
// on an input and returns the result in a form of which the code must make the same result again.
// A failed assertion is a finding.
#pragma once

#undef NDEBUG
#include <cassert>
#include <cstdint>
#include <fstream>
#include <string>

std::string Canonical(const std::string& input);

// Writes a file of that content and returns its path.
inline const char* FileOf(const std::string& content, const char* path = "/tmp/fuzz-input") {
  assert(std::ofstream(path, std::ios::binary) << content << std::flush);
  return path;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string once = Canonical({reinterpret_cast<const char*>(data), size});
  assert(Canonical(once) == once);
  return 0;
}
