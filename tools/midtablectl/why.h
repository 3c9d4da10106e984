// Why a mem file failed, or the conversion of a loaded one: the run log's lines of that moment, and
// what to do.
#pragma once

#include <string>

#include "midtablectl/console.h"

namespace ctl {

// `file`: a path, or the bare name of a file in the spool.
Status Why(const std::string& file, Console& console);

}  // namespace ctl
