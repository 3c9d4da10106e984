// Mem tables whose rows are converted but could not be removed then. Those rows would be counted
// again together with the next file's, so they are removed before that is loaded.
#pragma once

#include <chrono>
#include <set>
#include <string>

#include "tables/store.h"

// Holds qualified names. One thread.
class NotEmptied {
 public:
  void Add(const std::string& table) { m_tables.insert(table); }
  // Empties the table if it is one of these. False, after a line in the run log, when it still
  // holds its rows.
  bool Empty(Store& store, const std::string& table);
  // Whether EmptyAll is due: there are tables, and the last try is a minute ago. `now` is that of a
  // steady clock.
  bool IsDue(std::chrono::nanoseconds now) const;
  void EmptyAll(Store& store, std::chrono::nanoseconds now);
  // One line in the run log for each table that is left.
  void LogLeft() const;

 private:
  std::set<std::string> m_tables;
  std::chrono::nanoseconds m_tried_at{};
};
