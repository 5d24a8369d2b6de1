#!/bin/bash
# What the documents show of commands is what these print today.
. "$ORVO_SRC/tests/driver/lib.sh"

python3 "$ORVO_SRC/tools/outputs.py" --check "$ORVO_BIN" "$ORVO_SRC/docs/beamformer.md" >out 2>err || die "stale"

# A stale page is told, and renewed.
mkdir docs
sed 's/^ *[0-9]*  Flatten.*$/changed/' "$ORVO_SRC/docs/beamformer.md" >docs/page.md
code=0
python3 "$ORVO_SRC/tools/outputs.py" --check "$ORVO_BIN" docs/page.md >out 2>err || code=$?
[ "$code" -eq 1 ] || die "a stale page passes"
has err "docs/page.md is stale: run 'make update-docs'"
has docs/page.md changed
python3 "$ORVO_SRC/tools/outputs.py" "$ORVO_BIN" docs/page.md
same docs/page.md "$ORVO_SRC/docs/beamformer.md"
