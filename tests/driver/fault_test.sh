#!/bin/bash
# Faults of the program: exit code 3, one reproducer file, and a replay that shows the same fault.
. "$ORVO_SRC/tests/driver/lib.sh"

write_bad_design bad.xml
write_design d.xml
feature=USE_NETLIST_VERIFICATION_PASS=true

only_file() {
    set -- *.orvo
    [ $# -eq 1 ] && [ -e "$1" ] || die "not one reproducer: $*"
    echo "$1"
}

# An assertion in the second of three passes.
echo old >o.xml
run 3 opt bad.xml -o o.xml --feature $feature -p 'ModelTreePass, NetlistVerificationPass, DeadModelPass'
has err 'internal fault in pass 2, NetlistVerificationPass: assertion'
has err '[DRIVER_INTERNAL_FAULT]'
[ "$(cat o.xml)" = old ] || die "the output was touched"
file=$(only_file)
has err "reproducer in '$file'"
[ "$(head -n 1 "$file")" = 'orvo-reproducer 1' ] || die "$(head -n 1 "$file")"
has "$file" 'pass: 2 NetlistVerificationPass'
has "$file" "feature: $feature"
has "$file" 'passes: NetlistVerificationPass, DeadModelPass'
has "$file" 'version: '
sed '1,/^design:$/d' "$file" >inside.xml
same inside.xml bad.xml
mv "$file" first.repro

# The same run leaves the same bytes: nothing in the file is of the moment.
run 3 opt bad.xml --feature $feature -p 'ModelTreePass, NetlistVerificationPass, DeadModelPass'
mv "$(only_file)" second.repro
same first.repro second.repro

# A pipeline leaves one that "opt" replays.
printf '[own]\nModelTreePass\nNetlistVerificationPass\nDeadModelPass{}\n' >own
sed 's/<model name="top">/&<param name="synthOutputMode">true<\/param>/' bad.xml >root.xml
run 3 lower root.xml -o o.xml --feature $feature --pipeline own --preset own
has err 'internal fault in pass 2, NetlistVerificationPass: assertion'
mv "$(only_file)" lowered.repro
has lowered.repro 'passes: ModelTreePass, NetlistVerificationPass, DeadModelPass'
run 3 opt --replay lowered.repro
has err 'internal fault in pass 2, NetlistVerificationPass: assertion'

# The replay shows the fault, and leaves no file of its own unless asked to.
run 3 opt --replay first.repro -o o.xml
has err 'internal fault in pass 1, NetlistVerificationPass: assertion'
[ -z "$(ls ./*.orvo 2>/dev/null)" ] || die "a replay left a reproducer"
run 3 opt --replay first.repro --crash-dir crashes
[ "$(ls crashes | wc -l)" -eq 1 ] || die "no reproducer in --crash-dir"
run 0 opt --replay first.repro --skip 1 -o replayed.xml
has replayed.xml '<kelmar'
run 0 opt --replay first.repro --feature USE_NETLIST_VERIFICATION_PASS=false --json
json out 'd["input"] == "first.repro" and [p["name"] for p in d["passes"]] == ["NetlistVerificationPass", "DeadModelPass"]'

# What is before the failing pass is what that pass saw, also when passes have changed the design.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="0"/>'
    block dead addBlock "$(param 0 '[/top/in/0]')<wire name=\"primWireOut\"/>"
    block odd addBlock "$(param 0 '[/top/in/0]')$(param nonsense 1)<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param 0 '[/top/odd/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >changed.xml
run 0 opt changed.xml -o after.xml -p DeadBlockPass
run 3 opt changed.xml --feature $feature --skip 3 -p 'DeadBlockPass, NetlistVerificationPass, DeadModelPass'
file=$(only_file)
sed '1,/^design:$/d' "$file" >inside.xml
same inside.xml after.xml
has "$file" 'skip: 2'
run 3 opt --replay "$file"
rm "$file"

# Inside turns, the rest of the turn is replayed and then the turns anew, counted as they were.
# in_turns FIRST LEFT OPTIONS...: a fault behind FIRST in the turns, with LEFT commands still to run.
in_turns() {
    local turns="repeat($1, NetlistVerificationPass)" left=$2
    shift 2
    run 3 opt changed.xml --feature $feature --stop-after 9 -p "$turns, DeadModelPass" "$@"
    file=$(only_file)
    has "$file" "passes: NetlistVerificationPass, $turns, DeadModelPass"
    has "$file" "stop-after: $left"
    run 3 opt --replay "$file"
    has err 'internal fault in pass 1, NetlistVerificationPass: assertion'
    run 3 opt --replay "$file" --skip 1 --no-reproducer
    has err 'internal fault in pass 3, NetlistVerificationPass: assertion'
    rm "$file"
}
in_turns ModelTreePass 8
in_turns DeadBlockPass 6 --skip 2

# From a pipe the design is kept, too.
run 3 opt - --feature $feature -p NetlistVerificationPass <bad.xml
file=$(only_file)
run 3 opt --replay "$file"
rm "$file"

# None is written if none is wanted; JSON tells the same.
run 3 opt bad.xml --no-reproducer --feature $feature -p NetlistVerificationPass
lacks err 'reproducer in'
run 3 opt bad.xml --json --crash-dir deep/er --feature $feature -p NetlistVerificationPass
cp err err.json
json_lines err.json 'd[-1]["tag"] == "DRIVER_INTERNAL_FAULT" and d[-1]["params"]["pass"] == "NetlistVerificationPass"'
json_lines err.json 'd[-1]["params"]["reproducer"].startswith("deep/er/orvo-crash-")'

# Crashes: a driver that waits for the reader of a pipe gets the signal from outside. The design is larger than what a
# pipe holds, so that what has begun to write cannot end.
sed "s/<model name=\"top\">/&<param name=\"note\">\"$(printf '%0100000d' 0)\"<\/param>/" d.xml >large.xml

# crash_writing SIGNAL PIPE ARGUMENTS...: sends the signal when writing into the pipe has begun; $file is the reproducer.
crash_writing() {
    local signal=$1 pipe=$2 code=0 pid
    shift 2
    rm -f "$pipe" ./*.orvo
    mkfifo "$pipe"
    exec 3<>"$pipe"
    "$orvo" opt large.xml "$@" >out 2>err &
    pid=$!
    read -r -n 1 -t 120 <&3 || die "nothing was written into $pipe"
    kill -"$signal" $pid
    wait $pid || code=$?
    exec 3<&-
    [ "$code" -eq 3 ] || die "exit code $code after SIG$signal"
    file=$(only_file)
}

# In a pass.
for signal in SEGV ABRT FPE BUS ILL; do
    crash_writing $signal fifo -p 'DeadBlockPass, DumpXMLPass{P_FILENAME="fifo", P_CLOBBER=true}'
    has err "internal fault in pass 2, DumpXMLPass: signal SIG$signal"
    has err "reproducer in '$file'"
    has "$file" "reason: signal SIG$signal"
    has "$file" 'passes: DumpXMLPass{P_FILENAME=fifo, P_CLOBBER=true}'
    sed '1,/^design:$/d' "$file" >inside.xml
    lacks inside.xml dead1
done
rm -f fifo
run 0 opt --replay "$file" --no-reproducer
has fifo '<kelmar'
rm -f ./*.orvo

# Behind the passes: the input and all passes are there.
crash_writing SEGV result -o result -p DeadBlockPass
has "$file" 'pass: 0 behind the last pass'
has "$file" 'passes: DeadBlockPass'
run 0 opt --replay "$file" -o replayed.xml
run 0 opt large.xml -o plain.xml -p DeadBlockPass
same replayed.xml plain.xml
rm -f result ./*.orvo

# Files that are no reproducers.
for text in '' 'orvo-reproducer 2' "$(printf 'orvo-reproducer 1\nnonsense\ndesign:\n')" "$(printf 'orvo-reproducer 1\nskip: 1')"; do
    printf '%s' "$text" >wrong.repro
    run 2 opt --replay wrong.repro
    has err '[DRIVER_BAD_REPRODUCER]'
done

# Features are set in their order, in a replay too.
run 3 opt bad.xml --crash-dir twice --feature USE_NETLIST_VERIFICATION_PASS=false --feature $feature -p NetlistVerificationPass
run 3 opt --replay twice/*.orvo

# A pass that cannot go on without a type tells which one is missing: that is the design's fault, and leaves no reproducer.
rm -f ./*.orvo
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="0"/>'
    block c castBlock "$(param castOutputType '(typeSFixed 4 0)')$(param 0 '[/top/in/0]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param 0 '[/top/c/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >untyped.xml
run 1 opt untyped.xml -o never.xml -p 'DecomposeCompositePass, DeadBlockPass'
has err "cannot infer the type of input data port 0 of block 'c' in model 'top' [UNABLE_TO_INFER_TYPE]"
has err "orvo: 'orvo check untyped.xml' tells which types are missing or do not fit"
lacks err DRIVER_INTERNAL_FAULT
[ ! -e never.xml ] || die "a faulty design was written"
[ -z "$(ls ./*.orvo 2>/dev/null)" ] || die "an error of the design left a reproducer"
run 1 opt untyped.xml --json -p DecomposeCompositePass
json_lines err '[m["tag"] for m in d] == ["UNABLE_TO_INFER_TYPE"]'
