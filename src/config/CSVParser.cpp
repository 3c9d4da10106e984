#include "config/CSVParser.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>

#include "config/TextEncoding.h"

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

bool CSVParser::init(const std::string& path) {
  // A pipe would hold the caller until somebody writes to it.
  std::error_code not_there;
  if (path.empty() || std::filesystem::is_fifo(path, not_there)) return false;
  if (!m_input.is_open()) {
    m_input.open(path, std::ios::in | std::ios::binary);
    m_at_end = false;
    m_cut = false;
    m_ahead.resize(kMaxLine + 2);  // the longest line, its line feed, a zero byte
    m_ahead_begin = 0;
    m_ahead_end = 0;
  }
  return m_input.is_open();
}

void CSVParser::close() {
  if (m_input.is_open()) m_input.close();
}

bool CSVParser::has_more_rows() const { return m_input.is_open() && !m_at_end; }

int CSVParser::get_next_row() {
  m_columns.clear();
  try {
    do {
      if (!read_line()) return 0;
    } while (is_null_line(m_line));
    m_text = to_utf8();
    m_position = 0;
    split_row();
  } catch (const std::bad_alloc&) {
    m_columns.clear();
    m_text = {};
    m_row = {};
    std::fputs("malloc toLine failed!", stdout);
  }
  return 1;
}

std::string CSVParser::get_column_by_id(unsigned int id) const {
  // DELIBERATE: the largest id wraps to 0 here, and the checked access throws.
  if (id + 1 > m_columns.size()) return "";
  const Column& column = m_columns.at(id);
  return std::string((column.quoted ? m_unquoted : m_row).substr(column.begin, column.size));
}

CSVParser& CSVParser::operator<<(const std::string& line) {
  // The last row must not depend on a line that an open quote in this text may replace.
  m_row_text.assign(m_row);
  m_row = m_row_text;
  m_current_line = line;
  m_text = m_current_line;
  m_position = 0;
  return *this;
}

CSVParser& CSVParser::operator<<(const char* line) { return *this << std::string(line); }

CSVParser& CSVParser::operator>>(std::string& field) {
  field.clear();
  if (open_quote()) {
    read_quoted(field);
  } else {
    field = read_unquoted();
  }
  return *this;
}

// Splits m_text into m_columns and keeps it as m_row.
void CSVParser::split_row() {
  m_unquoted.clear();
  while (m_position < m_text.size()) {
    if (open_quote()) {
      const std::size_t begin = m_unquoted.size();
      read_quoted(m_unquoted);
      m_columns.push_back({begin, m_unquoted.size() - begin, true});
    } else {
      const std::string_view field = read_unquoted();
      const auto begin = static_cast<std::size_t>(field.data() - m_text.data());
      m_columns.push_back({begin, field.size(), false});
    }
  }
  m_row = m_text;
  if (m_text.data() == m_current_line.data()) {
    m_row_text.swap(m_current_line);
    m_row = m_row_text;
  }
  m_text = {};
  m_position = 0;
}

// Goes to the start of the next field and past its quote, if it has one.
inline bool CSVParser::open_quote() {
  const std::string_view row = m_text;
  std::size_t start = m_position;
  while (start < row.size() && IsBlank(row[start])) ++start;
  const bool quoted = start < row.size() && row[start] == '"';
  m_position = start + (quoted ? 1 : 0);
  return quoted;
}

// Takes a field without quotes from m_position; the view is good until the row changes.
inline std::string_view CSVParser::read_unquoted() {
  const std::string_view row = m_text;
  const std::size_t begin = m_position;
  std::size_t end = begin;
  while (end < row.size() && row[end] != ',') ++end;
  // DELIBERATE: a row that ends in a comma is at its end here, one that ends in a comma and blanks
  // is not and gets one more, empty column.
  m_position = std::min(end + 1, row.size());
  return trim_last_spaces_and_tabs(row.substr(begin, end - begin));
}

// Appends the rest of a field whose opening quote was passed.
void CSVParser::read_quoted(std::string& field) {
  for (;;) {
    const std::size_t quote = m_text.find('"', m_position);
    if (quote == std::string::npos) {
      field.append(m_text, m_position);
      m_position = m_text.size();
      if (!append_line()) return;
      field += '\n';
      continue;
    }
    field.append(m_text, m_position, quote - m_position);
    m_position = quote;
    if (quote + 1 == m_text.size()) {
      ++m_position;
      return;
    }
    if (m_text[quote + 1] != '"') break;
    // DELIBERATE: the second of two quotes never closes the field, not even at the row's end; the
    // field goes on in the next line then.
    field += '"';
    m_position += 2;
  }
  int count = 0;
  if (is_spaces_or_tabs_behind(count)) {
    m_position += static_cast<unsigned int>(count);
  } else {
    ++m_position;
    const std::size_t end = std::min(m_text.find(',', m_position), m_text.size());
    field.append(m_text, m_position, end - m_position);
    m_position = end;
  }
  if (m_position < m_text.size() && m_text[m_position] == ',') ++m_position;
}

// Reads the next physical line into m_line, without its line end but with a zero byte behind it.
// False at the end of the file.
bool CSVParser::read_line() {
  if (!has_more_rows()) return false;
  char* begin = m_ahead.data() + m_ahead_begin;
  auto* end = static_cast<char*>(std::memchr(begin, '\n', m_ahead_end - m_ahead_begin));
  if (end == nullptr) {
    read_ahead();
    begin = m_ahead.data();
    end = static_cast<char*>(std::memchr(begin, '\n', m_ahead_end));
    if (end == nullptr) {
      m_at_end = true;
      m_cut = m_input.bad() || m_ahead_end > kMaxLine;
      if (m_cut) return false;
      end = begin + m_ahead_end;
    }
  }
  m_ahead_begin = static_cast<std::size_t>(end - m_ahead.data()) + 1;
  if (end != begin && end[-1] == '\r') --end;
  *end = '\0';
  m_line = {begin, static_cast<std::size_t>(end - begin)};
  return true;
}

// Moves what is left of m_ahead to its front and fills the rest from the file.
void CSVParser::read_ahead() {
  m_ahead_end -= m_ahead_begin;
  std::memmove(m_ahead.data(), m_ahead.data() + m_ahead_begin, m_ahead_end);
  m_ahead_begin = 0;
  m_input.read(m_ahead.data() + m_ahead_end,
               static_cast<std::streamsize>(kMaxLine + 1 - m_ahead_end));
  m_ahead_end += static_cast<std::size_t>(m_input.gcount());
  m_ahead_has_zeros = std::memchr(m_ahead.data(), '\0', m_ahead_end) != nullptr;
}

// The line read last, in UTF-8.
std::string_view CSVParser::to_utf8() {
  if (IsAscii(m_line)) return m_line;
  const std::string_view text = m_ahead_has_zeros ? m_line.substr(0, m_line.find('\0')) : m_line;
  if (IsUTF8(text.data(), static_cast<unsigned int>(text.size())) == 1) return m_line;
  // DELIBERATE: lines of ASCII and two-byte sequences get here, whatever they are written in.
  const std::size_t room = 4 * m_line.size() + 1;
  if (m_converted.size() <= room) m_converted.resize(room + 1);
  const std::string_view converted =
      LocalToUtf8(text, m_converted.data(), static_cast<unsigned int>(room));
  // DELIBERATE: a line of which nothing could be converted is taken as it is.
  return converted.empty() ? m_line : converted;
}

// Puts the next physical line behind the row. False when there is none, or the row is full.
bool CSVParser::append_line() {
  if (m_text.size() > kMaxLine) return false;
  if (m_text.data() != m_current_line.data()) m_current_line = m_text;
  m_text = m_current_line;
  if (!read_line()) return false;
  m_current_line += to_utf8();
  m_text = m_current_line;
  return true;
}

bool CSVParser::is_null_line(std::string_view line) {
  return std::all_of(line.begin(), line.end(), IsBlank);
}

// Whether only blanks stand between the closing quote at m_position and a comma or the end. `count`
// is then how far it is to that comma or to the last character.
bool CSVParser::is_spaces_or_tabs_behind(int& count) const {
  std::size_t end = m_position + 1;
  while (end < m_text.size() && IsBlank(m_text[end])) ++end;
  // DELIBERATE: at the row's end the last blank stays, and becomes one more, empty column.
  if (end == m_text.size()) {
    --end;
  } else if (m_text[end] != ',') {
    return false;
  }
  count = static_cast<int>(end - m_position);
  return true;
}

std::string_view CSVParser::trim_last_spaces_and_tabs(std::string_view field) {
  while (!field.empty() && IsBlank(field.back())) field.remove_suffix(1);
  return field;
}
