#!/usr/bin/env python3
"""Renews what commands print, as the documents show it: the block of text behind each line "<!-- output: COMMAND -->".

usage: tools/outputs.py [--check] ORVO DOCUMENT...

Commands run one after the other in an empty folder, to which "examples" is linked; "orvo" is the driver given. With
--check nothing is written, and the exit code is 1 if a document is stale.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"(<!-- output: (.+?) -->\n```text\n)(.*?)(```\n)", re.DOTALL)


def renewed(text, orvo, examples):
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "examples").symlink_to(examples)

        def run(match):
            head, command, _, end = match.groups()
            script = f'orvo() {{ "$ORVO" "$@"; }}; {command}'
            done = subprocess.run(["bash", "-c", script], cwd=folder, env={"ORVO": str(orvo), "PATH": "/usr/bin:/bin"},
                                  check=True, stdout=subprocess.PIPE, text=True)
            # Editors and formatters take blanks at the ends of lines away.
            lines = [line.rstrip() for line in done.stdout.rstrip().split("\n")]
            return head + "\n".join(lines) + "\n" + end

        return BLOCK.sub(run, text)


def main():
    arguments = sys.argv[1:]
    check = arguments[:1] == ["--check"]
    orvo, *documents = arguments[1:] if check else arguments
    examples = (pathlib.Path(__file__).parent.parent / "examples").resolve()
    stale = False
    for name in documents:
        document = pathlib.Path(name)
        old = document.read_text(encoding="utf-8")
        if not BLOCK.search(old):
            sys.exit(f"{name} shows no output of a command")
        new = renewed(old, pathlib.Path(orvo).resolve(), examples)
        if new != old:
            stale = True
            if check:
                print(f"{name} is stale: run 'make update-docs'", file=sys.stderr)
            else:
                document.write_text(new, encoding="utf-8")
    return 1 if check and stale else 0


if __name__ == "__main__":
    sys.exit(main())
