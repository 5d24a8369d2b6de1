#!/bin/bash
# An output file is whole or untouched, whatever happens while it is written.
. "$ORVO_SRC/tests/driver/lib.sh"

big_design big.xml 20000
run 0 opt big.xml -o whole.xml
echo old >old

# kill -9 at random moments spread over the whole run, whose length is measured.
began=$(date +%s%N)
run 0 opt big.xml -o whole.xml
length=$((($(date +%s%N) - began) / 1000))
for _ in $(seq 25); do
    cp old o.xml
    "$orvo" opt big.xml -o o.xml >out 2>err &
    pid=$!
    microseconds=$((RANDOM * length / 30000))
    sleep "$((microseconds / 1000000)).$(printf '%06d' $((microseconds % 1000000)))"
    kill -9 $pid 2>/dev/null || true
    wait $pid 2>/dev/null || true
    cmp -s o.xml old || cmp -s o.xml whole.xml || die "half an output after kill -9"
done

# A limit on the size of files stands for a full disk.
cp old o.xml
code=0
(
    ulimit -f 64
    exec "$orvo" opt big.xml -o o.xml >out 2>err
) || code=$?
[ "$code" -eq 2 ] || die "exit code $code at a full disk"
has err '[DRIVER_UNWRITABLE_FILE]'
same o.xml old
[ -z "$(find . -name '.orvo-*')" ] || die "a temporary file is left"
run 2 opt big.xml -o /dev/full
has err 'No space left on device'
code=0
"$orvo" stat big.xml >/dev/full 2>err || code=$?
[ "$code" -eq 2 ] || die "exit code $code for a full standard output"

# Places where no file can be made.
run 2 opt big.xml -o /proc/no/o.xml
run 2 opt big.xml -o no-such-folder/o.xml
has err "cannot write 'no-such-folder/o.xml': No such file or directory"
run 2 opt big.xml -o .
if [ "$(id -u)" -ne 0 ]; then
    mkdir closed
    cp old closed/o.xml
    chmod 555 closed
    run 2 opt big.xml -o closed/new.xml
    has err 'Permission denied'
    run 2 opt big.xml -o closed/o.xml
    same closed/o.xml old
    chmod 755 closed
elif setpriv --bounding-set=-dac_override true 2>/dev/null; then
    # The superuser without the right to pass over permissions.
    mkdir closed
    cp old closed/o.xml
    chmod 555 closed
    for target in closed/new.xml closed/o.xml; do
        code=0
        setpriv --bounding-set=-dac_override,-dac_read_search "$orvo" opt big.xml -o $target >out 2>err || code=$?
        [ "$code" -eq 2 ] || die "exit code $code in a folder that is read only"
        has err 'Permission denied'
    done
    same closed/o.xml old
    [ "$(ls closed)" = o.xml ] || die "a file is left"
    chmod 755 closed
fi

# A disk that is full, where one can be mounted.
if unshare -m true 2>/dev/null; then
    mkdir disk
    cp old o.xml
    # shellcheck disable=SC2016
    unshare -m bash -eu -c '
        mount -t tmpfs -o size=64k tmpfs disk || exit 77
        cp old disk/o.xml
        code=0
        "$0" opt big.xml -o disk/o.xml >out 2>err || code=$?
        [ "$code" -eq 2 ]
        cmp -s disk/o.xml old
        [ "$(ls -A disk)" = o.xml ]
    ' "$orvo" || [ $? -eq 77 ] || die "a full disk"
fi
run 2 opt big.xml --dump-dir old -p DeadBlockPass
run 2 opt big.xml --time-json no-such-folder/t.json
run 2 opt big.xml --time-trace no-such-folder/t.json

# A link is followed, a file may be written over its own input, and its permissions stay.
mkdir -p other
cp big.xml other/real.xml
chmod 640 other/real.xml
ln -s other/real.xml link.xml
run 0 opt link.xml -o link.xml
[ -L link.xml ] || die "the link was replaced"
same other/real.xml whole.xml
[ "$(stat -c %a other/real.xml)" = 640 ] || die "the permissions changed"

# Pipes work on both sides.
"$orvo" opt big.xml -o - | "$orvo" opt - -o piped.xml
same piped.xml whole.xml
mkfifo fifo
"$orvo" opt big.xml -o fifo &
cat fifo >through.xml
wait $!
same through.xml whole.xml
