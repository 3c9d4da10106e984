// Paths in the order of their bytes, in a tenth of the memory that a set of strings takes: the
// names of a folder's mem files differ in a few characters only.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Neighbours share a block, in which each path is kept as the number of characters that it shares
// with the one before it and the text that follows (front coding). A search looks through one
// block; a change packs that block anew. No path may contain a NUL, which none can in a file
// system. For one thread at a time.
class PathSet {
 public:
  // False when the path is in the set already.
  bool Insert(const std::string& path);
  // Nothing for a path that is not in the set.
  void Erase(const std::string& path);
  // All paths that start with that text.
  void EraseAllWithPrefix(std::string_view prefix);

  bool empty() const { return m_blocks.empty(); }
  std::size_t size() const { return m_size; }
  std::string First() const;  // empty without any
  // Replaces `path`, which need not be in the set, with the one that follows. False without one.
  bool Advance(std::string& path) const;

 private:
  using Paths = std::vector<std::string>;

  std::size_t BlockOf(std::string_view path) const;
  void Replace(std::size_t block, const Paths& paths);

  std::vector<std::string> m_blocks;  // none is empty
  std::size_t m_size = 0;
};
