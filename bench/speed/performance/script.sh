#!/usr/bin/env bash
# What a user writes in an afternoon to do the service's work: for each database one awk adds the local
# flags, another generates every statement, and one client sends them all. All databases side by side.
#
#   script.sh PORT SPOOL TEMPLATES each|batches
#
# "each" converts after every file, as the service does. "batches" loads all files of a mem table first
# and converts once: fast, but after a crash nobody can tell which files are counted.
# TEMPLATES: a folder with the statements of the definitions as printf formats.
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")
port=$1 spool=$2 templates=$3 how=$4

one_database() {
  local folder=$1 database=WLAN_${1##*/}
  local flows=("$folder"/*F-*.dat)
  [ ! -e "${flows[0]}" ] || mawk -f "$here/flags.awk" /etc/morvan/localtour.csv "${flows[@]}"
  # In the order of their mem tables.
  printf '%s\n' "$folder"/*.dat | sed -E 's/.*MEM_([0-9]+)_...(..).*/\1\2 &/' | sort | cut -d' ' -f2 |
    gawk -v templates="$templates" -v how="$how" -f "$here/statements.awk" |
    mariadb --no-defaults -h127.0.0.1 -P"$port" -umidtable -psecret "$database"
  find "$folder" -name '*.flags' -delete
  find "$folder" -name '*.dat' -print0 | xargs -0 -r rename.ul .dat .mid
}

started=()
for folder in "$spool"/*/; do
  one_database "${folder%/}" &
  started+=($!)
done
for one in "${started[@]}"; do wait "$one"; done
