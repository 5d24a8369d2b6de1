#!/bin/bash
# The simulator through the driver: stimuli, tables, dumps, and designs that cannot run.
. "$ORVO_SRC/tests/driver/lib.sh"

cp "$ORVO_SRC"/examples/*.xml .

# The response to an impulse is the coefficients.
run 0 sim fir16.xml --stimulus impulse --cycles 3 --raw
[ "$(cat out)" = 'cycle,filtered
0,-1703884
1,-4292477
2,-3178399' ] || die "other coefficients"
run 0 sim fir16.xml --stimulus impulse --cycles 3
has out '0,-0.0015868656337261199951171875'
empty err

# The same seed gives the same bytes; standard output is the default.
run 0 sim biquad.xml --stimulus noise:seed=4 --cycles 50 -o a.csv
empty out
run 0 sim biquad.xml --stimulus noise:seed=4 --cycles 50
same out a.csv
run 0 sim biquad.xml --stimulus noise:seed=5 --cycles 50
! cmp -s out a.csv || die "the seed changes nothing"

# A table is a stimulus; its last row stays, and the cycles are its rows.
printf 'x\n1.5\n-0.25\n' >in.csv
run 0 sim biquad.xml --stimulus in.csv
[ "$(wc -l <out)" = 3 ] || die "not two cycles"
printf 'cycle,"x"\r\n0,24576\r\n' >raw.csv
run 0 sim biquad.xml --stimulus raw.csv --raw --cycles 2
[ "$(wc -l <out)" = 3 ] || die "not two cycles"
run 0 sim first_design.xml --stimulus - --cycles 1 <in.csv
has out '0,0.999969482421875'

# Probes stand beside the outputs, a dump has all signals.
run 0 sim mixer_pair.xml --top top --cycles 4 --stimulus corners --probe top/upMixer/product/primWireOut --vcd dump.vcd -o t.csv
has t.csv 'top/upMixer/product/primWireOut[0].re'
has dump.vcd '$enddefinitions $end'
has dump.vcd 'cosine'
run 0 sim mixer_pair.xml --top top --cycles 2 --json
json out 'd["schema"] == "orvo.sim/1" and len(d["rows"]) == 2 and d["inputs"][0]["width"] == 16'
json out 'd["top"] == "top" and len(d["rows"][0]) == len(d["outputs"]) and d["operations"] > 0'

# What is wrong is told.
run 1 sim mixer_pair.xml --top top --probe top/nowhere
has err "no wire is at 'top/nowhere'"
has err '[DRIVER_CANNOT_SIMULATE]'
run 2 sim select_lut.xml
has err 'name one with --top: '
run 2 sim select_lut.xml --top compender
has err "did you mean 'compander'?"
run 0 sim select_lut.xml --top compander --cycles 3 --stimulus ramp
printf 'sampel\n1\n' >bad.csv
run 2 sim fir16.xml --stimulus bad.csv
has err "bad.csv:1"
has err "did you mean 'sample'?"
printf 'sample\n1\nx\n' >bad.csv
run 2 sim fir16.xml --stimulus bad.csv
has err "bad.csv:3"
has err "'x' is no number"
printf 'sample\n1,2\n' >bad.csv
run 2 sim fir16.xml --stimulus bad.csv
has err '2 values stand under 1 names'
has err '[DRIVER_BAD_STIMULUS]'
run 2 sim fir16.xml --stimulus no-such-file.csv
has err '[DRIVER_UNREADABLE_FILE]'
run 2 sim fir16.xml --stimulus noise:seed=x
for option in --top --stimulus --vcd --probe -o; do
    run 2 sim fir16.xml $option ''
    has err 'the name is empty'
done
run 2 equiv fir16.xml fir16.xml --top ''
has err 'the name is empty'
run 2 gen -o ''
has err 'the name is empty'
run 2 sim
write_design d.xml
run 1 sim d.xml
has err 'has no type'

# What passes leave computes the same; other designs do not.
run 0 opt select_lut.xml -o after.xml -p 'AggressiveDeadBlockPass, ElideTerminalPass, ElideUnpackPass, DeadModelPass'
run 0 equiv select_lut.xml after.xml --top compander --cycles 200
[ "$(cat out)" = 'the same in 400 cycles' ] || die "not the same"
sed 's/saturateAsymmetric/saturateNone/' biquad.xml >other.xml
run 1 equiv biquad.xml other.xml
has out "'y' is "
has out 'not the same in'
has out 'first inside: stream '
has out "'biquad/round/primWireOut' is "
run 1 equiv biquad.xml other.xml --json
json out 'd["inside"]["wire"] == "biquad/round/primWireOut" and len(d["mismatches"]) == 10'
run 0 equiv biquad.xml biquad.xml --json
json out 'd["same"] and d["inside"] is None'
run 1 equiv biquad.xml other.xml --json --seed 3 --streams 1
json out 'd["schema"] == "orvo.equiv/1" and not d["same"] and d["mismatches"][0]["output"] == "y"'
run 1 equiv biquad.xml fir16.xml
has out "'sample' is at the edge of only one of the designs"
run 2 equiv biquad.xml

# That designs cannot be read or run is no difference.
echo '<kelmar' >broken.xml
run 2 equiv biquad.xml broken.xml
has err broken.xml:
run 2 equiv broken.xml biquad.xml
run 2 equiv biquad.xml no-such-file.xml
run 2 equiv d.xml d.xml
has err '[DRIVER_CANNOT_SIMULATE]'
run 2 equiv biquad.xml other.xml --top nobody

# Passes are judged by what the design computes; a pass that breaks it is named, with a reproducer that shows it again.
run 0 opt select_lut.xml --check=sim -p 'AggressiveDeadBlockPass, ElideTerminalPass, ElideUnpackPass, DeadModelPass' --time
has out 'simulate AggressiveDeadBlockPass'
empty err
run 2 opt select_lut.xml --check=eyes -p DeadBlockPass
types_to_lose >pinned.xml
run 3 opt pinned.xml --check=sim -p 'ModelTreePass, AggressiveDeadBlockPass'
has err 'internal fault in pass 2, AggressiveDeadBlockPass: the pass changed what the design computes'
has err 'has no type; Likely failure cause: '
has err ' at top/'
run 3 opt --replay orvo-crash-*.orvo
rm -f ./*.orvo
run 1 opt d.xml --check=sim -p DeadBlockPass
has err '[DRIVER_CANNOT_SIMULATE]'

# Bits that nothing settles are zero, or told.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block pin typePinBlock "$(param 0 '[/top/in/x]')$(param typePinType '(typeUFixed 4 1)')<wire name=\"0\"/>"
    block zero constBlock "$(param constValue 0)$(param constType '(typeUFixed 4 1)')<wire name=\"primWireOut\"/>"
    block quotient divideBlock "$(param 0 '[/top/zero/primWireOut]')$(param 1 '[/top/pin/0]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/top/quotient/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >unknown.xml
printf 'x\n1.5\n0\n' >zero.csv
run 0 sim unknown.xml --stimulus zero.csv
[ "$(cat out)" = 'cycle,y
0,0
1,0' ] || die "not zero"
run 0 sim unknown.xml --stimulus zero.csv --unknowns --vcd unknown.vcd
[ "$(cat out)" = 'cycle,y
0,0
1,x' ] || die "not unknown"
has unknown.vcd 'bxxxxx'
run 0 equiv unknown.xml unknown.xml

# Designs by chance run, and are the same for the same seed.
run 0 gen --seed 5 --size 200 -o one.xml
run 0 gen --seed 5 --size 200
same out one.xml
run 0 gen --seed 6 --size 200
! cmp -s out one.xml || die "the seed changes nothing"
run 0 check one.xml
run 0 sim one.xml --cycles 5 -o gen.csv
run 0 equiv one.xml one.xml --cycles 20
run 0 gen --size 10 -o two.xml --json
json out 'd["schema"] == "orvo.gen/1" and d["size"] == 10 and d["blocks"] > 0'
run 2 gen --json
run 2 gen --size -1

# Floats are numbers, read and written.
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="x"/>'
    block pin typePinBlock "$(param 0 '[/top/in/x]')$(param typePinType '(typeSFloatIEEE 23 8)')<wire name=\"0\"/>"
    block sum addBlock "$(param 0 '[/top/pin/0]')$(param 1 '[/top/pin/0]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/top/sum/primWireOut]')"
    printf '</model></design></kelmar>\n'
} >float.xml
printf 'x\n0.1\n-inf\n3e38\nnan\n' >float.csv
run 0 sim float.xml --stimulus float.csv
[ "$(cat out)" = 'cycle,y
0,0.2
1,-inf
2,inf
3,nan' ] || die "not the floats"
run 2 sim float.xml --stimulus float.csv --raw
run 0 sim float.xml --stimulus corners --cycles 40
has out ',inf'

# What cannot be meant is told.
run 2 sim fir16.xml --cycles -1
run 2 equiv fir16.xml fir16.xml --cycles 0
run 2 equiv fir16.xml fir16.xml --streams -1
run 2 equiv - -
has err 'only one design can come from standard input'
run 2 sim - --stimulus -
run 2 sim fir16.xml -o both --vcd both
has err 'need places of their own'
run 2 sim fir16.xml --vcd -
cp fir16.xml kept.xml
run 2 sim kept.xml -o kept.xml
has err 'would take the place of what is read'
same kept.xml fir16.xml

# Tables: columns stand once, cells may be quoted, and columns of inputs that nobody reads any more pass.
printf 'x,x\n1,2\n' >twice.csv
run 2 sim biquad.xml --stimulus twice.csv
has err "the input 'x' stands twice"
printf '\xef\xbb\xbf"x"\n"1.5"\n' >quoted.csv
run 0 sim biquad.xml --stimulus quoted.csv
printf 'x,\n1.5,\n' >last.csv
run 2 sim biquad.xml --stimulus last.csv
{
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    block in inputBlock '<wire name="(a b)"/><wire name="idle"/>'
    block pin typePinBlock "$(param 0 '[/top/in/(a b)]')$(param typePinType '(typeSFixed 8 0)')<wire name=\"0\"/>"
    block out outputBlock "$(param '(c d)' '[/top/pin/0]')"
    printf '</model></design></kelmar>\n'
} >odd.xml
printf '"(a b)",idle\n3,4\n' >odd.csv
run 0 sim odd.xml --stimulus odd.csv
has out 'cycle,"(c d)"'
has out '0,3'
run 0 sim biquad.xml --json --vcd json.vcd --cycles 2
has json.vcd '$enddefinitions'
json out 'len(d["rows"]) == 2'
