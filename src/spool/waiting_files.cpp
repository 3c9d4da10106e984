#include "spool/waiting_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

bool Before(const char* a, const char* b) { return std::strcmp(a, b) < 0; }

// Whether the time in the first name is before that in the second: date and time stand behind the
// table, which may be of any length.
bool IsEarlier(std::string_view a, std::string_view b) {
  const auto time = [](std::string_view name) {
    constexpr std::size_t kIdAndDash = 9;
    const std::size_t dash = name.find('-', std::min(name.size(), kIdAndDash));
    return name.substr(std::min(name.size(), dash));
  };
  return time(a) < time(b);
}

// Only an answer that the name is not there counts. A folder that cannot be read at the moment
// hides its files without having lost them.
bool IsGone(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

// The names form a heap and no sorted list: a pass needs the greatest name only, and an outage may
// leave hundreds of thousands of names.
void WaitingFiles::Backlog::Push(const char* name) {
  names.push_back(name);
  std::push_heap(names.begin(), names.end(), Before);
}

void WaitingFiles::Backlog::Pop() {
  std::pop_heap(names.begin(), names.end(), Before);
  names.pop_back();
}

// The names lie in one block of memory after the other, which is given back as a whole.
void WaitingFiles::Clear() {
  m_backlogs.clear();
  m_memory.release();
  m_count = 0;
  m_oldest = nullptr;
}

// Names are kept by mem table, since a pass takes one file of each table: so a table with a long
// backlog costs no more than one with a single file.
void WaitingFiles::Add(const char* name) {
  if (!IsMemFileName(name)) return;
  MemFile file = MemFile::Parse(m_folder + "/" + name);
  Backlog& backlog = m_backlogs[file.QualifiedTable()];
  if (backlog.names.empty()) {
    backlog.database = std::move(file.database);
    backlog.table = std::move(file.table);
  }
  const std::size_t size = std::strlen(name) + 1;
  char* const copy = static_cast<char*>(m_memory.allocate(size, 1));
  std::memcpy(copy, name, size);
  backlog.Push(copy);
  ++m_count;
  if (m_oldest == nullptr || IsEarlier(copy, m_oldest)) m_oldest = copy;
}

std::string WaitingFiles::OldestPath() const {
  return m_oldest == nullptr ? std::string() : m_folder + "/" + m_oldest;
}

// A file that was passed over, or is gone, leaves its table's heap so that the next name comes to
// the front. Those that were passed over go back in the end, to be offered again by the next call.
bool WaitingFiles::OfferFiles(const Offer& offer) {
  // The tables in a heap, that of the greatest name in front: there may be tens of thousands.
  std::vector<Backlog*> tables;
  for (auto& [key, backlog] : m_backlogs) tables.push_back(&backlog);
  const auto before = [](const Backlog* a, const Backlog* b) {
    return Before(a->names.front(), b->names.front());
  };
  std::make_heap(tables.begin(), tables.end(), before);
  std::vector<std::pair<Backlog*, const char*>> passed;
  bool useful = false;
  while (!tables.empty()) {
    std::pop_heap(tables.begin(), tables.end(), before);
    Backlog* const backlog = tables.back();
    tables.pop_back();
    const char* const name = backlog->names.front();
    const MemFile file{m_folder + "/" + name, backlog->database, backlog->table};
    const bool gone = IsGone(file.path);
    const Answer answer = gone ? Answer::kPass : offer(file);
    useful = useful || answer == Answer::kTaken || answer == Answer::kEnough;
    if (answer == Answer::kEnough) break;
    if (answer != Answer::kPass) continue;
    backlog->Pop();
    if (gone) --m_count;
    if (!gone) passed.emplace_back(backlog, name);
    if (backlog->names.empty()) continue;
    tables.push_back(backlog);
    std::push_heap(tables.begin(), tables.end(), before);
  }
  for (const auto& [backlog, name] : passed) backlog->Push(name);
  std::erase_if(m_backlogs, [](const auto& entry) { return entry.second.names.empty(); });
  return useful;
}
