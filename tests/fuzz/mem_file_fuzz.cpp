// The parts of a name agree with each other, and no name with quotes passes as safe.
#include "fuzz/fuzz.h"
#include "spool/mem_file.h"
#include "support/names.h"

std::string Canonical(const std::string& input) {
  const MemFile file = MemFile::Parse(input);
  const MemFile again = MemFile::Parse(file.path);
  assert(again.path == file.path && again.table == file.table);
  assert(file.Refusal() == NameRefusal::kNoPath || again.database == file.database);
  assert(FileNameOf(file.path) == FileNameOf(input));
  assert(file.table.size() < 64);
  assert(file.table.size() <= 13 || TextAt(file.table, 13, 3) == "000");
  assert(!IsMemFileName(input) || input.ends_with(".dat"));
  const bool quotes = input.find_first_of("'\"`\\\n") != std::string::npos;
  assert(!quotes || (!IsSafePath(input) && !IsSafeIdentifier(input)));
  assert(!quotes || file.Refusal() != NameRefusal::kNone);
  return file.path;
}
