// A rewritten file has twelve fields a line, and rewriting it without its flags changes nothing. A
// load source sends the same bytes, in reads of any size, and leaves the file as it came.
#include <algorithm>
#include <sstream>

#include "delivery/load_source.h"
#include "fuzz/fuzz.h"

namespace {

std::string ContentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Reads of sizes that the content itself chooses.
std::string Sent(const MemFile& file, TourLocalUser& registry, const std::string& sizes) {
  LoadSource source(file, &registry);
  assert(source.Open() == LoadSource::Opened::kReady);
  std::string sent;
  char buffer[256];
  for (std::size_t i = 0;; ++i) {
    const unsigned char choice =
        sizes.empty() ? 0 : static_cast<unsigned char>(sizes[i % sizes.size()]);
    const int got = source.Read(buffer, choice + 1U);
    assert(got >= 0 && !source.HasChanged());
    if (got == 0) return sent;
    sent.append(buffer, static_cast<std::size_t>(got));
  }
}

}  // namespace

std::string Canonical(const std::string& input) {
  static TourLocalUser registry;
  static const int loaded = registry.LoadConfig(FileOf("1300000\n1400000\n", "/tmp/fuzz-blocks"));
  const std::string path = FileOf(input, "/tmp/1a2b3c4d-MEM_20121231_1000F-20121231-101500.dat");
  assert(loaded == 1 && registry.ParseMemfile(path, "/tmp/fuzz-copy") == 1);
  const std::string rewritten = ContentOf("/tmp/fuzz-copy");
  assert(Sent(MemFile::Parse(path), registry, input) == rewritten && ContentOf(path) == input);
  std::string records;
  std::istringstream lines(rewritten);
  for (std::string line; std::getline(lines, line);) {
    assert(std::count(line.begin(), line.end(), '\t') == 11);
    assert(line[line.size() - 2] == '\t' && line.back() >= '0' && line.back() <= '2');
    records += line.substr(0, line.size() - 2) + "\n";
  }
  return records;
}
