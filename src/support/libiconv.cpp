// GNU libiconv's calls on the C library's iconv. Built only where GNU libiconv was not found.
#include "support/libiconv.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace {

constexpr auto kFailed = static_cast<std::size_t>(-1);
constexpr std::size_t kLongestCharacter = 8;

// A descriptor of the C library, or none.
class Conversion {
 public:
  Conversion(const char* to, const char* from) : m_cd(iconv_open(to, from)) {}
  ~Conversion() {
    if (IsOpen()) iconv_close(m_cd);
  }
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  bool IsOpen() const { return m_cd != reinterpret_cast<iconv_t>(-1); }
  std::size_t Convert(char** in, std::size_t* in_left, char** out, std::size_t* out_left) {
    return iconv(m_cd, in, in_left, out, out_left);
  }

 private:
  iconv_t m_cd;
};

struct Descriptor {
  Descriptor(const char* to, const char* from) : main(to, from), probe("UCS-4LE", from) {}

  Conversion main;
  Conversion probe;  // tells a character that the target does not have from an invalid byte
  bool discard = false;
};

// The length of the valid character at `in`; 0 when there is none.
std::size_t CharacterLength(Conversion& probe, char* in, std::size_t in_left) {
  for (std::size_t length = 1; length <= std::min(in_left, kLongestCharacter); ++length) {
    char wide[4 * kLongestCharacter];
    char* out = wide;
    std::size_t out_left = sizeof wide;
    char* from = in;
    std::size_t from_left = length;
    probe.Convert(nullptr, nullptr, nullptr, nullptr);
    if (probe.Convert(&from, &from_left, &out, &out_left) != kFailed) return length;
    if (errno != EINVAL) return 0;
  }
  return 0;
}

}  // namespace

extern "C" {

libiconv_t libiconv_open(const char* tocode, const char* fromcode) {
  auto descriptor = std::make_unique<Descriptor>(tocode, fromcode);
  if (!descriptor->main.IsOpen() || !descriptor->probe.IsOpen()) {
    return reinterpret_cast<libiconv_t>(-1);
  }
  return descriptor.release();
}

std::size_t libiconv(libiconv_t cd, char** inbuf, std::size_t* inbytesleft, char** outbuf,
                     std::size_t* outbytesleft) {
  auto* descriptor = static_cast<Descriptor*>(cd);
  std::size_t irreversible = 0;
  for (;;) {
    const std::size_t count = descriptor->main.Convert(inbuf, inbytesleft, outbuf, outbytesleft);
    if (count != kFailed) return irreversible + count;
    if (errno != EILSEQ || !descriptor->discard) return kFailed;
    const std::size_t length = CharacterLength(descriptor->probe, *inbuf, *inbytesleft);
    if (length != 0) ++irreversible;
    *inbuf += std::max<std::size_t>(length, 1);
    *inbytesleft -= std::max<std::size_t>(length, 1);
  }
}

int libiconvctl(libiconv_t cd, int request, void* argument) {
  if (request != ICONV_SET_DISCARD_ILSEQ) return -1;
  static_cast<Descriptor*>(cd)->discard = *static_cast<const int*>(argument) != 0;
  return 0;
}

int libiconv_close(libiconv_t cd) {
  const std::unique_ptr<Descriptor> descriptor(static_cast<Descriptor*>(cd));
  return 0;
}

}  // extern "C"
