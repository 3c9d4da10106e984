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
  Expect(whole == (text == cut.data()) && (whole || !is_utf8));

  for (const unsigned int room : {2 * length, length + length / 4, length / 2}) {
    std::vector<char> converted(room + 1), local(room + 1), in_place(3 * length + 1);
    unsigned int left = room;
    const int result = EncodeConvert(text.c_str(), length, converted.data(), &left, "GBK", "utf-8");
    const std::string expected = converted.data();
    Expect(result == 0 ? left + expected.size() == room : result == -3);
    LocalToUtf8_1(text.c_str(), local.data(), left = room);
    text.copy(in_place.data(), length);
    EncodeConvert(in_place.data(), length, in_place.data(), &left, "GBK", "utf-8");
    Expect(local.data() == expected && in_place.data() == expected);
  }
  return cut.data();
}
