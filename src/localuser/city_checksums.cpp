// The checksum of each device's city, by the name of the device's database.
#include <utility>

#include "localuser/tourlocaluser.h"
#include "log/zux_center_log.h"
#include "support/RwIni.h"
#include "support/crc32.h"
#include "support/database_name.h"

std::string TourLocalUser::GetCRCString(const std::string& text) {
  g_loger(kUnit, __LINE__, kConsole, "string (%s)\n", text.c_str());
  const unsigned int crc = morvan_crc32(text.data(), static_cast<unsigned int>(text.size()));
  g_loger(kUnit, __LINE__, kConsole, "string (%s) crc is (%u)\n", text.c_str(), crc);
  return Format("%u", crc);
}

int TourLocalUser::updateCityCRC() {
  CRwIni devices(nullptr);
  devices.Load(CITYCRCFILE.c_str());
  if (!devices.IsLoadOk()) {
    g_loger(kUnit, __LINE__, kError, "load file %s err", CITYCRCFILE.c_str());
    return -1;
  }
  // A map of its own takes the place of the old one when it is complete, so that no reader sees
  // half of the devices.
  std::map<std::string, std::string> checksums;
  for (const std::string& section : devices.GetSections()) {
    // A device without a city counts as one whose city's name is empty.
    std::string city = "/";
    city.append(devices.GetString(section.c_str(), "city", nullptr, 0, nullptr)) += '/';
    const std::string dbname = DatabaseName(section);
    g_loger(kUnit, __LINE__, kConsole, "dbname (%s) city (%s)\n", dbname.c_str(), city.c_str());
    checksums[dbname] = GetCRCString(city);
  }
  MutexLock lock(m_localLock);
  m_mapCityCrc = std::move(checksums);
  return 0;
}

// The caller gets a copy and needs no lock while it works on that. A refresh that failed leaves the
// checksums as they were.
int TourLocalUser::GetCityCRC(std::map<std::string, std::string>& out, int refresh) {
  if (refresh != 0) updateCityCRC();
  MutexLock lock(m_localLock);
  out = m_mapCityCrc;
  return 0;
}
