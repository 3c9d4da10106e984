#include "midtablectl/printf_values.h"

#include <string>

namespace ctl {

namespace {

bool IsOfNumber(char c) {
  return std::string_view("-0123456789").find(c) != std::string_view::npos;
}

// Adds the values to `values`; after a false answer these are as they were.
bool Collect(std::string_view format, std::string_view text,
             std::vector<std::string_view>& values) {
  const std::size_t percent = format.find('%');
  const std::string_view literal = format.substr(0, percent);
  if (!text.starts_with(literal)) return false;
  text.remove_prefix(literal.size());
  if (percent == std::string_view::npos) return text.empty();
  // The letters of a length, as in "%zu", change nothing about the text.
  const std::size_t conversion = format.find_first_not_of("lz", percent + 1);
  const bool number = format[conversion] != 's';
  format.remove_prefix(conversion + 1);
  const std::string_view next = format.substr(0, format.find('%'));
  for (std::size_t taken = 0; taken <= text.size(); ++taken) {
    if (number && taken > 0 && !IsOfNumber(text[taken - 1])) return false;
    if (number && taken == 0) continue;
    // What follows the value is tried only where the next literal stands: anything else would make
    // the search quadratic.
    if (!text.substr(taken).starts_with(next)) continue;
    values.push_back(text.substr(0, taken));
    if (Collect(format, text.substr(taken), values)) return true;
    values.pop_back();
  }
  return false;
}

}  // namespace

std::optional<std::vector<std::string_view>> PrintfValues(std::string_view format,
                                                          std::string_view text) {
  std::vector<std::string_view> values;
  if (!Collect(format, text, values)) return std::nullopt;
  return values;
}

}  // namespace ctl
