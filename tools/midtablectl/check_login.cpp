// The login, as the service does it.

#include <mysql.h>

#include <memory>

#include "db/login_remedy.h"
#include "midtablectl/advice.h"
#include "midtablectl/check.h"

namespace ctl {

namespace {

constexpr char kWhere[] = "server";
constexpr unsigned int kConnectSeconds = 10;

struct HandleCloser {
  void operator()(MYSQL* handle) const { mysql_close(handle); }
};

// Whether the server lets over TLS alone in what it refused without. Who the server is does not
// matter for that: it has just been sent the same login in the clear.
bool TakesLoginOverTls(const MYSQLAUTH& auth) {
  const std::unique_ptr<MYSQL, HandleCloser> handle(mysql_init(nullptr));
  if (handle == nullptr) return false;
  constexpr my_bool kOn = 1;
  constexpr my_bool kOff = 0;
  mysql_optionsv(handle.get(), MYSQL_OPT_CONNECT_TIMEOUT, &kConnectSeconds);
  mysql_optionsv(handle.get(), MYSQL_OPT_SSL_ENFORCE, &kOn);
  mysql_optionsv(handle.get(), MYSQL_OPT_SSL_VERIFY_SERVER_CERT, &kOff);
  return mysql_real_connect(handle.get(), auth.host.c_str(), auth.user.c_str(),
                            auth.password.c_str(), auth.dbname.c_str(),
                            static_cast<unsigned int>(auth.port), nullptr, 0) != nullptr;
}

// What to do about a login that MySQL refused with `words`, for which the back end knows `remedy`.
std::string LoginAdvice(const std::string& words, const std::string& remedy,
                        const MYSQLAUTH& auth) {
  constexpr std::string_view kDenied = "Access denied for user ";
  if (!words.starts_with(kDenied)) {
    const std::string advice = remedy.empty() ? ServerAdvice(words) : remedy;
    return advice.empty() ? "mend host, port, user, password and dbname0 of the settings" : advice;
  }
  // With the right password, a user without any privilege on the database is refused too. The
  // server then names both: "... for user 'u'@'h' to database 'd'".
  const std::size_t database = words.find(" to database ");
  if (database != std::string::npos) {
    const std::string user = words.substr(kDenied.size(), database - kDenied.size());
    return "grant select on " + auth.dbname + ".* to " + user;
  }
  if (!remedy.empty() && TakesLoginOverTls(auth)) {
    return "the server takes this login over TLS only: see CLIENT OPTIONS in dbinfo.conf(5)";
  }
  return "mend user and password of the settings, or make that user on the server";
}

}  // namespace

bool CheckLogin(CSqlBase& sql, const MYSQLAUTH& auth, Findings& findings) {
  if (sql.connectDB() == 0) return true;
  const auto [words, remedy] = SplitRemedy(ServerWords(sql.getLastError()));
  const std::string login = "no login as " + auth.user;
  if (IsOracle(auth)) {
    findings.Error(kWhere, 0, login + " through ODBC: " + words,
                   "see oracle.md: driver and data source in odbc.ini, password");
  } else {
    findings.Error(kWhere, 0,
                   login + " at " + auth.host + " port " + std::to_string(auth.port) + ": " + words,
                   LoginAdvice(words, remedy, auth));
  }
  return false;
}

}  // namespace ctl
