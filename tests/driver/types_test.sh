#!/bin/bash
# Types of designs through the driver: the table, its filters, and what passes change.
. "$ORVO_SRC/tests/driver/lib.sh"

# Each shipped example infers completely, and without a message.
for example in "$ORVO_SRC"/examples/*.xml; do
    run 0 types "$example" --missing
    empty out
    empty err
    run 0 types "$example"
    [ -s out ] || die "no types"
done

# One model, two instances, two types.
run 0 types "$ORVO_SRC/examples/energy_pair.xml" --model energy --json
json out '{(t["instance"], t["type"]) for t in d["types"] if t["block"] == "square" and t["end"] == "wire"} == {
    ("top/narrowEnergy", "s4.22"), ("top/wideEnergy", "[2] float(23,8)")}'
run 0 types "$ORVO_SRC/examples/energy_pair.xml" --instance top/wideEnergy
has out 'top/wideEnergy'
lacks out 'top/narrowEnergy'

# The passes leave a wire behind whose type came from a reader that is gone.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block delay delayBlock "$(param 0 '[/top/in/x]')$(param delayLength 1)<wire name=\"primWireOut\"/>"
    block pin typePinBlock "$(param 0 '[/top/in/x]')$(param typePinType '(typeSFixed 8 4)')<wire name=\"0\"/>"
    block out outputBlock "$(param y '[/top/delay/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >pinned.xml
run 0 opt pinned.xml --types-before-after -p AggressiveDeadBlockPass
same err /dev/null
[ "$(cat out)" = 'types of wires: 2 changed, 0 unchanged, 1 gone, 0 new
  top/delay primWireOut
    before s8.4                 (typeSFixed 8 4)
    after  ?
  top/in x
    before s8.4                 (typeSFixed 8 4)
    after  ?' ] || die "other types"
run 0 opt pinned.xml --types-before-after --json -p AggressiveDeadBlockPass
json out 'd["types"]["same"] == 0 and d["types"]["gone"] == 1 and d["types"]["new"] == 0'
json out 'd["types"]["changed"][1] == {"instance": "top", "block": "in", "wire": "x", "before": {"type": "s8.4",
    "value": "(typeSFixed 8 4)"}, "after": {"type": None, "value": None}}'
run 0 opt pinned.xml --types-before-after -p ModelTreePass
has out 'types of wires: 0 changed, 3 unchanged, 0 gone, 0 new'

# Names that the design does not have.
run 2 types "$ORVO_SRC/examples/fir16.xml" --model fir17
has err "did you mean 'fir16'?"
run 2 types "$ORVO_SRC/examples/fir16.xml" --instance nowhere/at/all
for option in --model --instance; do
    run 2 types "$ORVO_SRC/examples/fir16.xml" $option ''
    has err 'the name is empty'
done
run 2 types
