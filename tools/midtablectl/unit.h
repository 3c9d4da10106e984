// The unit of systemd that runs the service, as the files of this machine have it.
//
// systemd itself is not asked: a check before the start of the unit must not wait for it, and what
// it was told last may be older than the files.
#pragma once

#include <string>

#include "midtablectl/findings.h"

namespace ctl {

// Whether the unit is installed at all. Without it somebody else starts the service.
bool HasUnit();

// The type that the unit has with all that is put beside it, "forking" say; empty where nothing
// says so.
std::string UnitType();

// Looks whether the unit and the way of counting fit: with delivery=once (`once`) the service tells
// systemd of itself, which only a unit of Type=notify listens to. A machine without the unit has no
// findings.
void CheckUnit(bool once, Findings& findings);

}  // namespace ctl
