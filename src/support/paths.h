// Every fixed path of this service. The sources spell no other but the machine's own.
#pragma once

namespace paths {

// Connection settings, written by the web administration; read at start and by the registry.
inline constexpr char kSettingsFile[] = "/virus/apache/rnweb/inc/dbinfo.conf";

// The option files of MySQL's and MariaDB's client programs, in the order in which they are read.
// Those of a user are left out: which they are would depend on who starts the service.
inline constexpr const char* kOptionFiles[] = {"/etc/my.cnf", "/etc/mysql/my.cnf"};
// The certificates of the authorities that this machine trusts.
inline constexpr char kAuthorities[] = "/etc/ssl/certs";

// Table definitions for a MySQL and for an Oracle store; re-read at every use.
inline constexpr char kMysqlDefinitions[] = "/etc/morvan/vqlog.xml";
inline constexpr char kOracleDefinitions[] = "/etc/morvan/oracle_vqlog.xml";
// The statements that make the year tables of a database, for midtablectl.
inline constexpr char kYearTables[] = "/etc/morvan/year_tables.sql";
// Statements and control file text of the Oracle loading roads; re-read at every use.
inline constexpr char kLoaderTemplates[] = "/etc/morvan/sqlldr_ctl.xml";
// Control file written for the Oracle loader tool.
inline constexpr char kLoaderControlFile[] = "/etc/morvan/midtable_sqlldr.ctl";
// Its presence alone says that no mid tables are wanted.
inline constexpr char kIndexMarker[] = "/etc/morvan/vqlog_index.xml";

// Local number blocks and device states, watched and re-read by the registry.
inline constexpr char kLocalNumberBlocks[] = "/etc/morvan/localtour.csv";
inline constexpr char kDeviceStates[] = "/etc/morvan/devstate.ini";

// Data root, and below it the spool: one folder per database, filled by the producers.
inline constexpr char kLogData[] = "/vqlog/log_data/";
inline constexpr char kSpool[] = "/vqlog/log_data/midtable/";

// Run log folder: one file a day.
inline constexpr char kRunLogDir[] = "/vqlog/log/midtable/";
// Looked at when the run log opens; changes nothing.
inline constexpr char kRunLogFlag[] = "/tmp/zux_midtable.flag";

// The machine's own name for itself, made by the system at its first start.
inline constexpr char kMachineId[] = "/etc/machine-id";

// What the running service tells of itself, for midtablectl and others: docs/state.md.
inline constexpr char kStateFolder[] = "/run/midtable";
inline constexpr char kStateFile[] = "/run/midtable/state.json";

// Held while an instance runs.
inline constexpr char kLockFile[] = "/tmp/midtable.lock";
// Present at start: mem files of kind F are loaded without rewriting.
inline constexpr char kNoRewriteFlag[] = "/tmp/mem_table_f.flag";

}  // namespace paths
