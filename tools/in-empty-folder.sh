#!/bin/bash
# in-empty-folder.sh FOLDER COMMAND...: empties FOLDER, or makes it, and runs COMMAND there. Tests use it so that none
# sees what an earlier run left behind.
set -euo pipefail

folder=$1
shift
# What a test has made read-only must not survive it.
[ ! -d "$folder" ] || chmod -R u+rwX "$folder"
rm -rf "$folder"
mkdir -p "$folder"
cd "$folder"
exec "$@"
