// Settings that were read come back as they were when they are written and read again.
#include "config/dbinfo.h"
#include "fuzz/fuzz.h"

std::string Canonical(const std::string& input) {
  CDBInfo settings(FileOf(input));
  assert(settings.readConfig() == settings.getError().empty());
  std::string text = std::to_string(settings.getPort()) + "=port\n";
  for (const char* key : {"host", "port", "user", "dbname0", ""}) {
    text += key + (" =\t" + settings.getValue(key)) + "\r\n" + key + "=later\n";
  }
  return text;
}
