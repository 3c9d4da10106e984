# Part of play: a Galera cluster of three nodes, and a proxy before it.
# shellcheck shell=bash disable=SC2154

start_node() {  # start_node NUMBER [OPTION]
  local name=node$1 position=()
  if [ -d "$stage/$name/server/data" ]; then find_position "$1"; fi
  start_server "$name" node "$@" "${position[@]}"
  wait_until "$name is ready" is_ready "$name"
}

# Sets `position` of start_node. A killed server's note of its position says that there is none; its tables
# know. With the position it gets what it has missed, where another node still has that, and a whole copy
# otherwise. Debian's unit of MariaDB calls the same program before each start.
find_position() {  # find_position NUMBER
  local name=node$1
  sed "s/NUMBER/$1/g" "$here/node.cnf" >"$stage/$name/recovery.cnf"
  cat >>"$stage/$name/recovery.cnf" <<SETTINGS
datadir = $stage/$name/server/data
socket = /tmp/recovery
skip-networking
innodb-log-file-size = 4M
SETTINGS
  mapfile -t position < <(on "$name" galera_recovery --defaults-file="$stage/$name/recovery.cnf" \
    2>"$stage/$name/recovery.txt")
  if [[ ${position[*]} != *:* ]]; then
    cat "$stage/$name/recovery.txt"
    echo "$name does not know its position."
    exit 1
  fi
  echo "    $name finds its position: ${position[*]##*=}"
}
is_ready() { [ "$(status_of "$1" wsrep_ready)" = ON ]; }
status_of() { query "$1" "show status like '$2'" | cut -f 2; }

start_cluster() {
  start_node 1 --wsrep-new-cluster
  start_node 2
  start_node 3
}

# A fourth vote without data: with it the cluster outlives the loss of two nodes, one after the other. It keeps
# a note of the others in a folder, as the nodes do: those who had the majority last find each other by that.
start_arbitrator() {
  run_arbitrator
  wait_until "the arbitrator has joined" has_votes 4
}
run_arbitrator() {
  mkdir -p "$stage/arbitrator/notes"
  on arbitrator garbd --group midtable --address gcomm://127.0.0.1,127.0.0.2,127.0.0.3 \
    --workdir "$stage/arbitrator/notes" \
    --options "gmcast.listen_addr=tcp://127.0.0.4:4567" >>"$stage/arbitrator.txt" 2>&1 &
  arbitrator=$!
}
has_votes() { [ "$(status_of node1 wsrep_cluster_size)" = "$1" ]; }

# All at once: each kill waits for the end of its process.
cut_power() {
  local number killed=()
  for number in 1 2 3; do
    server kill "node$number" &
    killed+=($!)
  done
  kill -KILL "$arbitrator"
  wait "$arbitrator" 2>/dev/null || true  # the shell would tell that it was killed
  wait "${killed[@]}"
}

# No node is ready before all are there.
start_together() {
  local number start started=()
  for number in 1 2 3; do
    start_node $number &
    started+=($!)
  done
  run_arbitrator
  for start in "${started[@]}"; do wait "$start" || exit 1; done
}

stop_cluster() {
  kill "$proxy" "$arbitrator"
  stop_servers node3 node2 node1
}

# --- the proxy

start_proxy() {
  local number
  query node1 "create user health@'127.0.0.1'"
  # `use` and the services find the proxy as they would find a server.
  mkdir -p "$stage/proxy/server"
  echo 3306 >"$stage/proxy/server/port"
  sed "s|FOLDER|$here|; s|SOCKET|/tmp/haproxy|; s|PORT0|3306|" "$here/haproxy.cfg" >"$stage/proxy/haproxy.cfg"
  for number in 1 2 3; do
    sed -i "s/PORT$number/$(cat "$stage/node$number/server/port")/" "$stage/proxy/haproxy.cfg"
  done
  on proxy haproxy -db -f "$stage/proxy/haproxy.cfg" >"$stage/proxy/log.txt" 2>&1 &
  proxy=$!
  wait_until "the proxy leads to a node" leads_to_a_node
}

# The node that the proxy leads to now.
writer() { use proxy && sql -N -e 'select @@wsrep_node_name' 2>>"$stage/proxy/away.txt"; }
leads_to_a_node() { writer >/dev/null; }
leads_to() { [ "$(writer)" = "$1" ]; }
tell_proxy() { echo "$1" | socat - "UNIX-CONNECT:$stage/proxy/tmp/haproxy" >/dev/null; }

# The network between the proxy and a node is gone, and the node does not know.
cut_off() { tell_proxy "disable server database/$1; shutdown sessions server database/$1"; }
# A proxy that finds a node again by its check ends the sessions on the backups; after an order it does not.
connect_again() { tell_proxy "enable server database/$1; shutdown sessions server database/node2"; }
