#!/usr/bin/env python3
"""What llvm-cov has counted, for script/coverage: coverage_report.py report|uncovered COUNTS.json FILE...

Exit 0: every branch of the files was taken or is listed as one that can't be; 1: one is neither, or a listed one was
taken after all or is gone; 2: the list can't be read.
"""
import collections
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = "script/unreachable_branches.txt"

Branch = collections.namedtuple("Branch", "file condition way")


def listed_branches():
    """The list's entries: how often each stands there."""
    listed = collections.Counter()
    for entry in re.split(r"\n\s*\n", (ROOT / LIST).read_text(encoding="utf-8")):
        lines = [line.strip() for line in entry.splitlines() if not line.startswith("#")]
        if not lines:
            continue
        match = re.fullmatch(r"never (true|false): (.+)", lines[1]) if len(lines) > 2 else None
        if not match:
            print(f"{LIST}: an entry is a file, a branch as script/coverage --uncovered shows it, and the reason; "
                  f"this is not: {lines[0]}", file=sys.stderr)
            sys.exit(2)
        listed[Branch(lines[0], match[2], match[1])] += 1
    return listed


def condition_at(text, line, column, end_line, end_column):
    lines = text[line - 1:end_line]
    lines[-1] = lines[-1][:end_column - 1]
    lines[0] = lines[0][column - 1:]
    return " ".join(" ".join(lines).split())


def uncovered_branches(name, counted):
    """Yields (line, branch) of what no test has taken. A template or inline function is counted once for each use.

    Left out are conditions that are constant, and the way past all cases of a switch without a default: the compiler
    checks that it has a case for each value.
    """
    text = (ROOT / name).read_text(encoding="utf-8").splitlines()
    taken = collections.defaultdict(lambda: [0, 0])
    for *place, yes, no, _, _, _ in counted:
        taken[tuple(place)][0] += yes
        taken[tuple(place)][1] += no
    for place, counts in sorted(taken.items()):
        condition = condition_at(text, *place)
        is_switch = text[place[0] - 1][:place[1] - 1].endswith("switch (")
        for way, count in zip(("true", "false"), counts):
            if count == 0 and condition != "true" and not (is_switch and way == "true"):
                yield place[0], Branch(name, condition, way)


def print_report(files):
    print("%-74s %12s %12s" % ("", "lines", "branches"))
    kinds = [(kind, which) for kind in ("lines", "branches") for which in ("covered", "count")]
    rows = [(name, [file["summary"][kind][which] for kind, which in kinds]) for name, file in files.items()]
    total = [sum(column) for column in zip(*(row for _, row in rows))]
    for name, row in rows + [("all", total)]:
        print("%-74s %5d of %4d %5d of %4d" % (name, *row))


def main():
    show, counts, *wanted = sys.argv[1:]
    wanted = [pathlib.Path(name).resolve() for name in wanted]
    files = {}
    for file in json.loads(pathlib.Path(counts).read_bytes())["data"][0]["files"]:
        path = pathlib.Path(file["filename"]).resolve()
        if any(path == one or one in path.parents for one in wanted):
            files[path.relative_to(ROOT).as_posix()] = file
    if show == "report":
        print_report(files)
    uncovered = [found for name, file in sorted(files.items()) for found in uncovered_branches(name, file["branches"])]
    unused = collections.Counter({branch: count for branch, count in listed_branches().items() if branch.file in files})
    problems = 0
    for line, branch in uncovered:
        is_listed = unused[branch] > 0
        unused[branch] -= is_listed
        problems += not is_listed
        if show == "uncovered" or not is_listed:
            known = " (listed)" if is_listed else ""
            print(f"{branch.file}:{line}\n    never {branch.way}: {branch.condition}{known}")
    for branch in (+unused).elements():
        problems += 1
        print(f"{LIST}: was taken after all, or is gone: {branch.file}: never {branch.way}: {branch.condition}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
