#!/usr/bin/env bash
# Rewrites a mem file of a million records with 200,000 number blocks three ways, in turns: as the
# service does, with the barest loop that reads a line and writes it (every record is flushed, so
# that is the limit), and with an awk script that does the same job and flushes every record.
#
#   bench/speed/rewrite.sh PROGRAM [RECORDS] [ROUNDS]      PROGRAM is the built rewrite_bench
#
# Prints medians of the whole process's time. Fails when the copies differ or a goal is missed.
set -euo pipefail
export LC_ALL=C

program=$1
records=${2:-1000000}
rounds=${3:-5}
blocks=200000
here=$(dirname "${BASH_SOURCE[0]}")

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# shellcheck source=bench/speed/timing.sh
source "$(dirname "${BASH_SOURCE[0]}")/timing.sh"
run_program() { "$program" "$1" "$folder" "$folder/$1.out" >/dev/null 2>>"$folder/$1.memory"; }
run_awk() { "$1" -f "$here/flag_of.awk" -f "$here/rewrite.awk" "$folder/blocks.csv" "$folder/mem.dat" >"$folder/$1.out"; }

"$program" make "$records" "$blocks" "$folder"
# The machine's own awk counts for the goal; mawk, the fastest one, is shown where it is another.
own_awk=$(basename "$(readlink -f "$(command -v awk)")")
awks=("$own_awk")
[ "$own_awk" = mawk ] || ! command -v mawk >/dev/null || awks+=(mawk)

for ((round = 0; round < rounds; ++round)); do
  # A new file each time: truncating the old one would be charged to whoever comes next.
  rm -f "$folder"/*.out
  timed ours run_program ours
  timed bare run_program bare
  for tool in "${awks[@]}"; do
    timed "$tool" run_awk "$tool"
    cmp "$folder/ours.out" "$folder/$tool.out"
  done
done

printf 'Rewriting %d records with %d blocks, median of %d runs in turns\n\n' \
  "$records" "$blocks" "$rounds"
ours=$(median ours)
printf '%-34s %9s %12s %9s\n' '' seconds records/s 'to ours'
row() {
  awk -v name="$1" -v time="$(median "$2")" -v ours="$ours" -v records="$records" \
    'BEGIN { printf "%-34s %9.3f %12d %9.2f\n", name, time, records / time, time / ours }'
}
row 'midtable' ours
row 'bare loop, one write a line' bare
for tool in "${awks[@]}"; do row "$tool script, same output" "$tool"; done

# The same with ten times the records must not need more memory.
small=$(sort -n "$folder/ours.memory" | tail -n 1)
rm -f "$folder"/*.out
"$program" make $((records * 10)) "$blocks" "$folder"
: >"$folder/ours.memory"
run_program ours
large=$(cat "$folder/ours.memory")
printf '\npeak memory %d KiB; with %d records %d KiB\n' "$small" $((records * 10)) "$large"

awk -v ours="$ours" -v bare="$(median bare)" -v small="$small" -v large="$large" \
  -v script="$(median "$own_awk")" \
  'BEGIN {
    failed = 0
    if (ours > 1.5 * bare) { print "missed: at most 1.5 times the bare loop"; failed = 1 }
    if (script < 3 * ours) { print "missed: at least 3 times faster than awk"; failed = 1 }
    if (large > small + 1024) { print "missed: memory stays flat"; failed = 1 }
    exit failed
  }'
