// Undoes printf: finds in a text the values that were put into a format.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace ctl {

// The values of `format` that give `text`, in their order, as views into the text; nothing when no
// values do. The format may have "%s", which stands for any text and takes as little as it can, and
// "%d" and "%u", also of a length like "%zu", which stand for a number.
std::optional<std::vector<std::string_view>> PrintfValues(std::string_view format,
                                                          std::string_view text);

}  // namespace ctl
