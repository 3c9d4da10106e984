// A rewritten file has twelve fields a line, and rewriting it without its flags changes nothing.
#include <algorithm>

#include "fuzz/fuzz.h"
#include "localuser/tourlocaluser.h"

std::string Canonical(const std::string& input) {
  static TourLocalUser registry;
  static const int loaded = registry.LoadConfig(FileOf("1300000\n1400000\n", "/tmp/fuzz-blocks"));
  assert(loaded == 1 && registry.ParseMemfile(FileOf(input), "/tmp/fuzz-copy") == 1);
  std::string records;
  std::ifstream copy("/tmp/fuzz-copy", std::ios::binary);
  for (std::string line; std::getline(copy, line);) {
    assert(std::count(line.begin(), line.end(), '\t') == 11);
    assert(line[line.size() - 2] == '\t' && line.back() >= '0' && line.back() <= '2');
    records += line.substr(0, line.size() - 2) + "\n";
  }
  return records;
}
