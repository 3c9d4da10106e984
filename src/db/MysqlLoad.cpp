// Loading rows that this program sends. The server may ask for any file by name; what it gets are
// the bytes of the load at work, and nothing when there is none.
#include <mysqld_error.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "db/MysqlBase.h"
#include "db/server_wait.h"

namespace {

constexpr int kFailed = 1;

// The client library passes on the counts of a load as a sentence only.
// The number behind `label` in the server's words "Records: 3  Deleted: 0  Skipped: 1".
std::uint64_t NumberBehind(const char* words, const char* label) {
  const char* const at = words == nullptr ? nullptr : std::strstr(words, label);
  return at == nullptr ? 0 : std::strtoull(at + std::strlen(label), nullptr, 10);
}

}  // namespace

// The option allows the server to ask, the handler decides what it gets: without the handler the
// library would open whatever file of this machine the server names.
void CMysqlBase::prepareLocalLoads() {
  constexpr unsigned int kOn = 1;
  mysql_optionsv(usable(), MYSQL_OPT_LOCAL_INFILE, &kOn);
  mysql_set_local_infile_handler(usable(), beginLoad, readLoad, endLoad, explainLoad, this);
}

// Called whenever the server asks for a file, in the answer to any statement.
int CMysqlBase::beginLoad(void** state, const char* /*name*/, void* self) {
  *state = self;
  return static_cast<CMysqlBase*>(self)->m_loadBytes == nullptr ? kFailed : 0;
}

int CMysqlBase::readLoad(void* state, char* buffer, unsigned int size) {
  return static_cast<CMysqlBase*>(state)->m_loadBytes->Read(buffer, size);
}

void CMysqlBase::endLoad(void* /*state*/) {}

// The library sends the text to nobody; it becomes the last error of the load.
int CMysqlBase::explainLoad(void* state, char* text, unsigned int size) {
  const LoadBytes* const bytes = static_cast<CMysqlBase*>(state)->m_loadBytes;
  std::snprintf(text, size, "%s", bytes == nullptr ? "no load is at work" : bytes->error().c_str());
  return ER_ERROR_ON_READ;
}

int CMysqlBase::loadLocal(const char* sql, LoadBytes& bytes, LoadCounts& counts) {
  const ServerWait wait(m_gaveUp, m_policy);
  m_loadBytes = &bytes;
  const int result = run(sql, 0);
  m_loadBytes = nullptr;
  if (result != 0) return result;
  const char* const words = mysql_info(usable());
  counts = {NumberBehind(words, "Records: "), NumberBehind(words, "Skipped: "),
            NumberBehind(words, "Warnings: ")};
  return 0;
}

std::uint64_t CMysqlBase::affectedRows() const {
  return usable() == nullptr ? 0 : mysql_affected_rows(usable());
}

std::string CMysqlBase::sessionId() const {
  return std::to_string(usable() == nullptr ? 0 : mysql_thread_id(usable()));
}

unsigned int CMysqlBase::errorNumber() const {
  return usable() == nullptr ? 0 : mysql_errno(usable());
}
