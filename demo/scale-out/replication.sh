# Part of play: two appliances, each with a server of its own, and one store that fetches their mid
# tables.
# shellcheck shell=bash disable=SC2154

replication() {
  step "Replication: two appliances, one store"
  start_server a appliance 1
  start_server b appliance 2
  start_server store store 100
  local machine
  for machine in a b; do
    fetch_from "$machine"
    use "$machine"
    set_up_databases "${ids[$machine]}"
    configure "$stage/$machine" "$sample"
    start_service "$machine"
  done
  load_while_the_store_dies
  for machine in a b; do stop_service "$machine"; done
  wait_for_the_store
  compare_all
  step "What it cost: the binary logs, which hold mem rows too"
  for machine in a b; do
    printf '    %s  %8d bytes of binary log for %8d bytes of mem files\n' "$machine" \
      "$(cat "$stage/$machine"/server/data/binlog.0* | wc -c)" \
      "$(cat "$sample/spool/${ids[$machine]}"/*.dat | wc -c)"
  done
  stop_servers a b store
}

fetch_from() {  # fetch_from MACHINE [OPTIONS]: one named connection of the store an appliance
  query "$1" "create user store@'127.0.0.1' identified by 'secret';
              grant replication slave on *.* to store@'127.0.0.1'"
  query store "change master '$1' to master_host = '127.0.0.1', master_port = $(cat "$stage/$1/server/port"),
                 master_user = 'store', master_password = 'secret', master_use_gtid = slave_pos, ${2:-}
                 master_connect_retry = 1;
               start slave '$1'"
}

positions() {
  echo "    $1: a has written $(query a 'select @@gtid_binlog_pos'), b $(query b 'select @@gtid_binlog_pos')"
}

load_while_the_store_dies() {
  local files third
  files=$(find "$sample/spool/${ids[a]}" -name '*.dat' | wc -l) third=$((files / 3))
  step "Loading $files files on each; the store is killed (-9) after a third and comes back later"
  feed a '*.dat'
  feed b '*.dat'
  wait_until "a third of the files is loaded" has_loaded a $third
  echo "    the store has $(query store 'select @@gtid_slave_pos')"
  server kill store
  positions "store killed"
  wait_until "two thirds of the files are loaded" has_loaded a $((2 * third))
  positions "store away "
  start_server store store 100
  echo "    store back: it has $(query store 'select @@gtid_slave_pos')"
  wait_until "a has converted all" has_done_all a a
  wait_until "b has converted all" has_done_all b b
}

wait_for_the_store() {
  local start position
  start=$(now_ms)
  position=$(query a 'select @@gtid_binlog_pos'),$(query b 'select @@gtid_binlog_pos')
  if [ "$(query store "select master_gtid_wait('$position', $patience)")" != 0 ]; then
    query store 'show all slaves status'
    problems+=("the store did not catch up")
  fi
  echo "    all written: $position; the store has it $(($(now_ms) - start)) ms later"
}

compare_all() {
  step "Every row of every mid table"
  compare a a
  compare b b
  compare store a b
  LC_ALL=C sort -m "$stage"/{a,b}.found.tsv | cmp -s - "$stage/store.found.tsv" ||
    problems+=("the store differs from the appliances")
  local errors
  errors=$(cat "$stage"/[ab]/vqlog/log/midtable/*.log | grep -c '\[ErrLog\]') || true
  if [ "$errors" != 0 ]; then problems+=("the run logs have $errors error lines"); fi
  use store
  if [ -n "$(tables_like 'MEM\_%')" ]; then problems+=("mem tables arrived in the store"); fi
}
