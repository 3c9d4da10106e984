# Part of failover: what the cluster itself does with two sessions on two nodes that deliver the same file.
# Without the services, which would only get there by bad luck, on a ledger of the play's own.
# shellcheck shell=bash disable=SC2154

by_hand=by_hand.midtable_ledger
open_seconds=5  # how long the first session's transaction is left open

show_two_sessions() {
  step "By hand: the same delivered by a session on node1 and one on node2"
  query node1 "create database by_hand;
               create table $by_hand like WLAN_${ids[a]}.midtable_ledger;
               insert into $by_hand (kind, name, size, modified) values ('M', 'mem', 0, 0), ('F', 'old', 1, 1);
               create table by_hand.mem (record_id int primary key)"
  must_share_no_claim
  must_lose "both take the mark of one mem table" "$(take_mark first)" "$(take_mark second)"
  must_lose "both add the same file" "$(add_file new)" "$(add_file new)"
  must_lose "the second empties the mem table that the first fills" "insert into by_hand.mem values (1)" \
    "truncate table by_hand.mem"
  must_be_refused "a file that is counted is added later" "Duplicate entry" "$(add_file old)"
  query node1 "drop database by_hand"
}

take_mark() { echo "update $by_hand set token = '$1' where kind = 'M' and name = 'mem'"; }
add_file() { echo "insert into $by_hand (kind, name, size, modified) values ('F', '$1', 1, 1)"; }

# A claim is a lock name: another node gives the same one to a second session.
must_share_no_claim() {
  local taken
  query node1 "do get_lock('claim', 0); do sleep($open_seconds)" &
  wait_until "node1 has given the claim" is_claimed_on node1
  taken=$(query node2 "select get_lock('claim', 0)")
  echo "    a claim that is taken on node1 can be had on node2: get_lock says $taken"
  if [ "$taken" != 1 ]; then problems+=("node2 knows the claims of node1: get_lock says $taken"); fi
  wait $!
}
is_claimed_on() { [ "$(query "$1" "select is_used_lock('claim') is not null")" = 1 ]; }

# FIRST is in a transaction on node1 that is still open when SECOND is committed on node2.
must_lose() {  # must_lose WHAT FIRST SECOND
  local first
  query node1 "begin; $2; do sleep($open_seconds); commit" >"$stage/first.txt" 2>&1 &
  first=$!
  wait_until "the first session has written" has_transactions node1 "trx_rows_modified = 1"
  query node2 "$3" || problems+=("$1: the second session was refused")
  if wait $first; then
    problems+=("$1: the first session could commit")
  elif ! grep -q "Deadlock found" "$stage/first.txt"; then
    problems+=("$1: the first session was refused for another reason: $(cat "$stage/first.txt")")
  fi
  echo "    $1: the second can commit, the first gets \"$(grep -o 'Deadlock found' "$stage/first.txt" || true)\""
}

must_be_refused() {  # must_be_refused WHAT REASON STATEMENT
  local said
  if said=$(query node2 "$3" 2>&1); then
    problems+=("$1: it was taken")
  elif [[ $said != *"$2"* ]]; then
    problems+=("$1: refused for another reason: $said")
  fi
  echo "    $1: \"$(grep -o "$2" <<<"$said" || true)\""
}
