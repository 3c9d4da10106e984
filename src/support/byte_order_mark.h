// The three bytes that some editors put before a UTF-8 text. They are no part of it.
#pragma once

#include <string_view>

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
