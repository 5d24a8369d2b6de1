#!/bin/bash
# Runs the tests again and again, each time with other designs by chance, until the minutes are over or one fails.
#   tools/soak.sh [-b BUILD] [-s SEED] [-f FILTER] MINUTES
# SEED is the first seed, by default the time; each turn takes the next. FILTER tells Google Test what to run.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/release
seed=$(date +%s)
filter='*'
while getopts b:s:f: option; do
    case $option in
    b) build=$OPTARG ;;
    s) seed=$OPTARG ;;
    f) filter=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))
[[ ${1:-} =~ ^[0-9]+$ ]] || { sed -n '2,4s/^# //p' "$0" >&2; exit 2; }

log=$(mktemp)
trap 'rm -f "$log"' EXIT
end=$((SECONDS + 60 * $1))
first=$seed
while ((SECONDS < end)); do
    if ! RC_PARAMS="${RC_PARAMS:-} seed=$seed" "$build/bin/orvo_tests" --gtest_brief=1 --gtest_filter="$filter" >"$log" 2>&1; then
        cat "$log"
        echo "seed $seed fails: RC_PARAMS=\"${RC_PARAMS:-} seed=$seed\" $build/bin/orvo_tests --gtest_filter='$filter'"
        exit 1
    fi
    seed=$((seed + 1))
done
echo "seeds $first to $((seed - 1)) pass"
