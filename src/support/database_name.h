// The names of the databases that mem files go to.
#pragma once

#include <string>
#include <string_view>

inline constexpr std::string_view kDatabasePrefix = "WLAN_";

// That of the database folder or device `id`.
inline std::string DatabaseName(std::string_view id) {
  return std::string(kDatabasePrefix).append(id);
}
