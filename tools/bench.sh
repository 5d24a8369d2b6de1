#!/bin/bash
# bench.sh BUILD: runs the micro-benchmarks, and then every bench/*.sh and bench/*.py report against the programs of
# BUILD, each of which prints its own table.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
export ORVO_BIN=$PWD/$build/bin/orvo ORVO_BIN_DIR=$PWD/$build/bin

"$build/bin/orvo_bench"
shopt -s nullglob
for report in bench/*.sh; do
    bash "$report"
done
for report in bench/*.py; do
    python3 "$report"
done
