"""What a gateway that lies can make engr_app spend: plays lies to its verbs and prints one table.

    cmake --preset release && ninja -C build/release
    python3 bench/hostile_gateways.py                       # all lies
    python3 bench/hostile_gateways.py --only million_devices --seconds 60 --json

It runs in a network namespace of its own; the gateway is a few lines on loopback. For each lie the table has the time
until the app ended, its largest memory, its processor time, and how it ended. An app that is still busy after
--seconds gets Ctrl-C; the column "Ctrl-C" then has how long it took to end. docs/security.md explains the figures.
"""

import argparse
import contextlib
import json
import os
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
from dataclasses import dataclass
from typing import Callable

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "app")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from fake_gateway import APP, Gateway, all_requests, answering  # noqa: E402  (the path is set above)
from lan_codec import FRM_DEV_LIST, FRM_GET_LOG, FRM_KEEPALIVE, KEYS, encrypt, frame  # noqa: E402

LARGEST_FRAME = 8 << 20
FRM_DP_REPORT, FRM_DEV_LINE_STAT = 8, 224
TERMINAL_CODES = '\x1b]0;owned\x07\x9b31m\u202e\u2066'


# ---- The lies: each serves one connection until the app leaves.

def send_for_ever(data):
    """Sends the same bytes over and over and reads nothing."""
    def serve(connection):
        while True:
            connection.sendall(data)
    return serve


def answer_device_list(entries):
    """A sound gateway whose list of devices has these entries."""
    return lambda: answering({FRM_DEV_LIST: (0, b'{"products":[' + entries() + b"]}"),
                              FRM_DEV_LINE_STAT: (0, b'{"online":[]}')})


def send_until_closed(connection, data):
    with contextlib.suppress(OSError):
        send_for_ever(data)(connection)


def say_nothing(connection):
    while connection.recv(1 << 16):
        pass


def answer_byte_by_byte(connection):
    for number, kind, _ in all_requests(connection):
        reply = frame(number, kind, 0, encrypt(KEYS[3], b'{"products":[]}'))
        while True:
            for byte in reply[:-1]:
                connection.sendall(bytes([byte]))
                time.sleep(0.2)
            time.sleep(3600)


def log_of(count):
    def serve(connection):
        for number, kind, _ in all_requests(connection):
            if kind != FRM_GET_LOG:
                connection.sendall(frame(0 if kind == FRM_KEEPALIVE else number, kind, 0))
                continue
            for segment in range(1, count):
                connection.sendall(frame(number, kind, 0, struct.pack(">II", count, segment) + b"x" * 1024))
            say_nothing(connection)
    return serve


def report_for_ever(connection):
    text = encrypt(KEYS[3], json.dumps({"cid": "lamp", "dps": {"1": "x" * 100}}).encode())
    reports = frame(0, FRM_DP_REPORT, 0, text) * 100
    for number, kind, _ in all_requests(connection):
        connection.sendall(frame(number if kind != FRM_KEEPALIVE else 0, kind, 0))
        threading.Thread(target=send_until_closed, args=(connection, reports), daemon=True).start()


def nested(depth):
    return lambda: b"[" * depth + b"]" * depth


@dataclass
class Lie:
    what: str
    serve: Callable  # () -> function (connection) -> None
    verb: tuple = ("devices",)


LIES = {
    "honest": Lie("none: a list of 40 devices", answer_device_list(
        lambda: b",".join(b'{"cid":"device%05d","pid":"p"}' % n for n in range(40)))),
    "silence": Lie("accepts and says nothing", lambda: say_nothing),
    "byte_by_byte": Lie("an answer, a byte each 0.2 s, without its end", lambda: answer_byte_by_byte),
    "heads": Lie("heads of frames within each other", lambda: send_for_ever(
        frame(0, FRM_DP_REPORT, 0, b"x" * (LARGEST_FRAME - 100))[:16] * 4096), ("watch",)),
    "huge_frames": Lie("frames of 8 MiB", lambda: send_for_ever(
        frame(0, FRM_DP_REPORT, 0, b"x" * (LARGEST_FRAME - 64))), ("watch",)),
    "zeros": Lie("zeros without end", lambda: send_for_ever(bytes(1 << 20))),
    "keepalives": Lie("answers nobody asked for", lambda: send_for_ever(frame(0, FRM_KEEPALIVE, 0) * 4096)),
    "empty_devices": Lie("2.7 million empty devices", answer_device_list(lambda: b",".join([b"{}"] * 2_700_000))),
    "million_devices": Lie("a million devices of 3 letters", answer_device_list(
        lambda: b",".join([b'{"cid":"a"}'] * 690_000))),
    "nested": Lie("an array 3 million deep", answer_device_list(nested(3_000_000))),
    "long_names": Lie("a device with a name of 7 MB", answer_device_list(
        lambda: b'{"cid":"' + b"n" * 7_000_000 + b'","pid":"p"}')),
    "terminal_codes": Lie("terminal codes in a name", answer_device_list(
        lambda: json.dumps({"cid": TERMINAL_CODES, "pid": "p"}).encode())),
    "huge_log": Lie("a log of 2 billion segments", lambda: log_of(2 ** 31), ("log", "log.txt", "--force")),
    "long_log": Lie("a log of 65,536 segments without the last", lambda: log_of(65_536), ("log", "log.txt", "--force")),
    "reports": Lie("reports without end", lambda: report_for_ever, ("watch",)),
    "reports_joining": Lie("reports without end", lambda: report_for_ever, ("join", "open", "--seconds", "5")),
    "wrong_types": Lie("a number where a text belongs", answer_device_list(lambda: b'{"cid":1,"pid":[]}')),
}


def peak_kib(pid):
    """Of the program alone: what the system counts for a child begins with the memory of its parent."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next((int(line.split()[1]) for line in file if line.startswith("VmHWM")), 0)


def last_line(text):
    lines = text.decode(errors="replace").splitlines()
    return lines[-1].replace("|", "/") if lines else ""


def measure(name, lie, seconds):
    with tempfile.TemporaryDirectory() as directory, open(os.path.join(directory, "errors"), "w+b") as errors, \
            open(os.path.join(directory, "output"), "w+b") as output:
        gateway = Gateway(lie.serve())
        started = time.monotonic()
        process = subprocess.Popen([APP, "--gateway", gateway.name, *lie.verb], cwd=directory, stdout=output,
                                   stderr=errors)
        interrupted, peak = None, 0
        while time.monotonic() < started + seconds + 60:
            pid, status, used = os.wait4(process.pid, os.WNOHANG)
            if pid:
                break
            peak = peak_kib(process.pid) or peak
            if interrupted is None and time.monotonic() >= started + seconds:
                interrupted = time.monotonic()
                process.send_signal(signal.SIGINT)
            time.sleep(0.002)
        else:
            process.kill()
            _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        ended = time.monotonic()
        gateway.listener.close()
        output.seek(0)
        errors.seek(0)
        passed = any(code in output.read() for code in (b"\x1b", b"\x9b", "\u202e".encode(), "\u2066".encode()))
        return {"lie": name, "what": lie.what, "verb": " ".join(lie.verb), "seconds": round(ended - started, 3),
                "interrupt_s": None if interrupted is None else round(ended - interrupted, 3),
                "rss_peak_kib": peak, "cpu_s": round(used.ru_utime + used.ru_stime, 2),
                "exit": process.returncode, "terminal_codes": passed, "last_line": last_line(errors.read())}


def print_table(rows):
    titles = ["lie", "verb", "ended after", "Ctrl-C", "RSS peak KiB", "CPU s", "exit"]
    lines = [titles, ["---"] * len(titles)]
    for row in rows:
        interrupted = "-" if row["interrupt_s"] is None else f"{row['interrupt_s']:.3f} s"
        lines.append([row["what"], row["verb"], f"{row['seconds']:.2f} s", interrupted, str(row["rss_peak_kib"]),
                      f"{row['cpu_s']:.2f}", str(row["exit"])])
    widths = [max(len(line[column]) for line in lines) for column in range(len(titles))]
    for line in lines:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |")
    for row in rows:
        if row["terminal_codes"]:
            print(f"{row['lie']}: codes of the gateway reached the terminal")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", action="append", choices=[*LIES], metavar="NAME",
                        help="this lie alone; may be repeated: " + ", ".join(LIES))
    parser.add_argument("--seconds", type=int, default=20, help="after which the app gets Ctrl-C (default 20)")
    parser.add_argument("--json", action="store_true", help="the figures, and the app's last line, as JSON")
    chosen = parser.parse_args()
    if not 1 <= chosen.seconds <= 3600:
        parser.error("--seconds must be 1 to 3600")
    if not os.path.exists(APP):
        sys.exit(f"there is no {APP}; build it, or set ENGR_BIN_DIR")
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    rows = []
    for name in chosen.only or LIES:
        print(name, file=sys.stderr, flush=True)
        rows.append(measure(name, LIES[name], chosen.seconds))
    if chosen.json:
        print(json.dumps({"seconds": chosen.seconds, "lies": rows}, indent=2))
    else:
        print_table(rows)


if __name__ == "__main__":
    main()
