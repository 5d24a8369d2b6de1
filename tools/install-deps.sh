#!/bin/bash
# Installs what building and testing orvo needs, on Debian 12. Says and does nothing when all of it is there.
set -euo pipefail

packages=(
    # Building
    g++ cmake ninja-build pkg-config ccache lld
    libgmp-dev libmpfr-dev libxerces-c-dev libfmt-dev libcli11-dev nlohmann-json3-dev
    # Testing and measuring
    libgtest-dev libgmock-dev librapidcheck-dev libbenchmark-dev python3 git zsh locales iverilog verilator
    # Sanitizers, fuzzing, formatting
    clang-14 libclang-rt-14-dev llvm-14 clang-format-14 clang-tidy-14
)

if ! command -v dpkg-query >/dev/null; then
    echo "This is not a Debian system; install by hand what these packages hold: ${packages[*]}" >&2
    exit 0
fi

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "Installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "Installing packages needs root or sudo" >&2; exit 1; }
    as_root=(sudo)
fi
"${as_root[@]}" apt-get update -q </dev/null
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null
