#!/bin/bash
# The verb "trace": signals found again in what a design was lowered to.
. "$ORVO_SRC/tests/driver/lib.sh"

example=$ORVO_SRC/examples/mixer_pair.xml
run 0 lower "$example" -o low.xml

# A wire of a model that dissolved, once an instance, lane and part: of what a complex product takes, the sums come last.
run 0 trace "$example" low.xml --signal mixer/product.primWireOut
empty err
[ "$(head -1 out)" = mixer/product.primWireOut ] || die "another signal"
has out '  is top/(((mixer product) 3) realSub).primWireOut: copied out of model mixer, element 3, beside it (realSub)'
has out '  is top/(((dupName 0 (mixer product)) 0) imagAdd).primWireOut: copied out of model mixer, one more of the name (0), element 0, beside it (imagAdd)'
[ "$(grep -c '  is ' out)" -eq 16 ] || die "not one place an instance, lane and part"
cp out by-model
# The same by the way through the instances, and with "/" in front of the wire.
run 0 trace "$example" low.xml --signal top/downMixer/product/primWireOut
same out by-model

# The boundary of the top model, whose lanes have names made from those of the ports.
run 0 trace "$example" low.xml --signal top/in.up
[ "$(cat out)" = 'top/in.up
  is top/in.(up imag 0): imaginary part, element 0
  is top/in.(up imag 1): imaginary part, element 1
  is top/in.(up imag 2): imaginary part, element 2
  is top/in.(up imag 3): imaginary part, element 3
  is top/in.(up real 0): real part, element 0
  is top/in.(up real 1): real part, element 1
  is top/in.(up real 2): real part, element 2
  is top/in.(up real 3): real part, element 3' ] || die "other lanes"
run 0 trace "$example" low.xml --signal top/out.upMixed
has out ', read by out.(upMixed real 2)'

# A pin stays one block, whose ports are the lanes.
run 0 trace "$example" low.xml --signal top/upType.0 --json
json out 'd["schema"] == "orvo.trace/1" and [(p["block"], p["wire"], p["steps"], p["reader"]) for p in d["traces"][0]["places"]] == [
    ("upType_vunroll_cunroll", str(i), ["in its place (vunroll)", "in its place (cunroll)", "element %d, %s part" % (i / 2, "imaginary" if i % 2 else "real")], None)
    for i in range(8)]'

# Boundaries that dissolved lead on to what was behind them.
run 0 trace "$example" low.xml --signal mixer/in.signals
has out '  goes on below'
has out "  because model 'mixer' dissolved; what its instance 'upMixer' of model 'top' read"
has out 'is top/upType_vunroll_cunroll.7: in its place (vunroll), in its place (cunroll), element 3, imaginary part'
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

# Only of the tag that reaches it: the narrowest, and no local one of another model.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="low">\n' "$namespace"
    block from fromBlock "$(param gotoTag a)<wire name=\"fromWireOut\"/>"
    block out outputBlock "$(param y '[/low/from/fromWireOut]')"
    printf '</model><model name="other">\n'
    block in inputBlock '<wire name="hidden"/>'
    block to gotoBlock "$(param gotoTag a)$(param gotoTagType gotoTagTypeLocal)$(param gotoPortIn '[/other/in/hidden]')"
    printf '</model><model name="top">\n'
    block in inputBlock '<wire name="wide"/><wire name="first"/><wire name="own"/>'
    block low modelBlock "$(param modelNode '[/low]')<wire name=\"y\"/>"
    block to1 gotoBlock "$(param gotoTag a)$(param gotoPortIn '[/top/in/first]')"
    block to2 gotoBlock "$(param gotoTag a)$(param gotoTagType tpyo)$(param gotoPortIn '[/top/in/own]')"
    block to3 gotoBlock "$(param gotoTag a)$(param gotoTagType gotoTagTypeGlobal)$(param gotoPortIn '[/top/in/wide]')"
    block from fromBlock "$(param gotoTag a)<wire name=\"fromWireOut\"/>"
    block out outputBlock "$(param x '[/top/from/fromWireOut]')$(param y '[/top/low/y]')"
    printf '</model></design></kelmar>\n'
} >tags.xml
run 0 opt tags.xml -o joined.xml --passes ElideFromGotoPass
run 0 trace tags.xml joined.xml --signal low/from.fromWireOut
[ "$(grep '  is ' out)" = '  is top/in.wide' ] || die "a tag is not followed by its reach"
run 0 trace tags.xml joined.xml --signal top/from.fromWireOut
[ "$(grep '  is ' out)" = '  is top/in.own' ] || die "a wider tag, or an earlier, hides the narrow one"

# Of Gotos with one tag in several models, that of the From's own model comes first, then that of the first on the way
# up; else the last, unless a model above it has one, too.
# tagged NAME INPUTS BLOCKS: a model.
tagged() {
    printf '<model name="%s">\n' "$1"
    [ -z "$2" ] || block in inputBlock "$(for wire in $2; do echo "<wire name=\"$wire\"/>"; done)"
    printf '%s</model>\n' "$3"
}
goto() { block g gotoBlock "$(param gotoTag t)$(param gotoTagType gotoTagTypeGlobal)$(param gotoPortIn "$1")"; }
from="$(block f fromBlock "$(param gotoTag t)<wire name=\"fromWireOut\"/>")"
pin() { block "p$2" typePinBlock "$(param typePinType '(typeSFixed 8 0)')$(param 0 "[/$1/in/$2]")<wire name=\"0\"/>"; }
instance() { block "c$1" modelBlock "$(param modelNode "[/$1]")${2:+$(param x "$2")}<wire name=\"y\"/>"; }
gives() { block out outputBlock "$(param y "[/$1]")"; }
{
    printf '<kelmar xmlns="%s"><design version="1.2">\n' "$namespace"
    tagged top 'x z' "$(param synthOutputMode true)$(pin top x)$(pin top z)$(instance a '[/top/px/0]')$(instance b '[/top/pz/0]')$from
$(block out outputBlock "$(param ya '[/top/ca/y]')$(param yb '[/top/cb/y]')$(param yt '[/top/f/fromWireOut]')")"
    for model in a b; do
        tagged $model x "$(pin $model x)$(goto "[/$model/px/0]")$from$(gives $model/f/fromWireOut)"
    done
    printf '</design></kelmar>\n'
} >two.xml
{
    printf '<kelmar xmlns="%s"><design version="1.2">\n' "$namespace"
    tagged top 'x z' "$(param synthOutputMode true)$(pin top x)$(pin top z)$(goto '[/top/px/0]')$(instance zz '[/top/pz/0]')$(instance mid)
$(block out outputBlock "$(param ya '[/top/czz/y]')$(param ym '[/top/cmid/y]')")"
    tagged zz x "$(goto '[/zz/in/x]')$(gives zz/in/x)"
    tagged mid '' "$(instance q)$(gives mid/cq/y)"
    tagged q '' "$from$(gives q/f/fromWireOut)"
    printf '</design></kelmar>\n'
} >above.xml
{
    printf '<kelmar xmlns="%s"><design version="1.2">\n' "$namespace"
    tagged top 'x' "$(param synthOutputMode true)$(pin top x)$(instance mid '[/top/px/0]')$from
$(block out outputBlock "$(param y '[/top/f/fromWireOut]')$(param ym '[/top/cmid/y]')")"
    tagged mid x "$(goto '[/mid/d/primWireOut]')$(block d delayBlock "$(param delayLength 1)$(param 0 '[/mid/in/x]')<wire name=\"primWireOut\"/>")$(instance q '[/mid/in/x]')$(gives mid/cq/y)"
    tagged q x "$(goto '[/q/in/x]')$(gives q/in/x)"
    printf '</design></kelmar>\n'
} >between.xml
# reads DESIGN SIGNAL PLACE OUTPUT: the trace ends where the output reads.
reads() {
    run 0 lower "$1" -o joined.xml
    run 0 trace "$1" joined.xml --signal "$2"
    [ "$(sed -n 's,^  is \(.*\)$,\1,p' out)" = "$3" ] || die "$2 is elsewhere"
    run 0 trace "$1" joined.xml --signal "$4"
    has out "is ${3%%:*}, read by"
}
reads two.xml a/f.fromWireOut 'top/(a px).0: copied out of model a' top/out.ya
reads two.xml b/f.fromWireOut 'top/(b px).0: copied out of model b' top/out.yb
reads two.xml top/f.fromWireOut 'top/(b px).0: copied out of model b' top/out.yt
reads above.xml q/f.fromWireOut top/px.0 top/out.ym
reads between.xml top/f.fromWireOut 'top/(mid d).primWireOut: copied out of model mid' top/out.y

# What is not there is refused, with the nearest that is.
run 2 trace d.xml l.xml --signal top/sum.primWireOu
has err "the design has no signal 'top/sum.primWireOu': did you mean 'top/sum.primWireOut'?"
run 2 trace d.xml l.xml --signal tip/sum.primWireOut
run 2 trace d.xml l.xml --signal top/sun.primWireOut
has err "did you mean 'top/sum'?"
run 2 trace d.xml l.xml --signal top/sum
run 2 trace d.xml l.xml --signal '[/top/sum/primWireOu]'
has err "no signal '[/top/sum/primWireOu]': did you mean 'top/sum.primWireOut'?"
run 2 trace d.xml l.xml --signal '[]'
# Signals go by the references, too, that messages and files have.
run 0 trace d.xml l.xml --signal top/sum.primWireOut
cp out plain
for path in /top/sum/primWireOut '[/top/sum/primWireOut]' /top/sum.primWireOut '[top/sum/primWireOut]'; do
    run 0 trace d.xml l.xml --signal "$path"
    same out plain
done
run 2 trace d.xml l.xml
has err '--signal is missing'
run 2 trace d.xml --signal a
has err 'a design and what it was lowered to are needed'
run 2 trace - - --signal a
has err 'only one design can come from standard input'

# That a design cannot be read is no answer.
echo '<kelmar' >broken.xml
run 2 trace d.xml broken.xml --signal top/sum.primWireOut
has err broken.xml:
run 2 trace broken.xml l.xml --signal top/sum.primWireOut
has err broken.xml:

# Packs at scheduled models are named by the port alone; which model each is of tell the wires.
scheduled_pair() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="i"/>'
    printf '%s\n' "$1"
    block s1 scheduledModelBlock "$2"
    block s2 scheduledModelBlock "$3"
    printf '</model></design></kelmar>\n'
}
unpack_of() { block "$1" vunpackBlock "$(param vunpackPortIn '[/top/in/i]')<wire name=\"0\"/>"; }
scheduled_pair '' "$(param x '[/top/in/i]')" "$(param x '[/top/in/i]')" >v.xml
scheduled_pair "$(unpack_of '(x vup)')$(unpack_of '(dupName 0 (x vup))')" "$(param '(x 0)' '[/top/(x vup)/0]')" "$(param '(x 0)' '[/top/(dupName 0 (x vup))/0]')" >u.xml
run 0 trace v.xml u.xml --signal top/s1.x
has out 'read by (x vup).vunpackPortIn, the whole signal'
lacks out dupName
run 0 trace v.xml u.xml --signal top/s2.x
has out 'read by (dupName 0 (x vup)).vunpackPortIn, the whole signal'
lacks out 'read by (x vup)'

# A scheduled model tells by its handle what its signals become; what is taken apart in several steps has one pack or
# unpack for the whole, and others for its elements.
python3 - scheduled.xml "$namespace" <<'PYTHON'
import sys
def leaves(word):
    return "".join("((compoundDecorIndexTag (compoundIndexTypeVector %d) (compoundIndexTypeComplex %d)) %s%d)"
                   % (i // 2, i % 2, word, i) for i in range(4))
def names(word):
    return " ".join("%s%d" % (word, i) for i in range(4))
def each(word, what):
    return " ".join("(%s%d %s)" % (word, i, what) for i in range(4))
whole = "(typeVector 2 (typeComplex (typeSFixed 4 0)))"
handle = ("(scheduledModelHandleTag gen (scheduledModelPortlistTag (%s) (%s)) (scheduledModelTypesTag (%s) (%s)) "
          "(scheduledModelDomainsTag (%s) (%s)) (scheduledModelTimestepsTag () ()) (unrollMappingsTag (x (%s))) "
          "(unrollMappingsTag (y (%s))) (0 0 ()) scheduledModelHandleOriginaltypesTag (scheduledModelTypesTag ((x %s)) "
          "((y %s))))" % (names("xx"), names("yy"), each("xx", "(typeSFixed 4 0)"), each("yy", "(typeSFixed 4 0)"),
                          each("xx", "clk"), each("yy", "clk"), leaves("xx"), leaves("yy"), whole, whole))
def param(name, value):
    return '<param name="%s">%s</param>' % (name, value)
def block(name, kind, rest):
    return '<block name="%s">%s%s</block>\n' % (name, param("blockType", kind), rest)
def scheduled(name, source):
    return block(name, "scheduledModelBlock", param("scheduledModelValue", handle)
                 + param("scheduledModelOriginalTypes", "true") + param("x", source) + '<wire name="y"/>')
open(sys.argv[1], "w").write(
    '<kelmar xmlns="%s"><design version="1.2"><model name="top">%s\n' % (sys.argv[2], param("synthOutputMode", "true"))
    + block("in", "inputBlock", '<wire name="x"/>')
    + block("pin", "typePinBlock", param("0", "[/top/in/x]") + param("typePinType", whole) + '<wire name="0"/>')
    + scheduled("s", "[/top/pin/0]") + scheduled("s2", "[/top/s/y]")
    + block("out", "outputBlock", param("y", "[/top/s2/y]")) + "</model></design></kelmar>\n")
PYTHON
cp scheduled.xml v.xml
of_handle() {
    run 0 trace v.xml u.xml --signal "top/$1"
    [ "$(sed -n 's,^  is top/,,p' out)" = "$2" ] || die "$1 is elsewhere"
}
run 0 lower v.xml -o u.xml
of_handle s.y 's.yy0: element 0, real part
s.yy1: element 0, imaginary part
s.yy2: element 1, real part
s.yy3: element 1, imaginary part'
of_handle s2.x 's.yy0: element 0, real part, read by s2.xx0
s.yy1: element 0, imaginary part, read by s2.xx1
s.yy2: element 1, real part, read by s2.xx2
s.yy3: element 1, imaginary part, read by s2.xx3'
run 0 lower v.xml -o u.xml --upto UnrollScheduledModelPass
of_handle s.y '(y vp).vpackWireOut: at y, beside it (vp), the whole signal
s.yy0: element 0, real part
s.yy1: element 0, imaginary part
s.yy2: element 1, real part
s.yy3: element 1, imaginary part
(y cp 0).cpackWireOut: at y, beside it (cp), element 0
(y cp 1).cpackWireOut: at y, beside it (cp), element 1'
of_handle s2.x '(y vp).vpackWireOut: at x, beside it (vup), one more of the name (0), read by (dupName 0 (x vup)).vunpackPortIn, the whole signal
(dupName 0 (x cup 0)).cunpackWireReal: element 0, real part, read by s2.xx0
(dupName 0 (x cup 0)).cunpackWireImag: element 0, imaginary part, read by s2.xx1
(dupName 0 (x cup 1)).cunpackWireReal: element 1, real part, read by s2.xx2
(dupName 0 (x cup 1)).cunpackWireImag: element 1, imaginary part, read by s2.xx3
(dupName 0 (x vup)).0: at x, beside it (cup), one more of the name (0), element 0, read by (dupName 0 (x cup 0)).cunpackPortIn
(dupName 0 (x vup)).1: at x, beside it (cup), one more of the name (0), element 1, read by (dupName 0 (x cup 1)).cunpackPortIn'
run 0 trace v.xml u.xml --signal top/s.y --json
json out '[p["whole"] for p in d["traces"][0]["places"]] == [True] + 6 * [False]'
# Before that pass the signals are as they were.
run 0 lower v.xml -o u.xml --upto DeadBlockPass --stop-after 2
of_handle s.y s.y

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

# lowered TYPE INPUTS OUTPUTS PARAMS PASSES: a block "b" of the type, lowered from v.xml to u.xml. An input is a port, ":"
# and a type.
lowered() {
    local ports wires= inputs= outputs= pins=
    IFS=';' read -ra ports <<<"$2"
    for entry in "${ports[@]}"; do
        local port=${entry%%:*}
        wires+="<wire name=\"i$port\"/>"
        pins+=$(block "t$port" typePinBlock "$(param typePinType "${entry#*:}")$(param 0 "[/top/in/i$port]")<wire name=\"0\"/>")
        inputs+=$(param "$port" "[/top/t$port/0]")
    done
    for wire in $3; do
        inputs+="<wire name=\"$wire\"/>"
        outputs+=$(param "o$wire" "[/top/b/$wire]")
    done
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">%s\n' "$namespace" "$(param synthOutputMode true)"
        block in inputBlock "$wires"
        printf '%s\n' "$pins"
        block b "$1" "$4$inputs"
        block out outputBlock "$outputs"
        printf '</model></design></kelmar>\n'
    } >v.xml
    run 0 opt v.xml -o u.xml --passes "$5"
}
# is SIGNAL PLACES: where the signal is in u.xml, without the name of the model.
is() {
    run 0 trace v.xml u.xml --signal "top/$1"
    [ "$(sed -n 's,^  is top/,,p' out)" = "$2" ] || die "$1 is elsewhere"
}
four='(typeVector 4 (typeSFixed 4 0))'
bit='(typeUFixed 1 0)'
whole_lowering='UnrollVectorPass, UnrollVectorCrossModelPass, ElideUnpackPass, DeadBlockPass'

# A vector split has a pack for each of its outputs, but none for a single element.
lowered vsplitBlock "0:$four" '0 1' "$(param vsplitLayout '(3 1)')" UnrollVectorPass
is b.0 'b_vp0.vpackWireOut: beside it (vp0), the whole signal'
is b.1 'b_vup.3: beside it (vup)'
run 0 trace v.xml u.xml --signal top/b.0 --json
json out '[p["whole"] for p in d["traces"][0]["places"]] == [True]'
# Elements that nothing joins are told by their number.
sed '/<block name="b_vp0">/,/<\/block>/d; /b_vp0/d' u.xml >cut.xml
mv cut.xml u.xml
is b.0 'b_vup.0: beside it (vup), element 0
b_vup.1: beside it (vup), element 1
b_vup.2: beside it (vup), element 2'
# Without a layout, the first outputs are longer.
lowered vsplitBlock '0:(typeVector 3 (typeSFixed 4 0))' '0 1' '' UnrollVectorPass
is b.1 'b_vup.2: beside it (vup)'

# A vector concatenation has one pack, and an unpack for each vector that goes in.
lowered vconcatBlock "0:$four;1:$four" primWireOut '' UnrollVectorPass
is b.primWireOut 'b_vp.vpackWireOut: beside it (vp), the whole signal'
is b.1 '((t1 0) vp).vpackWireOut: beside it (vup1), read by b_vup1.vunpackPortIn, the whole signal'

# A vector selector is nothing but wiring: the trace goes on with the elements that it takes, of each once.
elements() { for i in $2; do echo "$1_vunroll.$i: in its place (vunroll), element $i"; done; }
lowered vselectorBlock "vselectorPortIn:$four" primWireOut "$(param vselectorIndicies '((2 1 2))')" "$whole_lowering"
is b.primWireOut "$(elements tvselectorPortIn '1 2')"
has out "because block 'b' of model 'top' was wiring; what it read: elements 1, 2"
run 0 trace v.xml u.xml --signal top/b.primWireOut --json
json out 'd["traces"][1]["via"].endswith("what it read: elements 1, 2") and len(d["traces"][1]["places"]) == 2'

# So is a split whose packs are gone, with a layout and without, and a concatenation.
lowered vsplitBlock "0:$four" '0 1' "$(param vsplitLayout '(3 1)')" "$whole_lowering"
is b.0 "$(elements t0 '0 1 2')"
has out 'what it read: elements 0 to 2'
is b.1 "$(elements t0 3)"
has out 'what it read: element 3'
lowered vsplitBlock '0:(typeVector 5 (typeSFixed 4 0))' '0 1' '' "$whole_lowering"
is b.0 "$(elements t0 '0 1 2')"
is b.1 "$(elements t0 '3 4')"
lowered vsplitBlock "0:(typeVector 4 (typeComplex (typeSFixed 4 0)))" '0 1' '' "$whole_lowering, UnrollComplexPass, UnrollComplexCrossModelPass, ElideUnpackPass, DeadBlockPass"
is b.1 't0_vunroll_cunroll.4: in its place (vunroll), in its place (cunroll), element 2, real part
t0_vunroll_cunroll.5: in its place (vunroll), in its place (cunroll), element 2, imaginary part
t0_vunroll_cunroll.6: in its place (vunroll), in its place (cunroll), element 3, real part
t0_vunroll_cunroll.7: in its place (vunroll), in its place (cunroll), element 3, imaginary part'

# Each lane of a demultiplexer numbers its outputs from 0; all read the same channel.
lowered demuxBlock "demuxPortData:(typeVector 2 (typeSFixed 4 0));portValid:$bit;portChannel:$bit" '0 1 2 3' "$(param demuxChannelCount 2)" "$whole_lowering"
is b.0 '(b vunroll 0).0: in its place (vunroll)'
is b.1 '(b vunroll 0).1: in its place (vunroll)'
is b.2 '(b vunroll 1).0: in its place (vunroll)'
is b.3 '(b vunroll 1).1: in its place (vunroll)'
is b.demuxPortData 'tdemuxPortData_vunroll.0: in its place (vunroll), element 0, read by (b vunroll 0).demuxPortData
tdemuxPortData_vunroll.1: in its place (vunroll), element 1, read by (b vunroll 1).demuxPortData'
is b.portValid 'tportValid.0: in its place (vunroll), read by (b vunroll 0).portValid
tportValid.0: in its place (vunroll), read by (b vunroll 1).portValid'

# What a block computes may go on through blocks made beside it: the last of them drives the readers.
float='(typeVector 3 (typeSFloatIEEE 8 23))'
lowered scalarProductBlock "0:$float;1:$float" primWireOut "$(param subtractive true)$(param floatRoundingMode roundingUp)" "$whole_lowering"
is b.primWireOut '(b chain 2 0).primWireOut: beside it (chain)'
lowered counterBlock "portEnable:(typeVector 2 $bit)" primWireOut "$(param counterLimit '(3 17)')$(param counterInitial 0)$(param counterStep 1)" "$whole_lowering"
is b.primWireOut '((b 0) cast).primWireOut: element 0, beside it (cast)
((b 1) cast).primWireOut: element 1, beside it (cast)'

# A block that is there without the port is not gone.
lowered notBlock "0:$bit" primWireOut '' DeadBlockPass
sed '/<block name="b">/,/<\/block>/{/name="0"/d}' u.xml >cut.xml
mv cut.xml u.xml
is b.0 't0.0'
has out "because block 'b' of model 'top' has no such port any more; what it read"

# Unpacks lead on with their member, part or element, on all levels; packs to the input of it.
# nested TYPE BLOCKS OUTPUTS: a delay "q" of a signal of the type, from v.xml lowered to u.xml.
nested() {
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">%s\n' "$namespace" "$(param synthOutputMode true)"
        block in inputBlock '<wire name="a"/>'
        block p typePinBlock "$(param typePinType "$1")$(param 0 '[/top/in/a]')<wire name=\"0\"/>"
        block q delayBlock "$(param delayLength 3)$(param 0 '[/top/p/0]')<wire name=\"primWireOut\"/>"
        printf '%s\n' "$2"
        block out outputBlock "$3"
        printf '</model></design></kelmar>\n'
    } >v.xml
    run 0 lower v.xml -o u.xml
}
unpack() { block "$1" "$2unpackBlock" "$(param "$2unpackPortIn" "[/top/$3]")$(for wire in $4; do echo "<wire name=\"$wire\"/>"; done)"; }
real=cunpackWireReal imag=cunpackWireImag small='(typeUFixed 3 0)'
nested "(typeComplex $small)" "$(unpack u c q/primWireOut "$real $imag")" "$(param x "[/top/u/$real]")$(param y "[/top/u/$imag]")"
is u.$imag '(q imag).primWireOut: imaginary part'
has out 'what it read: imaginary part'
nested "(typeVector 2 (typeVector 3 $small))" "$(unpack u v q/primWireOut '0 1')$(unpack v v u/1 '0 1 2')" "$(param x '[/top/v/2]')$(param y '[/top/v/0]')$(param z '[/top/u/0]')"
is v.2 '(q 2 1).primWireOut: element 2, element 1'
has out 'what it read: element 2 of element 1'
# What the trace finds is what the lowered design reads there.
nested "(typeAggregate $small (typeVector 2 (typeAggregate $small (typeVector 3 (typeComplex $small)))))" \
    "$(unpack a a q/primWireOut '0 1')$(unpack b v a/1 '0 1')$(unpack c a b/0 '0 1')$(unpack d v c/1 '0 1 2')$(unpack e c d/2 "$imag")" \
    "$(param x "[/top/e/$imag]")$(param y '[/top/q/primWireOut]')"
leaf='(((((q 1) 0) 1) 2) imag).primWireOut: member 1, element 0, member 1, element 2, imaginary part'
is e.$imag "$leaf"
run 0 trace v.xml u.xml --signal top/out.x
has out "  is top/${leaf%%:*}, read by out.x"
run 0 trace v.xml u.xml --signal top/p.0
has out 'cunroll), member 1, element 0, member 1, element 2, imaginary part'
run 0 trace v.xml u.xml --signal top/out.y
has out "is top/${leaf%%:*}: element 0, member 1, element 2, imaginary part, member 1, read by out.(y 0 1 2 imag 1)"

run 0 lower "$ORVO_SRC/examples/tagged_samples.xml" -o u.xml
cp "$ORVO_SRC/examples/tagged_samples.xml" v.xml
is fields.1 '((hold held) 1).primWireOut: copied out of model hold, member 1'
has out 'what it read: member 1'
# Through a pack to the input of the member, and out of it to an element.
nested "(typeVector 2 $small)" "$(block pack apackBlock "$(param 0 '[/top/q/primWireOut]')$(param 1 '[/top/p/0]')<wire name=\"apackWireOut\"/>")$(unpack u a pack/apackWireOut '0 1')$(unpack v v u/0 '0 1')" "$(param x '[/top/v/1]')$(param y '[/top/u/1]')"
is v.1 '(q 1).primWireOut: element 1'
has out 'what it read: element 1 of member 0'
is u.1 'p_vunroll.0: in its place (vunroll), element 0
p_vunroll.1: in its place (vunroll), element 1'

# The lanes of a pipe's main output have the name of the input that it gives on.
nested "(typeVector 2 $small)" "$(block w pipeBlock "$(param 0 '[/top/q/primWireOut]')<wire name=\"primWireOut\"/>")" \
    "$(param x '[/top/w/primWireOut]')"
is w.primWireOut 'w.(0 0): element 0
w.(0 1): element 1'

# What a pack narrows is what the cast in its place makes of it, and not what went in.
nested "$small" "$(block r multBlock "$(param 0 '[/top/q/primWireOut]')$(param 1 '[/top/q/primWireOut]')<wire name=\"primWireOut\"/>")
    $(block pack vpackBlock "$(param 0 '[/top/r/primWireOut]')$(param 1 '[/top/q/primWireOut]')<wire name=\"vpackWireOut\"/>")
    $(unpack u v pack/vpackWireOut '0 1')" "$(param x '[/top/u/0]')$(param y '[/top/u/1]')"
is u.0 '((u 0) unpackCast).primWireOut: at 0, beside it (unpackCast)'
is u.1 'q.primWireOut'

# What stands in place of an output may have no wire in a design that someone changed.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block '((u 0) unpackCast)' castBlock ''
    printf '</model></design></kelmar>\n'
} >w.xml
run 1 trace v.xml w.xml --signal top/u.0
has out '  gone'
