#!/bin/bash
# run-tests.sh PRESET [CTEST OPTIONS]: runs the tests of a built preset and ends with a line that counts them. Fails when
# a test failed, or when there was none.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:?usage: run-tests.sh PRESET [CTEST OPTIONS]}
shift
log=build/$preset/tests.log

result=0
ctest --preset "$preset" --no-label-summary --no-tests=error -j"$(nproc)" "$@" 2>&1 | tee "$log" || result=$?

# ctest's own summary, "N% tests passed, F tests failed out of T", is the source of the closing line.
summary=$(sed -nE 's/.* ([0-9]+) tests failed out of ([0-9]+)$/\1 \2/p' "$log" | tail -1)
read -r failed total <<<"${summary:-0 0}"
echo "$((total - failed)) passed, $failed failed" | tee "build/$preset/tests.count"
exit "$result"
