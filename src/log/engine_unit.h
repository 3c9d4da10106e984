// The name under which every source of the engine writes to the run log, in whatever folder it is.
#pragma once

inline constexpr char kUnit[] = "Midtable";
