# shellcheck shell=bash
# For scripts that time whole commands in turns: they set folder, where times are kept, and rounds.

# timed NAME COMMAND...: appends the command's seconds to the times of NAME.
timed() {
  local name=$1 start=$EPOCHREALTIME
  shift
  "$@"
  awk -v start="$start" -v end="$EPOCHREALTIME" 'BEGIN { printf "%.4f\n", end - start }' \
    >>"${folder:?}/$name.times"
}

# median NAME: of its times, one for each round.
median() { sort -n "${folder:?}/$1.times" | sed -n "$(((${rounds:?} + 1) / 2))p"; }
