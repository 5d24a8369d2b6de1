#!/bin/bash
# The verbs that tell about designs and about orvo itself, for people and as JSON.
. "$ORVO_SRC/tests/driver/lib.sh"

write_design d.xml
write_bad_design bad.xml

typed="$ORVO_SRC/examples/fir16.xml"
run 0 check "$typed"
empty out
empty err
run 0 check - <"$typed"
run 0 check - --json <"$typed"
json out 'd == {"schema": "orvo.check/1", "input": "-", "findings": [], "types": {"causes": [], "traces": [], "missing": []}}'
run 1 check bad.xml
has err "bad.xml: error: block 'odd' in model 'top' has no type that the block catalogue knows: noSuchBlock"
empty out
run 1 check bad.xml --json
empty err
json out 'len(d["findings"]) == 1 and d["findings"][0]["tag"] == "DRIVER_CHECK_UNKNOWN_BLOCK"'
json out 'd["findings"][0]["model"] == "top" and d["findings"][0]["block"] == "odd"'

# Each kind of finding, all in one run.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="m">\n' "$namespace"
    block in inputBlock '<wire name="primWireOut"/>'
    block noWire addBlock "$(param 0 '[/m/in/primWireOut]')"
    block extra addBlock "$(param nonsense 1)$(param 0 '[/m/in/primWireOut]')<wire name=\"primWireOut\"/>"
    block badValue addBlock "$(param 0 '[/m/in/primWireOut]')$(param floatRoundingMode upwards)<wire name=\"primWireOut\"/>"
    block noPort negBlock '<wire name="primWireOut"/>'
    printf '</model></design></kelmar>\n'
} >kinds.xml
run 1 check kinds.xml
has err "output wire 'primWireOut' of block 'noWire' in model 'm' is not there"
has err "the type of block 'extra' in model 'm' knows no parameter or input 'nonsense'"
has err "parameter 'floatRoundingMode' of block 'badValue' in model 'm' has a value that its list does not hold: upwards"
has err "of block 'noPort' in model 'm' is not connected"

run 0 stat d.xml
has out 'hierarchy depth                                               1'
has out 'A_ADD_BLOCK (addBlock)                                      3'
has out '  top'
run 0 stat --json - <d.xml
json out 'd["schema"] == "orvo.stat/1" and d["blocks"] == 6 and d["wires"] == 6 and d["ports"] == 6 and d["models"] == 1'
json out 'd["depth"] == 1 and not d["recursive"] and d["top_models"] == ["top"] and d["blocks_by_type"]["addBlock"] == 3'
{
    printf '<kelmar xmlns="%s"><design version="1.2">' "$namespace"
    printf '<model name="leaf"/><model name="mid">'
    block a modelBlock "$(param modelNode '[/leaf]')"
    printf '</model><model name="top">'
    block a modelBlock "$(param modelNode '[/mid]')"
    block b modelBlock "$(param modelNode '[/leaf]')"
    printf '</model><model name="self">'
    block a modelBlock "$(param modelNode '[/self]')"
    printf '</model></design></kelmar>'
} >deep.xml
run 0 stat deep.xml --json
json out 'd["depth"] == 3 and d["recursive"] and d["top_models"] == ["top"] and "resources" not in d'
run 0 stat deep.xml --json --resources
json out '[(m["name"], m["instances"]) for m in d["resources"]["models"]] == [("leaf", 0), ("mid", 0), ("self", 1), ("top", 1)]'
json out 'd["resources"]["total"]["luts"] == 0 and d["resources"]["total"]["uncounted"] == 0'
# A model without end that is not dead has no cost, and no top to tell so.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="self">' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block pin typePinBlock "$(param typePinType '(typeSFixed 8 0)')$(param 0 '[/self/in/x]')<wire name=\"0\"/>"
    block i modelBlock "$(param modelNode '[/self]')$(param x '[/self/pin/0]')<wire name=\"y\"/>"
    block out outputBlock "$(param y '[/self/i/y]')"
    printf '</model></design></kelmar>'
} >endless.xml
run 0 stat endless.xml --json --resources
json out 'd["resources"]["total"]["luts"] == 0 and d["resources"]["total"]["uncounted"] == 1'

# What a design would cost.
run 0 stat "$typed" --resources --json
json out 'd["resources"]["total"]["multipliers"] > 0 and d["resources"]["total"]["latency"] > 0'
json out 'set(d["resources"]["total"]) == {"luts", "multipliers", "memory_blocks", "memory_bits", "latency", "uncounted", "complete"}'
json out 'd["resources"]["total"]["complete"] and d["resources"]["errors"] == []'
run 0 stat "$typed" --resources
has out 'resources                       instances         LUTs  multipliers  mem blocks      mem bits  latency  uncounted'
has out 'total  '
run 0 stat "$typed"
lacks out 'mem blocks'
# What could not be lowered makes the figures incomplete, and no message.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">' "$namespace"
    block f fromBlock "$(param fromTag t)"
    printf '</model></design></kelmar>'
} >tagless.xml
run 0 stat tagless.xml --resources
empty err
has out 'incomplete: lowering the design told FROM_MISSING_WIRE'
grep -q '^total .* 0  incomplete$' out || die "a total that looks sound"
run 0 stat tagless.xml --resources --json
json out 'not d["resources"]["total"]["complete"] and d["resources"]["errors"] == ["FROM_MISSING_WIRE"]'
# Both adders of what is read; the others feed nothing, and nothing has a type.
run 0 stat d.xml --resources --json
json out 'd["resources"]["total"]["luts"] == 0 and d["resources"]["total"]["uncounted"] == 1'

run 0 passes
has out DeadBlockPass
run 0 passes DumpXMLPass
has out 'P_CLOBBER (default: false)'
has out 'requires: nothing'
run 0 passes --json
json out 'd["schema"] == "orvo.passes/1" and all(p["description"] for p in d["passes"])'
run 0 passes DumpXMLPass --json
json out '[p["name"] for p in d["passes"]] == ["DumpXMLPass"]'
json out '{p["name"]: p["default"] for p in d["passes"][0]["params"]} == {"P_CLOBBER": "false", "P_FILENAME": None}'

run 0 blocks
has out A_ADD_BLOCK
lacks out DUMMY_GENERIC_BLOCK
run 0 blocks A_ADD_BLOCK
cp out constant
run 0 blocks addBlock
same out constant
has out 'Wire A_PRIM_WIRE_OUT (primWireOut)'
run 0 blocks --json
json out 'd["schema"] == "orvo.blocks/1" and len(d["blocks"]) > 100'
run 0 blocks addBlock --json
json out 'd["blocks"][0]["name"] == "A_ADD_BLOCK" and d["blocks"][0]["text"] == "addBlock"'
json out 'all(c["kind"] in ("Port", "Wire", "Param") for c in d["blocks"][0]["connections"])'

run 0 explain
has out 'ERR_MALFORMED_XML'
run 0 explain --json
json out 'd["schema"] == "orvo.explain/1" and all(m["meaning"] and m["cure"] for m in d["messages"])'
run 0 explain FROM_UNKNOWN_TAG
has out 'What to do:'
has out 'Parameters: '
run 0 explain FROM_UNKNOWN_TAG --json
json out 'len(d["messages"]) == 1 and "tag" in d["messages"][0]["params"]'

run 0 version
has out 'orvo '
run 0 version --json
json out 'd["schema"] == "orvo.version/1" and d["passes"] > 5 and d["blocks"] > 100'
cp out version.json
run 0 --version
python3 -c 'import json; print("orvo", json.load(open("version.json"))["version"])' >wanted
same out wanted

# Features, all or one.
run 0 features
has out 'USE_NETLIST_VERIFICATION_PASS'
run 0 features LUT4S_WEIGHT --json
json out 'd["features"] == [{"name": "LUT4S_WEIGHT", "kind": "number", "default": "-1", "description": d["features"][0]["description"]}]'
run 2 features LUT4_WEIGHT
has err "did you mean 'LUT4S_WEIGHT'?"

# The type rule of a block in a line.
run 0 blocks addBlock
has out 'Output type: '
lacks out 'The simulator knows'
has out 'Records stay: its type rule takes numbers'
has out 'Vectors come apart: one block a lane'
has out 'Complex numbers come apart: a block of the real parts'
run 0 blocks HybridFFTBlock
has out 'The simulator knows no meaning of it.'
run 0 blocks addBlock --json
json out 'd["blocks"][0]["simulated"] is True'
json out 'd["blocks"][0]["unrolling"]["vectors"] == {"comes_apart": True, "summary": "one block a lane"}'
json out 'd["blocks"][0]["unrolling"]["records"]["comes_apart"] is False'
