// What counting every row exactly once (delivery=once) asks of the server.

#include "db/MysqlBase.h"
#include "midtablectl/check.h"

namespace ctl {

namespace {

constexpr char kWhere[] = "server";

// One row, as the service sends the rows of a file.
class OneRow : public LoadBytes {
 public:
  int Read(char* buffer, unsigned int /*size*/) override {
    if (m_sent) return 0;
    m_sent = true;
    buffer[0] = '3';
    buffer[1] = '\n';
    return 2;
  }
  std::string error() const override { return {}; }

 private:
  bool m_sent = false;
};

// What the server acknowledges and may lose all the same.
void CheckDurability(Server& server, Findings& findings) {
  const std::string flush = server.Variable("innodb_flush_log_at_trx_commit");
  if (flush != "1") {
    findings.Warning(kWhere, 0,
                     "innodb_flush_log_at_trx_commit is " + flush +
                         ": a power loss of the server may lose counted rows",
                     "set it to 1, in the server's configuration too");
  }
  const std::string sync = server.Variable("sync_binlog");
  if (server.Variable("log_bin") == "1" && sync != "1") {
    findings.Warning(
        kWhere, 0,
        "sync_binlog is " + sync + ": a power loss of the server may lose counted rows on replicas",
        "set it to 1, in the server's configuration too");
  }
}

}  // namespace

void CheckDelivery(Server& server, Findings& findings) {
  CheckDurability(server, findings);
  if (server.Variable("local_infile") == "0") {
    findings.Error(kWhere, 0, "local_infile is off: no file can be loaded, all of them wait",
                   "set global local_infile = 1, and local_infile=1 in its configuration");
  }
}

void ProbeLocalLoad(const MYSQLAUTH& auth, Server& server, Findings& findings) {
  // A ledger's entries are removed in the end.
  const std::string refused = server.Run("delete from probe");
  if (!refused.empty()) {
    findings.Error(kWhere, 0, "\"delete from probe\" fails: " + refused,
                   "grant delete on `" + DatabasePattern() + "`.* to " + server.user());
  }
  if (server.Variable("local_infile") == "0") return;
  MYSQLAUTH own = auth;
  CMysqlBase sql(&own);
  sql.allowLocalLoads();
  OneRow row;
  LoadCounts counts;
  const std::string load = std::string("load data local infile 'probe' ignore into table ") +
                           ScratchDatabase::kName + ".probe";
  if (sql.connectDB() == 0 && sql.loadLocal(load.c_str(), row, counts) == 0 &&
      counts.records == 1) {
    return;
  }
  findings.Error(kWhere, 0, "no load: " + ServerWords(sql.getLastError()),
                 "grant insert on `" + DatabasePattern() + "`.* to " + server.user());
}

}  // namespace ctl
