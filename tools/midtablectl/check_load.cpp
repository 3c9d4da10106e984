// A one-line file loaded from each folder of the spool, by the statement that the service uses, and
// the real reason when that fails: the server blames secure_file_priv for a folder that is missing,
// says "not found" for a wrong mode, and "access denied" for a missing privilege FILE. What the
// conversion of a loaded table needs is tried before.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "log/zux_center_log.h"
#include "midtablectl/check.h"
#include "midtablectl/path_access.h"
#include "support/file.h"
#include "support/paths.h"

namespace ctl {

namespace {

// The user whom the server runs as, when it runs on this machine.
Identity ServerIdentity(Server& server, bool& is_here) {
  std::string data = server.Variable("datadir");
  std::string pid_file = server.Variable("pid_file");
  if (!pid_file.starts_with('/')) pid_file = data + pid_file;
  std::string pid;
  Identity identity = Identity::Nobody();
  is_here = ReadWhole(pid_file, pid) && Identity::OfProcess(std::atol(pid.c_str()), identity);
  if (is_here) return identity;
  struct stat status {};
  is_here = !data.empty() && stat(data.c_str(), &status) == 0;
  if (is_here) return Identity::OfUser(status.st_uid);
  identity = Identity::Nobody();
  identity.name = "the server's user";
  return identity;
}

class ProbeFile {
 public:
  // Its name has no ending ".dat", so the service never takes it.
  explicit ProbeFile(const std::string& folder)
      : m_path(folder + ".midtablectl-probe-" + std::to_string(getpid())) {
    const FileDescriptor file(
        open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    // The mode that the service gives a mem file, whatever the umask.
    if (!file || write(file.get(), "1\n", 2) != 2 || fchmod(file.get(), 0755) != 0) m_errno = errno;
    m_made = static_cast<bool>(file);
  }
  ~ProbeFile() {
    if (m_made) unlink(m_path.c_str());
  }
  ProbeFile(const ProbeFile&) = delete;
  ProbeFile& operator=(const ProbeFile&) = delete;

  const std::string& path() const { return m_path; }
  int error() const { return m_errno; }

 private:
  const std::string m_path;
  bool m_made = false;
  int m_errno = 0;
};

class Prober {
 public:
  Prober(Server& server, Findings& findings) : m_server(server), m_findings(findings) {
    m_identity = ServerIdentity(server, m_is_here);
  }

  // False when the folders after this one would fail for the same reason.
  bool Probe(const std::string& folder) {
    const ProbeFile probe(folder);
    if (probe.error() != 0) {
      m_findings.Warning(folder, 0,
                         std::string("no probe file could be made, so no load was tried: ") +
                             std::strerror(probe.error()),
                         probe.error() == EACCES || probe.error() == EPERM
                             ? "run check as the service's user or as root"
                             : "mend that first: the service cannot work there either");
      return true;
    }
    std::string words =
        m_server.Run("load data infile \"" + probe.path() + "\" ignore into table probe");
    if (words.empty() && m_server.Value("select count(*) from probe") != "1") {
      words = "no row arrived";
    }
    if (!words.empty()) {
      if (ExplainForAll(words)) return false;
      Explain(folder, probe.path(), words);
    }
    return m_server.Run("truncate table probe").empty();
  }

 private:
  // Reasons that no folder has a part in; false when it is none of them.
  bool ExplainForAll(const std::string& words) {
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

  void Explain(const std::string& folder, const std::string& path, const std::string& words) {
    const std::string said = "; the server's words: " + words;
    const std::string obstacle = Obstacle(path, m_identity);
    if (!obstacle.empty()) {
      m_findings.Error(folder, 0, "no load: " + obstacle + said,
                       "give each folder on the way the mode o+x (chmod o+x), or let the server's "
                       "user into its group");
      return;
    }
    const std::string allowed = AllowedFolder();
    if (!path.starts_with(allowed)) {
      m_findings.Error(folder, 0, "no load: secure_file_priv is " + allowed + said,
                       "set secure_file_priv in the server's configuration to \"\" or to " +
                           std::string(paths::kSpool) + ", restart the server");
    } else if (!m_is_here) {
      m_findings.Error(folder, 0,
                       "no load, and the server's data folder is not on this machine" + said,
                       "the server must run on this machine, or see the spool under the same path");
    } else {
      m_findings.Error(
          folder, 0,
          "no load, although modes and settings allow it: something hides the folder "
          "from the server" +
              said,
          "look at ProtectHome, ProtectSystem, InaccessiblePaths and TemporaryFileSystem "
          "of the server's unit, at AppArmor, and whether it runs in a container");
    }
  }

  // The folder that secure_file_priv names; NULL where that forbids all, empty where it allows all.
  std::string AllowedFolder() {
    const std::string allowed = m_server.Variable("secure_file_priv");
    // MariaDB shows one that is not set as NULL.
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
  Prober prober(server, findings);
  for (const DatabaseFolder& folder : spool.folders) {
    if (folder.error == 0 && !prober.Probe(folder.Path())) return;
  }
  if (spool.folders.empty() && spool.error == 0) prober.Probe(paths::kSpool);
}

}  // namespace ctl
