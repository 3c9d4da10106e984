// The built midtablectl, command by command, in a sandbox with a server of its own.
#include <regex>
#include <sstream>

#include "gmock/gmock.h"
#include "log/zux_center_log.h"
#include "midtable/Midtable.h"
#include "midtablectl/advice.h"
#include "midtablectl/path_access.h"
#include "support/run_state.h"
#include "testing/files.h"
#include "testing/mariadb_server.h"

using testing::HasSubstr;

namespace {

// What a shell prints for the script, which finds its names set; "ctl" is the program.
std::string Shell(const std::string& script) {
  MariadbServer::Get();
  const std::string names = R"sh(exec 2>&1 </dev/null; ctl() { "$CTL" "$@"; echo "status $?"; }
    folder=/vqlog/log_data/midtable/1a2b3c4d f=$folder/1a2b3c4d-MEM_20121230_0800F-20121230-080000
    xml=/etc/morvan/vqlog.xml csv=/etc/morvan/localtour.csv ini=/etc/morvan/devstate.ini
    conf=/virus/apache/rnweb/inc/dbinfo.conf port=$(cat /tmp/private-mariadb/port)
    sql="mariadb --no-defaults -h127.0.0.1 -P$port -uroot"; log=/vqlog/log/midtable
    poor() { sed -i 's/^user=.*/user=poor/; s/secret/x/' $conf; $sql -e "$1"; }
    oracle() { sed -i "s/^dbtype.*/dbtype=oracle/; s/^set_pass.*/&$1/" $conf; }
    hidden() { ctl() { unshare -rm bash -c "mount -t tmpfs x /vqlog; mkdir -p $folder $log; $CTL $1"
      echo "status $?"; }; }
    logged() { mkdir -p $log; echo "[$1:1][$(date +%T)][$2]:$3" >>$log/$(date +%Y%m%d).log; }
    load() { words="execute load data infile \"$1.dat\" ... MEM_20121230_0000F failed, error:$2"
      logged MysqlBase ErrLog "$words"; logged Midtable ErrLog "ret (0) ($words)"; }
    dropped() { logged tourlocaluser InfoLog "file $f.dat local 1 visitors 0 without user 0 dropped $1"; }
    other() { logged Midtable ErrLog "table (MEM_20121230_000${1:-0}F) create failed not load"; }; )sh";
  WriteFile("/tmp/script", "CTL=" MIDTABLECTL " DEMO=" MIDTABLE_DEMO "\n" + names + script);
  EXPECT_EQ(system("bash /tmp/script >/tmp/script.out") & 0xff, 0);
  return ReadFile("/tmp/script.out");
}

// All as it should be, and a user who may not load.
const std::string kSetUp =
    R"(rm -rf $folder; mkdir -p $folder ${conf%/*} /vqlog/log/midtable; umask 77
  cp $DEMO/{vqlog,sqlldr_ctl}.xml /etc/morvan; printf '[1a2b3c4d]\ncity = X\n' >$ini
  sed "s/^port=.*/port=$port/; s/^password=.*/password=secret/" $DEMO/dbinfo.conf >$conf
  printf 'block\n1380013,"x\ny"\n' >$csv
  { cat $DEMO/setup.sql; echo "create or replace database WLAN_1a2b3c4d; use WLAN_1a2b3c4d;"
    echo "set global read_only = 0;"
    for y in 'this year' 'next year'; do sed s/_YYYY/_$(date -d "$y" +%Y)/ $DEMO/year_tables.sql; done
    echo "grant select, insert, update, create, drop on *.* to poor@'%' identified by 'x'"
  } | $sql
)";

// Each line: what is done to that, and a part of what `then` prints, which ends with status 1.
void ForEach(const std::string& table, const std::string& then) {
  std::istringstream lines(table);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t arrow = line.find("  => ");
    const std::string said = Shell(kSetUp + line.substr(0, arrow) + "\n" + then);
    EXPECT_THAT(said, testing::AllOf(HasSubstr("status 1"), HasSubstr(line.substr(arrow + 5))));
  }
}

TEST(Control, CheckNamesEachFault) {
  const std::string left = "; ls -A $folder; $sql -e \"show databases like '%midtablectl'\"";
  EXPECT_EQ(Shell(kSetUp + "ctl check" + left), "Nothing found.\nstatus 0\n");
  // A last conversion that empties the mem table, as docs/scale-out.md has it.
  EXPECT_EQ(Shell(kSetUp + R"(sed -Ei -e 's/MidCnt>3/MidCnt>4/' -e 's#^ *</[FA]>#<MidTab4><Always>1\
    </Always><Name>T_DONE1Y_</Name><Convert>delete from %.0s%s</Convert></MidTab4>&#' $xml; ctl check)"),
            "Nothing found.\nstatus 0\n");
  ForEach(R"(sed -i 's/^user=/\n&/' $conf  => dbinfo.conf:9: error: blank line
    sed -i 's/^user.*/&\n&x/' $conf  => :10: warning: key "user" again; line 9 counts
    sed -i 's/^password/pasword/' $conf  => :10: warning: key "pasword" is not read
    sed -i '1,5d; 6s/^/\xef\xbb\xbf/' $conf  => :1: error: a byte order mark stands before "host"
    sed -i 's/^port.*/port=33o6/' $conf  => digits only, 3306 mostly 1 error, 0 warnings
    oracle ";'x"  => dbinfo.conf:14: error: set_password is refused
    oracle  => oracle_vqlog.xml: error: cannot be used: No such file or directory; every mem file
    oracle; echo '[2]' >$ini  => has no section 1a2b3c4d: its rows get the city value 0
    poor  => lacks the privilege FILE
    poor 'revoke drop on *.* from poor'  => "drop database if exists WLAN_midtablectl" fails
    poor 'revoke update on *.* from poor'  => not tried -> grant select, insert, update, cr
    poor; sed -zi "s#insert into T_FLOW1D_[^<]*#delete from T_FLOW1D_%s where '%s'#" $xml  => grant delete on
    poor 'revoke all, grant option from poor'  => 'vqcfg' -> grant select on vqcfg.* to 'poor'@'%'
    poor 'set global read_only = 1'  => not tried -> the server takes no changes (read_only)
    hidden  => something hides the folder
    sed -i 's#</Mem>##' $xml  => :250: error: cannot be used: Opening and ending tag mismatch
    sed -i 's/Cnt>3/Cnt>4/' $xml  => :97: error: MidCnt is 4, but there is no MidTab4
    sed -i 's/Name>F/Name> F/' $xml  => never matches a mem table
    sed -i 's/T_FLOW1M_%.6s/T_FLOW1M_%s/' $xml  => Convert does not use its table T_FLOW1M_200012
    sed -i 's/T_FLOW1Y_%.4s/T_FLOW1Y_%s/' $xml  => Convert does not use its table T_FLOW1Y_2000
    sed -i "s/'%%e'/'%e'/" $xml  => "%e", which is not allowed
    sed -i '0,/= InnoDB/s//= Aria/' $xml  => vqlog.xml:38: error: engine aria keeps half
    sed -i '0,/bigint unsigned  not null primary key/s//int, user_key int/' $xml  => :38: warning: m
    sed -i 's/primary key (hour, service,/key (hour, service,/' $xml  => T_FLOW1D_ has no key, al
    $sql -e "alter table WLAN_1a2b3c4d.T_FLOW1Y_$(date +%Y) engine = MyISAM"  => has engine myisam
    sed -i 's/sum(seconds)/sum(second)/' $xml  => Convert of T_FLOW1D_ fails on the server: Unknown
    sed -i '1s/^/\xef\xbb\xbf1390013/' $csv  => localtour.csv:1: warning: a byte order mark
    printf '1380013,"x\ny","x\n1380014,x\n1380015,"y"\n' >$csv  => csv:2: error: a quote that opens he
    sed -i 's/city/town/' $ini  => devstate.ini:1: warning: section 1a2b3c4d has no city
    touch $folder/1a2b3c4d-A-2012123-080000.dat  => no date of 8 digits
    touch $folder/$'1a2b3c4d-A\eX-20121230-080000.dat'  => 1a2b3c4d-A?X-20121230-080000.dat: error
    rm -r $log  => /vqlog/log/midtable/: warning: No such file
    touch $f.dat  => T_FLOW1Y_2012 is missing)",
          "ctl check | tr '\\n' ' '; mkdir -pm 700 /tmp/shut/in");
  EXPECT_EQ(Shell(kSetUp +
                  "$sql -e \"do get_lock('midtablectl', 0), sleep(2)\" & sleep 1; ctl check; wait"),
            "another check is at work on this server: run this one when it is done\nstatus 2\n");
  EXPECT_THAT(ctl::Obstacle("/tmp/shut/in/f", ctl::Identity::Nobody()), HasSubstr("mode 0700"));
}

TEST(Control, CheckTriesNothingBeyondItsOwnDatabase) {
  const std::string named =
      "note: Convert of T_FLOW1D_ is not tried on the server: it names database report\nstatus 0\n";
  EXPECT_THAT(Shell(kSetUp + R"sh(
    $sql -e 'create or replace database Report; create table Report.log select 1, 2'
    while read -r start; do cp $DEMO/vqlog.xml $xml
      sed -zi "s#insert into T_FLOW1D_%s[^<]*#$start 'T_FLOW1D_%s', '%s'#" $xml; ctl check </dev/null
    done <<'E' | grep -o 'note:.*\|status.*'; $sql -Ne 'select count(*) from Report.log'
replace into Report.log select
replace into`Report` . log select
replace into Report/**/.log select
replace into /*!50000Report*/.log select
drop database Report -- x
E
)sh"),
              testing::MatchesRegex(named + named + named +
                                    "note: .*executes\nstatus 0\n"
                                    "note: .*: it is no create table, .*\nstatus 1\n1\n"));
}

TEST(Control, WhyAndRetryTellWhatIsLoadedAndHowToGoOn) {
  ForEach(R"sh(touch $f.err; load "$f" 'Lost connection'  => err: the server may have loaded it
    touch $f.err; load "$f" 'is full'  => move
    touch $f.err; dropped 2  => err: lines were dropped from it
    touch $f.err; chmod +t $f.err; dropped 2  => move
    touch $f.err; chmod 0 $log  => err: the run log, which tells
    touch $f.err; chmod 0 $log  => touched then  status 2 keep
    touch $f.err; other  => create failed not load  What to do
    touch $f.err $f.mid; dropped 2; other  => dropped 2  retry leaves it alone, since it stands be
    touch $f.err; load "${f}1" 'is full'; other 1  => says nothing of it (yet)
    ln -s /etc/passwd $f.err  => alone, since it is no regular file
    f="$f\$(id)"; touch "$f.err"  => retry '/vqlog/log_data/midtable/1a2b3c4d/1a2b3c4d-MEM_2012123
    f=${f/_0800/(id)}; touch "$f.err"  => alone, since it would be refused for its name)sh",
          R"({ cd $folder; ctl why ".//${f##*/}.err"; touch "$f.err.1"; ctl retry --all
    } | tr '\n' ' '; chmod 700 $log; rm -rf $log)");
}

TEST(Control, WhyTellsWhatTheEngineLogged) {
  Shell(kSetUp + "echo 1 >$f.dat; sed -i 's#</Mem>##' $xml");
  g_loger.Init();
  g_nMainRun = 0;
  CMidTable engine;
  EXPECT_TRUE(engine.Initialize() && !engine.MakeMidTable());
  std::fflush(nullptr);
  EXPECT_THAT(Shell("ctl why $f.err"), testing::AllOf(HasSubstr("ErrLog]:xml file /etc"),
                                                      HasSubstr("Mend it; it is read again")));
  for (const ctl::Message& message : ctl::Messages()) {  // each is found by a text of its own
    const std::string text = std::regex_replace(message.format, std::regex("%[sdu]"), "17");
    const auto* found = ctl::FindMessage({message.unit, message.level, 0, text});
    EXPECT_TRUE(found != nullptr && found->format == message.format) << message.format;
  }
}

TEST(Control, RetryMovesOnlyWhatCanBeLoadedOnce) {
  ForEach(R"(touch $f.err  => [.dat]
    touch $f.err $f.mid  => [.err .mid]
    touch $f.err $f.dat  => [.dat .err]
    touch $f.err.1  => [.err.1]
    touch $f.orig $f.mid  => [.mid .orig]
    touch $f.orig $f.orig.1  => as it came
    ln -s /etc/passwd $f.err  => [.err]
    printf '1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t1\n' >$f.err  => [.err]
    printf '1\t2\t3\t4\t5\t6\t7\t8\t9\t10\t11\t1\n' >$f.err; chmod +t $f.err  => [.dat])",
          R"(ctl retry --all | tail -2; ls $f.[eo]* >/dev/null || echo '[moved without a question]'
    ctl retry --all --yes >/dev/null; echo "[$(echo $(ls $folder | sed 's/[^.]*//'))]")");
}

TEST(Control, StatusCountsAndExports) {
  MariadbServer::Get().Run("create table WLAN_1a2b3c4d.MEM_20121230_0000F select 1");
  EXPECT_TRUE(std::regex_match(
      Shell(R"sh(rm $folder/*; for e in .dat 1.mid 2.err 3.orig; do echo 1 >$f$e; done
    ctl status --prometheus /tmp/m; cat /tmp/m; ls /tmp/m*; grep -cE '((waiting|failed|kept)"} 1|'\
'waiting_bytes{.*} 2|mem_table_rows{.*} 1|rows_.*{.*} 1)$' /tmp/m)sh"),
      std::regex(R"(status 1
(# HELP (\w+) .+
# TYPE \2 gauge
(\2(\{(\w+="\w+",?)+\})? [0-9.e+-]+
)*)+/tmp/m
6
)")));
  EXPECT_EQ(Shell(R"sh(chmod 0 $folder; ctl status --json 2>/dev/null | grep -o 'failed.*\|status.*'
    ctl status --prometheus /tmp/m 2>&1 >/dev/null; grep 'failed\|able [01]$' /tmp/m
    ctl retry --all; chmod 700 $folder)sh"),
            R"(failed": null,
status 2
folder of WLAN_1a2b3c4d: Permission denied
midtable_server_reachable 1
midtable_spool_readable 0
/vqlog/log_data/midtable/1a2b3c4d/: Permission denied
status 2
)");
}

}  // namespace
