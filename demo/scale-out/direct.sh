# Part of play: four appliances whose rows go to one server, once by loading into it over TLS, once by
# replication from servers of their own; and what each of the two costs.
# shellcheck shell=bash disable=SC1091,SC2154
source "$demo/../bench/speed/timing.sh"
source "$here/replication.sh"

direct() {
  local appliances=(a b c d) tls=$folder/direct/tls
  make_authority
  add_appliances
  load_directly
  stage=$folder/replicated
  replicate_four
  show_costs
}

# The authority of all of the play, and a certificate of it for the address of all servers here.
make_authority() {
  mkdir -p "$tls"
  (
    cd "$tls" || exit
    openssl req -x509 -newkey rsa:3072 -nodes -days 30 -subj "/CN=authority of the play" \
      -keyout authority.key -out authority.pem
    openssl req -newkey rsa:3072 -nodes -subj "/CN=store" -keyout server.key -out server.csr
    openssl x509 -req -in server.csr -CA authority.pem -CAkey authority.key -CAcreateserial -days 30 \
      -extfile <(echo "subjectAltName=IP:127.0.0.1") -out server.pem
  ) >"$tls/openssl.txt" 2>&1
  with_tls=(--ssl-cert="$tls/server.pem" --ssl-key="$tls/server.key" --ssl-ca="$tls/authority.pem")
}

# c and d have the files of a and b, under ids of their own.
add_appliances() {
  local old new file pair
  ids+=([c]=9c8d7e6f [d]=0f1e2d3c)
  for pair in a:c b:d; do
    old=${ids[${pair%:*}]} new=${ids[${pair#*:}]}
    mkdir -p "$sample/spool/$new"
    for file in "$sample/spool/$old"/*.dat; do
      ln "$file" "$sample/spool/$new/$new${file##*/"$old"}"
    done
    sed -n "s/^WLAN_$old/WLAN_$new/p" "$sample/expected.tsv" >>"$sample/more.tsv"
  done
  cat "$sample/more.tsv" >>"$sample/expected.tsv"
}

# --- directly

load_directly() {
  step "Directly: four appliances load into one server over TLS"
  local machine
  start_server store plain 0 "${with_tls[@]}"
  use store
  set_up_databases "${ids[@]}"
  for machine in "${appliances[@]}"; do
    make_login "$machine"
    configure "$stage/$machine" "$sample"
    use_login "$machine"
    start_service "$machine"
  done
  try_the_logins
  measure direct midtable store
  for machine in "${appliances[@]}"; do stop_service "$machine"; done
  compare store "${appliances[@]}"
  stop_servers store
}

# In the name of a database that is granted "_" would stand for any character.
make_login() {  # make_login APPLIANCE: of its own databases only
  query store "create user appliance_$1@'%' identified by 'secret' require ssl;
               grant select, insert, update, delete, create, drop on \`WLAN\\_${ids[$1]}\`.* to appliance_$1@'%';
               grant select on vqcfg.* to appliance_$1@'%';
               grant select on \`WLAN\\_TUNE\`.* to appliance_$1@'%'"
}

use_login() {  # use_login APPLIANCE
  local settings=$stage/$1/virus/apache/rnweb/inc/dbinfo.conf
  sed -i "s/^user=.*/user=appliance_$1/" "$settings"
  echo "client_options=/etc/morvan/client.cnf" >>"$settings"
  cp "$tls/authority.pem" "$stage/$1/etc/morvan"
  printf '[midtable]\nssl-ca=/etc/morvan/authority.pem\n' >"$stage/$1/etc/morvan/client.cnf"
}

as_appliance() {  # as_appliance APPLIANCE OPTION...
  mariadb --no-defaults -h127.0.0.1 -P"$(cat "$stage/store/server/port")" -u"appliance_$1" -psecret -rN "${@:2}"
}

# What an appliance's login may do, and that it may do nothing else.
try_the_logins() {
  local verify=(--ssl-ca="$tls/authority.pem" --ssl-verify-server-cert) other=WLAN_${ids[b]} statement
  as_appliance a "${verify[@]}" -e "show grants; select concat('speaks ', variable_value)
    from information_schema.session_status where variable_name = 'ssl_version'" |
    sed -E "s/ IDENTIFIED BY .*REQUIRE/ ... REQUIRE/; s/^/    /"
  must_fail a "Access denied" --skip-ssl -e "select 'in the clear'"
  for statement in "select * from $other.T_FLOW1Y_2012" "insert into $other.T_AUTH1Y_2012 values (1, 1, 1)" \
    "create table $other.mine (n int)" "drop database $other" "create database WLANx${ids[a]}" \
    "insert into WLAN_TUNE.T_AUTH1M_201212 values (1, 1, 1)" "update vqcfg.EnterpriseUser set crc = 1" \
    "set global read_only = 1"; do
    must_fail a "denied" "${verify[@]}" -e "$statement"
  done
}

must_fail() {  # must_fail APPLIANCE REASON OPTION...
  local said
  if said=$(as_appliance "$1" "${@:3}" 2>&1); then
    problems+=("appliance $1 may: ${*:3}")
  elif [[ $said != *"$2"* ]]; then
    problems+=("appliance $1 was refused for another reason: $said")
  else
    echo "    refused: ${*: -1}"
  fi
}

# --- by replication

replicate_four() {
  step "By replication: each of the four loads into a server of its own, and the store fetches over TLS"
  local machine number=0
  start_server store store 100
  for machine in "${appliances[@]}"; do
    number=$((number + 1))
    start_server "$machine" appliance $number "${with_tls[@]}"
    fetch_from "$machine" "master_ssl = 1, master_ssl_ca = '$tls/authority.pem', master_ssl_verify_server_cert = 1,"
    use "$machine"
    set_up_databases "${ids[$machine]}"
    configure "$stage/$machine" "$sample"
    start_service "$machine"
  done
  measure replication mariadbd "${appliances[@]}"
  for machine in "${appliances[@]}"; do stop_service "$machine"; done
  compare store "${appliances[@]}"
  stop_servers store "${appliances[@]}"
}

# --- what it costs

# "The line" is what PROCESS has connected to the servers of the MACHINEs.
measure() {  # measure NAME PROCESS MACHINE...
  local name=$1 line=("${@:2}") begin machine
  begin=$(reading)
  feed a '*_[02][048]00?-*'
  for machine in b c d; do feed "$machine" '*.dat'; done
  for machine in "${appliances[@]}"; do
    wait_until "$machine has counted all" has_none_waiting "$machine"
  done
  wait_until "the store has all" has_arrived
  echo "$begin $(reading) $(cat "$stage"/*/vqlog/log_data/midtable/*/*.mid | wc -lc)" >"$folder/$name.all"
  begin=$(reading)
  deliver_singly '*_1[26]00F-*'
  wait_until "the store has all" has_arrived
  echo "$begin $(reading) $(cat "$(spool a)"/*_1[26]00F-*.mid | wc -lc)" >"$folder/$name.single"
  time_files '*_1[26]00A-*'
}

reading() { echo "$(now_ms) $(line_bytes) $(cpu_of_appliances) $(cpu_of store)"; }

has_arrived() {
  local machine
  for machine in "${appliances[@]}"; do
    if [ ! -s "$stage/$machine/server/port" ]; then continue; fi
    [ "$(query store "select master_gtid_wait('$(query "$machine" 'select @@gtid_binlog_pos')', $patience)")" = 0 ] ||
      return 1
  done
}

# Both ways, as TCP carries them: with TLS, without the headers of packets.
line_bytes() {
  local machine
  for machine in "${line[@]:1}"; do ss -tinpOH "dport = :$(cat "$stage/$machine/server/port")"; done |
    grep "\"${line[0]}\"" | grep -oE 'bytes_(sent|received):[0-9]+' |
    awk -F : '{ sum += $2 } END { print sum + 0 }'
}

cpu_of_appliances() {
  local machine pids=()
  for machine in "${appliances[@]}"; do
    pids+=("$(cat "$stage/$machine/tmp/midtable.pid")")
    if [ -s "$stage/$machine/server/pid" ]; then pids+=("$(cat "$stage/$machine/server/pid")"); fi
  done
  cpu_seconds "${pids[@]}"
}
cpu_of() { cpu_seconds "$(cat "$stage/$1/server/pid")"; }

# Files of a, each when nothing else is to be done.
deliver_singly() {  # deliver_singly PATTERN
  local file
  for file in "$sample/spool/${ids[a]}"/$1; do
    feed a "${file##*/}"
    wait_until "the file is counted" has_none_waiting a
  done
}

# The same, from the moment at which the file appears to that at which the store has its rows. The session
# that looks costs as much as what it looks for, so this is apart from the above.
time_files() {  # time_files PATTERN
  local file table waiter begun
  for file in "$sample/spool/${ids[a]}"/$1; do
    file=${file##*/}
    table=WLAN_${ids[a]}.T_AUTH1D_${file:13:8}
    query store $'delimiter //\n'"begin not atomic
      declare had bigint default (select sum(attempts) from $table);
      while (select sum(attempts) from $table) = had do do sleep(0.002); end while;
    end//" &
    waiter=$!
    wait_until "the store is watched" is_watched
    begun=$(now_ms)
    feed a "$file"
    wait $waiter
    echo $(($(now_ms) - begun)) >>"$folder/$name.times"
  done
}
is_watched() {
  [ "$(query store "select count(*) from information_schema.processlist where state = 'User sleep'")" != 0 ]
}

# Fields of each note: time, bytes on the line, processor time of the appliances and of the store, before
# and after; lines and bytes of the files.
show_costs() {
  local name rounds=14
  step "What it costs: all files at once, and $rounds by themselves"
  printf '    %-12s %16s %9s %21s %8s %21s %8s\n' "" "bytes on line" "all" "ms of processor for" "rows of" \
    "ms of processor for" "ms until"
  printf '    %-12s %16s %9s %21s %8s %21s %8s\n' "" "all, by itself" "files" "1000 rows appl+store" "a file" \
    "one file  appl+store" "counted"
  for name in direct replication; do
    paste -d ' ' "$folder/$name".{all,single} |
      awk -v name="$name" -v files=$rounds -v delay="$(median "$name")" '{
        printf "    %-12s %9.2f %6.2f %7.1f s %14.1f %6.1f %8d %14.1f %6.1f %8d\n", name, ($6 - $2) / $10,
          ($16 - $12) / $20, ($5 - $1) / 1000, 1e6 * ($7 - $3) / $9, 1e6 * ($8 - $4) / $9, $19 / files,
          1e3 * ($17 - $13) / files, 1e3 * ($18 - $14) / files, delay
      }'
  done
}
