#!/usr/bin/env bash
# The whole service beside what a user could do instead: seconds for the same works, in turns, on a
# private MariaDB server, each contender's sums checked against what the maker of the files knows.
#
#   bench/speed/performance.sh PROGRAM [--short] [--publish] [--other PROGRAM]
#
#   PROGRAM    the built midtable
#   --short    a fifth of the files, one round
#   --publish  puts tables and pictures into docs/performance.md
#   --other    only this: both programs without the setting delivery and without their pauses of a second
#
# First on the disk on which build/ is, where the server brings every commit to the disk; then in
# memory. bench/speed/performance/ says who the contenders are and what they are given. Prints tables
# (also in build/performance/). Exit status 1 when a goal is missed, 2 when a contender failed.
set -euo pipefail
export LC_ALL=C TZ=UTC
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
results=$PWD/build/performance
disk=$results/disk

program=$(realpath "$1")
shift
options=() report=()
while [ $# -gt 0 ]; do
  case $1 in
    --short) options+=(--short) ;;
    --publish) report+=(--publish) ;;
    --other) options+=(--other "$(realpath "$2")"); shift ;;
    *) echo "performance.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

# measure MEDIUM SANDBOX_OPTION...
measure() {
  local medium=$1
  shift
  rm -f "$results/$medium.json"
  tools/sandbox "$@" /usr/bin/python3 bench/speed/performance/measure.py "$medium" "$program" \
    "$results/$medium.json" ${options[@]+"${options[@]}"}
}

mkdir -p "$results"
rm -rf "$disk"
mkdir -p "$disk"/{tmp,vqlog}
# The sandbox's user owns nothing outside of it.
chmod 777 "$disk" "$disk"/{tmp,vqlog} "$results"
trap 'rm -rf "$disk"' EXIT
measure disk --bind "$disk/tmp" /tmp --bind "$disk/vqlog" /vqlog || exit 2
rm -rf "$disk"
measure memory || exit 2
/usr/bin/python3 bench/speed/performance/report.py "$results" ${report[@]+"${report[@]}"}
