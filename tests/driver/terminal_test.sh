#!/bin/bash
# On a terminal messages have colour and long work a progress line; elsewhere there is neither. Shell completion.
. "$ORVO_SRC/tests/driver/lib.sh"

write_design d.xml

# on_terminal ARGUMENTS...: runs the driver with standard error on a terminal, which is kept in the file "err". Standard
# input gets the design only after a while.
on_terminal() {
    python3 - "$orvo" "$@" <<'PY'
import os, pty, subprocess, sys, time
master, slave = pty.openpty()
child = subprocess.Popen(sys.argv[1:], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=slave)
os.close(slave)
if "-" in sys.argv[1:]:
    time.sleep(1.8)
    child.stdin.write(open("d.xml", "rb").read())
child.stdin.close()
text = b""
while True:
    try:
        piece = os.read(master, 4096)
    except OSError:
        break
    if not piece:
        break
    text += piece
child.wait()
open("err", "wb").write(text)
PY
}

unset NO_COLOR
export TERM=xterm
on_terminal opt no-such-file
has err "$(printf '\033[1;31merror:\033[0m')"
NO_COLOR=1 on_terminal opt no-such-file
lacks err "$(printf '\033')"
TERM=dumb on_terminal opt no-such-file
lacks err "$(printf '\033')"
run 2 opt no-such-file
lacks err "$(printf '\033')"

on_terminal opt -
has err 'reading (1 s)'
on_terminal opt d.xml
empty err
(
    sleep 1.5
    cat d.xml
) | "$orvo" opt - 2>err
empty err

# The scripts load, know every verb and option, and answer.
run 0 completion bash
cp out completion.bash
bash -n completion.bash
run 0 completion zsh
has out '#compdef orvo'
run 0 completion bash --json
json out 'd["schema"] == "orvo.completion/1" and d["shell"] == "bash" and "_orvo" in d["script"]'
# complete_line WORDS...: the answers for the last word.
complete_line() {
    bash -c '. ./completion.bash
complete -p orvo >/dev/null
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_orvo
printf "%s\n" "${COMPREPLY[@]}"' bash "$@" >out
}
complete_line orvo ''
for verb in opt check stat passes blocks explain version completion; do grep -qx $verb out || die "no $verb"; done
complete_line orvo opt --ver
grep -qx -- --verify-each out || die "no option"
complete_line orvo opt d.xml --passes Elide
grep -qx ElideTerminalPass out || die "no pass"
complete_line orvo opt d.xml --passes DeadBlockPass,ElideT
grep -qx DeadBlockPass,ElideTerminalPass out || die "no pass in a list"
complete_line orvo passes Dump
grep -qx DumpXMLPass out || die "no pass for passes"
complete_line orvo blocks A_ADD_B
grep -qx A_ADD_BLOCK out || die "no block"
complete_line orvo explain ERR_MALF
grep -qx ERR_MALFORMED_XML out || die "no tag"
complete_line orvo check d.x
grep -qx d.xml out || die "no file"
complete_line orvo completion z
grep -qx zsh out || die "no shell"
