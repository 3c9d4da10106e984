// Sections and their cities come back as they were when they are written and read again.
#include "fuzz/fuzz.h"
#include "support/RwIni.h"

std::string Canonical(const std::string& input) {
  const CRwIni ini(FileOf(input));
  assert(ini.IsLoadOk() == 1);
  std::string text = "\xEF\xBB\xBF; all of them\n";
  for (const std::string& section : ini.GetSections()) {
    char buffer[4];
    const std::string city = ini.GetString(section.c_str(), "city", buffer, sizeof buffer, nullptr);
    assert(city.substr(0, 3).c_str() == std::string(buffer));
    text += "[\t" + section + " ]\r\ncity = early\r\n city\t=" + city + "\r\n";
  }
  return text;
}
