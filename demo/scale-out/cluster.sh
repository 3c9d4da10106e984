# Part of play: two appliances on one Galera cluster of three nodes, of which one is killed.
# shellcheck shell=bash disable=SC2154,SC2034

cluster() {
  step "Cluster: two appliances on three nodes"
  start_cluster
  local machine
  use node1
  set_up_databases "${ids[a]}" "${ids[b]}"
  for machine in a b; do
    if [ $machine = b ]; then use node2; fi
    configure "$stage/$machine" "$sample"
    empty_within_the_transaction "$stage/$machine/etc/morvan/vqlog.xml"
    start_service $machine
  done
  # The mem tables of all days are there after this, which the next step needs.
  step "Appliance a loads through node1, b through node2: the files of the afternoons"
  for machine in a b; do feed $machine '*_[12][026]00?-*'; done
  wait_until "a has converted them" has_done_all a node1
  wait_until "b has converted them" has_done_all b node2
  kill_a_node_in_a_load
  move_to_another_node
  wait_until "a has converted all" has_done_all a node3
  wait_until "b has converted all" has_done_all b node2
  for machine in a b; do stop_service $machine; done
  compare_nodes
  stop_servers node3 node2 node1
}

# A server that sees the mem files of both appliances, as if their folders were mounted there.
start_reader() {  # as start_server
  local machine mounts=()
  for machine in a b; do
    mkdir -p "$(spool $machine)"
    mounts+=(--bind "$(spool $machine)" "/vqlog/log_data/midtable/${ids[$machine]}")
  done
  start_server "$@"
}

start_node() {  # start_node NUMBER [OPTION]
  start_reader "node$1" node "$@"
  wait_until "node$1 is ready" is_ready "node$1"
}
is_ready() { [ "$(status_of "$1" wsrep_ready)" = ON ]; }

start_cluster() {
  start_node 1 --wsrep-new-cluster
  start_node 2
  start_node 3
  echo "    nodes in the cluster: $(status_of node1 wsrep_cluster_size)"
}

# Each conversion deletes the rows that it has counted: if a node dies at its commit, then either both
# has happened or nothing. ("%.0s" passes over the date.)
empty_within_the_transaction() {  # empty_within_the_transaction DEFINITIONS
  sed -i -E -e 's|<MidCnt>3</MidCnt>|<MidCnt>4</MidCnt>|' -e 's|^ *</[FA]>|\
      <MidTab4>\
        <Always>1</Always>\
        <Name>T_DONE1Y_</Name>\
        <Convert>delete from %.0s%s</Convert>\
      </MidTab4>\n&|' "$1"
}

status_of() { query "$1" "show status like '$2'" | cut -f 2; }

mem_table() { echo "WLAN_${1:0:8}.${1:9:13}000${1:25:2}"; }  # mem_table FILE

# Another session holds a record of the file that a loads next: the load waits in the middle of the
# file, and is there when the node dies.
kill_a_node_in_a_load() {
  local file name table record rows
  file=$(printf '%s\n' "$sample/spool/${ids[a]}"/*_0800F-*.dat | tail -1)
  name=$(basename "$file")
  table=$(mem_table "$name")
  record=$(sed -n "$(($(wc -l <"$file") / 2))p" "$file" | cut -f 1)
  step "The other files; node1 is killed (-9) in the middle of $name"
  query node1 "set sql_mode = ''; begin; insert into $table (record_id, start_time) values ($record, now());
               do sleep($patience)" >"$stage/holder.txt" 2>&1 &
  wait_until "the record is held" has_transactions "trx_rows_modified = 1"
  feed a '*_0?00?-*'
  wait_until "the load waits" has_transactions "trx_state = 'LOCK WAIT'"
  rows=$(query node1 "select trx_rows_modified from information_schema.innodb_trx
                      where trx_state = 'LOCK WAIT'")
  feed b '*_0?00?-*'
  wait_until "b is at work" has_loaded b $(($(count b mid) + 2))
  server kill node1
  echo "    killed when $rows rows of the file were in $table"
  wait "${service[a]}" || problems+=("the service of a ended with status $?")
  echo "    the service of a gave up after its reconnections and ended; the file is" \
    "$(basename "$(find "$(spool a)" -name "${name%.dat}.*")")"
  echo "    nodes in the cluster: $(status_of node2 wsrep_cluster_size); rows in $table: $(query node2 "select count(*) from $table")"
  wait_until "b has loaded all" has_loaded b "$(find "$sample/spool/${ids[b]}" -name '*.dat' | wc -l)"
  echo "    b went on, after $(longest_pause b) s without a file"
}

has_transactions() {  # has_transactions CONDITION: on node1
  [ "$(query node1 "select count(*) from information_schema.innodb_trx where $1")" != 0 ]
}

longest_pause() {  # longest_pause APPLIANCE: between two files of the second lot, in seconds
  find "$(spool "$1")" -name '*_0?00?-*.mid' -printf '%C@\n' | sort -n |
    awk 'NR > 1 && $1 - last > longest { longest = $1 - last } { last = $1 } END { printf "%.1f", longest }'
}

move_to_another_node() {
  step "node1 comes back; meanwhile a goes on through node3"
  local joiner
  start_node 1 &
  joiner=$!
  use node3
  sed -i "s/^port=.*/port=$port/" "$stage/a/virus/apache/rnweb/inc/dbinfo.conf"
  sort_out_failed_files
  start_service a
  echo "    files of a waiting while node1 fetches its copy: $(count a dat)"
  wait $joiner || exit 1
  echo "    node1 is $(status_of node1 wsrep_local_state_comment), nodes in the cluster:" \
    "$(status_of node1 wsrep_cluster_size); files of a still waiting: $(count a dat)"
}

# Before the service is started again: a load is a transaction, so the first record tells whether the
# rows are in the mem table, though the node died before it could say so.
sort_out_failed_files() {
  local failed stem
  for failed in "$(spool a)"/*.err; do
    stem=${failed%.err}
    # Beside a loaded file it is the original of one that had damaged lines.
    if [ ! -e "$failed" ] || [ -e "$stem.mid" ]; then continue; fi
    if [ "$(sql -N -e "set wsrep_sync_wait = 1; select count(*) from $(mem_table "$(basename "$stem")")
                       where record_id = $(head -1 "$failed" | cut -f 1)")" = 1 ]; then
      mv "$failed" "$stem.mid"
      echo "    loaded after all: $(basename "$stem").mid"
    else
      mv "$failed" "$stem.dat"
      echo "    to be tried again: $(basename "$stem").dat"
    fi
  done
}

compare_nodes() {
  step "Every row of every mid table"
  local node
  for node in node1 node2 node3; do
    query $node "set wsrep_sync_wait = 1; select 1" >/dev/null
    compare $node a b
  done
}
