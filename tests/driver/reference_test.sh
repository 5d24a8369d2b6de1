#!/bin/bash
# The reference pages in docs/reference are what the driver says of itself today.
. "$ORVO_SRC/tests/driver/lib.sh"

python3 "$ORVO_SRC/tools/reference.py" "$ORVO_BIN" reference >out 2>err
for page in reference/*.md; do
    cmp -s "$page" "$ORVO_SRC/docs/$page" || die "docs/$page is stale: run 'make update-docs'"
done
[ "$(ls reference)" = "$(ls "$ORVO_SRC/docs/reference")" ] || die "docs/reference holds other pages"
