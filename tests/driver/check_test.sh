#!/bin/bash
# Missing types through "check": the causes, how they came to a block, and what lacks a type.
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
