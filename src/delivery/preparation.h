// What all mem tables of a visit need, found and made in two journeys to the server.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "delivery/connection.h"
#include "delivery/feed.h"

// For a server that is far away. It takes the ordinary case only: a feed about which anything else
// is found stays as it was, finds the same by its own questions, and tells of it. One object for
// one visit; feeds and plans must outlive it.
class Preparation {
 public:
  // The connection is in `database`.
  Preparation(Connection& sql, const std::string& database) : m_sql(sql), m_database(database) {}

  void Add(const std::string& table, Feed& feed, const Plan& plan) {
    m_entries.push_back({table, &feed, &plan});
  }
  // A statement that fails is not told of: what it was for is left to the feeds.
  void Run();

 private:
  struct Entry {
    std::string table;
    Feed* feed;
    const Plan* plan;
  };
  // By database and name: whether the table keeps what is rolled back.
  using Tables = std::map<std::string, bool>;

  std::string MarksQuery() const;
  std::string TablesQuery() const;
  static std::map<std::string, SqlRecord> MarksIn(const SqlReply& reply);
  static Tables TablesIn(const SqlReply& reply);
  void LeaveHalfMade(const std::map<std::string, SqlRecord>& marks, const Tables& tables);
  std::vector<std::string> WhatIsMissing(const Tables& tables) const;
  bool HasAll(const Entry& entry, const Tables& tables) const;
  void NoteWhatIsReady(const std::map<std::string, SqlRecord>& marks, const Tables& tables,
                       const std::vector<SqlRecord>& filled);

  Connection& m_sql;
  const std::string& m_database;
  std::vector<Entry> m_entries;
};
