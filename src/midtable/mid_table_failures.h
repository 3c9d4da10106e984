// How often the statements of each mid table have failed by their own fault. After 100 failures a
// mid table is skipped for the rest of the process's life.
#pragma once

#include <map>
#include <string>

class MidTableFailures {
 public:
  // `key`: the database's name with the mid table's full name behind it.
  void Count(const std::string& key) { ++m_failures[key]; }
  // Whether the mid table is to be skipped; the first time that it is, a line says so.
  bool IsBad(const std::string& key);

 private:
  std::map<std::string, int> m_failures;
};
