"""The reference gateway under hardship: plays each for a while and prints what it lost, held and needed.

    cmake --preset release && ninja -C build/release
    python3 bench/daemon_endurance.py                       # all, a minute each
    python3 bench/daemon_endurance.py --only churn --seconds 600

    churn      ten apps at full speed that come and go; memory and descriptors at the end against the start
    kill       kill -9 while changes are written, over and over; what was acknowledged must be there
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
import signal
import socket
import struct
import sys
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path[:0] = [os.path.join(ROOT, "tests"), os.path.join(ROOT, "tests", "programs")]
os.environ.setdefault("ENGR_BIN_DIR", os.path.join(ROOT, "build", "release", "bin"))

from gateway import Gateway, program  # noqa: E402  (the path is set above)
from lan_codec import FRM_DEV_LIST, FRM_KEEPALIVE, FRM_TP_CMD, KEYS, encrypt, request  # noqa: E402

FRM_DEV_LINE_STAT = 224
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


def read_reply(client):
    """The type of the next frame of a gateway."""
    head = client.recv(16, socket.MSG_WAITALL)
    if len(head) < 16:
        raise ConnectionResetError
    _, _, kind, length = struct.unpack(">4I", head)
    client.recv(length, socket.MSG_WAITALL)
    return kind


def ask(client, kind, payload=b""):
    client.sendall(request(1, kind, payload))
    while read_reply(client) != kind:  # reports may come between
        pass


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

def kill(seconds):
    """Changes go through the control socket, one after the other; the daemon dies in the middle of one."""
    chance = random.Random(1)
    kills = written = 0
    until = time.monotonic() + seconds
    with Gateway("--log-level", "0") as gateway:
        while time.monotonic() < until:
            read, write = os.pipe()
            writer = os.fork()
            if writer == 0:
                os.close(read)
                number = written
                while True:
                    number += 1
                    if gateway.run_ctl("set", "product_key", number).returncode != 0:
                        os._exit(0)
                    os.write(write, b"%d\n" % number)
            os.close(write)
            select.select([read], [], [], 30)
            time.sleep(chance.random() / 20)
            gateway.stop(signal.SIGKILL)
            os.waitpid(writer, 0)
            with os.fdopen(read, "rb") as acknowledged:
                written = int((acknowledged.read().split() or [written])[-1])
            gateway.start()
            kept = int(gateway.status()["gateway"]["product_key"])
            if kept not in (written, written + 1):
                raise Failed(f"expected change {written}, which was acknowledged, or the next one; {kept} is there")
            written = kept
            kills += 1
    return {"kills": kills, "changes": written, "lost": 0}


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
