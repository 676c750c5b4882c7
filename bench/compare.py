#!/usr/bin/env python3
"""Measures the agent beside a bare server, the fastest that anything with this protocol could be, and prints one table.

    cmake --preset bench && ninja -C build/bench
    python3 bench/compare.py                              # every row, 7 rounds
    python3 bench/compare.py --only keepalive --rounds 15
    python3 bench/compare.py --json figures.json          # for bench/plot.py
    python3 bench/compare.py --earlier ../old/build/bench/bin   # against the agent_server of another build

Agent and bare server take turns, so that what else the machine does hits both. Server and load have a core each and a
network namespace of their own. A ratio is the median of the rounds' ratios; its spread is their quartiles. On a busy
machine the processor time of the server for each request is steadier than the throughput.
"""

import argparse
import contextlib
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
from dataclasses import dataclass

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
BIN = os.environ.get("ENGR_BENCH_BIN", os.path.join(ROOT, "build", "bench", "bin"))
sys.path.insert(0, os.path.join(ROOT, "tests"))

from lan_codec import KEYS, encrypt, request  # noqa: E402  (the path is set above)

FRM_DEV_UPGRADE, FRM_CHK_SOFT_VER = 230, 250
IMAGE_BYTES = 32 << 20
SERVER_CORE, LOAD_CORE = "0", "1"


def upgrade_frames():
    """What makes a server ask for an image."""
    announcement = {"fileSize": IMAGE_BYTES, "swVer": "1.1.0", "fileMd5": "0" * 32}
    start = {"firmwareType": 0, "cid": "bench"}
    return (request(1, FRM_CHK_SOFT_VER, encrypt(KEYS[3], json.dumps(announcement).encode())) +
            request(2, FRM_DEV_UPGRADE, encrypt(KEYS[3], json.dumps(start).encode()))).hex()


class Server:
    """A server that runs on its core while the block lasts."""

    def __init__(self, *command):
        self.process = subprocess.Popen(["taskset", "-c", SERVER_CORE, *command], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)

    def __enter__(self):
        if self.process.stdout.readline() != "ready\n":
            sys.exit("the server does not start; is another one running?")
        return self

    def __exit__(self, *exception):
        self.process.stdin.close()
        self.process.wait(30)

    def tell(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def cpu_seconds(self):
        total = 0
        for task in os.listdir(f"/proc/{self.process.pid}/task"):
            with open(f"/proc/{self.process.pid}/task/{task}/schedstat", encoding="ascii") as file:
                total += int(file.read().split()[0])
        return total / 1e9


def run_load(server, *arguments):
    """Plays a load; its figures, with the processor time of the server for each request."""
    command = ["taskset", "-c", LOAD_CORE, os.path.join(BIN, "load"), *map(str, arguments)]
    before = server.cpu_seconds()
    load = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
    if arguments[0] == "reports":
        assert load.stdout.readline() == "ready\n"
        server.tell(f"reports {arguments[2]}")
    figures = json.loads(load.communicate(timeout=120)[0])
    figures["cpu_us"] = (server.cpu_seconds() - before) / figures["count"] * 1e6
    figures["rate"] = figures["count"] / figures["seconds"]
    return figures


AGENT = "agent_server"
# What it is measured against; anything else is the directory of another build.
AGENT_WITHOUT_LOG, BARE, BARE_ZLIB = "agent_server_without_log", "bare_server", "bare_server zlib"


def server_command(kind, devices):
    if kind in (BARE, BARE_ZLIB):
        return [os.path.join(BIN, "bare_server"), str(devices), "zlib" if kind == BARE_ZLIB else "libdeflate"]
    if kind in (AGENT, AGENT_WITHOUT_LOG):
        return [os.path.join(BIN, kind), str(devices)]
    return [os.path.join(kind, AGENT), str(devices)]


@dataclass
class Row:
    """A load, the server that it is measured against, and the ratio to reach."""
    title: str
    load: tuple
    limit: dict        # of each figure that counts: at least (rate) or at most (p99_us, cpu_us)
    devices: int = 40
    against: str = BARE


SECONDS = 0.5
ROWS = {
    "keepalive": Row("keep-alive, 10 connections", ("keepalive", 10, SECONDS), {"rate": 0.93, "p99_us": 1.2}),
    "list": Row("list of 40, 10 connections", ("list", 10, SECONDS), {"rate": 0.75, "p99_us": 1.5}),
    "list_zlib": Row("list of 40, bare server with zlib", ("list", 10, SECONDS), {"rate": None}, against=BARE_ZLIB),
    "reports": Row("reports to 10 clients", ("reports", 10, 10000), {"rate": 0.85}),
    "upload": Row("upload, unpaced", ("upload", 0, upgrade_frames()), {"rate": 0.97}),
    "upload_gbit": Row("upload, sender at 1 Gbit/s", ("upload", 125e6, upgrade_frames()), {"rate": 0.97}),
    "upload_100mbit": Row("upload, sender at 100 Mbit/s", ("upload", 12.5e6, upgrade_frames()), {"rate": 0.97}),
    "list_10": Row("list of 10, 1 connection", ("list", 1, SECONDS), {"rate": None}, devices=10),
    "list_1000": Row("list of 1,000, 1 connection", ("list", 1, SECONDS), {"rate": None}, devices=1000),
    "list_10000": Row("list of 10,000, 1 connection", ("list", 1, SECONDS), {"rate": None}, devices=10000),
    "list_100000": Row("list of 100,000, 1 connection", ("list", 1, SECONDS), {"rate": None}, devices=100000),
    "log": Row("keep-alive, against an agent without log", ("keepalive", 10, SECONDS), {"rate": 0.98},
               against=AGENT_WITHOUT_LOG),
    "log_list": Row("list of 40, against an agent without log", ("list", 10, SECONDS), {"rate": 0.98},
                    against=AGENT_WITHOUT_LOG),
}


def measure(row, rounds):
    """The figures of each round: of the agent and of what it is measured against, in turns."""
    measured = []
    for number in range(rounds):
        kinds = (AGENT, row.against) if number % 2 else (row.against, AGENT)
        pair = {}
        for kind in kinds:
            with Server(*server_command(kind, row.devices)) as server:
                pair["agent" if kind == AGENT else "against"] = run_load(server, *row.load)
        measured.append(pair)
    return measured


def quartiles(values):
    return statistics.quantiles(values, n=4, method="inclusive") if len(values) > 1 else [values[0]] * 3


def summarize(row, measured):
    """Medians of both sides, and the ratio of each figure with its quartiles."""
    summary = {"title": row.title, "rounds": len(measured), "figures": {}}
    for name in ("rate", "cpu_us", "p50_us", "p99_us"):
        if name not in measured[0]["agent"]:
            continue
        # cpu_us is turned round, so that it compares to the same limit as the rate.
        ratios = [pair["against"][name] / pair["agent"][name] if name == "cpu_us" else
                  pair["agent"][name] / pair["against"][name] for pair in measured]
        low, middle, high = quartiles(ratios)
        summary["figures"][name] = {
            "agent": statistics.median(pair["agent"][name] for pair in measured),
            "against": statistics.median(pair["against"][name] for pair in measured),
            "ratio": middle, "low": low, "high": high, "limit": row.limit.get(name)}
    if "cpu_us" in summary["figures"]:
        summary["figures"]["cpu_us"]["limit"] = row.limit.get("rate")
    return summary


def measure_redis(rounds):
    """Debian's redis-server with PING, in the same turns: how far a well-known server stays below the bare one."""
    if shutil.which("redis-server") is None:
        return None
    measured = []
    with tempfile.TemporaryDirectory() as directory:
        for _ in range(rounds):
            with Server(*server_command(BARE, 40)) as server:
                bare = run_load(server, "keepalive", 10, SECONDS)
            with redis_server(directory) as server:
                measured.append({"agent": run_load(server, "redis", 10, SECONDS), "against": bare})
    return summarize(Row("redis-server PING against the bare keep-alive", (), {}), measured)


@contextlib.contextmanager
def redis_server(directory):
    server = Server("redis-server", "--save", "", "--bind", "127.0.0.1", "--dir", directory, "--loglevel", "notice")
    try:
        for line in server.process.stdout:
            if "Ready to accept" in line:
                break
        yield server
    finally:
        server.process.terminate()
        server.process.communicate()


UNITS = {"rate": "a second", "cpu_us": "µs of the server", "p50_us": "µs, median", "p99_us": "µs, p99"}


def print_table(summaries):
    lines = [["what", "figure", "agent", "against", "ratio", "quartiles", "to reach"], ["---"] * 7]
    for summary in summaries:
        for name, figure in summary["figures"].items():
            unit, scale = ("MB/s", 1e-6) if "upload" in summary["title"] and name == "rate" else (UNITS[name], 1)
            if "upload" in summary["title"] and name == "cpu_us":
                unit, scale = "ms of the server for 1 MB", 1e3
            limit = figure["limit"]
            shown = "" if limit is None else f"{'≤' if name.startswith('p') else '≥'} {limit}"
            lines.append([summary["title"], unit, f"{figure['agent'] * scale:,.4g}" if scale * figure["agent"] < 1e4
                          else f"{figure['agent']:,.0f}", f"{figure['against'] * scale:,.4g}"
                          if scale * figure["against"] < 1e4 else f"{figure['against']:,.0f}",
                          f"{figure['ratio']:.2f}", f"{figure['low']:.2f} to {figure['high']:.2f}", shown])
    widths = [max(len(line[column]) for line in lines) for column in range(len(lines[0]))]
    for line in lines:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", action="append", choices=[*ROWS, "redis"], metavar="ROW",
                        help="this row alone; may be repeated: " + ", ".join([*ROWS, "redis"]))
    parser.add_argument("--rounds", type=int, default=7, help="how often each row is measured (default 7)")
    parser.add_argument("--earlier", metavar="DIR", help="measures against the agent_server there")
    parser.add_argument("--json", metavar="FILE", help="also writes the figures there")
    chosen = parser.parse_args()
    if not 1 <= chosen.rounds <= 1000:
        parser.error("--rounds must be 1 to 1000")
    if os.cpu_count() < 2:
        sys.exit("server and load need a core each")
    for name in ("agent_server", "agent_server_without_log", "bare_server", "load"):
        if not os.path.exists(os.path.join(BIN, name)):
            sys.exit(f"there is no {name} in {BIN}; build it, or set ENGR_BENCH_BIN")
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    summaries = []
    names = [name for name in ROWS if ROWS[name].against == BARE] if chosen.earlier else [*ROWS, "redis"]
    for name in chosen.only or names:
        print(name, file=sys.stderr, flush=True)
        if name in ROWS:
            if chosen.earlier:
                ROWS[name].against, ROWS[name].limit = os.path.realpath(chosen.earlier), {}
            summaries.append(summarize(ROWS[name], measure(ROWS[name], chosen.rounds)))
        elif (redis := measure_redis(chosen.rounds)) is not None:
            summaries.append(redis)
        else:
            print("redis-server is not installed", file=sys.stderr)
    print_table(summaries)
    if chosen.json:
        with open(chosen.json, "w", encoding="utf-8") as file:
            json.dump(summaries, file, indent=1)


if __name__ == "__main__":
    main()
