#!/usr/bin/env bash
# What counting every row exactly once (delivery=once) costs for files that arrive one by one, so that
# no two share a batch, beside the service without it. In turns, on the same files:
#
#   bench/speed/arrivals.sh PROGRAM [--rounds 5] [--files 200] [--rows 100]
#
# PROGRAM is the built midtable. Each file comes when the one before is counted. Without delivery=once
# the service looks for files once a second; here its pauses are cut to milliseconds (short_pauses.so of
# the same build), since the work is compared and not the wait. The server brings every commit to its
# disk. Prints a table; exit status 1 when the goal is missed.
set -euo pipefail
export LC_ALL=C TZ=UTC
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

if [ "${1:-}" != --inside ]; then
  program=$(realpath "$1")
  shift
  exec tools/sandbox bash bench/speed/arrivals.sh --inside "$program" "$@"
fi
program=$2
bench=${program%/src/main/midtable}/bench/speed/performance_bench
pauses=${program%/src/main/midtable}/bench/endurance/short_pauses.so
shift 2
rounds=5 files=200 rows=100
while [ $# -gt 0 ]; do
  case $1 in
    --rounds) rounds=$2 ;;
    --files) files=$2 ;;
    --rows) rows=$2 ;;
    *) echo "arrivals.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift 2
done
spool=/vqlog/log_data/midtable
device=1a2b3c4d
settings=/virus/apache/rnweb/inc/dbinfo.conf

client() { mariadb --no-defaults -h127.0.0.1 -P"$port" -umidtable -psecret "$@"; }

# play WAY: the median time of a file and the processor time, both in milliseconds.
play() {
  local database preload=''
  for database in $(client -N -e "show databases like 'WLAN%'"); do
    client -e "drop database $database"
  done
  client <demo/setup.sql
  client -e "create database WLAN_$device"
  for year in 2012 2013; do sed "s/_YYYY/_$year/" demo/year_tables.sql | client "WLAN_$device"; done
  sed -e "s/^port=.*/port=$port/" -e 's/^password=.*/password=secret/' -e '/^delivery=/d' \
    demo/dbinfo.conf >"$settings"
  if [ "$1" = once ]; then echo delivery=once >>"$settings"; else preload=$pauses; fi
  rm -rf "$spool" /tmp/arriving
  mkdir -p "$spool/$device"
  # Next to the spool, so that a file arrives by a rename.
  "$bench" make /vqlog/arriving "$files" "$rows" "$device"
  LD_PRELOAD=$preload "$bench" arrive "$port" /vqlog/arriving "$spool" "$program"
  rm -rf /vqlog/arriving
}

port=$(tools/private-mariadb start /tmp/server --general-log=0 --innodb-flush-log-at-trx-commit=1 2>/dev/null)
trap 'tools/private-mariadb stop /tmp/server' EXIT
mkdir -p "${settings%/*}" "${spool%/*}"
cp demo/{vqlog.xml,sqlldr_ctl.xml,devstate.ini,localtour.csv} /etc/morvan
for ((round = 0; round < rounds; ++round)); do
  echo "$(play described) $(play once)"
done >/tmp/rounds

gawk -v files="$files" -v rows="$rows" '
  { described[NR] = $1; once[NR] = $3; ratio[NR] = $3 / $1; cpu_described[NR] = $2; cpu_once[NR] = $4 }
  function median(of) { asort(of); return of[int((NR + 1) / 2)] }
  END {
    printf "%d files of %d rows, one by one; medians of %d rounds\n\n", files, rows, NR
    printf "%-32s %12s %28s\n", "", "ms a file", "of the service, ms a file"
    printf "%-32s %12.2f %28.2f\n", "as described", median(described), median(cpu_described)
    printf "%-32s %12.2f %28.2f\n", "delivery=once", median(once), median(cpu_once)
    result = median(ratio)
    printf "\n%-32s %12.3f  <= 1.15  %s\n", "ratio", result, result <= 1.15 ? "reached" : "MISSED"
    exit result > 1.15
  }' /tmp/rounds
