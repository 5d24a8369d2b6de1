#!/bin/bash
# Missing types through "check": the causes, how they came to a block, and what lacks a type; and what the scheduler would
# not take.
. "$ORVO_SRC/tests/driver/lib.sh"

# Each shipped example has all its types.
for example in "$ORVO_SRC"/examples/*.xml; do
    run 0 check "$example"
    empty out
    empty err
done

# A block two levels down gives no type, and a loop beside it has none either.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="leaf">\n' "$namespace"
    block odd scheduledModelBlock "$(param scheduledModelValue x)<wire name=\"q\"/>"
    block out outputBlock "$(param y '[/leaf/odd/q]')"
    printf '</model><model name="mid">\n'
    block sub modelBlock "$(param modelNode '[/leaf]')<wire name=\"y\"/>"
    block out outputBlock "$(param y '[/mid/sub/y]')"
    printf '</model><model name="top">\n'
    block sub modelBlock "$(param modelNode '[/mid]')<wire name=\"y\"/>"
    block out outputBlock "$(param y '[/top/sub/y]')"
    block delay delayBlock "$(param 0 '[/top/neg/primWireOut]')$(param delayLength 1)<wire name=\"primWireOut\"/>"
    block neg negBlock "$(param 0 '[/top/delay/primWireOut]')<wire name=\"primWireOut\"/>"
    printf '</model></design></kelmar>\n'
} >failing.xml
run 1 check failing.xml
has err 'failing.xml: error: type inference gives no types to signals at 8 blocks in 3 places of the hierarchy [DRIVER_CHECK_MISSING_TYPES]'
cp out report
[ "$(cat report)" = 'Type inferencing failed in 3 models:
	Model: top
		Likely failure cause: LOOP involving the following blocks:
			block "delay", type delayBlock
			block "neg", type negBlock
		Likely failure cause: block "sub", type modelBlock
	Model: top/sub
		Likely failure cause: block "sub", type modelBlock
	Model: top/sub/sub
		Likely failure cause: block "odd", type scheduledModelBlock

top lacks the types of
  delay                        port 0
  delay                        wire primWireOut
  neg                          port 0
  neg                          wire primWireOut
  out                          port y
  sub                          wire y

top/sub lacks the types of
  out                          port y
  sub                          wire y

top/sub/sub lacks the types of
  odd                          wire q
  out                          port y' ] || die "another report"

run 1 check failing.xml --trace top/out --trace top/sub/sub/out
has out '
Type inferencing failed in model "top"
	from block "out", type outputBlock
		from input y, from block "sub", type modelBlock
			From Model "top/sub"
				from block "out", type outputBlock
					from input y, from block "sub", type modelBlock
						From Model "top/sub/sub"
							from block "out", type outputBlock
								from input y, from block "odd", type scheduledModelBlock

Type inferencing failed in model "top/sub/sub"
	from block "out", type outputBlock
		from input y, from block "odd", type scheduledModelBlock
'
run 1 check failing.xml --trace odd
has out 'Type inferencing failed in model "top/sub/sub"'
run 2 check failing.xml --trace out
has err "several blocks named 'out' lack types, such as 'top/out' and 'top/sub/out'"
run 2 check failing.xml --trace top/sub/off
has err "no block 'top/sub/off' lacks types: did you mean 'top/sub/out'?"
run 2 check "$ORVO_SRC/examples/fir16.xml" --trace out
has err "no block 'out' lacks types"

run 1 check failing.xml --json --trace neg
json out '[(c["kind"], c["instance"], [b["block"] for b in c["blocks"]], c["input"]) for c in d["types"]["causes"]] == [
    ("loop", "top", ["delay", "neg"], None), ("block", "top", ["sub"], None), ("block", "top/sub", ["sub"], None),
    ("block", "top/sub/sub", ["odd"], None)]'
json out 'd["types"]["missing"][0] == {"instance": "top", "block": "delay", "end": "port", "name": "0"}'
json out '[t["block"] for t in d["types"]["traces"]] == ["top/neg"] and "LOOP" in d["types"]["traces"][0]["text"]'

# An input that nothing connects, in a design with a model that is to be written out, which alone is looked at, and
# without one.
loose() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="loose">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    printf '</model><model name="top">%s</model></design></kelmar>\n' "$1"
}
loose "$(param synthOutputMode true)" >marked.xml
run 0 check marked.xml
empty out
loose '' >unmarked.xml
run 1 check unmarked.xml --json
json out '[(c["kind"], c["instance"], c["input"]) for c in d["types"]["causes"]] == [("external", "loose", "x")]'

# A wire of another model is none that a block may read: nothing carries the signal there.
cat >foreign.xml <<'XML'
<?xml version="1.0" encoding="UTF-8" standalone="no" ?>
<kelmar xmlns="http://orvo.example/ns/2011/kelmar">
<design version="1.2">
<model name="a">
<block name="in"><param name="blockType">inputBlock</param><wire name="x"/></block>
<block name="pin"><param name="blockType">typePinBlock</param><param name="0">[/a/in/x]</param><param name="typePinType">(typeSFixed 4 0)</param><wire name="0"/></block>
</model>
<model name="top">
<block name="out"><param name="blockType">outputBlock</param><param name="y">[/a/pin/0]</param></block>
</model>
</design>
</kelmar>
XML
run 1 check foreign.xml
has err "input 'y' of block 'out' in model 'top' reads wire '[/a/pin/0]' of another model [DRIVER_CHECK_FOREIGN_WIRE]"
# No pass gets to see one.
for options in '-p DeadModelPass' '-p DeadModelPass --verify-each' ''; do
    run 1 opt foreign.xml $options -o passed.xml
    [ "$(grep -c DRIVER_CHECK_FOREIGN_WIRE err)" = 1 ] || die "opt $options"
    [ ! -e passed.xml ] || die "opt $options wrote"
done
sed 's|<model name="top">|<model name="top"><param name="synthOutputMode">true</param>|' foreign.xml >lowered.xml
run 1 lower lowered.xml -o passed.xml --no-reproducer
has err "reads wire '[/a/pin/0]' of another model [DRIVER_CHECK_FOREIGN_WIRE]"
[ ! -e passed.xml ] || die "lower wrote"

# What the scheduler would not take: mistakes of each severity, at a model of two instances.
pin() { block "$1" typePinBlock "$(param typePinType "$2")<wire name=\"0\"/>"; }
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="leaf">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block max maxBlock "$(param 0 '[/leaf/in/x]')$(param 1 '[/leaf/in/x]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/leaf/max/primWireOut]')"
    printf '</model><model name="top">\n'
    pin real '(typeSFixed 4 0)'
    pin complex '(typeComplex (typeSFixed 4 0))'
    block a modelBlock "$(param modelNode '[/leaf]')$(param x '[/top/real/0]')<wire name=\"y\"/>"
    block b modelBlock "$(param modelNode '[/leaf]')$(param x '[/top/complex/0]')<wire name=\"y\"/>"
    pin address '(typeUFixed 1 0)'
    block lut lutBlock \
        "$(param lutPortAddr '[/top/address/0]')$(param lutData '(1 2 3)')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param a '[/top/a/y]')$(param b '[/top/b/y]')$(param c '[/top/lut/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >gate.xml
sed -e '/name="complex"/s/(typeComplex \((typeSFixed 4 0)\))/\1/' gate.xml >warned.xml
run 0 check warned.xml
[ "$(cat err)" = "warned.xml: warning: look-up table '/top/lut' has 3 entries, more than its address of 1 bits can reach \
[LUT_INIT_EXCEEDS_ADDRESS_SPACE]" ] || die "another warning"
empty out
run 0 check warned.xml --json
empty err
json out '[(f["severity"], f["tag"], f["block"], f["dataSize"]) for f in d["findings"]] == [
    ("warning", "LUT_INIT_EXCEEDS_ADDRESS_SPACE", "/top/lut", "3")]'
# A type that a wrong block cannot have is told with its cause, once, and beside the mistake itself.
run 1 check gate.xml
[ "$(grep -c REAL_ONLY_PORT_IS_COMPLEX err)" = 2 ] || die "each port once"
has err "gate.xml: error: port '0' of block '/leaf/max' must be real but has a complex signal [REAL_ONLY_PORT_IS_COMPLEX]"
has err LUT_INIT_EXCEEDS_ADDRESS_SPACE
lacks err UNABLE_TO_INFER_TYPE
# The gate in a list of passes: errors keep what comes behind from running, and types are asked for.
run 1 opt gate.xml -p ValidateModelPass -o passed.xml --no-reproducer
has err REAL_ONLY_PORT_IS_COMPLEX
run 0 opt warned.xml -p ValidateModelPass -o passed.xml --no-reproducer
has err LUT_INIT_EXCEEDS_ADDRESS_SPACE
run 0 diff warned.xml passed.xml
run 1 opt failing.xml -p ValidateModelPass --no-reproducer
[ "$(grep -c UNABLE_TO_INFER_TYPE err)" = 10 ] || die "each signal once"
has err "cannot infer the type of output port primWireOut of block '/top/neg' in model '/top' [UNABLE_TO_INFER_TYPE]"
run 0 opt failing.xml -p ValidateModelPass --feature DISABLE_VALIDATE_MODEL_PASS=true --no-reproducer
empty err
# Without types the report alone tells so.
run 1 check failing.xml
lacks err UNABLE_TO_INFER_TYPE
[ "$(wc -l <err)" = 1 ] || die "the same failure is told twice"
run 1 check failing.xml --json
json out 'd["findings"] == []'

# Two rules that disagree are told once, although two analyses look.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="leaf">\n' "$namespace"
    param synthOutputMode true
    pin lanes '(typeVector 4 (typeSFixed 8 0))'
    block cast castBlock \
        "$(param 0 '[/leaf/lanes/0]')$(param castOutputType '(typeSFixed 4 0)')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/leaf/cast/primWireOut]')"
    printf '</model><model name="bench">\n'
    block dut modelBlock "$(param modelNode '[/leaf]')<wire name=\"y\"/>"
    block out outputBlock "$(param y '[/bench/dut/y]')"
    printf '</model></design></kelmar>\n'
} >disagreeing.xml
run 0 check disagreeing.xml
[ "$(wc -l <err)" = 1 ] || die "not one line"
has err 'disagreeing.xml: warning: '
has err MODIFYING_WIRE_TYPE

# Latencies: an interface that has two inputs or none, and a schedule that leans on another that does not allow it.
interface() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    param synthLConstraintPair synthLConstraintGpIo
    pin a '(typeSFixed 4 0)'
    for input in $1; do
        block "$input" signalInBlock "$(param 0 '[/top/a/0]')<wire name=\"0\"/>"
    done
    block o signalOutBlock "$(param 0 '[/top/a/0]')<wire name=\"0\"/>"
    block out outputBlock "$(param y '[/top/o/0]')"
    printf '</model></design></kelmar>\n'
}
interface i >one.xml
run 0 check one.xml
empty err
interface 'i j' >two.xml
run 1 check two.xml
[ "$(wc -l <err)" = 1 ] || die "not one line"
has err CONSTRAINT_AMBIGUOUS_START_BLOCK
interface '' >none.xml
run 1 check none.xml
has err CONSTRAINT_MISSING_START_BLOCK
leaning() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="leaning">\n' "$namespace"
    param synthCircuitTimed true
    param synthLDependsOnSimulinkPath '"a/b"'
    printf '</model><model name="other">\n'
    param synthCircuitTimed true
    param simulinkPath '"a/b"'
    printf '%s</model><model name="top">\n' "$1"
    block i modelBlock "$(param modelNode '[/leaning]')"
    block j modelBlock "$(param modelNode '[/other]')"
    printf '</model></design></kelmar>\n'
}
leaning "$(param synthLCanBeDependedUpon true)" >allowed.xml
run 0 check allowed.xml
empty err
leaning '' >forbidden.xml
run 1 check forbidden.xml
[ "$(wc -l <err)" = 1 ] || die "not one line"
has err BAD_MODEL_DEPENDS_UPON
# A path that is not quoted does not become another, shorter one.
sed -e 's,"a/b",a/b,' allowed.xml >unquoted.xml
run 1 check unquoted.xml
[ "$(grep -c ERR_BAD_PARAM_VALUE err)" = 2 ] || die "each parameter once"
grep -q '^unquoted.xml:[0-9]*:[0-9]*: error: ' err || die "no place"

# Vectors that do not fit what a block takes, where its type tells that beforehand, and ports that have nothing to do with
# each other.
wide() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    pin data '(typeVector 2 (typeSFixed 4 0))'
    pin enable "$1"
    block r syncRegisterBlock "$(param syncRegisterPortIclkData '[/top/data/0]')$(param syncRegisterPortIclkEnable \
        '[/top/enable/0]')$(param syncRegisterDataType '(typeVector 2 (typeSFixed 4 0))')<wire name=\"syncRegisterWireIclkData\"/>"
    pin others '(typeVector 3 (typeSFixed 4 0))'
    block b boundaryBlock "$(param x '[/top/data/0]')$(param y '[/top/others/0]')<wire name=\"x\"/>"
    block out outputBlock "$(param y '[/top/r/syncRegisterWireIclkData]')$(param x '[/top/b/x]')"
    printf '</model></design></kelmar>\n'
}
wide '(typeUFixed 1 0)' >fitting.xml
run 0 check fitting.xml
empty err
wide '(typeVector 2 (typeUFixed 1 0))' >unfit.xml
run 1 check unfit.xml
[ "$(wc -l <err)" = 1 ] || die "not one line"
has err "port 'syncRegisterPortIclkEnable' of block '/top/r' has vector width 2"

# Tags carry types as wires do; what is missing behind one is told of the block that lacks it.
tagged() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block from fromBlock "$(param gotoTag t)<wire name=\"fromWireOut\"/>"
    block neg negBlock "$(param 0 '[/top/from/fromWireOut]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/top/neg/primWireOut]')"
    pin data "$1"
    block goto gotoBlock "$(param gotoPortIn '[/top/data/0]')$(param gotoTag t)$(param gotoTagType gotoTagTypeLocal)"
    printf '</model></design></kelmar>\n'
}
tagged '(typeSFixed 8 0)' >tagged.xml
run 0 check tagged.xml
empty out
empty err
tagged '(typeVector 0 (typeSFixed 8 0))' >untyped.xml
run 1 check untyped.xml
has out 'Likely failure cause: block "data", type typePinBlock'
lacks out fromBlock

# A block that tells the type of an input by itself, and what drives it: which stands hangs on names, so it is told.
two() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    pin data '(typeSFixed 8 0)'
    block "$1" typePinBlock "$(param 0 '[/top/data/0]')$(param typePinType '(typeSFixed 5 0)')<wire name=\"0\"/>"
    block out outputBlock "$(param y "[/top/$1/0]")$(param z '[/top/data/0]')"
    printf '</model></design></kelmar>\n'
}
two a >first.xml
run 0 check first.xml
[ "$(wc -l <err)" = 1 ] || die "not one line"
has err "warning: wire '0' of block '/top/data' has type (typeSFixed 8 0) and is also given type (typeSFixed 5 0) [MODIFYING_WIRE_TYPE]"
two z >last.xml
run 0 check last.xml
[ "$(wc -l <err)" = 1 ] || die "not one line"
has err "warning: port '0' of block '/top/z' has type (typeSFixed 5 0) and is also given type (typeSFixed 8 0) [MODIFYING_PORT_TYPE]"
