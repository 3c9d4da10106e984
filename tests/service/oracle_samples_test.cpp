// The samples for Oracle counted beside those for MySQL: the same mem files through the service on
// both roads. PostgreSQL stands in for the Oracle server; what it wants otherwise is replaced, and
// all else in the samples' statements stays to the letter.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <regex>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "support/paths.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"
#include "testing/postgres_server.h"

namespace {

namespace fs = std::filesystem;

const std::string kFolder = std::string(paths::kSpool) + "1a2b3c4d/";

struct Replacement {
  const char* of;
  const char* by;
};

// Types, the names of set clauses, sequences, names that need "as", and blocks.
const Replacement kReplacements[] = {
    {R"((\W)number\()", "$1numeric("},
    {R"(varchar2\()", "varchar("},
    {R"(\bt\.(\w+) = t\.)", "$1 = t."},
    {R"((SEQ_\w+%s)\.nextval)", "nextval('$1')"},
    {R"(\) hour,)", ") as hour,"},
    {R"(from %s x\) where)", "from rows_behind(null::%s) x) y where"},
    {R"(begin\s+execute immediate 'create (table|sequence) ([^']*)';\s+exception[^;]*;\s+end if;\s+end;)",
     "create $1 if not exists $2"},
    // The file behind an external table is read when its rows are asked for.
    {R"(create table %s (\([^<]*\)) organization external[^<]*)",
     "select external_table('%s', '%s', '%s', '$1')"},
    {R"(create or replace directory %s as '/vqlog/log_data/midtable/%s')",
     "create schema if not exists %s_%s"},
};

// What stands in for an external table, and functions that Oracle has and PostgreSQL has not, or
// not with one argument. A file of kind F gets its last column after its external table was made.
constexpr char kFunctions[] = R"(
    create or replace function external_table(name text, db text, file text, columns text)
    returns void language plpgsql as $$ begin
      execute format('create table %s %s', name, columns);
      execute format('comment on table %s is ''/vqlog/log_data/midtable/%s/%s''', name,
                     substr(db, 6), file);
    end $$;
    create or replace function rows_behind(external anyelement) returns setof anyelement
    language plpgsql as $$ begin
      execute format('copy %s from %L', pg_typeof(external),
                     obj_description(pg_typeof(external)::text::regclass, 'pg_class'));
      return query execute format('select * from %s', pg_typeof(external));
    end $$;
    create or replace function to_number(digits text) returns numeric language sql as
      'select digits::numeric';
    create or replace function nvl(value numeric, other numeric) returns numeric language sql as
      'select coalesce(value, other)')";

std::string Sample(const std::string& name) {
  std::string text = ReadFile(MIDTABLE_DEMO "oracle/" + name);
  // Comments quote statements, and a statement may come twice in them.
  text = std::regex_replace(text, std::regex("<!--[^>]*-->"), "");
  for (const auto& [of, by] : kReplacements) text = std::regex_replace(text, std::regex(of), by);
  return text;
}

// The rows of a mem file; `seed` makes files different.
std::string Flows(int seed) {
  constexpr const char* kServices[] = {"web", "mail", "video"};
  std::string rows;
  for (int i = 0; i < 40; ++i) {
    const int n = seed * 40 + i;
    rows += Format(
        "%d\t%d\t2012-12-31 %02d:15:00\t%d\t10.0.0.%d\t00:11:22:33:44:55\tap-%d\tguest\t%s"
        "\t%d\t%d\n",
        n + 1, n % 7 == 0 ? 0 : 5000 + n, n * 5 % 24, n % 900, i, i % 3, kServices[n % 3], n * 1000,
        n * 70'000);
  }
  return rows;
}

std::string Logins(int seed) {
  std::string rows;
  for (int i = 0; i < 40; ++i) {
    const int n = seed * 40 + i;
    rows += Format("%d\t%d\t2012-12-31 %02d:20:00\tap-%d\tstaff\t%d\n", n + 1, 5000 + n, n * 3 % 24,
                   i % 3, n % 4);
  }
  return rows;
}

// Runs the engine that the settings name. Each file of logins brings its rows twice, of which the
// key of the mem table keeps one.
void CountTheFiles() {
  g_nMainRun = 0;  // the watcher has nothing to do here, and ends
  auto engine = std::make_unique<CMidTable>();
  AwaitSingleThread();
  g_nMainRun = 1;
  ASSERT_TRUE(engine->Initialize());
  for (int i = 0; i < 3; ++i) {
    const std::string time = std::to_string(101500 + i * 100);
    const std::string stem = kFolder + "1a2b3c4d-MEM_20121231_1004";
    WriteFile(stem + "F-20121231-" + time + ".dat", Flows(i));
    WriteFile(stem + "A-20121231-" + time + ".dat", Logins(i) + Logins(i));
    while (engine->MakeMidTable()) {
      if (std::none_of(fs::directory_iterator(kFolder), fs::directory_iterator(),
                       [](const auto& f) { return f.path().extension() == ".dat"; })) {
        break;
      }
    }
  }
  g_nMainRun = 0;
  engine.reset();
  EXPECT_THAT(ListFolder(kFolder), testing::Each(testing::EndsWith(".mid")));
}

// A process reads its settings once, and with them which kind of server it works with.
void CountInAProcessOfItsOwn() {
  fs::remove_all(kFolder);
  EXPECT_EXIT(
      {
        CountTheFiles();
        _exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
      },
      testing::ExitedWithCode(EXIT_SUCCESS), "");
}

std::vector<std::string> CountOnMysql(const std::vector<std::string>& queries) {
  MariadbServer& server = MariadbServer::Get();
  server.WriteSettings();
  WriteFile(paths::kMysqlDefinitions, ReadFile(MIDTABLE_DEMO "vqlog.xml"));
  WriteFile(paths::kLoaderTemplates, "<root/>");
  const std::string years =
      std::regex_replace(ReadFile(MIDTABLE_DEMO "year_tables.sql"), std::regex("_YYYY"), "_2012");
  server.Run("create database WLAN_TUNE; create database WLAN_1a2b3c4d; use WLAN_1a2b3c4d; " +
             years);
  CountInAProcessOfItsOwn();
  std::vector<std::string> rows;
  for (const std::string& query : queries) {
    for (const std::string& row : server.Run("use WLAN_1a2b3c4d; " + query)) rows.push_back(row);
  }
  return rows;
}

std::vector<std::string> CountOnTheStandIn(const std::vector<std::string>& queries) {
  PostgresServer& server = PostgresServer::Get();
  server.CreateStore("WLAN_1a2b3c4d");
  const std::string years =
      std::regex_replace(Sample("year_tables.sql"), std::regex("_YYYY"), "_2012");
  server.Run("set search_path = wlan_1a2b3c4d; " + years);
  server.Run(kFunctions);
  WriteFile(paths::kSettingsFile,
            "user=midtable\npassword=secret\nset_password=secret\ndbtype=oci8");
  WriteFile(paths::kLoaderTemplates, Sample("sqlldr_ctl.xml"));
  WriteFile(paths::kOracleDefinitions, Sample("oracle_vqlog.xml"));
  CountInAProcessOfItsOwn();
  std::vector<std::string> rows;
  for (const std::string& query : queries) {
    for (const std::string& row : server.Run("set search_path = wlan_1a2b3c4d; " + query)) {
      rows.push_back(row);
    }
  }
  return rows;
}

// Year tables differ: MySQL's has a row for a month, Oracle's for a day and a city.
TEST(OracleSamples, CountTheSameAsThoseForMysql) {
  const std::vector<std::string> days_and_months = {
      "select hour, service, local_flag, sessions, seconds, up_bytes, down_bytes from "
      "T_FLOW1D_20121231 order by 1, 2, 3",
      "select day, local_flag, sessions, seconds, up_bytes, down_bytes from T_FLOW1M_201212 order "
      "by "
      "1, 2",
      "select hour, result, attempts, failures from T_AUTH1D_20121231 order by 1, 2",
      "select day, attempts, failures from T_AUTH1M_201212"};
  auto on_mysql = days_and_months;
  on_mysql.push_back("select * from T_FLOW1Y_2012 order by 1, 2");
  on_mysql.push_back("select * from T_AUTH1Y_2012");
  auto on_stand_in = days_and_months;
  on_stand_in.push_back(
      "select extract(month from day), local_flag, sum(sessions), sum(seconds), sum(up_bytes), "
      "sum(down_bytes) from T_FLOW1Y_2012 group by 1, 2 order by 1, 2");
  on_stand_in.push_back(
      "select extract(month from day), sum(attempts), sum(failures) from T_AUTH1Y_2012 group by 1");
  const std::vector<std::string> counted = CountOnMysql(on_mysql);
  EXPECT_THAT(counted, testing::Contains("12\t120\t90")) << "of the year's logins";
  EXPECT_EQ(CountOnTheStandIn(on_stand_in), counted);
}

}  // namespace
