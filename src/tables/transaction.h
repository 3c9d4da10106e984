// One database transaction as an object.
#pragma once

#include "tables/store.h"

// Rolls back when it goes out of scope begun and not committed. The store must outlive it.
class Transaction {
 public:
  explicit Transaction(Store& store) : m_store(store) {}
  ~Transaction() { Rollback(); }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // The statement of Begin.
  const char* begin() const { return m_store.dialect().BeginStatement(); }

  // Each runs its statement: false when the server refused it, the reason in the store's last
  // error. Begin may be called again, after a statement by which the server ended the transaction.
  bool Begin() {
    if (!m_store.Execute(begin())) return false;
    m_open = true;
    return true;
  }
  bool Commit() {
    if (!m_store.Execute("commit")) return false;
    m_open = false;
    return true;
  }
  // Nothing when no transaction is open; the server's answer is not looked at.
  void Rollback() {
    if (m_open) m_store.Execute("rollback");
    m_open = false;
  }

 private:
  Store& m_store;
  bool m_open = false;
};
