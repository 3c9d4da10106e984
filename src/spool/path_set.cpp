#include "spool/path_set.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

namespace {

// A block of that many is some 1,000 bytes, which are looked through in less than a microsecond.
constexpr std::size_t kMostInBlock = 64;
constexpr std::size_t kMostShared = std::numeric_limits<unsigned char>::max();

// Of each path a byte with the number of shared characters, the text behind them, and a NUL.
class BlockReader {
 public:
  explicit BlockReader(std::string_view block) : m_rest(block) {}

  bool Next() {
    if (m_rest.empty()) return false;
    const std::string_view text(m_rest.data() + 1);
    m_path.resize(static_cast<unsigned char>(m_rest.front()));
    m_path += text;
    m_rest.remove_prefix(1 + text.size() + 1);
    return true;
  }
  const std::string& path() const { return m_path; }

 private:
  std::string_view m_rest;
  std::string m_path;
};

std::string_view FirstPath(const std::string& block) { return block.c_str() + 1; }

bool Contains(const std::string& block, std::string_view path) {
  BlockReader reader(block);
  while (reader.Next()) {
    if (reader.path() >= path) return reader.path() == path;
  }
  return false;
}

std::vector<std::string> Unpack(const std::string& block) {
  std::vector<std::string> paths;
  BlockReader reader(block);
  while (reader.Next()) paths.push_back(reader.path());
  return paths;
}

std::string Pack(std::span<const std::string> paths) {
  std::string block;
  std::string_view before;
  for (const std::string& path : paths) {
    const auto [end, unused] =
        std::mismatch(path.begin(), path.end(), before.begin(), before.end());
    const auto equal = static_cast<std::size_t>(end - path.begin());
    const std::size_t shared = std::min(equal, kMostShared);
    block += static_cast<char>(shared);
    block.append(path, shared).push_back('\0');
    before = path;
  }
  block.shrink_to_fit();
  return block;
}

}  // namespace

// The last block that begins at or before the path; the first one where all begin behind it.
std::size_t PathSet::BlockOf(std::string_view path) const {
  const auto behind = std::upper_bound(
      m_blocks.begin(), m_blocks.end(), path,
      [](std::string_view value, const std::string& block) { return value < FirstPath(block); });
  return behind == m_blocks.begin() ? 0 : static_cast<std::size_t>(behind - m_blocks.begin()) - 1;
}

void PathSet::Replace(std::size_t block, const Paths& paths) {
  const auto at = m_blocks.begin() + static_cast<std::ptrdiff_t>(block);
  if (paths.empty()) {
    m_blocks.erase(at);
    return;
  }
  const std::size_t half = paths.size() <= kMostInBlock ? paths.size() : paths.size() / 2;
  *at = Pack(std::span(paths).first(half));
  if (half < paths.size()) m_blocks.insert(at + 1, Pack(std::span(paths).subspan(half)));
}

bool PathSet::Insert(const std::string& path) {
  if (m_blocks.empty()) {
    m_blocks.push_back(Pack({&path, 1}));
    m_size = 1;
    return true;
  }
  const std::size_t block = BlockOf(path);
  if (Contains(m_blocks[block], path)) return false;
  Paths paths = Unpack(m_blocks[block]);
  paths.insert(std::lower_bound(paths.begin(), paths.end(), path), path);
  Replace(block, paths);
  ++m_size;
  return true;
}

void PathSet::Erase(const std::string& path) {
  if (m_blocks.empty()) return;
  const std::size_t block = BlockOf(path);
  Paths paths = Unpack(m_blocks[block]);
  if (std::erase(paths, path) == 0) return;
  Replace(block, paths);
  --m_size;
}

void PathSet::EraseAllWithPrefix(std::string_view prefix) {
  for (std::size_t block = BlockOf(prefix); block < m_blocks.size();) {
    const std::string_view first = FirstPath(m_blocks[block]);
    if (first > prefix && !first.starts_with(prefix)) return;
    Paths paths = Unpack(m_blocks[block]);
    m_size -=
        std::erase_if(paths, [&](const std::string& path) { return path.starts_with(prefix); });
    Replace(block, paths);
    if (!paths.empty()) ++block;
  }
}

std::string PathSet::First() const {
  return m_blocks.empty() ? std::string() : std::string(FirstPath(m_blocks.front()));
}

bool PathSet::Advance(std::string& path) const {
  if (m_blocks.empty()) return false;
  const std::size_t block = BlockOf(path);
  BlockReader reader(m_blocks[block]);
  while (reader.Next()) {
    if (reader.path() > path) {
      path = reader.path();
      return true;
    }
  }
  if (block + 1 == m_blocks.size()) return false;
  path = FirstPath(m_blocks[block + 1]);
  return true;
}
