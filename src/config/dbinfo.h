// The connection settings file (lines of key=value), the credentials record made from it, and the
// process-wide policy that holds the record.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

// One further database listed in the settings file.
struct _dbinfo {  // NOLINT(bugprone-reserved-identifier): the name is part of the interface
  std::string dbname;
  std::string dbdepict;  // a human description of the database
};

// Reads the settings file and answers from what it read. Writes nothing to the run log.
class CDBInfo {
 public:
  // `path` is kept, not copied: it must outlive the object. A null path ends the process.
  explicit CDBInfo(const char* path);

  // Reads and parses the whole file, replacing what an earlier call read. On failure false, the
  // reason in getError(), and the settings count as unread.
  //
  // Syntax: the content is trimmed of white space; then every line must hold "="; key and value are
  // the trimmed texts before and after the first one; the first occurrence of a key wins. There are
  // no comments, no quotes and no blank lines between settings.
  bool readConfig();
  // Text of the last failure of readConfig, empty before any.
  const std::string& getError() const { return m_error; }

  // The value, or an empty text for an absent key.
  std::string getValue(const std::string& key) const;

  std::string getHost() const { return getValue("host"); }
  std::string getDBName() const { return getValue("dbname0"); }
  int getPort() const;  // -1 when absent or not a plain decimal number
  std::string getUser() const { return getValue("user"); }
  std::string getPsw() const { return getValue("password"); }
  std::string getDBType() const { return getValue("dbtype"); }
  std::string getNewUserPassword() const { return getValue("set_password"); }
  std::string getFilePath() const { return getValue("filepath"); }
  unsigned int getDBCount() const;  // 0 when absent or not a plain decimal number

  // The "dbname<i>" / "dbdepict<i>" pairs for i from 0 to getDBCount() - 1; a missing key gives an
  // empty field. A count of 0 ends the process with status 0.
  std::vector<_dbinfo> getDBInfoList() const;

  // False for an empty text and for any character but '0' to '9'; otherwise stores the number.
  static bool ToInteger(const std::string& text, unsigned int* out);

 private:
  bool setMapInfo(std::string_view content);

  std::map<std::string, std::string> m_entries;
  const char* m_path;
  std::string m_error;
};

// What a connection is made from. A plain value.
struct MYSQLAUTH {
  MYSQLAUTH() = default;
  MYSQLAUTH(const MYSQLAUTH&) = default;
  MYSQLAUTH& operator=(const MYSQLAUTH&) = default;
  explicit MYSQLAUTH(MYSQLAUTH* other) : MYSQLAUTH(*other) {}

  std::string host;
  int port = 0;  // -1: not set or not a number
  std::string user;
  std::string password;
  std::string dbname;
  std::string extra;   // always empty here, copied along
  int extra_flag = 0;  // always 0 here, copied along
  std::string dbtype;  // "oracle" or "oci8" select Oracle, anything else MySQL; compared exactly
  std::string new_user_password;  // of the per-database users that the service creates
  std::string client_options;     // the option file to read instead of the usual ones; empty: those
};

// True for the two texts that select an Oracle store.
bool IsOracle(const MYSQLAUTH& auth);

// Copies what the settings file says into a record: dbtype as it stands, the extras empty.
MYSQLAUTH ReadCredentials(const CDBInfo& settings);

// The value of the key "delivery" that selects the way of working in which every row is counted
// exactly once.
inline constexpr std::string_view kDeliveryOnce = "once";
// Databases that such a service may work on at a time, the key "workers".
inline constexpr int kMostWorkers = 16;

// The number that the value of "workers" stands for: 1 for an empty one, 0 for one that is no
// number from 1 to kMostWorkers.
int NumberOfWorkers(const std::string& value);

// Holds the record read from paths::kSettingsFile; "oci8" has become "oracle".
class CDBPolicy {
 public:
  // Reads the settings. A file that cannot be read or parsed is logged, and the process ends with
  // status 1.
  CDBPolicy();

  // The record; callers read or copy it, nobody writes through it.
  MYSQLAUTH* getDBPolicy() { return &m_auth; }
  // The value of the key "delivery": how files are counted; empty when it is absent.
  const std::string& getDelivery() const { return m_delivery; }
  // The value of the key "workers"; empty when it is absent.
  const std::string& getWorkers() const { return m_workers; }

 private:
  MYSQLAUTH m_auth;
  std::string m_delivery;
  std::string m_workers;
};

// The process-wide policy, read on the first call: main makes that call before anything else. A
// later change of the file takes effect at the next start.
CDBPolicy& ProcessPolicy();
