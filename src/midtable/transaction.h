// One database transaction as an object.
#pragma once

#include "db/SqlBase.h"

// Rolls back when it goes out of scope begun and not committed.
class Transaction {
 public:
  Transaction(CSqlBase& sql, const char* begin) : m_sql(sql), m_begin(begin) {}
  ~Transaction() { Rollback(); }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  const char* begin() const { return m_begin; }

  // Each runs its statement: false when the server refused it, the reason in the back end's last
  // error. Begin may be called again, after a statement by which the server ended the transaction.
  bool Begin() {
    if (m_sql.executeSQL(m_begin, 1) != 0) return false;
    m_open = true;
    return true;
  }
  bool Commit() {
    if (m_sql.executeSQL("commit", 1) != 0) return false;
    m_open = false;
    return true;
  }
  // Nothing when no transaction is open; the server's answer is not looked at.
  void Rollback() {
    if (m_open) m_sql.executeSQL("rollback", 1);
    m_open = false;
  }

 private:
  CSqlBase& m_sql;
  const char* m_begin;
  bool m_open = false;
};
