// The connection of one worker: a MySQL back end that logs nothing by itself, since a statement
// that fails is tried again and its worker says so once a minute.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "db/MysqlBase.h"
#include "delivery/common.h"

class Connection : public CMysqlBase {
 public:
  static constexpr std::chrono::seconds kSilence{10};
  static constexpr std::chrono::milliseconds kFar{5};

  // `silence`: after how long an answer that does not come is looked for in the process list.
  // `worker`: from 1 to kMostWorkers; no two connections of a service have the same.
  explicit Connection(MYSQLAUTH* auth, std::chrono::milliseconds silence = kSilence,
                      int worker = 1);

  // As executeSQL and fetchRecordSet, in the terms of this folder.
  bool Run(const std::string& sql) { return Note(executeSQL(sql.c_str(), 0) == 0); }
  bool Query(const std::string& sql, std::vector<SqlRecord>& rows) {
    return Note(fetchRecordSet(sql.c_str(), rows) == 0);
  }
  // As runScript: whether all of them succeeded; `done` is how many did, each with its reply.
  bool RunAll(const std::vector<std::string>& statements, LoadBytes* bytes, std::size_t& done,
              std::vector<SqlReply>& replies) {
    done = runScript(statements, bytes, replies);
    return Note(done == statements.size());
  }
  // Whether a question and its answer take kFar or longer, as measured when the connection was
  // made. Such a server is asked little and told much at once.
  bool IsFar() const { return roundTrip() >= kFar; }
  // The server's own words about the last failure, without the statement.
  std::string Reason();
  // Whether the database, or its table, is there, in `found`. False when that could not be asked.
  bool FindDatabase(const std::string& database, bool& found);
  bool FindTable(const std::string& database, const std::string& table, bool& found);
  // Ends the sessions that a kill of this machine's service left behind on the server, maybe in the
  // middle of a statement and with their locks, while they worked on `database`. Sessions of `own`
  // stay. False when the server could not be asked.
  bool EndLeftSessions(const std::string& database, const OwnSessions& own);
  // Makes the session known as one that may work on `database`, until it ends. False as above.
  bool Claim(const std::string& database);
  // Switches to the database, claims it and runs `statement`, all in one journey. False where a
  // session was left behind or anything failed, which is then to be done step by step.
  bool EnterAtOnce(const std::string& database, const OwnSessions& own,
                   const std::string& statement);
  // Whether the last failure only says that what was to be made is there.
  bool SaysItExists() const;
  // Whether the server has said, since this was asked last, that it takes no changes: it only
  // reads, or it is a node that stands alone. Its address may lead a new session to one that does.
  bool TakesRefusalOfChanges() { return std::exchange(m_refuses_changes, false); }

 private:
  std::string ClaimsQuery(const std::string& database) const;
  std::string Claiming(const std::string& database) const;
  // Sessions that are none of `own`, by the worker whose claim they hold.
  static std::map<int, std::string> LeftSessions(const SqlRecord& claims, const OwnSessions& own);
  std::string ClaimOf(const std::string& database, int worker) const;
  // The first value of the first row; empty when there is none, or NULL.
  bool Ask(const std::string& query, std::string& value);

  bool Note(bool succeeded);

  const int m_worker;
  bool m_refuses_changes = false;
};
