#!/bin/bash
# Inputs that are wrong: designs, lists of passes, command lines, names.
. "$ORVO_SRC/tests/driver/lib.sh"

write_design d.xml

# Errors of the reader carry file, line and column, and nothing is written.
printf '<kelmar xmlns="%s">\n<design version="1.2">\n  <model name="m">\n    <block name="b"/><block name="b"/>\n' \
    "$namespace" >clash.xml
printf '  </model>\n</design></kelmar>\n' >>clash.xml
echo old >o.xml
run 1 opt clash.xml -o o.xml
grep -qE '^clash\.xml:4:[0-9]+: error: .*\[ERR_BAD_BLOCK_NAME\]$' err || die "no position"
[ "$(cat o.xml)" = old ] || die "the output was touched"
run 1 opt - -o o.xml <clash.xml
grep -q '^<stdin>:4:' err || die "no position for standard input"
run 1 check clash.xml --json
json_lines err 'd[0]["tag"] == "ERR_BAD_BLOCK_NAME" and d[0]["line"] == 4 and d[0]["column"] > 0 and d[0]["file"] == "clash.xml"'
for text in '' 'no xml' '<kelmar' '<!DOCTYPE kelmar><kelmar/>' '<!DOCTYPE kelmar [<!ENTITY a "b">]><kelmar/>'; do
    printf '%s' "$text" >bad.xml
    for verb in opt check stat; do
        run 1 $verb bad.xml
        has err ERR_MALFORMED_XML
        empty out
    done
done
printf '<kelmar xmlns="%s"><design version="1.1"/></kelmar>' "$namespace" >bad.xml
run 1 stat bad.xml
has err '[ERR_NO_COMPATIBLE_DESIGN_ELEMENT]'

# Files that cannot be read.
for verb in opt check stat; do
    run 2 $verb no-such-file
    has err "cannot read 'no-such-file': No such file or directory [DRIVER_UNREADABLE_FILE]"
    run 2 $verb .
    has err '[DRIVER_UNREADABLE_FILE]'
    run 2 $verb
    has err 'the input design is missing'
done
run 2 opt d.xml --passes @no-such-file
run 2 opt --replay no-such-file

# Lists of passes tell where they are wrong.
bad_passes() {
    run 2 opt d.xml -o o.xml --passes "$1"
    has err "--passes:$2: error: "
    has err "$3"
}
bad_passes 'DeadBlockPass,, ModelTreePass' 1:15 "expected the name of a pass, found ','"
bad_passes 'DeadBlockPass ModelTreePass' 1:15 "expected a comma, found 'M'"
bad_passes 'DumpXMLPass{P_CLOBBER=true' 1:27 "expected ',' or '}', found the end of the text"
bad_passes 'DumpXMLPass{P_CLOBBER}' 1:22 "expected '=', found '}'"
bad_passes 'DumpXMLPass{P_CLOBBER=}' 1:23 "the value of 'P_CLOBBER' is not well written"
bad_passes 'DumpXMLPass{P_CLOBBER=[/a]}' 1:23 'refers to a node'
bad_passes 'DumpXMLPass{P_CLOBBER=true, P_CLOBBER=true}' 1:29 'is given twice'
bad_passes 'DeadBlokPass' 1:1 "there is no pass 'DeadBlokPass': did you mean 'DeadBlockPass'? [DRIVER_UNKNOWN_PASS]"
bad_passes 'DumpXMLPass{P_CLOBER=true}' 1:13 "did you mean 'P_CLOBBER'? [DRIVER_UNKNOWN_PARAM]"
printf 'DeadBlockPass\n  Wrong!\n' >list
run 2 opt d.xml --passes @list
has err 'list:2:8: error:'
run 2 opt d.xml --json --passes 'Dead Block'
json_lines err 'd[0]["tag"] == "DRIVER_BAD_PASS_TEXT" and d[0]["column"] == 6'
[ "$(cat o.xml)" = old ] || die "the output was touched"

# Command lines.
run 2
has err 'a verb is missing'
has err 'Usage: orvo'
run 2 pases
has err "there is no verb 'pases': did you mean 'passes'? [DRIVER_UNKNOWN_VERB]"
run 2 opt d.xml --pases DeadBlockPass
has err "there is no option '--pases': did you mean '--passes'? [DRIVER_UNKNOWN_OPTION]"
run 2 --vresion
has err "did you mean '--version'?"
run 2 opt d.xml --skip x
has err '[DRIVER_BAD_USAGE]'
run 2 opt d.xml --stop-after -1
run 2 opt d.xml --stop-after 1x
run 2 opt d.xml --skip 0
run 2 opt d.xml --skip 99999999999999999999999
run 2 opt d.xml -o
run 2 opt d.xml extra
has err "nothing is expected at 'extra'"
run 2 opt d.xml --json --nonsense
json_lines err 'd[0]["tag"] == "DRIVER_UNKNOWN_OPTION" and d[0]["severity"] == "error"'
run 2 opt d.xml --replay x
has err 'neither can be given'
run 2 opt d.xml -o - --time-json -
has err 'only one output'
run 2 blocks addBlok
has err "did you mean 'addBlock'? [DRIVER_UNKNOWN_BLOCK]"
run 2 blocks A_ADD_BLOK
has err "did you mean 'A_ADD_BLOCK'?"
run 2 passes ElideTerminal
has err "did you mean 'ElideTerminalPass'?"
run 2 explain ERR_MALFORMED_XLM
has err "did you mean 'ERR_MALFORMED_XML'? [DRIVER_UNKNOWN_MESSAGE]"
run 2 completion fish
run 2 completion
has err 'the shell is missing'
for verb in '' opt check stat passes blocks explain version completion; do
    run 0 $verb --help
    has out 'Usage: orvo'
    empty err
done

# A design read from XML 1.1 may hold a text that XML 1.0 has no form for: writing it is an error of the design.
printf '<?xml version="1.1"?>\n<kelmar xmlns="%s"><design version="1.2"><model name="m"><block name="&quot;e&#27;x&quot;"/></model></design></kelmar>\n' "$namespace" >control.xml
run 1 opt control.xml -o -
has err '[DRIVER_UNWRITABLE_TEXT]'
echo old >kept.xml
run 1 opt control.xml -o kept.xml
has err '[DRIVER_UNWRITABLE_TEXT]'
[ "$(cat kept.xml)" = old ] || die "the output was touched"
run 1 opt control.xml -o kept.xml --json
lacks out '"written":true'

# A folder cannot be read, and that is all that is told.
run 2 check .
has err '[DRIVER_UNREADABLE_FILE]'
lacks err 'ERR_MALFORMED_XML'

# A message is one line, whatever the names in it.
printf '<kelmar xmlns="%s"><design version="1.2"><model name="&quot;m&#10;error: forged&quot;"><block name="b"><param name="blockType">noSuchBlock</param></block></model></design></kelmar>\n' "$namespace" >forged.xml
"$orvo" check forged.xml >out 2>err || true
[ "$(grep -c '^error: forged' err)" -eq 0 ] || die "a name made a line of its own"

# Names of verbs behind a verb are words like any other, and so is what stands behind "--".
write_design d.xml
cp d.xml check
run 0 stat check
cp d.xml ./-d.xml
run 0 stat -- -d.xml
run 2 opt d.xml -o o.xml -p DeadBlockPass stat d.xml
has err "nothing is expected at 'stat'"
run 2 explain version
has err '[DRIVER_UNKNOWN_MESSAGE]'

# Standard input is read once; a list may begin with the mark of an editor.
run 2 opt - --passes @- <d.xml
has err 'only one input can come from standard input'
printf '\357\273\277DeadBlockPass' >marked.txt
run 0 opt d.xml --passes @marked.txt -o o.xml
echo 'NoSuchPass' | run 2 opt d.xml --passes @-
has err '<stdin>:1:1'

# A list tells what would not run.
run 0 opt d.xml --list --skip 1 --stop-after 2 -p 'DeadBlockPass, ElideTerminalPass, DeadModelPass'
has out '1  DeadBlockPass (skipped)'
lacks out 'ElideTerminalPass (skipped)'
has out 'DeadModelPass (skipped)'
