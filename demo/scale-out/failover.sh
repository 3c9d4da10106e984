# Part of play: two appliances on one Galera cluster of three nodes, behind a proxy. Nodes are killed
# and come back, and nobody does anything about it.
# shellcheck shell=bash disable=SC1091,SC2154
source "$here/cluster.sh"
source "$here/two_sessions.sh"

failover() {
  step "Fail-over: two appliances, a proxy, a cluster of three nodes and an arbitrator"
  start_cluster
  start_arbitrator
  start_proxy
  local machine
  use proxy
  set_up_databases "${ids[a]}" "${ids[b]}"
  for machine in a b; do
    configure "$stage/$machine" "$sample"
    start_service $machine
  done
  # Each step takes the files of some hours of all days. The mem tables are there after the first.
  step "The files of the evenings, through the proxy"
  load_hours 20
  show_two_sessions
  leave_a_load_behind 00
  leave_a_commit_behind 04
  kill_in_the_middle node1 08
  kill_at_work node2 12
  bring_back 1 "what it had missed" 16
  rm -r "$stage/node2/server/data"
  bring_back 2 "a whole copy"
  lose_all_at_once 16
  for machine in a b; do stop_service $machine; done
  show_what_was_found 04
  compare_nodes
  stop_cluster
}

# --- files

feed_hours() { feed "$1" "*_$2""00?-*"; }  # feed_hours APPLIANCE HOUR: of all days
load_hours() {
  feed_hours a "$1"
  feed_hours b "$1"
  wait_for_both
}
wait_for_both() {
  local machine
  for machine in a b; do
    wait_until "$machine has counted its files" has_none_waiting $machine
  done
}

# The files of an appliance for an hour. Another session holds a record of the last of them, so that the load
# waits in the middle of the file. The mem table must be noted as empty: a new session would empty it
# otherwise, and end the one that holds the record.
stop_in_a_load() {  # stop_in_a_load NODE APPLIANCE HOUR
  local file record
  wait_until "the proxy leads to $1" leads_to "$1"
  wait_until_noted "$1" "$2"
  file=$(last_file "$2" "$3")
  record=$(sed -n "$(($(wc -l <"$file") / 2))p" "$file" | cut -f 1)
  query "$1" "set sql_mode = ''; begin;
              insert into $(mem_table "$file") (record_id, start_time) values ($record, now());
              do sleep($patience), '$2'" >"$stage/holder-$2.txt" 2>&1 &
  wait_until "the record is held" has_statement "$1" "do sleep%$2"
  feed_hours "$2" "$3"
  wait_until "the load waits" is_waiting_in_a_load "$1" "$2"
  echo "    $2 is in the middle of $(basename "$file")"
}
last_file() { printf '%s\n' "$sample/spool/${ids[$1]}"/*"_$2""00F"-*.dat | tail -1; }  # last_file APPLIANCE HOUR
mem_table() {  # mem_table FILE
  local name
  name=$(basename "$1")
  echo "WLAN_${name:0:8}.${name:9:13}000${name:25:2}"
}
wait_until_noted() {  # wait_until_noted NODE APPLIANCE
  local table
  table=$(mem_table "$(last_file "$2" 00)")
  wait_until "$table is noted as empty" is_noted_as_empty "$1" "$table"
}
is_noted_as_empty() {  # is_noted_as_empty NODE TABLE
  [ "$(query "$1" "select state from ${2%.*}.midtable_ledger where kind = 'M' and name = '${2#*.}'")" = E ]
}
is_waiting_in_a_load() {  # is_waiting_in_a_load NODE APPLIANCE
  has_transactions "$1" "trx_state = 'LOCK WAIT' and trx_mysql_thread_id in
                           (select id from information_schema.processlist where db = 'WLAN_${ids[$2]}')"
}
has_transactions() {  # has_transactions NODE CONDITION
  [ "$(query "$1" "select count(*) from information_schema.innodb_trx where $2")" != 0 ]
}
has_no_transaction() { ! has_transactions "$1" "trx_rows_modified > 1"; }  # but for the other session's
let_it_go_on() {  # let_it_go_on NODE
  query "$1" "select concat('kill ', id, ';') from information_schema.processlist where info like 'do sleep%'" |
    while read -r kill; do query "$1" "$kill"; done
}

# --- what happens

# Its session there knows nothing of it and would go on, while the service loads the same files elsewhere.
leave_a_load_behind() {  # leave_a_load_behind HOUR
  step "The proxy loses node1 while a's load is at work there, and leads to the next node"
  stop_in_a_load node1 a "$1"
  cut_off node1
  feed_hours b "$1"
  wait_for_both
  wait_until "the left transaction is rolled back" has_no_transaction node1
  echo "    all is counted on $(writer); the left transaction on node1 is rolled back"
  let_it_go_on node1
  lead_back
}

# The last that the session hears is "commit", which waits for a node that does not answer. Then the
# cluster goes on, and a has asked for the same rows elsewhere meanwhile.
leave_a_commit_behind() {  # leave_a_commit_behind HOUR
  local frozen
  frozen=$(cat "$stage/node3/server/pid")
  view=$(status_of node2 wsrep_cluster_conf_id)
  step "The proxy loses node1 before the answer to a commit, which is carried out later"
  stop_in_a_load node1 a "$1"
  kill -STOP "$frozen"
  let_it_go_on node1
  wait_until "the commit waits on node1" has_statement node1 commit
  cut_off node1
  wait_until "a's new session waits on node2" has_begun_anew
  kill -CONT "$frozen"
  feed_hours b "$1"
  wait_for_both
  if [ "$(status_of node2 wsrep_cluster_conf_id)" = "$view" ]; then view=; fi
  echo "    all is counted${view:+; the others gave up node3, which took this machine too long}"
  wait_until "node3 takes part again" takes_part_again
  lead_back
}
# The sessions end with that, and with them what the services would have noted a moment later.
lead_back() {
  wait_until_noted node2 a
  wait_until_noted node2 b
  connect_again node1
}
takes_part_again() { is_synced node3 && has_votes 4; }

# The run log has such lines for certain once the service has ended. A commit that waits while the others give
# up node3 may be refused, and its files counted by the next session.
show_what_was_found() {  # show_what_was_found HOUR
  local found
  found=$(cat "$stage"/a/vqlog/log/midtable/*.log | grep -c "_$1.*is counted already") || [ -n "$view" ] ||
    problems+=("the next session found nothing of the commit whose answer was lost")
  step "Of the files at the commit whose answer was lost, the next session has found $found in the ledger"
}
has_statement() {  # has_statement NODE BEGINNING
  [ "$(query "$1" "select count(*) from information_schema.processlist where info like '$2%'")" != 0 ]
}
# Its first statement for all nodes waits there, unless the cluster has given up node3 already.
has_begun_anew() {
  [ "$(query node2 "select count(*) from information_schema.processlist
                    where user = 'midtable' and info is not null and time_ms > 300")" != 0 ] || has_none_waiting a
}

# Both are stopped within a batch, so that no table is being made or emptied: a node that is killed during
# that does not trust its tables, and gets a whole copy later.
kill_in_the_middle() {  # kill_in_the_middle NODE HOUR
  step "$1 is killed (-9) while both services are in the middle of a file there"
  stop_in_a_load "$1" a "$2"
  stop_in_a_load "$1" b "$2"
  kill_node "$1"
}

kill_at_work() {  # kill_at_work NODE HOUR
  local loaded
  loaded=$(count b mid)
  step "$1, where the services are now, is killed (-9) in mid load"
  stop_in_a_load "$1" a "$2"
  feed_hours b "$2"
  wait_until "b is at work" has_loaded b $((loaded + 2))
  kill_node "$1"
}

kill_node() {  # kill_node NODE
  local begun
  server kill "$1"
  begun=$(now_ms)
  echo "    files that wait: $(count a dat) of a, $(count b dat) of b"
  wait_for_both
  echo "    both have counted all, $(($(now_ms) - begun)) ms later, on $(writer)"
}

# Files of b come meanwhile, if an hour is given.
bring_back() {  # bring_back NUMBER WITH [HOUR]
  local name=node$1 begun with
  if [ -d "$stage/$name/server/data" ]; then
    step "$name is started again, as its supervisor would do at once"
  else
    step "$name has lost its disk; a new one, empty, is started in its place"
  fi
  if [ $# -gt 2 ]; then feed_hours b "$3"; fi
  begun=$(now_ms)
  mv "$stage/$name/server/error.log" "$stage/$name/server/error.before.log"
  start_node "$1"
  wait_until "$name has all" is_synced "$name"
  with=$(what_came_with "$name")
  echo "    $name got $with, $(($(now_ms) - begun)) ms after its start;" \
    "nodes, with the arbitrator: $(status_of node3 wsrep_cluster_size)"
  if [ "$with" != "$2" ]; then problems+=("$name got $with, not $2"); fi
  wait_until "the services are back on node1" leads_to node1
  wait_for_both
}

lose_all_at_once() {  # lose_all_at_once HOUR
  local begun
  step "A power cut (-9) in mid load: all nodes and the arbitrator end, and start together"
  stop_in_a_load node1 a "$1"
  cut_power
  begun=$(now_ms)
  start_together
  wait_for_both
  echo "    all is counted $(($(now_ms) - begun)) ms after the start; nodes, with the arbitrator:" \
    "$(status_of node3 wsrep_cluster_size)"
}

what_came_with() {  # what_came_with NODE, since its last start
  case $(grep -o 'rsync [IS]ST completed on joiner' "$stage/$1/server/error.log") in
    *IST*) echo "what it had missed" ;;
    *SST*) echo "a whole copy" ;;
  esac
}
is_synced() { [ "$(status_of "$1" wsrep_local_state_comment)" = Synced ]; }

compare_nodes() {
  step "Every row of every mid table, on each node"
  local node
  for node in node1 node2 node3; do
    query $node "set wsrep_sync_wait = 1; select 1" >/dev/null
    compare $node a b
  done
}
