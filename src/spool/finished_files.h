// How many files of a folder are done with, counted while somebody reads the folder anyway.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "state/board.h"

class FinishedFiles {
 public:
  void Clear() { *this = {}; }
  // A name of the folder.
  void See(std::string_view name);
  // Of all names so far. A file that failed is none where another file of its name waits or is
  // loaded: it is the first form of a delivery whose good lines are in that one.
  InSpool CountIn(const std::string& folder) const;

 private:
  InSpool m_counts;
  std::vector<std::string> m_stems;  // of failed files, with a dot at the end
};
