#include "midtable/city_values.h"

// A city that is not known is looked for again each time, because somebody may enter it while the
// service runs. The statements need some number, which is 0 until then.
std::string CityValues::Of(const std::string& database) {
  if (m_values[database].empty()) m_registry.GetCityCRC(m_values, 1);
  const std::string& city = m_values[database];
  return city.empty() ? "0" : city;
}
