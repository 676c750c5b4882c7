#!/usr/bin/env python3
"""Fails when the agent's library needs more than the contracts, cJSON and a little of the C library.

agent_symbols.py LIBRARY

What it needs must be declared in platform/include/ or stand in the lists below, so that it links on a board without
files, processes, threads or clocks of POSIX."""
import re
import subprocess
import sys
from pathlib import Path

C_LIBRARY = """__errno_location errno free memcmp memcpy memmove memset
    snprintf strcasecmp strerror strlen strncmp strnlen vsnprintf""".split()
# What compilers add: the global offset table (on MIPS _gp_disp leads there), helpers on Arm, checked forms of the
# above, stack protection, assertions.
COMPILER = re.compile(r"_GLOBAL_OFFSET_TABLE_$|_gp_disp$|__aeabi_\w+$|__(mem|v?sn?printf|str)\w+_chk$"
                      r"|__stack_chk_fail$|__assert_fail$")


def needed(library):
    """Symbols that the archive's objects use and none of them defines."""
    used, defined = set(), set()
    for line in subprocess.run(["nm", library], check=True, capture_output=True, text=True).stdout.splitlines():
        fields = line.split()
        if len(fields) >= 2 and len(fields[-2]) == 1:
            (used if fields[-2] in "Uw" else defined).add(fields[-1])
    return used - defined


def contracts():
    """Every name in the contract headers, comments aside."""
    headers = Path(__file__).resolve().parent.parent.joinpath("platform/include").rglob("*.h")
    return {name for header in headers
            for name in re.findall(r"\w+", re.sub(r"(?s)/\*.*?\*/", "", header.read_text()))}


def main(library):
    allowed = contracts() | set(C_LIBRARY)
    symbols = needed(library)
    foreign = sorted(symbol for symbol in symbols
                     if symbol not in allowed and not symbol.startswith("cJSON_") and not COMPILER.match(symbol))
    for symbol in foreign:
        print(f"{symbol}: neither a contract nor one of the few functions of the C library that the agent may call")
    print(f"{len(symbols)} symbols needed, {len(foreign)} foreign")
    return 1 if foreign or not symbols else 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1]))
