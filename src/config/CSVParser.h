// Reads a comma-separated text file row by row and splits each row into columns.
//
// Lines are taken as UTF-8 when IsUTF8 says so, else as local_encoding, and delivered in UTF-8.
// Line ends are LF or CRLF; lines that are empty or hold blanks only are passed over. Blank means
// space or tab. The dialect:
//   a, b ,c           a | b | c            blanks around a field go, those inside stay
//   ,a,               (empty) | a          no empty column after a comma that ends the row
//   a,_               a | (empty)          but one after a comma and blanks (_ is a blank)
//   "x""y", z         x"y | z              a doubled quote inside quotes is one quote
//   "ab"cd,e          abcd | e             what follows a closing quote belongs to the field
//   "a"__             a | (empty)          blanks after a closing quote at the row's end: one more
//   "a<LF>b",c        a<LF>b | c           an open field goes on in the next line, CRLF reads as LF
//   a"b,c             a"b | c              a quote inside an unquoted field is a character
//
// Limits: a physical line longer than kMaxLine bytes is no table row: reading ends before it, as at
// the end of the file. A row that an open quote has made longer than kMaxLine ends with the line
// that did it. So memory stays below 32 MiB whatever the file holds, and even a source without end
// is read to an end. A read error and a folder count as the end of the file too;
// is_cut() tells such an end from the file's own.
//
// Not for use by two threads at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

class CSVParser {
 public:
  static constexpr std::size_t kMaxLine = 262'144;

  CSVParser() = default;
  ~CSVParser() { close(); }
  CSVParser(const CSVParser&) = delete;
  CSVParser& operator=(const CSVParser&) = delete;

  // Opens `path` for reading; true when a file is open afterwards. An empty path and a pipe are
  // refused. While a file is open it stays: the call answers true and reading goes on where it was.
  // The last row stays as it is.
  bool init(const std::string& path);
  // Closes the file, if one is open. The last row stays.
  void close();

  // True while a file is open and its end was not reached: there may be one more row.
  bool has_more_rows() const;
  // True when the reading of the open file, or of the last one, ended before the file's end.
  bool is_cut() const { return m_cut; }
  // Reads the next row that is not blank, replacing the last one. 1 when there was one, 0 at the
  // end of the file or without a file; there are no columns then. When memory runs out
  // "malloc toLine failed!" goes to standard output, and the answer is 1 with no columns.
  int get_next_row();

  // The columns of the last row.
  int get_column_size() const { return static_cast<int>(m_columns.size()); }
  // A copy of column `id`, counted from 0; "" beyond the last one. 4294967295 throws
  // std::out_of_range.
  std::string get_column_by_id(unsigned int id) const;

  // Sets the text that operator>> splits. It is taken as it is, without conversion.
  CSVParser& operator<<(const std::string& line);
  CSVParser& operator<<(const char* line);
  // Takes the next field off the text; "" when nothing is left. A field whose quote stays open goes
  // on in the open file, if there is one.
  CSVParser& operator>>(std::string& field);

 private:
  // Where a column's text stands: in m_unquoted for a quoted field, else in m_row. Files are large;
  // a copy of each row and a string for each column would cost more than the splitting.
  struct Column {
    std::size_t begin;
    std::size_t size;
    bool quoted;
  };

  void split_row();
  bool open_quote();
  std::string_view read_unquoted();
  void read_quoted(std::string& field);
  bool read_line();
  void read_ahead();
  std::string_view to_utf8();
  bool append_line();
  static bool is_null_line(std::string_view line);
  bool is_spaces_or_tabs_behind(int& count) const;
  static std::string_view trim_last_spaces_and_tabs(std::string_view field);

  std::string_view m_text;       // the row being split: a line as it was read, or m_current_line
  std::string m_current_line;    // a row of several lines, or what operator<< was given
  std::uint64_t m_position = 0;  // in m_text: where the next field starts
  std::vector<Column> m_columns;
  std::string_view m_row;  // the last row: the line as it was read, or m_row_text
  std::string m_row_text;
  std::string m_unquoted;  // the quoted fields of the last row, one behind the other
  std::ifstream m_input;
  bool m_at_end = false;      // of m_input, and m_ahead is used up
  bool m_cut = false;         // m_at_end came before the file's end
  std::vector<char> m_ahead;  // what was read of m_input; from m_ahead_begin to m_ahead_end unused
  std::size_t m_ahead_begin = 0;
  std::size_t m_ahead_end = 0;
  bool m_ahead_has_zeros = false;
  std::string_view m_line;        // in m_ahead: the physical line read last, a zero byte behind it
  std::vector<char> m_converted;  // its conversion
};
