// The name under which every source of the engine writes to the run log.
#pragma once

inline constexpr char kUnit[] = "Midtable";
