#!/usr/bin/env python3
"""How long engr_app takes to list all devices of a gateway, from its start to its end.

    cmake --preset bench && ninja -C build/bench
    python3 bench/app_list.py                                # 10, 1,000, 10,000 and 100,000 devices, 15 rounds
    python3 bench/app_list.py --earlier ../old/build/bench/bin   # in turns with the engr_app of another build

The agent runs on one core and the app on the other, in a network namespace of their own.
"""

import argparse
import os
import resource
import statistics
import sys
import tempfile
import time

from compare import AGENT, BIN, LOAD_CORE, ROOT, Server, server_command


def list_devices(program):
    """Milliseconds of the clock and of the processor that `engr_app devices` takes."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    began = time.monotonic()
    # Not by subprocess, which takes a millisecond itself.
    process = os.posix_spawn(program, [program, "--gateway", "127.0.0.1", "devices", "--json"], os.environ,
                             file_actions=[(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)])
    _, status = os.waitpid(process, 0)
    seconds = time.monotonic() - began
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if status != 0:
        sys.exit(f"{program} failed (wait status {status})")
    return 1000 * seconds, 1000 * (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)


def measure(programs, devices, rounds):
    """The median of the clock and of the processor for each program, which take turns."""
    with tempfile.TemporaryDirectory() as home, Server(*server_command(AGENT, devices)):
        os.sched_setaffinity(0, {int(LOAD_CORE)})
        # What engr_app remembers of other gateways is not to be read.
        os.environ.update({f"XDG_{kind}_HOME": home for kind in ("CACHE", "CONFIG", "STATE")})
        for program in programs:
            list_devices(program)
        taken = [[list_devices(program) for program in programs] for _ in range(rounds)]
    return [[statistics.median(column) for column in zip(*of_program)] for of_program in zip(*taken)]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--devices", type=int, nargs="+", default=[10, 1_000, 10_000, 100_000], metavar="N")
    parser.add_argument("--rounds", type=int, default=15, help="lists of each (default 15)")
    parser.add_argument("--earlier", metavar="DIR", help="also measures the engr_app there, in turns")
    chosen = parser.parse_args()
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    directories = [BIN] + ([os.path.realpath(chosen.earlier)] if chosen.earlier else [])
    for devices in chosen.devices:
        figures = measure([os.path.join(directory, "engr_app") for directory in directories], devices, chosen.rounds)
        print(f"{devices:7,} devices: " + ", earlier: ".join(
            f"{clock:.1f} ms, {processor:.1f} ms of the processor" for clock, processor in figures), flush=True)


if __name__ == "__main__":
    main()
