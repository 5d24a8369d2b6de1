#!/bin/bash
# Completion in real shells: each line is typed on a terminal, and what the command got is compared.
. "$ORVO_SRC/tests/driver/lib.sh"

write_design d.xml
cp d.xml 'my design.xml'
mkdir sub
cp d.xml sub/inner.xml
echo DeadBlockPass >list.txt
for shell in bash zsh; do
    run 0 completion $shell
    cp out script.$shell
done
mkdir functions
cp script.zsh functions/_orvo

# typed SHELL SETUP: types the lines of the file "typed.in", a tab for each "~", and keeps what a command of the name gets
# for each, one a line, in the file "out".
typed() {
    python3 - "$@" <<'PY' >out
import os, pty, re, select, sys
shell, setup = sys.argv[1:]
pid, master = pty.fork()
if pid == 0:
    os.environ.update(TERM="dumb", PS1="", HISTFILE="")
    os.execvp(shell, [shell, "--norc", "--noprofile", "-i"] if shell == "bash" else [shell, "-f", "-i"])
def drain(quiet):
    text = b""
    while select.select([master], [], [], quiet)[0]:
        try:
            piece = os.read(master, 65536)
        except OSError:
            break
        if not piece:
            break
        text += piece
    return text
def until(mark):
    text = b""
    for _ in range(100):
        text += drain(0.1)
        if mark in text:
            return text
    sys.exit("no answer: " + repr(text))
drain(0.5)
os.write(master, (setup + "; orvo() { printf 'GOT'; printf ' <%s>' \"$@\"; echo ' E''ND'; }; echo rea''dy\n").encode())
until(b"ready\r")
for line in open("typed.in", encoding="utf-8").read().splitlines():
    for piece in re.split("(~)", line):
        os.write(master, b"\t" if piece == "~" else piece.encode())
        drain(0.5 if piece == "~" else 0.02)
    os.write(master, b"\n")
    print(re.findall(r"GOT(.*) END", until(b" END\r").decode(errors="replace"))[-1].strip())
os.write(master, b"exit\n")
os.close(master)
PY
}

# Lines and what they become; a shell closes a quote that it has completed a word in.
cat >typed.in <<'LINES'
orvo ver~
orvo check my~
orvo check sub~inn~
orvo opt d.xml --passes Elid~Te~
orvo opt d.xml --passes DeadM~
orvo opt d.xml --passes @li~
orvo opt d.xml --passes=DeadM~
orvo opt d.xml --feature=DUMP_X~true
orvo blocks addRed~
orvo check --js~
LINES
cat >wanted <<'WANTED'
<version>
<check> <my design.xml>
<check> <sub/inner.xml>
<opt> <d.xml> <--passes> <ElideTerminalPass>
<opt> <d.xml> <--passes> <DeadModelPass>
<opt> <d.xml> <--passes> <@list.txt>
<opt> <d.xml> <--passes=DeadModelPass>
<opt> <d.xml> <--feature=DUMP_XML_ON_INVALID_NETLIST=true>
<blocks> <addReduceBlock>
<check> <--json>
<opt> <d.xml> <--passes> <DeadBlockPass, ElideTerminalPass>
WANTED
cp typed.in plain
printf "%s\n" "orvo opt d.xml --passes 'DeadBlockPass, ElideTe~" >>typed.in
typed bash '. ./script.bash'
diff wanted out >differ || die "bash: $(cat differ)"
command -v zsh >/dev/null || exit 0
cp plain typed.in
printf "%s\n" "orvo opt d.xml --passes 'DeadBlockPass, ElideTe~'" >>typed.in
typed zsh 'autoload -U compinit; compinit -u -D; . ./script.zsh'
diff wanted out >differ || die "zsh: $(cat differ)"
typed zsh 'fpath=($PWD/functions $fpath); autoload -U compinit; compinit -u -D'
diff wanted out >differ || die "zsh with the function in fpath: $(cat differ)"
