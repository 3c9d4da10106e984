# Inside the sandbox of a demo: what demo/play and demo/scale-out/play share. `demo` is the folder of
# the samples, `port` that of the server which the functions ask.
# shellcheck shell=bash disable=SC2154

patience=60  # seconds without any progress after which a demo gives up waiting
years=(2012 2013)

sql() { mariadb --no-defaults -h127.0.0.1 -P"$port" -umidtable -psecret "$@"; }
now_ms() { echo $((${EPOCHREALTIME/[.,]/} / 1000)); }
step() { echo "--- $*"; }

set_up_databases() {  # set_up_databases ID...: what an operator makes before the first start
  local id year
  sql <"$demo/setup.sql"
  for id in "$@"; do
    sql -e "create database WLAN_$id"
    for year in "${years[@]}"; do sed "s/_YYYY/_$year/" "$demo/year_tables.sql" | sql "WLAN_$id"; done
  done
}

# Settings and definitions below ROOT, for the server at $port; OUT is the generator's folder. With
# delivery=described in the shell the settings have no such key.
configure() {  # configure ROOT OUT
  mkdir -p "$1/vqlog/log_data/midtable" "$1/virus/apache/rnweb/inc" "$1/etc/morvan"
  sed -e "s/^port=.*/port=$port/" -e 's/^password=.*/password=secret/' \
    "$demo/dbinfo.conf" >"$1/virus/apache/rnweb/inc/dbinfo.conf"
  if [ "${delivery:-once}" != once ]; then
    sed -i '/^delivery=/d' "$1/virus/apache/rnweb/inc/dbinfo.conf"
  fi
  cp "$demo"/{vqlog.xml,sqlldr_ctl.xml,devstate.ini} "$2/localtour.csv" "$1/etc/morvan"
}

# The registry reads its city checksums last: from then on it knows the local number blocks too.
wait_for_registry() {  # wait_for_registry CONSOLE PID, of the service's process
  local end=$((SECONDS + patience))
  until grep -qs 'crc is' "$1"; do
    if ! kill -0 "$2" 2>/dev/null || [ $SECONDS -ge $end ]; then
      tail -5 "$1"
      echo "The service did not come up."
      exit 1
    fi
    sleep 0.1
  done
}

# The names of all tables like $1 in the devices' databases.
tables_like() {
  sql -N -e "select concat(table_schema, '.', table_name) from information_schema.tables
             where table_schema like 'WLAN\\_%' and table_name like '$1' order by 1"
}

mem_tables_are_empty() {
  local found
  found=$(tables_like 'MEM\_%' | sed 's/.*/select 1 from & limit 1;/' | sql -N) && [ -z "$found" ]
}

# Every row of every mid table, in the form and order of the generator's expected.tsv, once sorted.
mid_rows() {
  tables_like 'T\_%' | sed -E "s/(.*)\.(.*)/select '\1', '\2', x.* from & x;/" | sql -N |
    LC_ALL=C sort
}
