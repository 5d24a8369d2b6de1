#!/bin/bash
# Domains of designs through the driver: the table, its filters, where it starts, and what is said of faults.
. "$ORVO_SRC/tests/driver/lib.sh"

# write_domains FILE MODE DOMAINS: a model "top" that instantiates "below" twice, each behind a domain of its own.
write_domains() {
    {
        printf '<kelmar xmlns="%s"><design version="1.2">\n' "$namespace"
        printf '<model name="below">\n'
        block in inputBlock '<wire name="x"/>'
        block neg negBlock "$(param 0 '[/below/in/x]')<wire name=\"primWireOut\"/>"
        block out outputBlock "$(param y '[/below/neg/primWireOut]')"
        printf '</model><model name="top">%s%s\n' "$(param synthOutputMode "$2")" "$(param synthScheduleDomains "$3")"
        block in inputBlock '<wire name="a"/><wire name="b"/>'
        block one modelBlock "$(param modelNode '[/below]')$(param x '[/top/in/a]')<wire name=\"y\"/>"
        block two modelBlock "$(param modelNode '[/below]')$(param x '[/top/in/b]')<wire name=\"y\"/>"
        block out outputBlock "$(param 0 '[/top/one/y]')"
        printf '</model></design></kelmar>\n'
    } >"$1"
}
edges='((scheduleDomainBegin red (in wireTag a)) (scheduleDomainEnd (deep blue) (two wireTag y)))'

write_domains d.xml synthOutputHDLRoot "$edges"
run 0 domains d.xml
empty err
[ "$(cat out)" = 'top
  in                           wire a                        red
  in                           wire b                        (deep blue)
  one                          port x                        red
  one                          wire y                        red
  out                          port 0                        red
  two                          port x                        (deep blue)
  two                          wire y                        (deep blue)

top/one
  in                           wire x                        red
  neg                          port 0                        red
  neg                          wire primWireOut              red
  out                          port y                        red

top/two
  in                           wire x                        (deep blue)
  neg                          port 0                        (deep blue)
  neg                          wire primWireOut              (deep blue)
  out                          port y                        (deep blue)' ] || die "other domains"

# Filters.
run 0 domains d.xml --model below --json
json out 'd["schema"] == "orvo.domains/1" and d["input"] == "d.xml"'
json out '{(t["instance"], t["domain"]) for t in d["domains"]} == {("top/one", "red"), ("top/two", "(deep blue)")}'
json out '[t for t in d["domains"] if t["block"] == "neg"][0] == {
    "instance": "top/one", "block": "neg", "end": "port", "name": "0", "domain": "red"}'
run 0 domains d.xml --instance top/two
has out 'top/two'
lacks out 'red'
run 0 domains d.xml --missing
empty out

# Where it starts: at another model, and at the tops of a design without an output root.
run 0 domains d.xml --top below
[ "$(cat out)" = 'below
  in                           wire x                        ?
  neg                          port 0                        ?
  neg                          wire primWireOut              ?
  out                          port y                        ?' ] || die "other domains below"
run 0 domains d.xml --top below --json
json out 'all(t["domain"] is None for t in d["domains"])'
run 0 domains d.xml
mv out marked.txt
write_domains unmarked.xml true "$edges"
run 0 domains unmarked.xml
same out marked.txt
write_domains below.xml synthOutputMode "$edges"
sed -i 's|<model name="below">|&<param name="synthOutputMode">synthOutputInternalRoot</param>|' below.xml
run 0 domains below.xml
lacks out top

# Errors in the design: the rest is still shown.
write_domains bad.xml synthOutputHDLRoot '((scheduleDomainBegin red (nowhere wireTag a)) (scheduleDomainBegin red (in wireTag b)))'
run 1 domains bad.xml
has err '[BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOBLOCK]'
has out 'in                           wire b                        red'
run 1 domains bad.xml --json
json out 'len(d["domains"]) == 15'
json_lines err 'd[0]["tag"] == "BAD_DOMAIN_BOUNDARY_SPEC_BADSIGNPOST_NOBLOCK" and d[0]["params"]["blockName"] == "nowhere"'
write_domains clash.xml synthOutputHDLRoot \
    '((scheduleDomainBegin red (in wireTag a)) (scheduleDomainEnd blue (out portTag 0)))'
run 1 domains clash.xml
has err '[BAD_DOMAIN_OVERWRITING_DOMAIN_'

# Names that the design does not have.
run 2 domains d.xml --model belo
has err "did you mean 'below'?"
run 2 domains d.xml --instance top/three
run 2 domains d.xml --top tip
has err "did you mean 'top'?"
for option in --top --model --instance; do
    run 2 domains d.xml $option ''
    has err 'the name is empty'
done
run 2 domains
