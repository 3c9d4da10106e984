// The encoding helpers agree with each other, on memory that ends with the text.
#include <vector>

#include "config/TextEncoding.h"
#include "fuzz/fuzz.h"

std::string Canonical(const std::string& input) {
  const std::string text = input.c_str();
  const auto length = static_cast<unsigned int>(text.size());
  std::vector<char> cut(text.c_str(), text.c_str() + length + 1);
  const bool is_utf8 = IsUTF8(cut.data(), length) == 1;
  const bool whole = SplitUTF8(cut.data(), length) == 1;
  assert(whole == (text == cut.data()) && (whole || !is_utf8));
  for (const unsigned int room : {2 * length, length + length / 4, length / 2}) {
    std::vector<char> converted(room + 1);
    std::vector<char> local(room + 1);
    std::string in_place = text + std::string(room, '\0');
    const std::string_view expected = LocalToUtf8(text, local.data(), room);
    unsigned int left = room;
    unsigned int left_in_place = room;
    const int result = EncodeConvert(text.c_str(), length, converted.data(), &left, "GBK", "utf-8");
    assert(result == 0 ? left + expected.size() == room : result == -3);
    EncodeConvert(in_place.data(), length, in_place.data(), &left_in_place, "GBK", "utf-8");
    assert(expected == converted.data() && expected == in_place.c_str() && left == left_in_place);
  }
  return cut.data();
}
