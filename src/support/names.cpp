#include "support/names.h"

#include <algorithm>
#include <cctype>

namespace {

bool IsControl(char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }

bool IsNameCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x80 || std::isalnum(byte) != 0 || c == '_' || c == '$' || c == '-';
}

}  // namespace

std::string TextAt(std::string_view text, std::size_t position, std::size_t length) {
  if (text.size() < position + length) return {};
  return std::string(text.substr(position, length));
}

std::string_view FileNameOf(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool IsSafeIdentifier(std::string_view name) {
  return name.find("--") == std::string_view::npos &&
         std::all_of(name.begin(), name.end(), IsNameCharacter);
}

bool IsSafePath(std::string_view path) {
  return path.find_first_of("'\"`\\") == std::string_view::npos &&
         std::none_of(path.begin(), path.end(), IsControl);
}

bool IsSafePassword(std::string_view password) {
  if (password.size() >= 2 && password.front() == '"' && password.back() == '"') {
    password = password.substr(1, password.size() - 2);
    return password.find('"') == std::string_view::npos &&
           std::none_of(password.begin(), password.end(), IsControl);
  }
  return std::all_of(password.begin(), password.end(),
                     [](char c) { return IsNameCharacter(c) || c == '#'; }) &&
         password.find("--") == std::string_view::npos;
}

std::string Printable(std::string name) {
  std::replace_if(name.begin(), name.end(), IsControl, '?');
  return name;
}
