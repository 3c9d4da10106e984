# Around the sandbox of a demo: run-demo and demo/scale-out/run source this with these set:
#
#   project  the project's folder
#   name     the command's own, for messages
#   run      its folder below build/
# shellcheck shell=bash disable=SC2154
set -euo pipefail
cd "$project"  # the sandbox may hide the folder that one comes from

build=$project/build/demo
lock=$project/build/demo-run.lock

step() { echo "--- $*"; }

fail() {
  echo "$name: $*" >&2
  exit 1
}

check_rows() {
  if ! [[ $1 =~ ^[1-9][0-9]{3,7}$ ]]; then fail "--rows takes a number from 1000 to 99999999"; fi
}

quietly() {  # quietly WHAT COMMAND...: its output only if it fails
  local what=$1 log=$run/setup.log
  shift
  step "$what"
  "$@" >"$log" 2>&1 9>&- || { cat "$log" >&2; fail "this failed: $*"; }
}

# The processes in the sandbox inherit the lock: it is free when the last of them is gone.
take_lock() {
  mkdir -p "$project/build"
  exec 9>"$lock"
  flock -n 9 || fail "another demo is at work in this folder"
}

# Has `clean_up` called at the end, when nothing of the demo runs any more.
end_with_clean_up() {
  trap 'end_all; clean_up' EXIT
  trap 'echo; echo "$name: interrupted" >&2; exit 130' INT TERM
}

# shellcheck disable=SC2317  # called by the trap
end_all() {
  trap '' INT TERM
  # Whatever runs in the sandbox ends with it.
  local job
  for job in $(jobs -p); do kill "$job" 2>/dev/null || true; done
  wait
  exec 9>"$lock"
  flock -w 20 9 || true
  rm -f "$run/setup.log"
}

install_and_build() {  # install_and_build GROUP, of packages
  quietly "Installing packages" "$project/tools/install-packages" "$1"
  quietly "Building (Release, in build/demo)" sh -c "
    cmake -S '$project' -B '$build' -DCMAKE_BUILD_TYPE=Release -DMIDTABLE_TESTS=OFF &&
    cmake --build '$build' --target midtable -j'$(nproc)'"
}

# In the background, so that a signal is acted on at once.
in_sandbox() {
  "$project/tools/sandbox" "$@" &
  wait $!
}
