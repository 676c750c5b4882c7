#!/usr/bin/env python3
"""How long engr_gatewayd takes to its ready line, and its memory at rest: on the demo site, and on a site of devices.

    cmake --preset release && ninja -C build/release
    python3 bench/daemon_start.py [--devices 100000] [--rounds 5]

It runs in a network namespace of its own. The first start of a site writes it into the store; a later one reads it.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from gateway import Gateway, program  # noqa: E402  (the path is set above)


def resident_mib(process):
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS")) / 1024


def measure(site):
    """Seconds of the first start and of a second one, and MiB at rest after the second.

    The site's file is there before, so that writing it takes no part in the first.
    """
    begin = time.monotonic()
    with Gateway(*(["--site", site] if site else []), address="127.0.0.1") as gateway:
        first = time.monotonic() - begin
        gateway.stop()
        begin = time.monotonic()
        gateway.start()
        again = time.monotonic() - begin
        time.sleep(1)
        return first, again, resident_mib(gateway.process)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--devices", type=int, default=100_000, help="of the large site (default 100000)")
    parser.add_argument("--rounds", type=int, default=5, help="starts of each (default 5)")
    chosen = parser.parse_args()
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    large = {"devices": [{"dev_id": f"device{number:06}", "pid": "k3v9xq2m7tzp4wbd", "state": 1}
                         for number in range(chosen.devices)]}
    with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
        json.dump(large, file)
        file.flush()
        for title, site in (("demo site", None), (f"{chosen.devices:,} devices", file.name)):
            figures = [statistics.median(column) for column in zip(*(measure(site) for _ in range(chosen.rounds)))]
            print(f"{title}: first start {figures[0] * 1000:.0f} ms, later start {figures[1] * 1000:.0f} ms, "
                  f"at rest {figures[2]:.1f} MiB")
    with tempfile.NamedTemporaryFile() as stripped:
        subprocess.run(["strip", "-o", stripped.name, program("engr_gatewayd")], check=True)
        print(f"program, stripped: {os.path.getsize(stripped.name) / 1e6:.2f} MB")


if __name__ == "__main__":
    main()
