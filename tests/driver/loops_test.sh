#!/bin/bash
# Feedback loops through the driver.
. "$ORVO_SRC/tests/driver/lib.sh"

write_design d.xml
run 0 loops d.xml
empty out
empty err
run 0 loops d.xml --json
json out 'd == {"schema": "orvo.loops/1", "input": "d.xml", "complete": True, "loops": []}'

# A filter feeds its output back through delays.
run 0 loops "$ORVO_SRC/examples/biquad.xml" --json
json out 'd["loops"] and all(l["slack"] > 0 and not l["memory"] for l in d["loops"])'

# One loop with a memory and no delay, one through a model with two cycles, one that a constraint closes.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="sub">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block wait delayBlock "$(param 0 '[/sub/in/x]')$(param delayLength 2)<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/sub/wait/primWireOut]')"
    printf '</model><model name="top">%s\n' "$(param synthScheduleConstraints '((0 synthLConstraintGE 4))')"
    block memory sharedMemBlock "$(param sharedMemPortAddr '[/top/logic/primWireOut]')<wire name=\"sharedMemWireData\"/>"
    block logic negBlock "$(param 0 '[/top/memory/sharedMemWireData]')<wire name=\"primWireOut\"/>"
    block sum addBlock "$(param 0 '[/top/sub/y]')<wire name=\"primWireOut\"/>"
    block sub modelBlock "$(param modelNode '[/sub]')$(param x '[/top/sum/primWireOut]')<wire name=\"y\"/>"
    block first negBlock "$(param 0 '[/top/sum/primWireOut]')$(param scheduleConstraintPorts '((0 true () (0)))')<wire name=\"primWireOut\"/>"
    block last negBlock "$(param 0 '[/top/first/primWireOut]')$(param scheduleConstraintWires '((primWireOut true (0) ()))')<wire name=\"primWireOut\"/>"
    printf '</model></design></kelmar>\n'
} >loops.xml
run 0 loops loops.xml
[ "$(cat out)" = 'top
  loop of 2 blocks, slack 4
    top/first                    negBlock
    top/last                     negBlock
  loop of 2 blocks, slack 0, accesses memory
    top/logic                    negBlock
    top/memory                   sharedMemBlock
  loop of 2 blocks, slack 2
    top/sum                      addBlock
    sub/wait                     delayBlock' ] || die "other loops"
run 0 loops loops.xml --json
json out '[(l["root"], l["slack"], l["memory"], [b["block"] for b in l["blocks"]]) for l in d["loops"]] == [
    ("top", 4, False, ["first", "last"]), ("top", 0, True, ["logic", "memory"]), ("top", 2, False, ["sum", "wait"])]'
json out 'd["loops"][2]["blocks"][1] == {"model": "sub", "block": "wait", "type": "delayBlock"}'
run 0 loops loops.xml --limit 2
has out 'and more: raise --limit to see them'
lacks out 'sub/wait'
run 0 loops loops.xml --limit 2 --json
json out 'len(d["loops"]) == 2 and not d["complete"]'
run 0 loops loops.xml --limit 3 --json
json out 'd["complete"]'
run 2 loops loops.xml --limit 0

# Where it looks: below the models that are written out, else below the tops, else everywhere; or below a given one.
write_two() { # FILE MODE-OF-TOP INNER: two models with a loop each; "top" instantiates INNER, "aside" instantiates "top".
    {
        printf '<kelmar xmlns="%s"><design version="1.2">\n' "$namespace"
        for model in top aside; do
            printf '<model name="%s">%s\n' $model "$([ $model = aside ] || printf '%s' "$2")"
            block a negBlock "$(param 0 "[/$model/b/primWireOut]")<wire name=\"primWireOut\"/>"
            block b negBlock "$(param 0 "[/$model/a/primWireOut]")<wire name=\"primWireOut\"/>"
            [ $model = aside ] && block inner modelBlock "$(param modelNode '[/top]')"
            [ $model = top ] && [ -n "$3" ] && block inner modelBlock "$(param modelNode "[/$3]")"
            printf '</model>\n'
        done
        printf '</design></kelmar>\n'
    } >"$1"
}
places='[(l["root"], l["blocks"][0]["model"]) for l in d["loops"]]'
write_two marked.xml "$(param synthOutputMode synthOutputHDLRoot)" ''
run 0 loops marked.xml --json
json out "$places == [('top', 'top')]"
run 0 loops marked.xml --top aside --json
json out "sorted($places) == [('aside', 'aside'), ('aside', 'top')]"
write_two unmarked.xml '' ''
run 0 loops unmarked.xml --json
json out "sorted($places) == [('aside', 'aside'), ('aside', 'top')]"
write_two mutual.xml '' aside
run 0 loops mutual.xml --json
json out "sorted(m for r, m in $places) == ['aside', 'top']"
run 2 loops mutual.xml --top tip
has err "no model 'tip'"
run 2 loops mutual.xml --top ''
has err 'the name is empty'

# A block that carries signals by their names is on the loop.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block c channelInBlock "$(param x '[/top/n/primWireOut]')<wire name=\"x\"/><wire name=\"y\"/>"
    block n negBlock "$(param 0 '[/top/c/x]')<wire name=\"primWireOut\"/>"
    printf '</model></design></kelmar>\n'
} >names.xml
run 0 loops names.xml --json
json out '[[b["block"] for b in l["blocks"]] for l in d["loops"]] == [["c", "n"]]'
sed -i 's|/c/x|/c/y|' names.xml
run 0 loops names.xml
empty out

# A pipe takes each signal through for itself, and its main output shows input 0.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block p pipeBlock "$(param 0 '[/top/in/x]')$(param a '[/top/n/primWireOut]')<wire name=\"primWireOut\"/><wire name=\"a\"/>"
    block n negBlock "$(param 0 '[/top/p/primWireOut]')<wire name=\"primWireOut\"/>"
    printf '</model></design></kelmar>\n'
} >pipe.xml
run 0 loops pipe.xml
empty out
sed -i 's|/p/primWireOut|/p/a|' pipe.xml
run 0 loops pipe.xml --json
json out '[[b["block"] for b in l["blocks"]] for l in d["loops"]] == [["n", "p"]]'

# What reads a wire of another model is on no loop by that.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="a">\n' "$namespace"
    block n negBlock "$(param 0 '[/top/n/primWireOut]')<wire name=\"primWireOut\"/>"
    printf '</model><model name="top">\n'
    block n negBlock "$(param 0 '[/a/n/primWireOut]')<wire name=\"primWireOut\"/>"
    block aside negBlock "$(param 0 '[/top/aside/primWireOut]')<wire name=\"primWireOut\"/>"
    block sub modelBlock "$(param modelNode '[/a]')"
    printf '</model></design></kelmar>\n'
} >foreign.xml
run 0 loops foreign.xml --json
json out '[[b["block"] for b in l["blocks"]] for l in d["loops"]] == [["aside"]]'

# The limit bounds the search, too: each one in a long ring without delay passes all of it.
python3 -c 'import sys
count = 12000
with open("ring.xml", "w") as f:
    f.write("<kelmar xmlns=\"%s\"><design version=\"1.2\"><model name=\"top\">\n" % sys.argv[1])
    for i in range(count):
        f.write("<block name=\"b%d\"><param name=\"blockType\">addBlock</param><param name=\"0\">[/top/b%d/primWireOut]"
                "</param><param name=\"1\">[/top/d%d/primWireOut]</param><wire name=\"primWireOut\"/></block>\n"
                % (i, (i + count - 1) % count, i))
        f.write("<block name=\"d%d\"><param name=\"blockType\">delayBlock</param><param name=\"delayLength\">1</param>"
                "<param name=\"0\">[/top/b%d/primWireOut]</param><wire name=\"primWireOut\"/></block>\n" % (i, i))
    f.write("</model></design></kelmar>\n")' "$namespace"
run 0 loops ring.xml --limit 2 --json
json out 'not d["complete"] and [(len(l["blocks"]), l["slack"]) for l in d["loops"]] == [(12000, 0)]'
run 0 loops ring.xml --limit 20 --json
json out 'not d["complete"] and [(len(l["blocks"]), l["slack"]) for l in d["loops"][:2]] == [(12000, 0), (2, 1)]'
run 2 loops
