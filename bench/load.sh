#!/usr/bin/env bash
# The whole service on mem files of both kinds, beside the limit: one database client that sends the
# same statements on one connection, to the same server, with nothing to decide and no file to
# rewrite. What the service adds to it is its own time: finding, naming, rewriting, renaming.
#
#   bench/load.sh PROGRAM [ROWS] [ROUNDS]      PROGRAM is the built midtable
#
# Prints medians of interleaved rounds. Fails when the mid tables of the two differ, or when the
# service takes more than twice the limit's time.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [ "${1:-}" != --inside ]; then
  program=$(realpath "$1")
  exec tools/sandbox bash bench/load.sh --inside "$program" "${2:-200000}" "${3:-3}"
fi
program=$2 rows=$3 rounds=$4
spool=/vqlog/log_data/midtable
log=/tmp/server/general.log
folder=/tmp
# shellcheck source=bench/timing.sh
source bench/timing.sh

client() { mariadb --no-defaults -h127.0.0.1 -P"$port" -umidtable -psecret "$@"; }
empty_databases() {
  local database
  for database in $(client -N -e "show databases like 'WLAN%'"); do
    client -e "drop database $database"
  done
  client <demo/setup.sql
  for database in $databases; do
    client -e "create database WLAN_$database"
    for year in 2012 2013; do sed "s/_YYYY/_$year/" demo/year_tables.sql | client "WLAN_$database"; done
  done
}

# Until every file is converted: each conversion ends with emptying its mem table.
play_service() {
  "$program" -app >/tmp/console 2>&1 &
  local service=$!
  until [ "$(tail -c +"$mark" $log | grep -c 'truncate table')" = "$files" ]; do
    kill -0 $service || exit 1
    sleep 0.05
  done
  kill -INT $service
  wait $service
}

# The service's own statements, one to a line, from what the server logged.
statements() {
  tail -c +"$mark" $log | awk -F'\t' '
    function flush() { if (text != "" && text !~ /EnterpriseUser|use vqcfg|^SHOW /) print text ";"; text = "" }
    match($0, /^([0-9]+ +[0-9:]+)?\t+ *[0-9]+ [A-Z][A-Za-z]+( [A-Z][a-z]+)?/) {
      flush()
      if ($0 ~ / Query\t/) { text = $0; sub(/.* Query\t/, "", text) }
      next
    }
    text != "" { text = text " " $0 }
    END { flush() }'
}

totals() {
  local table
  for table in $(client -N -e "select concat(table_schema, '.', table_name) from
      information_schema.tables where table_schema like 'WLAN%' and table_name like 'T\_%' order by 1"); do
    client -N -e "checksum table $table"
  done
}

port=$(tools/private-mariadb start /tmp/server 2>/dev/null)
trap 'tools/private-mariadb stop /tmp/server' EXIT
mkdir -p /virus/apache/rnweb/inc "${spool%/*}"
sed -e "s/^port=.*/port=$port/" -e 's/^password=.*/password=secret/' demo/dbinfo.conf \
  >/virus/apache/rnweb/inc/dbinfo.conf
cp demo/{vqlog.xml,sqlldr_ctl.xml,devstate.ini} /etc/morvan
demo/generate --rows "$rows" /tmp/sample >/dev/null
cp /tmp/sample/localtour.csv /etc/morvan
databases=$(ls /tmp/sample/spool)
files=$(find /tmp/sample/spool -name '*.dat' | wc -l)

for ((round = 0; round < rounds; ++round)); do
  rm -rf $spool
  cp -r /tmp/sample/spool $spool
  empty_databases
  mark=$(($(stat -c %s $log) + 1))
  timed service play_service
  statements >"$folder/statements.sql"
  totals >"$folder/service.totals"
  # The replay loads the files as the service left them, rewritten, under the names it loaded.
  for file in "$spool"/*/*.mid; do mv "$file" "${file%.mid}.dat"; done
  empty_databases
  timed limit client -e "source $folder/statements.sql" >/dev/null
  totals >"$folder/limit.totals"
  cmp "$folder"/{service,limit}.totals
done

printf 'Loading and converting %d rows in %d files, median of %d rounds in turns\n\n' \
  "$rows" "$files" "$rounds"
for name in service limit; do
  awk -v name=$name -v time="$(median $name)" -v service="$(median service)" -v rows="$rows" \
    'BEGIN { printf "%-10s %8.3f s %10d rows/s   service / it: %.2f\n", name, time, rows / time, service / time }'
done
awk -v service="$(median service)" -v limit="$(median limit)" 'BEGIN {
  if (service > 2 * limit) { print "missed: at most twice the time of the same statements alone"; exit 1 } }'
