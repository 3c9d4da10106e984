#include "tables/sql_template.h"

#include <algorithm>
#include <charconv>

#include "log/zux_center_log.h"

namespace {

// The largest width and the largest precision. printf takes seconds for a result of a gigabyte, and
// gives no result at all where it cannot count the characters.
constexpr unsigned int kMostCharacters = 9'999;

// One "%..." of a template.
struct Conversion {
  std::string text;       // as it stands, from the percent sign on
  char kind = '\0';       // its last character; 0 when the template ends before
  bool too_wide = false;  // width or precision above kMostCharacters
};

// Whether `digits`, of which there may be none, write a number that is too large.
bool IsTooWide(std::string_view digits) {
  unsigned int number = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), number);
  return error == std::errc::result_out_of_range || number > kMostCharacters;
}

// A conversion is read as printf reads it: flags, a width, a precision, then the letter. Anything
// else, such as a length modifier or "*", ends up as the letter, which the caller refuses.
Conversion LeadingConversion(std::string_view text) {
  std::size_t end = 1;
  const auto skip = [&](std::string_view set) {
    const std::size_t begin = end;
    end = std::min(text.find_first_not_of(set, begin), text.size());
    return text.substr(begin, end - begin);
  };
  constexpr std::string_view kDigits = "0123456789";
  skip("-+ #0'");
  bool too_wide = IsTooWide(skip(kDigits));
  if (end < text.size() && text[end] == '.') {
    ++end;
    too_wide |= IsTooWide(skip(kDigits));
  }
  if (end == text.size()) return {std::string(text), '\0', too_wide};
  return {std::string(text.substr(0, end + 1)), text[end], too_wide};
}

// Numbers are never shown as texts nor texts as numbers: printf would read the wrong kind of
// argument.
bool Takes(char kind, const TemplateValue& value) {
  if (std::holds_alternative<std::string>(value)) return kind == 's';
  return kind != '\0' && std::string_view("diuoxX").find(kind) != std::string_view::npos;
}

// Empty when `conversion` can be given the value at `index`.
std::string Fault(const Conversion& conversion, std::span<const TemplateValue> values,
                  std::size_t index) {
  if (conversion.kind == '\0') return "template ends inside \"" + conversion.text + "\"";
  if (std::string_view("sdiuoxX").find(conversion.kind) == std::string_view::npos) {
    return "template has the conversion \"" + conversion.text + "\", which is not allowed";
  }
  if (conversion.too_wide) {
    return "template has \"" + conversion.text + "\", a width or precision above 9999";
  }
  if (index >= values.size()) {
    return "template has more conversions than the " + std::to_string(values.size()) +
           " values it gets";
  }
  if (!Takes(conversion.kind, values[index])) {
    return "template has \"" + conversion.text + "\" where value " + std::to_string(index + 1) +
           " is a " + (std::holds_alternative<int>(values[index]) ? "number" : "text");
  }
  return {};
}

std::string Formatted(const Conversion& conversion, const TemplateValue& value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // checked against the value above
  if (const int* number = std::get_if<int>(&value)) return Format(conversion.text.c_str(), *number);
  return Format(conversion.text.c_str(), std::get<std::string>(value).c_str());
#pragma GCC diagnostic pop
}

}  // namespace

// Values are put in one at a time, each by a format of one conversion. So no value is ever read as
// part of a format, and none is missing where printf looks for one.
FilledTemplate FillTemplate(std::string_view text, std::span<const TemplateValue> values) {
  FilledTemplate filled;
  std::size_t next_value = 0;
  for (;;) {
    const std::size_t percent = text.find('%');
    filled.text += text.substr(0, percent);
    if (percent == std::string_view::npos) break;
    text.remove_prefix(percent);
    if (text.starts_with("%%")) {
      filled.text += '%';
      text.remove_prefix(2);
      continue;
    }
    const Conversion conversion = LeadingConversion(text);
    filled.error = Fault(conversion, values, next_value);
    if (!filled) break;
    filled.text += Formatted(conversion, values[next_value++]);
    text.remove_prefix(conversion.text.size());
  }
  if (filled && filled.text.size() >= kLongestStatement) {
    filled.error = "statement of " + std::to_string(kLongestStatement) + " bytes or more";
  }
  if (!filled) filled.text.clear();
  return filled;
}
