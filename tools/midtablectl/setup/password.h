// A password for the service's login that nobody has to know.
#pragma once

#include <optional>
#include <string>

namespace ctl {

// 144 random bits of the kernel's, written with letters, digits, "-" and "_", which need no
// escaping anywhere, and behind them a character of each kind that servers may insist on. Nothing,
// with errno set, when the kernel has none to give.
std::optional<std::string> GeneratePassword();

}  // namespace ctl
