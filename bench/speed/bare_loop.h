// The loop that bounds every rewriting: reads each line and writes it, nothing more.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/file.h"

// Copies `in` to the new file `out`, one write a line. False when a file cannot be opened or
// written.
inline bool CopyLines(const std::string& in, const std::string& out) {
  const File file(std::fopen(in.c_str(), "r"));
  const FileDescriptor copy(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644));
  if (file == nullptr || !copy) return false;
  char* line = nullptr;
  std::size_t capacity = 0;
  ssize_t size = 0;
  bool written = true;
  while (written && (size = getline(&line, &capacity, file.get())) > 0) {
    written = write(copy.get(), line, static_cast<std::size_t>(size)) == size;
  }
  std::free(line);
  return written;
}
