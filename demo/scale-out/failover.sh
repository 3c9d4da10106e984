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
  kill_node node1 08
  kill_node node2 12
  bring_back 1 16
  bring_back 2
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

# The files of a for an hour. Another session holds a record of the last of them, so that the load waits
# in the middle of the file. The mem table must be noted as empty: a new session would empty it otherwise,
# and end the one that holds the record.
stop_in_a_load() {  # stop_in_a_load NODE HOUR
  local file table record
  wait_until "the proxy leads to $1" leads_to "$1"
  file=$(printf '%s\n' "$sample/spool/${ids[a]}"/*"_$2""00F"-*.dat | tail -1)
  table=$(mem_table "$(basename "$file")")
  wait_until "$table is noted as empty" is_noted_as_empty "$1" "$table"
  record=$(sed -n "$(($(wc -l <"$file") / 2))p" "$file" | cut -f 1)
  query "$1" "set sql_mode = ''; begin;
              insert into $table (record_id, start_time) values ($record, now());
              do sleep($patience)" >"$stage/holder.txt" 2>&1 &
  wait_until "the record is held" has_transactions "$1" "trx_rows_modified = 1"
  feed_hours a "$2"
  wait_until "the load waits" has_transactions "$1" "trx_state = 'LOCK WAIT'"
  echo "    a is in the middle of $(basename "$file")"
}
is_noted_as_empty() {  # is_noted_as_empty NODE TABLE
  [ "$(query "$1" "select state from ${2%.*}.midtable_ledger where kind = 'M' and name = '${2#*.}'")" = E ]
}
mem_table() { echo "WLAN_${1:0:8}.${1:9:13}000${1:25:2}"; }  # mem_table FILE
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
  stop_in_a_load node1 "$1"
  cut_off node1
  feed_hours b "$1"
  wait_for_both
  wait_until "the left transaction is rolled back" has_no_transaction node1
  echo "    all is counted on $(writer); the left transaction on node1 is rolled back"
  let_it_go_on node1
  connect_again node1
}

# The last that the session hears is "commit", which waits for a node that does not answer. Then the
# cluster goes on, and a has asked for the same rows elsewhere meanwhile.
leave_a_commit_behind() {  # leave_a_commit_behind HOUR
  local frozen
  frozen=$(cat "$stage/node3/server/pid")
  step "The proxy loses node1 before the answer to a commit, which is carried out later"
  stop_in_a_load node1 "$1"
  kill -STOP "$frozen"
  let_it_go_on node1
  wait_until "the commit waits on node1" has_statement node1 commit
  cut_off node1
  wait_until "a's new session waits on node2" has_begun_anew
  kill -CONT "$frozen"
  feed_hours b "$1"
  wait_for_both
  echo "    all is counted"
  wait_until "node3 takes part again" takes_part_again
  connect_again node1
}
takes_part_again() { is_synced node3 && has_votes 4; }

# The run log has such lines for certain once the service has ended.
show_what_was_found() {  # show_what_was_found HOUR
  local found
  found=$(cat "$stage"/a/vqlog/log/midtable/*.log | grep -c "_$1.*is counted already") ||
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

kill_node() {  # kill_node NODE HOUR
  local begun loaded
  loaded=$(count b mid)
  step "$1, where both services are, is killed (-9) in mid load"
  stop_in_a_load "$1" "$2"
  feed_hours b "$2"
  wait_until "b is at work" has_loaded b $((loaded + 2))
  server kill "$1"
  begun=$(now_ms)
  echo "    b had counted $(($(count b mid) - loaded)) of its files"
  wait_for_both
  echo "    both have counted all, $(($(now_ms) - begun)) ms later, on $(writer)"
}

bring_back() {  # bring_back NUMBER [HOUR]: of the files that come meanwhile
  step "node$1 is started again, as its supervisor would do at once"
  if [ $# -gt 1 ]; then
    feed_hours a "$2"
    feed_hours b "$2"
  fi
  start_node "$1"
  wait_for_both
  wait_until "node$1 has all" is_synced "node$1"
  echo "    node$1 got $(grep -q 'IST received' "$stage/node$1/server/error.log" &&
    echo "what it had missed" || echo "a whole copy"); nodes, with the arbitrator:" \
    "$(status_of node3 wsrep_cluster_size)"
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
