// What stands in for the Oracle back end where that is not installed: every operation fails and
// says why.
#include "db/OracleBase.h"

namespace {

constexpr char kAbsent[] =
    "Oracle back end not installed: install package midtable-oracle, or build with unixODBC";

}  // namespace

class COracleBase::Session {};

COracleBase::COracleBase(const std::string& user, const std::string& password)
    : m_user(user), m_password(password), m_lastError(kAbsent) {}
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
