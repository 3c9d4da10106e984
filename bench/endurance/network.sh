#!/usr/bin/env bash
# delivery=once over a bad network: between the service and its server stands a line that is far too
# long, resets connections at random, ends them in the middle of a packet, swallows answers for good, and
# lets nothing pass for 20 seconds. Every row must be counted once, and after each fault the files must
# be through within the stated time-outs.
#
#   bench/endurance/network.sh PROGRAM [--short | --distance] [--seeds N,N...] [--round-trip MILLISECONDS]
#
# PROGRAM is the built midtable. The long form begins with what distance costs: the time for 2 databases
# of 1,000 files of 100 rows over the line with a round trip of 50 ms, beside that over the same line
# without, each with 1 and with 2 workers. --short is one seed with few faults, 12 seconds of nothing, and
# no such measurement; --distance is that measurement alone.
#
# Exit status 1 when a row is lost or counted twice, a file is no .mid, a mem table holds rows, a fault
# held files up for too long, or the distance costs too much.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

program=$(realpath "$1")
shift
exec tools/sandbox /usr/bin/python3 bench/endurance/network.py "$program" "$@"
