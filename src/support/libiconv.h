// Text conversion under GNU libiconv's names. The build links GNU libiconv where it is found, else
// libiconv.cpp, which gives the same results on the C library's iconv; it says which at configure
// time.
#pragma once

#include <cstddef>

extern "C" {

using libiconv_t = void*;

// A descriptor that converts from `fromcode` to `tocode`; (libiconv_t)-1 when that pair is not
// supported. For one thread at a time.
libiconv_t libiconv_open(const char* tocode, const char* fromcode);

// Converts from *inbuf to *outbuf and advances both pointers and their counts. Returns the number
// of irreversible conversions, or (std::size_t)-1 with errno EILSEQ at invalid input, EINVAL at an
// incomplete last character, E2BIG when the output is full. With a null `inbuf` the descriptor goes
// back to its initial state.
std::size_t libiconv(libiconv_t cd, char** inbuf, std::size_t* inbytesleft, char** outbuf,
                     std::size_t* outbytesleft);

// With request ICONV_SET_DISCARD_ILSEQ, `argument` points to an int: not 0 has later conversions
// skip invalid input, one byte at a time, and characters that the target does not have. 0 on
// success, -1 for a request that is not known.
int libiconvctl(libiconv_t cd, int request, void* argument);

int libiconv_close(libiconv_t cd);

}  // extern "C"

inline constexpr int ICONV_SET_DISCARD_ILSEQ = 4;
