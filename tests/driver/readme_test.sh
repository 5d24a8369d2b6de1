#!/bin/bash
# The commands that README.md shows do what it says, line by line, from the top of a source tree.
. "$ORVO_SRC/tests/driver/lib.sh"

ln -s "$ORVO_SRC/examples" examples
PATH=$(dirname "$ORVO_BIN"):$PATH
sed -n '/^<!-- commands -->/,/^```$/{/^<!--/d; /^```/d; p}' "$ORVO_SRC/README.md" >commands.sh
[ "$(wc -l <commands.sh)" -ge 10 ] || die "README.md shows no commands"
bash -eu commands.sh >out 2>err || die "the commands of README.md fail"
empty err
for text in 'models' 'A_SELECT_BLOCK' 's1.15' 'DeadBlockPass' 'growth' 'ERR_BAD_BLOCK_NAME'; do has out "$text"; done
[ -s out.xml ] || die "no design was written"
