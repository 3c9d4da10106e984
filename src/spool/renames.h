// Renames of mem files that lose none of them. No operation follows a link in the last part of a
// path; each returns false, with errno, when it did not come to its end.
#pragma once

#include <string>

// Renames `from` to `to` unless something has that name, which is EEXIST. False: `from` has its
// name, and maybe both.
bool RenameToFreeName(const std::string& from, const std::string& to);

// Renames `from` to `to` and returns whether `from` is gone. Of two names of one file `to` is left.
// Another file that has the name `to` is replaced, but a ".err", which holds rows that are nowhere
// else, is set aside before: it becomes `to`.1, or the first such name that is free.
bool MoveMemFile(const std::string& from, const std::string& to);

// Makes `kept` a second name of the file, so that the first can be given away without a moment in
// which the file has none; where the file system has no hard links it is renamed. A `kept` of
// another file is set aside as above. False: the file has its old name only.
bool KeepMemFile(const std::string& path, const std::string& kept);
