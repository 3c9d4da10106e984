// The frame of a fuzz target, whose one source includes it and defines Canonical: what the code
// under test makes of an input, in a form that it takes and gives back unchanged.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/file.h"

std::string Canonical(const std::string& input);

// A finding, unless it holds.
inline void Expect(bool holds) {
  if (!holds) std::abort();
}

// Writes a file of that content and returns its path.
inline const char* FileOf(const std::string& content, const char* path = "/tmp/fuzz-input") {
  const File file(std::fopen(path, "w"));
  Expect(file && std::fwrite(content.data(), 1, content.size(), file.get()) == content.size());
  return path;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // What the code logs is not of interest.
  static std::FILE* const silent = std::freopen("/dev/null", "w", stdout);
  const std::string once = Canonical({reinterpret_cast<const char*>(data), size});
  Expect(silent != nullptr && Canonical(once) == once);
  return 0;
}
