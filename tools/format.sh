#!/bin/bash
# format.sh [--check]: formats the C++ files of this tree, or with --check says which are not formatted and fails.
# The *.def tables are laid out by hand; so are the regions marked "clang-format off".
set -euo pipefail
cd "$(dirname "$0")/.."

formatter=clang-format-14
mapfile -d '' files < <(git ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h')
present=()
for file in "${files[@]}"; do
    [ ! -f "$file" ] || present+=("$file")
done
[ ${#present[@]} -gt 0 ] || exit 0

if [ "${1-}" = --check ]; then
    if ! printf '%s\0' "${present[@]}" | xargs -0 -P "$(nproc)" -n 40 "$formatter" --dry-run --Werror -ferror-limit=1; then
        echo "Some files are not formatted; mend them with: make format" >&2
        exit 1
    fi
    echo "${#present[@]} files are formatted"
else
    printf '%s\0' "${present[@]}" | xargs -0 -P "$(nproc)" -n 40 "$formatter" -i
fi
