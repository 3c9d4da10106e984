// The Oracle back end of a program that was built without ODBC: every operation fails, and the
// error text says why.
#include "db/OracleBase.h"

namespace {

constexpr char kAbsent[] = "Oracle is not built in: build the program with -DMIDTABLE_ODBC=ON";

}  // namespace

class COracleBase::Session {};

COracleBase::COracleBase(const std::string& user, const std::string& password)
    : m_user(user),
      m_password(password),
      m_lastError(kAbsent),
      m_lastFailure(SqlFailure::kConnection) {}
COracleBase::~COracleBase() = default;

int COracleBase::connectDB() { return -1; }
int COracleBase::closeDB() { return 0; }
int COracleBase::executeSQL(const char*, int) { return -1; }
bool COracleBase::existDB(const char*) { return false; }
int COracleBase::changeDB(const char*) { return -1; }
int COracleBase::changeDB(const char*, const char*) { return -1; }
int COracleBase::fetchRecordSet(const char*, std::vector<SqlRecord>&) { return -1; }
int COracleBase::reconnectDB() { return connectDB(); }
bool COracleBase::existTable(const char*) { return false; }
int COracleBase::RowsCountBySQL(const char*, unsigned int*) { return -1; }
bool COracleBase::isDBAlive() { return false; }
int COracleBase::GetColums(const char*, std::vector<std::string>&) { return 0; }
