#!/usr/bin/env bash
# The crash matrix: one day of mem files through the service, once undisturbed, then with the service or
# its database server killed before and after every statement that the service sends and every change
# that it makes to a file, one at a time. Each time what died is started again and the day is finished;
# then what waits is brought on as docs/operations.md says, and every mid table is compared.
#
#   bench/endurance/crash.sh PROGRAM [--short] [--only service|server|both] [--steps FROM-TO]
#     [--delivery once] [--far]
#
# PROGRAM is the built midtable; crash_at_call.so is taken from the same build. "both" is the server,
# and the service after it has given the server up. --short takes a part of the points. Prints a row for
# each kind of step: the worst of its points. Exit status 1 when a record is lost, or is counted twice
# elsewhere than between the commit and the emptying of the mem table. With --delivery once, the way of
# working that counts every row exactly once, any difference from the undisturbed day is a fault. --far
# puts 20 ms between service and server, which is then told whole batches at once.
# MIDTABLE_SERVER in the environment picks the server, as for tools/check-server.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

program=$(realpath "$1")
library=$(realpath "$(dirname "$program")/../../bench/endurance/crash_at_call.so")
shift
exec tools/sandbox /usr/bin/python3 bench/endurance/crash_matrix.py "$program" "$library" "$@"
