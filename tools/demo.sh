#!/bin/bash
# The main job of orvo on a shipped design, step by step: look at it, verify it, remove what is dead, write it back.
set -euo pipefail
cd "$(dirname "$0")/.."

orvo=${ORVO_BIN:-build/release/bin/orvo}
input=examples/select_lut.xml
folder=build/demo
output=$folder/out.xml
mkdir -p "$folder"

step() {
    printf '\n== %s\n' "$1"
    shift
    printf '$ %s\n' "$*"
    "$@"
}

step "What the shipped design holds" "$orvo" stat "$input"
step "Is it a correct design by the block catalogue?" "$orvo" check "$input"
step "Remove dead blocks, and models that nobody refers to" \
    "$orvo" opt "$input" -o "$output" --passes 'AggressiveDeadBlockPass, DeadModelPass' --stats --time
step "What is left of it" "$orvo" stat "$output"
step "Still a correct design?" "$orvo" check "$output"
printf '\nThe design before: %s\nThe design after:  %s\n' "$input" "$output"
