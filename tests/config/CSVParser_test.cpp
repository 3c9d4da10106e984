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

TEST(CSVParser, SplitsRows) {
  EXPECT_EQ(Read(" \t\r\n\na, b ,c\n,a\t b,,\tc\na\r\nb,\r\n"), "a|b|c|/|a\t b||c|/a|/b|/");
  EXPECT_EQ(Read("\"x\"\"y\",z\n\"a\"\n \" a \" , b\nx\"y\"z,"), "x\"y|z|/a|/ a |b|/x\"y\"z|/");
  EXPECT_EQ(Read("\"a,\"\"\",\"\",b\n\"ab\"cd,e\n\"ab\"c\"d,e"), "a,\"||b|/abcd|e|/abc\"d|e|/");
  EXPECT_EQ(Read("\"a\nb\",c\nd\n\"a\r\n\r\nb\",c\n\"e\nf"), "a\nb|c|/d|/a\n\nb|c|/e\nf|/");
  EXPECT_EQ(Read("1,\xB9\xE3\xB6\xAB\n2,广东\n\"\xB9\xE3\n\xB6\xAB\""), "1|广东|/2|广东|/广\n东|/");
  EXPECT_EQ(Read("\xFF\xB9\xE3,\1\n中\0,5\n1,a\xB9"s), "广|\1|/中\0|5|/1|a|/"s);
  EXPECT_EQ(Read("1,a\0b\n1,a\0b678\n"s), "1|a|/1|a|/") << "less than a word, and just one";
  const std::string longest(CSVParser::kMaxLine, 'x');
  EXPECT_EQ(Read(longest + "\n" + longest + "x\nb"), longest + "|/");
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  EXPECT_FALSE(CSVParser().init("/tmp/fifo")) << "nobody is at its other end";
  EXPECT_EQ(Rows("/tmp") + Rows("/dev/zero"), "");
  const std::string open = longest.substr(1) + "\ny";
  EXPECT_EQ(Read('"' + open + "\nz\nz"), open + "|/z|/z|/");
}

TEST(CSVParser, DeliberateOddities) {
  EXPECT_EQ(Read("\"a\"  \n\"a\" \t\r\nb"), "a||/a||/b|/") << "blanks after a closing quote";
  EXPECT_EQ(Read("a, \nb,\nc"), "a||/b|/c|/") << "blanks after a last comma, and none";
  EXPECT_EQ(Read("\"a\"\"\nb\",c\n\"d\"\""), "a\"\nb|c|/d\"|/") << "doubled quote at the end";
  EXPECT_EQ(Read("é,1"), "茅|1|/") << "two-byte sequences of UTF-8 read as local";
  EXPECT_EQ(Read("\xFF\xFF\n\0b"s), "\xFF\xFF|/\0b|/"s) << "the conversion leaves nothing";
  EXPECT_THROW(CSVParser().get_column_by_id(4294967295), std::out_of_range);
}

TEST(CSVParser, KeepsItsFileOpenForRowsAndOpenFields) {
  WriteFile(kFile, "a\nb");
  CSVParser parser;
  EXPECT_FALSE(parser.init("") || parser.init("/tmp/missing.csv"));
  for (const std::string row : {"a", "b", "", "a"}) {
    EXPECT_TRUE(parser.init(row == "b" ? "/tmp/missing.csv" : kFile));
    EXPECT_EQ(parser.get_next_row(), row.empty() ? 0 : 1);
    EXPECT_EQ(parser.get_column_by_id(0), row);
    if (row.empty()) parser.close();
  }
  std::string first, open, none = "old";
  parser << " a ,\"b" >> first >> open >> none;
  EXPECT_EQ(first + "|" + open + "|" + none, "a|b\nb|");
}
