#include "delivery/connection.h"

#include <mysqld_error.h>

#include <fstream>
#include <string_view>

#include "log/engine_unit.h"
#include "log/zux_center_log.h"
#include "support/names.h"
#include "support/paths.h"

namespace {

// How long a session that was ended may take to go.
constexpr int kClaimSeconds = 2;

// The first half of the machine's id, which no other machine has.
std::string MachineName() {
  std::ifstream in(paths::kMachineId);
  std::string id;
  in >> id;
  return IsSafeIdentifier(id) ? id.substr(0, 16) : std::string();
}

}  // namespace

std::string Connection::Reason() {
  constexpr std::string_view kBegin = " failed, error:";
  const std::string error = getLastError();
  const std::size_t at = error.rfind(kBegin);
  return at == std::string::npos ? error : error.substr(at + kBegin.size());
}

bool Connection::Ask(const std::string& query, std::string& value) {
  std::vector<SqlRecord> rows;
  if (!Query(query, rows)) return false;
  value = rows.empty() || rows.front().empty() ? std::string() : rows.front().begin()->second;
  if (value == "NULL") value.clear();
  return true;
}

// The server gives up a named lock with the session that holds it, however that ended. The name is
// the machine's own: the service of another machine is none that was left behind.
bool Connection::Claim(const std::string& database) {
  const std::string name = "'midtable " + MachineName() + " " + database + "'";
  std::string got;
  std::string holder;
  if (!Ask("select get_lock(" + name + ", 0) as n", got)) return false;
  if (got == "1") return true;
  if (!Ask("select is_used_lock(" + name + ") as n", holder)) return false;
  if (!holder.empty() && Run("kill " + holder)) {
    g_loger(kUnit, __LINE__, kInfo, "session %s of an earlier run on db %s ended", holder.c_str(),
            database.c_str());
  }
  // Another session holds it still, or the server has no such locks: the ledger keeps both apart.
  return Ask("select get_lock(" + name + ", " + std::to_string(kClaimSeconds) + ") as n", got);
}

bool Connection::SaysItExists() const {
  switch (errorNumber()) {
    case ER_DB_CREATE_EXISTS:
    case ER_TABLE_EXISTS_ERROR:
    case ER_DUP_FIELDNAME:
    case ER_DUP_KEYNAME:
    case ER_MULTIPLE_PRI_KEY:
    case ER_TRG_ALREADY_EXISTS:
      return true;
    default:
      return false;
  }
}
