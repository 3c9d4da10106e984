# What the private-... scripts have in common; they source it with their arguments. Each then sets
# `product`, defines
#
#   prepare FOLDER           makes a fresh data folder
#   version                  the server's version, as part of a file name
#   launch [OPTION]...       becomes the server, on $port, with its data in $folder/data
#   answers                  whether the server does
#   sql STATEMENT            runs it and prints its rows
#
# and ends with `act`.
# shellcheck shell=bash disable=SC2034,SC2154
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
usage="usage: $0 start|wait|stop|kill|sql FOLDER [ARGUMENT]..."
verb=${1:?$usage}
folder=$(realpath -m "${2:?$usage}")
shift 2
arguments=("$@")

# A data folder is prepared once per server version and copied from then on. Whoever comes first
# puts it into place with one rename; others throw theirs away.
copy_prepared_data() {
  local prepared mine
  prepared=$project/build/servers/$product-$(version)
  if [ ! -d "$prepared" ]; then
    mkdir -p "$project/build/servers"
    mine=$(mktemp -d "$prepared.XXXXXX")
    if ! prepare "$mine" >"$folder/prepare.log" 2>&1; then
      cat "$folder/prepare.log" >&2
      rm -rf "$mine"
      return 1
    fi
    mv -T --no-clobber "$mine" "$prepared" 2>/dev/null || true
    rm -rf "$mine"
  fi
  cp -r "$prepared" "$folder/data.new"
  mv -T "$folder/data.new" "$folder/data"
}

alive() { [ -s "$folder/pid" ] && kill -0 "$(cat "$folder/pid")" 2>/dev/null; }

wait_until_it_answers() {
  local end=$((SECONDS + 60))
  port=$(cat "$folder/port")
  while alive && [ $SECONDS -lt $end ]; do
    if answers >/dev/null 2>&1 && alive; then return 0; fi
    sleep 0.05
  done
  return 1
}

start() {
  local new_port=1 attempt
  mkdir -p "$folder"
  if alive; then echo "$product is already running in $folder" >&2; return 1; fi
  if [ ! -d "$folder/data" ]; then copy_prepared_data; fi
  if [ -s "$folder/port" ]; then new_port=0; fi
  for attempt in 1 2 3 4 5; do
    # Below the ports that the kernel gives away. One that is taken ends the server, and the next
    # attempt takes another.
    if [ $new_port = 1 ]; then echo $((RANDOM % 20000 + 10000)) >"$folder/port"; fi
    port=$(cat "$folder/port")
    launch "$@" >>"$folder/error.log" 2>&1 </dev/null &
    echo $! >"$folder/pid"
    if wait_until_it_answers; then echo "$port"; return 0; fi
    end "${kill_signal:--KILL}"
    if [ $new_port = 0 ]; then break; fi
    rm "$folder/port"
  done
  echo "$product does not start in $folder:" >&2
  tail -20 "$folder/error.log" >&2
  return 1
}

end() {
  if alive; then
    kill "$1" "$(cat "$folder/pid")"
    local end=$((SECONDS + 60))
    while alive; do
      if [ $SECONDS -ge $end ]; then echo "$product in $folder does not end" >&2; return 1; fi
      sleep 0.05
    done
  fi
  rm -f "$folder/pid"
}

act() {
  case $verb in
    start) start "${arguments[@]}" ;;
    wait) wait_until_it_answers ;;
    stop) end "${stop_signal:--TERM}" ;;
    kill) end "${kill_signal:--KILL}" ;;
    sql) port=$(cat "$folder/port"); sql "${arguments[0]:?$usage}" ;;
    *) echo "$usage" >&2; exit 2 ;;
  esac
}
