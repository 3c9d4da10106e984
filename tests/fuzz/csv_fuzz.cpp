// Rows of ASCII come back as they were when they are written in quotes and read again.
#include <iomanip>
#include <sstream>

#include "config/CSVParser.h"
#include "config/TextEncoding.h"
#include "fuzz/fuzz.h"

std::string Canonical(const std::string& input) {
  CSVParser parser;
  assert(parser.init(FileOf(input)));
  std::string rows;
  while (parser.has_more_rows() && parser.get_next_row() == 1) {
    std::ostringstream row;
    const auto size = static_cast<unsigned int>(parser.get_column_size());
    assert(size > 0 && parser.get_column_by_id(size).empty());
    for (unsigned int i = 0; i < size; ++i) {
      row << (i == 0 ? "" : ",") << std::quoted(parser.get_column_by_id(i), '"', '"');
    }
    // Other encodings are converted, and a CRLF within a field becomes an LF.
    if (IsAscii(row.str()) && row.str().find("\r\n") == std::string::npos) rows += row.str() + "\n";
  }
  return rows;
}
