// The file handling around the rewriting of a mem file of kind F.
#pragma once

#include <string>

#include "localuser/tourlocaluser.h"

// Puts a copy with local flags in the place of the mem file. The file as it came is kept where
// lines of it were dropped: as ".err" where the copy came out smaller, else as ".orig". False: the
// file is as it was, and there is no copy.
bool RewriteMemFile(const std::string& path, TourLocalUser& registry);
