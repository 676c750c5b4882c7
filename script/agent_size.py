#!/usr/bin/env python3
"""Prints the size of the agent's library and fails above its limits: agent_size.py LIBRARY [EARLIER-LIBRARY]
agent_size.py --short LIBRARY prints no more than the bytes of code and constants, and of variables."""
import subprocess
import sys

LIMITS = (("code and constants", 56 * 1024), ("memory at rest, stack and heap aside", 8 * 1024))


def sizes(library):
    """(code and constants, variables) of an archive in bytes; what is read-only after relocation is a constant."""
    code = variables = 0
    listing = subprocess.run(["size", "--format=sysv", library], check=True, capture_output=True, text=True).stdout
    for line in listing.splitlines():
        fields = line.split()
        if len(fields) != 3 or not fields[1].isdigit():
            continue
        section, size = fields[0], int(fields[1])
        if section.startswith((".text", ".rodata", ".data.rel.ro", ".eh_frame", ".gcc_except_table")):
            code += size
        elif section.startswith((".data", ".bss", ".tdata", ".tbss")):
            variables += size
    return code, variables


def main(library, earlier=None):
    if not library:
        sys.exit("agent_size.py: the agent's library was not built")
    now = sizes(library)
    before = sizes(earlier) if earlier else (None, None)
    too_large = False
    for (what, limit), size, size_before in zip(LIMITS, now, before):
        change = "" if size_before is None else f", {size - size_before:+d} against the parent commit"
        verdict = "" if size <= limit else "  TOO LARGE"
        print(f"{what}: {size} of {limit} bytes{change}{verdict}")
        too_large |= size > limit
    return 1 if too_large else 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["--short"]:
        print(*sizes(sys.argv[2]))
        sys.exit()
    sys.exit(main(*sys.argv[1:]))
