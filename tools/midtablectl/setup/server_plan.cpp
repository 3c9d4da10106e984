#include <algorithm>
#include <cerrno>
#include <cstring>

#include "midtablectl/setup/account.h"
#include "midtablectl/setup/make_plan.h"
#include "midtablectl/setup/samples.h"
#include "midtablectl/text.h"
#include "support/database_name.h"
#include "support/paths.h"

namespace ctl {

namespace {

void AddMissing(const std::vector<Creation>& creations, Server& server, Plan& plan) {
  for (const Creation& creation : creations) {
    const bool there = creation.table.empty() ? server.HasDatabase(creation.database)
                                              : server.HasTable(creation.database, creation.table);
    if (!there) plan.AddStatement(creation.Statement());
  }
}

// What to do about a login that is there under another password than that of the settings.
std::string OtherPassword(const Account& account, const Target& target, const std::string& words) {
  const std::string login = "the login " + OneLine(account.Grantee()) + " is there";
  if (!target.has_settings) {
    return login +
           ", and no settings have its password -> --reset-password gives it a new one; "
           "--user NAME makes another login";
  }
  return login + ", and does not take the password of " + paths::kSettingsFile + " (" +
         OneLine(words) +
         ") -> write the right one there, or let --reset-password give the login "
         "that of the file";
}

void AddGrants(const Account& account, bool once, Server& server, Plan& plan) {
  for (const Grant& grant : MissingGrants(account, once, server)) {
    plan.AddStatement(grant.Statement(account));
  }
  const std::size_t surplus = SurplusPrivileges(account, once, server);
  if (surplus == 0) return;
  plan.notes.push_back("the login " + account.Grantee() + " has " + Count(surplus, "privilege") +
                       " on everything that the service does not need");
}

}  // namespace

std::string PlanSharedTables(Server& server, Plan& plan) {
  std::string error;
  AddMissing(ParseCreations(kSampleDatabases, error), server, plan);
  return error;
}

std::string PlanLogin(const SetupOptions& options, const Target& target, Server& server,
                      Plan& plan) {
  std::string words;
  if (target.has_settings) {
    if (const std::optional<Account> account = AccountOf(target.login, words)) {
      AddGrants(*account, target.once, server, plan);
      return {};
    }
    if (target.login.password.empty()) {
      return std::string(paths::kSettingsFile) + " has no password -> add password=...";
    }
  }
  Account account = AccountFor(target, options.login_host, server);
  const std::vector<Account> rivals = RivalsOf(account, server);
  if (!rivals.empty() && !options.reset_password) {
    return OtherPassword(rivals.front(), target, words);
  }
  // The server prefers the account that says the host exactly.
  const bool has_own = std::any_of(rivals.begin(), rivals.end(), [&account](const Account& rival) {
    return rival.host == account.host;
  });
  if (!rivals.empty() && !has_own) account = rivals.front();
  plan.AddStatement((rivals.empty() ? "create user " : "alter user ") + account.Quoted() +
                        " identified by " + Step::kSecret,
                    target.login.password);
  AddGrants(account, target.once, server, plan);
  return {};
}

std::string YearTableScript(std::string& error) {
  std::string script;
  if (ReadWhole(paths::kYearTables, script)) return script;
  // One that is there and cannot be read may say something else than the sample.
  if (errno != ENOENT) error = std::strerror(errno);
  return kSampleYearTables;
}

std::string PlanYearTables(const std::vector<std::string>& devices, const std::vector<int>& years,
                           Server& server, Plan& plan) {
  std::string error;
  const std::string script = YearTableScript(error);
  for (const std::string& id : devices) {
    AddMissing({{DatabaseName(id), "", ""}}, server, plan);
    for (const int year : years) {
      if (!error.empty()) break;
      AddMissing(YearTables(script, DatabaseName(id), year, error), server, plan);
    }
  }
  return error.empty() ? error : std::string(paths::kYearTables) + ": " + error + " -> correct it";
}

}  // namespace ctl
