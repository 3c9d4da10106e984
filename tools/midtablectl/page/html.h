// Writes HTML in which no text can become markup.
//
// Names of files, lines of the run log and words of a server may hold anything, a script for
// instance. So markup is made of literals of this program alone, which the compiler checks, and
// every other text passes through one function that escapes it. There is no third way.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// A text of the program itself. Only a constant can be converted to it: what is read at run time
// does not compile.
class Literal {
 public:
  consteval Literal(const char* text) : m_text(text) {}  // NOLINT(google-explicit-constructor)
  std::string_view text() const { return m_text; }

 private:
  std::string_view m_text;
};

// The value is escaped. Attributes that hold a script, a style or an address are for literals only,
// which is for the caller to see to: no escape makes a foreign address harmless.
struct Attribute {
  Literal name;
  std::string value;
};

class Html {
 public:
  using Attributes = std::initializer_list<Attribute>;

  // Ends its element at the end of the scope, so that elements are always nested well.
  class [[nodiscard]] Scope {
   public:
    Scope(Html& html, Literal tag) : m_html(html), m_tag(tag) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { m_html.End(m_tag); }

   private:
    Html& m_html;
    Literal m_tag;
  };

  // Begins an element, which lasts as long as the result.
  Scope Begin(Literal tag, Attributes attributes = {});
  // A whole element with nothing but a text in it.
  void Element(Literal tag, std::string_view text, Attributes attributes = {});
  // An element that has no content.
  void Void(Literal tag, Attributes attributes);
  void Text(std::string_view text);
  void Markup(Literal markup) { m_out += markup.text(); }

  const std::string& document() const { return m_out; }

 private:
  void Open(Literal tag, Attributes attributes);
  void End(Literal tag);

  std::string m_out;
};

// The text as it may stand between tags and between double quotes of an attribute. Control
// characters read as "?", as everywhere in this tool. What is no UTF-8, and the characters that
// turn the direction of the text around them, read as U+FFFD.
std::string Escaped(std::string_view text);

}  // namespace ctl
