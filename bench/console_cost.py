#!/usr/bin/env python3
"""What the console costs the gateway while frames pass: answer times of an app, processor time, memory.

    cmake --preset release && ninja -C build/release
    python3 bench/console_cost.py [--rates 1000] [--seconds 10]

It runs in a network namespace of its own. An app asks for the channel so many times a second and gets its answers: two
frames each, and what else happens at the gateway for each of them. "browser" reads everything that the console sends,
as a page does; "asleep" stops reading after the first message. Processor time is that of the daemon, all threads.
"""

import argparse
import multiprocessing
import os
import re
import socket
import sys
import time

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from gateway import Gateway  # noqa: E402  (the path is set above)
from lan_codec import FRM_GET_CHANNEL, request  # noqa: E402
from live_socket import LiveSocket  # noqa: E402

# (title, whether there is a console, how its readers behave)
CASES = [("no console", False, []), ("console, no browser", True, []), ("one browser", True, ["browser"]),
         ("four browsers", True, ["browser"] * 4), ("one asleep", True, ["asleep"])]


def read(page, behaviour, told):
    """A browser's end, in a process of its own; tells how many events it got and how many were dropped."""
    events = dropped = 0
    with LiveSocket(page) as live:
        live.wait("state")
        told.put(None)
        while behaviour == "asleep":
            time.sleep(1)
        try:
            while (message := live.receive()) is not None:
                events += len(message.get("events", ()))
                dropped += message.get("dropped", 0)
        except OSError:
            pass
    told.put((events, dropped))


def ask(address, rate, seconds):
    """Seconds that each answer took."""
    waits = []
    with socket.create_connection((address, 6668)) as app:
        begin = due = time.monotonic()
        while due < begin + seconds:
            time.sleep(max(0, due - time.monotonic()))
            sent = time.monotonic()
            app.sendall(request(len(waits) + 1, FRM_GET_CHANNEL))
            while len(app.recv(4096)) == 4096:
                pass
            waits.append(time.monotonic() - sent)
            due += 2 / rate
    return sorted(waits)


def used(process):
    """(seconds of processor time, KiB at most) of a process."""
    with open(f"/proc/{process.pid}/stat", encoding="ascii") as file:
        ticks = sum(map(int, file.read().rsplit(")", 1)[1].split()[11:13]))
    with open(f"/proc/{process.pid}/status", encoding="ascii") as file:
        peak = next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))
    return ticks / os.sysconf("SC_CLK_TCK"), peak


def measure(title, has_console, behaviours, rate, seconds):
    """One line of the table."""
    with Gateway("--quiet", *(["--console", "0"] if has_console else [])) as gateway:
        told = multiprocessing.Queue()
        readers = [multiprocessing.Process(target=read, daemon=True, args=(
            re.search(r"console (\S+)", gateway.ready_line)[1], behaviour, told)) for behaviour in behaviours]
        for each in readers:
            each.start()
        for _ in readers:
            told.get()
        before, _ = used(gateway.process)
        begin = time.monotonic()
        waits = ask(gateway.address, rate, seconds)
        took = time.monotonic() - begin
        after, peak = used(gateway.process)
    got = [told.get() for behaviour in behaviours if behaviour == "browser"]
    for each in readers:
        each.terminate()
    print(f"{title:20} {2 * len(waits) / took:9.0f} {1e6 * waits[len(waits) // 2]:8.0f} "
          f"{1e6 * waits[len(waits) * 99 // 100]:8.0f} {100 * (after - before) / took:7.1f} {peak:9}  "
          + ("; ".join(f"{events} events, {dropped} dropped" for events, dropped in got) or "-"), flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rates", default="1000,4000", help="frames a second (default: %(default)s)")
    parser.add_argument("--seconds", type=int, default=10, help="for each line (default: %(default)s)")
    chosen = parser.parse_args()
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    print("case                  frames/s   p50 us   p99 us   CPU %  peak KiB  got")
    for rate in map(int, chosen.rates.split(",")):
        for case in CASES:
            measure(*case, rate, chosen.seconds)


if __name__ == "__main__":
    main()
