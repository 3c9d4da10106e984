// The items of a name agree with each other, and no name with quotes passes as safe.
#include "fuzz/fuzz.h"
#include "midtable/mem_file_name.h"

std::string Canonical(const std::string& input) {
  const std::string path = MemFilePath(input), table = MemFileTable(input);
  assert(path.empty() || (FileNameOf(path) == FileNameOf(input) && MemFileTable(path) == table));
  assert(path.empty() || MemFileDatabase(path) == MemFileDatabase(input));
  assert(table.size() < 64 && (table.size() <= 13 || TextAt(table, 13, 3) == "000"));
  assert(!IsMemFileName(input) || input.ends_with(".dat"));
  const bool quotes = input.find_first_of("'\"`\\\n") != std::string::npos;
  assert(!quotes || (!IsSafePath(input) && !IsSafeIdentifier(input)));
  return path;
}
