// What `midtablectl check` prints.
#pragma once

#include <algorithm>

#include "midtablectl/midtablectl_fixture.h"

// The program logs in as a user who may do this alone.
inline Step LogInAsOneWhoMay(const std::string& privileges) {
  return [=] {
    MariadbServer::Get().MakeUser("poor@'%'", "'secret'", "grant " + privileges + " to poor@'%'");
    Replace(kSettings, "user=midtable", "user=poor");
  };
}
// The store is on Oracle.
inline void UseOracle() {
  Replace(kSettings, "dbtype=mysql", "dbtype=oracle\nset_password=secret");
  fs::remove(kDefinitions);
  WriteFile(kOracleDefinitions, R"(<root><Mem><MidCnt>1</MidCnt>
<MidTab1><Name>F</Name><Create>create table %s (a number)</Create></MidTab1></Mem>
<Sequence>create sequence SEQ_%s</Sequence><Conv><F><MidCnt>1</MidCnt>
<MidTab1><Always>1</Always><Name>T_FLOW1D_</Name><Create>create table %s (n number)</Create>
<ConvertOracle>insert into T_FLOW1D_%s select 1 from %s</ConvertOracle></MidTab1></F></Conv>
</root>)");
  WriteFile(kTemplates, R"(<root>
<external_merge table="MEM_F">insert into %s select * from %s</external_merge><external_load>
<create_memdir table="MEM_F">create directory %s as '%s'</create_memdir>
<create_table table="MEM_F">create table %s directory %s location '%s'</create_table>
</external_load></root>)");
}

// Expects these findings and notes, in this order, each up to its remedy where none is given, with
// their totals.
inline void ExpectFindings(const Outcome& run, const Words& lines) {
  std::istringstream output(run.output);
  std::string expected;
  int errors = 0;
  int warnings = 0;
  for (const std::string& line : lines) {
    std::string found;
    std::getline(output, found);
    const bool open = line.find(" -> ") == std::string::npos;
    expected +=
        line + (open ? found.substr(std::min(found.find(" -> "), found.size())) : "") + "\n";
    if (line.find(": error: ") != std::string::npos) ++errors;
    if (line.find(": warning: ") != std::string::npos) ++warnings;
  }
  const bool none = errors + warnings == 0;
  const std::string totals =
      none ? "Nothing found."
           : std::to_string(errors) + (errors == 1 ? " error, " : " errors, ") +
                 std::to_string(warnings) + (warnings == 1 ? " warning" : " warnings");
  EXPECT_EQ(run, (Outcome{none ? 0 : 1, expected + totals + "\n"}));
}

// Lines that tell of one file, each with its path before it.
inline Words Of(const std::string& path, Words lines) {
  for (std::string& line : lines) line = path + line;
  return lines;
}

// Check without the server.
class CheckTest : public MidtablectlTest, public testing::WithParamInterface<Case> {
 protected:
  static void Finds(const Words& lines) {
    ExpectFindings(Midtablectl({"check", "--offline"}), lines);
  }
};

// Check with the server.
class CheckOnServerTest : public MidtablectlServerTest, public testing::WithParamInterface<Case> {
 protected:
  void Finds(const Words& lines) const {
    const Words expected = WithWords(lines);
    ExpectFindings(Midtablectl({"check"}), expected);
  }
};
