"""What a gateway that lies can make engr_app spend: plays lies to its verbs and prints one table.

    cmake --preset release && ninja -C build/release
    python3 bench/hostile_gateways.py                       # all lies
    python3 bench/hostile_gateways.py --only million_devices --seconds 60 --json
    python3 bench/hostile_gateways.py --library build/bench/bin/library_app     # to lan_client without engr_app

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

from fake_gateway import APP, Gateway, all_requests, answering, broadcast, requests  # noqa: E402  (as set above)
from lan_codec import (FRM_CHK_SOFT_VER, FRM_DEV_LINE_STAT, FRM_DEV_LIST, FRM_DEV_UPGRADE,  # noqa: E402
                       FRM_DOWNLOAD_FIRMWARE, FRM_DP_REPORT, FRM_GET_LOG, FRM_KEEPALIVE, FRM_UDP_DISCOVERY,
                       FRM_UPGRADE_PERCENT_RPT, KEYS, encrypt, frame)

LARGEST_FRAME = 8 << 20
IMAGE_BYTES = 2_000_000
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


def upgrade_with(report):
    """A gateway that starts an upgrade and then sends what `report` makes of a piece's number, without end."""
    def send_reports(connection):
        number = 0
        with contextlib.suppress(OSError):
            while True:
                connection.sendall(b"".join(report(number + each) for each in range(100)))
                number += 100

    def serve(connection):
        started = False
        for number, kind, _ in requests(connection):
            if kind == FRM_CHK_SOFT_VER:
                state = {"updateStatus": int(started), "updateCid": "gw1", "cid": "gw1", "softVer": "1.0"}
                connection.sendall(frame(number, kind, 0, encrypt(KEYS[3], json.dumps(state).encode())))
            elif kind in (FRM_KEEPALIVE, FRM_DEV_UPGRADE):
                connection.sendall(frame(0 if kind == FRM_KEEPALIVE else number, kind, 0))
                if kind == FRM_DEV_UPGRADE and not started:
                    started = True
                    threading.Thread(target=send_reports, args=(connection,), daemon=True).start()
    return lambda: serve


def upgrade_report(kind, **body):
    return frame(0, kind, 0, encrypt(KEYS[3], json.dumps({"firmwareType": 0, "cid": "gw1", **body}).encode()))


def announce_for_ever(is_over):
    """Another gateway at another address with each datagram."""
    number = 0
    while not is_over.is_set():
        number += 1
        address = f"127.{number >> 16 & 255}.{number >> 8 & 255}.{number & 255 or 1}"
        text = {"ip": address, "gwId": f"gw{number}", "active": 0, "ablilty": 1, "productKey": "pk", "version": "1"}
        with contextlib.suppress(OSError):
            broadcast(address, 6667, frame(0, FRM_UDP_DISCOVERY, 0, encrypt(KEYS[2], json.dumps(text).encode())))


def nested(depth):
    return lambda: b"[" * depth + b"]" * depth


@dataclass
class Lie:
    what: str
    serve: Callable | None  # () -> function (connection) -> None
    verb: tuple = ("devices",)
    announce: Callable | None = None  # sends datagrams until an event is set; the app is then given no gateway


UPGRADE = ("upgrade", "image.bin", "--version", "2.0.1")
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
    "terminal_codes_json": Lie("terminal codes in a name", answer_device_list(
        lambda: json.dumps({"cid": TERMINAL_CODES, "pid": "p"}, ensure_ascii=False).encode()), ("devices", "--json")),
    "terminal_codes_info": Lie("terminal codes in a version", lambda: answering({
        FRM_CHK_SOFT_VER: (0, json.dumps({"softVer": TERMINAL_CODES, "cid": TERMINAL_CODES, "updateStatus": 0,
                                          "updateCid": TERMINAL_CODES}, ensure_ascii=False).encode()),
        FRM_DEV_LIST: (0, b'{"products":[]}'), FRM_DEV_LINE_STAT: (0, b'{"online":[]}')}), ("info", "--json")),
    "huge_log": Lie("a log of 2 billion segments", lambda: log_of(2 ** 31), ("log", "log.txt", "--force")),
    "long_log": Lie("a log of 65,536 segments without the last", lambda: log_of(65_536), ("log", "log.txt", "--force")),
    "reports": Lie("reports without end", lambda: report_for_ever, ("watch",)),
    "reports_joining": Lie("reports without end", lambda: report_for_ever, ("join", "open", "--seconds", "5")),
    "wrong_types": Lie("a number where a text belongs", answer_device_list(lambda: b'{"cid":1,"pid":[]}')),
    "pieces": Lie("all of an image asked for without end", upgrade_with(
        lambda _: upgrade_report(FRM_DOWNLOAD_FIRMWARE, offset=0, downloadSize=IMAGE_BYTES)), UPGRADE),
    "small_pieces": Lie("an image asked for byte by byte", upgrade_with(
        lambda number: upgrade_report(FRM_DOWNLOAD_FIRMWARE, offset=number, downloadSize=1)), UPGRADE),
    "progress": Lie("progress of an upgrade without end", upgrade_with(
        lambda number: upgrade_report(FRM_UPGRADE_PERCENT_RPT, progress=number % 100)), UPGRADE),
    "announcements": Lie("another gateway with each announcement", None, ("discover",), announce_for_ever),
}


def peak_kib(pid):
    """Of the program alone: what the system counts for a child begins with the memory of its parent."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next((int(line.split()[1]) for line in file if line.startswith("VmHWM")), 0)


def last_line(text):
    lines = text.decode(errors="replace").splitlines()
    return lines[-1].replace("|", "/") if lines else ""


@contextlib.contextmanager
def lying(lie):
    """Plays the lie as long as it lasts; yields address and port of the gateway, or nothing when it announces some."""
    if lie.announce is None:
        gateway = Gateway(lie.serve())
        yield gateway.name
        gateway.listener.close()
        return
    is_over = threading.Event()
    announcing = threading.Thread(target=lie.announce, args=(is_over,), daemon=True)
    announcing.start()
    yield ""
    is_over.set()
    announcing.join()


# What the library alone does in the place of a verb.
LIBRARY_WORK = {"devices": ("devices",), "watch": ("watch", "5"), "log": ("log",), "upgrade": ("upgrade", "image.bin"),
                "discover": ("discover", "5")}


def is_for_library(lie):
    return lie.verb[0] in LIBRARY_WORK and "--json" not in lie.verb


def command(lie, gateway, library):
    if library:
        return [library, gateway.rpartition(":")[2] or "0", *LIBRARY_WORK[lie.verb[0]]]
    return [APP, *(("--gateway", gateway) if gateway else ()), *lie.verb]


def measure(name, lie, seconds, library):
    with tempfile.TemporaryDirectory() as directory, open(os.path.join(directory, "errors"), "w+b") as errors, \
            open(os.path.join(directory, "output"), "w+b") as output, lying(lie) as gateway:
        with open(os.path.join(directory, "image.bin"), "wb") as image:
            image.truncate(IMAGE_BYTES)
        started = time.monotonic()
        # That of the tests makes the app wait longer than it does by itself.
        no_configuration = {**os.environ, "XDG_CONFIG_HOME": directory}
        process = subprocess.Popen(command(lie, gateway, library), cwd=directory, env=no_configuration, stdout=output,
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
        output.seek(0)
        errors.seek(0)
        shown = output.read() + errors.read()
        errors.seek(0)
        passed = any(code in shown for code in (b"\x1b", b"\x9b", "\u202e".encode(), "\u2066".encode()))
        return {"lie": name, "what": lie.what, "verb": " ".join(LIBRARY_WORK[lie.verb[0]] if library else lie.verb),
                "seconds": round(ended - started, 3),
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
    parser.add_argument("--library", metavar="PROGRAM", type=os.path.abspath,
                        help="lies to library_app, the library alone, instead of to engr_app")
    parser.add_argument("--json", action="store_true", help="the figures, and the app's last line, as JSON")
    chosen = parser.parse_args()
    if not 1 <= chosen.seconds <= 3600:
        parser.error("--seconds must be 1 to 3600")
    if not os.path.exists(chosen.library or APP):
        sys.exit(f"there is no {chosen.library or APP}; build it, or set ENGR_BIN_DIR")
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    rows = []
    for name in chosen.only or [name for name in LIES if not chosen.library or is_for_library(LIES[name])]:
        print(name, file=sys.stderr, flush=True)
        rows.append(measure(name, LIES[name], chosen.seconds, chosen.library))
    if chosen.json:
        print(json.dumps({"seconds": chosen.seconds, "lies": rows}, indent=2))
    else:
        print_table(rows)


if __name__ == "__main__":
    main()
