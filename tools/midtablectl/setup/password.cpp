#include "midtablectl/setup/password.h"

#include <sys/random.h>

#include <array>
#include <cerrno>

namespace ctl {

std::optional<std::string> GeneratePassword() {
  constexpr char kCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  static_assert(sizeof kCharacters - 1 == 64, "so that six bits of a byte pick one, evenly");
  std::array<unsigned char, 24> bytes{};
  // So few bytes come whole or not at all. Before the machine has collected enough of them at its
  // start, the call waits, and a signal may end that.
  ssize_t size = 0;
  do {
    size = getrandom(bytes.data(), bytes.size(), 0);
  } while (size < 0 && errno == EINTR);
  if (size != static_cast<ssize_t>(bytes.size())) return std::nullopt;
  std::string password;
  for (const unsigned char byte : bytes) password += kCharacters[byte % 64];
  return password + "-Aa0";
}

}  // namespace ctl
