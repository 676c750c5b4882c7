"""The reference gateway under hardship: plays each for a while and prints what it lost, held and needed.

    cmake --preset release && ninja -C build/release
    python3 bench/daemon_endurance.py                       # all, a minute each
    python3 bench/daemon_endurance.py --only churn --seconds 600

    churn      ten apps at full speed that come and go; memory and descriptors at the end against the start
    kill       kill -9 while an operator and an app change what lasts, over and over; all that was acknowledged must be
               there, and the store whole
    no_memory  the memory of the process is limited to what it has; requests must be answered or refused, and all
               be well when there is memory again
    clock      the time of day jumps forwards and back (needs the package faketime); well-behaved apps stay connected

It runs in a network namespace of its own, with gateways on loopback. Exit status 1: something was lost.
"""

import argparse
import contextlib
import json
import multiprocessing
import os
import random
import resource
import select
import shutil
import signal
import socket
import sqlite3
import struct
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from gateway import Gateway, program  # noqa: E402  (the path is set above)
from lan_codec import (FRM_DEV_LINE_STAT, FRM_DEV_LIST, FRM_DOWNLOAD_APP_CFG, FRM_DP_REPORT,  # noqa: E402
                       FRM_GET_CHANNEL, FRM_KEEPALIVE, FRM_READ_APP_CFG, FRM_SET_CHANNEL, FRM_TP_CMD, KEYS, decrypt,
                       encrypt, request)

QUERY = encrypt(KEYS[3], b'{"cid":"a4c1380001000001"}')
FAKETIME = "/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1"
APPS = 10


class Failed(Exception):
    """A hardship that the gateway did not stand; the text says what was expected."""


def memory_kib(pid, name="VmRSS"):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith(name))


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def connect(address):
    client = socket.create_connection((address, 6668), timeout=30)
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return client


def receive(client, count):
    """So many bytes; a socket with a time-out has no MSG_WAITALL."""
    received = b""
    while len(received) < count:
        chunk = client.recv(count - len(received))
        if not chunk:
            raise ConnectionResetError
        received += chunk
    return received


def read_reply(client):
    """Type and text of the next frame of a gateway, and whether it refuses."""
    _, _, kind, length = struct.unpack(">4I", receive(client, 16))
    rest = receive(client, length)
    return kind, decrypt(KEYS[3], rest[4:-8]), rest[:4] != bytes(4)


def ask(client, kind, payload=b"", answer=None):
    """The text of the answer, or of the report that comes in its place, and whether it is a refusal."""
    client.sendall(request(1, kind, payload))
    while True:
        answered, text, is_refused = read_reply(client)
        if answered == kind or answered == answer:  # other reports may come between
            return text, is_refused


def check_well(gateway, what):
    """A new app is served with everything."""
    with connect(gateway.address) as client:
        for kind in (FRM_KEEPALIVE, FRM_DEV_LIST, FRM_DEV_LINE_STAT):
            try:
                ask(client, kind)
            except OSError as error:
                raise Failed(f"expected an answer to a frame of type {kind} {what}, got {error}") from error


# ---- churn

def busy_app(address, seed, until, counts):
    chance = random.Random(seed)
    while time.monotonic() < until:
        is_served = False  # ten at most are: whoever leaves has to be noticed before another one is
        with contextlib.suppress(OSError), connect(address) as client:
            for _ in range(chance.randrange(1, 2000)):
                kind = chance.choice((FRM_KEEPALIVE, FRM_DEV_LIST, FRM_DEV_LINE_STAT, FRM_TP_CMD))
                ask(client, kind, QUERY if kind == FRM_TP_CMD else b"")
                is_served = True
                counts[0] += 1
            counts[1] += 1
            continue
        counts[2] += is_served
        time.sleep(0.01)


def churn(seconds):
    processes = multiprocessing.get_context("fork")
    with Gateway("--log-level", "0") as gateway:
        pid = gateway.process.pid
        check_well(gateway, "at the start")
        held = memory_kib(pid), descriptors(pid)
        until = time.monotonic() + seconds
        counts = [processes.Array("q", 3, lock=False) for _ in range(APPS)]
        apps = [processes.Process(target=busy_app, args=(gateway.address, seed, until, counts[seed]))
                for seed in range(APPS)]
        for app in apps:
            app.start()
        for app in apps:
            app.join()
        check_well(gateway, "after the churn")
        while gateway.status()["clients"]:  # those that left are swept
            time.sleep(0.05)
        requests, connections, lost = (sum(column) for column in zip(*counts))
        result = {"requests": requests, "connections": connections, "connections_lost": lost,
                  "rss_kib": [held[0], memory_kib(pid)], "descriptors": [held[1], descriptors(pid)]}
        if lost or result["descriptors"][1] > held[1]:
            raise Failed(f"expected no lost connection and no more descriptors than before: {result}")
        return result


# ---- kill

def configuration(number):
    """Long enough that a kill meets it half-written."""
    return json.dumps({"number": number, "text": "x" * 200_000})


def set_field(gateway, _, number):
    done = gateway.run_ctl("set", "product_key", number)
    if done.returncode != 0:
        raise ConnectionResetError(done.stderr)


def have_accepted(client, kind, text, answer=None):
    said, is_refused = ask(client, kind, encrypt(KEYS[3], text.encode()), answer)
    if is_refused:
        raise Failed(f"expected a request of type {kind} to be accepted, got {said}")


def set_channel(_, client, number):
    have_accepted(client, FRM_SET_CHANNEL, json.dumps({"channel": 11 + number % 16}))


def push_configuration(_, client, number):
    have_accepted(client, FRM_DOWNLOAD_APP_CFG, configuration(number))


def set_data_point(_, client, number):
    have_accepted(client, FRM_TP_CMD, json.dumps({"cid": "lamp", "dps": {"1": number}}), FRM_DP_REPORT)


# Each change: how it is made, and whether what the gateway has is that of a number.
CHANGES = (
    (set_field, lambda has, number: has["status"]["gateway"]["product_key"] == str(number)),
    (set_channel, lambda has, number: has["channel"] == {"channel": 11 + number % 16}),
    (push_configuration, lambda has, number: has["configuration"] == json.loads(configuration(number))),
    (set_data_point, lambda has, number: has["lamp"]["1"] == number),
)


def change_until_killed(gateway, number, acknowledge):
    with contextlib.suppress(OSError), connect(gateway.address) as client:
        while True:
            number += 1
            CHANGES[number % len(CHANGES)][0](gateway, client, number)
            os.write(acknowledge, b"%d\n" % number)


def check_store(gateway):
    """The files as the kill has left them, looked at in a copy."""
    with tempfile.TemporaryDirectory() as directory:
        for name in os.listdir(gateway.data_dir):
            if name.startswith("gateway.db"):
                shutil.copy(os.path.join(gateway.data_dir, name), directory)
        with contextlib.closing(sqlite3.connect(os.path.join(directory, "gateway.db"))) as store:
            found = store.execute("PRAGMA integrity_check").fetchall()
            if found != [("ok",)]:
                raise Failed(f"expected a store that is whole after a kill: {found}")


def lasting_state(gateway):
    with connect(gateway.address) as client:
        return {"status": gateway.status(), "lamp": gateway.ctl("devices")[0]["dps"],
                "channel": json.loads(ask(client, FRM_GET_CHANNEL)[0]),
                "configuration": json.loads(ask(client, FRM_READ_APP_CFG)[0])}


def check_changes(gateway, written):
    """The last change of each kind that was acknowledged, or the one that was under way, is there. Returns the number
    of the last change that is."""
    has, last = lasting_state(gateway), written
    for number in range(written - len(CHANGES) + 2, written + 2):
        is_there = CHANGES[number % len(CHANGES)][1]
        if is_there(has, number):
            last = max(last, number)
        elif number <= written:
            raise Failed(f"expected change {number} ({CHANGES[number % len(CHANGES)][0].__name__}), which was "
                         f"acknowledged before the kill; the gateway has {str(has)[:1000]}")
        elif not is_there(has, number - len(CHANGES)):
            raise Failed(f"expected change {number - len(CHANGES)}, or {number}, which was under way; the gateway has "
                         f"{str(has)[:1000]}")
    return last


def kill(seconds):
    """One change after the other; the daemon dies in the middle of one."""
    chance = random.Random(1)
    kills = changed = 0
    until = time.monotonic() + seconds
    lamp = {"dev_id": "lamp", "pid": "p", "state": 1, "online": 1, "dps": {"1": 0}}
    with Gateway("--log-level", "0", site={"devices": [lamp]}) as gateway:
        written = len(CHANGES)
        with connect(gateway.address) as client:
            for number in range(1, written + 1):
                CHANGES[number % len(CHANGES)][0](gateway, client, number)
        while time.monotonic() < until:
            read, write = os.pipe()
            writer = os.fork()
            if writer == 0:
                try:
                    os.close(read)
                    change_until_killed(gateway, written, write)
                except Failed as failure:
                    print(failure, file=sys.stderr, flush=True)
                finally:
                    os._exit(0)
            os.close(write)
            select.select([read], [], [], 30)
            time.sleep(chance.random() / 20)
            gateway.stop(signal.SIGKILL)
            os.waitpid(writer, 0)
            with os.fdopen(read, "rb") as acknowledged:
                last = int((acknowledged.read().split() or [written])[-1])
            changed += last - written
            check_store(gateway)
            gateway.start()
            written = check_changes(gateway, last)
            kills += 1
    if changed == 0:
        raise Failed("expected changes to be acknowledged between the kills")
    return {"kills": kills, "changes": changed, "lost": 0}


# ---- no_memory

def no_memory(seconds):
    with Gateway("--log-level", "0") as gateway:
        pid = gateway.process.pid
        check_well(gateway, "at the start")
        limit = (memory_kib(pid, "VmSize") + 64) * 1024
        resource.prlimit(pid, resource.RLIMIT_AS, (limit, resource.RLIM_INFINITY))
        answered = refused = 0
        chance = random.Random(2)
        large = request(1, FRM_TP_CMD, encrypt(KEYS[3], b'{"dps":{"1":"' + b"x" * 1_500_000 + b'"}}'))
        until = time.monotonic() + seconds
        while time.monotonic() < until:
            with contextlib.suppress(OSError), connect(gateway.address) as client:
                client.settimeout(0.5)
                for _ in range(50):
                    client.sendall(large if chance.random() < 0.5 else request(1, FRM_DEV_LIST))
                    read_reply(client)
                    answered += 1
                continue
            refused += 1
            if gateway.process.poll() is not None:
                raise Failed(f"expected the gateway to go on without memory; it ended: {gateway.stderr()[-300:]}")
        resource.prlimit(pid, resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        check_well(gateway, "when there is memory again")
        return {"answered": answered, "connections_lost_or_silent": refused}


# ---- clock

def clock(seconds):
    if not os.path.exists(FAKETIME):
        return {"skipped": "the package faketime is not installed"}
    jumps = lost = offset = 0
    path = f"/tmp/engr-clock-{os.getpid()}"
    os.environ.update({"LD_PRELOAD": FAKETIME, "FAKETIME_TIMESTAMP_FILE": path, "FAKETIME_NO_CACHE": "1",
                       "FAKETIME_DONT_FAKE_MONOTONIC": "1"})

    def set_clock(offset_s):
        with open(path + ".new", "w", encoding="ascii") as file:
            file.write(f"{offset_s:+}s")
        os.replace(path + ".new", path)

    set_clock(0)
    try:
        with Gateway("--log-level", "0") as gateway:
            for name in ("LD_PRELOAD", "FAKETIME_TIMESTAMP_FILE"):
                del os.environ[name]
            chance = random.Random(3)
            client = connect(gateway.address)
            until = time.monotonic() + seconds
            while time.monotonic() < until:
                # Jumps forwards by 2 minutes to 30 days look like a silence of that length; they are left out.
                offset += chance.choice((-1, 1)) * chance.choice((1, 30, 110, 3600 * 24 * 400))
                set_clock(offset)
                jumps += 1
                for _ in range(3):
                    try:
                        ask(client, FRM_KEEPALIVE)
                    except OSError:
                        lost += 1
                        client = connect(gateway.address)
                    time.sleep(0.05)
            client.close()
            check_well(gateway, "after the jumps")
    finally:
        for name in ("LD_PRELOAD", "FAKETIME_TIMESTAMP_FILE"):
            os.environ.pop(name, None)
        with contextlib.suppress(OSError):
            os.remove(path)
    if lost:
        raise Failed(f"expected the app to stay connected; {jumps} jumps cost it {lost} connections")
    return {"jumps": jumps, "connections_lost": lost}


HARDSHIPS = {"churn": churn, "kill": kill, "no_memory": no_memory, "clock": clock}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", action="append", choices=[*HARDSHIPS], metavar="NAME",
                        help="this one alone; may be repeated: " + ", ".join(HARDSHIPS))
    parser.add_argument("--seconds", type=int, default=60, help="length of each (default 60)")
    chosen = parser.parse_args()
    if not 1 <= chosen.seconds <= 86400:
        parser.error("--seconds must be 1 to 86400")
    if not os.path.exists(program("engr_gatewayd")):
        sys.exit(f"there is no {program('engr_gatewayd')}; build it, or set ENGR_BIN_DIR")
    if "ENGR_ISOLATED" not in os.environ:
        launcher = os.path.join(ROOT, "tests", "isolated")
        os.execv(launcher, [launcher, sys.executable, "-B", *sys.argv])
    status = 0
    for name in chosen.only or HARDSHIPS:
        try:
            print(f"{name}: {json.dumps(HARDSHIPS[name](chosen.seconds))}", flush=True)
        except Failed as failure:
            print(f"{name}: FAILED: {failure}", flush=True)
            status = 1
    sys.exit(status)


if __name__ == "__main__":
    main()
