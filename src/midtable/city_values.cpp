#include "midtable/city_values.h"

std::string CityValues::Of(const std::string& database) {
  if (m_values[database].empty()) m_registry.GetCityCRC(m_values, 1);
  const std::string& city = m_values[database];
  return city.empty() ? "0" : city;
}
