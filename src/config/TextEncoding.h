// Helpers that let the system take text in UTF-8 or in the local multi-byte encoding. They print
// nothing, and their output is a zero-terminated text in every case.
//
// A byte below 0x80 is a text byte when it is printable ASCII, tab, line feed, form feed, carriage
// return, bell, backspace or escape. The length of a UTF-8 sequence, two to six bytes, is taken
// from its lead byte alone.
//
// Threads: any, as long as the buffers are not shared.
#pragma once

#include <string_view>

// The local encoding. An ASCII superset with characters of two bytes at most;
// LocalToUtf8 relies on that.
inline constexpr const char* local_encoding = "GBK";

// True for a text of ASCII bytes without a zero byte: one that LocalToUtf8 leaves as it is.
bool IsAscii(std::string_view text);

// 1 when the first `length` bytes are text bytes and UTF-8 sequences, with at least one sequence of
// three bytes or more, and no zero byte; else 0. `text` must be zero-terminated, at `length` or
// later: the last sequence is read to its end, which may lie beyond `length` (the answer is 0
// then).
int IsUTF8(const char* text, unsigned int length);

// Cuts `text` with a zero byte at the first byte that starts no character, or at a character that
// would run past `length`. 1 when nothing was cut, else 0. Continuation bytes are not looked at.
int SplitUTF8(char* text, unsigned int length);

// Copies up to `length` bytes of `src`, at most *dst_left and none after a zero byte, then cuts the
// copy as SplitUTF8 does. `dst` takes *dst_left bytes and the terminating zero. *dst_left is
// lowered by the length of the text in `dst`. A copy onto itself changes nothing. Always 0.
int CopyTo(const char* src, int length, char* dst, unsigned int* dst_left);

// Converts `length` bytes of `src` into `dst`, which takes *dst_left bytes and the terminating
// zero; *dst_left is lowered by the bytes produced. Invalid input is skipped. `src` and `dst` may
// be the same buffer. Without an encoding name, or with the same name twice (letter case aside), it
// is CopyTo.
//
// 0 or the count of irreversible conversions; -1 when the conversion is not known, -2 when it
// cannot skip invalid input, -3 when it fails: the last character is incomplete, or *dst_left too
// small. After a failure `dst` holds the raw bytes, cut as by CopyTo. After -3 *dst_left is what
// the conversion had left.
//
// Each thread keeps up to eight conversions open; every call is independent of earlier ones.
int EncodeConvert(const char* src, unsigned int length, char* dst, unsigned int* dst_left,
                  const char* from_code, const char* to_code);

// Converts a text without zero bytes from local_encoding to UTF-8, as EncodeConvert does, with
// `dst_size` for *dst_left; whether that succeeded is not told. Returns the text in `dst`.
std::string_view LocalToUtf8(std::string_view src, char* dst, unsigned int dst_size);
// The same for a zero-terminated text.
void LocalToUtf8_1(const char* src, char* dst, unsigned int dst_size);
