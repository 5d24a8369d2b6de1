#!/bin/bash
# The verb "lower": pipelines, presets and what the options make of them.
. "$ORVO_SRC/tests/driver/lib.sh"

example=$ORVO_SRC/examples/mixer_pair.xml

# What comes with the library takes an example apart, and leaves what it computes.
run 0 lower "$example" -o flat.xml
empty out
empty err
lacks flat.xml modelBlock
lacks flat.xml typeVector
run 0 equiv "$example" flat.xml
run 0 lower "$example" -o - --check sim --verify-each
same out flat.xml
run 0 lower "$example" -o more.xml --preset primitives
run 0 equiv "$example" more.xml

# A pipeline that is printed is a pipeline file, and runs the same.
run 0 lower --print-pipeline
has out '[structural]'
cp out own
run 0 lower "$example" -o own.xml --pipeline own
same own.xml flat.xml
run 0 lower --print-pipeline --pipeline own
same out own
run 0 lower --print-pipeline --preset primitives
has out '[primitives]'
has out ElideTerminalPass
run 0 lower --print-pipeline --json
json out 'd["schema"] == "orvo.pipeline/1" and d["preset"] == "structural" and d["passes"][0] == {"name": "ElideFromGotoPass", "text": "ElideFromGotoPass", "begins_turns": False, "ends_turns": False}'

# Passes in turns run until one changes nothing; what is cut off of them runs once.
run 0 lower --print-pipeline
has out 'repeat(UnrollAggregatePass, UnrollAggregateCrossModelPass, UnrollVectorPass, UnrollVectorCrossModelPass, ElideUnpackPass{P_IGNORE_METADATA=true})'
run 0 lower "$example" --list
has out 'UnrollVectorPass (in turns)'
[ "$(grep -c UnrollVectorPass out)" = 1 ] || die "more than one turn is listed"
run 0 lower --print-pipeline --upto UnrollVectorPass
lacks out repeat
has out UnrollVectorPass
lacks out ElideUnpackPass
run 0 lower --print-pipeline --json
json out '[(p["begins_turns"], p["ends_turns"]) for p in d["passes"] if p["name"] in ("UnrollAggregatePass", "UnrollVectorPass")] == [(True, False), (False, False)]'
run 0 lower "$example" -o - --json
json err '{p["turn"] for p in d["passes"] if p["name"] == "UnrollVectorPass"} == {1, 2} and d["passes"][0]["turn"] is None'
run 0 opt "$example" -p 'repeat(UnrollVectorPass, UnrollVectorCrossModelPass, ElideUnpackPass)' -o turns.xml --check sim
lacks turns.xml typeVector

# Comments on some blocks keep no pack, and are on all that these blocks became.
pinned() {
    block "$1" typePinBlock "$(param 0 "[/top/in/$1]")$(param typePinType "$2")<wire name=\"0\"/>"
}
delayed() {
    block "$1" delayBlock "$(param 0 "$2")$(param delayLength 1)${3:+$(param metadataTuple "((comment $3))")}<wire name=\"primWireOut\"/>"
}
commented() {
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">%s\n' "$namespace" "$(param synthOutputMode true)"
        block in inputBlock '<wire name="x"/>'
        pinned x "$1"
        delayed a '[/top/x/0]'
        delayed b '[/top/a/primWireOut]' hello
        delayed c '[/top/b/primWireOut]' world
        block out outputBlock "$(param y '[/top/c/primWireOut]')"
        printf '</model></design></kelmar>\n'
    } >commented.xml
}
for type in '(typeComplex (typeSFixed 4 0))' '(typeVector 2 (typeSFixed 4 0))' '(typeAggregate (typeSFixed 4 0) (typeUFixed 2 0))' \
    '(typeVector 2 (typeComplex (typeSFixed 4 0)))' '(typeAggregate (typeComplex (typeSFixed 4 0)) (typeVector 2 (typeSFixed 4 0)))'; do
    commented "$type"
    run 0 lower commented.xml -o lanes.xml --check sim
    empty err
    lacks lanes.xml packBlock
    python3 - lanes.xml <<'PYTHON' || die "comments are lost: $type"
import sys, xml.etree.ElementTree as tree
delays = {}
for block in tree.parse(sys.argv[1]).iter("{http://orvo.example/ns/2011/kelmar}block"):
    params = {param.get("name"): param.text for param in block if param.tag.endswith("param")}
    if params.get("blockType") == "delayBlock":
        name = block.get("name").lstrip("(").split()[0]
        delays.setdefault(name, set()).add(params.get("metadataTuple"))
wanted = {"a": None, "b": "hello", "c": "world"}
assert set(delays) == set(wanted), delays
for name, tuples in delays.items():
    assert all((wanted[name] or "") in (text or "") and (wanted[name] is None or text) for text in tuples), delays
PYTHON
done

# A kernel that stays in two instances, whose pack joins parts of types REAL and IMAG, in the second of OTHER and IMAG.
kernel() { # REAL OTHER IMAG, and what stands in front of and behind the names of what the pack reads
    local source
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="kernel">%s\n' "$namespace" "$(param foldingIsFoldingKernel true)"
        block in inputBlock '<wire name="x"/><wire name="y"/>'
        for source in x y; do
            block "cast$source" castBlock "$(param castOutputType '(typeSFixed 6 0)')$(param 0 "[/kernel/in/$source]")<wire name=\"primWireOut\"/>"
        done
        block pack cpackBlock "$(param cpackPortReal "[/kernel/$4x${5-}]")$(param cpackPortImag "[/kernel/$4y${5-}]")<wire name=\"cpackWireOut\"/>"
        block wait delayBlock "$(param 0 '[/kernel/pack/cpackWireOut]')$(param delayLength 1)<wire name=\"primWireOut\"/>"
        block unpack cunpackBlock "$(param cunpackPortIn '[/kernel/wait/primWireOut]')<wire name=\"cunpackWireReal\"/><wire name=\"cunpackWireImag\"/>"
        block out outputBlock "$(param re '[/kernel/unpack/cunpackWireReal]')$(param im '[/kernel/unpack/cunpackWireImag]')"
        printf '</model><model name="top">%s\n' "$(param synthOutputMode true)"
        block in inputBlock '<wire name="x"/><wire name="y"/><wire name="z"/>'
        pinned x "$1"
        pinned z "$2"
        pinned y "$3"
        for source in x z; do
            block "m$source" modelBlock "$(param modelNode '[/kernel]')$(param x "[/top/$source/0]")$(param y '[/top/y/0]')<wire name=\"re\"/><wire name=\"im\"/>"
        done
        block out outputBlock "$(param a '[/top/mx/re]')$(param b '[/top/mx/im]')$(param c '[/top/mz/re]')$(param d '[/top/mz/im]')"
        printf '</model></design></kelmar>\n'
    } >kernel.xml
}
# No one cast serves both: for other types, or since it would flush subnormals where the format is the wanted one.
kernel '(typeSFixed 4 0)' '(typeSFixed 6 0)' '(typeSFixed 4 0)' in/
run 1 lower kernel.xml -o lowered.xml
has err "wire '/kernel/pack/cpackWireOut' has the type (typeComplex (typeSFixed 4 0)), which is no plain number [COMPOUND_SIGNAL_LEFT]"
kernel '(typeSFloatIEEE 23 8)' '(typeSFloatIEEE 10 5)' '(typeSFloatIEEE 23 8)' in/
run 1 lower kernel.xml -o lowered.xml
has err COMPOUND_SIGNAL_LEFT
# Casts in front of the pack are the way out; where each instance needs the same cast, none are needed.
kernel '(typeSFixed 4 0)' '(typeSFixed 6 0)' '(typeSFixed 4 0)' cast /primWireOut
run 0 lower kernel.xml -o lowered.xml --check sim
run 0 equiv kernel.xml lowered.xml
kernel '(typeSFloatIEEE 7 5)' '(typeSFloatIEEE 10 5)' '(typeSFloatIEEE 23 8)' in/
run 0 lower kernel.xml -o lowered.xml --check sim
run 0 equiv kernel.xml lowered.xml
lacks lowered.xml packBlock

# --upto ends behind the last of its name.
cat >own <<'TEXT'
# A pipeline.
[first]   # comments stand anywhere
DeadBlockPass
ElideTerminalPass # here, too
[all]
include first
DeadBlockPass
DumpXMLPass{P_FILENAME="dump.xml", P_CLOBBER=true}
TEXT
run 0 lower --print-pipeline --pipeline own --preset all
[ "$(cat out)" = '[all]
DeadBlockPass
ElideTerminalPass
DeadBlockPass
DumpXMLPass{P_FILENAME="dump.xml", P_CLOBBER=true}' ] || die "another pipeline"
run 0 lower --print-pipeline --pipeline own --preset all --upto DeadBlockPass
[ "$(cat out)" = '[all]
DeadBlockPass
ElideTerminalPass
DeadBlockPass' ] || die "another end"
run 0 lower --print-pipeline --pipeline own --preset all --upto ElideTerminalPass
[ "$(tail -1 out)" = ElideTerminalPass ] || die "another end"
write_design d.xml
run 0 lower d.xml -o done.xml --pipeline own --preset all
same dump.xml done.xml
lacks done.xml terminalBlock
run 0 lower d.xml -o stopped.xml --pipeline own --preset first --upto DeadBlockPass
lacks stopped.xml dead1
has stopped.xml terminalBlock

# The growth, pass by pass, of passes that changed something.
run 0 lower d.xml -o done.xml --pipeline own --preset all --growth
[ "$(cat out)" = '       after                                blocks      wires     growth
       reading                                   6          6           
    1  DeadBlockPass                             4          4         -2
    2  ElideTerminalPass                         3          3         -1' ] || die "another growth"
run 0 lower d.xml -o done.xml --pipeline own --preset all --growth --json
json out 'd["schema"] == "orvo.lower/1" and d["written"] and [(p["name"], p["blocks_after"], p["wires_after"])
    for p in d["passes"]] == [("DeadBlockPass", 4, 4), ("ElideTerminalPass", 3, 3), ("DeadBlockPass", 3, 3), ("DumpXMLPass", 3, 3)]'
# What it costs, pass by pass: two adders that nothing reads and an absolute value that comes apart.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="0"/>'
    block pin typePinBlock "$(param typePinType '(typeSFixed 8 0)')$(param 0 '[/top/in/0]')<wire name=\"0\"/>"
    block abs absBlock "$(param 0 '[/top/pin/0]')<wire name=\"primWireOut\"/>"
    block neg negBlock "$(param 0 '[/top/abs/primWireOut]')<wire name=\"primWireOut\"/>"
    block wide negBlock "$(param 0 '[/top/neg/primWireOut]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param 0 '[/top/abs/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >costs.xml
printf '[costs]\nDecomposeCompositePass\nDeadBlockPass\n' >costing
run 0 lower costs.xml -o costed.xml --pipeline costing --preset costs --resources
[ "$(cat out)" = '       resources                                LUTs  multipliers  mem blocks      mem bits  latency  uncounted
       reading                                    18            0           0             0        2          0
    3  DecomposeCompositePass                     +0           +0          +0            +0       +0         +0
    4  DeadBlockPass                              +0           +0          +0            +0       +0         +0
       all                                        18            0           0             0        2          0' ] || die "other costs"
run 0 lower costs.xml -o costed.xml --pipeline costing --preset costs --resources --json
json out '[(p["resources_before"]["luts"], p["resources_after"]["latency"]) for p in d["passes"]] == [(18, 2)] * 4'
json out 'all(p[at]["uncounted"] == 0 and p[at]["complete"] for p in d["passes"] for at in ("resources_before", "resources_after"))'
# A block that no figure counts does not vanish from the sums.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="0"/>'
    block odd unsupportedBlock "$(param 0 '[/top/in/0]')<wire name=\"0\"/>"
    block pin typePinBlock "$(param typePinType '(typeSFixed 8 0)')$(param 0 '[/top/odd/0]')<wire name=\"0\"/>"
    block neg negBlock "$(param 0 '[/top/pin/0]')<wire name=\"primWireOut\"/>"
    block dead negBlock "$(param 0 '[/top/neg/primWireOut]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param 0 '[/top/neg/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >unknown.xml
run 0 lower unknown.xml -o costed.xml --pipeline costing --preset costs --resources
grep -q '^       reading  *9  .* 1  incomplete$' out || die "a sum that looks sound"
grep -q '^ .* DeadBlockPass  *+0 .* +0  incomplete$' out || die "a change that looks sound"
run 0 lower unknown.xml -o costed.xml --pipeline costing --preset costs --resources --json
json out 'all(p["resources_after"]["uncounted"] == 1 and not p["resources_after"]["complete"] for p in d["passes"])'
# What is mended was incomplete before, and the change is no change of what the whole costs.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">' "$namespace"
    block f fromBlock "$(param fromTag t)"
    printf '</model></design></kelmar>\n'
} >tagless.xml
printf '[dead]\nDeadBlockPass\n' >burying
run 0 lower tagless.xml -o costed.xml --pipeline burying --preset dead --resources
grep -q '^       reading .* 0  incomplete$' out || die "a sum that looks sound"
grep -q '^ .* DeadBlockPass .* +0  incomplete$' out || die "a change that looks sound"
grep -q '^       all .* 0$' out || die "an incomplete sum of a mended design"
# A model with two kinds of instances stays behind where they are flat, until it is deleted.
run 0 lower "$ORVO_SRC/examples/energy_pair.xml" -o costed.xml --resources
lacks out incomplete
run 0 lower costs.xml --pipeline costing --preset costs --resources --list
lacks out LUTs
run 0 lower costs.xml --pipeline costing --preset costs --json
json out 'all("resources_after" not in p for p in d["passes"])'
run 0 lower d.xml --pipeline own --preset all --list
has out '    3  DeadBlockPass'
run 0 lower d.xml --pipeline own --preset all --stop-after 1 -o stopped.xml
has stopped.xml terminalBlock
run 0 lower d.xml --pipeline own --preset all --time --stats
has out 'pass'
run 0 lower d.xml --pipeline - --preset first -o piped.xml <own
same piped.xml done.xml
run 2 lower - --pipeline - <own
has err 'only one input can come from standard input'

# What is wrong with a pipeline is told with its place.
wrong() {
    printf "$1" >bad
    run 2 lower d.xml --pipeline bad --preset a
    has err "$2"
}
wrong '[a]\nDeadBlockPas\n' 'bad:2:1: error: there is no pass '"'DeadBlockPas': did you mean 'DeadBlockPass'?"
wrong '[a]\n  DumpXMLPass{P_FILENAM=1}\n' "bad:2:15: error: pass 'DumpXMLPass' has no parameter 'P_FILENAM'"
wrong 'DeadBlockPass\n' 'bad:1:1: error: the pipeline cannot be read: expected a preset like [structural] before the first pass'
wrong '[a]\nDeadBlockPass, ElideTerminalPass\n' 'bad:2:16: error: the pipeline cannot be read: expected one pass a line'
wrong '[a]\n\n include b\n[b]\n' "bad:3:2: error: the pipeline cannot be read: there is no preset 'b' above"
wrong '[first]\n[a]\ninclude firts\n' "did you mean 'first'?"
wrong '[a]\ninclude a\n' "there is no preset 'a' above"
wrong '[a]\n[a]\n' "bad:2:1: error: the pipeline cannot be read: preset 'a' stands twice"
wrong '[a\n' "expected ']' behind the name of the preset"
wrong '[a] b\n' "bad:1:5: error: the pipeline cannot be read: expected the end of the line behind ']'"
wrong '[]\n' 'expected the name of a preset'
wrong '[a]\ninclude\n' 'expected the name of a preset'
wrong '[a]\nDeadBlockPass{\n' 'the pipeline cannot be read'
wrong '[b]\n' "there is no preset 'a' in bad"
run 2 lower d.xml --preset structura
has err "did you mean 'structural'?"
run 2 lower d.xml --upto DeadBlokPass
has err "preset 'structural' has no pass 'DeadBlokPass': did you mean 'DeadBlockPass'?"
run 2 lower d.xml --pipeline nowhere
has err "cannot read 'nowhere'"
run 2 lower
has err 'the input design is missing'

# A design none of whose models is to be written out would lose them all.
run 1 lower d.xml -o kept.xml
has err 'd.xml: error: no model of the design says how it is to be written out'
has err DRIVER_NO_OUTPUT_MODEL
[ ! -e kept.xml ] || die "an empty design was written"

# A From that has no single place: a model that nothing to be written out needs may be in the way.
from="$(block f fromBlock "$(param gotoTag t)<wire name=\"fromWireOut\"/>")"
goto() { block g gotoBlock "$(param gotoTag t)$(param gotoTagType gotoTagTypeGlobal)$(param gotoPortIn "$1")"; }
instance() { block "$1" modelBlock "$(param modelNode "[/$2]")<wire name=\"y\"/>"; }
gives() { block out outputBlock "$(param y "[/$1]")"; }
pinned_input="$(block in inputBlock '<wire name="x"/>')"
pin_of() { block p typePinBlock "$(param typePinType '(typeSFixed 8 0)')$(param 0 "[/$1/in/x]")<wire name=\"0\"/>"; }
# design NAME=BLOCKS...: models of such content; the first is written out.
design() {
    local output=$(param synthOutputMode true)
    printf '<kelmar xmlns="%s"><design version="1.2">\n' "$namespace"
    for model in "$@"; do
        printf '<model name="%s">%s%s</model>\n' "${model%%=*}" "$output" "${model#*=}"
        output=
    done
    printf '</design></kelmar>\n'
}
tagged="$pinned_input$(pin_of top)$(goto '[/top/p/0]')"
sub="sub=$from$(gives sub/f/fromWireOut)"
design "top=$tagged$(instance c sub)$(gives top/c/y)" "old=$(instance c sub)$(goto '[/old/c/y]')$(gives old/c/y)" "$sub" >spare.xml
run 1 lower spare.xml -o low.xml
has err '[FROM_NO_REFCHAIN]'
has err "'orvo opt spare.xml -p DeadModelPass -o OUT' deletes them"
run 0 opt spare.xml -p DeadModelPass -o needed.xml
run 0 lower needed.xml -o low.xml --check sim
run 0 equiv needed.xml low.xml
# But one around the model that is written out may have the signal of a tag, so that no preset deletes models before.
design "top=$(instance c sub)$(gives top/c/y)" "bench=$pinned_input$(pin_of bench)$(goto '[/bench/p/0]')$(instance dut top)$(gives bench/dut/y)" \
    "sub=$from$(block p typePinBlock "$(param typePinType '(typeSFixed 8 0)')$(param 0 '[/sub/f/fromWireOut]')<wire name=\"0\"/>")$(gives sub/p/0)" >bench.xml
run 0 lower bench.xml -o low.xml
has low.xml '(route global bench t)'
run 0 opt bench.xml -p DeadModelPass -o alone.xml
run 1 lower alone.xml -o low.xml
has err '[FROM_UNKNOWN_TAG]'

# An error of the design is no fault of the pass that tells it, however closely passes are watched.
design "top=$tagged$(instance c sub)$(instance c2 sub)$(block out outputBlock "$(param y '[/top/c/y]')$(param z '[/top/c2/y]')")" "$sub" >twice.xml
rm -f orvo-crash-*
for watch in '--check sim' --verify-each; do
    run 1 lower twice.xml -o low2.xml $watch
    has err '[FROM_NO_REFCHAIN]'
    lacks err DRIVER_INTERNAL_FAULT
    [ ! -e low2.xml ] || die "a faulty design was written"
    [ -z "$(ls orvo-crash-* 2>/dev/null)" ] || die "an error left a reproducer"
done
lacks err DeadModelPass

# Where a type is missing, the block that has none comes from further up.
design "top=$pinned_input$(pin_of top)$(block w addBlok "$(param 0 '[/top/p/0]')<wire name=\"primWireOut\"/>")$(gives top/w/primWireOut)" >odd.xml
run 1 lower odd.xml -o low2.xml
has err "port 'y' of block '/top/out' has no type, so that its signal cannot be split [UNAGG_INVALID_PORT_TYPE]"
has err "orvo: block 'w' in model 'top' has no type that the block catalogue knows: addBlok"
has err "orvo: 'orvo check odd.xml' tells which types are missing or do not fit"
run 1 lower odd.xml --json
json_lines err '[m["tag"] for m in d] == ["UNAGG_INVALID_PORT_TYPE"]'

# Numbers that no pass has are told, but not of what ended early.
run 0 lower d.xml --pipeline own --preset all --skip 5 --skip 999 --skip 2
has err "no pass of the run had the number 999 of --skip, so that none was left out for it; the last was 4 [DRIVER_NO_SUCH_NUMBER]"
[ "$(grep -c DRIVER_NO_SUCH_NUMBER err)" = 2 ] || die "another number is warned of"
run 0 lower d.xml --pipeline own --preset all --skip 4 --stop-after 1
empty err
run 0 lower d.xml --pipeline own --preset all --list --skip 999
empty err
run 1 lower odd.xml --skip 999
lacks err DRIVER_NO_SUCH_NUMBER

# No name is no name of a file, a folder or a pass.
for option in -o --upto --pipeline --dump-dir --crash-dir --time-json --time-trace; do
    run 2 lower d.xml --pipeline own --preset all $option ''
    has err 'the name is empty'
done
run 2 lower d.xml --preset ''
