// The board as the text of the state file: docs/state.md describes the format.
#pragma once

#include <ctime>
#include <string>

#include "state/board.h"

// What does not change as long as the service runs.
struct ServiceFacts {
  std::string delivery;  // "once", or empty
  int workers = 1;
  std::time_t started_at = 0;
};

std::string StateText(const ServiceFacts& facts, const StateBoard& board, std::time_t now);
