// Loading rows that the client sends, by "load data local infile".
#pragma once

#include <cstdint>
#include <string>

// The bytes of one load. The name in the statement, and the name that the server asks for, mean
// nothing: a load is given these bytes and no others.
class LoadBytes {
 public:
  virtual ~LoadBytes() = default;
  // Up to `size` bytes into `buffer`: their number, 0 at the end, or -1 with the reason in error(),
  // which ends the load with a failure. Rows that were sent before stay in the table until the
  // transaction is rolled back.
  virtual int Read(char* buffer, unsigned int size) = 0;
  virtual std::string error() const = 0;
};

// What the server says of a load.
struct LoadCounts {
  std::uint64_t records = 0;
  std::uint64_t skipped = 0;  // for a key that the table had already
  std::uint64_t warnings = 0;
};
