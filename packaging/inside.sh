# Sourced by packaging/check, packaging/check-remote and packaging/check-documents: a copy of this machine's
# files that vanishes afterwards, and the proof that the installed service counts a file.
# shellcheck shell=bash

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
spool=/vqlog/log_data/midtable

step() { echo "--- $*"; }
fail() {
  echo "packaging/$(basename "$0"): $*" >&2
  exit 1
}

# Runs the calling script again, with --inside and the package, where all of / can be written and
# nothing stays.
go_inside() {
  unshare --mount -- bash -euc '
    mount -t tmpfs tmpfs /mnt
    mkdir /mnt/upper /mnt/work /mnt/root
    mount -t overlay overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work /mnt/root
    exec bwrap --bind /mnt/root / --dev /dev --proc /proc --tmpfs /run --tmpfs /tmp --tmpfs /vqlog \
      --tmpfs /virus --tmpfs /etc/morvan --ro-bind "$1" "$1" --bind "$1/build" "$1/build" \
      --unshare-net --unshare-pid --die-with-parent --cap-add ALL --chdir / \
      "$1/packaging/$2" --inside "$3"' - "$project" "$(basename "$0")" "$1"
}

await() {  # await WHAT COMMAND...
  local end=$((SECONDS + 20)) what=$1
  shift
  until "$@"; do
    if [ $SECONDS -ge $end ]; then
      tail -n 20 /vqlog/log/midtable/*.log
      midtablectl why || true
      fail "waited in vain until $what"
    fi
    sleep 0.1
  done
}

# Its row is of the year 2012.
load_mem_file() {
  local file=$spool/1a2b3c4d/1a2b3c4d-MEM_20121230_0800F-20121230-080000 fields=(1000000 800138000
    '2012-12-30 02:01:07' 1059 10.41.143.78 68:ed:3d:00:d1:34 ap-103 staff web 5 6)
  (IFS=$'\t'; echo "${fields[*]}") >$file.tmp
  mv $file.tmp $file.dat
  await "the file is loaded" test -e $file.mid
}

# The calling script has a function "sql" by then.
day_is_counted() { [ "$(sql 'select sum(sessions) from WLAN_1a2b3c4d.T_FLOW1D_20121230')" = 1 ]; }

start_service() {
  midtable
  /usr/libexec/midtable/find-main-process /tmp/pid
}

end_service() {
  kill -INT "$(cat /tmp/pid)"
  await "the service has ended" test ! -e /tmp/midtable.lock
}
