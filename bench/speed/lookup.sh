#!/usr/bin/env bash
# bench/speed/lookup.sh PROGRAM: what one lookup of a number block costs. PROGRAM is the built lookup_bench.
set -euo pipefail
exec "$1" 2>/dev/null
