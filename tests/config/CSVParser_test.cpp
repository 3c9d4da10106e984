#include "config/CSVParser.h"

#include <sys/stat.h>

#include "gtest/gtest.h"
#include "testing/files.h"

using std::string_literals::operator""s;

constexpr char kFile[] = "/tmp/rows.csv";

// The rows of a file: a bar after each column, a slash after each row.
std::string Rows(const char* path) {
  CSVParser parser;
  EXPECT_TRUE(parser.init(path));
  std::string rows;
  while (parser.has_more_rows() && parser.get_next_row() == 1) {
    const auto count = static_cast<unsigned int>(parser.get_column_size());
    for (unsigned int i = 0; i < count; ++i) rows += parser.get_column_by_id(i) + "|";
    rows += "/";
  }
  return rows;
}

std::string Read(const std::string& content) {
  WriteFile(kFile, content);
  return Rows(kFile);
}

struct Dialect {
  const char* what;
  std::string content;
  std::string rows;
};

void ExpectRows(const std::vector<Dialect>& cases) {
  for (const auto& [what, content, rows] : cases) EXPECT_EQ(Read(content), rows) << what;
}

TEST(CSVParser, SplitsRowsAtCommas) {
  ExpectRows({{"blanks around a field go", "a, b ,c\n", "a|b|c|/"},
              {"those inside stay", "a\t b\n", "a\t b|/"},
              {"a field may be empty", ",a,,\tc\n", "|a||c|/"},
              {"no column after a comma that ends the row", "b,\r\nc", "b|/c|/"},
              {"rows without text are passed over", " \t\r\n\na\n", "a|/"}});
}

TEST(CSVParser, TakesQuotedFieldsAsTheyAre) {
  ExpectRows({{"a doubled quote is one quote", "\"x\"\"y\",z\n", "x\"y|z|/"},
              {"blanks inside stay", "\"a\"\n \" a \" , b\n", "a|/ a |b|/"},
              {"a comma inside is text", "\"a,\"\"\",\"\",b\n", "a,\"||b|/"},
              {"text behind the closing quote belongs to it", "\"ab\"cd,e\n", "abcd|e|/"},
              {"inside an unquoted field a quote is text", "x\"y\"z,", "x\"y\"z|/"}});
}

TEST(CSVParser, AnOpenFieldGoesOnInTheNextLine) {
  ExpectRows({{"with the line feed as text", "\"a\nb\",c\nd\n", "a\nb|c|/d|/"},
              {"CRLF reads as LF", "\"a\r\n\r\nb\",c\n", "a\n\nb|c|/"},
              {"until the file's end", "\"e\nf", "e\nf|/"}});
}

TEST(CSVParser, DeliversTextInUtf8) {
  ExpectRows({{"local text is converted", "1,\xB9\xE3\xB6\xAB\n", "1|广东|/"},
              {"UTF-8 stays", "2,广东\n", "2|广东|/"},
              {"an open field in each of its lines", "\"\xB9\xE3\n\xB6\xAB\"", "广\n东|/"},
              {"what is no character goes", "\xFF\xB9\xE3,\1\n1,a\xB9", "广|\1|/1|a|/"},
              {"a zero byte ends a local line", "\xB9\xE3,1\0,2\n"s, "广|1|/"},
              {"and one of ASCII, of less than eight bytes", "1,a\0b\n"s, "1|a|/"},
              {"or of just eight", "1,a\0b678\n"s, "1|a|/"},
              {"but not one of UTF-8", "中\0,5\n"s, "中\0|5|/"s}});
}

TEST(CSVParser, LimitsTheLengthOfLinesAndRows) {
  const std::string longest(CSVParser::kMaxLine, 'x');
  EXPECT_EQ(Read(longest + "\n" + longest + "x\nb"), longest + "|/") << "reading ends before it";
  const std::string open = std::string(CSVParser::kMaxLine - 1, 'x') + "\ny";
  EXPECT_EQ(Read('"' + open + "\nz\nz"), open + "|/z|/z|/");
}

TEST(CSVParser, RefusesAMissingFileAndAPipe) {
  EXPECT_FALSE(CSVParser().init(""));
  EXPECT_FALSE(CSVParser().init("/tmp/missing.csv"));
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  EXPECT_FALSE(CSVParser().init("/tmp/fifo")) << "nobody is at its other end";
}

TEST(CSVParser, DeliberateOddities) {
  ExpectRows({{"blanks after a closing quote", "\"a\"  \n\"a\" \t\r\nb", "a||/a||/b|/"},
              {"blanks after a last comma", "a, \nb,\nc", "a||/b|/c|/"},
              {"doubled quote at the row's end", "\"a\"\"\nb\",c\n", "a\"\nb|c|/"},
              {"doubled quote at the file's end", "\"d\"\"", "d\"|/"},
              {"two-byte sequences of UTF-8 read as local", "é,1", "茅|1|/"},
              {"the conversion leaves nothing", "\xFF\xFF\n\0b"s, "\xFF\xFF|/\0b|/"s}});
  EXPECT_THROW(CSVParser().get_column_by_id(4294967295), std::out_of_range);
}
