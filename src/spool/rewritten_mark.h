// The mark of a mem file that was rewritten.
#pragma once

#include <sys/stat.h>

// A mode bit. The rows of such a file carry the local flag already and would be dropped if they
// were rewritten again, after a crash or when an operator has the file loaded once more. A mode bit
// is set and renamed together with the file, and every kind of file system has it.
inline constexpr mode_t kRewrittenMark = S_ISVTX;
