// What to do when a MySQL server lets nobody in, or is not trusted.
#pragma once

#include <string>
#include <string_view>
#include <utility>

// Stands between what the client library, or the server, said of a login and the remedy.
inline constexpr std::string_view kRemedyFollows = "; ";

// The remedy for a login that failed with the library's `words`; empty for words that say it
// themselves, or that nobody knows. `tls_was_spared`: the server offers TLS, and the login came
// without.
std::string_view LoginRemedy(std::string_view words, bool tls_was_spared);

// The words of a failed connect, apart from the remedy that was put behind them; that is empty
// where there was none.
std::pair<std::string, std::string> SplitRemedy(const std::string& words);
