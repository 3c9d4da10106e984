#include "midtablectl/page/html.h"

#include <cstdint>

#include "midtablectl/text.h"

namespace ctl {

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// How many bytes the character that begins so has; 0 for a byte that begins none.
std::size_t LengthBy(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

// Takes a character off the front of the text, and what is no character byte by byte. `code` is 0
// for the latter, and for a form that is longer than need be, a surrogate or beyond Unicode.
std::string_view NextCharacter(std::string_view& text, std::uint32_t& code) {
  static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto first = static_cast<unsigned char>(text.front());
  const std::size_t length = LengthBy(first);
  code = length < 2 ? first : first & (0xFFU >> (length + 1));
  std::size_t taken = 1;
  for (; taken < length && taken < text.size(); ++taken) {
    const auto next = static_cast<unsigned char>(text[taken]);
    if ((next & 0xC0) != 0x80) break;
    code = code << 6 | (next & 0x3F);
  }
  if (length == 0 || taken != length || code < kSmallest[length] || code > 0x10FFFF ||
      (code >= 0xD800 && code < 0xE000)) {
    code = 0;
    taken = 1;
  }
  const std::string_view character = text.substr(0, taken);
  text.remove_prefix(taken);
  return character;
}

// Whether the character turns the direction of text. A name with one could show a failed file as a
// loaded one.
bool TurnsText(std::uint32_t code) {
  return code == 0x61C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::string Escaped(std::string_view text) {
  std::string escaped;
  const std::string line = OneLine(text);
  for (std::string_view rest = line; !rest.empty();) {
    std::uint32_t code = 0;
    const std::string_view character = NextCharacter(rest, code);
    if (code == '&') {
      escaped += "&amp;";
    } else if (code == '<') {
      escaped += "&lt;";
    } else if (code == '>') {
      escaped += "&gt;";
    } else if (code == '"') {
      escaped += "&quot;";
    } else if (code == '\'') {
      escaped += "&#39;";
    } else if (code == 0 || TurnsText(code) || (code >= 0x80 && code < 0xA0)) {
      escaped += kReplacement;
    } else {
      escaped += character;
    }
  }
  return escaped;
}

void Html::Open(Literal tag, Attributes attributes) {
  m_out += '<';
  m_out += tag.text();
  for (const Attribute& attribute : attributes) {
    m_out += ' ';
    m_out += attribute.name.text();
    m_out += "=\"" + Escaped(attribute.value) + '"';
  }
}

void Html::End(Literal tag) {
  m_out += "</";
  m_out += tag.text();
  m_out += '>';
}

// The line feed is for whoever reads the source of the page.
Html::Scope Html::Begin(Literal tag, Attributes attributes) {
  m_out += '\n';
  Open(tag, attributes);
  m_out += '>';
  return {*this, tag};
}

void Html::Element(Literal tag, std::string_view text, Attributes attributes) {
  Open(tag, attributes);
  m_out += '>';
  Text(text);
  End(tag);
}

void Html::Void(Literal tag, Attributes attributes) {
  Open(tag, attributes);
  m_out += "/>";
}

void Html::Text(std::string_view text) { m_out += Escaped(text); }

}  // namespace ctl
