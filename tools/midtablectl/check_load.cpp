// A one-line file loaded from each folder of the spool, by the statement that the service uses.
//
// A load goes through the server's eyes: its user, its settings, and what its unit hides from it.
// The server's own words mislead: it blames secure_file_priv for a folder that it does not see,
// says "not found" for a wrong mode, and "access denied" for a missing privilege FILE. So after a
// failed load the modes and settings are looked at one by one, and the first that explains it is
// reported.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "log/zux_center_log.h"
#include "midtablectl/check.h"
#include "midtablectl/path_access.h"
#include "midtablectl/text.h"
#include "support/file.h"
#include "support/paths.h"

namespace ctl {

namespace {

// The user whom the server's process has. `is_here` tells whether the server was found on this
// machine; else the result is a user who owns nothing, since a server elsewhere has no process
// here.
Identity ServerIdentity(Server& server, bool& is_here) {
  const std::string data = server.Variable("datadir");
  std::string pid_file = server.Variable("pid_file");
  if (!pid_file.starts_with('/')) pid_file = data + pid_file;
  std::string pid;
  Identity identity = Identity::Nobody();
  is_here = ReadWhole(pid_file, pid) && Identity::OfProcess(std::atol(pid.c_str()), identity);
  if (is_here) return identity;
  // Not everybody may read the number of the process; the owner of the data tells the user too.
  struct stat status {};
  is_here = !data.empty() && stat(data.c_str(), &status) == 0;
  if (is_here) return Identity::OfUser(status.st_uid);
  identity = Identity::Nobody();
  identity.name = "the server's user";
  return identity;
}

// A file with one row in a folder of the spool, which goes at the end of the scope.
class ProbeFile {
 public:
  // The name has no ending ".dat", so the service never takes the file.
  explicit ProbeFile(const std::string& folder)
      : m_path(folder + ".midtablectl-probe-" + std::to_string(getpid())) {
    const FileDescriptor file(
        open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    // The service gives a mem file the same mode before it is loaded, whatever the umask.
    if (!file || write(file.get(), "1\n", 2) != 2 || fchmod(file.get(), 0755) != 0) m_errno = errno;
    m_made = static_cast<bool>(file);
  }
  ~ProbeFile() {
    if (m_made) unlink(m_path.c_str());
  }
  ProbeFile(const ProbeFile&) = delete;
  ProbeFile& operator=(const ProbeFile&) = delete;

  const std::string& path() const { return m_path; }
  int error() const { return m_errno; }  // 0 when the file is there

 private:
  const std::string m_path;
  bool m_made = false;
  int m_errno = 0;
};

class LoadProbe {
 public:
  LoadProbe(Server& server, Findings& findings) : m_server(server), m_findings(findings) {
    m_identity = ServerIdentity(server, m_is_here);
  }

  // Loads a file from the folder. False when the loads from all other folders would fail for the
  // same reason, so that there is no use in trying them.
  bool Try(const std::string& folder) {
    const ProbeFile probe(folder);
    if (probe.error() != 0) {
      ReportNoFile(folder, probe.error());
      return true;
    }
    std::string words = m_server.Run(m_server.dialect().LoadStatement(probe.path(), "probe"));
    if (words.empty() && m_server.Value("select count(*) from probe") != "1") {
      words = "no row arrived";
    }
    if (!words.empty()) {
      if (ReportCommonReason(words)) return false;
      ReportReason(folder, probe.path(), words);
    }
    return m_server.Run("truncate table probe").empty();
  }

 private:
  void ReportNoFile(const std::string& folder, int error) {
    const bool denied = error == EACCES || error == EPERM;
    m_findings.Warning(
        folder, 0,
        std::string("no probe file could be made, so no load was tried: ") + std::strerror(error),
        denied ? "run check as the service's user or as root"
               : "mend that first: the service cannot work there either");
  }

  // Reports a reason that has nothing to do with the folder; false when the words tell of none.
  bool ReportCommonReason(const std::string& words) {
    const bool denied = words.find("Access denied") != std::string::npos;
    if (!denied && words.find("SQL syntax") == std::string::npos) return false;
    m_findings.Error(
        "server", 0,
        std::string("no load: ") +
            (denied ? "this user lacks the privilege FILE" : "it is not understood") +
            "; the server's words: " + words,
        denied ? "grant file on *.* to " + m_server.user() : "take ANSI_QUOTES out of sql_mode");
    return true;
  }

  // Reports what keeps the server from the file: a mode, a setting, another machine, or, where none
  // of these is in the way, something that only the server sees.
  void ReportReason(const std::string& folder, const std::string& path, const std::string& words) {
    const auto report = [&](const std::string& reason, const std::string& fix) {
      m_findings.Error(folder, 0, "no load" + reason + "; the server's words: " + words, fix);
    };
    const std::string obstacle = Obstacle(path, m_identity);
    if (!obstacle.empty()) {
      return report(": " + obstacle,
                    "give each folder on the way the mode o+x (chmod o+x), or let the server's "
                    "user into its group");
    }
    const std::string allowed = AllowedFolder();
    if (!path.starts_with(allowed)) {
      return report(": secure_file_priv is " + allowed,
                    "set secure_file_priv in the server's configuration to \"\" or to " +
                        std::string(paths::kSpool) + ", restart the server");
    }
    if (!m_is_here) {
      return report(", and the server's data folder is not on this machine",
                    "the server must run on this machine, or see the spool under the same path");
    }
    report(", although modes and settings allow it: something hides the folder from the server",
           "look at ProtectHome, ProtectSystem, InaccessiblePaths and TemporaryFileSystem "
           "of the server's unit, at AppArmor, and whether it runs in a container");
  }

  // The folder that secure_file_priv names. "NULL", where that forbids every load, is the beginning
  // of no path; the empty text, where every folder is allowed, is that of each.
  std::string AllowedFolder() {
    const std::string allowed = m_server.Variable("secure_file_priv");
    // MySQL means by NULL that nothing is allowed. MariaDB shows NULL where nothing is set.
    const bool is_mariadb = m_server.Variable("version").find("MariaDB") != std::string::npos;
    return is_mariadb && allowed == "NULL" ? std::string() : allowed;
  }

  Server& m_server;
  Findings& m_findings;
  bool m_is_here = false;
  Identity m_identity;
};

}  // namespace

void ProbeLoads(Server& server, const Spool& spool, Findings& findings) {
  LoadProbe probe(server, findings);
  for (const DatabaseFolder& folder : spool.folders) {
    if (folder.error == 0 && !probe.Try(folder.Path())) return;
  }
  // Before the first producer has made its folder, the spool itself tells most of it.
  if (spool.folders.empty() && spool.error == 0) probe.Try(paths::kSpool);
}

}  // namespace ctl
