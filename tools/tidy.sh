#!/bin/bash
# tidy.sh BUILD [PATTERN]: runs clang-tidy with .clang-tidy over the sources of the library and the driver, with the
# compile commands of the build folder BUILD. PATTERN, a regular expression, picks sources by path.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:?usage: tidy.sh BUILD [PATTERN]}
pattern=${2-.}
git ls-files --cached --others --exclude-standard -- 'src/*.cpp' | grep -E "$pattern" |
    xargs -P "$(nproc)" -n 1 clang-tidy-14 --quiet -p "$build"
