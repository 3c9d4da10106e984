// A parsed table definition file: reads that log what is missing.
#pragma once

#include <string>

#include "config/XmlStream.h"

class TableDefinitions {
 public:
  // Parses the file for the store at hand; on failure logs the parser's reason and returns false.
  // The caller logs its own line after that.
  bool Parse(bool oracle);

  // The text of the element at `path`; a missing one is logged and false.
  bool Read(const std::string& path, std::string& text) const;
  // The same for a decimal number; a text that is none reads as 0.
  bool Read(const std::string& path, int& number) const;

 private:
  CXmlStream m_xml;
};
