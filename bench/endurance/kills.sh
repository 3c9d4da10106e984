#!/usr/bin/env bash
# delivery=once under random kills: while files of four databases arrive, the service, its server and
# its connections are killed in turns and started again. In the end every row must be counted once.
#
#   bench/endurance/kills.sh PROGRAM [--short] [--seeds N,N...] [--workers N]
#
# PROGRAM is the built midtable. --short takes one seed and fewer files; --workers is that of the
# settings, 1 without it. Prints a row for each seed. Exit status 1 when a row is lost or counted twice,
# a file is no .mid, or a mem table holds rows.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

program=$(realpath "$1")
shift
exec tools/sandbox /usr/bin/python3 bench/endurance/kills.py "$program" "$@"
