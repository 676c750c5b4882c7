"""Commissions forty gateways by one plan, with interruptions, and prints what it took.

    cmake --preset release && ninja -C build/release
    python3 bench/forty_flats.py
    python3 bench/forty_flats.py --flats 100 --at-once 32

One plan is applied to one gateway, and then to all, which are new each time: without a break for the times; then with
Ctrl-C in the middle, a kill -9 in the middle, and once more to the end. Then all must be as planned, nothing may have
been sent that was noted before, and one more apply must change nothing. It runs in a network namespace of its own,
with gateways on loopback. Exit status 1: that was not so.
"""

import argparse
import contextlib
import json
import os
import signal
import subprocess
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from gateway import Gateway, program  # noqa: E402  (the path is set above)

DEVICES = 12
PATIENCE_S = 600
# What an app makes a gateway do, as its trace names it, and cannot read back.
SENT = ("engr_sf_send_grp_oper_cmd", "engr_sf_send_scene_oper_cmd", "engr_sf_send_scene_panel_cmd",
        "engr_save_scene_link", "engr_gw_user_token_bind")


def address(number):
    return f"127.1.0.{number}"


def plan(flats):
    """A plan as JSON: four groups with two scenes each, a panel with a button for each scene."""
    devices = [{"id": "${prefix}%02d" % one, "product": "lamp", "name": f"lamp {one}"} for one in range(DEVICES)]
    groups = [{"id": f"room{room}", "devices": [f"lamp {one}" for one in range(room, DEVICES, 4)]} for room in range(4)]
    scenes = [{"group": group["id"], "id": f"scene{on}",
               "actions": [{"device": one, "set": {"1": bool(on)}} for one in group["devices"]]}
              for group in groups for on in range(2)]
    buttons = [{"button": number + 1, "group": one["group"], "scene": one["id"]} for number, one in enumerate(scenes)]
    flat = {"channel": 20, "devices": devices, "groups": groups, "scenes": scenes,
            "panels": [{"device": "lamp 0", "buttons": buttons}],
            "linkage": [{"id": "leaving", "actions": [{"device": "lamp 1", "set": {"1": False}}]}],
            "token": {"env": "ENGR_TOKEN"}, "configuration": {"app": {"json": {"flat": "${name}"}}}}
    return {"plan": 1, "name": "Flats", "templates": {"flat": flat},
            "gateways": [{"name": f"flat-{number:02}", "address": address(number), "template": "flat",
                          "variables": {"prefix": f"a4c1{number:03}"}} for number in range(1, flats + 1)]}


class Site:
    """New gateways, and the plan for them in a directory of its own."""

    def __init__(self, flats, at_once, stack):
        self.directory = stack.enter_context(tempfile.TemporaryDirectory())
        self.plan = os.path.join(self.directory, "flats.json")
        with open(self.plan, "w", encoding="utf-8") as file:
            json.dump(plan(flats), file)
        self.gateways = [stack.enter_context(Gateway(site={"devices": []}, trace=True, address=address(number)))
                         for number in range(1, flats + 1)]
        self.command = [program("engr_app"), "site", "apply", self.plan, "--at-once", str(at_once), "--json"]

    def start(self):
        return subprocess.Popen(self.command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                env={**os.environ, "ENGR_TOKEN": "installer-token-1"})

    def apply(self):
        """(seconds, report) of an apply that nothing interrupts."""
        began = time.monotonic()
        with self.start() as running:
            report = json.loads(running.communicate(timeout=PATIENCE_S)[0])
        return time.monotonic() - began, report

    def interrupt(self, number, steps):
        """Interrupts an apply when the gateways have been sent so many things more. Returns what was sent by then."""
        before = self.sent()
        with self.start() as running:
            while running.poll() is None and self.sent() - before < steps:
                pass
            running.send_signal(number)
            running.communicate(timeout=PATIENCE_S)
        return self.sent() - before

    def sent(self):
        total = 0
        for one in self.gateways:
            with open(one._trace_path, encoding="utf-8") as file:
                text = file.read()
            total += sum(text.count(f'"{call}"') for call in SENT)
        return total


def states(report):
    counts = {}
    for gateway in report["gateways"]:
        for step in gateway["steps"]:
            counts[step["state"]] = counts.get(step["state"], 0) + 1
    return counts


def measure(flats, at_once):
    with contextlib.ExitStack() as stack:
        seconds, report = Site(flats, at_once, stack).apply()
    good = all(one["as_planned"] for one in report["gateways"])
    print(f"{flats:4} gateways, {at_once:2} at once: {seconds:6.2f} s, steps {states(report)}"
          f"{'' if good else '  NOT AS PLANNED'}", flush=True)
    return good


def interrupted(flats, at_once):
    with contextlib.ExitStack() as stack:
        site = Site(flats, at_once, stack)
        things = 4 + 8 + 1 + 1 + 1
        for name, number in (("Ctrl-C", signal.SIGINT), ("kill -9", signal.SIGKILL)):
            print(f"{name:8} after {site.interrupt(number, flats * things // 3)} things were sent", flush=True)
        seconds, report = site.apply()
        print(f"to the end: {seconds:6.2f} s, steps {states(report)}", flush=True)
        sent = site.sent()
        _, again = site.apply()
        good = all(one["as_planned"] for one in report["gateways"])
        # Each of those at work when the program was killed may have been sent one thing twice.
        frugal = flats * things <= sent <= flats * things + at_once
        idle = set(states(again)) == {"as_planned"} and site.sent() == sent
        print(f"sent {sent} things, needed {flats * things}; as planned: {good}; "
              f"a second apply changes nothing: {idle}")
        return good and frugal and idle


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--flats", type=int, default=40)
    parser.add_argument("--at-once", type=int, default=16)
    given = parser.parse_args()
    if "ENGR_ISOLATED" not in os.environ:
        isolated = os.path.join(ROOT, "tests", "isolated")
        os.execv(isolated, [isolated, sys.executable, *sys.argv])
    results = [measure(1, given.at_once), measure(given.flats, 1), measure(given.flats, given.at_once),
               interrupted(given.flats, given.at_once)]
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
