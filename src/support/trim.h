// Texts without the white space around them.
#pragma once

#include <string_view>

// `text` without what the C locale takes for white space at its begin and end.
constexpr std::string_view Trim(std::string_view text) {
  constexpr std::string_view kSpace = " \t\n\v\f\r";
  const std::size_t begin = text.find_first_not_of(kSpace);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin);
}
