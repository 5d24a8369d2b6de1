#!/bin/bash
# The figures of docs/performance.md as a table: every phase at three sizes, up to a million blocks.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$ORVO_BIN_DIR/tool_phases" "${1:-1000000}" "$scratch"
"$ORVO_BIN_DIR/tool_types" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_domains" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_constraints" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_metadata" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_flatten" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_unroll" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_validate" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_primitives" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_sim" "${1:-1000000}"
"$ORVO_BIN_DIR/tool_lower" "$((${1:-1000000} / 10))"
"$ORVO_BIN_DIR/tool_multipliers" "$((${1:-1000000} / 10))"
