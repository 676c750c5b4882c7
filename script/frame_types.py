#!/usr/bin/env python3
"""Writes the table of frame types in docs/protocol.md from the list in the source, or checks that it is up to date."""
import argparse
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCE = ROOT / "svc_engineering_mode/src/app_agent_engr/transport/frame_types.h"
DOCUMENT = ROOT / "docs/protocol.md"
HEAD = "| Type | Name | Direction | Payload | Meaning |\n| --- | --- | --- | --- | --- |\n"
ROW = re.compile(r"X\((\d+), (\w+), (\w+), (\w+), (\w+),\s*\"([^\"]*)\"\)")


def table():
    """The table as Markdown."""
    source = SOURCE.read_text().replace("\\\n", " ")
    rows = ROW.findall(source)
    if len(rows) != source.count("X(") - 1:
        sys.exit(f"{SOURCE}: a row is not of the form X(number, name, way, payload, handler, \"meaning\")")
    lines = [HEAD]
    for number, name, way, payload, _, meaning in rows:
        shown = "" if payload == "none" else payload
        lines.append(f"| {number} | `{name}` | {way} | {shown} | {meaning} |\n")
    return "".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--write", action="store_true", help="write the table instead of checking it")
    arguments = parser.parse_args()
    text = DOCUMENT.read_text()
    wanted = text.split(HEAD)[0] + table()
    if arguments.write:
        DOCUMENT.write_text(wanted)
    elif text != wanted:
        sys.exit(f"{DOCUMENT.relative_to(ROOT)} is out of date: run script/frame_types.py --write")


main()
