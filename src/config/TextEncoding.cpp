#include "config/TextEncoding.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/libiconv.h"

namespace {

constexpr unsigned char Byte(const char* p) { return static_cast<unsigned char>(*p); }

// One class for each byte value, 0 for none. Only the lower half is ever asked.
constexpr auto text_chars = [] {
  std::array<std::uint8_t, 256> classes{};
  for (std::size_t byte = 0x20; byte <= 0x7E; ++byte) classes[byte] = 1;
  for (const char c : std::string_view("\a\b\t\n\f\r\x1B")) classes[Byte(&c)] = 1;
  for (std::size_t byte = 0x80; byte <= 0x9F; ++byte) classes[byte] = 3;
  for (std::size_t byte = 0xA0; byte <= 0xFF; ++byte) classes[byte] = 2;
  classes[0x85] = 1;
  return classes;
}();

bool IsContinuation(const char* p) { return (Byte(p) & 0xC0) == 0x80; }

// Bytes of the character that starts at `p`, by its first byte; 0 when none starts with that.
unsigned int CharacterLength(const char* p) {
  const unsigned char lead = Byte(p);
  if (lead < 0x80) return text_chars[lead] != 0 ? 1 : 0;
  if (lead < 0xC0 || lead >= 0xFE) return 0;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  if (lead < 0xF8) return 4;
  return lead < 0xFC ? 5 : 6;
}

struct Closer {
  using pointer = libiconv_t;
  void operator()(libiconv_t cd) const { libiconv_close(cd); }
};

// The conversions that a thread keeps open: opening one costs more than converting a line.
class OpenConversions {
 public:
  // A conversion in its initial state; null when the pair of encodings is not known.
  libiconv_t Get(const char* from, const char* to) {
    for (const Entry& entry : m_entries) {
      if (entry.cd != nullptr && entry.from == from && entry.to == to) {
        libiconv(entry.cd.get(), nullptr, nullptr, nullptr, nullptr);
        return entry.cd.get();
      }
    }
    const libiconv_t opened = libiconv_open(to, from);
    if (opened == reinterpret_cast<libiconv_t>(-1)) return nullptr;
    Entry& oldest = m_entries[m_next++ % m_entries.size()];
    oldest.cd.reset(opened);
    oldest.from = from;
    oldest.to = to;
    return opened;
  }

 private:
  struct Entry {
    std::string from;
    std::string to;
    std::unique_ptr<std::remove_pointer_t<libiconv_t>, Closer> cd;
  };
  std::array<Entry, 8> m_entries;
  std::size_t m_next = 0;
};

thread_local OpenConversions g_conversions;

int CopyRaw(const char* src, unsigned int length, char* dst, unsigned int* dst_left) {
  return CopyTo(src, static_cast<int>(std::min<unsigned int>(length, INT_MAX)), dst, dst_left);
}

// The bytes at `p` as one number.
std::uint64_t Word(const char* p) {
  std::uint64_t word = 0;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// Every byte of the word is ASCII and not zero.
bool IsAscii(std::uint64_t word) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  return ((word | (word - kOnes)) & (0x80 * kOnes)) == 0;
}

int Convert(libiconv_t cd, const char* src, unsigned int length, char* dst,
            unsigned int* dst_left) {
  char* in = const_cast<char*>(src);
  char* out = dst;
  std::size_t in_left = length;
  std::size_t out_left = *dst_left;
  const std::size_t result = libiconv(cd, &in, &in_left, &out, &out_left);
  unsigned int raw_left = std::exchange(*dst_left, static_cast<unsigned int>(out_left));
  if (result == static_cast<std::size_t>(-1)) {
    CopyRaw(src, length, dst, &raw_left);
    return -3;
  }
  *out = '\0';
  return static_cast<int>(result);
}

// The two-byte characters of the local encoding in UTF-8, as EncodeConvert gives them. Looking them
// up is several times faster than a conversion of each line.
class LocalCharacters {
 public:
  struct Entry {
    char utf8[3];
    std::uint8_t size;  // 0: no such character, or none that fits
  };

  static const LocalCharacters& Instance() {
    static const LocalCharacters characters;
    return characters;
  }
  const Entry& Get(const char* p) const { return m_entries[Index(p[0], p[1])]; }

 private:
  LocalCharacters() : m_entries(0x10000) {
    for (int lead = 0x81; lead <= 0xFE; ++lead) AddRow(static_cast<char>(lead));
  }

  // All characters with one first byte in one conversion, which a line feed behind each keeps
  // apart.
  void AddRow(char lead) {
    std::string local;
    for (int trail = 0x20; trail <= 0xFF; ++trail) local += {lead, static_cast<char>(trail), '\n'};
    std::string utf8(2 * local.size(), '\0');
    auto left = static_cast<unsigned int>(utf8.size());
    EncodeConvert(local.data(), static_cast<unsigned int>(local.size()), utf8.data(), &left,
                  local_encoding, "utf-8");
    std::size_t begin = 0;
    for (int trail = 0x20; trail <= 0xFF; ++trail) {
      const std::size_t size = utf8.find('\n', begin) - begin;
      Entry& entry = m_entries[Index(lead, static_cast<char>(trail))];
      if (size <= sizeof entry.utf8) {
        entry.size = static_cast<std::uint8_t>(utf8.copy(entry.utf8, size, begin));
      }
      begin += size + 1;
    }
  }

  static std::size_t Index(char lead, char trail) {
    return Byte(&lead) * std::size_t{256} + Byte(&trail);
  }

  std::vector<Entry> m_entries;
};

// What EncodeConvert does to a text of whole characters that are known in the local encoding and
// for which there is room. Returns its length; -1, with `dst` spoilt, for any other text.
std::ptrdiff_t ConvertLocal(std::string_view src, char* dst, std::size_t room) {
  // Two bytes become three at most, and one more is written with each character.
  if (room < src.size() + src.size() / 2 + 1) return -1;
  const LocalCharacters& characters = LocalCharacters::Instance();
  const char* const end = src.data() + src.size();
  char* out = dst;
  for (const char* p = src.data(); p != end;) {
    if (Byte(p) < 0x80) {
      *out++ = *p++;
      continue;
    }
    if (end - p < 2) return -1;
    const LocalCharacters::Entry& entry = characters.Get(p);
    if (entry.size == 0) return -1;
    std::memcpy(out, &entry, sizeof entry);
    out += entry.size;
    p += 2;
  }
  *out = '\0';
  return out - dst;
}

}  // namespace

bool IsAscii(std::string_view text) {
  const char* p = text.data();
  const char* const end = p + text.size();
  for (; end - p >= 8; p += 8) {
    if (!IsAscii(Word(p))) return false;
  }
  return std::all_of(p, end, [](signed char c) { return c > 0; });
}

int IsUTF8(const char* text, unsigned int length) {
  const char* p = text;
  const char* const end = text + length;
  int long_sequence = 0;
  while (p < end && *p != '\0') {
    const unsigned int size = CharacterLength(p);
    if (size == 0) return 0;
    // DELIBERATE: two-byte sequences alone do not make a text UTF-8.
    if (size > 2) long_sequence = 1;
    for (unsigned int i = 1; i < size; ++i) {
      if (!IsContinuation(++p)) return 0;  // the terminating zero, too
    }
    ++p;
  }
  return p == end ? long_sequence : 0;
}

int SplitUTF8(char* text, unsigned int length) {
  char* p = text;
  const char* const end = text + length;
  while (p < end && *p != '\0') {
    const unsigned int size = CharacterLength(p);
    if (size == 0 || size > static_cast<std::size_t>(end - p)) break;
    p += size;
  }
  if (p == end) return 1;
  *p = '\0';
  return 0;
}

int CopyTo(const char* src, int length, char* dst, unsigned int* dst_left) {
  if (src == dst) return 0;
  const unsigned int size = std::min(static_cast<unsigned int>(std::max(length, 0)), *dst_left);
  const std::size_t copied = strnlen(src, size);
  std::memcpy(dst, src, copied);
  std::memset(dst + copied, 0, size - copied + 1);
  SplitUTF8(dst, size);
  *dst_left -= static_cast<unsigned int>(std::strlen(dst));
  return 0;
}

int EncodeConvert(const char* src, unsigned int length, char* dst, unsigned int* dst_left,
                  const char* from_code, const char* to_code) {
  if (from_code == nullptr || to_code == nullptr || *from_code == '\0' || *to_code == '\0' ||
      strcasecmp(from_code, to_code) == 0) {
    return CopyRaw(src, length, dst, dst_left);
  }
  const libiconv_t cd = g_conversions.Get(from_code, to_code);
  if (cd == nullptr) {
    CopyRaw(src, length, dst, dst_left);
    return -1;
  }
  int discard = 1;
  if (libiconvctl(cd, ICONV_SET_DISCARD_ILSEQ, &discard) != 0) {
    CopyRaw(src, length, dst, dst_left);
    return -2;
  }
  if (src != dst) return Convert(cd, src, length, dst, dst_left);
  try {
    const std::string copy(src, length);
    return Convert(cd, copy.c_str(), length, dst, dst_left);
  } catch (const std::bad_alloc&) {
    return 0;
  }
}

std::string_view LocalToUtf8(std::string_view src, char* dst, unsigned int dst_size) {
  const std::ptrdiff_t length = ConvertLocal(src, dst, dst_size);
  if (length >= 0) return {dst, static_cast<std::size_t>(length)};
  EncodeConvert(src.data(), static_cast<unsigned int>(src.size()), dst, &dst_size, local_encoding,
                "utf-8");
  return dst;
}

void LocalToUtf8_1(const char* src, char* dst, unsigned int dst_size) {
  LocalToUtf8(src, dst, dst_size);
}
