"""How much hostile clients delay a well-behaved one: plays attacks on the reference gateway and prints one table.

    cmake --preset release && ninja -C build/release
    python3 bench/hostile_clients.py                        # all attacks, 30 s each
    python3 bench/hostile_clients.py --only drip_reader --seconds 120 --json

It runs in a network namespace of its own, with a gateway on loopback. In each attack a sound client sends a
keep-alive every half second. The table has the longest delay of an answer (of one that is missing: until the end), how
many were not answered at all, how often the client's connection was lost or refused, and the gateway's largest memory
and its share of one processor. docs/security.md explains the figures.
"""

import argparse
import contextlib
import json
import multiprocessing
import os
import resource
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass, field
from typing import Callable

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from gateway import Gateway, program  # noqa: E402  (the path is set above)
from lan_codec import (FRM_AP_NW_CFG, FRM_DEV_LIST, FRM_DOWNLOAD_APP_CFG, FRM_DOWNLOAD_FIRMWARE,  # noqa: E402
                       FRM_GET_LOG, FRM_GW_UNACTIVE, FRM_KEEPALIVE, FRM_PERMIT_JOIN, FRM_SET_CHANNEL, FRM_TP_CMD,
                       FRM_USER_BIND_REQ_ENGR, KEYS, encrypt, request)

KEEPALIVE = request(1, FRM_KEEPALIVE)
ANSWER_BYTES = 28
HEAD_BYTES = 16
LONGEST_GARBAGE_S = 25
MANY_DEVICES = {"devices": [{"dev_id": f"device{number:06}", "pid": "p", "state": 1} for number in range(10_000)]}


# ---- The attackers: each uses its own connections until it is stopped.

def connect(address, **options):
    client = socket.socket()
    if "receive_buffer" in options:
        client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, options["receive_buffer"])
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    client.connect((address, 6668))
    return client


def again_and_again(play):
    """Plays on a new connection whenever the last one was lost."""
    def attack(address):
        while True:
            with contextlib.suppress(OSError), connect(address) as client:
                play(client)
            time.sleep(0.01)
    return attack


def ask_and_read(data):
    """Sends the same requests over and over and reads all that comes."""
    def play(client):
        client.setblocking(False)
        rest = b""
        while True:
            rest = rest or data
            readable, writable, _ = select.select([client], [client], [])
            if writable:
                rest = rest[client.send(rest):]
            if readable and not client.recv(1 << 20):
                return
    return play


def half_frame(client):
    client.sendall(request(1, FRM_DEV_LIST, b"x" * 100)[:60])
    client.recv(1)


def drip_writer(client):
    client.sendall(request(1, FRM_DEV_LIST, b"x" * 1000)[:60])
    while True:
        time.sleep(5)
        client.sendall(b"x")


def never_reads(client):
    while True:
        client.sendall(request(1, FRM_DEV_LIST) * 100)


def drip_reader(address):
    while True:
        with contextlib.suppress(OSError), connect(address, receive_buffer=2048) as client:
            client.sendall(request(1, FRM_DEV_LIST) * 2000)
            while client.recv(4096):
                time.sleep(1.5)


def garbage_then_log(client):
    end = time.monotonic() + min(LONGEST_GARBAGE_S, seconds / 2)
    while time.monotonic() < end:
        client.sendall(b"x")
    client.sendall(request(1, FRM_GET_LOG))
    while client.recv(1 << 16):
        pass


def come_and_go(address):
    while True:
        with contextlib.suppress(OSError):
            connect(address).close()


def many_members():
    dps = ",".join(f'"{number:05x}":1' for number in range(190_000))
    return request(1, FRM_TP_CMD, encrypt(KEYS[3], f'{{"dps":{{{dps}}}}}'.encode()))


def a_million_numbers():
    return request(1, FRM_PERMIT_JOIN, encrypt(KEYS[3], b'{"n":[' + b",".join([b"1"] * 1_000_000) + b"]}"))


def set_channel():
    return request(1, FRM_SET_CHANNEL, encrypt(KEYS[3], b'{"channel":15}')) * 20


def push_configuration():
    return request(1, FRM_DOWNLOAD_APP_CFG, encrypt(KEYS[3], b'{"text":"' + b"x" * 2_000_000 + b'"}'))


def bind_many(client):
    """Every device that is bound is reported to every app, and this one reads no report."""
    products = ",".join(f'{{"cid":"d{number}","pid":"p"}}' for number in range(10_000))
    client.sendall(request(1, FRM_USER_BIND_REQ_ENGR, encrypt(KEYS[3], f'{{"products":[{products}]}}'.encode())))
    time.sleep(3600)


def large_request(make):
    def attack(address):
        again_and_again(ask_and_read(make()))(address)
    return attack


def stay(client):
    while True:
        client.sendall(KEEPALIVE)
        client.recv(ANSWER_BYTES, socket.MSG_WAITALL)
        time.sleep(10)


# ---- What a well-behaved client notices.

@dataclass
class Outcome:
    delays: list = field(default_factory=list)  # seconds
    missed: int = 0
    lost: int = 0  # connections


def sound_client(gateway, begin):
    """Sends a keep-alive every half second, whether the ones before were answered or not. The attack begins when it
    has been answered once."""
    address, outcome, waiting, received = gateway.address, Outcome(), [], b""
    client = connect(address)
    client.sendall(KEEPALIVE)
    client.settimeout(1)
    with contextlib.suppress(OSError):  # a gateway that is full answers nothing
        client.recv(ANSWER_BYTES, socket.MSG_WAITALL)
    begin()
    next_send = time.monotonic()
    until = next_send + seconds

    def take_frames(received):
        """Counts the answers among what came; the rest is not whole yet."""
        while len(received) >= HEAD_BYTES:
            _, _, kind, length = struct.unpack(">4I", received[:HEAD_BYTES])
            if len(received) < HEAD_BYTES + length:
                break
            if kind == FRM_KEEPALIVE and waiting:
                outcome.delays.append(time.monotonic() - waiting.pop(0))
            received = received[HEAD_BYTES + length:]
        return received

    def end_connection():
        outcome.missed += len(waiting)
        outcome.delays += [time.monotonic() - sent for sent in waiting]
        waiting.clear()
        client.close()

    while (now := time.monotonic()) < until:
        try:
            if now >= next_send:
                waiting.append(now)
                next_send += 0.5
                client.sendall(KEEPALIVE)
            client.settimeout(max(0.001, min(next_send, until) - time.monotonic()))
            with contextlib.suppress(TimeoutError):
                chunk = client.recv(1 << 16)
                if not chunk:
                    raise ConnectionResetError
                received = take_frames(received + chunk)
        except OSError:
            outcome.lost += 1
            end_connection()
            client, received = connect(address), b""
            time.sleep(0.05)
    end_connection()
    return outcome


def credentials(gateway, begin):
    """Instead of keep-alives: how long the access point takes to accept a network's name behind empty datagrams."""
    outcome = Outcome()
    begin()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        for _ in range(60):
            sender.sendto(b"", (gateway.address, 6669))
        sender.sendto(request(1, FRM_AP_NW_CFG, b'{"ssid":"home","passwd":"","token":"t"}'), (gateway.address, 6669))
    sent = time.monotonic()
    while time.monotonic() < sent + max(seconds, 90):
        if gateway.status()["wifi"]["ssid"] == "home":
            break
        time.sleep(0.01)
    else:
        outcome.missed = 1
    outcome.delays.append(time.monotonic() - sent)
    return outcome


# ---- The attacks.

@dataclass
class Attack:
    what: str
    play: Callable | None
    attackers: int = 1
    key: bool = False                            # whether it takes the key
    site: dict | None = None
    options: tuple = ()                          # of the daemon
    first: bool = False                          # the attackers come before the sound client
    no_descriptors: bool = False                 # left to the daemon
    client: Callable = sound_client


ATTACKS = {
    "none": Attack("no attack", None, 0),
    "flood": Attack("keep-alives without a pause", again_and_again(ask_and_read(KEEPALIVE * 100)), 9),
    "half_frame": Attack("half a frame, then silence", again_and_again(half_frame), 9),
    "drip_writer": Attack("half a frame, then 1 byte each 5 s", again_and_again(drip_writer)),
    "never_reads": Attack("lists asked for, never read", again_and_again(never_reads), 9),
    "drip_reader": Attack("lists read 4 KB each 1.5 s", drip_reader),
    "lists": Attack("10,000 devices listed in a loop", again_and_again(ask_and_read(request(1, FRM_DEV_LIST))), 9,
                    site=MANY_DEVICES),
    "deactivations": Attack("deactivation in a loop", again_and_again(ask_and_read(request(1, FRM_GW_UNACTIVE) * 20)),
                            9),
    "garbage_then_log": Attack("garbage byte by byte, then the log", again_and_again(garbage_then_log)),
    "come_and_go": Attack("connections opened and closed", come_and_go, 2),
    "no_descriptors": Attack("the same, no descriptor left", come_and_go, 2, no_descriptors=True),
    "many_members": Attack("190,000 members in a request", large_request(many_members), key=True),
    "numbers": Attack("1,000,000 numbers in a request", large_request(a_million_numbers), key=True),
    "channels": Attack("channel set in a loop, each kept", large_request(set_channel), 9, key=True),
    "configurations": Attack("2 MB configurations in a loop", large_request(push_configuration), 9, key=True),
    "binds": Attack("10,000 devices bound, no report read", again_and_again(bind_many), 9, key=True),
    "full_table": Attack("ten sound-looking connections", again_and_again(stay), 10, first=True),
    "empty_datagrams": Attack("60 empty datagrams before credentials", None, 1, options=("--ap",), client=credentials),
}


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        return sum(map(int, file.read().rsplit(")", 1)[1].split()[11:13])) / os.sysconf("SC_CLK_TCK")


def peak_kib(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))


def take_descriptors(pid):
    """Leaves the daemon those that it has, the well-behaved client's among them, and one more."""
    highest = max(map(int, os.listdir(f"/proc/{pid}/fd")))
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (highest + 2, highest + 2))


def measure(name, attack):
    processes = multiprocessing.get_context("fork")
    with Gateway("--log-level", "0", *attack.options, site=attack.site) as gateway:
        pid = gateway.process.pid
        players = [processes.Process(target=attack.play, args=(gateway.address,), daemon=True)
                   for _ in range(attack.attackers if attack.play else 0)]
        def begin():
            if attack.no_descriptors:
                take_descriptors(pid)
            for player in players:
                player.start()
        try:
            started, used = time.monotonic(), cpu_seconds(pid)
            if attack.first:
                begin()
                time.sleep(1)
            outcome = attack.client(gateway, (lambda: None) if attack.first else begin)
            share = (cpu_seconds(pid) - used) / (time.monotonic() - started)
            peak = peak_kib(pid)
            gateway.stop(signal.SIGKILL)  # it may be busy for a minute
        finally:
            for player in players:
                if player.pid:
                    player.kill()
                    player.join()
    return {"attack": name, "what": attack.what, "key": attack.key, "attackers": attack.attackers,
            "worst_delay_s": round(max(outcome.delays, default=0), 3), "missed": outcome.missed,
            "of": len(outcome.delays), "connections_lost": outcome.lost, "rss_peak_kib": peak,
            "cpu_percent": round(100 * share)}


# ---- What needs no time: the effect of one frame, or of one connection.

LOCAL_KEY = "0123456789abcdef"
ACTIVATED = {"gateway": {"active_stat": 2, "local_key": LOCAL_KEY}}


def takeover():
    """A frame without a key deactivates an activated gateway, whose local key is then no longer asked for."""
    with Gateway(site=ACTIVATED) as gateway:
        with connect(gateway.address) as stranger:
            stranger.sendall(request(1, FRM_GW_UNACTIVE))
            stranger.settimeout(10)
            stranger.recv(ANSWER_BYTES)
        return f"active_stat 2 before, {gateway.status()['gateway']['active_stat']} after one frame"


def upgrade_ended_by(what, stranger):
    def play():
        with (tempfile.NamedTemporaryFile() as image,
              Gateway(site=ACTIVATED, scenario={"upgrade": {"chunk_size": 100}}) as gateway):
            image.write(os.urandom(4_000_000))
            image.flush()
            upgrade = subprocess.Popen([program("engr_app"), "--gateway", gateway.address, "upgrade", image.name,
                                        "--version", "2.0.1"], env={**os.environ, "ENGR_LOCAL_KEY": LOCAL_KEY},
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            while gateway.status()["upgrade"]["received"] == 0 and upgrade.poll() is None:
                pass
            with connect(gateway.address) as client:
                stranger(client)
            status = upgrade.wait(120)
            state = gateway.status()["upgrade"]
            return f"{what}: upgrade {state['state']} at byte {state['received']} of 4000000, engr_app exit {status}"
    return play


EFFECTS = {
    "takeover": takeover,
    "stranger_leaves": upgrade_ended_by("a connection without a byte", lambda client: None),
    "stray_chunk": upgrade_ended_by("one piece nobody asked for",
                                    lambda client: client.sendall(request(1, FRM_DOWNLOAD_FIRMWARE, b"stray"))),
}


def print_table(rows):
    columns = [("attack", "what"), ("key", "key"), ("attackers", "attackers"), ("worst delay", "worst_delay_s"),
               ("missed", "missed"), ("lost", "connections_lost"), ("RSS peak KiB", "rss_peak_kib"),
               ("CPU %", "cpu_percent")]
    lines = [[title for title, _ in columns], ["---"] * len(columns)]
    for row in rows:
        shown = {**row, "key": "yes" if row["key"] else "no", "missed": f"{row['missed']} of {row['of']}",
                 "worst_delay_s": f"{row['worst_delay_s']:.3f} s" if row["missed"] < row["of"] else "no answer"}
        lines.append([str(shown[name]) for _, name in columns])
    widths = [max(len(line[column]) for line in lines) for column in range(len(columns))]
    for line in lines:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |")


def main():
    global seconds
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", action="append", choices=[*ATTACKS, *EFFECTS], metavar="NAME",
                        help="this attack alone; may be repeated: " + ", ".join([*ATTACKS, *EFFECTS]))
    parser.add_argument("--seconds", type=int, default=30, help="length of each attack (default 30)")
    parser.add_argument("--json", action="store_true", help="the figures as JSON")
    chosen = parser.parse_args()
    if not 1 <= chosen.seconds <= 3600:
        parser.error("--seconds must be 1 to 3600")
    if not os.path.exists(program("engr_gatewayd")):
        sys.exit(f"there is no {program('engr_gatewayd')}; build it, or set ENGR_BIN_DIR")
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    seconds = chosen.seconds
    names = chosen.only or [*ATTACKS, *EFFECTS]
    rows = []
    for name in [name for name in ATTACKS if name in names]:
        print(name, file=sys.stderr, flush=True)
        rows.append(measure(name, ATTACKS[name]))
    effects = {name: play() for name, play in EFFECTS.items() if name in names}
    if chosen.json:
        print(json.dumps({"seconds": seconds, "attacks": rows, "effects": effects}, indent=2))
        return
    if rows:
        print_table(rows)
    for name, effect in effects.items():
        print(f"{name}: {effect}")


if __name__ == "__main__":
    main()
