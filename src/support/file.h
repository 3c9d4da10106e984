// Owning handles for what the C library and the kernel hand out.
#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// A stdio stream closed at the end of its scope. Where the result of the close matters, release()
// it and call fclose.
using File = std::unique_ptr<std::FILE, FileCloser>;
