#!/usr/bin/env bash
# The first thing that comes to mind: a loop over the files with one database client a step.
#
#   shell_loop.sh PORT SPOOL TEMPLATES
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")
port=$1 spool=$2 templates=$3
declare -A long=([F]=FLOW [A]=AUTH)

client() { mariadb --no-defaults -h127.0.0.1 -P"$port" -umidtable -psecret "$@"; }

# filled TEMPLATE VALUE...: the statement.
filled() {
  # shellcheck disable=SC2059
  printf "$(cat "$templates/$1");" "${@:2}"
}

for file in "$spool"/*/*.dat; do
  name=${file##*/}
  database=WLAN_${name:0:8} table=${name:9:13}000${name:25:2} date=${name:13:8} kind=${name:26:1}
  client "$database" -e "$(filled "mem.$kind" "$table")"
  if [ "$kind" = F ]; then
    mawk -f "$here/flags.awk" /etc/morvan/localtour.csv "$file"
    mv "$file.flags" "$file"
  fi
  client "$database" -e "load data infile '$file' ignore into table $table"
  {
    filled "Create.$kind.day" "T_${long[$kind]}1D_$date"
    filled "Create.$kind.month" "T_${long[$kind]}1M_${date:0:6}"
    printf 'start transaction;'
    for period in day month year; do filled "Convert.$kind.$period" "$date" "$table"; done
    printf 'commit; truncate table %s;' "$table"
  } | client "$database"
  mv "$file" "${file%.dat}.mid"
done
