// The service's account on the server, and what it may do there.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "midtablectl/server.h"
#include "midtablectl/setup/target.h"

namespace ctl {

struct Account {
  std::string user;
  std::string host;  // from where it may come; may be a pattern

  // As statements take it.
  std::string Quoted() const { return QuotedText(user) + "@" + QuotedText(host); }
  // As the server's own tables of privileges have it, in quotes that escape nothing.
  std::string Grantee() const { return "'" + user + "'@'" + host + "'"; }
};

// Some privileges on something.
struct Grant {
  std::string object;  // as it stands behind "on"
  std::vector<std::string> privileges;

  std::string Statement(const Account& account) const;
};

// The account as which the server lets the login of the settings in. Where it does not, nothing,
// and `words` says why.
std::optional<Account> AccountOf(const MYSQLAUTH& login, std::string& words);
// The account that fits this login, for one that is to be made. `server` is an administrator's.
Account AccountFor(const Target& target, const std::string& login_host, Server& server);
// The accounts that the server may take for somebody of that name who comes from that host.
std::vector<Account> RivalsOf(const Account& account, Server& server);

// What the service needs, no more, as far as the account lacks it.
std::vector<Grant> MissingGrants(const Account& account, bool once, Server& server);
// How many privileges it has on everything that the service does not need.
std::size_t SurplusPrivileges(const Account& account, bool once, Server& server);

}  // namespace ctl
