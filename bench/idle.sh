#!/usr/bin/env bash
# Ten thousand idle passes of the real cycle on a private MariaDB server, without their pauses: the
# service's memory must stay below 16 MiB and must not grow. 400,000 number blocks are loaded.
#
#   bench/idle.sh PROGRAM [PASSES]      PROGRAM is the built idle_bench
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if [ "${1:-}" != --inside ]; then
  program=$(realpath "$1")
  exec tools/sandbox bash bench/idle.sh --inside "$program" "${2:-10000}"
fi

port=$(tools/private-mariadb start /tmp/server --general-log=0 2>/dev/null)
trap 'tools/private-mariadb stop /tmp/server' EXIT
mkdir -p /virus/apache/rnweb/inc /vqlog/log_data/midtable/1a2b3c4d
sed -e "s/^port=.*/port=$port/" -e 's/^password=.*/password=secret/' -e 's/^dbname0=.*/dbname0=mysql/' \
  demo/dbinfo.conf >/virus/apache/rnweb/inc/dbinfo.conf
seq 1300000 1699999 >/etc/morvan/localtour.csv
cp demo/devstate.ini /etc/morvan
echo "Idle passes without their pauses, $(wc -l </etc/morvan/localtour.csv) number blocks"
echo
"$2" "$3"
