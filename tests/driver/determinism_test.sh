#!/bin/bash
# The same input gives the same bytes: under randomised addresses (of the pooled objects and of all others), other
# locales and other folders.
. "$ORVO_SRC/tests/driver/lib.sh"

# The hardened allocator cannot stand beside a sanitizer's.
[ -z "${ORVO_SANITIZE-}" ] || exit 77
allocator=$(ls "$(clang-14 -print-resource-dir 2>/dev/null)"/lib/linux/libclang_rt.scudo_standalone-x86_64.so 2>/dev/null |
    head -n 1)
[ -n "$allocator" ] || exit 77

passes='AggressiveDeadBlockPass, DeadModelPass, ElideTerminalPass, ElideUnpackPass'
cp "$ORVO_SRC"/examples/*.xml .
for example in *.xml; do
    run 0 opt "$example" -o "$example.first" --passes "$passes"
done

locales=(C POSIX C.UTF-8 $(locale -a | grep -v -E '^(C|POSIX|C\.utf8)$' | head -n 3))
for round in $(seq 20); do
    mkdir -p "folder$round"
    locale=${locales[$((round % ${#locales[@]}))]}
    for example in *.xml; do
        (
            cd "folder$round"
            LD_PRELOAD=$allocator SCUDO_OPTIONS=delete_size_mismatch=0 LC_ALL=$locale \
                "$orvo" opt "../$example" -o "$example" --passes "$passes" \
                --feature SHUFFLE_ADDRESSES="$round" >out 2>err
        ) || die "round $round with locale $locale failed on $example"
        same "folder$round/$example" "$example.first"
    done
done

run 0 stat select_lut.xml --json
mv out stat.first
LC_ALL=C.UTF-8 LD_PRELOAD=$allocator run 0 stat select_lut.xml --json
same out stat.first
