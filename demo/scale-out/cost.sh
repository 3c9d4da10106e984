# Part of play: the time of one appliance's files on each kind of server, in turns.
# shellcheck shell=bash disable=SC1091,SC2034,SC2154
source "$demo/../bench/speed/timing.sh"
source "$here/cluster.sh"

cost() {
  local server turn order=(plain binlog node1)
  rounds=5
  step "Cost: the $(find "$sample/spool/${ids[a]}" -name '*.dat' | wc -l) files of a, $rounds times on each kind of server in turns"
  start_reader plain plain 0
  start_reader binlog appliance 1
  start_cluster
  for turn in $(seq $rounds); do
    for server in "${order[@]}"; do load_on "$server"; done
    order=("${order[@]:1}" "${order[0]}")  # what one leaves to be written slows the next one down
  done
  for server in plain binlog node1 node3; do
    if [ $server = node3 ]; then query $server "set wsrep_sync_wait = 1; select 1" >/dev/null; fi
    compare $server a
  done
  show_times
  stop_servers plain binlog node3 node2 node1
}

# All files of a, from scratch. Timed from the first file that was loaded to the last: a service that
# is idle looks for files once a second only.
load_on() {  # load_on SERVER
  local before
  rm -f "$(spool a)"/*
  use "$1"
  sql -e "drop database if exists WLAN_${ids[a]}"
  set_up_databases "${ids[a]}"
  configure "$stage/a" "$sample"
  if [ "$1" = node1 ]; then empty_within_the_transaction "$stage/a/etc/morvan/vqlog.xml"; fi
  start_service a
  before=$(cpu_seconds "$1")
  feed a '*.dat'
  wait_until "$1 has converted all" has_done_all a "$1"
  awk -v before="$before" -v after="$(cpu_seconds "$1")" 'BEGIN { print after - before }' >>"$folder/$1-cpu.times"
  stop_service a
  find "$(spool a)" -name '*.mid' -printf '%C@\n' | sort -n |
    awk 'NR == 1 { first = $1 } { last = $1 } END { printf "%.3f\n", last - first }' >>"$folder/$1.times"
}

# What the server has used of the processors so far, the cluster all its nodes.
cpu_seconds() {  # cpu_seconds SERVER
  local machine machines=("$1")
  if [ "$1" = node1 ]; then machines=(node1 node2 node3); fi
  for machine in "${machines[@]}"; do cat "/proc/$(cat "$stage/$machine/server/pid")/stat"; done |
    awk -v ticks="$(getconf CLK_TCK)" '{ sum += $14 + $15 } END { print sum / ticks }'
}

show_times() {
  local files
  files=$(find "$sample/spool/${ids[a]}" -name '*.dat' | wc -l)
  printf '    %-24s %9s %9s %12s %12s %12s\n' "medians of $rounds" seconds files/s "times plain" \
    "server CPU s" "times plain"
  show_time "plain server" plain
  show_time "binary log, by rows" binlog
  show_time "cluster of three nodes" node1
}

show_time() {  # show_time TEXT SERVER
  awk -v text="$1" -v seconds="$(median "$2")" -v plain="$(median plain)" -v files="$files" \
    -v cpu="$(median "$2-cpu")" -v plain_cpu="$(median plain-cpu)" 'BEGIN {
      printf "    %-24s %9.2f %9.0f %12.2f %12.2f %12.2f\n", text, seconds, files / seconds, seconds / plain,
        cpu, cpu / plain_cpu
    }'
}
