// A template of a definition file that is taken gives what printf would, however hostile the file.
#include "config/XmlStream.h"
#include "fuzz/fuzz.h"
#include "tables/sql_template.h"

void Fill(const std::string& text, auto... values) {
  const TemplateValue given[] = {values...};
  const FilledTemplate filled = FillTemplate(text, given);
  char expected[kLongestStatement] = "";
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  if (filled) std::snprintf(expected, sizeof expected, text.c_str(), values...);
  assert(filled.text == expected);
}

std::string Canonical(const std::string& input) {
  CXmlStream xml;
  xml.parseFile(FileOf(input));
  for (const std::string node : {"/root/Mem/MidTab1/Create", "/root/Conv/F/MidTab1/Convert"}) {
    Fill(xml.getNode(node).getContent(), "201212", "MEM_20121231_0004F", 31, 31, 31, 31, "x", "y");
  }
  return {};
}
