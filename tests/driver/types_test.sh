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

# A pass takes the types of wires along.
types_to_lose >pinned.xml
run 0 opt pinned.xml --types-before-after -p AggressiveDeadBlockPass
same err /dev/null
[ "$(head -7 out)" = 'types of wires: 7 changed, 6 unchanged, 0 gone, 0 new
  top/in x
    before s4.0                 (typeSFixed 4 0)
    after  ?
  top/one y
    before s4.0                 (typeSFixed 4 0)
    after  ?' ] || die "other types"
run 0 opt pinned.xml --types-before-after --json -p AggressiveDeadBlockPass
json out 'd["types"]["same"] == 6 and d["types"]["gone"] == 0 and d["types"]["new"] == 0'
json out 'd["types"]["changed"][2] == {"instance": "top", "block": "two", "wire": "y", "before": {"type": "u5.0",
    "value": "(typeUFixed 5 0)"}, "after": {"type": None, "value": None}}'
run 0 opt pinned.xml --types-before-after -p ModelTreePass
has out 'types of wires: 0 changed, 13 unchanged, 0 gone, 0 new'

# Names that the design does not have.
run 2 types "$ORVO_SRC/examples/fir16.xml" --model fir17
has err "did you mean 'fir16'?"
run 2 types "$ORVO_SRC/examples/fir16.xml" --instance nowhere/at/all
for option in --model --instance; do
    run 2 types "$ORVO_SRC/examples/fir16.xml" $option ''
    has err 'the name is empty'
done
run 2 types
