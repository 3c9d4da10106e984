#include "db/OracleBase.h"

// Only the letters of ASCII are changed: what toupper makes of other bytes depends on the locale.
std::string OracleToUpper(const std::string& text) {
  std::string upper = text;
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}
