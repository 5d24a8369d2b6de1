#!/usr/bin/env python3
"""Plants mistakes into the simulator and the passes, one at a time, and shows which test catches each first.

usage: tools/mutants.py [BUILD] [--table NAME] [--only TEXT]    builds each mutant in a scratch folder and runs the
                                                                tests against it
       tools/mutants.py --check                                 only shows that each mistake can be planted in today's
                                                                sources

BUILD is a built tree, build/release by default. A mistake that no test catches is a survivor; the exit code tells.
"""
import argparse
import concurrent.futures
import dataclasses
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LEAST_MUTANTS = 20
SECONDS_FOR_TESTS = 120


@dataclasses.dataclass
class Table:
    """Mistakes in the sources of one library, and the tests of these."""
    name: str
    sources: pathlib.Path
    library: str
    # What passes the first tests is shown to the longer ones.
    stages: list

    @property
    def path(self):
        return ROOT / "tests/mutants" / (self.name + ".txt")


TABLES = [
    Table("simulator", ROOT / "src/sim", "liborvo_sim.so", [
        "SimulatorTest*:MemoryRowsTest*:UnknownBits*:Kernels*:WideKernels*:CompareTest*",
        "EveryFixed*:EveryInteger*",
        "FloatKernels*",
        "EveryHalf*:EveryTiny*:*Floats*",
    ]),
    Table("lowering", ROOT / "src/orvo", "liborvo.so", [
        "CastDecompose*:DecomposeCompositeTest*:BlockBuilder*:DecomposeHandlers*:HeldDomainsTest*:"
        "ConstCastTest*:ElideConstShiftsTest*:"
        "PropagateConstants.takes*:PropagateConstants.keeps*:PropagateConstants.peels*",
        "*SmallCast*:*Drawn*:*Decomposition*:CastsInLoops*:SyncRegistersInPlace*:*OddComposite*:RelaxedDemux*:"
        "*SmallConstantCast*:PropagateConstants*:EverySmallMultiplier*",
    ]),
]


@dataclasses.dataclass
class Mutant:
    table: Table
    name: str
    file: str = ""
    breaks: str = ""
    before: list = dataclasses.field(default_factory=list)
    after: list = dataclasses.field(default_factory=list)

    def planted(self):
        """The source with the mistake in it."""
        text = (self.table.sources / self.file).read_text()
        # Without white space, so that another line break is the same text.
        places = [at for at, character in enumerate(text) if not character.isspace()]
        dense = "".join(text[at] for at in places)
        wanted = "".join("".join(self.before).split())
        count = dense.count(wanted)
        if not wanted or count != 1:
            raise ValueError(f"{self.name}: the text stands {count} times in {self.file}")
        first = dense.index(wanted)
        begin, end = places[first], places[first + len(wanted) - 1] + 1
        return text[:begin] + "\n".join(self.after) + text[end:]


def read_table(table):
    mutants = []
    for number, line in enumerate(table.path.read_text().splitlines(), 1):
        key, _, rest = line.partition(" ")
        if key == "mutant:":
            mutants.append(Mutant(table, rest))
        elif not line or key == "#":
            continue
        elif not mutants:
            raise ValueError(f"{table.path.name}: line {number} stands before the first mutant")
        elif key == "file:":
            mutants[-1].file = rest
        elif key == "breaks:":
            mutants[-1].breaks = rest
        elif key in "-+":
            (mutants[-1].before if key == "-" else mutants[-1].after).append(rest.strip())
        else:
            raise ValueError(f"{table.path.name}: line {number} is no part of a mutant")
    return mutants


def faults(mutants):
    """What keeps the table from being run."""
    found = [f"only {len(mutants)} mutants"] if len(mutants) < LEAST_MUTANTS else []
    names = [mutant.name for mutant in mutants]
    found += [f"{name}: more than one of this name" for name in sorted(set(names)) if names.count(name) > 1]
    for mutant in mutants:
        if not mutant.breaks:
            found.append(f"{mutant.name}: nothing tells what it breaks")
        try:
            mutant.planted()
        except (ValueError, OSError) as error:
            found.append(str(error))
    return found


class Workshop:
    """Builds a library around one changed source, as the build tree does, and runs the tests with it."""

    def __init__(self, build, table):
        self.table = table
        self.build = pathlib.Path(build).resolve()
        database = json.loads((self.build / "compile_commands.json").read_text())
        self.compilations = {pathlib.Path(entry["file"]): shlex.split(entry["command"]) for entry in database}
        commands = subprocess.run(["ninja", "-C", self.build, "-t", "commands", table.library], check=True, text=True,
                                  stdout=subprocess.PIPE).stdout
        steps = [shlex.split(step) for line in commands.splitlines() for step in line.split("&&")]
        links = [step for step in steps if "-shared" in step and any(table.library in word for word in step)]
        self.linking = links[-1]

    def library(self, folder, file, text):
        """Makes the library with this text for the source; an error of the compiler as text, if there is one."""
        source = folder / file
        source.write_text(text)
        # The library looks for the catalogue where it stands itself.
        (folder / "include").symlink_to(self.build / "include")
        compilation = list(self.compilations[self.table.sources / file])
        original_object = compilation[compilation.index("-o") + 1]
        mutated_object = str(folder / "mutant.o")
        compilation[compilation.index("-o") + 1] = mutated_object
        compilation[compilation.index("-c") + 1] = str(source)
        # What a mistake leaves unused is no reason to refuse it.
        linking = [mutated_object if word == original_object else word for word in self.linking]
        linking[linking.index("-o") + 1] = str(folder / (self.table.library + ".0"))
        for command in [compilation + ["-w"], linking]:
            run = subprocess.run(command, cwd=self.build, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if run.returncode != 0:
                return run.stdout
        return None

    def failures(self, folder, stage):
        """The tests of a stage that fail with the library in the folder."""
        # The first test that fails has caught the mistake, with the case as it was drawn.
        environment = dict(os.environ, LD_LIBRARY_PATH=str(folder), RC_PARAMS="seed=1 noshrink=1")
        command = [self.build / "bin/orvo_tests", "--gtest_brief=1", "--gtest_color=no", "--gtest_fail_fast",
                   f"--gtest_filter={stage}"]
        try:
            run = subprocess.run(command, env=environment, cwd=folder, text=True, errors="replace",
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=SECONDS_FOR_TESTS)
        except subprocess.TimeoutExpired:
            return ["(the tests do not end)"]
        failed = re.findall(r"^\[  FAILED  \] ([\w./]+)", run.stdout, re.MULTILINE)
        if run.returncode < 0:
            failed.append("(the tests crash)")
        if run.returncode != 0 and not failed:
            raise RuntimeError("the tests cannot be run:\n" + run.stdout)
        return list(dict.fromkeys(failed))

    def unharmed(self, file):
        """What fails without any mistake, as text; empty if nothing does."""
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            error = self.library(folder, file, (self.table.sources / file).read_text())
            failed = [] if error else [test for stage in self.table.stages for test in self.failures(folder, stage)]
        return error or ", ".join(failed)

    def caught(self, mutant):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            error = self.library(folder, mutant.file, mutant.planted())
            if error is not None:
                raise RuntimeError(f"{mutant.name} does not compile:\n{error}")
            for stage in self.table.stages:
                failed = self.failures(folder, stage)
                if failed:
                    return failed
        return []


def run(arguments, table, mutants):
    """Shows the mutants of a table to its tests. Those that no test catches."""
    chosen = [mutant for mutant in mutants if arguments.only in mutant.name or arguments.only in mutant.file]
    if not chosen:
        return []
    began = time.monotonic()
    workshop = Workshop(arguments.build, table)
    survivors = []
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        # The sources as they are must pass, or a failing test would say nothing about a mutant.
        unharmed = pool.submit(workshop.unharmed, chosen[0].file)
        caught = pool.map(workshop.caught, chosen)
        try:
            fault = unharmed.result()
        except RuntimeError as error:
            fault = str(error)
        if fault:
            pool.shutdown(wait=False, cancel_futures=True)
            sys.exit(f"without any mistake: {fault}")
        for mutant, tests in zip(chosen, caught):
            print(f"{mutant.file:24} {mutant.name:52} {', '.join(tests) or 'SURVIVES'}", flush=True)
            if not tests:
                survivors.append(mutant)
    print(f"{table.name}: {len(chosen) - len(survivors)} of {len(chosen)} mutants caught in "
          f"{time.monotonic() - began:.0f} s")
    return survivors


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", nargs="?", default=ROOT / "build/release")
    parser.add_argument("--table", default="", choices=[table.name for table in TABLES],
                        help="only the mistakes of this table")
    parser.add_argument("--only", default="", help="mutants with this text in their name or file")
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_args()

    tables = [table for table in TABLES if arguments.table in ("", table.name)]
    mutants = {table.name: read_table(table) for table in tables}
    found = [fault for table in tables for fault in faults(mutants[table.name])]
    if found:
        sys.exit("\n".join(found))
    if arguments.check:
        print(f"{sum(map(len, mutants.values()))} mutants can be planted")
        return
    survivors = [mutant for table in tables for mutant in run(arguments, table, mutants[table.name])]
    for mutant in survivors:
        print(f"No test catches '{mutant.name}', which breaks {mutant.breaks}", file=sys.stderr)
    sys.exit(1 if survivors else 0)


if __name__ == "__main__":
    main()
