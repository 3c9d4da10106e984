#include "midtablectl/setup/admin.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "config/option_files.h"
#include "db/SqlFactory.h"
#include "db/login_remedy.h"
#include "midtablectl/server.h"
#include "midtablectl/text.h"

namespace ctl {

namespace {

// Takes user and password from the file.
std::string ReadFile(const std::string& path, MYSQLAUTH& login) {
  OptionFiles file("client");
  if (!file.Read(path)) return OneLine(path) + ": " + std::strerror(errno) + " -> name another";
  if (!file.found()) return OneLine(path) + " has no group [client] -> put user and password there";
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IROTH | S_IWOTH)) != 0) {
    return OneLine(path) + ": everybody on this machine may read the password -> chmod 600 " +
           OneLine(path);
  }
  for (const ClientOption& option : file.options()) {
    if (option.name == "user" && option.value) login.user = *option.value;
    if (option.name == "password" && option.value) login.password = *option.value;
  }
  return {};
}

// The ways to the server, in the order in which they are tried.
std::vector<MYSQLAUTH> WaysOf(const Target& target, const MYSQLAUTH& login) {
  std::vector<MYSQLAUTH> ways;
  if (target.IsLocal()) {
    ways.push_back(login);
    ways.back().host = "localhost";
  }
  if (!target.IsLocal() || (!login.host.empty() && login.host != "localhost")) {
    ways.push_back(login);
  }
  return ways;
}

// The local socket may be that of another server than the one behind the port.
bool IsTheServer(CSqlBase& sql, const MYSQLAUTH& way, const Target& target) {
  if (way.host != "localhost" || target.login.host == "localhost" || target.login.host.empty()) {
    return true;
  }
  return Server(sql, Dialect::Of(way)).Value("select @@port") == std::to_string(target.login.port);
}

bool IsDenied(const std::string& words) { return words.find("denied") != std::string::npos; }

// Null, with the words of the last failure, when no way leads in; those of a server that answered
// stay.
std::unique_ptr<CSqlBase> Connect(const Target& target, const MYSQLAUTH& login,
                                  std::string& words) {
  words.clear();
  for (const MYSQLAUTH& way : WaysOf(target, login)) {
    std::unique_ptr<CSqlBase> sql = CreateSqlBase(way);
    if (sql->connectDB() == 0) {
      if (IsTheServer(*sql, way, target)) return sql;
      words = "the local socket leads to another server";
    } else if (!IsDenied(words)) {
      words = ServerWords(sql->getLastError());
    }
  }
  return nullptr;
}

// Without a password, TLS is not what a refused login lacks first.
std::string Advice(const std::string& words, const std::string& remedy, bool has_password) {
  if (!remedy.empty() && (has_password || !IsDenied(words))) return remedy;
  if (IsDenied(words) || words.find("not allowed") != std::string::npos) {
    return "run this as root where root needs no password, or give a login: --admin-defaults-file "
           "FILE, with user and password in its group [client]";
  }
  return "is the server up, and are host and port its own? apt install mariadb-server makes one "
         "here; for TLS see servers.md";
}

}  // namespace

std::string LogIn(const SetupOptions& options, const Target& target, Console& console,
                  Administrator& administrator) {
  MYSQLAUTH login = target.login;
  login.password.clear();
  login.user = options.admin_user.empty() ? "root" : options.admin_user;
  if (!options.admin_file.empty()) {
    std::string error = ReadFile(options.admin_file, login);
    if (!error.empty()) return error;
    if (!options.admin_user.empty()) login.user = options.admin_user;
  }
  std::string words;
  administrator.sql = Connect(target, login, words);
  const bool asks = console.interactive && !options.yes && login.password.empty();
  if (administrator.sql == nullptr && asks && IsDenied(words) &&
      AskPassword(console, "Password of " + login.user + " on the database server",
                  login.password)) {
    administrator.sql = Connect(target, login, words);
  }
  if (administrator.sql == nullptr) {
    const auto [said, remedy] = SplitRemedy(words);
    return "no login as " + OneLine(login.user) + " at " + OneLine(login.host) + " port " +
           std::to_string(login.port) + ": " + OneLine(said) + " -> " +
           Advice(said, remedy, !login.password.empty());
  }
  administrator.user = login.user;
  // Quotes and backslashes mean the same in every statement that follows.
  words =
      Server(*administrator.sql, Dialect::Of(login)).Run("set session sql_mode = 'TRADITIONAL'");
  return words.empty() ? words : OneLine(words) + " -> see the server's error log";
}

}  // namespace ctl
