#include "db/mysql_failure.h"

#include <errmsg.h>
#include <mysqld_error.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <iterator>

#include "db/sql_state.h"

namespace {

struct Row {
  unsigned int number;
  SqlFailure meaning;
};

// Numbers whose SQL state does not tell, or misleads. Those without a name are of MySQL, or of the
// servers' file layer, and stand in no header of this client library.
constexpr Row kNumbers[] = {
    // The session is over, or never was one.
    {ER_CONNECTION_KILLED, SqlFailure::kConnection},
    {ER_HOST_IS_BLOCKED, SqlFailure::kConnection},
    {ER_HOST_NOT_PRIVILEGED, SqlFailure::kConnection},
    {ER_NORMAL_SHUTDOWN, SqlFailure::kConnection},
    {ER_SERVER_OFFLINE_MODE, SqlFailure::kConnection},
    {ER_TOO_MANY_USER_CONNECTIONS, SqlFailure::kConnection},
    {3169, SqlFailure::kConnection},  // the session was killed
    {4031, SqlFailure::kConnection},  // MySQL has ended the idle session

    // Locks, and transactions that the server ended.
    {ER_BACKUP_LOCK_IS_ACTIVE, SqlFailure::kServer},
    {ER_CANT_UPDATE_WITH_READLOCK, SqlFailure::kServer},
    {ER_CHECKREAD, SqlFailure::kServer},  // a row changed since the transaction read it
    {ER_ERROR_DURING_COMMIT, SqlFailure::kServer},
    {ER_ERROR_DURING_ROLLBACK, SqlFailure::kServer},
    {ER_LOCK_ABORTED, SqlFailure::kServer},
    {ER_LOCK_TABLE_FULL, SqlFailure::kServer},
    {ER_LOCK_WAIT_TIMEOUT, SqlFailure::kServer},
    {ER_PRIOR_COMMIT_FAILED, SqlFailure::kServer},
    {ER_TABLE_DEF_CHANGED, SqlFailure::kServer},
    {ER_TOO_MANY_CONCURRENT_TRXS, SqlFailure::kServer},
    {ER_XA_RBDEADLOCK, SqlFailure::kServer},
    {ER_XA_RBROLLBACK, SqlFailure::kServer},
    {ER_XA_RBTIMEOUT, SqlFailure::kServer},
    {3100, SqlFailure::kServer},  // group replication refused the commit
    {3572, SqlFailure::kServer},  // a lock was not to be had at once

    // Statements that were ended from outside.
    {ER_QUERY_INTERRUPTED, SqlFailure::kServer},
    {ER_STATEMENT_TIMEOUT, SqlFailure::kServer},
    {ER_USER_LIMIT_REACHED, SqlFailure::kServer},  // statements an hour
    {3024, SqlFailure::kServer},                   // the longest execution time

    // A server that only reads, or that is not ready.
    {ER_CANT_EXECUTE_IN_READ_ONLY_TRANSACTION, SqlFailure::kServer},
    {ER_INNODB_READ_ONLY, SqlFailure::kServer},
    {ER_OPEN_AS_READONLY, SqlFailure::kServer},
    {ER_OPTION_PREVENTS_STATEMENT, SqlFailure::kServer},  // but see below
    {ER_READ_ONLY_MODE, SqlFailure::kServer},
    {ER_READ_ONLY_TRANSACTION, SqlFailure::kServer},
    {ER_UNKNOWN_COM_ERROR, SqlFailure::kServer},  // a node that has not joined its cluster

    // No room, no memory, broken files.
    {ER_CANT_CREATE_THREAD, SqlFailure::kServer},
    {ER_CANT_LOCK, SqlFailure::kServer},
    {ER_CRASHED_ON_REPAIR, SqlFailure::kServer},
    {ER_CRASHED_ON_USAGE, SqlFailure::kServer},
    {ER_DISK_FULL, SqlFailure::kServer},
    {ER_ENGINE_OUT_OF_MEMORY, SqlFailure::kServer},
    {ER_ERROR_ON_CLOSE, SqlFailure::kServer},
    {ER_ERROR_ON_READ, SqlFailure::kServer},
    {ER_ERROR_ON_WRITE, SqlFailure::kServer},
    {ER_GET_ERRMSG, SqlFailure::kServer},
    {ER_GET_ERRNO, SqlFailure::kServer},
    {ER_GET_TEMPORARY_ERRMSG, SqlFailure::kServer},
    {ER_INDEX_FILE_FULL, SqlFailure::kServer},
    {ER_INNODB_UNDO_LOG_FULL, SqlFailure::kServer},
    {ER_NOT_KEYFILE, SqlFailure::kServer},
    {ER_OUTOFMEMORY, SqlFailure::kServer},
    {ER_OUT_OF_RESOURCES, SqlFailure::kServer},
    {ER_OUT_OF_SORTMEMORY, SqlFailure::kServer},
    {ER_RECORD_FILE_FULL, SqlFailure::kServer},
    {ER_STMT_CACHE_FULL, SqlFailure::kServer},
    {ER_TRANS_CACHE_FULL, SqlFailure::kServer},
    {CR_OUT_OF_MEMORY, SqlFailure::kServer},
    {5, SqlFailure::kServer},   // out of memory
    {20, SqlFailure::kServer},  // disk full

    // Rights, and what the settings of the server forbid.
    {ER_ACCOUNT_HAS_BEEN_LOCKED, SqlFailure::kPrivilege},
    {ER_CANT_CREATE_USER_WITH_GRANT, SqlFailure::kPrivilege},
    {ER_COLUMNACCESS_DENIED_ERROR, SqlFailure::kPrivilege},
    {ER_DBACCESS_DENIED_ERROR, SqlFailure::kPrivilege},
    {ER_LOAD_INFILE_CAPABILITY_DISABLED, SqlFailure::kPrivilege},
    {ER_MUST_CHANGE_PASSWORD, SqlFailure::kPrivilege},
    {ER_NOT_ALLOWED_COMMAND, SqlFailure::kPrivilege},
    {ER_PROCACCESS_DENIED_ERROR, SqlFailure::kPrivilege},
    {ER_SPECIFIC_ACCESS_DENIED_ERROR, SqlFailure::kPrivilege},
    {ER_TABLEACCESS_DENIED_ERROR, SqlFailure::kPrivilege},
    {ER_TEXTFILE_NOT_READABLE, SqlFailure::kPrivilege},
    {2068, SqlFailure::kPrivilege},  // the client may not send that local file
    {3948, SqlFailure::kPrivilege},  // local files are disabled

    // Rows.
    {ER_AUTOINC_READ_FAILED, SqlFailure::kData},
    {ER_INVALID_CHARACTER_STRING, SqlFailure::kData},
    {ER_NO_DEFAULT_FOR_FIELD, SqlFailure::kData},
    {ER_NO_PARTITION_FOR_GIVEN_VALUE, SqlFailure::kData},
    {ER_ROW_DOES_NOT_MATCH_PARTITION, SqlFailure::kData},
    {ER_SIGNAL_EXCEPTION, SqlFailure::kData},
    {ER_SIGNAL_NOT_FOUND, SqlFailure::kData},
    {ER_TRUNCATED_WRONG_VALUE_FOR_FIELD, SqlFailure::kData},
    {ER_WARN_TOO_FEW_RECORDS, SqlFailure::kData},
    {ER_WARN_TOO_MANY_RECORDS, SqlFailure::kData},
    {ER_WRONG_VALUE_FOR_TYPE, SqlFailure::kData},
    {WARN_DATA_TRUNCATED, SqlFailure::kData},
    {3819, SqlFailure::kData},  // a check constraint

    // Sent again, these fail again, whatever their SQL state says.
    {ER_NET_PACKET_TOO_LARGE, SqlFailure::kStatement},
    {ER_NON_UNIQ_ERROR, SqlFailure::kStatement},
    {CR_NET_PACKET_TOO_LARGE, SqlFailure::kStatement},
    {CR_UNKNOWN_ERROR, SqlFailure::kStatement},
};

// The system's error number that many texts of the servers end with: (Errcode: 28 "No space ...").
int SystemErrorIn(std::string_view text) {
  for (const std::string_view before : {"Errcode: ", "errno: "}) {
    const std::size_t at = text.find(before);
    if (at == std::string_view::npos) continue;
    int number = 0;
    std::from_chars(text.data() + at + before.size(), text.data() + text.size(), number);
    return number;
  }
  return 0;
}

SqlFailure MeaningOfSystemError(int number) {
  switch (number) {
    case EACCES:
    case EPERM:
      return SqlFailure::kPrivilege;
    case EDQUOT:
    case EIO:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
    case ENOSPC:
    case EROFS:
      return SqlFailure::kServer;
    default:
      return SqlFailure::kStatement;
  }
}

}  // namespace

SqlFailure MeaningOfMysqlError(unsigned int number, std::string_view state, std::string_view text) {
  if (number == 0) return SqlFailure::kNone;
  // One number for --read-only, which passes, and for --secure-file-priv, which is a setting.
  if (number == ER_OPTION_PREVENTS_STATEMENT && text.find("--secure-") != std::string_view::npos) {
    return SqlFailure::kPrivilege;
  }
  const Row* const row = std::find_if(std::begin(kNumbers), std::end(kNumbers),
                                      [&](const Row& each) { return each.number == number; });
  if (row != std::end(kNumbers)) return row->meaning;
  // The client library's own numbers tell of connections that were not made or broke.
  if (number >= CR_MIN_ERROR && number <= CR_MAX_ERROR) return SqlFailure::kConnection;
  const SqlFailure by_state = MeaningOfSqlState(state);
  return by_state == SqlFailure::kStatement ? MeaningOfSystemError(SystemErrorIn(text)) : by_state;
}
