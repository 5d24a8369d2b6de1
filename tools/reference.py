#!/usr/bin/env python3
"""Writes the reference pages of docs/reference from what the driver says of itself.

usage: tools/reference.py ORVO FOLDER
"""
import json
import pathlib
import subprocess
import sys


def ask(orvo, *arguments):
    return json.loads(subprocess.run([orvo, *arguments, "--json"], check=True, stdout=subprocess.PIPE).stdout)


def cell(text):
    """Text in a cell of a table: angle brackets and bars would be read as markup."""
    return str(text).replace("\\", "\\\\").replace("|", "\\|").replace("<", "&lt;").replace("\n", " ")


def code(text):
    return f"`{text}`".replace("|", "\\|")


def table(head, rows):
    if not rows:
        return []
    return ["| " + " | ".join(head) + " |", "|" + "---|" * len(head), *("| " + " | ".join(row) + " |" for row in rows), ""]


def anchor(name):
    return f"[{code(name)}](#{name.lower()})"


def passes(orvo):
    lines = ["# Passes", "", "In the order in which `orvo passes` lists them.", ""]
    for entry in ask(orvo, "passes")["passes"]:
        lines += [f"## {entry['name']}", "", entry["description"], ""]
        if entry["requires"]:
            lines += ["Runs before it: " + ", ".join(anchor(name) for name in entry["requires"]) + ".", ""]
        rows = [[code(p["name"]), "" if p["default"] is None else code(p["default"]), cell(p["description"])]
                for p in entry["params"]]
        lines += table(["Parameter", "Default", "What it does"], rows)
    return lines


def values(connection):
    allowed = [code(value) for value in connection["values"] if value != "..."]
    return ", ".join(allowed + (["any other"] if connection["open"] and allowed else []))


def blocks(orvo):
    lines = ["# Block types", "", "`orvo blocks NAME` shows one of them.", ""]
    for entry in ask(orvo, "blocks")["blocks"]:
        lines += [f"## {entry['name']}", "", f"{code(entry['text'])}: {entry['description']}", ""]
        if entry["type_rule"]:
            lines += [f"Output type: {entry['type_rule']}.", ""]
        if not entry["simulated"]:
            lines += ["The simulator knows no meaning of it.", ""]
        rows = [[c["kind"].lower() + (" (optional)" if c["optional"] else ""),
                 code(c["name"]) + (f" {code(c['text'])}" if c["text"] != c["name"] else ""),
                 "" if c["default"] is None else code(c["default"]), values(c), cell(c["description"])]
                for c in entry["connections"]]
        lines += table(["Kind", "Name", "Default", "Values", "What it is"], rows)
    return lines


def messages(orvo):
    lines = ["# Messages", "", "`orvo explain TAG` shows one of them. `[...]` stands only where its parameter is given.", ""]
    for entry in ask(orvo, "explain")["messages"]:
        lines += [f"## {entry['tag']}", "", f"{entry['severity'].capitalize()}: {cell(entry['text'])}", ""]
        if entry["params"]:
            lines += ["Parameters: " + ", ".join(code(name) for name in entry["params"]) + ".", ""]
        lines += [cell(entry["meaning"]), "", f"Cure: {cell(entry['cure'])}", ""]
    return lines


def features(orvo):
    rows = [[code(f["name"]), f["kind"], code(f["default"]) if f["default"] else "", cell(f["description"])]
            for f in ask(orvo, "features")["features"]]
    return ["# Features", "", "Switches that `--feature NAME=VALUE` sets for a run.", "",
            *table(["Name", "Kind", "Default", "What it does"], rows)]


def unrolling(orvo):
    def fate(entry, kind):
        told = entry["unrolling"][kind]
        return ("" if told["comes_apart"] else "stay: ") + cell(told["summary"] or "")

    rows = [[code(entry["text"]), *(fate(entry, kind) for kind in ("records", "vectors", "complex"))]
            for entry in ask(orvo, "blocks")["blocks"] if entry["unrolling"]["vectors"]["summary"]]
    return ["# What becomes of compound signals", "",
            "What a block of each type is replaced by when the signals at it come apart; behind \"stay\", why they cannot or "
            "need not. `UnrollAggregatePass`, `UnrollVectorPass` and `UnrollComplexPass` go by this table.", "",
            *table(["Block type", "Records", "Vectors", "Complex numbers"], rows)]


def main():
    orvo, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for page in (passes, blocks, unrolling, messages, features):
        text = "\n".join(page(orvo)).rstrip("\n") + "\n"
        note = "<!-- Written by `make update-docs`. -->\n"
        (folder / f"{page.__name__}.md").write_text(note + text, encoding="utf-8")


main()
