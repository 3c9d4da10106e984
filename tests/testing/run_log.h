// What the code under test writes to the run log; until that is opened, it is standard output.
#pragma once

#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "testing/files.h"

using Lines = std::vector<std::string>;

// Runs `action` and returns what it logged at levels 0 to 3, each line as "<level>:text".
inline Lines LogOf(const std::function<void()>& action) {
  CapturedStdout out;
  action();
  std::istringstream captured(out.text());
  static const std::regex form(R"(\[\w+:\d+\](<[0-3]>:.*))");
  Lines lines;
  std::smatch match;
  for (std::string line; std::getline(captured, line);) {
    if (std::regex_match(line, match, form)) lines.push_back(match[1]);
  }
  return lines;
}
