#!/usr/bin/env bash
# What the service costs beside what it asks of the database, on a private MariaDB server. In turns,
# on the same files:
#
#   service   the service, from its start until the last mem table is emptied
#   floor     the statements that it sent, taken once from the server's general log, over one open
#             connection with no other work, and the bare copying of the lines of each kind F file
#   shell     a loop over the files: one database client a step, awk for the flag column
#   import    mariadb-import, for the loading alone
#
# Then what a waiting or finished backlog costs, and idle passes.
#
#   bench/speed/performance.sh PROGRAM [--publish] [OPTION VALUE]...      PROGRAM is the built midtable
#
#   --publish                      puts table and picture into docs/, as well; no other option then
#   --rounds 3                     of every comparison; medians are shown
#   --large "200 5000"             files and rows a file of the first work
#   --small "2000 100"             and of the second
#   --shell 1                      rounds of the second work in which the shell loop runs, too
#   --backlogs "1000 10000 100000" waiting files; the first of --drained files are timed
#   --drained 1000
#   --idle 20                      seconds
#
# Prints a table and draws it (build/performance/). Exit status 1 when a goal is missed.
set -euo pipefail
export LC_ALL=C TZ=UTC
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
results=build/performance

if [ "${1:-}" != --inside ]; then
  program=$(realpath "$1")
  shift
  publish=0
  if [ "$*" = --publish ]; then publish=1; shift; fi
  mkdir -p "$results"
  rm -f "$results"/{table.txt,performance.png}
  status=0
  tools/sandbox bash bench/speed/performance.sh --inside "$program" "$@" | tee "$results/table.txt" ||
    status=1
  # Drawn last: without the picture the run broke off.
  if [ $publish = 1 ] && [ -e "$results/performance.png" ]; then
    cp "$results/performance.png" docs/
    sed -i -e "/^<!-- table -->/,/^<!-- end -->/{//!d}" docs/performance.md
    sed -i -e "/^<!-- table -->/r "<(printf '\n'; sed 's/^\(.\)/    \1/' "$results/table.txt"; printf '\n') docs/performance.md
  fi
  exit $status
fi
program=$2
bench=${program%/src/main/midtable}/bench/speed/performance_bench
shift 2
rounds=3 large="200 5000" small="2000 100" shell_rounds=1
backlogs="1000 10000 100000" drained=1000 idle=20
while [ $# -gt 0 ]; do
  case $1 in
    --rounds) rounds=$2 ;;
    --large) large=$2 ;;
    --small) small=$2 ;;
    --shell) shell_rounds=$2 ;;
    --backlogs) backlogs=$2 ;;
    --drained) drained=$2 ;;
    --idle) idle=$2 ;;
    *) echo "performance.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift 2
done
spool=/vqlog/log_data/midtable
databases=(1a2b3c4d 5e6f7a8b)
folder=/tmp/times
# shellcheck source=bench/speed/timing.sh
source bench/speed/timing.sh

client() { mariadb --no-defaults -h127.0.0.1 -P"$port" -umidtable -psecret "$@"; }

empty_databases() {
  local database
  for database in $(client -N -e "show databases like 'WLAN%'"); do
    client -e "drop database $database"
  done
  client <demo/setup.sql
  for database in "${databases[@]}"; do
    client -e "create database WLAN_$database"
    for year in 2012 2013; do sed "s/_YYYY/_$year/" demo/year_tables.sql | client "WLAN_$database"; done
  done
}

# Sums of every mid table: the same for every contender, whatever flags it gave.
totals() {
  local table
  for table in $(client -N -e "select concat(table_schema, '.', table_name) from
      information_schema.tables where table_schema like 'WLAN%' and table_name like 'T\_%' order by 1"); do
    case $table in
      *T_FLOW*) client -N -e "select '$table', sum(sessions), sum(seconds), sum(down_bytes) from $table" ;;
      *) client -N -e "select '$table', sum(attempts), sum(failures) from $table" ;;
    esac
  done
}

# The statements of the connection that loads, one to a line, from what the server logged.
statements() {
  gawk '
    function flush() { if (text != "") of[id] = of[id] text "\n"; text = "" }
    match($0, /^([0-9]+ +[0-9:]+)?\t+ *([0-9]+) ([A-Z][A-Za-z]+( [A-Z][a-z]+)?)(\t(.*))?$/, part) {
      flush()
      id = part[2]
      if (part[3] == "Query") text = part[6]
      if (text ~ /^load data/) loader = id
      next
    }
    text != "" { text = text " " $0 }
    END { flush(); printf "%s", of[loader] }' "$1"
}

# The parts of the sample definitions that the shell loop needs, each a printf format in a file.
shell_statements() {
  python3 - "$1" <<'PY'
import sys
import xml.etree.ElementTree as tree

root = tree.parse("demo/vqlog.xml").getroot()
for kind in "FA":
    mem = [node for node in root.find("Mem") if node.findtext("Name") == kind]
    open(f"{sys.argv[1]}/mem.{kind}", "w").write(mem[0].findtext("Create"))
    for node in root.find("Conv/" + kind):
        if node.tag != "MidCnt":
            period = {"1M": "month", "1Y": "year"}.get(node.findtext("Name")[6:8], "day")
            for what in "Create", "Convert":
                text = node.findtext(what) or ""
                open(f"{sys.argv[1]}/{what}.{kind}.{period}", "w").write(text)
PY
}

# What an operator would write.
shell_loop() {
  local file name kind table date database
  for file in "$spool"/*/*.dat; do
    name=${file##*/}
    database=WLAN_${name:0:8} table=${name:9:13}000${name:25:2} date=${name:13:8} kind=${name:26:1}
    client -e "create database if not exists $database"
    # shellcheck disable=SC2059
    client "$database" -e "$(printf "${template[mem.$kind]}" "$table")"
    if [ "$kind" = F ]; then
      awk -f "$folder/flags.awk" /etc/morvan/localtour.csv "$file" >"$file.flags"
      mv "$file.flags" "$file"
    fi
    client "$database" -e "load data infile '$file' ignore into table $table"
    # shellcheck disable=SC2059
    {
      printf "${template[Create.$kind.day]};" "T_${long[$kind]}1D_$date"
      printf "${template[Create.$kind.month]};" "T_${long[$kind]}1M_${date:0:6}"
      printf 'start transaction;'
      for period in day month year; do printf "${template[Convert.$kind.$period]};" "$date" "$table"; done
      printf 'commit; truncate table %s;' "$table"
    } | client "$database"
    mv "$file" "${file%.dat}.mid"
  done
}

# Each mem file under its table's name, in a folder of its own where there are several.
import_files() {
  local file name number=0
  rm -rf /tmp/import
  for file in "$spool"/*/*.dat; do
    name=${file##*/}
    mkdir -p "/tmp/import/${name:0:8}/$number"
    cp "$file" "/tmp/import/${name:0:8}/$number/${name:9:13}000${name:25:2}.txt"
    number=$((number + 1))
  done
}
import_loop() {
  local database
  for database in "${databases[@]}"; do
    find "/tmp/import/$database" -name '*.txt' -print0 | xargs -0 mariadb-import --no-defaults \
      -h127.0.0.1 -P"$port" -umidtable -psecret --ignore "WLAN_$database"
  done >/dev/null
}

fresh_spool() {
  rm -rf "$spool"
  cp -r "/tmp/$1" "$spool"
}

# In milliseconds.
server_time() { awk '{ print ($14 + $15) * 10 }' "/proc/$(cat /tmp/server/server.pid)/stat"; }
# note NAME MILLISECONDS FILES: appends milliseconds a file.
note() { awk -v ms="$2" -v files="$3" 'BEGIN { printf "%.3f\n", ms / files }' >>"$folder/$1.times"; }

# service_times WORK COUNT: appends seconds, milliseconds a file and peak memory.
service_times() {
  local before
  before=$(server_time)
  "$bench" service "$port" "$2" "$program" >"$folder/line"
  read -r seconds cpu peak <"$folder/line"
  echo "$seconds" >>"$folder/$1.service.times"
  note "$1.cpu" "$cpu" "$2"
  note "$1.server" $(($(server_time) - before)) "$2"
  echo "$peak" >>"$folder/peak"
}

# compare WORK FILES ROWS SHELL_ROUNDS
compare() {
  local work=$1 files=$2 shells=$4 round before
  "$bench" make "/tmp/$work" $((files / ${#databases[@]})) "$3" "${databases[@]}"
  # Once with the general log, for the statements: no time of this round counts.
  empty_databases
  fresh_spool "$work"
  : >/tmp/server/general.log
  client -e 'set global general_log = 1'
  "$bench" service "$port" "$files" "$program" >/dev/null
  client -e 'set global general_log = 0'
  statements /tmp/server/general.log >"$folder/$work.statements"

  for ((round = 0; round < rounds; ++round)); do
    empty_databases
    fresh_spool "$work"
    service_times "$work" "$files"
    totals >"$folder/service.totals"

    # The floor loads the files as the service left them, rewritten.
    for file in "$spool"/*/*.mid; do mv "$file" "${file%.mid}.dat"; done
    empty_databases
    before=$(server_time)
    "$bench" replay "$port" "$folder/$work.statements" >"$folder/line"
    read -r seconds copying loading cpu <"$folder/line"
    note "$work.floor_cpu" "$cpu" "$files"
    note "$work.floor_server" $(($(server_time) - before)) "$files"
    echo "$seconds" >>"$folder/$work.floor.times"
    echo "$copying" >>"$folder/$work.copying.times"
    echo "$loading" >>"$folder/$work.loading.times"
    totals | cmp - "$folder/service.totals"

    import_files
    empty_databases
    grep 'create table if not exists MEM_' "$folder/$work.statements" >"$folder/mem_tables" || true
    for database in "${databases[@]}"; do
      sed 's/$/;/' "$folder/mem_tables" | client "WLAN_$database"
    done
    timed "$work.import" import_loop

    if ((round < shells)); then
      fresh_spool "$work"
      empty_databases
      timed "$work.shell" shell_loop
      totals | cmp - "$folder/service.totals"
    fi
  done
}

median_of() { sort -n "$1" | awk '{ line[NR] = $1 } END { print line[int((NR + 1) / 2)] }'; }
# ratio A B: the median of the rounds' ratios.
ratio() {
  paste "$folder/$1.times" "$folder/$2.times" | awk 'NF == 2 { printf "%.3f\n", $1 / $2 }' >"$folder/ratios"
  median_of "$folder/ratios"
}

missed=0
# goal TEXT VALUE RELATION LIMIT: prints a row.
goal() {
  local verdict=reached
  awk -v value="$2" -v limit="$4" -v relation="$3" \
    'BEGIN { exit relation == "<=" ? value <= limit : value >= limit }' && verdict=MISSED missed=1
  printf '%-58s %10s  %s %-8s %s\n' "$1" "$2" "$3" "$4" "$verdict"
}

# show WORK TEXT
show() {
  local name
  printf '\n%s\n' "$2"
  for name in service floor shell import loading copying; do
    [ -e "$folder/$1.$name.times" ] || continue
    awk -v name="${label[$name]}" -v time="$(median_of "$folder/$1.$name.times")" -v files="$3" \
      -v floor="$(median_of "$folder/$1.floor.times")" 'BEGIN {
        printf "  %-40s %9.3f s %9.3f ms/file %8.2f x floor\n", name, time, time / files * 1000, time / floor }'
  done
  printf '  processor time, ms/file: service %s + server %s; floor %s + server %s\n' \
    "$(median_of "$folder/$1.cpu.times")" "$(median_of "$folder/$1.server.times")" \
    "$(median_of "$folder/$1.floor_cpu.times")" "$(median_of "$folder/$1.floor_server.times")"
}
declare -A label=([service]=service [floor]=floor [shell]='shell loop' [import]='mariadb-import, loading alone'
  [loading]='in the floor: loading' [copying]='in the floor: copying lines')
declare -A long=([F]=FLOW [A]=AUTH) template=()

# --- set up

port=$(tools/private-mariadb start /tmp/server --general-log=0 2>/dev/null)
trap 'tools/private-mariadb stop /tmp/server' EXIT
mkdir -p /virus/apache/rnweb/inc "${spool%/*}" "$folder" /tmp/templates
sed -e "s/^port=.*/port=$port/" -e 's/^password=.*/password=secret/' -e '/^delivery=/d' demo/dbinfo.conf \
  >/virus/apache/rnweb/inc/dbinfo.conf
cp demo/{vqlog.xml,sqlldr_ctl.xml,devstate.ini} /etc/morvan
# As many blocks as a large city has.
awk 'BEGIN { for (p = 13; p <= 18; p += p == 15 ? 3 : 1) for (i = 0; i < 100000; i += 200) printf "%d%05d\n", p, i }' \
  >/etc/morvan/localtour.csv
grep -v fflush bench/speed/rewrite.awk >"$folder/flags.awk"
shell_statements /tmp/templates
for file in /tmp/templates/*; do template[${file##*/}]=$(<"$file"); done

# --- the two works

# shellcheck disable=SC2086
compare large $large 0
# shellcheck disable=SC2086
compare small $small "$shell_rounds"

# --- a backlog in one folder, of which the first files are loaded

: >"$folder/curve"
for ((round = 0; round < rounds; ++round)); do
  for backlog in $backlogs; do
    rm -rf "$spool" /tmp/large /tmp/small /tmp/import
    empty_databases
    "$bench" make "$spool" "$backlog" 10 "${databases[0]}"
    service_times "backlog.$backlog" "$drained"
  done
done
for backlog in $backlogs; do
  echo "$backlog $(median_of "$folder/backlog.$backlog.service.times")" \
    "$(median_of "$folder/backlog.$backlog.cpu.times") $drained" >>"$folder/curve"
done

# --- idle passes

# idle_share NAME: per cent of one core.
idle_share() {
  "$bench" idle "$idle" "$program" >"$folder/line"
  read -r seconds cpu peak <"$folder/line"
  echo "$peak" >>"$folder/peak"
  awk -v cpu="$cpu" -v seconds="$seconds" 'BEGIN { printf "%.2f\n", cpu / seconds / 10 }' >"$folder/$1"
}
rm -rf "$spool"
mkdir -p "$spool/${databases[0]}"
(cd "$spool/${databases[0]}" && seq -f "${databases[0]}-MEM_20121231_1004F-20121231-%06.0f.mid" 100000 | xargs touch)
idle_share idle.mid
rm -rf "$spool"
for ((i = 0; i < 200; ++i)); do mkdir -p "$spool/$(printf '%08x' $i)"; done
idle_share idle.folders

# --- one file as large as they get

rm -rf "$spool"
empty_databases
"$bench" make "$spool" 1 1 "${databases[0]}"
"$bench" make "$spool" 2 $((${large#* } * 100)) "${databases[0]}"
"$bench" service "$port" 2 "$program" >"$folder/line"
read -r _ _ peak_large <"$folder/line"
echo "$peak_large" >>"$folder/peak"

# --- what came out

printf 'Medians of %d rounds in turns; the shell loop: %d in the second work\n' "$rounds" "$shell_rounds"
show large "$(printf '%d files of %d rows, kinds F and A, two databases' ${large})" "${large% *}"
show small "$(printf '%d files of %d rows, kinds F and A, two databases' ${small})" "${small% *}"
printf '\nWaiting in one folder, 10 rows a file: the first %d loaded\n' "$drained"
awk '{ printf "  %7d files %9.3f ms/file, %.3f ms of them the service'"'"'s processor time\n", $1, $2 / $4 * 1000, $3 }' \
  "$folder/curve"

printf '\n%-58s %10s  %s\n' goal measured limit
goal 'first work: service / floor' "$(ratio large.service large.floor)" '<=' 1.10
goal 'second work: service / floor' "$(ratio small.service small.floor)" '<=' 1.25
[ "$shell_rounds" = 0 ] || goal 'second work: shell loop / service' "$(ratio small.shell small.service)" '>=' 3
goal "second work: the service's processor time, ms a file" "$(median_of "$folder/small.cpu.times")" '<=' 0.5
goal 'a file of the longest backlog / of the shortest' \
  "$(awk 'NR == 1 { first = $2 } END { printf "%.2f", $2 / first }' "$folder/curve")" '<=' 1.5
goal 'idle, 100000 ".mid" files in a folder, % of a core' "$(cat "$folder/idle.mid")" '<=' 1
goal 'idle, 200 folders, % of a core' "$(cat "$folder/idle.folders")" '<=' 1
goal 'peak resident memory over all of it, KiB' "$(sort -n "$folder/peak" | tail -n 1)" '<=' 24576
goal "the same with files of $((${large#* } * 100)) rows, KiB" "$peak_large" '<=' 24576

for work in large small; do
  for name in service floor shell import; do
    [ ! -e "$folder/$work.$name.times" ] || echo "$name $(median_of "$folder/$work.$name.times")"
  done >"$folder/$work.bars"
done
HOME=/tmp gnuplot -e "folder='$folder'; out='build/performance/performance.png'; large='$large'; small='$small'" \
  bench/speed/performance.gnuplot
exit $missed
