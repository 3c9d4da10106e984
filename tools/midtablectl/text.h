// Small operations on texts and text files that several commands need.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// The text with the letters A to Z in small; all other characters stay as they are.
std::string Lower(std::string_view text);

// Whether the text consists of digits only, at least one. There is no limit to their number.
bool IsNumber(std::string_view text);

// The lines of a text without their ends, which are LF or CRLF. They are views into the text.
std::vector<std::string_view> Lines(std::string_view text);

// The text as a terminal can show it in one line: every control character, line feeds included,
// reads as "?". Names of files and lines of logs may hold anything.
std::string OneLine(std::string_view text);

// A number with its noun: "1 file", "2 files".
std::string Count(std::size_t number, std::string_view noun);

// Puts the whole content of a file into `content`. False, with errno set, when the file cannot be
// read; `content` then holds what could be read.
bool ReadWhole(const std::string& path, std::string& content);

}  // namespace ctl
