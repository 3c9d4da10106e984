#!/usr/bin/env bash
# Years of running in minutes: the service itself, in a sandbox with a private MariaDB server, with
# nothing changed but the length of its pauses.
#
#   bench/endurance/soak.sh PROGRAM             100,000 idle passes, 20,000 files, 2,000 lost connections: memory,
#                                     descriptors and threads must stay as they were; minutes
#   bench/endurance/soak.sh PROGRAM --short     the same, a hundredth of it
#   bench/endurance/soak.sh PROGRAM --log-size  what each repeating error writes into the run log, at the real
#                                     pace; minutes
#   bench/endurance/soak.sh PROGRAM ... --delivery once
#                                     each of them for the way that counts every row exactly once: 60,000 files and
#                                     100 lost connections, and the ledgers must stay small
#
# PROGRAM is the built midtable; short_pauses.so is taken from the same build. Exit status 1 when
# something grew or a row is missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

program=$(realpath "$1")
library=$(realpath "$(dirname "$program")/../../bench/endurance/short_pauses.so")
shift
exec tools/sandbox /usr/bin/python3 bench/endurance/soak.py "$program" "$library" "$@"
