#!/bin/bash
# Numbers read and write alike in a program that takes its locale from the environment: with a comma for a point, and with
# marks between thousands.
. "$ORVO_SRC/tests/driver/lib.sh"

mkdir locales
localedef -i de_DE -f UTF-8 locales/de_DE.UTF-8 || exit 77
export LOCPATH=$PWD/locales
# The C library never gives back what it keeps of that path.
echo 'leak:argz_add_sep' >suppressions
export LSAN_OPTIONS=suppressions=$PWD/suppressions
[ "$(LC_ALL=de_DE.UTF-8 locale decimal_point)" = , ] || die "the locale has no comma"
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="m">\n' "$namespace"
    count=0
    for number in 1234567 -98765432109876543210 1.8 0x1.8p-4 -0x123456789abcdef.fp+40 0x1p-2000; do
        count=$((count + 1))
        block "b$count" constBlock "$(param constValue "$number")<wire name=\"1000000\"/>"
    done
    block many addBlock "$(param key '(0 ^12345)')"
    printf '</model></design></kelmar>\n'
} >in.xml
LC_ALL=C "$ORVO_BIN_DIR/relocale" <in.xml >plain.xml
has plain.xml 1234567
LC_ALL=de_DE.UTF-8 "$ORVO_BIN_DIR/relocale" <in.xml >german.xml
same plain.xml german.xml
LC_ALL=de_DE.UTF-8 "$ORVO_BIN_DIR/relocale" <german.xml >again.xml
same plain.xml again.xml

# The driver's own texts and documents do not change either.
for verb in 'stat plain.xml' 'stat plain.xml --json' 'types plain.xml' 'opt plain.xml --stats -p DeadBlockPass'; do
    # shellcheck disable=SC2086
    run 0 $verb
    mv out first
    # shellcheck disable=SC2086
    LC_ALL=de_DE.UTF-8 run 0 $verb
    same out first
done
