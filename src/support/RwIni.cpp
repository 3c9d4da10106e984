#include "support/RwIni.h"

#include <filesystem>
#include <fstream>
#include <string_view>

#include "support/byte_order_mark.h"
#include "support/trim.h"

CRwIni::CRwIni(const char* path) {
  if (path != nullptr) Load(path);
}

int CRwIni::Load(const char* path, const IniLineHandler& handler) {
  m_sections.clear();
  m_values.clear();
  m_loaded = false;
  std::error_code error;
  if (path == nullptr || !std::filesystem::is_regular_file(path, error)) return 0;
  std::ifstream file(path, std::ios::binary);
  Sections::value_type* section = nullptr;
  long number = 0;
  for (std::string text; std::getline(file, text);) {
    ++number;
    std::string_view line = text;
    if (number == 1 && line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
    const IniLine kind = ReadLine(Trim(line), section);
    if (handler) handler(number, kind, section != nullptr ? section->first : std::string());
  }
  m_loaded = file.eof();
  if (!m_loaded) {
    m_sections.clear();
    m_values.clear();
  }
  return IsLoadOk();
}

// `section` is where keys go, null before the first section.
IniLine CRwIni::ReadLine(std::string_view line, Sections::value_type*& section) {
  if (line.empty() || line[0] == ';' || line[0] == '#') return IniLine::kNothing;
  if (line[0] == '[') {
    const std::size_t end = line.find(']');
    if (end == std::string_view::npos) return IniLine::kPassedOver;
    const auto [entry, is_new] = m_values.try_emplace(std::string(Trim(line.substr(1, end - 1))));
    if (is_new) m_sections.push_back(entry->first);
    section = &*entry;
    return is_new ? IniLine::kSection : IniLine::kKnownSection;
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos || section == nullptr) return IniLine::kPassedOver;
  section->second.insert_or_assign(std::string(Trim(line.substr(0, equals))),
                                   Trim(line.substr(equals + 1)));
  return IniLine::kValue;
}

const std::string* CRwIni::Find(std::string_view section, std::string_view key) const {
  const auto values = m_values.find(section);
  if (values == m_values.end()) return nullptr;
  const auto value = values->second.find(key);
  return value == values->second.end() ? nullptr : &value->second;
}

std::string CRwIni::GetString(const char* section, const char* key, char* buffer, int size,
                              const char* default_value) const {
  const std::string* found = section != nullptr && key != nullptr ? Find(section, key) : nullptr;
  std::string value = found != nullptr ? *found : default_value != nullptr ? default_value : "";
  if (buffer != nullptr && size > 0) {
    buffer[value.copy(buffer, static_cast<std::size_t>(size) - 1)] = '\0';
  }
  return value;
}
