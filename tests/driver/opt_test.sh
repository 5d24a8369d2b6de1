#!/bin/bash
# The verb "opt": passes, their numbering, reports, dumps and the places of input and output.
. "$ORVO_SRC/tests/driver/lib.sh"

write_design d.xml

# relaxed_design FILE COUNT: counters that take any width at their enable.
relaxed_design() {
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
        block in inputBlock '<wire name="0"/>'
        for i in $(seq "$2"); do
            block "n$i" counterBlock "$(param portEnable '[/top/in/0]')$(param primRelaxBools true)"
        done
        printf '</model></design></kelmar>\n'
    } >"$1"
}

# Without passes a design is read and written; writing what was written gives the same bytes.
run 0 opt d.xml -o plain.xml
empty out
empty err
run 0 opt plain.xml -o again.xml
same plain.xml again.xml

# "-" is standard input and standard output.
run 0 opt - -o - <d.xml
same out plain.xml
empty err
run 0 opt plain.xml --output -
same out plain.xml

# Without -o nothing is written.
run 0 opt d.xml --passes DeadBlockPass
empty out
[ "$(ls)" = "$(printf 'again.xml\nd.xml\nerr\nout\nplain.xml')" ] || die "a file was written without -o"

# Passes by name, in one list, in several, and from a file.
run 0 opt d.xml -o one.xml --passes 'DeadBlockPass, ElideTerminalPass'
lacks one.xml dead1
lacks one.xml terminalBlock
run 0 opt d.xml -o two.xml --passes DeadBlockPass --passes ElideTerminalPass
same one.xml two.xml
printf '# cleaning\nDeadBlockPass   # first\n\nElideTerminalPass\n' >list
run 0 opt d.xml -o three.xml --passes @list
same one.xml three.xml
run 0 opt d.xml -o four.xml -p ElideTerminalPass -p @list
same one.xml four.xml

# Parameters of passes.
run 0 opt d.xml --passes 'DumpXMLPass{P_FILENAME="dump.xml", P_CLOBBER=true}, DeadBlockPass'
same dump.xml plain.xml

# The numbers of --list are those of --stop-after and --skip.
run 0 opt d.xml -o never.xml --list -p 'DeadBlockPass, ElideTerminalPass'
has out '    1  DeadBlockPass'
has out '    2  ElideTerminalPass'
[ ! -e never.xml ] || die "--list wrote the design"
run 0 opt d.xml -o stopped.xml --stop-after 1 -p 'DeadBlockPass, ElideTerminalPass'
lacks stopped.xml dead1
has stopped.xml terminalBlock
run 0 opt d.xml -o skipped.xml --skip 1 -p 'DeadBlockPass, ElideTerminalPass'
has skipped.xml dead1
lacks skipped.xml terminalBlock
run 0 opt d.xml -o none.xml --skip 1 --skip 2 -p 'DeadBlockPass, ElideTerminalPass'
same none.xml plain.xml
run 0 opt d.xml -o none.xml --stop-after 0 -p 'DeadBlockPass, ElideTerminalPass'
same none.xml plain.xml

# A dump stands only behind a pass that changed something, under its number.
run 0 opt d.xml --dump-dir dumps/here -p 'ModelTreePass, DeadBlockPass, DeadBlockPass, ElideTerminalPass'
[ "$(ls dumps/here)" = "$(printf '002-DeadBlockPass.xml\n004-ElideTerminalPass.xml')" ] || die "$(ls dumps/here)"
same dumps/here/004-ElideTerminalPass.xml one.xml

# Statistics and times go to standard output, or beside the messages when the design stands there.
run 0 opt d.xml --stats -p 'DeadBlockPass, ElideTerminalPass'
has out 'A_ADD_BLOCK (addBlock)                                        3          1'
has out 'DeadBlockPass                                          6          4         -2'
empty err
run 0 opt d.xml -o - --stats -p 'DeadBlockPass, ElideTerminalPass'
same out one.xml
has err 'growth'
run 0 opt d.xml -o one.xml --time -p DeadBlockPass
for phase in 'read d.xml' DeadBlockPass 'write one.xml' 'peak KiB'; do has out "$phase"; done

# Questions about types that a pass asks, one for each end of a block in it, are one line below it.
relaxed_design relaxed.xml 20
run 0 opt relaxed.xml --time -p UnrelaxBoolsPass
has out 'GlobalTypePass (20 times)'
[ "$(grep -c GlobalTypePass out)" = 3 ] || die "$(cat out)"

run 0 opt d.xml --time-json time.json --time-trace trace.json -p DeadBlockPass
empty out
json time.json '[c["label"] for c in d["children"]] == ["read", "passes"]'
json time.json 'd["children"][0]["wall_ns"] > 0 and d["children"][1]["children"][0]["label"] == "DeadBlockPass"'
json trace.json 'all(e["ph"] == "X" and e["dur"] >= 0 for e in d["traceEvents"]) and len(d["traceEvents"]) > 2'
run 0 opt d.xml --time-json - -p DeadBlockPass
json out 'd["children"]'

# The whole report as JSON.
run 0 opt d.xml -o one.xml --json --stats --time -p 'ModelTreePass, DeadBlockPass' --dump-dir dumps2
empty err
json out 'd["schema"] == "orvo.opt/1" and d["written"] and d["output"] == "one.xml" and d["errors"] == 0'
json out '[(p["number"], p["name"], p["ran"], p["changed"]) for p in d["passes"]] == [
    (1, "ModelTreePass", True, False), (2, "DeadBlockPass", True, True)]'
json out 'd["passes"][1]["dump"] == "dumps2/002-DeadBlockPass.xml" and d["passes"][0]["dump"] is None'
json out 'd["stats"]["before"]["addBlock"] == 3 and d["stats"]["after"]["addBlock"] == 1'
json out 'd["passes"][1]["blocks_before"] == 6 and d["passes"][1]["blocks_after"] == 4'
json out 'd["time"]["children"]'
run 0 opt d.xml --json --skip 1 -p DeadBlockPass
json out 'd["passes"][0]["ran"] is False and d["written"] is False and d["output"] is None'
run 0 opt d.xml -o - --json -p DeadBlockPass
has out '<kelmar'
json_lines err 'd[-1]["schema"] == "orvo.opt/1"'

# A pass that reports an error is the last one, and nothing is written.
rm -f one.xml
run 1 opt d.xml -o one.xml --json -p 'DumpXMLPass{P_FILENAME="no/such/folder.xml"}, DeadBlockPass'
json_lines err 'd[0]["severity"] == "error" and len(d) == 1'
json out '[p["ran"] for p in d["passes"]] == [True, False] and d["errors"] == 1 and d["written"] is False'
[ ! -e one.xml ] || die "a design with errors was written"

# Verification after each pass; a design that is wrong to begin with is the design's error.
run 0 opt d.xml -o one.xml --verify-each -p 'DeadBlockPass, ElideTerminalPass, DeadModelPass'
write_bad_design bad.xml
rm -f one.xml
run 1 opt bad.xml -o one.xml --verify-each -p DeadBlockPass
has err '[DRIVER_CHECK_UNKNOWN_BLOCK]'
[ ! -e one.xml ] || die "a design with errors was written"

# An input that was open behind the edge of a model is the design's own, wherever flattening leaves it; any other is the
# pass's.
{
    printf '<kelmar xmlns="%s"><design version="1.2">\n<model name="low">' "$namespace"
    block in inputBlock '<wire name="a"/><wire name="b"/>'
    block sum addBlock "$(param 0 '[/low/in/a]')$(param 1 '[/low/in/b]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param y '[/low/sum/primWireOut]')"
    printf '</model>\n<model name="top">'
    block in inputBlock '<wire name="0"/>'
    block open modelBlock "$(param modelNode '[/low]')$(param b '[/top/in/0]')<wire name=\"y\"/>"
    block dead negBlock "$(param 0 '[/top/in/0]')<wire name=\"primWireOut\"/>"
    block out outputBlock "$(param 0 '[/top/open/y]')"
    printf '</model></design></kelmar>\n'
} >open.xml
run 0 opt open.xml -o one.xml --verify-each -p 'FlattenEverythingPass, DeadBlockPass'
has one.xml '(low sum)'
lacks one.xml dead
run 1 check one.xml
has err '[DRIVER_CHECK_MISSING_PORT]'

# Features.
run 0 opt d.xml --feature USE_NETLIST_VERIFICATION_PASS=true -p NetlistVerificationPass
run 0 opt bad.xml -p NetlistVerificationPass
run 0 opt d.xml --feature USE_NETLIST_VERIFICATION_PAS=true
has err "did you mean 'USE_NETLIST_VERIFICATION_PASS'?"
has err 'warning'
run 2 opt d.xml --feature USE_NETLIST_VERIFICATION_PASS=perhaps
has err '[DRIVER_BAD_FEATURE]'
run 2 opt d.xml --feature LUT4S_WEIGHT
run 2 opt d.xml --feature =1

# No name is no name of a file; and a number that no pass has leaves none out.
for option in -o -p --replay --dump-dir; do
    run 2 opt d.xml -p DeadBlockPass $option ''
    has err 'the name is empty'
done
run 0 opt d.xml -p DeadBlockPass --skip 2 --json
json_lines err '[(m["severity"], m["tag"], m["params"]) for m in d] == [("warning", "DRIVER_NO_SUCH_NUMBER", {"number": "2", "last": "1"})]'
