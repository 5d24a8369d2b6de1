#!/bin/bash
# The verb "trace": signals found again in what a design was lowered to.
. "$ORVO_SRC/tests/driver/lib.sh"

example=$ORVO_SRC/examples/mixer_pair.xml
run 0 lower "$example" -o low.xml

# A wire of a model that dissolved, once an instance and lane.
run 0 trace "$example" low.xml --signal mixer/product.primWireOut
empty err
[ "$(head -1 out)" = mixer/product.primWireOut ] || die "another signal"
has out '  is top/((mixer product) 3).primWireOut: copied out of model mixer, element 3'
has out '  is top/((dupName 0 (mixer product)) 0).primWireOut: copied out of model mixer, one more of the name (0), element 0'
[ "$(grep -c '  is ' out)" -eq 8 ] || die "not one place a lane and instance"
cp out by-model
# The same by the way through the instances, and with "/" in front of the wire.
run 0 trace "$example" low.xml --signal top/downMixer/product/primWireOut
same out by-model

# The boundary of the top model, whose lanes have names made from those of the ports.
run 0 trace "$example" low.xml --signal top/in.up
[ "$(cat out)" = 'top/in.up
  is top/in.(up 0): element 0
  is top/in.(up 1): element 1
  is top/in.(up 2): element 2
  is top/in.(up 3): element 3' ] || die "other lanes"
run 0 trace "$example" low.xml --signal top/out.upMixed
has out ', read by out.(upMixed 2)'

# A pin stays one block, whose ports are the lanes.
run 0 trace "$example" low.xml --signal top/upType.0 --json
json out 'd["schema"] == "orvo.trace/1" and [(p["block"], p["wire"], p["steps"], p["reader"]) for p in d["traces"][0]["places"]] == [
    ("upType_vunroll", str(i), ["in its place (vunroll)", "element %d" % i], None) for i in range(4)]'

# Boundaries that dissolved lead on to what was behind them.
run 0 trace "$example" low.xml --signal mixer/in.signals
has out '  goes on below'
has out "  because model 'mixer' dissolved; what its instance 'upMixer' of model 'top' read"
has out 'is top/upType_vunroll.3: in its place (vunroll), element 3'
run 0 trace "$example" low.xml --signal top/upMixer.mixed --json
json out '[t["signal"] for t in d["traces"]] == ["top/upMixer.mixed", "mixer/round.primWireOut"] and not d["traces"][0]["places"] and d["traces"][0]["gone"] is None'

# What nothing read is gone, and the code says so; a terminal leads on to what it read.
write_design d.xml
run 0 opt d.xml -o l.xml --passes 'DeadBlockPass, ElideTerminalPass'
run 1 trace d.xml l.xml --signal top/dead2.primWireOut
[ "$(cat out)" = 'top/dead2.primWireOut
  gone: nothing read it' ] || die "a dead block is found"
run 1 trace d.xml l.xml --signal top/dead1.primWireOut
has out '  gone: nothing that was used depended on it, or it was folded into something else'
run 0 trace d.xml l.xml --signal top/pass.0
[ "$(cat out)" = "top/pass.0
  goes on below
top/sum.primWireOut
  because block 'pass' of model 'top' was wiring; what it read
  is top/sum.primWireOut" ] || die "the trace ends at the terminal"
# Of a wire and a port of one name the wire is meant; other ports are found where they still are.
run 0 trace d.xml l.xml --signal top/out.0
has out 'is top/sum.primWireOut, read by out.0'

# A From leads to the Goto of its tag.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block to gotoBlock "$(param gotoTag a)$(param gotoTagType gotoTagTypeLocal)$(param gotoPortIn '[/top/in/x]')"
    block from fromBlock "$(param gotoTag a)<wire name=\"fromWireOut\"/>"
    block out outputBlock "$(param y '[/top/from/fromWireOut]')"
    printf '</model></design></kelmar>\n'
} >tags.xml
run 0 opt tags.xml -o joined.xml --passes ElideFromGotoPass
run 0 trace tags.xml joined.xml --signal top/from.fromWireOut
has out "because block 'from' was wiring; what the Goto of its tag read"
has out '  is top/in.x'

# What is not there is refused, with the nearest that is.
run 2 trace d.xml l.xml --signal top/sum.primWireOu
has err "the design has no signal 'top/sum.primWireOu': did you mean 'top/sum.primWireOut'?"
run 2 trace d.xml l.xml --signal tip/sum.primWireOut
run 2 trace d.xml l.xml --signal top/sun.primWireOut
has err "did you mean 'top/sum'?"
run 2 trace d.xml l.xml --signal top/sum
run 2 trace d.xml l.xml
has err '--signal is missing'
run 2 trace d.xml --signal a
has err 'a design and what it was lowered to are needed'
run 2 trace - - --signal a
has err 'only one design can come from standard input'

# What a block computed may come out of several that were made for it, whose names tell for what.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="x"/><wire name="y"/>'
    block '(sum low)' addBlock "$(param 0 '[/top/in/x]')<wire name=\"primWireOut\"/>"
    block '(sum high)' addBlock "$(param 0 '[/top/in/y]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param 0 '[/top/(sum low)/primWireOut]')$(param 1 '[/top/(sum high)/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >parts.xml
run 0 trace d.xml parts.xml --signal top/sum.primWireOut
has out '  is top/(sum low).primWireOut: beside it (low)'
has out '  is top/(sum high).primWireOut: beside it (high)'
