#!/bin/bash
# Latency constraints in the verb "check".
. "$ORVO_SRC/tests/driver/lib.sh"

# A marker at each side, with a constraint from the first to the second; $1 is the record, $2 the end of the second.
constrained() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
    param synthScheduleConstraints "($1)"
    block in inputBlock '<wire name="x"/>'
    block pin typePinBlock "$(param 0 '[/top/in/x]')$(param typePinType '(typeUFixed 4 0)')<wire name=\"0\"/>"
    block from signalInBlock \
        "$(param x '[/top/pin/0]')$(param scheduleConstraintWires '((x true (0) ()))')<wire name=\"x\"/>"
    block to signalOutBlock \
        "$(param x '[/top/from/x]')$(param scheduleConstraintPorts "($2)")<wire name=\"x\"/>"
    block out outputBlock "$(param x '[/top/to/x]')"
    printf '</model></design></kelmar>\n'
}

constrained '(0 synthLConstraintLE 3)' '(x true () (0))' >good.xml
run 0 check good.xml
empty err
run 0 check good.xml --json
json out 'd["findings"] == []'

constrained '(0 synthLConstraintLE 1.5)' '(y true () (0))' >bad.xml
run 1 check bad.xml
has err "a latency constraint stands at port 'y', which block '/top/to' does not have"
has err '[CONSTRAINT_PORT_NOT_FOUND]'
has err 'the latency of constraint 0 is not a whole number of clock cycles [CONSTRAINT_LATENCY_NOT_INTEGER]'
run 1 check bad.xml --json
json out '[f["tag"] for f in d["findings"]] == ["CONSTRAINT_LATENCY_NOT_INTEGER", "CONSTRAINT_PORT_NOT_FOUND"]'
json out 'd["findings"][1]["block"] == "/top/to"'

constrained '(0 synthLConstraintLE 3)' '(x true () (0 7))' >dangling.xml
run 1 check dangling.xml
has err "latency constraint 7 is referred to by a port or wire of block '/top/to' but does not exist"
