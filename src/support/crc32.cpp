#include "support/crc32.h"

#include <zlib.h>

unsigned int morvan_crc32(const char* data, unsigned int length) {
  return static_cast<unsigned int>(crc32(0, reinterpret_cast<const Bytef*>(data), length));
}
