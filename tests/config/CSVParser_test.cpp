#include "config/CSVParser.h"

#include <stdexcept>
#include <string>

#include "gtest/gtest.h"
#include "testing/files.h"

namespace {

using std::string_literals::operator""s;

constexpr char kFile[] = "/tmp/rows.csv";

// The columns of the last row, each followed by a bar.
std::string Columns(const CSVParser& parser) {
  std::string columns;
  const auto count = static_cast<unsigned int>(parser.get_column_size());
  for (unsigned int i = 0; i < count; ++i) columns += parser.get_column_by_id(i) + "|";
  return columns;
}

// The rows of a file, each followed by a slash.
std::string Read(const std::string& content) {
  WriteFile(kFile, content);
  CSVParser parser;
  EXPECT_TRUE(parser.init(kFile));
  std::string rows;
  while (parser.has_more_rows() && parser.get_next_row() == 1) rows += Columns(parser) + "/";
  return rows;
}

TEST(CSVParser, SplitsRows) {
  EXPECT_EQ(Read("") + Read("\n \t\r\n\n"), "");
  EXPECT_EQ(Read("a, b ,c\n,a\t b,,\tc d\na\r\n\r\nb,\r\n"), "a|b|c|/|a\t b||c d|/a|/b|/");
  EXPECT_EQ(Read("\"x\"\"y\",z\n\"a\"\n \" a \" , b\nx\"y\"z,"), "x\"y|z|/a|/ a |b|/x\"y\"z|/");
  EXPECT_EQ(Read("\"a,\"\"\",\"\",b\n\"ab\"cd,e\n\"ab\"c\"d,e"), "a,\"||b|/abcd|e|/abc\"d|e|/");
  EXPECT_EQ(Read("\"a\nb\",c\nd\n\"a\r\n\r\nb\",c\n\"e\nf"), "a\nb|c|/d|/a\n\nb|c|/e\nf|/");
}

TEST(CSVParser, DeliberateOddities) {
  EXPECT_EQ(Read("\"a\"  \n\"a\" \t\r\nb"), "a||/a||/b|/") << "blanks after a closing quote";
  EXPECT_EQ(Read("a, \nb,\nc"), "a||/b|/c|/") << "blanks after a last comma, and none";
  EXPECT_EQ(Read("\"a\"\"\nb\",c\n\"d\"\""), "a\"\nb|c|/d\"|/") << "doubled quote at the end";
  EXPECT_EQ(Read("é,1"), "茅|1|/") << "two-byte sequences of UTF-8 read as local";
  EXPECT_EQ(Read("\xFF\xFF\n\0b"s), "\xFF\xFF|/\0b|/"s) << "the conversion leaves nothing";
}

TEST(CSVParser, DeliversUtf8LineByLine) {
  EXPECT_EQ(Read("1,\xB9\xE3\xB6\xAB\n2,广东\n\"\xB9\xE3\n\xB6\xAB\""), "1|广东|/2|广东|/广\n东|/");
  EXPECT_EQ(Read("\xFF\xB9\xE3,\1\n中\0,5\n1,a\xB9"s), "广|\1|/中\0|5|/1|a|/"s);
}

TEST(CSVParser, EndsWithAnyInput) {
  const std::string longest(CSVParser::kMaxLine, 'x');
  EXPECT_EQ(Read(longest + "\nb"), longest + "|/b|/");
  EXPECT_EQ(Read("a\n" + longest + "x\nb"), "a|/");
  const std::string open = longest.substr(1) + "\ny";
  EXPECT_EQ(Read('"' + open + "\nz\nz"), open + "|/z|/z|/");
  for (const char* path : {"/tmp", "/dev/zero"}) {
    CSVParser parser;
    parser.init(path);
    EXPECT_EQ(parser.get_next_row(), 0) << path;
    EXPECT_FALSE(parser.has_more_rows()) << path;
  }
}

TEST(CSVParser, KeepsAnOpenFileUntilItIsClosed) {
  WriteFile(kFile, "a,b\nc\n");
  CSVParser parser;
  EXPECT_FALSE(parser.init("") || parser.init("/tmp/missing.csv"));
  EXPECT_EQ(parser.get_next_row(), 0);
  EXPECT_TRUE(parser.init(kFile));
  EXPECT_EQ(parser.get_next_row(), 1);
  EXPECT_TRUE(parser.init("/tmp/missing.csv"));
  EXPECT_EQ(Columns(parser) + parser.get_column_by_id(2), "a|b|");
  EXPECT_THROW(parser.get_column_by_id(4294967295), std::out_of_range);
  EXPECT_EQ(parser.get_next_row(), 1);
  EXPECT_EQ(Columns(parser), "c|");
  EXPECT_EQ(parser.get_next_row(), 0);
  parser.close();
  EXPECT_FALSE(parser.has_more_rows());
  EXPECT_TRUE(parser.init(kFile));
  EXPECT_EQ(parser.get_next_row(), 1);
}

TEST(CSVParser, SplitsATextWithoutAFile) {
  CSVParser parser;
  std::string first, open, none = "old";
  parser << " a ,\"b" >> first >> open >> none;
  EXPECT_EQ(first + "|" + open + "|" + none, "a|b|");
}

}  // namespace
