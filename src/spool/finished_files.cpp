#include "spool/finished_files.h"

#include <unistd.h>

namespace {

// Each of them costs two looks at the disk. Where more have failed, the exact number matters to
// nobody.
constexpr std::size_t kMostStems = 1000;
constexpr std::size_t kEnding = 3;

bool IsThere(const std::string& folder, const std::string& stem, const char* ending) {
  std::string path = folder;
  path.append("/").append(stem).append(ending);
  return access(path.c_str(), F_OK) == 0;
}

}  // namespace

void FinishedFiles::See(std::string_view name) {
  if (name.ends_with(".mid")) {
    ++m_counts.loaded;
  } else if (name.ends_with(".err")) {
    ++m_counts.failed;
    if (m_stems.size() < kMostStems) m_stems.emplace_back(name.substr(0, name.size() - kEnding));
  }
}

InSpool FinishedFiles::CountIn(const std::string& folder) const {
  InSpool counts = m_counts;
  for (const std::string& stem : m_stems) {
    if (IsThere(folder, stem, "mid") || IsThere(folder, stem, "dat")) {
      --counts.failed;
    }
  }
  return counts;
}
