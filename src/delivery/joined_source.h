// The bytes of several mem files as those of one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db/LocalLoad.h"
#include "delivery/load_source.h"

// One statement for a whole batch saves a question and an answer for each file, which is what a
// load takes where the server is far away. Where the server counted other records than lines()
// says, lines of different files may have become one: the batch is then to be loaded file by file.
class JoinedSource : public LoadBytes {
 public:
  // Opened sources, of which nothing was read yet. They must outlive the object.
  explicit JoinedSource(std::vector<LoadSource*> sources) : m_sources(std::move(sources)) {}

  // A file whose last line has no end gets one, unless it is the last of all.
  int Read(char* buffer, unsigned int size) override;
  // That of the file that could not be read.
  std::string error() const override;

  // Of all files.
  std::uint64_t lines() const;

 private:
  const std::vector<LoadSource*> m_sources;
  std::size_t m_at = 0;
};
