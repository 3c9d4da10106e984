#include "localuser/block_set.h"

#include <charconv>
#include <optional>

namespace {

// The number that seven digits write; nothing for any other text.
std::optional<std::uint32_t> BlockOf(std::string_view text) {
  if (text.size() != BlockSet::kDigits) return std::nullopt;
  std::uint32_t block = 0;
  const auto [stop, error] = std::from_chars(text.begin(), text.end(), block);
  if (error != std::errc() || stop != text.end()) return std::nullopt;
  return block;
}

}  // namespace

bool BlockSet::IsBlock(std::string_view text) { return BlockOf(text).has_value(); }

void BlockSet::clear() {
  m_blocks = {};
  m_others.clear();
}

void BlockSet::insert(std::string_view text) {
  const auto block = BlockOf(text);
  if (!block) {
    m_others.emplace(text);
    return;
  }
  // A registry without blocks, which a missing source leaves, needs none of this memory.
  if (m_blocks.empty()) m_blocks.resize(kBlocks);
  m_blocks[*block] = true;
}

bool BlockSet::contains(std::string_view text) const {
  const auto block = BlockOf(text);
  return block ? containsBlock(*block) : m_others.find(text) != m_others.end();
}
