// The city value of each database, as the engine knows it.
#pragma once

#include <map>
#include <string>

#include "localuser/tourlocaluser.h"

// One thread. The registry must outlive it.
class CityValues {
 public:
  explicit CityValues(TourLocalUser& registry) : m_registry(registry) {}

  // Takes what the registry has read so far.
  void Fill() { m_registry.GetCityCRC(m_values, 0); }
  // That of `database`. Where it is not known yet, the registry reads its source again; 0 for a
  // database that the source does not name by then.
  std::string Of(const std::string& database);

 private:
  TourLocalUser& m_registry;
  std::map<std::string, std::string> m_values;  // by database
};
