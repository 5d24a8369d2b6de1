#!/bin/bash
# The verb "diff".
. "$ORVO_SRC/tests/driver/lib.sh"

write_design a.xml
run 0 diff a.xml a.xml
[ "$(cat out)" = 'no differences' ] || die "differences of a design and itself"
run 0 opt a.xml -o again.xml
run 0 diff a.xml again.xml
run 0 diff - again.xml <a.xml

# Blocks that went, and ports that read something else now.
run 0 opt a.xml -o b.xml --passes 'DeadBlockPass, ElideTerminalPass'
run 1 diff a.xml b.xml
empty err
[ "$(cat out)" = '~ model top
  - block dead1 (addBlock)
  - block dead2 (addBlock)
  ~ block out (outputBlock)
    ~ port 0: pass/0 -> sum/primWireOut
  - block pass (terminalBlock)
4 differences in 1 models: blocks 0 added, 3 removed, 1 changed' ] || die "other differences"
run 1 diff b.xml a.xml
has out '  + block dead1 (addBlock)'
has out '    ~ port 0: sum/primWireOut -> pass/0'
has out 'blocks 3 added, 0 removed, 1 changed'

# Types, parameters, ports and wires that came, went and changed; models and their parameters.
write_pair() {
    printf '<kelmar xmlns="%s"><design version="1.2">%s<model name="top">%s\n' "$namespace" "$1" "$2"
    block in inputBlock '<wire name="x"/><wire name="y"/>'
    block wait "$3" "$(param delayLength "$4")$5"
    printf '</model>%s</design></kelmar>\n' "$6"
}
write_pair "$(param note old)" "" delayBlock 1 "$(param 0 '[/top/in/x]')$(param gone 1)<wire name=\"primWireOut\">$(param depth 3)</wire><wire name=\"w\"/>" '<model name="m"></model>' >a.xml
write_pair "" "$(param synthOutputMode true)" otherBlock 2 "$(param 0 '[/top/in/y]')$(param 1 '[/top/in/x]')$(param long '(a b c d e f g h i j k l m n o p q r s t u v w x y z 0 1 2 3 4 5 6 7 8 9)')<wire name=\"primWireOut\">$(param depth 4)</wire><wire name=\"v\"/>" '<model name="n"></model>' >b.xml
run 1 diff a.xml b.xml
[ "$(cat out)" = '- param note: old
- model m
+ model n
~ model top
  + param synthOutputMode: true
  ~ block wait (otherBlock)
    ~ port 0: in/x -> in/y
    + port 1: in/x
    ~ param blockType: delayBlock -> otherBlock
    ~ param delayLength: 1 -> 2
    - param gone: 1
    + param long: (a b c d e f g h i j k l m n o p q r s t u v w x y z 0 1 2 3...
    ~ wire primWireOut param depth: 3 -> 4
    + wire v
    - wire w
13 differences in 3 models: blocks 0 added, 0 removed, 1 changed' ] || die "other differences"
run 1 diff a.xml b.xml --json
json out 'd["schema"] == "orvo.diff/1" and not d["same"] and d["complete"] and d["differences"] == 13 and len(d["changes"]) == 13'
json out '[c["after"] for c in d["changes"] if c["name"] == "long"][0].endswith("8 9)")'
json out '{"change": "changed", "what": "port", "model": "top", "block": "wait", "type": "otherBlock", "name": "0", "param": None, "before": "in/x", "after": "in/y"} in d["changes"]'
json out '{"change": "added", "what": "wire", "model": "top", "block": "wait", "type": "otherBlock", "name": "v", "param": None, "before": None, "after": None} in d["changes"]'

# Long output ends at the limit; the last line counts all.
run 1 diff a.xml b.xml --limit 2
[ "$(cat out)" = '- param note: old
- model m
and 11 more: raise --limit to see them
13 differences in 3 models: blocks 0 added, 0 removed, 1 changed' ] || die "another end"
run 1 diff a.xml b.xml --limit 2 --json
json out 'not d["complete"] and len(d["changes"]) == 2 and d["differences"] == 13'

# Only a parameter of a block that is a wire is a port.
write_pair '' "$(param probe '[/top/in/x]')" delayBlock 1 "<wire name=\"w\">$(param probe '[/top/in/y]')</wire>" '' >a.xml
write_pair '' '' delayBlock 1 '<wire name="w"></wire>' '' >b.xml
run 1 diff a.xml b.xml
[ "$(sed '$d' out)" = '~ model top
  - param probe: in/x
  ~ block wait (delayBlock)
    - wire w param probe: in/y' ] || die "parameters are ports"
run 1 diff a.xml b.xml --json
json out '[c["what"] for c in d["changes"]] == ["param", "wire_param"]'

# Each difference is one line, whatever the values hold.
tab=$(printf '\t')
write_pair '' '' delayBlock 1 "$(param note "\"a
b${tab}c\"")" '' >a.xml
write_pair '' '' delayBlock 1 '' '' >b.xml
run 1 diff a.xml b.xml
has out '    - param note: "a\nb\tc"'
run 1 diff a.xml b.xml --json
json out 'd["changes"][0]["before"] == "\"a\nb\tc\""'

# A reference to a node of either design is the same if it names the same.
run 0 diff "$ORVO_SRC/examples/mixer_pair.xml" "$ORVO_SRC/examples/mixer_pair.xml"

# What cannot be compared has a code of its own.
run 2 diff a.xml
has err 'two designs are needed'
run 2 diff - -
has err 'only one design can come from standard input'
run 2 diff a.xml nowhere.xml
has err "cannot read 'nowhere.xml'"
echo '<kelmar' >broken.xml
run 2 diff a.xml broken.xml
has err broken.xml:

# Large designs.
big_design big1.xml 20000
big_design big2.xml 20001
run 1 diff big1.xml big2.xml
has out '+ block b20000 (addBlock)'

# A wire outside the model is named with its own.
write_pair "$(param probe '[/top/in/x]')" '' delayBlock 1 "$(param 0 '[/m/i/w]')$(param 1 '[/top/in/x]')" '<model name="m"><block name="i"><param name="blockType">inputBlock</param><wire name="w"/></block></model>' >a.xml
write_pair '' '' delayBlock 1 "$(param 0 '[/top/in/x]')$(param 1 '[/top/in/x]')" '<model name="m"><block name="i"><param name="blockType">inputBlock</param><wire name="w"/></block></model>' >b.xml
run 1 diff a.xml b.xml
has out '- param probe: top/in/x'
has out '    ~ port 0: m/i/w -> in/x'
