// Clocks and folder stamps of the test's making.
#pragma once

#include <chrono>
#include <string>

#include "spool/spool_system.h"

class ScriptedSystem : public SpoolSystem {
 public:
  std::chrono::nanoseconds WallClock() const override { return now + set; }
  std::chrono::nanoseconds SteadyClock() const override { return now; }
  bool IsLocal(int /*folder*/) const override { return local; }
  // That of the real folder but for the time of its change.
  bool Stamp(const std::string& folder, FolderStamp& stamp) const override {
    if (!SpoolSystem::Stamp(folder, stamp)) return false;
    stamp.changed = changed;
    return true;
  }

  std::chrono::milliseconds now = std::chrono::seconds(1000);
  std::chrono::milliseconds set{};  // how far somebody has set the wall clock
  std::chrono::milliseconds changed = now - std::chrono::milliseconds(2001);  // long enough ago
  bool local = true;
};
