// The one door through which a text from an XML file becomes a statement.
//
// Templates are printf formats written by whoever maintains the definition files, so a faulty one
// must be an error text and never undefined behaviour: its conversions are compared with the values
// before anything is formatted.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

using TemplateValue = std::variant<std::string, int>;

struct FilledTemplate {
  std::string text;   // the statement; empty after an error
  std::string error;  // what is wrong with the template; empty when nothing is

  explicit operator bool() const { return error.empty(); }
};

// Statements from this size on, in bytes, are refused: one that Format cut somewhere may still be
// valid SQL, and do something else.
inline constexpr std::size_t kLongestStatement = 10'238;

// Formats `text` with `values`, in order. Conversions: "%s" takes a text, "%d", "%i", "%u", "%o",
// "%x" and "%X" a number, each with printf's flags, a width and a precision of up to 9,999; "%%" is
// a percent sign. Fewer conversions than values are fine. Errors: more conversions than values, a
// conversion of the other type or of any other kind ("%n", "%*d", "%ld", "%1$s"), a larger width or
// precision, a "%" at the end, too long a result.
FilledTemplate FillTemplate(std::string_view text, std::span<const TemplateValue> values);
