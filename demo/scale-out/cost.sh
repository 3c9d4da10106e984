# Part of play: the time of one appliance's files on each kind of server, in turns.
# shellcheck shell=bash disable=SC1091,SC2034,SC2154
source "$demo/../bench/speed/timing.sh"
source "$here/cluster.sh"

cost() {
  local server turn order=(plain binlog node1)
  rounds=5
  step "Cost: the $(find "$sample/spool/${ids[a]}" -name '*.dat' | wc -l) files of a, $rounds times on each kind of server in turns"
  start_server plain plain 0
  start_server binlog appliance 1
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

# All files of a, from scratch. Timed from the moment at which they appear to the last one's commit.
load_on() {  # load_on SERVER
  local begun before
  rm -f "$(spool a)"/*
  use "$1"
  sql -e "drop database if exists WLAN_${ids[a]}"
  set_up_databases "${ids[a]}"
  configure "$stage/a" "$sample"
  start_service a
  before=$(cpu_of_server "$1") begun=$EPOCHREALTIME
  feed a '*.dat'
  wait_until "$1 has counted all" has_done_all a "$1"
  awk -v before="$before" -v after="$(cpu_of_server "$1")" 'BEGIN { print after - before }' >>"$folder/$1-cpu.times"
  stop_service a
  find "$(spool a)" -name '*.mid' -printf '%C@\n' | sort -n |
    awk -v begun="$begun" 'END { printf "%.3f\n", $1 - begun }' >>"$folder/$1.times"
}

# That of the cluster is that of all its nodes.
cpu_of_server() {  # cpu_of_server SERVER
  local pids=("$stage/$1/server/pid")
  if [ "$1" = node1 ]; then pids=("$stage"/node[123]/server/pid); fi
  # shellcheck disable=SC2046
  cpu_seconds $(cat "${pids[@]}")
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
