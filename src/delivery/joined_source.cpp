#include "delivery/joined_source.h"

#include <numeric>

int JoinedSource::Read(char* buffer, unsigned int size) {
  while (m_at < m_sources.size()) {
    LoadSource& source = *m_sources[m_at];
    if (const int got = source.Read(buffer, size); got != 0) return got;
    ++m_at;
    if (source.endsWithinALine() && m_at < m_sources.size()) {
      buffer[0] = '\n';
      return 1;
    }
  }
  return 0;
}

std::string JoinedSource::error() const {
  return m_at < m_sources.size() ? m_sources[m_at]->error() : std::string();
}

std::uint64_t JoinedSource::lines() const {
  return std::accumulate(
      m_sources.begin(), m_sources.end(), std::uint64_t{0},
      [](std::uint64_t sum, const LoadSource* source) { return sum + source->lines(); });
}
