#include "midtablectl/setup/account.h"

#include <set>

#include "db/SqlFactory.h"
#include "db/login_remedy.h"
#include "localuser/tourlocaluser.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

// Where in information_schema the privileges on something are told, and on what condition.
struct PrivilegeTable {
  std::string name;
  std::string condition;
};

std::set<std::string> Held(const Account& account, const PrivilegeTable& table, Server& server) {
  std::set<std::string> held;
  for (const SqlRecord& row :
       server.Rows("select privilege_type as value from information_schema." + table.name +
                   " where grantee = " + QuotedText(account.Grantee()) + table.condition)) {
    held.insert(Lower(row.begin()->second));
  }
  return held;
}

std::set<std::string> HeldOnAll(const Account& account, Server& server) {
  return Held(account, {"user_privileges", ""}, server);
}

// Adds what is needed of it and held neither on everything nor in the tables.
void AddMissing(const Account& account, Grant needed, const std::vector<PrivilegeTable>& tables,
                Server& server, std::vector<Grant>& missing) {
  std::set<std::string> held = HeldOnAll(account, server);
  for (const PrivilegeTable& table : tables) held.merge(Held(account, table, server));
  std::erase_if(needed.privileges,
                [&held](const std::string& privilege) { return held.count(privilege) != 0; });
  if (!needed.privileges.empty()) missing.push_back(std::move(needed));
}

// "user@host" as a server says it; a user's name may have an "@" too.
Account Split(const std::string& text) {
  const std::size_t at = text.rfind('@');
  return {text.substr(0, at), at == std::string::npos ? "%" : text.substr(at + 1)};
}

}  // namespace

std::string Grant::Statement(const Account& account) const {
  std::string list;
  for (const std::string& privilege : privileges) list += (list.empty() ? "" : ", ") + privilege;
  return "grant " + list + " on " + object + " to " + account.Quoted();
}

std::optional<Account> AccountOf(const MYSQLAUTH& login, std::string& words) {
  const std::unique_ptr<CSqlBase> sql = CreateSqlBase(login);
  if (sql->connectDB() == 0) {
    return Split(Server(*sql, Dialect::Of(login)).Value("select current_user()"));
  }
  words = SplitRemedy(ServerWords(sql->getLastError())).first;
  return std::nullopt;
}

Account AccountFor(const Target& target, const std::string& login_host, Server& server) {
  Account account{target.login.user, login_host};
  if (!login_host.empty()) return account;
  // A server knows its own machine by the address that was called, and the local socket as
  // "localhost"; of another machine it says itself what it sees.
  account.host = target.login.host.empty() ? "localhost" : target.login.host;
  if (!target.IsLocal()) account.host = Split(server.Value("select user()")).host;
  return account;
}

std::vector<Account> RivalsOf(const Account& account, Server& server) {
  const std::string begin = "'" + account.user + "'@'";
  const std::string length = "char_length(" + QuotedText(begin) + ")";
  const std::string question =
      "select distinct substr(grantee, " + length + " + 1, char_length(grantee) - " + length +
      " - 1) as value from information_schema.user_privileges where left(grantee, " + length +
      ") = " + QuotedText(begin) + " having " + QuotedText(account.host) + " like value";
  std::vector<Account> rivals;
  for (const SqlRecord& row : server.Rows(question)) {
    rivals.push_back({account.user, row.begin()->second});
  }
  return rivals;
}

std::vector<Grant> MissingGrants(const Account& account, bool once, Server& server) {
  const std::string shared = DBNAME;
  const std::string in_shared = " and table_schema = " + QuotedText(shared);
  const std::string pattern = DatabasePattern();
  Grant on_devices{QuotedName(pattern) + ".*", {"select", "insert", "update", "create", "drop"}};
  // Entries of the ledger are removed in the end.
  if (once) on_devices.privileges.insert(on_devices.privileges.begin() + 3, "delete");
  std::vector<Grant> missing;
  AddMissing(
      account, {QuotedName(shared) + "." + QuotedName(kEnterpriseUserTable), {"select"}},
      {{"schema_privileges", in_shared},
       {"table_privileges", in_shared + " and table_name = " + QuotedText(kEnterpriseUserTable)}},
      server, missing);
  AddMissing(account, on_devices,
             {{"schema_privileges", " and table_schema = " + QuotedText(pattern)}}, server,
             missing);
  // The server itself reads the files.
  if (!once) AddMissing(account, {"*.*", {"file"}}, {}, server, missing);
  return missing;
}

std::size_t SurplusPrivileges(const Account& account, bool once, Server& server) {
  std::set<std::string> held = HeldOnAll(account, server);
  held.erase("usage");
  if (!once) held.erase("file");
  return held.size();
}

}  // namespace ctl
