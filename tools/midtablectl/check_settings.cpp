// The settings file, line by line as the service reads it. The service takes a value or does not;
// an operator wants to know why a line that looks right has no effect.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <numeric>
#include <utility>

#include "db/client_options.h"
#include "log/zux_center_log.h"
#include "midtablectl/check.h"
#include "midtablectl/text.h"
#include "support/byte_order_mark.h"
#include "support/names.h"
#include "support/trim.h"

namespace ctl {

namespace {

// The keys that the service reads. The file may have others, for other readers.
const std::set<std::string> kKeys = {"host",    "port",     "user",         "password",
                                     "dbname0", "dbtype",   "set_password", "filepath",
                                     "dbcount", "delivery", "workers",      "client_options"};

// Keys that differ by more letters than this are taken for different words.
constexpr std::size_t kMostTypingErrors = 2;

// How many letters have to be put in, taken out or replaced to make one text the other. This is the
// usual table of distances between the beginnings of both, of which one row is kept.
std::size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0U);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

// Looks at the lines of the file and remembers where each key stands.
class SettingsLines {
 public:
  SettingsLines(const std::string& path, Findings& findings) : m_path(path), m_findings(findings) {}

  void Check(std::string_view content) {
    if (content.find('\0') != std::string_view::npos) {
      m_findings.Error(m_path, 0, "holds zero bytes, after which text is lost",
                       "write the file anew as plain text");
    }
    const std::string_view used = Trim(content);
    long number = 0;
    for (std::string_view line : Lines(content)) {
      ++number;
      // Blank lines at the start and the end of the file do no harm.
      if (line.data() + line.size() <= used.data() || line.data() >= used.data() + used.size()) {
        continue;
      }
      CheckLine(Trim(line), number);
    }
    CheckSpelling();
  }
  bool Has(const std::string& key) const { return m_first.count(key) != 0; }
  // The line of the key that counts; 0 when the file has none.
  long LineOf(const std::string& key) const {
    const auto entry = m_first.find(key);
    return entry == m_first.end() ? 0 : entry->second;
  }

 private:
  void CheckLine(std::string_view line, long number) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      m_findings.Error(m_path, number,
                       line.empty() ? "blank line, which refuses the whole file"
                                    : "no \"=\" in this line, which refuses the whole file",
                       "remove the line, or write key=value: there is no comment syntax");
      return;
    }
    const std::string key(Trim(line.substr(0, equals)));
    const std::string_view value = Trim(line.substr(equals + 1));
    const auto [first, is_new] = m_first.emplace(key, number);
    if (!is_new) {
      m_findings.Warning(m_path, number,
                         "key \"" + key + "\" again; line " + std::to_string(first->second) +
                             " counts, this one does not",
                         "keep one of the two lines");
    }
    if (kKeys.count(key) == 0 && kKeys.count(Lower(key)) != 0) {
      m_findings.Error(m_path, number, "key \"" + key + "\" is not read: letter case counts",
                       "write it in small letters");
    }
    if (kKeys.count(key) != 0 && value.size() > 1 && value.front() == value.back() &&
        (value.front() == '"' || value.front() == '\'')) {
      m_findings.Warning(m_path, number, "the quotes are part of the value of \"" + key + "\"",
                         "take them away, unless you mean them");
    }
  }

  // Looks for keys that are not read and look like one that is missing. A key that is spelled
  // almost like another one, which is there too, belongs to some other reader of the file.
  void CheckSpelling() {
    for (const auto& [key, line] : m_first) {
      if (key.starts_with(kByteOrderMark) && kKeys.count(key.substr(3)) != 0) {
        m_findings.Error(m_path, line, "a byte order mark stands before \"" + key.substr(3) + "\"",
                         "save the file without byte order mark: the key is not read");
      }
      if (kKeys.count(Lower(key)) != 0) continue;
      for (const std::string& known : kKeys) {
        if (Has(known) || EditDistance(key, known) > kMostTypingErrors) continue;
        m_findings.Warning(
            m_path, line,
            Format("key \"%s\" is not read, and there is no %s", key.c_str(), known.c_str()),
            "write " + known + ", if that is meant");
      }
    }
  }

  const std::string& m_path;
  Findings& m_findings;
  std::map<std::string, long> m_first;  // keys, and the first line of each: that one counts
};

// `secret` is what the file has in it that others must not know.
void CheckMode(const std::string& path, const std::string& secret, Findings& findings) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || (status.st_mode & (S_IROTH | S_IWOTH)) == 0) return;
  if ((status.st_mode & S_IWOTH) != 0) {
    findings.Warning(path, 0, "everybody on this machine may change it", "chmod o-rw " + path);
  } else {
    findings.Warning(path, 0, "everybody on this machine may read the " + secret,
                     "chmod o-r " + path + ", with a group for those who must read it");
  }
}

// Adds to the login what stands in the option files. False where that keeps the service from the
// server.
bool CheckClientOptions(const std::string& path, MYSQLAUTH& auth, long line, Findings& findings) {
  ClientOptions options;
  const bool sound = options.Read(auth.client_options);
  if (!sound) {
    findings.Error(path, auth.client_options.empty() ? 0 : line,
                   options.error() + "; nobody is asked for a login",
                   "correct it: see CLIENT OPTIONS in dbinfo.conf(5)");
  }
  for (const std::string& file : options.unreadable()) {
    if (!auth.client_options.empty()) break;  // this was the error
    findings.Warning(path, 0,
                     file + "; whether it has client options for the service is not known here",
                     "name the file that has them: client_options=...");
  }
  const bool lacks_password = auth.password.empty();
  options.Complete(auth);
  if (lacks_password && !auth.password.empty() && !auth.client_options.empty()) {
    CheckMode(auth.client_options, "password", findings);
  }
  CheckMode(options.KeyFile(), "private key", findings);
  return sound;
}

void CheckType(const std::string& path, const MYSQLAUTH& auth, long line, Findings& findings) {
  const std::string type = Lower(auth.dbtype);
  if (auth.dbtype != type && (type == "oracle" || type == "oci8")) {
    findings.Error(path, line, "dbtype \"" + auth.dbtype + "\" selects MySQL, not Oracle",
                   "write " + type + " in small letters");
  } else if (auth.dbtype != "mysql" && !IsOracle(auth)) {
    findings.Warning(path, line,
                     "dbtype \"" + auth.dbtype +
                         "\" is not known: it works as MySQL, but changes of enterprise users are "
                         "seen only when their number changes",
                     "write dbtype=mysql, or oracle");
  }
}

// On Oracle a database is a user, and all that the service makes get one password.
void CheckNewUserPassword(const std::string& path, const MYSQLAUTH& auth, long line,
                          Findings& findings) {
  if (!IsSafePassword(auth.new_user_password)) {
    findings.Error(path, line, "set_password is refused: the users of the databases cannot be made",
                   "letters, digits, _, $ and # alone, or others in double quotes");
  } else if (auth.new_user_password.empty()) {
    findings.Error(path, line, "no set_password: the users of the databases cannot be made",
                   "add set_password=...");
  }
}

// What a connection to MySQL needs. On Oracle the data source of ODBC names the server.
void CheckAddress(const std::string& path, const MYSQLAUTH& auth, const SettingsLines& lines,
                  Findings& findings) {
  if (auth.host.empty()) {
    findings.Warning(path, lines.LineOf("host"),
                     "no host: the client library takes its local socket", "add host=127.0.0.1");
  }
  if (LacksPort(auth)) {
    findings.Error(path, lines.LineOf("port"), "no port, or none from 1 to 65535",
                   "write port= and digits only, 3306 mostly");
  }
  if (auth.dbname.empty()) {
    findings.Warning(path, lines.LineOf("dbname0"), "no dbname0, the database to log in to",
                     "add dbname0=vqcfg");
  }
}

void CheckDeliveryValue(const std::string& path, const std::string& delivery, const MYSQLAUTH& auth,
                        long line, Findings& findings) {
  if (delivery.empty() || (delivery == kDeliveryOnce && !IsOracle(auth))) return;
  findings.Error(path, line,
                 "delivery \"" + delivery + "\" is not " +
                     (IsOracle(auth) ? "for Oracle" : "known") + ": the service does not start",
                 IsOracle(auth) ? "remove the line" : "write delivery=once, or remove the line");
}

void CheckWorkersValue(const std::string& path, const std::string& workers, bool once, long line,
                       Findings& findings) {
  if (NumberOfWorkers(workers) == 0) {
    findings.Error(path, line,
                   "workers \"" + workers + "\" is no number from 1 to " +
                       std::to_string(kMostWorkers) + ": the service does not start",
                   "correct it, or remove the line");
  } else if (!workers.empty() && !once) {
    findings.Warning(path, line, "workers has no effect without delivery=once",
                     "add delivery=once, or remove the line");
  }
}

void CheckValues(const std::string& path, const MYSQLAUTH& auth, const SettingsLines& lines,
                 Findings& findings) {
  CheckType(path, auth, lines.LineOf("dbtype"), findings);
  if (auth.user.empty()) findings.Error(path, lines.LineOf("user"), "no user", "add user=...");
  if (!lines.Has("password") && auth.password.empty())
    findings.Warning(path, 0, "no password", "add password=...");
  if (IsOracle(auth)) {
    CheckNewUserPassword(path, auth, lines.LineOf("set_password"), findings);
  } else {
    CheckAddress(path, auth, lines, findings);
  }
}

}  // namespace

bool LacksPort(const MYSQLAUTH& auth) {
  // The client library takes these two for its local socket.
  const bool socket = auth.host.empty() || auth.host == "localhost";
  return !IsOracle(auth) && !socket && (auth.port < 1 || auth.port > 65535);
}

std::optional<CheckedSettings> CheckSettings(const std::string& path, Findings& findings) {
  std::string content;
  if (!ReadWhole(path, content)) {
    findings.Error(path, 0,
                   std::string("cannot be read: ") + std::strerror(errno) +
                       "; the service ends at once with status 1",
                   errno == ENOENT ? "copy the sample dbinfo.conf there and put your server in"
                                   : "mend its mode or that of the folders above");
    return std::nullopt;
  }
  // What can be said without understanding the file comes first: the service refuses a file as a
  // whole for a single line.
  CheckMode(path, "password", findings);
  SettingsLines lines(path, findings);
  lines.Check(content);
  // The service's own reader has the last word.
  CDBInfo settings(path.c_str());
  if (!settings.readConfig()) {
    // Where the file has any text, the line that makes the service refuse it was named above.
    if (Trim(content).empty()) {
      findings.Error(path, 0, "is empty; the service ends at once with status 1",
                     "copy the sample dbinfo.conf there and put your server in");
    }
    return std::nullopt;
  }
  MYSQLAUTH auth = ReadCredentials(settings);
  const bool sound =
      IsOracle(auth) || CheckClientOptions(path, auth, lines.LineOf("client_options"), findings);
  CheckValues(path, auth, lines, findings);
  const std::string delivery = settings.getValue("delivery");
  CheckDeliveryValue(path, delivery, auth, lines.LineOf("delivery"), findings);
  CheckWorkersValue(path, settings.getValue("workers"), delivery == kDeliveryOnce,
                    lines.LineOf("workers"), findings);
  return CheckedSettings{auth, delivery == kDeliveryOnce, sound};
}

}  // namespace ctl
