// The set of local number blocks, asked once for every record of every file. A block is a text; one
// of exactly seven digits, which is what all real ones are, is a bit in a map of ten million
// (1.25 MB, taken by the first insert), any other text goes into an ordinary set.
//
// Threads: none of its own business; the owner locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

class BlockSet {
 public:
  // Digits of a number block.
  static constexpr std::size_t kDigits = 7;
  // One more than the largest number that kDigits digits can write.
  static constexpr std::uint32_t kBlocks = 10'000'000;

  // Whether a text is a number block: exactly kDigits digits.
  static bool IsBlock(std::string_view text);

  // Empties the set and returns its memory.
  void clear();
  // Adds a text of any kind, the empty one included.
  void insert(std::string_view text);
  // Whether exactly this text was inserted.
  bool contains(std::string_view text) const;
  // The same for the seven digits that write `block`, which must be below kBlocks.
  bool containsBlock(std::uint32_t block) const { return !m_blocks.empty() && m_blocks[block]; }

 private:
  std::vector<bool> m_blocks;  // empty or kBlocks long
  std::set<std::string, std::less<>> m_others;
};
