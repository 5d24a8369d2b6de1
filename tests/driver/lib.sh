# Helpers of the driver's tests: run the driver, keep what it said, and compare. Sourced, with ORVO_BIN naming the driver
# and the current folder empty.
set -eu

orvo=$ORVO_BIN
namespace=http://orvo.example/ns/2011/kelmar

die() {
    echo "$0: $*" >&2
    echo "--- exit code: ${code-none}, standard output:" >&2
    head -c 2000 out >&2 || true
    echo "--- standard error:" >&2
    head -c 2000 err >&2 || true
    exit 1
}

# run CODE ARGUMENTS...: runs the driver, with its output in the files "out" and "err", and checks the exit code.
run() {
    local wanted=$1
    shift
    code=0
    "$orvo" "$@" >out 2>err || code=$?
    [ "$code" -eq "$wanted" ] || die "orvo $*: exit code $code, not $wanted"
}

has() { grep -qF -- "$2" "$1" || die "'$2' is not in $1"; }
lacks() { ! grep -qF -- "$2" "$1" || die "'$2' is in $1"; }
empty() { [ ! -s "$1" ] || die "$1 is not empty"; }
same() { cmp -s "$1" "$2" || die "$1 and $2 differ"; }

# json FILE PYTHON: the file is one JSON document, d, of which the expression holds.
json() {
    python3 -c 'import json, sys
d = json.load(open(sys.argv[1], encoding="utf-8"))
sys.exit(0 if eval(sys.argv[2]) else 1)' "$1" "$2" || die "not in $1: $2"
}
# json_lines FILE PYTHON: the same for a file of one document a line, as the list d.
json_lines() {
    python3 -c 'import json, sys
d = [json.loads(line) for line in open(sys.argv[1], encoding="utf-8")]
sys.exit(0 if eval(sys.argv[2]) else 1)' "$1" "$2" || die "not in $1: $2"
}

param() { printf '<param name="%s">%s</param>' "$1" "$2"; }
block() {
    local name=$1 type=$2
    shift 2
    printf '<block name="%s">%s%s</block>\n' "$name" "$(param blockType "$type")" "$*"
}

# A model with two instances, in which a dead pin alone tells the type of what is delayed, another one in each: a sweep
# of dead blocks takes these types along.
types_to_lose() {
    printf '<kelmar xmlns="%s"><design version="1.2"><model name="sub">\n' "$namespace"
    block delay delayBlock "$(param 0 '[/sub/in/x]')$(param delayLength 1)<wire name=\"primWireOut\"/>"
    block in inputBlock '<wire name="a"/><wire name="x"/>'
    block out outputBlock "$(param y '[/sub/delay/primWireOut]')"
    block pin typePinBlock "$(param 0 '[/sub/in/a]')$(param 1 '[/sub/in/x]')"
    printf '</model><model name="top">\n'
    block in inputBlock '<wire name="a"/><wire name="b"/><wire name="x"/>'
    block s4 typePinBlock "$(param 0 '[/top/in/a]')$(param typePinType '(typeSFixed 4 0)')<wire name=\"0\"/>"
    block u5 typePinBlock "$(param 0 '[/top/in/b]')$(param typePinType '(typeUFixed 5 0)')<wire name=\"0\"/>"
    block one modelBlock "$(param modelNode '[/sub]')$(param a '[/top/s4/0]')$(param x '[/top/in/x]')<wire name=\"y\"/>"
    block two modelBlock "$(param modelNode '[/sub]')$(param a '[/top/u5/0]')<wire name=\"y\"/>"
    block out outputBlock "$(param y '[/top/one/y]')$(param z '[/top/two/y]')"
    printf '</model></design></kelmar>\n'
}

# A model "top" that adds its two inputs through a terminal, and in which two adders feed nothing.
write_design() {
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
        block in inputBlock '<wire name="0"/><wire name="1"/>'
        block sum addBlock "$(param 0 '[/top/in/0]')$(param 1 '[/top/in/1]')<wire name=\"primWireOut\"/>"
        block pass terminalBlock "$(param 0 '[/top/sum/primWireOut]')<wire name=\"0\"/>"
        block dead1 addBlock "$(param 0 '[/top/in/0]')<wire name=\"primWireOut\"/>"
        block dead2 addBlock "$(param 0 '[/top/dead1/primWireOut]')<wire name=\"primWireOut\"/>"
        block out outputBlock "$(param 0 '[/top/pass/0]')"
        printf '</model></design></kelmar>\n'
    } >"$1"
}

# A design that the catalogue does not allow: one block of an unknown type.
write_bad_design() {
    {
        printf '<kelmar xmlns="%s"><design version="1.2"><model name="top">\n' "$namespace"
        block odd noSuchBlock
        printf '</model></design></kelmar>\n'
    } >"$1"
}

# big_design FILE COUNT: a chain of adders that feeds the output.
big_design() {
    python3 -c 'import sys
count = int(sys.argv[2])
with open(sys.argv[1], "w") as f:
    f.write("<kelmar xmlns=\"%s\"><design version=\"1.2\"><model name=\"top\">\n" % sys.argv[3])
    f.write("<block name=\"b0\"><param name=\"blockType\">inputBlock</param><wire name=\"primWireOut\"/></block>\n")
    for i in range(1, count):
        f.write("<block name=\"b%d\"><param name=\"blockType\">addBlock</param>"
                "<param name=\"0\">[/top/b%d/primWireOut]</param><wire name=\"primWireOut\"/></block>\n" % (i, i - 1))
    f.write("<block name=\"out\"><param name=\"blockType\">outputBlock</param>"
            "<param name=\"0\">[/top/b%d/primWireOut]</param></block>\n" % (count - 1))
    f.write("</model></design></kelmar>\n")' "$1" "$2" "$namespace"
}
