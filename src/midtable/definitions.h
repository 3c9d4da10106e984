// A parsed table definition file: reads that log what is missing.
#pragma once

#include <string>

#include "config/XmlStream.h"

class TableDefinitions {
 public:
  // The path of the file for the store at hand.
  static const char* File(bool oracle);
  // Parses the file for the store at hand; on failure logs the parser's reason and returns false.
  // The caller logs its own line after that.
  bool Parse(bool oracle);

  // The text of the element at `path`; a missing one is logged and false.
  bool Read(const std::string& path, std::string& text) const;
  // The same for a decimal number, read as atoi does: a text that is none is 0. One that is not
  // digits alone is logged, since mid tables or rows may go missing by it.
  bool Read(const std::string& path, int& number) const;

 private:
  const char* m_file = "";
  CXmlStream m_xml;
};
