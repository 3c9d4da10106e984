#!/usr/bin/env bash
# Loads a localtour.csv of 400,000 rows, in ASCII and in GBK, with the CSV reader and with Python's
# csv module, in turns.
#
#   bench/speed/csv.sh PROGRAM [ROWS] [ROUNDS]      PROGRAM is the built csv_bench
#
# Prints medians; a round's time is the mean of several loads in one process, without its start.
# Fails when a goal is missed.
set -euo pipefail
export LC_ALL=C

program=$1
rows=${2:-400000}
rounds=${3:-7}
python=(python3 "$(dirname "${BASH_SOURCE[0]}")/csv_python.py")

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

median() { sort -n "$1" | sed -n "$(((rounds + 1) / 2))p"; }

printf 'Loading %d rows, median of %d rounds in turns, %s\n\n' "$rows" "$rounds" "$(python3 -V)"
printf '%-8s %12s %12s %12s %8s\n' '' 'midtable' 'Python csv' 'rows/s' 'ratio'
failed=0
for encoding in ascii gbk; do
  file=$folder/$encoding.csv
  "${python[@]}" make "$file" "$rows" "$encoding"
  for ((round = 0; round < rounds; ++round)); do
    "$program" time "$file" "$rows" >>"$folder/$encoding.ours"
    "${python[@]}" load "$file" "$rows" "$encoding" >>"$folder/$encoding.python"
  done
  gawk -v name="$encoding" -v rows="$rows" -v ours="$(median "$folder/$encoding.ours")" \
    -v python="$(median "$folder/$encoding.python")" 'BEGIN {
      printf "%-8s %9.1f ms %9.1f ms %12d %8.2f\n", name, ours, python, rows / ours * 1000, python / ours
      exit python < 5 * ours
    }' || { echo "missed: at least 5 times faster ($encoding)"; failed=1; }
done

small=$("$program" peak "$folder/gbk.csv" "$rows")
"${python[@]}" make "$folder/large.csv" $((rows * 10)) gbk
large=$("$program" peak "$folder/large.csv" $((rows * 10)))
printf '\npeak memory %d KiB; with %d rows %d KiB\n' "$small" $((rows * 10)) "$large"
[ "$large" -le $((small + 1024)) ] || { echo "missed: memory stays flat"; failed=1; }
exit $failed
